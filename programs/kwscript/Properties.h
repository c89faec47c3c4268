// Qt properties as plain script values, through the object's meta-object:
// strings, numbers and booleans as such; a property of another type (QRect,
// QSize, QFont, QColor...) as a new wrapped value object over a copy.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QVariant>

namespace kwscript {

struct ScriptContext;

// The index of property `name` (any case) of `object`, or -1.
int FindProperty(const QObject* object, const QString& name);

// Reads property `index` of `object` into `result`. On failure an HRESULT,
// and `why` names the property, the object's class and object name.
HRESULT ReadProperty(QObject* object, int index, ScriptContext* context, VARIANT* result, QString* why);

// A QVariant as a plain script value (a string, number or boolean; null
// for an invalid one), or else, given a context, as a new wrapped value
// object over a copy; DISP_E_TYPEMISMATCH with `why` when it cannot be.
HRESULT ScriptValueOf(const QVariant& value, ScriptContext* context, VARIANT* result, QString* why);

// Writes `value` (a string, number, boolean or value object of this script)
// to property `index` through its write accessor; refuses a read-only
// property and a value that does not convert.
HRESULT WriteProperty(QObject* object, int index, const VARIANT* value, QString* why);

}  // namespace kwscript
