#include "kwscript/ThrownValues.h"

#include <cwctype>

#include "host/HostSupport.h"
#include "kwscript/ScriptDispatch.h"
#include "kwscript/Output.h"
#include "kwscript/ValueText.h"

namespace kwscript {

const wchar_t kThrownItem[] = L"kwscriptThrown";

namespace {

// The value noted last and the line of its throw statement (0: none).
int g_line = 0;
QString g_text;

bool IsNameStart(wchar_t c) { return std::iswalpha(c) || c == L'_' || c == L'$'; }
bool IsNameChar(wchar_t c) { return std::iswalnum(c) || c == L'_' || c == L'$'; }

// Words after which a slash starts a regular expression, not a division.
bool ExpressionFollows(const std::wstring& word) {
  for (const wchar_t* keyword : {L"return", L"typeof", L"instanceof", L"in", L"new", L"delete", L"void", L"throw",
                                 L"case", L"do", L"else"})
    if (word == keyword) return true;
  return false;
}

// Reads JScript text: copies it to `out`, telling the places of throw
// statements to `onThrow` once the statement's blanks after "throw" are
// copied. False when it meets something it cannot read with certainty.
template <class OnThrow>
bool Scan(const std::wstring& code, std::wstring* out, OnThrow onThrow) {
  const std::size_t n = code.size();
  int line = 1;
  bool regexAllowed = true;  // a slash here starts a regular expression
  std::size_t i = 0;
  auto copyTo = [&](std::size_t end) {
    for (std::size_t k = i; k < end; ++k)
      if (code[k] == L'\n') ++line;
    out->append(code, i, end - i);
    i = end;
  };
  while (i < n) {
    const wchar_t c = code[i];
    if (c == L'/' && i + 1 < n && code[i + 1] == L'/') {
      const std::size_t end = code.find(L'\n', i);
      copyTo(end == std::wstring::npos ? n : end);
    } else if (c == L'/' && i + 1 < n && code[i + 1] == L'*') {
      const std::size_t end = code.find(L"*/", i + 2);
      if (end == std::wstring::npos) return false;
      copyTo(end + 2);
    } else if (c == L'"' || c == L'\'' || (c == L'/' && regexAllowed)) {
      std::size_t k = i + 1;
      bool inClass = false;  // [...] of a regular expression
      for (; k < n && (code[k] != c || inClass); ++k) {
        if (code[k] == L'\n' || code[k] == L'\r') return false;
        if (code[k] == L'\\') ++k;
        else if (c == L'/' && code[k] == L'[') inClass = true;
        else if (c == L'/' && code[k] == L']') inClass = false;
      }
      if (k >= n) return false;
      ++k;
      while (c == L'/' && k < n && IsNameChar(code[k])) ++k;  // flags
      copyTo(k);
      regexAllowed = false;
    } else if (IsNameStart(c)) {
      std::size_t k = i;
      while (k < n && IsNameChar(code[k])) ++k;
      const std::wstring word = code.substr(i, k - i);
      const std::size_t before = out->find_last_not_of(L" \t\r\n");
      const bool member = before != std::wstring::npos && (*out)[before] == L'.';  // obj.throw
      copyTo(k);
      regexAllowed = ExpressionFollows(word);
      if (word == L"throw" && !member) {
        while (i < n && (code[i] == L' ' || code[i] == L'\t')) copyTo(i + 1);
        onThrow(line);
      }
    } else if (std::iswdigit(c)) {
      std::size_t k = i;
      while (k < n && (IsNameChar(code[k]) || code[k] == L'.')) ++k;
      copyTo(k);
      regexAllowed = false;
    } else {
      copyTo(i + 1);
      if (c == L')' || c == L']') regexAllowed = false;
      else if (c != L' ' && c != L'\t' && c != L'\r' && c != L'\n') regexAllowed = true;
    }
  }
  return true;
}

class CThrownValues final : public ScriptItem {
 public:
  // "L<line>" is that line's note.
  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
    const int line = count == 1 && names[0][0] == L'L' ? _wtoi(names[0] + 1) : 0;
    if (line <= 0) return DISP_E_UNKNOWNNAME;
    ids[0] = line;
    return S_OK;
  }
  STDMETHOD(Invoke)(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO*,
                    UINT*) override {
    if (result != nullptr) VariantInit(result);
    if (id <= 0 || !(flags & DISPATCH_PROPERTYPUT) || params == nullptr || params->cArgs < 1)
      return DISP_E_MEMBERNOTFOUND;
    const VARIANT* value = &params->rgvarg[0];
    while (V_VT(value) == (VT_VARIANT | VT_BYREF)) value = V_VARIANTREF(value);
    const bool text = V_VT(value) == VT_BSTR;
    g_text = text ? Quoted(ValueText(value)) : ValueText(value);
    g_line = id;
    return S_OK;
  }
};

}  // namespace

std::wstring NoteThrows(const std::wstring& code, std::vector<CheckCallMark>* marks) {
  std::wstring out;
  out.reserve(code.size() + 256);
  std::vector<CheckCallMark> added;
  const bool read = Scan(code, &out, [&](int line) {
    const std::wstring note = std::wstring(kThrownItem) + L".L" + std::to_wstring(line) + L" = ";
    const std::size_t lineStart = out.rfind(L'\n') + 1;  // 0 on the first line
    added.push_back({line - 1, static_cast<int>(out.size() - lineStart), static_cast<int>(note.size())});
    out += note;
  });
  if (!read) return code;
  marks->insert(marks->end(), added.begin(), added.end());
  return out;
}

IDispatch* ThrownValues() {
  static CThrownValues values;
  return &values;
}

void ForgetThrownValue() {
  g_line = 0;
  g_text.clear();
}

bool ThrownValueOn(int line, QString* text) {
  if (g_line == 0 || g_line != line) return false;
  *text = g_text;
  return true;
}

}  // namespace kwscript
