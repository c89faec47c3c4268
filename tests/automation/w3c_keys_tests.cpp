// WebDriver's key codes: the table, the strokes a text becomes, and what
// they type into real widgets.
#include <gtest/gtest.h>

#include <QtGui/QApplication>
#include <QtGui/QKeySequence>
#include <QtGui/QLineEdit>

#include "QtPrint.h"
#include "automation/W3CKeys.h"

namespace {

using kwauto::KeyStroke;

QString Keys(const char* utf8) { return QString::fromUtf8(utf8); }

TEST(W3CKeyTest, CodesAreQtKeys) {
  const struct {
    ushort code;
    int key;
    Qt::KeyboardModifier modifier;
    bool keypad;
    const char* text;
  } cases[] = {
      {0xE003, Qt::Key_Backspace, Qt::NoModifier, false, ""},
      {0xE004, Qt::Key_Tab, Qt::NoModifier, false, "\t"},
      {0xE006, Qt::Key_Return, Qt::NoModifier, false, "\r"},
      {0xE007, Qt::Key_Enter, Qt::NoModifier, true, "\r"},
      {0xE008, Qt::Key_Shift, Qt::ShiftModifier, false, ""},
      {0xE009, Qt::Key_Control, Qt::ControlModifier, false, ""},
      {0xE00A, Qt::Key_Alt, Qt::AltModifier, false, ""},
      {0xE00C, Qt::Key_Escape, Qt::NoModifier, false, "\x1b"},
      {0xE00E, Qt::Key_PageUp, Qt::NoModifier, false, ""},
      {0xE010, Qt::Key_End, Qt::NoModifier, false, ""},
      {0xE011, Qt::Key_Home, Qt::NoModifier, false, ""},
      {0xE012, Qt::Key_Left, Qt::NoModifier, false, ""},
      {0xE015, Qt::Key_Down, Qt::NoModifier, false, ""},
      {0xE017, Qt::Key_Delete, Qt::NoModifier, false, ""},
      {0xE01A, Qt::Key_0, Qt::NoModifier, true, "0"},
      {0xE023, Qt::Key_9, Qt::NoModifier, true, "9"},
      {0xE031, Qt::Key_F1, Qt::NoModifier, false, ""},
      {0xE03C, Qt::Key_F12, Qt::NoModifier, false, ""},
      {0xE03D, Qt::Key_Meta, Qt::MetaModifier, false, ""},
      {0xE051, Qt::Key_Control, Qt::ControlModifier, false, ""},
      {0xE05B, Qt::Key_Down, Qt::NoModifier, true, ""},
  };
  for (const auto& c : cases) {
    kwauto::W3CKey key;
    ASSERT_TRUE(kwauto::LookUpW3CKey(QChar(c.code), &key)) << std::hex << c.code;
    EXPECT_EQ(c.key, key.key) << std::hex << c.code;
    EXPECT_EQ(c.modifier, key.modifier) << std::hex << c.code;
    EXPECT_EQ(c.keypad, key.keypad == Qt::KeypadModifier) << std::hex << c.code;
    EXPECT_EQ(QString(c.text), key.text) << std::hex << c.code;
  }
  kwauto::W3CKey key;
  EXPECT_FALSE(kwauto::LookUpW3CKey(QChar(0xE02A), &key));  // a gap in the table
  EXPECT_FALSE(kwauto::LookUpW3CKey(QChar('a'), &key));
}

QString Strokes(const QList<KeyStroke>& strokes) {
  QStringList out;
  foreach (const KeyStroke& stroke, strokes)
    out << QString("%1%2:%3")
               .arg(QKeySequence(stroke.key | (stroke.modifiers & ~Qt::KeypadModifier)).toString(QKeySequence::PortableText))
               .arg(stroke.modifiers & Qt::KeypadModifier ? "(keypad)" : "")
               .arg(stroke.text);
  return out.join(" ");
}

TEST(W3CKeyTest, TextBecomesStrokesWithHeldModifiers) {
  const struct {
    const char* text;
    const char* strokes;
  } cases[] = {
      {"ab", "A:a B:b"},
      {"aB", "A:a Shift+B:B"},
      {"\xee\x80\x88" "ab", "Shift+A:A Shift+B:B"},                   // Shift held to the end
      {"\xee\x80\x89" "a\xee\x80\x80" "b", "Ctrl+A: B:b"},             // Control until Null
      {"\xee\x80\x89\xee\x80\x89" "a", "A:a"},                         // a second Control lets go
      {"\xee\x80\x8a" "f", "Alt+F:"},
      {"x\xee\x80\x83\xee\x80\x87", "X:x Backspace: Enter(keypad):\r"},
      {"\xee\x80\x89\xee\x80\x88" "\xee\x80\x8e", "Ctrl+Shift+PgUp:"},
      {"1\xee\x80\x9b", "1:1 1(keypad):1"},
      {"\xee\x80\xb5", "F5:"},
      {"a\tb\n", "A:a Tab:\t B:b Return:\r"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(QString(c.strokes), Strokes(kwauto::W3CKeyStrokes(Keys(c.text)))) << c.text;
}

// The strokes delivered to a line edit do what the keys do to a user.
TEST(W3CKeyTest, StrokesEditALineEdit) {
  const struct {
    const char* before;
    const char* keys;
    const char* after;
  } cases[] = {
      {"", "ab\xee\x80\x83" "c", "ac"},                                          // Backspace
      {"hello", "\xee\x80\x89" "a\xee\x80\x80\xee\x80\x97", ""},                 // Ctrl+A, Delete
      {"world", "\xee\x80\x91" "hello \xee\x80\x90!", "hello world!"},            // Home, End
      {"ab", "\xee\x80\x92X", "aXb"},                                            // Left
      {"", "\xee\x80\x88" "abc", "ABC"},                                         // Shift held
  };
  for (const auto& c : cases) {
    QLineEdit edit(c.before);
    edit.show();
    edit.end(false);
    const QString why = kwauto::PressKeys(&edit, kwauto::W3CKeyStrokes(Keys(c.keys)));
    EXPECT_TRUE(why.isEmpty()) << why.toStdString();
    EXPECT_EQ(QString::fromUtf8(c.after), edit.text()) << c.keys;
  }
}

}  // namespace
