#include "kwscript/ValueText.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtGui/QApplication>
#include <QtGui/QWidget>

#include <dispex.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string>

#include "agentkit/Protocol.h"
#include "agentkit/QtText.h"
#include "kwscript/ObjectList.h"
#include "kwscript/Output.h"
#include "kwscript/Properties.h"
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

namespace {

using Json = nlohmann::json;

// IDispatchEx, which mingw-w64's uuid library does not define.
const IID kDispatchExIid = {0xa6ef9860, 0xc720, 0x11d0, {0x93, 0x37, 0x00, 0xa0, 0xc9, 0x0d, 0xca, 0xa9}};

// Values nest no deeper than this either way (a cycle is found before).
constexpr int kJsonDepth = 100;

using kwagentkit::Utf8;

QString JsonText(const Json& json) { return kwagentkit::FromUtf8(json.get_ref<const std::string&>()); }

Json TextJson(const QString& text) { return Json(Utf8(text)); }

QString VariantOfJson(const Json& json, const JsonValueHooks& hooks, VARIANT* value, int depth) {
  VariantInit(value);
  if (depth > kJsonDepth) return "the value nests too deep";
  switch (json.type()) {
    case Json::value_t::null:
    case Json::value_t::discarded:
      V_VT(value) = VT_NULL;
      return QString();
    case Json::value_t::boolean:
      V_VT(value) = VT_BOOL;
      V_BOOL(value) = json.get<bool>() ? VARIANT_TRUE : VARIANT_FALSE;
      return QString();
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float: {
      const double number = json.get<double>();
      if (!json.is_number_float() && number >= INT32_MIN && number <= INT32_MAX) {
        V_VT(value) = VT_I4;
        V_I4(value) = static_cast<LONG>(json.get<std::int64_t>());
      } else {
        V_VT(value) = VT_R8;
        V_R8(value) = number;
      }
      return QString();
    }
    case Json::value_t::string:
      V_VT(value) = VT_BSTR;
      V_BSTR(value) = NewBstr(JsonText(json));
      return QString();
    case Json::value_t::binary:
      return "binary values have no script value";
    case Json::value_t::object: {
      QString why;
      if (hooks.hostObject && hooks.hostObject(json, value, &why)) return why;
      break;
    }
    case Json::value_t::array:
      break;
  }
  const bool array = json.is_array();
  IDispatch* container = hooks.newContainer ? hooks.newContainer(array) : nullptr;
  if (container == nullptr) return QString("the script engine made no %1").arg(array ? "array" : "object");
  V_VT(value) = VT_DISPATCH;
  V_DISPATCH(value) = container;
  int index = 0;
  for (auto entry = json.begin(); entry != json.end(); ++entry, ++index) {
    VARIANT key, item;
    VariantInit(&key);
    if (array) {
      V_VT(&key) = VT_I4;
      V_I4(&key) = index;
    } else {
      V_VT(&key) = VT_BSTR;
      V_BSTR(&key) = NewBstr(kwagentkit::FromUtf8(entry.key()));
    }
    QString why = VariantOfJson(*entry, hooks, &item, depth + 1);
    if (why.isEmpty() && !hooks.put(container, key, item)) why = "the script engine took no value";
    VariantClear(&key);
    VariantClear(&item);
    if (!why.isEmpty()) {
      VariantClear(value);
      return why;
    }
  }
  return QString();
}

// A property of an engine's object (by name or index), through
// IDispatchEx where the object has it.
bool ReadProperty(IDispatch* object, const std::wstring& name, VARIANT* value) {
  VariantInit(value);
  LPOLESTR asked = const_cast<LPOLESTR>(name.c_str());
  DISPID id = DISPID_UNKNOWN;
  if (FAILED(object->GetIDsOfNames(IID_NULL, &asked, 1, LOCALE_USER_DEFAULT, &id))) return false;
  DISPPARAMS none{};
  return SUCCEEDED(
      object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none, value, nullptr, nullptr));
}

class JsonWriter {
 public:
  explicit JsonWriter(const JsonValueHooks& hooks) : m_hooks(hooks) {}

  QString Write(const VARIANT* value, Json* json) {
    if (V_VT(value) & VT_BYREF) {
      VARIANT direct;
      VariantInit(&direct);
      if (FAILED(VariantCopyInd(&direct, const_cast<VARIANT*>(value)))) return "a value of an unknown kind";
      const QString why = Write(&direct, json);
      VariantClear(&direct);
      return why;
    }
    const VARTYPE type = V_VT(value);
    if (type == VT_EMPTY || type == VT_NULL) {
      *json = nullptr;
    } else if (type == VT_BOOL) {
      *json = V_BOOL(value) != VARIANT_FALSE;
    } else if (type == VT_BSTR) {
      *json = TextJson(QString::fromWCharArray(V_BSTR(value), SysStringLen(V_BSTR(value))));
    } else if (IsWhole(type) || IsFloating(type)) {
      VARIANT number;
      VariantInit(&number);
      if (FAILED(VariantChangeType(&number, const_cast<VARIANT*>(value), 0, VT_R8))) return "a number out of range";
      const double x = V_R8(&number);
      if (!std::isfinite(x))
        *json = nullptr;
      else if (x == std::floor(x) && std::fabs(x) <= 9007199254740992.0)
        *json = static_cast<std::int64_t>(x);
      else
        *json = x;
    } else if (type == VT_DISPATCH || type == VT_UNKNOWN) {
      return WriteObject(V_UNKNOWN(value), json);
    } else {
      *json = TextJson(Text(value, ScriptLanguage::kJScript, 0));
    }
    return QString();
  }

