// Script values as text, as the script's own language writes them: what
// app.echo prints, what a check failure shows, and the text a facade gives
// for itself ("" + obj in JScript, CStr(obj) in VBScript).
//   JScript:  true, false, null, undefined, numbers as Number's toString
//   VBScript: True, False, Null, Empty, Nothing, numbers as CStr
//   an object of this host: its class, object name and text, each quoted
//   name and text only when not empty:  QPushButton "okButton" "OK"
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QObject>
#include <QtCore/QString>

#include <nlohmann/json.hpp>

#include <functional>

#include "automation/ObjectText.h"

namespace kwscript {

using kwauto::kShortTextLength;
using kwauto::ObjectDescription;
using kwauto::QuotedShort;
using kwauto::ReadableText;
using kwauto::Shortened;

class CScriptObject;

enum class ScriptLanguage { kJScript, kVBScript };

// The language of the script running now (set by the script host).
void SetScriptLanguage(ScriptLanguage language);
ScriptLanguage CurrentScriptLanguage();

// `value` as `language` writes it (a string as it is).
QString ValueText(const VARIANT* value, ScriptLanguage language);
// The same in the language of the script running now.
QString ValueText(const VARIANT* value);

// A number as JScript's Number.prototype.toString writes it: the shortest
// digits that read back as the same number, exponent form from 1e21 and
// below 1e-6.
QString JScriptNumber(double value);


// Script values as JSON and back, for a driver's scripts: what it passes
// to a script and what the script returns. What the conversion needs of
// its caller: the script engine's arrays and objects, and how host objects
// stand in JSON (element references).
struct JsonValueHooks {
  std::function<IDispatch*(bool array)> newContainer;  // a new array or object, or null
  std::function<bool(IDispatch* container, const VARIANT& key, const VARIANT& value)> put;
  std::function<bool(IDispatch* object)> isArray;
  // A JSON object that stands for a host object as a script value: false
  // when it is no such object; true with `value` set, or with `why` saying
  // why it cannot be had.
  std::function<bool(const nlohmann::json& object, VARIANT* value, QString* why)> hostObject;
  // A facade as JSON: false when the caller has no JSON for it (its text is
  // then used); true with `json` set, or with `why` saying why it fails.
  std::function<bool(CScriptObject& facade, nlohmann::json* json, QString* why)> facadeJson;
};

// `json` as a script value in `value` (cleared by the caller): null, a
// boolean, a number (a whole one that fits an int as such), a string, an
// array or object of the engine, a host object. Empty, or what failed.
QString VariantOfJson(const nlohmann::json& json, const JsonValueHooks& hooks, VARIANT* value);

// A script value as JSON: undefined and null are null, numbers stay
// numbers (a whole one as an integer; NaN and infinities null), a facade
// as the hooks say or else its description, a list of this host and an
// array of the engine as arrays, another object of the engine as an object
// of its enumerable properties. Empty, or what failed (a cyclic value).
QString JsonOfVariant(const VARIANT* value, const JsonValueHooks& hooks, nlohmann::json* json);

// The description of a facade: as ObjectDescription for a QObject (its
// class and "(deleted)" once the application deleted it), the class and its
// text for a QString, QByteArray or QLatin1String, the class alone for
// another value.
QString FacadeDescription(CScriptObject& facade);

// The facade's DISPID_VALUE: read as a property without arguments it is
// the facade's description; DISP_E_MEMBERNOTFOUND otherwise.
HRESULT AnswerDefaultValue(CScriptObject& facade, WORD flags, const DISPPARAMS* params, VARIANT* result);

}  // namespace kwscript
