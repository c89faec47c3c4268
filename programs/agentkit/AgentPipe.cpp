#include "agentkit/AgentPipe.h"

#include <algorithm>
#include <cstdint>

namespace kwagentkit {

namespace {

// A message longer than this crosses as several frames: each frame's length
// has its top bit set when another frame of the same message follows.
constexpr DWORD kFrameLimit = 16u * 1024 * 1024;
constexpr DWORD kMoreFrames = 0x80000000u;

bool WriteAll(HANDLE pipe, const char* data, DWORD size) {
  while (size > 0) {
    DWORD written = 0;
    if (!WriteFile(pipe, data, size, &written, nullptr) || written == 0) return false;
    data += written;
    size -= written;
  }
  return true;
}

bool ReadAll(HANDLE pipe, char* data, DWORD size, std::atomic<DWORD>* heard) {
  while (size > 0) {
    DWORD read = 0;
    if (!ReadFile(pipe, data, size, &read, nullptr) || read == 0) return false;
    if (heard != nullptr) *heard = GetTickCount();
    data += read;
    size -= read;
  }
  return true;
}

bool WriteFrame(HANDLE pipe, const char* data, DWORD size, bool more) {
  const DWORD word = size | (more ? kMoreFrames : 0);
  const unsigned char length[4] = {static_cast<unsigned char>(word), static_cast<unsigned char>(word >> 8),
                                   static_cast<unsigned char>(word >> 16), static_cast<unsigned char>(word >> 24)};
  return WriteAll(pipe, reinterpret_cast<const char*>(length), 4) && WriteAll(pipe, data, size);
}

}  // namespace

std::wstring PipeObjectName(const std::wstring& pipeName, const std::wstring& suffix) {
  // "\\.\pipe\kwagent-..." -> "Local\kwagent-...<suffix>"
  const size_t slash = pipeName.find_last_of(L'\\');
  return L"Local\\" + pipeName.substr(slash == std::wstring::npos ? 0 : slash + 1) + suffix;
}

std::wstring WrittenEventName(const std::wstring& pipeName) { return PipeObjectName(pipeName, L"-written"); }

bool WriteMessage(HANDLE pipe, const std::string& message) {
  const char* data = message.data();
  uint64_t left = message.size();
  do {
    const DWORD size = static_cast<DWORD>(std::min<uint64_t>(left, kFrameLimit));
    if (!WriteFrame(pipe, data, size, left > size)) return false;
    data += size;
    left -= size;
  } while (left > 0);
  return true;
}

bool ReadMessage(HANDLE pipe, std::string* message, std::atomic<DWORD>* heard) {
  message->clear();
  for (;;) {
    unsigned char length[4];
    if (!ReadAll(pipe, reinterpret_cast<char*>(length), 4, heard)) return false;
    const DWORD word = length[0] | (length[1] << 8) | (length[2] << 16) | (static_cast<DWORD>(length[3]) << 24);
    const DWORD size = word & ~kMoreFrames;
    if (size > kFrameLimit || message->size() > 0x7fffffffu - size) return false;
    const size_t at = message->size();
    message->resize(at + size);
    if (size > 0 && !ReadAll(pipe, &(*message)[at], size, heard)) return false;
    if ((word & kMoreFrames) == 0) return true;
  }
}

}  // namespace kwagentkit
