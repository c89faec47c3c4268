// Selectors (kwauto::QueryObjects): what a mistake says and where, and what
// each form matches in a small window of real widgets.
#include <gtest/gtest.h>

#include <QtCore/QStringList>
#include <QtGui/QApplication>
#include <QtGui/QCheckBox>
#include <QtGui/QGroupBox>
#include <QtGui/QLabel>
#include <QtGui/QLineEdit>
#include <QtGui/QPushButton>
#include <QtGui/QRadioButton>
#include <QtGui/QToolButton>

#include <memory>

#include "automation/ObjectQuery.h"

namespace {

using kwauto::QueryObjects;
using kwauto::SelectorError;

struct MalformedSelector {
  const char* selector;
  int position;          // 1-based character
  const char* expected;  // what the message says was expected there
};

const MalformedSelector kMalformed[] = {
    {"", 1, "a step (a class, *, #name, .Class, [property=\"text\"] or :visible); the selector is empty"},
    {"   ", 4, "a step (a class, *, #name, .Class, [property=\"text\"] or :visible); the selector is empty"},
    {"Button[text=7]", 13, "a value in double (or single) quotes"},
    {"#", 2, "an object name after \"#\""},
    {"QWidget.", 9, "a class name after \".\""},
    {". QWidget", 2, "a class name after \".\""},
    {"[=\"x\"]", 2, "a property name after \"[\""},
    {"[text\"x\"]", 6, "\"=\" after the property name"},
    {"[text=\"x\"", 10, "\"]\" after the quoted value"},
    {"[text=\"x]", 10, "the closing double quote"},
    {"[name='x]", 10, "the closing single quote"},
    {"QLabel:first", 8, "\"visible\" or a number after \":\""},
    {"QLabel:-1", 8, "\"visible\" or a number after \":\""},
    {"QWidget]", 8, "\"#\", \".\", \"[\", \":\", a blank or \">\""},
    {"**", 2, "\"#\", \".\", \"[\", \":\", a blank or \">\""},
    {"> QLabel", 1, "a class name, \"*\", \"#\", \".\", \"[\" or \":\""},
    {"QWidget >", 10, "a class name, \"*\", \"#\", \".\", \"[\" or \":\""},
    {"QWidget > > QLabel", 11, "a class name, \"*\", \"#\", \".\", \"[\" or \":\""},
};

TEST(SelectorErrors, SayWhereAndWhat) {
  for (const MalformedSelector& row : kMalformed) {
    SCOPED_TRACE(row.selector);
    SelectorError error;
    EXPECT_TRUE(QueryObjects(QString::fromUtf8(row.selector), &error).isEmpty());
    EXPECT_EQ(error.position, row.position);
    const QString message = QString("selector \"%1\", character %2: expected %3")
                                .arg(QString::fromUtf8(row.selector))
                                .arg(row.position)
                                .arg(QString::fromUtf8(row.expected));
    EXPECT_EQ(error.message.toStdString(), message.toStdString());
  }
}

// A window of its own for each test:
//   QWidget #form "Form"
//     QLineEdit #nameEdit (accessible name "Name") "Ada"
//     QPushButton #okButton "&OK"
//     QPushButton "Cancel"
//     QCheckBox "Remember" (checked)
//     QGroupBox "Options"
//       QRadioButton "Red"
//       QLabel #hint "Fill in"
//     QToolButton #my.tool "More" (hidden)
class SelectorMatching : public ::testing::Test {
 protected:
  void SetUp() override {
    m_form.reset(new QWidget);
    m_form->setObjectName("form");
    m_form->setWindowTitle("Form");
    m_form->setGeometry(40, 40, 320, 260);
    auto* name = new QLineEdit("Ada", m_form.get());
    name->setObjectName("nameEdit");
    name->setAccessibleName("Name");
    new QPushButton("&OK", m_form.get());
    m_form->findChild<QPushButton*>()->setObjectName("okButton");
    new QPushButton("Cancel", m_form.get());
    auto* remember = new QCheckBox("Remember", m_form.get());
    remember->setChecked(true);
    auto* options = new QGroupBox("Options", m_form.get());
    new QRadioButton("Red", options);
    auto* hint = new QLabel("Fill in", options);
    hint->setObjectName("hint");
    auto* tool = new QToolButton(m_form.get());
    tool->setObjectName("my.tool");
    tool->setText("More");
    int y = 0;
    foreach (QWidget* child, m_form->findChildren<QWidget*>()) {
      if (child->parentWidget() != m_form.get()) continue;
      child->setGeometry(10, y += 30, 200, 26);
    }
    options->setGeometry(10, 160, 200, 80);
    m_form->show();
    tool->hide();
    QApplication::processEvents();
  }
  void TearDown() override { m_form.reset(); }

