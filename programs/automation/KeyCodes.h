// Keys as WebDriver names them: one character each, either a character a
// key types ("a", "A", "1", "é") or a code of Unicode's private use area
// for a key that types nothing or sits elsewhere (U+E003 Backspace, U+E008
// Shift, U+E012 ArrowLeft, U+E031 F1, U+E050 the right Shift...), and what
// each is to Qt: its key, the modifier it is (a Shift key is Shift), the
// text it types, whether it sits on the keypad.
#pragma once

#include <QtCore/QChar>
#include <QtCore/QString>

namespace kwauto {

struct KeyCode {
  int key = 0;                                      // Qt::Key
  Qt::KeyboardModifier modifier = Qt::NoModifier;  // for a modifier key
  QString text;                                     // what it types with no Ctrl, Alt or Meta held
  bool keypad = false;
};

// The key a WebDriver key value names; false for a code of the private use
// area that names no key (U+E000 is "no key" too: false).
bool KeyOfValue(QChar value, KeyCode* code);

// The text a key types with `modifiers` held: none with Ctrl, Alt or Meta.
QString TypedText(const KeyCode& code, Qt::KeyboardModifiers modifiers);

}  // namespace kwauto
