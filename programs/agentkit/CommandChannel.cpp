#include "agentkit/CommandChannel.h"

#include <cstring>

#include "agentkit/AgentPipe.h"

namespace kwagentkit {

namespace {

constexpr LONG kLoaderTurn = 0;  // a zeroed section: the loader's turn, nothing in it
constexpr LONG kAgentTurn = 1;
constexpr DWORD kSectionSize = 1u << 20;

std::wstring SectionName(const std::wstring& base) { return base + L"-channel"; }
std::wstring EventName(const std::wstring& base) { return base + L"-answered"; }
std::wstring OwnSectionName(const std::wstring& base, wchar_t side, DWORD serial) {
  return base + L"-" + side + std::to_wstring(serial);
}

}  // namespace

// The shared section's start; the message (when it fits) follows it.
struct CommandChannel::Header {
  volatile LONG turn;
  volatile LONG full;  // a message lies here for the side whose turn it is
  DWORD size;
  DWORD serial;      // 0: the message lies inline; else it has a section of its own
  wchar_t side;      // and the writer's letter in that section's name
  volatile LONG agentWaits;  // the GUI thread waits in Qt's event loop
};

DWORD CommandChannel::InlineLimit() { return kSectionSize - sizeof(Header); }

CommandChannel::~CommandChannel() {
  if (m_view != nullptr) UnmapViewOfFile(m_view);
  for (HANDLE handle : {m_section, m_answered, m_outgoing})
    if (handle != nullptr) CloseHandle(handle);
}

bool CommandChannel::Create(const std::wstring& pipeName) {
  m_base = PipeObjectName(pipeName, L"");
  m_section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, kSectionSize,
                                 SectionName(m_base).c_str());
  m_answered = CreateEventW(nullptr, FALSE, FALSE, EventName(m_base).c_str());
  if (m_section != nullptr) m_view = MapViewOfFile(m_section, FILE_MAP_ALL_ACCESS, 0, 0, kSectionSize);
  return m_view != nullptr && m_answered != nullptr;
}

bool CommandChannel::Open(const std::wstring& pipeName) {
  m_base = PipeObjectName(pipeName, L"");
  m_section = OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, SectionName(m_base).c_str());
  m_answered = OpenEventW(EVENT_MODIFY_STATE, FALSE, EventName(m_base).c_str());
  if (m_section != nullptr) m_view = MapViewOfFile(m_section, FILE_MAP_ALL_ACCESS, 0, 0, kSectionSize);
  return m_view != nullptr && m_answered != nullptr;
}

bool CommandChannel::LoaderTurn() const { return m_view != nullptr && header()->turn == kLoaderTurn; }

void CommandChannel::NoteAgentWaits(bool waits) {
  if (m_view != nullptr) InterlockedExchange(&header()->agentWaits, waits ? 1 : 0);
}

bool CommandChannel::AgentWaits() const { return m_view != nullptr && header()->agentWaits != 0; }

bool CommandChannel::PutCommand(const std::string& message) { return Put(message, kLoaderTurn, kAgentTurn, L'L'); }

bool CommandChannel::TakeAnswer(std::string* message) { return Take(message, kLoaderTurn); }

bool CommandChannel::TakeCommand(std::string* message) { return Take(message, kAgentTurn); }

bool CommandChannel::PutAnswer(const std::string& message) {
  if (!Put(message, kAgentTurn, kLoaderTurn, L'A')) return false;
  SetEvent(m_answered);
  return true;
}

bool CommandChannel::Put(const std::string& message, LONG from, LONG to, wchar_t side) {
  if (m_view == nullptr || header()->turn != from) return false;
  Header* head = header();
  const DWORD size = static_cast<DWORD>(message.size());
  if (m_outgoing != nullptr) {  // the reader has taken it: its turn has come and gone
    CloseHandle(m_outgoing);
    m_outgoing = nullptr;
  }
  DWORD serial = 0;
  if (size <= InlineLimit()) {
    std::memcpy(head + 1, message.data(), size);
  } else {
    serial = ++m_serial;
    HANDLE own = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size,
                                    OwnSectionName(m_base, side, serial).c_str());
    void* view = own != nullptr ? MapViewOfFile(own, FILE_MAP_WRITE, 0, 0, size) : nullptr;
    if (view == nullptr) {
      if (own != nullptr) CloseHandle(own);
      return false;
    }
    std::memcpy(view, message.data(), size);
    UnmapViewOfFile(view);
    m_outgoing = own;
  }
  head->size = size;
  head->serial = serial;
  head->side = side;
  head->full = 1;
  InterlockedExchange(&head->turn, to);  // a full barrier: the message is there before the turn
  return true;
}

bool CommandChannel::Take(std::string* message, LONG turn) {
  message->clear();
  if (m_view == nullptr) return false;
  Header* head = header();
  if (head->turn != turn || !head->full) return false;
  MemoryBarrier();
  // A message that cannot be read (a size out of bounds, a section gone)
  // is taken as empty, for the reader to answer as unreadable.
  const DWORD size = head->size;
  if (head->serial == 0) {
    if (size <= InlineLimit()) message->assign(reinterpret_cast<const char*>(head + 1), size);
  } else {
    // The writer's section of this message; a size it does not have fails to map.
    HANDLE own = OpenFileMappingW(FILE_MAP_READ, FALSE, OwnSectionName(m_base, head->side, head->serial).c_str());
    const void* view = own != nullptr ? MapViewOfFile(own, FILE_MAP_READ, 0, 0, size) : nullptr;
    if (view != nullptr && size <= 0x7fffffffu) message->assign(static_cast<const char*>(view), size);
    if (view != nullptr) UnmapViewOfFile(view);
    if (own != nullptr) CloseHandle(own);
  }
  head->full = 0;
  return true;
}

}  // namespace kwagentkit
