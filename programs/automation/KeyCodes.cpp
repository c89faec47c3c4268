#include "automation/KeyCodes.h"

namespace kwauto {

namespace {

struct NamedKey {
  ushort value;
  int key;
  const char* text;
  bool keypad;
};

// WebDriver's codes, U+E001 to U+E05D.
const NamedKey kNamedKeys[] = {
    {0xE001, Qt::Key_Cancel, "", false},   {0xE002, Qt::Key_Help, "", false},
    {0xE003, Qt::Key_Backspace, "\b", false}, {0xE004, Qt::Key_Tab, "\t", false},
    {0xE005, Qt::Key_Clear, "", false},    {0xE006, Qt::Key_Return, "\r", false},
    {0xE007, Qt::Key_Enter, "\r", true},   {0xE008, Qt::Key_Shift, "", false},
    {0xE009, Qt::Key_Control, "", false},  {0xE00A, Qt::Key_Alt, "", false},
    {0xE00B, Qt::Key_Pause, "", false},    {0xE00C, Qt::Key_Escape, "\x1b", false},
    {0xE00D, Qt::Key_Space, " ", false},   {0xE00E, Qt::Key_PageUp, "", false},
    {0xE00F, Qt::Key_PageDown, "", false}, {0xE010, Qt::Key_End, "", false},
    {0xE011, Qt::Key_Home, "", false},     {0xE012, Qt::Key_Left, "", false},
    {0xE013, Qt::Key_Up, "", false},       {0xE014, Qt::Key_Right, "", false},
    {0xE015, Qt::Key_Down, "", false},     {0xE016, Qt::Key_Insert, "", false},
    {0xE017, Qt::Key_Delete, "", false},   {0xE018, Qt::Key_Semicolon, ";", false},
    {0xE019, Qt::Key_Equal, "=", false},   {0xE01A, Qt::Key_0, "0", true},
    {0xE01B, Qt::Key_1, "1", true},        {0xE01C, Qt::Key_2, "2", true},
    {0xE01D, Qt::Key_3, "3", true},        {0xE01E, Qt::Key_4, "4", true},
    {0xE01F, Qt::Key_5, "5", true},        {0xE020, Qt::Key_6, "6", true},
    {0xE021, Qt::Key_7, "7", true},        {0xE022, Qt::Key_8, "8", true},
    {0xE023, Qt::Key_9, "9", true},        {0xE024, Qt::Key_Asterisk, "*", true},
    {0xE025, Qt::Key_Plus, "+", true},     {0xE026, Qt::Key_Comma, ",", true},
    {0xE027, Qt::Key_Minus, "-", true},    {0xE028, Qt::Key_Period, ".", true},
    {0xE029, Qt::Key_Slash, "/", true},    {0xE031, Qt::Key_F1, "", false},
    {0xE032, Qt::Key_F2, "", false},       {0xE033, Qt::Key_F3, "", false},
    {0xE034, Qt::Key_F4, "", false},       {0xE035, Qt::Key_F5, "", false},
    {0xE036, Qt::Key_F6, "", false},       {0xE037, Qt::Key_F7, "", false},
    {0xE038, Qt::Key_F8, "", false},       {0xE039, Qt::Key_F9, "", false},
    {0xE03A, Qt::Key_F10, "", false},      {0xE03B, Qt::Key_F11, "", false},
    {0xE03C, Qt::Key_F12, "", false},      {0xE03D, Qt::Key_Meta, "", false},
    {0xE040, Qt::Key_Zenkaku_Hankaku, "", false},
    {0xE050, Qt::Key_Shift, "", false},    {0xE051, Qt::Key_Control, "", false},
    {0xE052, Qt::Key_Alt, "", false},      {0xE053, Qt::Key_Meta, "", false},
    {0xE054, Qt::Key_PageUp, "", true},    {0xE055, Qt::Key_PageDown, "", true},
    {0xE056, Qt::Key_End, "", true},       {0xE057, Qt::Key_Home, "", true},
    {0xE058, Qt::Key_Left, "", true},      {0xE059, Qt::Key_Up, "", true},
    {0xE05A, Qt::Key_Right, "", true},     {0xE05B, Qt::Key_Down, "", true},
    {0xE05C, Qt::Key_Insert, "", true},    {0xE05D, Qt::Key_Delete, "", true},
};

Qt::KeyboardModifier ModifierOf(int key) {
  switch (key) {
    case Qt::Key_Shift: return Qt::ShiftModifier;
    case Qt::Key_Control: return Qt::ControlModifier;
    case Qt::Key_Alt: return Qt::AltModifier;
    case Qt::Key_Meta: return Qt::MetaModifier;
    default: return Qt::NoModifier;
  }
}

}  // namespace

bool KeyOfValue(QChar value, KeyCode* code) {
  *code = KeyCode();
  const ushort unicode = value.unicode();
  if (unicode >= 0xE000 && unicode <= 0xF8FF) {
    for (const NamedKey& named : kNamedKeys)
      if (named.value == unicode) {
        code->key = named.key;
        code->modifier = ModifierOf(named.key);
        code->text = QString::fromLatin1(named.text);
        code->keypad = named.keypad;
        return true;
      }
    return false;
  }
  // A typed character: Qt's key of a letter is its capital; Latin-1 keys
  // are their characters; anything else types its text under no key.
  const QChar upper = value.toUpper();
  code->key = upper.unicode() < 0x100 ? upper.unicode() : static_cast<int>(Qt::Key_unknown);
  if (value == QChar(' ')) code->key = Qt::Key_Space;
  code->text = QString(value);
  return true;
}

QString TypedText(const KeyCode& code, Qt::KeyboardModifiers modifiers) {
  if (modifiers & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) return QString();
  return code.text;
}

}  // namespace kwauto
