// Input (kwauto's InputEvents): the button, modifier and option names a
// user writes, what a widget receives for a click with them, and key
// combinations and typing in a real line edit.
#include <gtest/gtest.h>

#include <QtCore/QStringList>
#include <QtGui/QAction>
#include <QtGui/QApplication>
#include <QtGui/QContextMenuEvent>
#include <QtGui/QLineEdit>
#include <QtGui/QMouseEvent>
#include <QtGui/QVBoxLayout>

#include <memory>

#include "automation/InputEvents.h"

namespace {

using kwauto::MouseOptions;

struct ButtonName {
  const char* text;
  Qt::MouseButton button;  // Qt::NoButton: refused
};

TEST(InputNames, Buttons) {
  const ButtonName rows[] = {{"left", Qt::LeftButton},     {"RIGHT", Qt::RightButton}, {"Middle", Qt::MiddleButton},
                             {"", Qt::NoButton},           {"x1", Qt::NoButton},       {" left", Qt::NoButton}};
  for (const ButtonName& row : rows) {
    SCOPED_TRACE(row.text);
    Qt::MouseButton button = Qt::NoButton;
    const QString why = kwauto::ParseButton(row.text, &button);
    EXPECT_EQ(button, row.button);
    const std::string refusal = row.button == Qt::NoButton
                                    ? QString("\"%1\" is not a button (left, right, middle)").arg(row.text).toStdString()
                                    : std::string();
    EXPECT_EQ(why.toStdString(), refusal);
  }
}

struct ModifierNames {
  const char* text;
  int modifiers;
  const char* refusal;
};

TEST(InputNames, Modifiers) {
  const ModifierNames rows[] = {
      {"", Qt::NoModifier, ""},
      {"  ", Qt::NoModifier, ""},
      {"Shift", Qt::ShiftModifier, ""},
      {"ctrl+ALT", Qt::ControlModifier | Qt::AltModifier, ""},
      {"Shift + Meta", Qt::ShiftModifier | Qt::MetaModifier, ""},
      {"Shift+Ctrl+Alt+Meta", Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier, ""},
      {"Control", Qt::NoModifier, "\"Control\" is not a modifier (Shift, Ctrl, Alt, Meta)"},
      {"Shift+", Qt::NoModifier, "\"\" is not a modifier (Shift, Ctrl, Alt, Meta)"},
      {"Alt+Hyper", Qt::NoModifier, "\"Hyper\" is not a modifier (Shift, Ctrl, Alt, Meta)"},
  };
  for (const ModifierNames& row : rows) {
    SCOPED_TRACE(row.text);
    Qt::KeyboardModifiers modifiers = Qt::NoModifier;
    const QString why = kwauto::ParseModifiers(row.text, &modifiers);
    EXPECT_EQ(why.toStdString(), row.refusal);
    if (why.isEmpty()) EXPECT_EQ(static_cast<int>(modifiers), row.modifiers);
  }
}

struct OptionsText {
  const char* text;
  Qt::MouseButton button;
  int modifiers;
  const char* refusal;
};

#define KW_NOT_AN_OPTION(part) \
  "\"" part "\" is not an option (button=left|right|middle modifiers=Shift+Ctrl+Alt+Meta)"

TEST(InputNames, MouseOptions) {
  const OptionsText rows[] = {
      {"", Qt::LeftButton, Qt::NoModifier, ""},
      {"button=right", Qt::RightButton, Qt::NoModifier, ""},
      {"modifiers=Shift+Ctrl", Qt::LeftButton, Qt::ShiftModifier | Qt::ControlModifier, ""},
      {"  Button=middle   MODIFIERS=alt ", Qt::MiddleButton, Qt::AltModifier, ""},
      {"button=up", Qt::LeftButton, 0, "\"up\" is not a button (left, right, middle)"},
      {"modifiers=Super", Qt::LeftButton, 0, "\"Super\" is not a modifier (Shift, Ctrl, Alt, Meta)"},
      {"speed=2", Qt::LeftButton, 0, KW_NOT_AN_OPTION("speed=2")},
      {"right", Qt::LeftButton, 0, KW_NOT_AN_OPTION("right")},
      {"=right", Qt::LeftButton, 0, KW_NOT_AN_OPTION("=right")},
  };
  for (const OptionsText& row : rows) {
    SCOPED_TRACE(row.text);
    MouseOptions options;
    const QString why = kwauto::ParseMouseOptions(row.text, &options);
    EXPECT_EQ(why.toStdString(), row.refusal);
    if (!why.isEmpty()) continue;
    EXPECT_EQ(options.button, row.button);
    EXPECT_EQ(static_cast<int>(options.modifiers), row.modifiers);
  }
}

// A window that notes the mouse and key events it receives.
class Recorder : public QWidget {
 public:
  QStringList events;

