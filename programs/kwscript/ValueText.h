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


// The description of a facade: as ObjectDescription for a QObject (its
// class and "(deleted)" once the application deleted it), the class and its
// text for a QString, QByteArray or QLatin1String, the class alone for
// another value.
QString FacadeDescription(CScriptObject& facade);

// The facade's DISPID_VALUE: read as a property without arguments it is
// the facade's description; DISP_E_MEMBERNOTFOUND otherwise.
HRESULT AnswerDefaultValue(CScriptObject& facade, WORD flags, const DISPPARAMS* params, VARIANT* result);

}  // namespace kwscript
