// Real Qt widgets and values driven through kwQtWrappers.dll by member name,
// as a test-automation host drives them; every check looks at the Qt object.
#include <QtGui/QApplication>
#include <QtGui/QBoxLayout>
#include <QtGui/QButtonGroup>
#include <QtGui/QLineEdit>
#include <QtGui/QListWidget>
#include <QtGui/QPushButton>
#include <QtGui/QRadioButton>
#include <QtGui/QStyleOptionButton>
#include <QtGui/QTextDocument>
#include <QtGui/QToolTip>
#include <QtGui/QUndoView>
#include <QtGui/QWorkspace>
#include <QtCore/QStringList>
#include <QtCore/QTimerEvent>

#include <cstdarg>
#include <functional>

#include "QtHost.h"

namespace qttest {
namespace {

// A window of real widgets, shown on the virtual display.
class WidgetTest : public QtTest {
 protected:
  void SetUp() override {
    QtTest::SetUp();
    layout_->addWidget(button_);
    layout_->addWidget(edit_);
    window_.resize(320, 200);
    window_.show();
    QApplication::processEvents();
  }

  QWidget window_;
  QVBoxLayout* layout_ = new QVBoxLayout(&window_);
  QPushButton* button_ = new QPushButton("Press");
  QLineEdit* edit_ = new QLineEdit;
};

// The composition lists of all exposers are frame_tests' (ManagerChain);
// here, on a real radio button: the names of each composed class answer on
// the one object, and QWidget, which its list leaves out, does not.
TEST_F(QtTest, ComposedClassesAnswerOnOneObject) {
  QRadioButton radio;
  Held radioExposer = Wrap(L"QRadioButton", &radio);
  EXPECT_EQ(&radio, InstanceOf(radioExposer));
  DISPID id = DISPID_UNKNOWN;
  EXPECT_EQ(S_OK, IdOf(radioExposer, L"QAbstractButton_setText", &id));
  EXPECT_EQ(S_OK, IdOf(radioExposer, L"QRadioButton_sizeHint", &id));
  EXPECT_EQ(DISP_E_UNKNOWNNAME, IdOf(radioExposer, L"QWidget_setVisible", &id));
}

TEST_F(WidgetTest, ButtonMembersBehaveAsDeclared) {
  Held button = Wrap(L"QPushButton", button_);

  // bool in: any non-zero value is true; bool out: 1, never -1.
  EXPECT_EQ(S_OK, CallByName(button, L"QAbstractButton_setDown", {I4(1)}));
  EXPECT_TRUE(button_->isDown());
  EXPECT_EQ(S_OK, CallByName(button, L"QAbstractButton_setCheckable", {I4(1)}));
  EXPECT_EQ(S_OK, CallByName(button, L"QAbstractButton_setChecked", {I4(2)}));
  EXPECT_TRUE(button_->isChecked());
  EXPECT_EQ(1, IntOf(Get(button, L"QAbstractButton_isChecked")));
  EXPECT_EQ(S_OK, CallByName(button, L"QAbstractButton_setDown", {I4(0)}));
  EXPECT_EQ(S_OK, CallByName(button, L"QAbstractButton_animateClick", {I4(10)}));
  EXPECT_TRUE(button_->isDown()) << "animateClick presses the button at once";

  // Value results: a new object over a heap copy, of the declared type.
  button_->setIcon(QApplication::style()->standardIcon(QStyle::SP_DialogOkButton));
  button_->setIconSize(QSize(24, 18));
  const struct {
    const wchar_t* member;
    const wchar_t* interfaceName;
  } values[] = {{L"QAbstractButton_text", L"Iwrp_QString"},
                {L"QAbstractButton_icon", L"Iwrp_QIcon"},
                {L"QAbstractButton_shortcut", L"Iwrp_QKeySequence"},
                {L"QAbstractButton_iconSize", L"Iwrp_QSize"}};
  for (const auto& row : values)
    EXPECT_EQ(std::vector<std::wstring>{row.interfaceName}, ComposedInterfaces(Get(button, row.member).object()));
  Result text1 = Get(button, L"QAbstractButton_text"), text2 = Get(button, L"QAbstractButton_text");
  EXPECT_EQ(QString("Press"), TextOf(text1));
  EXPECT_NE(InstanceAs<QString>(text1.object()), InstanceAs<QString>(text2.object()));
  EXPECT_EQ(QSize(24, 18), *InstanceAs<QSize>(Get(button, L"QAbstractButton_iconSize").object()));

  // Pointer results: the object itself, also a null one.
  EXPECT_EQ(nullptr, InstanceOf(Get(button, L"QAbstractButton_group").object()));
  QButtonGroup buttons;
  buttons.addButton(button_);
  EXPECT_EQ(&buttons, InstanceAs<QButtonGroup>(Get(button, L"QAbstractButton_group").object()));

  // Class arguments: the instance of an object the library handed out.
  {
    Held label = WrapString("Pressed");
    EXPECT_EQ(S_OK, CallByName(button, L"QAbstractButton_setText", {Object(label)}));
    EXPECT_EQ(QString("Pressed"), button_->text());
  }
  // A static member with byte strings.
  EXPECT_EQ(QString::fromUtf8("caf\xC3\xA9"),
            TextOf(Get(button, L"QAbstractButton_trUtf8_2", {BytesRef("caf\xC3\xA9"), BytesRef(""), I4(-1)})));
}

TEST_F(WidgetTest, WidgetMembersReachTheWindow) {
  Held window = Wrap(L"QWidget", &window_);

  // Every parameter is passed, defaults included.
  EXPECT_EQ(S_OK, CallByName(window, L"QWidget_setAttribute", {I4(Qt::WA_NoSystemBackground), I4(1)}));
  EXPECT_TRUE(window_.testAttribute(Qt::WA_NoSystemBackground));
  EXPECT_EQ(DISP_E_BADPARAMCOUNT, CallByName(window, L"QWidget_setAttribute", {I4(Qt::WA_NoSystemBackground)}));

  // childAt: the (int, int) overload builds the QPoint, the pointer comes back.
  QPoint inside = button_->geometry().center();
  EXPECT_EQ(button_, InstanceAs<QWidget>(Get(window, L"QWidget_childAt_2", {I4(inside.x()), I4(inside.y())}).object()));

  // A QFlags result is a 4-byte value; QFlags<enum Qt::WindowType> is not a
  // name the manager knows, so a sink shows what the body hands over.
  RecordingSink sink;
  ASSERT_EQ(S_OK, host_.notificator()->SetDispatchSink(&sink));
  Get(window, L"QWidget_windowFlags");
  ASSERT_EQ(1u, sink.calls.size());
  EXPECT_EQ(L"QFlags<enum Qt::WindowType>", sink.calls[0].typeName);
  EXPECT_EQ(window_.windowFlags(), *static_cast<Qt::WindowFlags*>(sink.calls[0].instance));
  host_.notificator()->SetDispatchSink(nullptr);

  // A QFlags argument is copied out of whatever object carries the value.
  QWidget tool;
  Qt::WindowFlags wanted = Qt::Tool | Qt::FramelessWindowHint;
  Held flagsObject = Wrap(L"QFlags<enum Qt::ItemFlag>", &wanted), toolObject = Wrap(L"QWidget", &tool);
  EXPECT_EQ(S_OK, CallByName(toolObject, L"QWidget_setWindowFlags", {Object(flagsObject)}));
  EXPECT_EQ(wanted, tool.windowFlags());
}

TEST_F(QtTest, StringMembersBehaveAsDeclared) {
  QString abc("abc");
  Held text = Wrap(L"QString", &abc);

  Result at = Get(text, L"QString_at", {I4(1)}), ref = Get(text, L"QString_operator_INDEXING_2", {I4(2)});
  EXPECT_EQ(QChar('b'), *InstanceAs<QChar>(at.object()));
  EXPECT_NE(abc.constData() + 1, InstanceAs<QChar>(at.object())) << "at gives a copy";
  EXPECT_EQ(std::vector<std::wstring>{L"Iwrp_QCharRef"}, ComposedInterfaces(ref.object()));
  EXPECT_EQ(QChar('c'), QChar(*InstanceAs<QCharRef>(ref.object())));
  EXPECT_EQ(abc.constData(), InstanceAs<QChar>(Get(text, L"QString_data_2").object())) << "the string's own characters";
  EXPECT_EQ(abc.unicode(), InstanceAs<QChar>(Get(text, L"QString_unicode").object()));

  QString null, empty("");
  for (QString* string : {&null, &empty, &abc}) {
    Held object = Wrap(L"QString", string);
    EXPECT_EQ(string->isNull() ? 1 : 0, IntOf(Get(object, L"QString_isNull")));
  }

  // vsprintf takes the host's argument list as Qt's va_list.
  EXPECT_EQ(S_OK, kwhost::CallWithArgumentList(text, L"QString_vsprintf", "%d-%s", 42, "x"));
  EXPECT_EQ(QString("42-x"), abc);

  // The destructor member destroys in place; the memory stays the host's.
  QString shared("shared data");
  QString* copy = new QString(shared);
  ASSERT_FALSE(shared.isDetached());
  {
    Held object = Wrap(L"QString", copy);
    EXPECT_EQ(S_OK, CallByName(object, L"QString_DTOR_QString", {}));
    EXPECT_TRUE(shared.isDetached()) << "the copy's reference to the shared data is gone";
    EXPECT_EQ(copy, InstanceOf(object)) << "the wrapper still points at the destroyed object";
  }
  ::operator delete(copy);
}

// One member of each family of wrapped classes, on a real instance.
TEST_F(WidgetTest, OneMemberOfEachFamily) {
  QTimerEvent timer(7);
  QSize size(3, 4);
  QList<int> numbers = QList<int>() << 5 << 6 << 7;
  QListWidgetItem item("item");
  QTextDocument document;
  QStyleOptionButton option;
  Qt::ItemFlags itemFlags = Qt::ItemIsEnabled;
  QString hello("hello");
  Held helloObject = Wrap(L"QString", &hello), windowObject = Wrap(L"QWidget", &window_);
  auto is = [](LONG value) { return [value](const Result& r) { return IntOf(r) == value; }; };
  auto done = [](std::function<bool()> check) { return [check](const Result&) { return check(); }; };
  const struct {
    const wchar_t* typeName;
    void* instance;
    const wchar_t* member;
    std::vector<VARIANT> args;
    std::function<bool(const Result&)> holds;
  } rows[] = {
      {L"QLineEdit", edit_, L"QLineEdit_setText", {Object(helloObject)}, done([&] { return edit_->text() == hello; })},
      {L"QVBoxLayout", layout_, L"QBoxLayout_count", {}, is(2)},
      {L"QTimerEvent", &timer, L"QTimerEvent_timerId", {}, is(7)},
      {L"QSize", &size, L"QSize_width", {}, is(3)},
      {L"QFlags<enum Qt::ItemFlag>",
       &itemFlags,
       L"QFlags_enum_Qt_ItemFlag__operator_OR",
       {I4(Qt::ItemIsSelectable)},
       [](const Result& r) {
         return *InstanceAs<Qt::ItemFlags>(r.object()) == (Qt::ItemIsEnabled | Qt::ItemIsSelectable);
       }},
      {L"QList<int>", &numbers, L"QList_int__size", {}, is(3)},
      {L"QStyleOptionButton", &option, L"QStyleOption_initFrom", {Object(windowObject)}, done([&] {
         return option.rect == window_.rect();
       })},
      {L"QTextDocument", &document, L"QTextDocument_setPlainText", {Object(helloObject)}, done([&] {
         return document.toPlainText() == hello;
       })},
      {L"QListWidgetItem", &item, L"QListWidgetItem_text", {}, [](const Result& r) { return TextOf(r) == "item"; }},
      {L"QToolTip", nullptr, L"QToolTip_isVisible", {}, is(QToolTip::isVisible() ? 1 : 0)},  // static members only
  };
  for (const auto& row : rows) {
    Held object = Wrap(row.typeName, row.instance);
    ASSERT_NE(nullptr, static_cast<IDispatch*>(object)) << Narrow(row.typeName);
    EXPECT_TRUE(row.holds(Get(object, row.member, row.args))) << Narrow(row.typeName);
  }
}

}  // namespace
}  // namespace qttest