 private:
  QString WriteObject(IUnknown* unknown, Json* json) {
    if (unknown == nullptr) {
      *json = nullptr;
      return QString();
    }
    if (CScriptObject* facade = CScriptObject::FacadeOf(unknown)) {
      QString why;
      // A QVariant (what a model's data gives) stands for its value.
      VARIANT plain;
      if (facade->ClassName() == "QVariant" && !facade->Gone(&why) &&
          SUCCEEDED(ScriptValueOf(*static_cast<const QVariant*>(facade->instance()), nullptr, &plain, &why))) {
        why = Write(&plain, json);
        VariantClear(&plain);
        return why;
      }
      why.clear();
      if (!m_hooks.facadeJson || !m_hooks.facadeJson(*facade, json, &why)) *json = TextJson(FacadeDescription(*facade));
      return why;
    }
    IUnknown* identity = nullptr;
    if (FAILED(unknown->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)))) return "an object of an unknown kind";
    identity->Release();  // the value holds it
    if (std::find(m_open.begin(), m_open.end(), identity) != m_open.end()) return "the value is cyclic";
    if (m_open.size() >= kJsonDepth) return "the value nests too deep";
    m_open.push_back(identity);
    const QString why = WriteContainer(unknown, json);
    m_open.pop_back();
    return why;
  }

  QString WriteContainer(IUnknown* unknown, Json* json) {
    if (const std::vector<VARIANT>* values = CObjectList::ValuesOf(unknown)) {
      *json = Json::array();
      for (const VARIANT& item : *values) {
        Json written;
        const QString why = Write(&item, &written);
        if (!why.isEmpty()) return why;
        json->push_back(std::move(written));
      }
      return QString();
    }
    IDispatch* object = nullptr;
    if (FAILED(unknown->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&object)))) return "an object of an unknown kind";
    QString why = m_hooks.isArray && m_hooks.isArray(object) ? WriteArray(object, json) : WriteProperties(object, json);
    object->Release();
    return why;
  }

  QString WriteArray(IDispatch* array, Json* json) {
    *json = Json::array();
    VARIANT length;
    if (!ReadProperty(array, L"length", &length) || FAILED(VariantChangeType(&length, &length, 0, VT_I4)))
      return "an array without a length";
    for (LONG i = 0; i < V_I4(&length); ++i) {
      VARIANT item;
      Json written;
      if (!ReadProperty(array, std::to_wstring(i), &item)) VariantInit(&item);  // a hole: undefined
      const QString why = Write(&item, &written);
      VariantClear(&item);
      if (!why.isEmpty()) return why;
      json->push_back(std::move(written));
    }
    return QString();
  }

  // An object's enumerable properties, as the engine's IDispatchEx lists them.
  QString WriteProperties(IDispatch* object, Json* json) {
    *json = Json::object();
    IDispatchEx* ex = nullptr;
    if (FAILED(object->QueryInterface(kDispatchExIid, reinterpret_cast<void**>(&ex)))) return QString();
    QString why;
    DISPID id = DISPID_STARTENUM;
    while (why.isEmpty() && ex->GetNextDispID(fdexEnumDefault, id, &id) == S_OK) {
      BSTR name = nullptr;
      if (FAILED(ex->GetMemberName(id, &name)) || name == nullptr) continue;
      const QString key = QString::fromWCharArray(name, SysStringLen(name));
      SysFreeString(name);
      DISPPARAMS none{};
      VARIANT item;
      VariantInit(&item);
      if (FAILED(ex->InvokeEx(id, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none, &item, nullptr, nullptr))) continue;
      Json written;
      why = Write(&item, &written);
      VariantClear(&item);
      (*json)[Utf8(key)] = std::move(written);
    }
    ex->Release();
    return why;
  }

  const JsonValueHooks& m_hooks;
  std::vector<IUnknown*> m_open;  // the objects being written, outermost first
};

}  // namespace

QString VariantOfJson(const nlohmann::json& json, const JsonValueHooks& hooks, VARIANT* value) {
  return VariantOfJson(json, hooks, value, 0);
}

QString JsonOfVariant(const VARIANT* value, const JsonValueHooks& hooks, nlohmann::json* json) {
  *json = nullptr;
  if (value == nullptr) return QString();
  JsonWriter writer(hooks);
  return writer.Write(value, json);
}

}  // namespace kwscript
