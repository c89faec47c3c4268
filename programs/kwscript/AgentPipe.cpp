#include "kwscript/AgentPipe.h"

namespace kwscript {

namespace {

bool WriteAll(HANDLE pipe, const char* data, DWORD size) {
  while (size > 0) {
    DWORD written = 0;
    if (!WriteFile(pipe, data, size, &written, nullptr) || written == 0) return false;
    data += written;
    size -= written;
  }
  return true;
}

bool ReadAll(HANDLE pipe, char* data, DWORD size) {
  while (size > 0) {
    DWORD read = 0;
    if (!ReadFile(pipe, data, size, &read, nullptr) || read == 0) return false;
    data += read;
    size -= read;
  }
  return true;
}

}  // namespace

bool WriteMessage(HANDLE pipe, const QByteArray& message) {
  const unsigned char length[4] = {
      static_cast<unsigned char>(message.size()), static_cast<unsigned char>(message.size() >> 8),
      static_cast<unsigned char>(message.size() >> 16), static_cast<unsigned char>(message.size() >> 24)};
  return WriteAll(pipe, reinterpret_cast<const char*>(length), 4) &&
         WriteAll(pipe, message.constData(), static_cast<DWORD>(message.size()));
}

bool ReadMessage(HANDLE pipe, QByteArray* message) {
  unsigned char length[4];
  if (!ReadAll(pipe, reinterpret_cast<char*>(length), 4)) return false;
  const DWORD size = length[0] | (length[1] << 8) | (length[2] << 16) | (static_cast<DWORD>(length[3]) << 24);
  if (size > 64u * 1024 * 1024) return false;
  message->resize(static_cast<int>(size));
  return size == 0 || ReadAll(pipe, message->data(), size);
}

}  // namespace kwscript