  // The matches, each named by its object name, else its text or title,
  // else its class, joined by ", ".
  static std::string Matches(const char* selector) {
    SelectorError error;
    QStringList names;
    foreach (QObject* object, QueryObjects(QString::fromUtf8(selector), &error)) {
      QString name = object->objectName();
      for (const char* property : {"text", "title"})
        if (name.isEmpty()) name = object->property(property).toString();
      names << (name.isEmpty() ? QString(object->metaObject()->className()) : name);
    }
    if (error.position != 0) return "error: " + error.message.toStdString();
    return names.join(", ").toStdString();
  }

  std::unique_ptr<QWidget> m_form;
};

struct Match {
  const char* selector;
  const char* matches;
};

const Match kMatches[] = {
    // Types and classes: ".Class" as a Type, any number of them.
    {"QLineEdit", "nameEdit"},
    {".QAbstractButton", "okButton, Cancel, Remember, Red, my.tool"},
    {"QWidget.QAbstractButton", "okButton, Cancel, Remember, Red, my.tool"},
    {".QAbstractButton.QCheckBox", "Remember"},
    {"QPushButton.QCheckBox", ""},
    {".QNoSuchClass", ""},
    {"#form > *", "nameEdit, okButton, Cancel, Remember, Options, my.tool"},
    {"* > QRadioButton", "Red"},
    {"*#hint", "hint"},
    // The object name, as #name, [id=...] and with CSS's escapes.
    {"#nameEdit", "nameEdit"},
    {"[id=\"nameEdit\"]", "nameEdit"},
    {"[id='okButton']", "okButton"},
    {"[id=\"Ada\"]", ""},
    {"#my.tool", "my.tool"},
    {"[id=\"my.tool\"]", "my.tool"},
    {"#my\\.tool", "my.tool"},
    {"#\\6e ameEdit", "nameEdit"},
    {"#\\6EameEdit", ""},  // the hex digits run on: "6Ea" is one code
    // [name=...]: the accessible name, else the readable text.
    {"[name=\"Name\"]", "nameEdit"},
    {"[name=\"Ada\"]", ""},  // it has an accessible name: its text does not count
    {"[name=\"Cancel\"]", "Cancel"},
    {"*[name='&OK']", "okButton"},
    {"[name=\"Options\"]", "Options"},
    {"[name=\"Fill in\"]", "hint"},
    {"[name=\"Form\"]", "form"},
    // Other keys are Qt properties, as text.
    {"[text=\"Ada\"]", "nameEdit"},
    {"[checked=\"true\"]", "Remember"},
    {"QAbstractButton[checked=\"false\"]", "okButton, Cancel, Red, my.tool"},
    {"[text='say \\'hi\\'']", ""},
    {"[nosuch=\"\"]", ""},
    // Visibility, positions, combinators.
    {".QAbstractButton:visible", "okButton, Cancel, Remember, Red"},
    {".QAbstractButton:1", "Cancel"},
    {".QAbstractButton:9", ""},
    {"QGroupBox QLabel", "hint"},
    {"#form>QLabel", ""},
    {"#form > QGroupBox > QLabel:visible", "hint"},
    {"[name=\"Options\"] [id=\"hint\"]", "hint"},
};

TEST_F(SelectorMatching, EachFormFindsItsObjects) {
  for (const Match& row : kMatches) {
    SCOPED_TRACE(row.selector);
    EXPECT_EQ(Matches(row.selector), row.matches);
  }
}

TEST_F(SelectorMatching, AQuoteInsideAValueIsEscaped) {
  m_form->findChild<QLabel*>("hint")->setText("say 'hi' \"there\"");
  EXPECT_EQ(Matches("[text='say \\'hi\\' \"there\"']"), "hint");
  EXPECT_EQ(Matches("[text=\"say 'hi' \\\"there\\\"\"]"), "hint");
}

TEST_F(SelectorMatching, AnObjectGoneIsNoLongerFound) {
  delete m_form->findChild<QPushButton*>("okButton");
  EXPECT_EQ(Matches("[id=\"okButton\"]"), "");
  EXPECT_EQ(Matches(".QPushButton"), "Cancel");
}

}  // namespace
