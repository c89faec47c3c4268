// kwscript's second wrappers set (kwQtMoreWrappers.dll) beside the library:
// its interfaces in kwscript's member table, and the two managers answering
// for each other through the dispatch sink that MoreWrappers installs.
#include <windows.h>
#include <oaidl.h>

#include <gtest/gtest.h>

#include <QtCore/QLocale>
#include <QtCore/QString>
#include <QtGui/QApplication>
#include <QtGui/QFormLayout>
#include <QtGui/QLabel>
#include <QtGui/QLineEdit>
#include <QtGui/QStandardItemModel>
#include <QtGui/QWidget>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "HostTest.h"
#include "kwscript/MemberTable.h"
#include "kwscript/MoreWrappers.h"

namespace {

using namespace kwtest;

std::wstring GuidText(const GUID& guid) {
  wchar_t text[40] = L"";
  StringFromGUID2(guid, text, 40);
  return text;
}

std::wstring NameOf(ITypeInfo* info, MEMBERID id) {
  BSTR name = nullptr;
  if (FAILED(info->GetDocumentation(id, &name, nullptr, nullptr, nullptr))) return L"";
  std::wstring text(name, SysStringLen(name));
  SysFreeString(name);
  return text;
}

// Every interface of the second set's embedded type library is in the member
// table, with exactly the members the type library has (none missing, none
// the library would not answer; the members kwscript calls itself aside);
// and the library's own interfaces still are.
TEST(MoreMemberTable, EveryInterfaceOfTheSecondSetResolvesWithItsMembers) {
  ITypeLib* library = nullptr;
  ASSERT_EQ(S_OK, LoadTypeLibEx((ProgramFolder() + L"kwQtMoreWrappers.dll").c_str(), REGKIND_NONE, &library));
  std::set<std::wstring> interfaces;
  for (UINT i = 0; i < library->GetTypeInfoCount(); ++i) {
    ITypeInfo* dispatch = nullptr;
    ASSERT_EQ(S_OK, library->GetTypeInfo(i, &dispatch));
    // The vtable half of each dual interface: its own members only.
    ITypeInfo* info = nullptr;
    HREFTYPE half = 0;
    TYPEATTR* attr = nullptr;
    if (SUCCEEDED(dispatch->GetRefTypeOfImplType(static_cast<UINT>(-1), &half)) &&
        SUCCEEDED(dispatch->GetRefTypeInfo(half, &info)) && SUCCEEDED(info->GetTypeAttr(&attr)) &&
        attr->typekind == TKIND_INTERFACE) {
      const std::wstring name = NameOf(info, MEMBERID_NIL);
      interfaces.insert(name);
      const kwscript::InterfaceInfo* table = kwscript::FindInterface(name.c_str());
      EXPECT_NE(nullptr, table) << Narrow(name);
      if (table != nullptr) {
        std::size_t answered = 0;  // by the DLL, not by a direct call of kwscript's
        for (std::size_t m = 0; m < table->count; ++m) answered += table->members[m].direct == nullptr ? 1 : 0;
        EXPECT_EQ(attr->cFuncs, answered) << Narrow(name);
        for (WORD f = 0; f < attr->cFuncs; ++f) {
          FUNCDESC* func = nullptr;
          ASSERT_EQ(S_OK, info->GetFuncDesc(f, &func));
          const std::wstring member = NameOf(info, func->memid);
          EXPECT_NE(nullptr, kwscript::FindMember(*table, member.c_str())) << Narrow(name) << " " << Narrow(member);
          info->ReleaseFuncDesc(func);
        }
      }
    }
    if (attr != nullptr) info->ReleaseTypeAttr(attr);
    if (info != nullptr) info->Release();
    dispatch->Release();
  }
  library->Release();
  EXPECT_EQ(220u, interfaces.size()) << "typelib/qt48more/catalogue/classes.tsv has 220 classes";
  for (const wchar_t* name : {L"Iwrp_QObject", L"Iwrp_QAbstractItemModel", L"Iwrp_QPlainTextEdit"})
    EXPECT_EQ(1u, interfaces.count(name)) << Narrow(name);
  // The library's interfaces, from its own table.
  for (const wchar_t* name : {L"Iwrp_QWidget", L"Iwrp_QString", L"Iwrp_QSortFilterProxyModel"}) {
    EXPECT_NE(nullptr, kwscript::FindInterface(name)) << Narrow(name);
    EXPECT_EQ(0u, interfaces.count(name)) << Narrow(name) << " is the library's";
  }
  // A class the library only declares has its members in the second set.
  const kwscript::InterfaceInfo* view = kwscript::FindInterface(L"Iwrp_QGraphicsView");
  ASSERT_NE(nullptr, view);
  EXPECT_NE(nullptr, kwscript::FindMember(*view, L"QGraphicsView_scene"));
  EXPECT_EQ(nullptr, kwscript::FindInterface(L"Iwrp_QNoSuchClass"));
}

// Each interface's IID, by name, in a DLL's embedded type library.
std::map<std::wstring, GUID> InterfaceIids(const wchar_t* dll) {
  std::map<std::wstring, GUID> out;
  ITypeLib* library = nullptr;
  if (FAILED(LoadTypeLibEx((ProgramFolder() + dll).c_str(), REGKIND_NONE, &library))) return out;
  for (UINT i = 0; i < library->GetTypeInfoCount(); ++i) {
    ITypeInfo* info = nullptr;
    TYPEATTR* attr = nullptr;
    if (SUCCEEDED(library->GetTypeInfo(i, &info)) && SUCCEEDED(info->GetTypeAttr(&attr))) {
      out[NameOf(info, MEMBERID_NIL)] = attr->guid;
      info->ReleaseTypeAttr(attr);
    }
    if (info != nullptr) info->Release();
  }
  library->Release();
  return out;
}

// The classes the library only declares have interfaces of the same name in
// both type libraries, with other members; their IIDs must differ, or a
// QueryInterface could hand out one layout for the other.
TEST(MoreTypeLibrary, NoInterfaceSharesAnIidWithTheLibrarys) {
  const std::map<std::wstring, GUID> library = InterfaceIids(L"kwQtWrappers.dll");
  const std::map<std::wstring, GUID> more = InterfaceIids(L"kwQtMoreWrappers.dll");
  ASSERT_EQ(220u, more.size());
  std::set<std::wstring> libraryIids;
  for (const auto& entry : library) libraryIids.insert(GuidText(entry.second));
  int sameName = 0;
  for (const auto& entry : more) {
    sameName += library.count(entry.first) != 0;
    EXPECT_EQ(0u, libraryIids.count(GuidText(entry.second))) << Narrow(entry.first);
  }
  EXPECT_EQ(38, sameName) << "the library's declared-only classes in the second set";
}

QApplication& Application() {
  static int argc = 1;
  static char name[] = "more_tests";
  static char* argv[] = {name, nullptr};
  static QApplication* application = new QApplication(argc, argv);
  return *application;
}

class MoreWrappersTest : public ::testing::Test {
 protected:
  MoreWrappersTest() : library(L"kwQtWrappers.dll"), more(library) { Application(); }

