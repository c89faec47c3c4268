// WebDriver's key codes (the characters U+E000 to U+E05D of a "send keys"
// text or a key action) as Qt keys, and a typed text as key strokes.
#pragma once

#include <QtCore/QList>
#include <QtCore/QString>

#include "automation/InputEvents.h"

namespace kwauto {

// What a WebDriver key code stands for: a key (with the text it types, a
// keypad key with Qt::KeypadModifier), or a modifier key; the code U+E000
// (Null) releases every modifier held.
struct W3CKey {
  int key = 0;                                          // Qt::Key; 0 for Null
  Qt::KeyboardModifier modifier = Qt::NoModifier;       // for Shift, Control, Alt, Meta
  Qt::KeyboardModifiers keypad = Qt::NoModifier;        // Qt::KeypadModifier for the keypad's keys
  QString text;
};

// The key of a code; false when `c` is no WebDriver key code.
bool LookUpW3CKey(QChar c, W3CKey* key);

// A WebDriver "send keys" text as the strokes it types: an ordinary
// character is its key (an upper-case letter with Shift) with the modifiers
// held; a modifier key code presses its modifier, which stays held for the
// keys after it until it comes again, Null comes or the text ends. A held
// Shift types letters in upper case; Control, Alt or Meta keep a key from
// typing text.
QList<KeyStroke> W3CKeyStrokes(const QString& text);

}  // namespace kwauto
