// What OutputDebugString sends while a capture runs, for tests that check
// what a debugger would hear.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace tracetest {

struct DebugText {
  std::string text;   // UTF-8
  long long fileSize;  // of the watched file when the text arrived; -1: no such file
};

inline std::string DebugUtf8(const wchar_t* text) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 1) return std::string();
  std::string out(static_cast<size_t>(size - 1), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, &out[0], size, nullptr, nullptr);
  return out;
}

// Collects what OutputDebugString sends until Stop, through a vectored
// exception handler that sees the debug-print exception first.
class DebugOutputCapture {
 public:
  explicit DebugOutputCapture(const std::wstring& watchedFile = L"") {
    heard_[0].clear();
    heard_[1].clear();
    watched_ = watchedFile;
    handler_ = AddVectoredExceptionHandler(1, [](EXCEPTION_POINTERS* info) -> LONG {
      // DBG_PRINTEXCEPTION_C carries (length, char*); DBG_PRINTEXCEPTION_WIDE_C (length, wchar_t*, ...).
      const EXCEPTION_RECORD* record = info->ExceptionRecord;
      const bool wide = record->ExceptionCode == 0x4001000A;
      if ((!wide && record->ExceptionCode != 0x40010006) || record->NumberParameters < 2)
        return EXCEPTION_CONTINUE_SEARCH;
      WIN32_FILE_ATTRIBUTE_DATA data;
      long long size = -1;
      if (!watched_.empty() && GetFileAttributesExW(watched_.c_str(), GetFileExInfoStandard, &data))
        size = static_cast<long long>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
      const auto text = record->ExceptionInformation[1];
      AcquireSRWLockExclusive(&lock_);
      heard_[wide].push_back(
          {wide ? DebugUtf8(reinterpret_cast<const wchar_t*>(text)) : std::string(reinterpret_cast<const char*>(text)),
           size});
      ReleaseSRWLockExclusive(&lock_);
      return EXCEPTION_CONTINUE_SEARCH;
    });
  }
  ~DebugOutputCapture() { Stop(); }
  DebugOutputCapture(const DebugOutputCapture&) = delete;
  DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

  // Where the system raises the wide form, the narrow one may follow as a
  // fall-back for the same text; the wide list is then the complete one.
  std::vector<DebugText> Stop() {
    if (handler_) RemoveVectoredExceptionHandler(handler_);
    handler_ = nullptr;
    AcquireSRWLockExclusive(&lock_);
    std::vector<DebugText> heard = heard_[1].empty() ? heard_[0] : heard_[1];
    ReleaseSRWLockExclusive(&lock_);
    return heard;
  }

 private:
  PVOID handler_ = nullptr;
  static inline SRWLOCK lock_ = SRWLOCK_INIT;
  static inline std::vector<DebugText> heard_[2];  // narrow, wide
  static inline std::wstring watched_;
};

}  // namespace tracetest
