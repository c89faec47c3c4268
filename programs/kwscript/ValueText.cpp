#include "kwscript/ValueText.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtGui/QApplication>
#include <QtGui/QWidget>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string>

#include "kwscript/Output.h"
#include "kwscript/ScriptObject.h"

namespace kwscript {

namespace {

ScriptLanguage g_language = ScriptLanguage::kJScript;

// How deep default values of foreign objects are followed (an object whose
// default value is itself).
constexpr int kDefaultValueDepth = 3;

// The text VariantChangeType gives (VBScript's CStr), or empty.
QString ConvertedText(const VARIANT* value) {
  VARIANT text;
  VariantInit(&text);
  if (FAILED(VariantChangeType(&text, const_cast<VARIANT*>(value), VARIANT_ALPHABOOL, VT_BSTR))) return QString();
  const QString out = QString::fromWCharArray(V_BSTR(&text), SysStringLen(V_BSTR(&text)));
  VariantClear(&text);
  return out;
}

bool IsFloating(VARTYPE type) { return type == VT_R4 || type == VT_R8 || type == VT_CY || type == VT_DECIMAL; }

bool IsWhole(VARTYPE type) {
  switch (type) {
    case VT_I1: case VT_I2: case VT_I4: case VT_I8: case VT_INT:
    case VT_UI1: case VT_UI2: case VT_UI4: case VT_UI8: case VT_UINT:
      return true;
    default:
      return false;
  }
}

QString DispatchText(IDispatch* object, ScriptLanguage language, int depth);

QString Text(const VARIANT* value, ScriptLanguage language, int depth) {
  const bool js = language == ScriptLanguage::kJScript;
  if (value == nullptr) return js ? "undefined" : "Empty";
  if (V_VT(value) & VT_BYREF) {  // VBScript passes its variables so
    VARIANT direct;
    VariantInit(&direct);
    if (FAILED(VariantCopyInd(&direct, const_cast<VARIANT*>(value)))) return js ? "[object]" : "<object>";
    const QString out = Text(&direct, language, depth);
    VariantClear(&direct);
    return out;
  }
  const VARTYPE type = V_VT(value);
  switch (type) {
    case VT_EMPTY:
      return js ? "undefined" : "Empty";
    case VT_NULL:
      return js ? "null" : "Null";
    case VT_BOOL:
      return V_BOOL(value) ? (js ? "true" : "True") : (js ? "false" : "False");
    case VT_BSTR:
      return QString::fromWCharArray(V_BSTR(value), SysStringLen(V_BSTR(value)));
    case VT_DISPATCH:
    case VT_UNKNOWN: {
      if (V_UNKNOWN(value) == nullptr) return js ? "null" : "Nothing";
      IDispatch* object = nullptr;
      if (FAILED(V_UNKNOWN(value)->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&object))))
        return js ? "[object]" : "<object>";
      const QString out = DispatchText(object, language, depth);
      object->Release();
      return out;
    }
    default:
      break;
  }
  if (js && IsFloating(type)) {
    VARIANT number;
    VariantInit(&number);
    if (SUCCEEDED(VariantChangeType(&number, const_cast<VARIANT*>(value), 0, VT_R8))) return JScriptNumber(V_R8(&number));
  }
  if (IsWhole(type) || IsFloating(type) || type == VT_DATE || type == VT_ERROR) {
    const QString text = ConvertedText(value);
    if (!text.isEmpty()) return text;
  }
  return js ? "[object]" : "<object>";
}

// An object: a facade describes itself; another (a JScript object, an
// array) gives its default value, as the engine would print it.
QString DispatchText(IDispatch* object, ScriptLanguage language, int depth) {
  if (CScriptObject* facade = CScriptObject::FacadeOf(object)) return FacadeDescription(*facade);
  const QString unknown = language == ScriptLanguage::kJScript ? "[object]" : "<object>";
  if (depth >= kDefaultValueDepth) return unknown;
  DISPPARAMS none{};
  VARIANT result;
  VariantInit(&result);
  if (FAILED(object->Invoke(DISPID_VALUE, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none, &result,
                            nullptr, nullptr)))
    return unknown;
  const QString out = Text(&result, language, depth + 1);
  VariantClear(&result);
  return out;
}

}  // namespace

void SetScriptLanguage(ScriptLanguage language) { g_language = language; }

ScriptLanguage CurrentScriptLanguage() { return g_language; }

QString ValueText(const VARIANT* value, ScriptLanguage language) { return Text(value, language, 0); }

QString ValueText(const VARIANT* value) { return Text(value, g_language, 0); }

QString JScriptNumber(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value < 0 ? "-Infinity" : "Infinity";
  if (value == 0) return "0";  // -0 too
  // The shortest digits that read back as the value, from the library, as
  // d.ddde±x; then laid out by Number::toString's rules: with k digits and
  // the value = 0.digits × 10^n.
  char buffer[64];
  const auto written = std::to_chars(buffer, buffer + sizeof buffer, std::fabs(value), std::chars_format::scientific);
  const std::string scientific(buffer, written.ptr);
  const std::size_t e = scientific.find('e');
  std::string digits = scientific.substr(0, e);
  if (digits.size() > 1) digits.erase(1, 1);  // the decimal point
  const int k = static_cast<int>(digits.size());
  const int n = std::atoi(scientific.c_str() + e + 1) + 1;
  std::string out;
  if (k <= n && n <= 21) {
    out = digits + std::string(n - k, '0');
  } else if (0 < n && n <= 21) {
    out = digits.substr(0, n) + "." + digits.substr(n);
  } else if (-6 < n && n <= 0) {
    out = "0." + std::string(-n, '0') + digits;
  } else {
    out = digits.substr(0, 1) + (k > 1 ? "." + digits.substr(1) : std::string()) + "e" + (n - 1 >= 0 ? "+" : "-") +
          std::to_string(std::abs(n - 1));
  }
  return QString::fromLatin1((value < 0 ? "-" + out : out).c_str());
}

QString FacadeDescription(CScriptObject& facade) {
  QString gone;
  if (facade.Gone(&gone)) return facade.ClassName() + " (deleted)";
  if (const QObject* object = CScriptObject::ObjectOf(&facade)) return ObjectDescription(object);
  QString text;
  if (facade.TextOf(&text)) return facade.ClassName() + " " + QuotedShort(text);
  return facade.ClassName();
}

HRESULT AnswerDefaultValue(CScriptObject& facade, WORD flags, const DISPPARAMS* params, VARIANT* result) {
  if (!(flags & DISPATCH_PROPERTYGET) || (params != nullptr && params->cArgs != 0)) return DISP_E_MEMBERNOTFOUND;
  ReturnText(result, FacadeDescription(facade));
  return S_OK;
}

}  // namespace kwscript
