#include "kwscript/Arguments.h"

#include <QtCore/QMetaEnum>
#include <QtCore/QObject>

#include <cmath>
#include <cstring>

#include "kwscript/ScriptObject.h"

namespace kwscript {

namespace {

// The meta-object of the Qt namespace, which QObject keeps to itself.
struct QtNamespace : QObject {
  static const QMetaObject* Meta() { return &staticQtMetaObject; }
};

// The meta-object of an enumeration's scope: "Qt", or a class of the
// member table with a meta-object (a QObject class or a Q_GADGET).
const QMetaObject* ScopeMeta(const QString& scope) {
  if (scope == "Qt") return QtNamespace::Meta();
  QString flat = scope;
  for (QChar& c : flat)
    if (!c.isLetterOrNumber()) c = '_';
  const InterfaceInfo* info = FindInterface(("Iwrp_" + flat).toStdWString().c_str());
  return info != nullptr ? info->enumerations : nullptr;
}

const VARIANT* Dereferenced(const VARIANT* value) {
  return V_VT(value) == (VT_BYREF | VT_VARIANT) ? V_VARIANTREF(value) : value;
}

bool IsNull(const VARIANT* value) {
  return V_VT(value) == VT_NULL || V_VT(value) == VT_EMPTY || (V_VT(value) == VT_DISPATCH && V_DISPATCH(value) == nullptr);
}

// Whether `type` is one of Qt's event classes ("QEvent", "QMouseEvent").
bool IsEventClass(const char* type) {
  const std::size_t length = std::strlen(type);
  return type[0] == 'Q' && length > 5 && std::strcmp(type + length - 5, "Event") == 0;
}

void DeleteString(void* value) { delete static_cast<QString*>(value); }

void SetNumber(VARIANT* arg, double number) {
  VariantInit(arg);
  if (number == std::floor(number) && number >= -2147483648.0 && number <= 2147483647.0) {
    V_VT(arg) = VT_I4;
    V_I4(arg) = static_cast<LONG>(number);
  } else {
    V_VT(arg) = VT_R8;
    V_R8(arg) = number;
  }
}

QString ClassOf(const VARIANT* value) {
  if (V_VT(value) != VT_DISPATCH) return "a script value";
  const CScriptObject* facade = CScriptObject::FacadeOf(V_DISPATCH(value));
  return facade != nullptr ? "a " + facade->ClassName() : "an object of another program";
}

}  // namespace

namespace {

// The scope's meta-object and the enumeration's own name of `type`
// ("Qt::AlignmentFlag", "enum QPalette::ColorRole", "QFlags<enum Qt::AlignmentFlag>").
const QMetaObject* EnumerationScope(const char* type, QByteArray* own) {
  QString full = QString::fromLatin1(type);
  if (full.startsWith("QFlags<") && full.endsWith(">")) full = full.mid(7, full.size() - 8);  // its enumeration's
  if (full.startsWith("enum ")) full = full.mid(5);
  const int split = full.lastIndexOf("::");
  if (split < 0) return nullptr;
  *own = full.mid(split + 2).toLatin1();
  return ScopeMeta(full.left(split));
}

// The enumeration `type` as its scope's meta-object registers it: under
// its own name, or a QFlags under the name of its flags type
// ("Alignment" for AlignmentFlag, "MatchFlags" for MatchFlag). False when
// it is not registered.
bool RegisteredEnumeration(const char* type, QMetaEnum* found) {
  QByteArray own;
  const QMetaObject* meta = EnumerationScope(type, &own);
  if (meta == nullptr) return false;
  QList<QByteArray> names;
  names << own << own + "s";
  if (own.endsWith("Flag")) names << own.left(own.size() - 4) << own + "s";
  foreach (const QByteArray& name, names) {
    const int index = meta->indexOfEnumerator(name.constData());
    if (index >= 0) {
      *found = meta->enumerator(index);
      return true;
    }
  }
  return false;
}

}  // namespace

bool EnumeratorValue(const char* type, const QString& names, int* value) {
  QByteArray own;
  const QMetaObject* meta = EnumerationScope(type, &own);
  if (meta == nullptr) return false;
  const QByteArray keys = names.simplified().remove(' ').toLatin1();
  // The enumeration itself first; Qt registers some only as their QFlags
  // ("Alignment" for AlignmentFlag), so then any of the scope's that
  // knows every name.
  const int index = meta->indexOfEnumerator(own.constData());
  if (index >= 0) {
    const int found = meta->enumerator(index).keysToValue(keys.constData());
    if (found != -1) {
      *value = found;
      return true;
    }
  }
  for (int i = 0; i < meta->enumeratorCount(); ++i) {
    const int found = meta->enumerator(i).keysToValue(keys.constData());
    if (found != -1) {
      *value = found;
      return true;
    }
  }
  return false;
}

QString OutOfRange(const ParameterInfo& parameter, char kind, double number) {
  struct Range {
    const char* type;
    double low, high;
  };
  static const Range kRanges[] = {
      {"int", -2147483648.0, 2147483647.0},       {"long", -2147483648.0, 2147483647.0},
      {"unsigned int", 0, 4294967295.0},          {"unsigned long", 0, 4294967295.0},
      {"uint", 0, 4294967295.0},                  {"short", -32768, 32767},
      {"unsigned short", 0, 65535},               {"ushort", 0, 65535},
      {"char", -128, 255},                        {"signed char", -128, 127},
      {"unsigned char", 0, 255},                  {"uchar", 0, 255},
      {"__int64", -9223372036854775808.0, 9223372036854775807.0},
      {"long long", -9223372036854775808.0, 9223372036854775807.0},
      {"unsigned __int64", 0, 18446744073709551615.0},
      {"float", -3.4028234663852886e38, 3.4028234663852886e38},
      {"double", -1.7976931348623157e308, 1.7976931348623157e308},
      {"qreal", -1.7976931348623157e308, 1.7976931348623157e308},
  };
  const QString given = QString::number(number, 'g', 17);
  if (kind == 'e' || kind == 'f') {
    if (number != std::floor(number) || number < -2147483648.0 || number > 4294967295.0)
      return QString("takes a %1; %2 is no value of it").arg(parameter.type, given);
    QMetaEnum enumeration;
    if (!RegisteredEnumeration(parameter.type, &enumeration)) return QString();
    const int value = static_cast<int>(static_cast<long long>(number));
    const bool known = enumeration.isFlag() || kind == 'f'
                           ? enumeration.keysToValue(enumeration.valueToKeys(value).constData()) == value
                           : enumeration.valueToKey(value) != nullptr;
    return known ? QString() : QString("takes a %1; %2 is none of its values").arg(parameter.type, given);
  }
  if (std::isnan(number)) return QString("takes a %1; given NaN").arg(parameter.type);
  for (const Range& range : kRanges)
    if (std::strcmp(range.type, parameter.type) == 0)
      return number < range.low || number > range.high
                 ? QString("takes a %1, from %2 to %3; %4 is out of its range")
                       .arg(parameter.type)
                       .arg(range.low, 0, 'g', 20)
                       .arg(range.high, 0, 'g', 20)
                       .arg(given)
                 : QString();
  return QString();
}

std::size_t RequiredArguments(const MemberInfo& member) {
  std::size_t count = std::strlen(member.arguments);
  while (count > 0 && member.parameters != nullptr && member.parameters[count - 1].fallback.kind != 0) --count;
  return count;
}

ConvertedArguments::~ConvertedArguments() {
  for (IDispatch* made : m_made) made->Release();
  for (const auto& value : m_values) value.second(value.first);
}

HRESULT ConvertedArguments::Convert(const DISPPARAMS& params, const MemberInfo& member, ScriptContext* context,
                                    UINT* argumentError, QString* why) {
  const UINT given = params.cArgs - params.cNamedArgs;
  const std::size_t known = std::strlen(member.arguments);
  // Arguments left out at the end take their defaults, when all of them have one.
  std::size_t total = given;
  if (given < known && given >= RequiredArguments(member)) total = known;
  std::vector<VARIANT> forward(total);
  m_bytes.clear();
  for (UINT position = 0; position < given; ++position)
    forward[position] = *Dereferenced(&params.rgvarg[params.cArgs - 1 - position]);  // VBScript passes variables so
  for (std::size_t position = 0; position < total; ++position) {
    const ParameterInfo* parameter = member.parameters != nullptr && position < known ? &member.parameters[position] : nullptr;
    if (position >= known) break;
    HRESULT hr = position < given ? ConvertOne(&forward[position], member.arguments[position], parameter, context, why)
                                  : Fallback(&forward[position], member.arguments[position], *parameter, context);
    if (FAILED(hr)) {
      if (argumentError != nullptr) *argumentError = position < given ? params.cArgs - 1 - position : 0;
      if (why->isEmpty())
        *why = QString("argument %1 of %2 cannot be given so").arg(position + 1).arg(member.declaration);
      return hr;
    }
  }
  m_args.assign(forward.rbegin(), forward.rend());
  m_forward.swap(forward);
  m_params = DISPPARAMS{m_args.empty() ? nullptr : m_args.data(), nullptr, static_cast<UINT>(m_args.size()), 0};
  return S_OK;
}

HRESULT ConvertedArguments::ConvertOne(VARIANT* arg, char kind, const ParameterInfo* parameter,
                                       ScriptContext* context, QString* why) {
  const char* type = parameter != nullptr ? parameter->type : "";
  switch (kind) {
    case 's':
    case 'o':
      if (kind == 's' && V_VT(arg) == VT_BSTR) return MakeString(arg, context);
      if (parameter != nullptr && parameter->pointer && IsNull(arg)) {
        if (IsEventClass(type)) {  // every handler reads the event it is given
          *why = QString("takes a %1; null is no event").arg(type);
          return DISP_E_TYPEMISMATCH;
        }
        return MakeNull(arg, type, context);
      }
      return TakeObject(arg, parameter, why);
    case 'f': {
      int value = 0;
      if (V_VT(arg) == VT_BSTR) {
        const QString names = QString::fromWCharArray(V_BSTR(arg), SysStringLen(V_BSTR(arg)));
        if (!EnumeratorValue(type, names, &value)) {
          *why = QString("\"%1\" names no values of %2").arg(names, type);
          return DISP_E_TYPEMISMATCH;
        }
        return MakeFlags(arg, value, type, context);
      }
      if (V_VT(arg) == VT_DISPATCH) return TakeObject(arg, parameter, why);
      VARIANT number;
      VariantInit(&number);
      if (FAILED(VariantChangeType(&number, arg, 0, VT_I4))) {
        *why = QString("a %1 is given as a number, enumerator names (\"A|B\") or a QFlags object").arg(type);
        return DISP_E_TYPEMISMATCH;
      }
      if (parameter != nullptr) {
        const QString wrong = OutOfRange(*parameter, 'f', V_I4(&number));
        if (!wrong.isEmpty()) {
          *why = wrong;
          return DISP_E_OVERFLOW;
        }
      }
      return MakeFlags(arg, V_I4(&number), type, context);
    }
    case 'e':
      if (V_VT(arg) == VT_BSTR) {
        const QString names = QString::fromWCharArray(V_BSTR(arg), SysStringLen(V_BSTR(arg)));
        int value = 0;
        if (!EnumeratorValue(type, names, &value)) {
          *why = QString("\"%1\" is not an enumerator of %2").arg(names, type);
          return DISP_E_TYPEMISMATCH;
        }
        VariantInit(arg);
        V_VT(arg) = VT_I4;
        V_I4(arg) = value;
        return S_OK;
      }
      return CheckNumber(arg, kind, parameter, why);
    case 't':
      if (V_VT(arg) == VT_BSTR) {
        const BSTR text = V_BSTR(arg);
        const QByteArray utf8 = QString::fromWCharArray(text, SysStringLen(text)).toUtf8();
        m_bytes.push_back(std::string(utf8.constData(), utf8.size()));
        V_VT(arg) = VT_BYREF | VT_UI1;
        V_UI1REF(arg) = reinterpret_cast<unsigned char*>(&m_bytes.back()[0]);
      }
      return S_OK;
    case 'n':
      return CheckNumber(arg, kind, parameter, why);
    case 'p':
      // An address (int *, void **): a number would be written through as
      // one. A script can only say "none".
      if (IsNull(arg) || V_VT(arg) == VT_EMPTY) return S_OK;
      *why = QString("takes an address (%1 *), which a script cannot give; only null").arg(type);
      return DISP_E_TYPEMISMATCH;
    default:
      return S_OK;  // booleans: the platform's dispatch converts them
  }
}

// A number must fit the parameter's C++ type (an enumeration: be one of
// its values, where its scope's meta-object registers it); the platform's
// dispatch converts it then.
HRESULT ConvertedArguments::CheckNumber(const VARIANT* arg, char kind, const ParameterInfo* parameter, QString* why) {
  if (parameter == nullptr) return S_OK;
  VARIANT number;
  VariantInit(&number);
  if (FAILED(VariantChangeType(&number, const_cast<VARIANT*>(arg), 0, VT_R8))) return S_OK;  // the platform says why
  const QString wrong = OutOfRange(*parameter, kind, V_R8(&number));
  if (wrong.isEmpty()) return S_OK;
  *why = wrong;
  return DISP_E_OVERFLOW;
}

HRESULT ConvertedArguments::Fallback(VARIANT* arg, char kind, const ParameterInfo& parameter, ScriptContext* context) {
  const DefaultInfo& fallback = parameter.fallback;
  switch (fallback.kind) {
    case 'n':
      SetNumber(arg, fallback.number);
      return kind == 'f' ? MakeFlags(arg, V_VT(arg) == VT_I4 ? V_I4(arg) : 0, parameter.type, context) : S_OK;
    case 'z':
      if (kind == 't') {
        VariantInit(arg);
        V_VT(arg) = VT_BYREF | VT_UI1;
        V_UI1REF(arg) = nullptr;
        return S_OK;
      }
      return MakeNull(arg, parameter.type, context);
    case 'v': {
      void* value = fallback.make();
      IDispatch* made = nullptr;
      const std::wstring type = QString::fromLatin1(parameter.type).toStdWString();
      HRESULT hr = MakeExposer(context, type.c_str(), value, &made);
      m_values.emplace_back(value, fallback.destroy);
      if (FAILED(hr)) return hr;
      Keep(arg, made);
      return S_OK;
    }
    default:
      return DISP_E_PARAMNOTOPTIONAL;
  }
}

void ConvertedArguments::Keep(VARIANT* arg, IDispatch* made) {
  m_made.push_back(made);
  VariantInit(arg);
  V_VT(arg) = VT_DISPATCH;
  V_DISPATCH(arg) = made;
}

// A script string where a QString is expected: a new QString object.
HRESULT ConvertedArguments::MakeString(VARIANT* arg, ScriptContext* context) {
  const BSTR text = V_BSTR(arg);
  QString* value = new QString(QString::fromWCharArray(text, SysStringLen(text)));
  m_values.emplace_back(value, &DeleteString);
  IDispatch* made = nullptr;
  HRESULT hr = MakeExposer(context, L"QString", value, &made);
  if (FAILED(hr)) return hr;
  Keep(arg, made);
  return S_OK;
}

// A QFlags value is one int whatever its enumeration: when the library has
// no object of the parameter's own QFlags type, another QFlags type carries it.
HRESULT ConvertedArguments::MakeFlags(VARIANT* arg, int value, const char* type, ScriptContext* context) {
  m_flags.push_back(value);
  IDispatch* made = nullptr;
  const std::wstring own = QString::fromLatin1(type).toStdWString();
  HRESULT hr = MakeExposer(context, own.c_str(), &m_flags.back(), &made);
  if (FAILED(hr)) hr = MakeExposer(context, L"QFlags<enum Qt::MatchFlag>", &m_flags.back(), &made);
  if (FAILED(hr)) return hr;
  Keep(arg, made);
  return S_OK;
}

// No object for a pointer parameter: an object over a null instance, which
// the member passes on as a null pointer.
HRESULT ConvertedArguments::MakeNull(VARIANT* arg, const char* type, ScriptContext* context) {
  IDispatch* made = nullptr;
  const std::wstring own = QString::fromLatin1(type).toStdWString();
  HRESULT hr = MakeExposer(context, own.c_str(), nullptr, &made);
  if (FAILED(hr)) hr = MakeExposer(context, L"QObject", nullptr, &made);
  if (FAILED(hr) || made == nullptr) return FAILED(hr) ? hr : E_FAIL;
  Keep(arg, made);
  return S_OK;
}

// An object argument must be one of this host's objects, of the class the
// parameter takes: the library trusts what it receives, so nothing else
// may reach it. The exposer passed on is the one over the part of the
// object that is of that class.
HRESULT ConvertedArguments::TakeObject(VARIANT* arg, const ParameterInfo* parameter, QString* why) {
  CScriptObject* facade = V_VT(arg) == VT_DISPATCH ? CScriptObject::FacadeOf(V_DISPATCH(arg)) : nullptr;
  const char* type = parameter != nullptr ? parameter->type : "";
  QString gone;
  if (facade != nullptr && facade->Gone(&gone)) {
    *why = "is gone; " + gone;
    return RPC_E_DISCONNECTED;
  }
  if (facade == nullptr || (*type != '\0' && !facade->IsA(type))) {
    *why = QString("takes a %1%2; given %3").arg(*type ? type : "object of this script")
               .arg(parameter != nullptr && parameter->pointer ? " (or null)" : "")
               .arg(IsNull(arg) ? QString("null") : ClassOf(arg));
    return DISP_E_TYPEMISMATCH;
  }
  IDispatch* exposer = facade->ExposerFor(type);
  if (exposer == nullptr) return DISP_E_TYPEMISMATCH;
  if (parameter != nullptr && parameter->pointer) facade->Disown();  // Qt may take what it gets by pointer
  V_DISPATCH(arg) = exposer;
  return S_OK;
}

}  // namespace kwscript
