#include "automation/W3CKeys.h"

namespace kwauto {

namespace {

struct Code {
  ushort code;
  int key;
  Qt::KeyboardModifier modifier;
  bool keypad;
  const char* text;
};

// WebDriver's table of key codes; the right-hand modifier keys and the
// keypad's navigation keys share Qt's keys with the others.
const Code kCodes[] = {
    {0xE000, 0, Qt::NoModifier, false, ""},  // Null
    {0xE001, Qt::Key_Cancel, Qt::NoModifier, false, ""},
    {0xE002, Qt::Key_Help, Qt::NoModifier, false, ""},
    {0xE003, Qt::Key_Backspace, Qt::NoModifier, false, ""},
    {0xE004, Qt::Key_Tab, Qt::NoModifier, false, "\t"},
    {0xE005, Qt::Key_Clear, Qt::NoModifier, false, ""},
    {0xE006, Qt::Key_Return, Qt::NoModifier, false, "\r"},
    {0xE007, Qt::Key_Enter, Qt::NoModifier, true, "\r"},
    {0xE008, Qt::Key_Shift, Qt::ShiftModifier, false, ""},
    {0xE009, Qt::Key_Control, Qt::ControlModifier, false, ""},
    {0xE00A, Qt::Key_Alt, Qt::AltModifier, false, ""},
    {0xE00B, Qt::Key_Pause, Qt::NoModifier, false, ""},
    {0xE00C, Qt::Key_Escape, Qt::NoModifier, false, "\x1b"},
    {0xE00D, Qt::Key_Space, Qt::NoModifier, false, " "},
    {0xE00E, Qt::Key_PageUp, Qt::NoModifier, false, ""},
    {0xE00F, Qt::Key_PageDown, Qt::NoModifier, false, ""},
    {0xE010, Qt::Key_End, Qt::NoModifier, false, ""},
    {0xE011, Qt::Key_Home, Qt::NoModifier, false, ""},
    {0xE012, Qt::Key_Left, Qt::NoModifier, false, ""},
    {0xE013, Qt::Key_Up, Qt::NoModifier, false, ""},
    {0xE014, Qt::Key_Right, Qt::NoModifier, false, ""},
    {0xE015, Qt::Key_Down, Qt::NoModifier, false, ""},
    {0xE016, Qt::Key_Insert, Qt::NoModifier, false, ""},
    {0xE017, Qt::Key_Delete, Qt::NoModifier, false, ""},
    {0xE018, Qt::Key_Semicolon, Qt::NoModifier, false, ";"},
    {0xE019, Qt::Key_Equal, Qt::NoModifier, false, "="},
    {0xE01A, Qt::Key_0, Qt::NoModifier, true, "0"},
    {0xE01B, Qt::Key_1, Qt::NoModifier, true, "1"},
    {0xE01C, Qt::Key_2, Qt::NoModifier, true, "2"},
    {0xE01D, Qt::Key_3, Qt::NoModifier, true, "3"},
    {0xE01E, Qt::Key_4, Qt::NoModifier, true, "4"},
    {0xE01F, Qt::Key_5, Qt::NoModifier, true, "5"},
    {0xE020, Qt::Key_6, Qt::NoModifier, true, "6"},
    {0xE021, Qt::Key_7, Qt::NoModifier, true, "7"},
    {0xE022, Qt::Key_8, Qt::NoModifier, true, "8"},
    {0xE023, Qt::Key_9, Qt::NoModifier, true, "9"},
    {0xE024, Qt::Key_Asterisk, Qt::NoModifier, true, "*"},
    {0xE025, Qt::Key_Plus, Qt::NoModifier, true, "+"},
    {0xE026, Qt::Key_Comma, Qt::NoModifier, true, ","},
    {0xE027, Qt::Key_Minus, Qt::NoModifier, true, "-"},
    {0xE028, Qt::Key_Period, Qt::NoModifier, true, "."},
    {0xE029, Qt::Key_Slash, Qt::NoModifier, true, "/"},
    {0xE031, Qt::Key_F1, Qt::NoModifier, false, ""},
    {0xE032, Qt::Key_F2, Qt::NoModifier, false, ""},
    {0xE033, Qt::Key_F3, Qt::NoModifier, false, ""},
    {0xE034, Qt::Key_F4, Qt::NoModifier, false, ""},
    {0xE035, Qt::Key_F5, Qt::NoModifier, false, ""},
    {0xE036, Qt::Key_F6, Qt::NoModifier, false, ""},
    {0xE037, Qt::Key_F7, Qt::NoModifier, false, ""},
    {0xE038, Qt::Key_F8, Qt::NoModifier, false, ""},
    {0xE039, Qt::Key_F9, Qt::NoModifier, false, ""},
    {0xE03A, Qt::Key_F10, Qt::NoModifier, false, ""},
    {0xE03B, Qt::Key_F11, Qt::NoModifier, false, ""},
    {0xE03C, Qt::Key_F12, Qt::NoModifier, false, ""},
    {0xE03D, Qt::Key_Meta, Qt::MetaModifier, false, ""},
    {0xE040, Qt::Key_Zenkaku_Hankaku, Qt::NoModifier, false, ""},
    {0xE050, Qt::Key_Shift, Qt::ShiftModifier, false, ""},
    {0xE051, Qt::Key_Control, Qt::ControlModifier, false, ""},
    {0xE052, Qt::Key_Alt, Qt::AltModifier, false, ""},
    {0xE053, Qt::Key_Meta, Qt::MetaModifier, false, ""},
    {0xE054, Qt::Key_PageUp, Qt::NoModifier, true, ""},
    {0xE055, Qt::Key_PageDown, Qt::NoModifier, true, ""},
    {0xE056, Qt::Key_End, Qt::NoModifier, true, ""},
    {0xE057, Qt::Key_Home, Qt::NoModifier, true, ""},
    {0xE058, Qt::Key_Left, Qt::NoModifier, true, ""},
    {0xE059, Qt::Key_Up, Qt::NoModifier, true, ""},
    {0xE05A, Qt::Key_Right, Qt::NoModifier, true, ""},
    {0xE05B, Qt::Key_Down, Qt::NoModifier, true, ""},
    {0xE05C, Qt::Key_Insert, Qt::NoModifier, true, ""},
    {0xE05D, Qt::Key_Delete, Qt::NoModifier, true, ""},
};

// The key an ordinary character is typed with: its upper-case letter (the
// key's name in Qt), else the character's own code.
int KeyOfCharacter(QChar c) {
  if (c == '\t') return Qt::Key_Tab;
  if (c == '\n' || c == '\r') return Qt::Key_Return;
  if (c == '\b') return Qt::Key_Backspace;
  if (c.unicode() < 0x7F) return c.toUpper().unicode();
  return Qt::Key_unknown;
}

constexpr Qt::KeyboardModifiers kNoText = Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;

}  // namespace

bool LookUpW3CKey(QChar c, W3CKey* key) {
  for (const Code& code : kCodes) {
    if (code.code != c.unicode()) continue;
    key->key = code.key;
    key->modifier = code.modifier;
    key->keypad = code.keypad ? Qt::KeypadModifier : Qt::NoModifier;
    key->text = QString::fromLatin1(code.text);
    return true;
  }
  return false;
}

QList<KeyStroke> W3CKeyStrokes(const QString& text) {
  QList<KeyStroke> out;
  Qt::KeyboardModifiers held = Qt::NoModifier;
  foreach (const QChar c, text) {
    W3CKey code;
    KeyStroke stroke;
    if (LookUpW3CKey(c, &code)) {
      if (code.key == 0) {
        held = Qt::NoModifier;
        continue;
      }
      if (code.modifier != Qt::NoModifier) {
        held ^= code.modifier;  // a second press lets it go
        continue;
      }
      stroke.key = code.key;
      stroke.modifiers = held | code.keypad;
      stroke.text = (held & kNoText) ? QString() : code.text;
    } else {
      stroke.key = KeyOfCharacter(c);
      const bool shifted = c.isUpper() || ((held & Qt::ShiftModifier) && c.isLetter());
      stroke.modifiers = held | (c.isUpper() ? Qt::ShiftModifier : Qt::NoModifier);
      if (stroke.key == Qt::Key_Tab)
        stroke.text = "\t";
      else if (stroke.key == Qt::Key_Return)
        stroke.text = "\r";
      else if (stroke.key != Qt::Key_Backspace && !(held & kNoText))
        stroke.text = shifted ? QString(c.toUpper()) : QString(c);
    }
    out.append(stroke);
  }
  return out;
}

}  // namespace kwauto