 protected:
  void mousePressEvent(QMouseEvent* event) override { Note("press", event->button(), event->modifiers()); }
  void mouseReleaseEvent(QMouseEvent* event) override { Note("release", event->button(), event->modifiers()); }
  void mouseDoubleClickEvent(QMouseEvent* event) override { Note("double", event->button(), event->modifiers()); }
  void contextMenuEvent(QContextMenuEvent* event) override {
    events << QString("menu %1,%2").arg(event->pos().x()).arg(event->pos().y());
  }

 private:
  void Note(const char* what, Qt::MouseButton button, Qt::KeyboardModifiers modifiers) {
    events << QString("%1 %2 %3").arg(what).arg(static_cast<int>(button)).arg(static_cast<int>(modifiers));
  }
};

struct ClickCase {
  const char* options;
  bool twice;
  const char* events;
};

TEST(InputEvents, AClickArrivesWithItsButtonAndModifiers) {
  const ClickCase rows[] = {
      {"", false, "press 1 0; release 1 0"},
      {"button=right", false, "press 2 0; release 2 0; menu 50,30"},
      {"button=middle modifiers=Shift+Ctrl", false, "press 4 100663296; release 4 100663296"},
      {"", true, "press 1 0; release 1 0; double 1 0; release 1 0"},
  };
  for (const ClickCase& row : rows) {
    SCOPED_TRACE(row.options);
    Recorder window;
    window.setGeometry(30, 30, 100, 60);
    window.show();
    QApplication::processEvents();
    MouseOptions options;
    ASSERT_EQ(kwauto::ParseMouseOptions(row.options, &options).toStdString(), "");
    EXPECT_EQ(kwauto::Click(&window, QPoint(50, 30), row.twice, options).toStdString(), "");
    EXPECT_EQ(window.events.join("; ").toStdString(), row.events);
  }
}

TEST(InputEvents, AHiddenWidgetIsNotClicked) {
  Recorder window;
  EXPECT_EQ(kwauto::Click(&window, QPoint(1, 1), false).toStdString(), "the QWidget is not visible");
  EXPECT_TRUE(window.events.isEmpty());
}

class KeyInput : public ::testing::Test {
 protected:
  void SetUp() override {
    m_window.reset(new QWidget);
    auto* layout = new QVBoxLayout(m_window.get());
    m_edit = new QLineEdit;
    layout->addWidget(m_edit);
    auto* save = new QAction(m_window.get());
    save->setShortcut(QKeySequence("Ctrl+S"));
    m_window->addAction(save);
    QObject::connect(save, SIGNAL(triggered()), m_window.get(), SLOT(close()));
    m_window->show();
    QApplication::processEvents();
  }
  void TearDown() override { m_window.reset(); }

  std::string Key(const char* combination) { return kwauto::Key(m_edit, combination).toUtf8().constData(); }
  std::string Type(const QString& text) { return kwauto::Type(m_edit, text).toUtf8().constData(); }
  std::string Text() const { return m_edit->text().toUtf8().constData(); }

  std::unique_ptr<QWidget> m_window;
  QLineEdit* m_edit = nullptr;
};

TEST_F(KeyInput, TypingAndEditingKeys) {
  EXPECT_EQ(Type("abc"), "");
  EXPECT_EQ(Text(), "abc");
  EXPECT_EQ(Key("Home"), "");
  EXPECT_EQ(Type("X"), "");
  EXPECT_EQ(Text(), "Xabc");
  EXPECT_EQ(Key("End"), "");
  EXPECT_EQ(Key("Backspace"), "");
  EXPECT_EQ(Text(), "Xab");
  EXPECT_EQ(Key("Shift+Left"), "");
  EXPECT_EQ(m_edit->selectedText().toStdString(), "b");
  EXPECT_EQ(Key("Ctrl+A"), "");
  EXPECT_EQ(Key("Delete"), "");
  EXPECT_EQ(Text(), "");
  EXPECT_EQ(Type(QString::fromUtf8("Zoë 1+1")), "");
  EXPECT_EQ(Text(), "Zoë 1+1");
}

TEST_F(KeyInput, AShortcutOfTheWindowApplies) {
  EXPECT_EQ(Key("ctrl+s"), "");
  EXPECT_FALSE(m_window->isVisible());
}

TEST_F(KeyInput, WhatIsNoKeyCombinationIsRefused) {
  for (const char* combination : {"", "Nonsense", "Ctrl+S, Ctrl+Q", "Ctrl+Nonsense", "Shift+Alt+", "Hyper+A",
                                  "Crtl+S", "Ctrl+Shift+Alt+Meta+Hyper+S"}) {
    SCOPED_TRACE(combination);
    EXPECT_EQ(Key(combination),
              QString("\"%1\" is not a key combination (such as \"Return\", \"Ctrl+S\", \"Alt+F\")")
                  .arg(combination)
                  .toStdString());
  }
  EXPECT_EQ(Text(), "");
  EXPECT_TRUE(m_window->isVisible());
}

}  // namespace
