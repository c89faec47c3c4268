// kwscript's facade over real widgets: what a script reaches through it
// beyond the library's composition lists, and how it takes arguments as a
// script writer gives them. Calls go through the facade's IDispatch as an
// engine makes them; what Qt received is read from the widgets themselves.
#include <QtGui/QApplication>
#include <QtGui/QColor>
#include <QtGui/QComboBox>
#include <QtGui/QLabel>
#include <QtGui/QLineEdit>
#include <QtGui/QListWidget>
#include <QtGui/QStringListModel>
#include <QtGui/QTableWidget>

#include <cstring>
#include <functional>
#include <memory>

#include "QtHost.h"
#include "kwscript/MemberTable.h"
#include "kwscript/MoreWrappers.h"
#include "kwscript/ScriptObject.h"

namespace qttest {
namespace {

using kwscript::CScriptObject;

// What a call through a facade gave: its HRESULT, result and description.
struct Answer {
  HRESULT hr = E_FAIL;
  VARIANT value;
  QString description;
  Answer() { VariantInit(&value); }
  ~Answer() { VariantClear(&value); }
  bool isTrue() const { return V_VT(&value) == VT_BOOL && V_BOOL(&value) == VARIANT_TRUE; }
  LONG number() const { return V_VT(&value) == VT_I4 ? V_I4(&value) : -12345678; }
};

VARIANT Text(const wchar_t* text) {
  VARIANT v;
  V_VT(&v) = VT_BSTR;
  V_BSTR(&v) = SysAllocString(text);
  return v;
}

VARIANT Object(IDispatch* object) {
  VARIANT v;
  V_VT(&v) = VT_DISPATCH;
  V_DISPATCH(&v) = object;
  return v;
}

VARIANT Null() {
  VARIANT v;
  V_VT(&v) = VT_NULL;
  return v;
}

// Calls `name` with `args` (first first) as an engine does.
void Call(IDispatch* facade, const wchar_t* name, std::vector<VARIANT> args, Answer* answer) {
  LPOLESTR asked = const_cast<LPOLESTR>(name);
  DISPID id = DISPID_UNKNOWN;
  answer->hr = facade->GetIDsOfNames(IID_NULL, &asked, 1, LOCALE_USER_DEFAULT, &id);
  if (FAILED(answer->hr)) return;
  std::vector<VARIANT> reversed(args.rbegin(), args.rend());
  DISPPARAMS params{reversed.empty() ? nullptr : reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  EXCEPINFO exception{};
  answer->hr = facade->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD | DISPATCH_PROPERTYGET, &params,
                              &answer->value, &exception, nullptr);
  if (exception.bstrDescription != nullptr) answer->description = QString::fromWCharArray(exception.bstrDescription);
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  for (VARIANT& arg : args)
    if (V_VT(&arg) == VT_BSTR) VariantClear(&arg);
}

bool HasBase(const kwscript::InterfaceInfo& info, const char* base) {
  for (std::size_t i = 0; i < info.baseCount; ++i)
    if (std::strcmp(info.bases[i].typeName, base) == 0) return true;
  return false;
}

class FacadeTest : public QtTest {
 protected:
  // A facade over `instance` under `typeName`, or null when the library
  // makes no object of that name.
  IDispatch* Facade(const char* typeName, void* instance) {
    IDispatch* exposer = nullptr;
    const std::wstring type = QString::fromLatin1(typeName).toStdWString();
    if (kwscript::MakeExposer(&context_, type.c_str(), instance, &exposer) != S_OK) return nullptr;
    IDispatch* facade = CScriptObject::Wrap(exposer, &context_);
    exposer->Release();
    return facade;
  }
  void SetUp() override {
    QtTest::SetUp();
    context_.manager = host_.manager();
    more_.reset(new kwscript::MoreWrappers(host_));  // the classes the library leaves out
  }
  void TearDown() override { more_.reset(); }
  kwscript::ScriptContext context_;
  std::unique_ptr<kwscript::MoreWrappers> more_;
};

// Every widget class the member table lists answers QWidget's and QObject's
// members by plain and prefixed name, whatever the library's composition list for it
// holds; each facade stands over a real widget, whose QWidget part is what
// those members reach.
TEST_F(FacadeTest, EveryWidgetClassAnswersTheMembersOfItsWholeChain) {
  QWidget widget;
  widget.resize(37, 23);
  int classes = 0;
  for (std::size_t i = 0; i < kwscript::kInterfaceCount; ++i) {
    const kwscript::InterfaceInfo& info = kwscript::kInterfaces[i];
    if (!HasBase(info, "QWidget")) continue;
    IDispatch* facade = Facade(info.typeName, &widget);
    if (facade == nullptr) continue;  // a class the library declares but makes no object of
    ++classes;
    Answer height, visible, focus, inherits;
    Call(facade, L"QWidget_height", {}, &height);
    Call(facade, L"isVisible", {}, &visible);
    Call(facade, L"setFocus", {}, &focus);
    Call(facade, L"QObject_inherits", {Text(L"QWidget")}, &inherits);
    EXPECT_EQ(23, height.number()) << info.typeName << ": " << height.description.toStdString();
    EXPECT_EQ(S_OK, visible.hr) << info.typeName;
    EXPECT_EQ(S_OK, focus.hr) << info.typeName << ": " << focus.description.toStdString();
    EXPECT_TRUE(inherits.isTrue()) << info.typeName << ": " << inherits.description.toStdString();
    facade->Release();
  }
  EXPECT_GT(classes, 60);
}

// Arguments as a script writer gives them: trailing defaults left out,
// QFlags and enumerations by number or by name, null for a pointer; and
// what the facade refuses before the library sees it.
TEST_F(FacadeTest, ArgumentsTakeDefaultsNamesAndNull) {
  QLineEdit edit;
  QComboBox combo;
  combo.addItems(QStringList() << "a" << "b" << "c");
  QLabel label, buddy;
  label.setBuddy(&buddy);
  QRect inner(2, 2, 5, 5);
  IDispatch* editFacade = Facade("QLineEdit", &edit);
  IDispatch* comboFacade = Facade("QComboBox", &combo);
  IDispatch* labelFacade = Facade("QLabel", &label);
  IDispatch* rect = Facade("QRect", &inner);
  ASSERT_TRUE(editFacade && comboFacade && labelFacade && rect);

  Answer found, contains, named, numbered, nulled;
  Call(comboFacade, L"findText", {Text(L"b")}, &found);  // its flags left to their default
  EXPECT_EQ(1, found.number()) << found.description.toStdString();
  Call(rect, L"contains", {Object(rect)}, &contains);  // `proper` left out
  EXPECT_TRUE(contains.isTrue()) << contains.description.toStdString();
  Call(editFacade, L"setAlignment", {Text(L"AlignRight|AlignVCenter")}, &named);
  EXPECT_EQ(Qt::AlignRight | Qt::AlignVCenter, int(edit.alignment())) << named.description.toStdString();
  Call(editFacade, L"QLineEdit_setAlignment", {I4(Qt::AlignHCenter)}, &numbered);
  EXPECT_EQ(Qt::AlignHCenter, int(edit.alignment())) << numbered.description.toStdString();
  Call(labelFacade, L"setBuddy", {Null()}, &nulled);
  EXPECT_EQ(nullptr, label.buddy()) << nulled.description.toStdString();

  struct Refusal {
    IDispatch* target;
    const wchar_t* name;
    std::vector<VARIANT> args;
    const char* says;
  };
  const QFont before = edit.font();
  const Refusal refusals[] = {
      {editFacade, L"QWidget_setFont", {Object(rect)}, "takes a QFont; given a QRect"},
      {editFacade, L"setAlignment", {Text(L"AlignNowhere")}, "takes no 1 argument(s)"},
      {editFacade, L"QLineEdit_setAlignment", {Text(L"AlignNowhere")}, "names no values of"},
      {editFacade, L"QWidget_setFont", {Null()}, "given null"},
      {editFacade, L"QWidget_resize_2", {I4(1)}, "takes 2 argument(s)"},
  };
  for (const Refusal& refusal : refusals) {
    Answer answer;
    Call(refusal.target, refusal.name, refusal.args, &answer);
    EXPECT_EQ(DISP_E_EXCEPTION, answer.hr) << QString::fromWCharArray(refusal.name).toStdString();
    EXPECT_TRUE(answer.description.contains(refusal.says))
        << QString::fromWCharArray(refusal.name).toStdString() << ": " << answer.description.toStdString();
  }
  EXPECT_EQ(before, edit.font());
  for (IDispatch* facade : {editFacade, comboFacade, labelFacade, rect}) facade->Release();
}

// Members the library drops for want of an object class are called by the
// facade itself; lists of objects come back as lists a script indexes.
TEST_F(FacadeTest, DroppedMembersAreCalledDirectlyAndListsComeBackAsLists) {
  QListWidget list;
  list.addItems(QStringList() << "alpha" << "beta" << "alphabet");
  list.item(2)->setSelected(true);
  IDispatch* facade = Facade("QListWidget", &list);
  ASSERT_NE(nullptr, facade);
  Answer found, selected;
  Call(facade, L"findItems", {Text(L"alp"), Text(L"MatchStartsWith")}, &found);
  ASSERT_EQ(VT_DISPATCH, V_VT(&found.value)) << found.description.toStdString();
  Call(facade, L"QListWidget_selectedItems", {}, &selected);
  ASSERT_EQ(VT_DISPATCH, V_VT(&selected.value)) << selected.description.toStdString();
  struct Expected {
    Answer* list;
    std::vector<const wchar_t*> texts;
  };
  for (const Expected& expected : {Expected{&found, {L"alpha", L"alphabet"}}, Expected{&selected, {L"alphabet"}}}) {
    IDispatch* items = V_DISPATCH(&expected.list->value);
    Answer length;
    Call(items, L"length", {}, &length);
    EXPECT_EQ(LONG(expected.texts.size()), length.number());
    for (std::size_t i = 0; i < expected.texts.size(); ++i) {
      Answer item, text;
      const std::wstring index = std::to_wstring(i);
      Call(items, index.c_str(), {}, &item);  // list[i] in JScript
      ASSERT_EQ(VT_DISPATCH, V_VT(&item.value));
      Call(V_DISPATCH(&item.value), L"text", {}, &text);
      EXPECT_EQ(QString::fromWCharArray(expected.texts[i]),
                V_VT(&text.value) == VT_BSTR ? QString::fromWCharArray(V_BSTR(&text.value)) : QString());
    }
  }
  facade->Release();
}

// An item of a list, table or tree widget is no QObject: once its view
// deletes it (or the view goes), its facade answers "object destroyed"
// instead of reading freed memory.
TEST_F(FacadeTest, ItemsOfAViewAreRefusedOnceTheViewDeletedThem) {
  auto* list = new QListWidget;
  list->addItems(QStringList() << "kept" << "removed");
  QTableWidget table(1, 1);
  table.setItem(0, 0, new QTableWidgetItem("cell"));
  IDispatch* listFacade = Facade("QListWidget", list);
  IDispatch* tableFacade = Facade("QTableWidget", &table);
  ASSERT_TRUE(listFacade != nullptr && tableFacade != nullptr);
  Answer kept, removed, cell;
  Call(listFacade, L"item", {I4(0)}, &kept);
  Call(listFacade, L"item", {I4(1)}, &removed);
  Call(tableFacade, L"item", {I4(0), I4(0)}, &cell);
  ASSERT_TRUE(V_VT(&kept.value) == VT_DISPATCH && V_VT(&removed.value) == VT_DISPATCH && V_VT(&cell.value) == VT_DISPATCH);
  delete list->takeItem(1);
  table.setItem(0, 0, new QTableWidgetItem("replaced"));  // deletes the cell's item
  struct Use {
    Answer* item;
    HRESULT hr;
    const char* says;
  };
  const Use beforeListGoes[] = {{&kept, S_OK, ""},
                                {&removed, DISP_E_EXCEPTION, "no longer an item of its QListWidget"},
                                {&cell, DISP_E_EXCEPTION, "no longer an item of its QTableWidget"}};
  for (const Use& use : beforeListGoes) {
    Answer text;
    Call(V_DISPATCH(&use.item->value), L"text", {}, &text);
    EXPECT_EQ(use.hr, text.hr) << use.says;
    EXPECT_TRUE(text.description.contains(use.says)) << text.description.toStdString();
  }
  listFacade->Release();
  delete list;
  Answer text;
  Call(V_DISPATCH(&kept.value), L"text", {}, &text);
  EXPECT_TRUE(text.description.contains("view was destroyed")) << text.description.toStdString();
  tableFacade->Release();
}

// A model's pure virtual members, which no class of the library has a body
// for, reach the object's own overrides; a QObject member reaches any
// object of the library's classes.
TEST_F(FacadeTest, PureVirtualAndQObjectMembersReachTheObject) {
  QStringListModel model(QStringList() << "a" << "b" << "c");
  model.setObjectName("letters");
  IDispatch* abstract = Facade("QAbstractItemModel", &model);
  IDispatch* own = Facade("QStringListModel", &model);
  ASSERT_TRUE(abstract != nullptr && own != nullptr);
  Answer rows, columns, name, inherits;
  Call(abstract, L"rowCount", {}, &rows);  // its parent left to its default
  Call(abstract, L"QAbstractItemModel_columnCount", {}, &columns);
  Call(own, L"objectName", {}, &name);
  Call(own, L"inherits", {Text(L"QAbstractListModel")}, &inherits);
  EXPECT_EQ(3, rows.number()) << rows.description.toStdString();
  EXPECT_EQ(1, columns.number()) << columns.description.toStdString();
  EXPECT_EQ(QString("letters"), V_VT(&name.value) == VT_BSTR ? QString::fromWCharArray(V_BSTR(&name.value)) : QString());
  EXPECT_TRUE(inherits.isTrue()) << inherits.description.toStdString();
  abstract->Release();
  own->Release();
}

// The number of QStrings sharing `text`'s data.
int Sharers(QString text) { return int(text.data_ptr()->ref) - 1; }  // less the copy taken here

// What the facade makes for a call and what a call gives back as a copy
// the script owns go when they are done with: the QString made from a
// script string when the call returns, a returned copy with its facade. A
// copy left behind would keep sharing the widget's text.
TEST_F(FacadeTest, CopiesGoWhenTheScriptIsDoneWithThem) {
  QLineEdit edit;
  IDispatch* facade = Facade("QLineEdit", &edit);
  ASSERT_NE(nullptr, facade);
  Answer set;
  Call(facade, L"setText", {Text(L"shared text")}, &set);
  ASSERT_EQ(S_OK, set.hr);
  EXPECT_EQ(1, Sharers(edit.text())) << "the QString made for the argument is still alive";
  {
    Answer copy;
    Call(facade, L"QLineEdit_text", {}, &copy);  // a QString object over a copy
    ASSERT_EQ(VT_DISPATCH, V_VT(&copy.value));
    EXPECT_EQ(2, Sharers(edit.text()));
  }
  EXPECT_EQ(1, Sharers(edit.text())) << "the returned copy outlived its facade";
  Answer plain;
  Call(facade, L"text", {}, &plain);  // a plain name gives the text itself
  EXPECT_EQ(1, Sharers(edit.text())) << "the copy behind a plain-name string result is still alive";
  facade->Release();
  // A value the script made and gave Qt by pointer is Qt's from then on.
  QListWidget list;
  IDispatch* listFacade = Facade("QListWidget", &list);
  Answer item, added;
  EXCEPINFO exception{};
  std::vector<VARIANT> args{Text(L"given away")};
  const DISPPARAMS params{args.data(), nullptr, 1, 0};
  ASSERT_EQ(S_OK, kwscript::MakeValue(&context_, "QListWidgetItem", params, &item.value, &exception));
  VariantClear(&args[0]);
  Call(listFacade, L"addItem", {Object(V_DISPATCH(&item.value))}, &added);
  ASSERT_EQ(S_OK, added.hr) << added.description.toStdString();
  VariantClear(&item.value);  // the script lets go of its object
  ASSERT_EQ(1, list.count()) << "the item was freed under the list";
  EXPECT_EQ(QString("given away"), list.item(0)->text());
  listFacade->Release();
}

// app.value: a value made by the constructor that fits the arguments, which
// the script owns; a name that is no value class is refused.
TEST_F(FacadeTest, ValuesAreMadeByTheConstructorThatFits) {
  struct Case {
    const char* type;
    std::vector<VARIANT> args;  // first first
    std::function<bool(void*)> holds;
  };
  const Case cases[] = {
      {"QRect", {I4(1), I4(2), I4(10), I4(20)}, [](void* v) { return *static_cast<QRect*>(v) == QRect(1, 2, 10, 20); }},
      {"QSize", {I4(30), I4(20)}, [](void* v) { return *static_cast<QSize*>(v) == QSize(30, 20); }},
      {"QColor", {Text(L"red")}, [](void* v) { return *static_cast<QColor*>(v) == QColor(Qt::red); }},
      {"QPoint", {}, [](void* v) { return static_cast<QPoint*>(v)->isNull(); }},
  };
  for (const Case& c : cases) {
    std::vector<VARIANT> reversed(c.args.rbegin(), c.args.rend());
    const DISPPARAMS params{reversed.empty() ? nullptr : reversed.data(), nullptr, UINT(reversed.size()), 0};
    Answer made;
    EXCEPINFO exception{};
    made.hr = kwscript::MakeValue(&context_, c.type, params, &made.value, &exception);
    ASSERT_EQ(S_OK, made.hr) << c.type;
    ASSERT_EQ(VT_DISPATCH, V_VT(&made.value)) << c.type;
    const CScriptObject* facade = CScriptObject::FacadeOf(V_DISPATCH(&made.value));
    ASSERT_NE(nullptr, facade);
    EXPECT_TRUE(c.holds(facade->instance())) << c.type;
    for (VARIANT& arg : reversed) VariantClear(&arg);
  }
  const DISPPARAMS none{};
  Answer refused;
  EXCEPINFO exception{};
  EXPECT_EQ(DISP_E_EXCEPTION, kwscript::MakeValue(&context_, "QRectangle", none, &refused.value, &exception));
  EXPECT_TRUE(QString::fromWCharArray(exception.bstrDescription).contains("QRect")) << "the nearest names";
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
}

}  // namespace
}  // namespace qttest
