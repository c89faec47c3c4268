#include "kwscript/StackGuard.h"

#include <cwctype>

#include <QtCore/QString>

#include "host/HostSupport.h"
#include "kwscript/ScriptDispatch.h"

namespace kwscript {

const wchar_t kStackItem[] = L"kwscriptStack";

namespace {

// What a guarded procedure must find left of its stack: enough for the
// deepest a procedure's own statements and the engine's calls go before
// the next check, and for the error to travel back.
constexpr SIZE_T kStackReserve = 512 * 1024;
// VBScript's own number for this error (28, "Out of stack space").
constexpr HRESULT kOutOfStack = static_cast<HRESULT>(0x800A001C);
const wchar_t kCheckCall[] = L": kwscriptStack.Check";

bool IsNameChar(wchar_t c) { return std::iswalnum(c) || c == L'_'; }

// Whether `line` at `at` reads the word `word` (any case) followed by a blank.
bool WordAt(const std::wstring& line, std::size_t at, const wchar_t* word) {
  std::size_t i = 0;
  for (; word[i] != 0; ++i)
    if (at + i >= line.size() || std::towlower(line[at + i]) != std::towlower(word[i])) return false;
  return at + i < line.size() && (line[at + i] == L' ' || line[at + i] == L'\t');
}

std::size_t SkipBlanks(const std::wstring& line, std::size_t at) {
  while (at < line.size() && (line[at] == L' ' || line[at] == L'\t')) ++at;
  return at;
}

// Where the declaration of a procedure that starts a statement at `at`
// ends ("Private Function f(a, b())" up to its closing parenthesis), or
// npos when the statement declares none (or its parameters go on past the line).
std::size_t ProcedureHeaderEnd(const std::wstring& line, std::size_t at) {
  at = SkipBlanks(line, at);
  for (const wchar_t* scope : {L"Public", L"Private"})
    if (WordAt(line, at, scope)) at = SkipBlanks(line, at + wcslen(scope));
  if (WordAt(line, at, L"Default")) at = SkipBlanks(line, at + 7);
  if (WordAt(line, at, L"Function")) {
    at += 8;
  } else if (WordAt(line, at, L"Sub")) {
    at += 3;
  } else if (WordAt(line, at, L"Property")) {
    at = SkipBlanks(line, at + 8);
    if (!WordAt(line, at, L"Get") && !WordAt(line, at, L"Let") && !WordAt(line, at, L"Set")) return std::wstring::npos;
    at += 3;
  } else {
    return std::wstring::npos;
  }
  at = SkipBlanks(line, at);
  const std::size_t name = at;
  while (at < line.size() && IsNameChar(line[at])) ++at;
  if (at == name) return std::wstring::npos;
  std::size_t end = at;  // after the name, or after its parameters
  std::size_t next = SkipBlanks(line, end);
  if (next < line.size() && line[next] == L'(') {
    std::size_t close = next;
    for (int depth = 0; close < line.size(); ++close) {
      if (line[close] == L'(') ++depth;
      if (line[close] == L')' && --depth == 0) break;
    }
    if (close >= line.size()) return std::wstring::npos;  // its parameters go on past the line
    end = close + 1;
    next = SkipBlanks(line, end);
  }
  // Only a declaration the engine would take: the statement ends there.
  const bool ends = next >= line.size() || line[next] == L':' || line[next] == L'\'' || line[next] == L'\r';
  return ends ? end : std::wstring::npos;
}

// The places in one line where a statement starts: its start and after
// each colon, outside string literals, up to a comment.
std::vector<std::size_t> StatementStarts(const std::wstring& line) {
  std::vector<std::size_t> starts{0};
  bool inString = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const wchar_t c = line[i];
    if (c == L'"') {
      inString = !inString;
    } else if (!inString && c == L'\'') {
      break;
    } else if (!inString && c == L':') {
      starts.push_back(i + 1);
    } else if (!inString && WordAt(line, SkipBlanks(line, i), L"Rem") && (i == 0 || line[i - 1] == L':')) {
      break;
    }
  }
  return starts;
}

class CStackGuard final : public ScriptItem {
 public:
  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
    if (count != 1 || _wcsicmp(names[0], L"Check") != 0) return DISP_E_UNKNOWNNAME;
    ids[0] = 1;
    return S_OK;
  }
  STDMETHOD(Invoke)(DISPID id, REFIID, LCID, WORD, DISPPARAMS*, VARIANT* result, EXCEPINFO* exception,
                    UINT*) override {
    if (id != 1) return DISP_E_MEMBERNOTFOUND;
    if (result != nullptr) VariantInit(result);
    MEMORY_BASIC_INFORMATION stack{};
    const char* here = reinterpret_cast<const char*>(&stack);
    if (VirtualQuery(here, &stack, sizeof stack) == 0 ||
        static_cast<SIZE_T>(here - static_cast<const char*>(stack.AllocationBase)) >= kStackReserve)
      return S_OK;
    if (exception != nullptr) {
      *exception = EXCEPINFO{};
      exception->scode = kOutOfStack;
      exception->bstrSource = SysAllocString(L"kwscript");
      exception->bstrDescription =
          SysAllocString(L"Out of stack space: the script's procedures call each other too deep");
    }
    return DISP_E_EXCEPTION;
  }
};

}  // namespace

std::wstring GuardProcedures(const std::wstring& code, std::vector<CheckCallMark>* marks) {
  std::wstring out;
  out.reserve(code.size() + 256);
  int lineNumber = 0;
  bool continued = false;  // the line goes on a statement of the line before
  for (std::size_t from = 0; from <= code.size(); ++lineNumber) {
    std::size_t end = code.find(L'\n', from);
    if (end == std::wstring::npos) end = code.size();
    std::wstring line = code.substr(from, end - from);
    std::size_t added = 0;
    for (std::size_t start : StatementStarts(line)) {
      if (continued && start == 0) continue;
      const std::size_t header = ProcedureHeaderEnd(line, start + added);
      if (header == std::wstring::npos) continue;
      line.insert(header, kCheckCall);
      marks->push_back({lineNumber, static_cast<int>(header), static_cast<int>(wcslen(kCheckCall))});
      added += wcslen(kCheckCall);
    }
    std::size_t last = line.find_last_not_of(L" \t\r");
    continued = last != std::wstring::npos && line[last] == L'_';
    out += line;
    if (end < code.size()) out += L'\n';
    from = end + 1;
  }
  return out;
}

IDispatch* StackGuard() {
  static CStackGuard guard;
  return &guard;
}

}  // namespace kwscript
