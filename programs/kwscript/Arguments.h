// Script values as the library's members take them, for one call: a
// string becomes a new QString object (or a byte copy for a char *), an
// enumerator's name its value, a number or names a QFlags object, one of
// the script's objects the exposer behind it (when it is of the class the
// parameter takes), null a null object for a pointer; arguments left out
// at the end take their declared defaults. What the conversion made lives
// until the call is over.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QString>

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "kwscript/MemberTable.h"

namespace kwscript {

struct ScriptContext;

// The value of enumerator names ("AlignRight|AlignVCenter", or one name)
// of the enumeration `type` ("Qt::AlignmentFlag", "QLineEdit::EchoMode";
// for "QFlags<enum Qt::AlignmentFlag>" that of its enumeration),
// from the meta-object of its scope. False when the scope has no
// meta-object or the names are not its enumerators.
bool EnumeratorValue(const char* type, const QString& names, int* value);

// Why `number` is no value of the parameter's type (out of the range of
// its C++ type; for an enumeration or QFlags kind 'e'/'f', none of its
// values where its scope's meta-object registers it), or empty.
QString OutOfRange(const ParameterInfo& parameter, char kind, double number);

// The number of leading arguments of `member` that have no default.
std::size_t RequiredArguments(const MemberInfo& member);

class ConvertedArguments {
 public:
  ConvertedArguments() = default;
  ConvertedArguments(const ConvertedArguments&) = delete;
  ConvertedArguments& operator=(const ConvertedArguments&) = delete;
  ~ConvertedArguments();

  // Converts `params` (script values, last argument first) for `member`,
  // adding the defaults of arguments left out. On a refused argument
  // returns DISP_E_TYPEMISMATCH with its DISPPARAMS index in
  // `argumentError` and says why in `why`.
  HRESULT Convert(const DISPPARAMS& params, const MemberInfo& member, ScriptContext* context, UINT* argumentError,
                  QString* why);

  DISPPARAMS* params() { return &m_params; }
  // The converted arguments, first first.
  const VARIANT* forward() const { return m_forward.empty() ? nullptr : m_forward.data(); }

 private:
  HRESULT ConvertOne(VARIANT* arg, char kind, const ParameterInfo* parameter, ScriptContext* context, QString* why);
  HRESULT Fallback(VARIANT* arg, char kind, const ParameterInfo& parameter, ScriptContext* context);
  HRESULT MakeString(VARIANT* arg, ScriptContext* context);
  HRESULT MakeFlags(VARIANT* arg, int value, const char* type, ScriptContext* context);
  HRESULT MakeNull(VARIANT* arg, const char* type, ScriptContext* context);
  HRESULT TakeObject(VARIANT* arg, const ParameterInfo* parameter, QString* why);
  static HRESULT CheckNumber(const VARIANT* arg, char kind, const ParameterInfo* parameter, QString* why);
  void Keep(VARIANT* arg, IDispatch* made);

  std::vector<VARIANT> m_args;
  std::vector<VARIANT> m_forward;
  std::deque<std::string> m_bytes;  // byte strings, NUL-terminated, alive for the call
  std::deque<int> m_flags;          // QFlags values, alive for the call
  std::vector<IDispatch*> m_made;
  std::vector<std::pair<void*, void (*)(void*)>> m_values;  // values made, freed after the call
  DISPPARAMS m_params{};
};

}  // namespace kwscript
