#include "kwscript/Checks.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QXmlStreamWriter>

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <cwctype>
#include <iterator>

#include "agentkit/QtText.h"
#include "kwscript/Output.h"
#include "kwscript/ScriptObject.h"
#include "kwscript/ValueText.h"

namespace kwscript {

namespace {

CheckLog g_log;

// DISPIDs of the check members, far from the app object's own: the base,
// plus twice the line, plus one for checkEqual.
constexpr DISPID kCheckBase = 0x20000000;
constexpr DISPID kCheckEnd = 0x30000000;
const wchar_t kLineMark[] = L"__L";

bool IsNameChar(wchar_t c) { return std::iswalnum(c) || c == L'_' || c == L'$'; }

// Whether `code` at `at` reads "app.check" or "app.checkEqual" (blanks
// allowed around the dot) as a whole name; where the member name ends.
bool CheckCallAt(const std::wstring& code, std::size_t at, bool anyCase, std::size_t* nameEnd) {
  auto same = [anyCase](wchar_t a, wchar_t b) { return anyCase ? std::towlower(a) == std::towlower(b) : a == b; };
  auto word = [&](std::size_t from, const wchar_t* text) {
    for (std::size_t i = 0; text[i] != 0; ++i)
      if (from + i >= code.size() || !same(code[from + i], text[i])) return false;
    return true;
  };
  if ((at > 0 && (IsNameChar(code[at - 1]) || code[at - 1] == L'.')) || !word(at, L"app")) return false;
  std::size_t i = at + 3;
  while (i < code.size() && (code[i] == L' ' || code[i] == L'\t')) ++i;
  if (i >= code.size() || code[i] != L'.') return false;
  ++i;
  while (i < code.size() && (code[i] == L' ' || code[i] == L'\t')) ++i;
  if (!word(i, L"check")) return false;
  std::size_t end = i + 5;
  if (word(end, L"Equal")) end += 5;
  if (end < code.size() && IsNameChar(code[end])) return false;
  *nameEnd = end;
  return true;
}

// Where the member name of each check call ends in `code`, leaving out
// string literals and comments.
std::vector<std::size_t> CheckNameEnds(const std::wstring& code, bool vbscript) {
  std::vector<std::size_t> ends;
  wchar_t quote = 0;  // inside a string literal opened by it
  bool lineComment = false, blockComment = false;
  for (std::size_t i = 0; i < code.size(); ++i) {
    const wchar_t c = code[i];
    const wchar_t next = i + 1 < code.size() ? code[i + 1] : 0;
    std::size_t end = 0;
    if (c == L'\n') {
      lineComment = false;
      quote = 0;  // a string ends with its line (or the engine reports an error)
    } else if (lineComment) {
    } else if (blockComment) {
      if (c == L'*' && next == L'/') blockComment = false;
    } else if (quote != 0) {
      if (!vbscript && c == L'\\')
        ++i;  // an escaped character, also a line end that continues the string
      else if (c == quote)
        quote = 0;
    } else if (c == L'"' || (!vbscript && c == L'\'')) {
      quote = c;
    } else if ((vbscript && c == L'\'') || (!vbscript && c == L'/' && next == L'/')) {
      lineComment = true;
    } else if (!vbscript && c == L'/' && next == L'*') {
      blockComment = true;
      ++i;
    } else if (CheckCallAt(code, i, vbscript, &end)) {
      ends.push_back(end);
      i = end - 1;
    }
  }
  return ends;
}

// Truth as the scripts mean it: booleans, non-zero numbers, non-empty
// strings and objects are true; empty, null and Nothing false.
bool Truth(const VARIANT* value) {
  switch (V_VT(value)) {
    case VT_EMPTY:
    case VT_NULL:
      return false;
    case VT_BOOL:
      return V_BOOL(value) != VARIANT_FALSE;
    case VT_BSTR:
      return SysStringLen(V_BSTR(value)) > 0;
    case VT_DISPATCH:
    case VT_UNKNOWN:
      return V_UNKNOWN(value) != nullptr;
    default: {
      VARIANT number;
      VariantInit(&number);
      if (FAILED(VariantChangeType(&number, const_cast<VARIANT*>(value), 0, VT_R8))) return false;
      return V_R8(&number) != 0 && !std::isnan(V_R8(&number));
    }
  }
}

enum class Kind { kUndefined, kNull, kBoolean, kNumber, kString, kObject, kOther };

Kind KindOf(const VARIANT* value) {
  switch (V_VT(value)) {
    case VT_EMPTY:
      return Kind::kUndefined;
    case VT_NULL:
      return Kind::kNull;
    case VT_BOOL:
      return Kind::kBoolean;
    case VT_BSTR:
      return Kind::kString;
    case VT_DISPATCH:
    case VT_UNKNOWN:
      return V_UNKNOWN(value) == nullptr ? Kind::kNull : Kind::kObject;
    default: {
      VARIANT number;
      VariantInit(&number);
      return SUCCEEDED(VariantChangeType(&number, const_cast<VARIANT*>(value), 0, VT_R8)) ? Kind::kNumber
                                                                                          : Kind::kOther;
    }
  }
}

double NumberOf(const VARIANT* value) {
  VARIANT number;
  VariantInit(&number);
  VariantChangeType(&number, const_cast<VARIANT*>(value), 0, VT_R8);
  return V_R8(&number);
}

// checkEqual's equality: the same kind of value and the same value; two
// objects of this host are equal when they stand for the same instance.
bool SameValue(const VARIANT* a, const VARIANT* b) {
  const Kind kind = KindOf(a);
  if (kind != KindOf(b)) return false;
  switch (kind) {
    case Kind::kUndefined:
    case Kind::kNull:
      return true;
    case Kind::kBoolean:
      return (V_BOOL(a) != VARIANT_FALSE) == (V_BOOL(b) != VARIANT_FALSE);
    case Kind::kNumber:
      return NumberOf(a) == NumberOf(b);
    case Kind::kString:
      return SysStringLen(V_BSTR(a)) == SysStringLen(V_BSTR(b)) &&
             std::wmemcmp(V_BSTR(a), V_BSTR(b), SysStringLen(V_BSTR(a))) == 0;
    case Kind::kObject: {
      CScriptObject* first = CScriptObject::FacadeOf(V_UNKNOWN(a));
      CScriptObject* second = CScriptObject::FacadeOf(V_UNKNOWN(b));
      if (first != nullptr && second != nullptr) return first->instance() == second->instance();
      return V_UNKNOWN(a) == V_UNKNOWN(b);
    }
    default:
      return false;
  }
}

// A value in a failure: strings quoted, so that "84" and 84 differ.
QString StatedValue(const VARIANT* value) {
  return V_VT(value) == VT_BSTR ? QuotedShort(ValueText(value)) : ValueText(value);
}

// The arguments of a call, first first, as values: VBScript passes its
// variables by reference.
class Arguments {
 public:
  explicit Arguments(const DISPPARAMS* params) {
    const UINT count = params != nullptr ? params->cArgs : 0;
    m_values.resize(count);
    for (UINT i = 0; i < count; ++i) {
      VariantInit(&m_values[i]);
      VariantCopyInd(&m_values[i], &params->rgvarg[count - 1 - i]);
    }
  }
  ~Arguments() {
    for (VARIANT& value : m_values) VariantClear(&value);
  }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  UINT count() const { return static_cast<UINT>(m_values.size()); }
  const VARIANT* at(UINT position) const { return &m_values[position]; }