  // CreateExposer's object, or null.
  IDispatch* Expose(const wchar_t* type, void* instance, HRESULT* hr = nullptr) {
    IDispatch* exposer = nullptr;
    const HRESULT created = kwscript::CreateExposer(library.manager(), type, instance, &exposer);
    if (hr != nullptr) *hr = created;
    if (exposer != nullptr) held.push_back(exposer);
    return exposer;
  }
  // Calls `member`, which must succeed, and keeps an object result alive
  // until the test ends.
  IDispatch* CallForObject(IDispatch* object, const wchar_t* member, std::initializer_list<VARIANT> args) {
    VARIANT result;
    VariantInit(&result);
    EXPECT_EQ(S_OK, CallByName(object, member, args, &result)) << Narrow(member);
    if (V_VT(&result) != VT_DISPATCH) return nullptr;
    held.push_back(V_DISPATCH(&result));
    return V_DISPATCH(&result);
  }
  void TearDown() override {
    for (IDispatch* object : held) object->Release();
    held.clear();
  }

  ManagerHost library;
  kwscript::MoreWrappers more;
  std::vector<IDispatch*> held;
};

// Each type name is made by the manager that knows it, the library's first;
// one neither knows is refused as the library refuses it.
TEST_F(MoreWrappersTest, EachTypeNameIsMadeByTheManagerThatKnowsIt) {
  ASSERT_TRUE(more.ready());
  QStandardItemModel model(3, 2);
  QLineEdit edit;
  EXPECT_EQ((std::vector<std::wstring>{L"Iwrp_QObject", L"Iwrp_QAbstractItemModel", L"Iwrp_QStandardItemModel"}),
            ComposedInterfaces(Expose(L"QStandardItemModel", &model)));
  EXPECT_EQ(L"Iwrp_QLineEdit", ComposedInterfaces(Expose(L"QLineEdit", &edit)).back());
  EXPECT_EQ(L"Iwrp_QObject", ComposedInterfaces(Expose(L"QObject", &edit)).front());
  HRESULT hr = S_OK;
  EXPECT_EQ(nullptr, Expose(L"QNoSuchClass", &edit, &hr));
  EXPECT_EQ(E_NOINTERFACE, hr);
}

// Results cross over: a second-set member giving a library class (a QWidget,
// a QVariant) and a library member giving a second-set class (QLocale, which
// the library only declares) come back wrapped, over the very objects.
TEST_F(MoreWrappersTest, ResultsOfOneSetTypedAsTheOthersClassesAreWrapped) {
  QWidget window;
  auto* form = new QFormLayout(&window);
  auto* edit = new QLineEdit;
  form->addRow("Name:", edit);
  edit->setLocale(QLocale(QLocale::French, QLocale::France));

  IDispatch* label = CallForObject(Expose(L"QFormLayout", form), L"QFormLayout_labelForField_2",
                                   {Object(Expose(L"QLineEdit", edit))});
  ASSERT_NE(nullptr, label);
  EXPECT_EQ(form->labelForField(edit), InstanceAs<QWidget>(label));
  EXPECT_EQ(L"Iwrp_QWidget", ComposedInterfaces(label).back());
  EXPECT_EQ(QString("Name:"), qobject_cast<QLabel*>(InstanceAs<QWidget>(label))->text());

  IDispatch* locale = CallForObject(Expose(L"QLineEdit", edit), L"QWidget_locale", {});
  ASSERT_NE(nullptr, locale);
  EXPECT_EQ(L"Iwrp_QLocale", ComposedInterfaces(locale).back());
  IDispatch* name = CallForObject(locale, L"QLocale_name", {});
  ASSERT_NE(nullptr, name);
  EXPECT_EQ(QString("fr_FR"), *InstanceAs<QString>(name));

  QStandardItemModel model(1, 1);
  model.setHeaderData(0, Qt::Horizontal, "Column");
  IDispatch* header = CallForObject(Expose(L"QStandardItemModel", &model), L"QStandardItemModel_headerData",
                                    {I4(0), I4(Qt::Horizontal), I4(Qt::DisplayRole)});
  ASSERT_NE(nullptr, header);
  EXPECT_EQ(L"Iwrp_QVariant", ComposedInterfaces(header).back());
  EXPECT_EQ(QString("Column"), InstanceAs<QVariant>(header)->toString());
}

// Unloaded, the second set answers nothing, and the library is as it was
// without it: its QLocale result has nobody to make it.
TEST_F(MoreWrappersTest, UnloadTakesTheSecondSetAndTheSinkAway) {
  QLineEdit edit;
  IDispatch* exposer = Expose(L"QLineEdit", &edit);
  ASSERT_NE(nullptr, exposer);
  more.Unload();
  EXPECT_FALSE(more.ready());
  HRESULT hr = S_OK;
  EXPECT_EQ(nullptr, Expose(L"QObject", &edit, &hr));
  EXPECT_EQ(E_NOINTERFACE, hr);
  Result locale;
  SCODE code = 0;
  EXPECT_EQ(DISP_E_EXCEPTION, CallByName(exposer, L"QWidget_locale", {}, &locale.value, &code));
  EXPECT_EQ(E_NOINTERFACE, code);
  EXPECT_NE(nullptr, Expose(L"QLineEdit", &edit)) << "the library works alone";
}

}  // namespace