 private:
  std::vector<VARIANT> m_values;
};

QString Where(int line) {
  return line > 0 ? QString("%1:%2").arg(g_log.script).arg(line) : g_log.script;
}

// FILE:LINE: check failed: MESSAGE: DETAIL
QString FailureLine(const CheckRecord& record) {
  QString line = Where(record.line) + ": check failed";
  if (!record.message.isEmpty()) line += ": " + record.message;
  if (!record.detail.isEmpty()) line += ": " + record.detail;
  return line;
}

void Record(const CheckRecord& record) {
  if (!record.passed) PrintLine(FailureLine(record));
  g_log.records.append(record);
}

// What an exit status other than 0 and 1 meant, for the report.
QString StatusMeaning(int status) {
  switch (status) {
    case 2: return "the agent could not run the script";
    case 3: return "another script is attached to the application";
    case 4: return "the application ended or crashed during the script";
    case 5: return "no matching or fitting process";
    default: return "the run failed";
  }
}

void WriteTestCase(QXmlStreamWriter* xml, const QString& suite, const QString& name, int line) {
  xml->writeStartElement("testcase");
  xml->writeAttribute("name", name);
  xml->writeAttribute("classname", suite);
  xml->writeAttribute("file", g_log.script);
  if (line > 0) xml->writeAttribute("line", QString::number(line));
}

bool WriteJUnit(const QString& path, const QString& runError) {
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return false;
  const QString suite = QFileInfo(g_log.script).completeBaseName();
  QXmlStreamWriter xml(&file);
  xml.setAutoFormatting(true);
  xml.writeStartDocument();
  xml.writeStartElement("testsuites");
  xml.writeStartElement("testsuite");
  xml.writeAttribute("name", suite);
  xml.writeAttribute("tests", QString::number(g_log.records.size() + (runError.isEmpty() ? 0 : 1)));
  xml.writeAttribute("failures", QString::number(g_log.Failed()));
  xml.writeAttribute("errors", runError.isEmpty() ? "0" : "1");
  foreach (const CheckRecord& record, g_log.records) {
    WriteTestCase(&xml, suite,
                  record.message.isEmpty() ? QString("check at line %1").arg(record.line) : record.message,
                  record.line);
    if (!record.passed) {
      xml.writeStartElement("failure");
      xml.writeAttribute("message", record.detail.isEmpty() ? "check failed" : record.detail);
      xml.writeCharacters(FailureLine(record));
      xml.writeEndElement();
    }
    xml.writeEndElement();
  }
  if (!runError.isEmpty()) {
    WriteTestCase(&xml, suite, "script error", 0);
    xml.writeStartElement("error");
    xml.writeAttribute("message", runError);
    xml.writeEndElement();
    xml.writeEndElement();
  }
  xml.writeEndDocument();
  return !xml.hasError() && file.error() == QFile::NoError;
}

}  // namespace

int CheckLog::Passed() const {
  int passed = 0;
  foreach (const CheckRecord& record, records) passed += record.passed ? 1 : 0;
  return passed;
}

int CheckLog::Failed() const { return records.size() - Passed(); }

kwagentkit::Json CheckLog::ToJson() const {
  using kwagentkit::Utf8;
  kwagentkit::Json out = {{"script", Utf8(script)},
                          {"checking", checking},
                          {"scriptError", Utf8(scriptError)},
                          {"records", kwagentkit::Json::array()}};
  foreach (const CheckRecord& record, records)
    out["records"].push_back({{"passed", record.passed},
                              {"message", Utf8(record.message)},
                              {"detail", Utf8(record.detail)},
                              {"line", record.line}});
  return out;
}

CheckLog CheckLog::FromJson(const kwagentkit::Json& json) {
  using kwagentkit::Json;
  const auto text = [](const Json& object, const char* key) {
    auto found = object.find(key);
    return found != object.end() && found->is_string() ? kwagentkit::FromUtf8(found->get<std::string>()) : QString();
  };
  const auto flag = [](const Json& object, const char* key) {
    auto found = object.find(key);
    return found != object.end() && found->is_boolean() && found->get<bool>();
  };
  CheckLog log;
  if (!json.is_object()) return log;
  log.script = text(json, "script");
  log.checking = flag(json, "checking");
  log.scriptError = text(json, "scriptError");
  auto records = json.find("records");
  if (records == json.end() || !records->is_array()) return log;
  for (const Json& item : *records) {
    if (!item.is_object()) continue;
    CheckRecord record;
    record.passed = flag(item, "passed");
    record.message = text(item, "message");
    record.detail = text(item, "detail");
    auto line = item.find("line");
    record.line = line != item.end() && line->is_number_integer() ? line->get<int>() : 0;
    log.records.append(record);
  }
  return log;
}

CheckLog& CurrentChecks() { return g_log; }

std::wstring MarkCheckCalls(const std::wstring& code, bool vbscript, std::vector<CheckCallMark>* marks) {
  std::wstring out;
  out.reserve(code.size() + 64);
  std::size_t from = 0;
  int line = 0;
  for (std::size_t end : CheckNameEnds(code, vbscript)) {
    line += static_cast<int>(std::count(code.begin() + from, code.begin() + end, L'\n'));
    out.append(code, from, end - from);
    from = end;
    const std::size_t lineStart = out.rfind(L'\n') + 1;  // 0 on the first line
    const std::wstring mark = kLineMark + std::to_wstring(line + 1);
    marks->push_back({line, static_cast<int>(out.size() - lineStart), static_cast<int>(mark.size())});
    out += mark;
  }
  out.append(code, from, std::wstring::npos);
  return out;
}

int OriginalColumn(const std::vector<CheckCallMark>& marks, int line, int column) {
  int original = column;
  for (const CheckCallMark& mark : marks)
    if (mark.line == line && mark.column < column) original -= std::min(mark.length, column - mark.column);
  return original;
}

bool CheckMemberId(const wchar_t* name, DISPID* id) {
  const std::wstring text(name);
  const std::size_t mark = text.find(kLineMark);
  const std::wstring member = text.substr(0, mark);
  int line = 0;
  if (mark != std::wstring::npos) {
    line = _wtoi(text.c_str() + mark + std::size(kLineMark) - 1);
    if (line <= 0 || line >= (kCheckEnd - kCheckBase) / 2) return false;
  }
  if (_wcsicmp(member.c_str(), L"check") != 0 && _wcsicmp(member.c_str(), L"checkEqual") != 0) return false;
  *id = kCheckBase + 2 * line + (member.size() > 5 ? 1 : 0);
  return true;
}

bool IsCheckMember(DISPID id) { return id >= kCheckBase && id < kCheckEnd; }

HRESULT InvokeCheck(DISPID id, const DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception) {
  const bool equal = (id - kCheckBase) % 2 == 1;
  const Arguments arguments(params);
  const UINT needed = equal ? 2 : 1;
  if (arguments.count() < needed || arguments.count() > needed + 1)
    return Refuse(exception, DISP_E_BADPARAMCOUNT,
                  equal ? "app.checkEqual(actual, expected [, message])" : "app.check(condition [, message])");
  CheckRecord record;
  record.line = (id - kCheckBase) / 2;
  if (arguments.count() > needed) record.message = ValueText(arguments.at(needed));
  if (equal) {
    const VARIANT* actual = arguments.at(0);
    const VARIANT* expected = arguments.at(1);
    record.passed = SameValue(actual, expected);
    if (!record.passed) record.detail = QString("expected %1, got %2").arg(StatedValue(expected), StatedValue(actual));
  } else {
    record.passed = Truth(arguments.at(0));
  }
  Record(record);
  if (result != nullptr) {
    V_VT(result) = VT_BOOL;
    V_BOOL(result) = record.passed ? VARIANT_TRUE : VARIANT_FALSE;
  }
  return S_OK;
}

int FinishChecks(int status, const QString& junitPath) {
  if (g_log.checking || !g_log.records.isEmpty())
    PrintLine(QString("%1 passed, %2 failed").arg(g_log.Passed()).arg(g_log.Failed()));
  QString runError = g_log.scriptError;
  if (runError.isEmpty() && status != 0 && status != 1)
    runError = QString("exit status %1: %2").arg(status).arg(StatusMeaning(status));
  if (!junitPath.isEmpty() && !WriteJUnit(junitPath, runError)) {
    PrintError(QString("kwscript: cannot write the JUnit report %1").arg(junitPath));
    if (status == 0) status = 1;
  }
  return status == 0 && g_log.Failed() > 0 ? 1 : status;
}

}  // namespace kwscript
