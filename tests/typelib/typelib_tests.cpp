// Loads the type library embedded in kwQtWrappers.dll through LoadTypeLib and
// checks the contract hosts rely on: library attributes, the interfaces in
// catalogue order, their kind, base, custom attribute and IIDs, member
// names, DISPIDs and parameter types.
#include <windows.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include "typelib/dump/TypeText.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#ifndef KW_CATALOGUE_DIR
#error "KW_CATALOGUE_DIR must name the catalogue folder"
#endif

namespace {

const GUID kLibId = {0x92F9C2B3, 0x370B, 0x4B5C, {0x99, 0x98, 0xD3, 0x72, 0xC7, 0xBF, 0xDF, 0x08}};
const GUID kCustomQt = {0x94E37ED7, 0x36B9, 0x4AE8, {0xB4, 0x49, 0xAC, 0xD0, 0x01, 0x3A, 0xB5, 0x6A}};
constexpr MEMBERID kFirstDispId = 0x0D001000;

std::wstring widen(const std::string& s) { return std::wstring(s.begin(), s.end()); }

std::wstring bstr(BSTR b) {
  std::wstring s = b ? std::wstring(b, SysStringLen(b)) : std::wstring();
  SysFreeString(b);
  return s;
}

std::wstring nameOf(ITypeInfo* ti) {
  BSTR n = nullptr;
  ti->GetDocumentation(MEMBERID_NIL, &n, nullptr, nullptr, nullptr);
  return bstr(n);
}

// A catalogue type name as it appears in an interface name.
std::string flatten(const std::string& type) {
  std::string out;
  for (size_t i = 0; i < type.size(); ++i) {
    if (type.compare(i, 2, "::") == 0) ++i;
    out += isalnum(static_cast<unsigned char>(type[i])) ? type[i] : '_';
  }
  return out;
}

// The type names of classes.tsv (its last column), in catalogue order.
std::vector<std::string> catalogueTypes() {
  std::vector<std::string> out;
  std::ifstream in(KW_CATALOGUE_DIR "/classes.tsv");
  for (std::string line; std::getline(in, line);)
    if (!line.empty() && line[0] != '#') out.push_back(line.substr(line.rfind('\t') + 1));
  return out;
}

// The lines of `text`, without empty ones.
std::vector<std::wstring> lines(const wchar_t* text) {
  std::vector<std::wstring> out;
  std::wistringstream in(text);
  for (std::wstring line; std::getline(in, line);)
    if (!line.empty()) out.push_back(line);
  return out;
}

// One member as seen through the vtable part of a dual interface.
struct Member {
  MEMBERID id;
  std::wstring name;
  std::wstring signature;  // "type [dir], ..." of all parameters
  std::wstring text() const { return signature.empty() ? name : name + L": " + signature; }
};

// The vtable part of a dual interface.
ITypeInfo* vtablePart(ITypeInfo* ti) {
  HREFTYPE href = 0;
  ITypeInfo* body = nullptr;
  if (FAILED(ti->GetRefTypeOfImplType(static_cast<UINT>(-1), &href)) || FAILED(ti->GetRefTypeInfo(href, &body)))
    return nullptr;
  return body;
}

std::vector<Member> membersOf(ITypeInfo* ti) {
  std::vector<Member> out;
  ITypeInfo* body = ti != nullptr ? vtablePart(ti) : nullptr;
  if (body == nullptr) return out;
  TYPEATTR* a = nullptr;
  body->GetTypeAttr(&a);
  for (UINT f = 0; f < a->cFuncs; ++f) {
    FUNCDESC* fd = nullptr;
    body->GetFuncDesc(f, &fd);
    BSTR name = nullptr;
    UINT got = 0;
    body->GetNames(fd->memid, &name, 1, &got);
    Member m{fd->memid, bstr(name), L""};
    for (SHORT p = 0; p < fd->cParams; ++p) {
      const ELEMDESC& e = fd->lprgelemdescParam[p];
      const USHORT pf = e.paramdesc.wParamFlags;
      m.signature += (p ? L", " : L"") + kwtypelib::TypeText(body, e.tdesc);
      if (pf & PARAMFLAG_FRETVAL)
        m.signature += L" [out,retval]";
      else if ((pf & PARAMFLAG_FIN) && (pf & PARAMFLAG_FOUT))
        m.signature += L" [in,out]";
      else if (pf & PARAMFLAG_FIN)
        m.signature += L" [in]";
    }
    out.push_back(m);
    body->ReleaseFuncDesc(fd);
  }
  body->ReleaseTypeAttr(a);
  body->Release();
  return out;
}

const Member* find(const std::vector<Member>& ms, const std::wstring& name) {
  for (const Member& m : ms)
    if (m.name == name) return &m;
  return nullptr;
}

class TypeLibrary : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    CoInitialize(nullptr);
    wchar_t buf[MAX_PATH];
    GetModuleFileNameW(nullptr, buf, MAX_PATH);
    std::wstring path(buf);
    path = path.substr(0, path.find_last_of(L"\\/") + 1) + L"kwQtWrappers.dll";
    ASSERT_EQ(S_OK, LoadTypeLib(path.c_str(), &lib_)) << "LoadTypeLib on the DLL";
  }
  static void TearDownTestSuite() {
    if (lib_) lib_->Release();
    lib_ = nullptr;
    CoUninitialize();
  }

  static ITypeInfo* byName(const std::wstring& name) {
    for (UINT i = 0; i < lib_->GetTypeInfoCount(); ++i) {
      ITypeInfo* ti = nullptr;
      lib_->GetTypeInfo(i, &ti);
      if (nameOf(ti) == name) return ti;
      ti->Release();
    }
    return nullptr;
  }

  static std::vector<Member> members(const std::wstring& itf) {
    ITypeInfo* ti = byName(itf);
    std::vector<Member> out = membersOf(ti);
    if (ti) ti->Release();
    return out;
  }

  static ITypeLib* lib_;
};

ITypeLib* TypeLibrary::lib_ = nullptr;

TEST_F(TypeLibrary, LibraryAttributes) {
  TLIBATTR* a = nullptr;
  ASSERT_EQ(S_OK, lib_->GetLibAttr(&a));
  EXPECT_TRUE(IsEqualGUID(kLibId, a->guid));
  EXPECT_EQ(1, a->wMajorVerNum);
  EXPECT_EQ(0, a->wMinorVerNum);
  EXPECT_EQ(0x409u, a->lcid);
  EXPECT_EQ(SYS_WIN64, a->syskind);
  // The platform marks a loaded library as having a disk image; no flag of its own.
  EXPECT_EQ(0, a->wLibFlags & ~LIBFLAG_FHASDISKIMAGE);
  lib_->ReleaseTLibAttr(a);
  BSTR name = nullptr, doc = nullptr;
  ASSERT_EQ(S_OK, lib_->GetDocumentation(-1, &name, &doc, nullptr, nullptr));
  EXPECT_EQ(L"QtClientWrap", bstr(name));
  EXPECT_EQ(L"Static wrappers support library", bstr(doc));
}

// Every interface, in catalogue order: a dual interface over IDispatch with
// its own IID and the custom attribute "Qt"; its vtable part lists pure
// virtual HRESULT functions 8 bytes apart after IDispatch's 7 slots, with no
// optional parameter; DISPIDs rise strictly from the first number, and where
// they leap the skipped numbers belong to dropped candidates.
TEST_F(TypeLibrary, EveryInterfaceInCatalogueOrderIsDualOverIDispatch) {
  const std::vector<std::string> cat = catalogueTypes();
  ASSERT_EQ(643u, cat.size());
  ASSERT_EQ(643u, lib_->GetTypeInfoCount());
  std::set<std::wstring> iids;
  size_t gaps = 0;
  for (UINT i = 0; i < 643; ++i) {
    SCOPED_TRACE(cat[i]);
    ITypeInfo* ti = nullptr;
    ASSERT_EQ(S_OK, lib_->GetTypeInfo(i, &ti));
    EXPECT_EQ(widen("Iwrp_" + flatten(cat[i])), nameOf(ti));
    TYPEATTR* a = nullptr;
    ASSERT_EQ(S_OK, ti->GetTypeAttr(&a));
    EXPECT_EQ(TKIND_DISPATCH, a->typekind);
    EXPECT_EQ(TYPEFLAG_FDUAL | TYPEFLAG_FDISPATCHABLE, a->wTypeFlags & (TYPEFLAG_FDUAL | TYPEFLAG_FDISPATCHABLE));
    EXPECT_EQ(0, a->wMajorVerNum + a->wMinorVerNum);
    wchar_t g[64];
    StringFromGUID2(a->guid, g, 64);
    iids.insert(g);
    ti->ReleaseTypeAttr(a);

    HREFTYPE href = 0;
    ITypeInfo* base = nullptr;
    ASSERT_EQ(S_OK, ti->GetRefTypeOfImplType(0, &href));
    ASSERT_EQ(S_OK, ti->GetRefTypeInfo(href, &base));
    EXPECT_EQ(L"IDispatch", nameOf(base));
    base->Release();

    ITypeInfo* body = vtablePart(ti);
    ASSERT_NE(nullptr, body);
    TYPEATTR* va = nullptr;
    body->GetTypeAttr(&va);
    EXPECT_EQ(TKIND_INTERFACE, va->typekind);
    EXPECT_EQ(56 + 8 * va->cFuncs, va->cbSizeVft);
    for (UINT f = 0; f < va->cFuncs; ++f) {
      FUNCDESC* fd = nullptr;
      body->GetFuncDesc(f, &fd);
      EXPECT_EQ(FUNC_PUREVIRTUAL, fd->funckind);
      EXPECT_EQ(INVOKE_FUNC, fd->invkind);
      EXPECT_EQ(VT_HRESULT, fd->elemdescFunc.tdesc.vt);
      EXPECT_EQ(56 + 8 * static_cast<int>(f), fd->oVft);
      EXPECT_EQ(0, fd->wFuncFlags);
      for (SHORT p = 0; p < fd->cParams; ++p)
        EXPECT_FALSE(fd->lprgelemdescParam[p].paramdesc.wParamFlags & (PARAMFLAG_FOPT | PARAMFLAG_FHASDEFAULT));
      body->ReleaseFuncDesc(fd);
    }
    body->ReleaseTypeAttr(va);
    body->Release();

    const std::vector<Member> ms = membersOf(ti);
    for (size_t k = 0; k < ms.size(); ++k) {
      EXPECT_GE(ms[k].id, kFirstDispId) << ms[k].name;
      if (k == 0) continue;
      EXPECT_LT(ms[k - 1].id, ms[k].id) << ms[k].name;
      gaps += static_cast<size_t>(ms[k].id - ms[k - 1].id - 1);
    }

    ITypeInfo2* ti2 = nullptr;
    ASSERT_EQ(S_OK, ti->QueryInterface(IID_ITypeInfo2, reinterpret_cast<void**>(&ti2)));
    VARIANT v;
    VariantInit(&v);
    ASSERT_EQ(S_OK, ti2->GetCustData(kCustomQt, &v));
    ASSERT_EQ(VT_BSTR, v.vt);
    EXPECT_EQ(L"Qt", std::wstring(v.bstrVal, SysStringLen(v.bstrVal)));
    VariantClear(&v);
    ti2->Release();
    ti->Release();
  }
  EXPECT_EQ(643u, iids.size()) << "every interface has its own IID";
  EXPECT_GT(gaps, 0u);
}

TEST_F(TypeLibrary, GivenIidsAndLookupByIid) {
  const struct {
    const wchar_t* name;
    GUID iid;
  } given[] = {
      {L"Iwrp_QString", {0x562BC544, 0x7B64, 0x4D29, {0xA6, 0x9F, 0x61, 0x4F, 0x7D, 0x90, 0xF1, 0x2F}}},
      {L"Iwrp_QWidget", {0xC0092B1E, 0xC6B3, 0x4C43, {0x94, 0x42, 0x97, 0x02, 0x63, 0x2D, 0x19, 0xBA}}},
      {L"Iwrp_QMetaObject", {0xB43C12FB, 0xCA11, 0x4846, {0x83, 0x81, 0x92, 0x1A, 0x1B, 0x13, 0xE0, 0x3B}}},
      {L"Iwrp_QChar", {0xFE899A7A, 0x12EF, 0x47F6, {0xBC, 0x39, 0x98, 0x1A, 0x69, 0x55, 0xDD, 0xBC}}},
  };
  for (const auto& g : given) {
    ITypeInfo* ti = nullptr;
    ASSERT_EQ(S_OK, lib_->GetTypeInfoOfGuid(g.iid, &ti)) << g.name;
    EXPECT_EQ(g.name, nameOf(ti));
    ti->Release();
  }
}

// Public functions and slots of QAbstractButton in Qt 4.8, in the order of
// its declaration with overloads standing together, the meta-object
// functions first; no signal, no protected member, none dropped.
TEST_F(TypeLibrary, QAbstractButtonMembersInOrder) {
  const std::vector<std::wstring> expected = lines(
      LR"(
QAbstractButton_qt_metacast: unsigned char* [in,out], void** [out,retval]
QAbstractButton_tr: unsigned char* [in,out], unsigned char* [in,out], IDispatch** [out,retval]
QAbstractButton_tr_2: unsigned char* [in,out], unsigned char* [in,out], int [in], IDispatch** [out,retval]
QAbstractButton_trUtf8: unsigned char* [in,out], unsigned char* [in,out], IDispatch** [out,retval]
QAbstractButton_trUtf8_2: unsigned char* [in,out], unsigned char* [in,out], int [in], IDispatch** [out,retval]
QAbstractButton_qt_metacall: long [in], int [in], void** [in,out], int* [out,retval]
QAbstractButton_DTOR_QAbstractButton
QAbstractButton_setText: IDispatch* [in]
QAbstractButton_text: IDispatch** [out,retval]
QAbstractButton_setIcon: IDispatch* [in]
QAbstractButton_icon: IDispatch** [out,retval]
QAbstractButton_iconSize: IDispatch** [out,retval]
QAbstractButton_setShortcut: IDispatch* [in]
QAbstractButton_shortcut: IDispatch** [out,retval]
QAbstractButton_setCheckable: long [in]
QAbstractButton_isCheckable: long* [out,retval]
QAbstractButton_isChecked: long* [out,retval]
QAbstractButton_setDown: long [in]
QAbstractButton_isDown: long* [out,retval]
QAbstractButton_setAutoRepeat: long [in]
QAbstractButton_autoRepeat: long* [out,retval]
QAbstractButton_setAutoRepeatDelay: int [in]
QAbstractButton_autoRepeatDelay: int* [out,retval]
QAbstractButton_setAutoRepeatInterval: int [in]
QAbstractButton_autoRepeatInterval: int* [out,retval]
QAbstractButton_setAutoExclusive: long [in]
QAbstractButton_autoExclusive: long* [out,retval]
QAbstractButton_group: IDispatch** [out,retval]
QAbstractButton_setIconSize: IDispatch* [in]
QAbstractButton_animateClick: int [in]
QAbstractButton_click
QAbstractButton_toggle
QAbstractButton_setChecked: long [in]
)");
  std::vector<Member> got = members(L"Iwrp_QAbstractButton");
  std::vector<std::wstring> texts;
  for (size_t i = 0; i < got.size(); ++i) {
    texts.push_back(got[i].text());
    if (i) {
      EXPECT_EQ(got[i - 1].id + 1, got[i].id) << got[i].name;
    }
  }
  EXPECT_EQ(expected, texts);
}

// Signatures of single members, one line each: interface, member, signature.
// Flags travel as objects whether or not the manager knows their type; the
// template's own parameter of QPointer<QObject> is a QObject from any
// wrapper; classes with no wrapper class of their own (QMotifStyle,
// QGraphicsItem) and declared-only ones (QLocale) still give and take objects.
TEST_F(TypeLibrary, MappedSignaturesOfNamedMembers) {
  for (const std::wstring& row : lines(LR"(
Iwrp_QString QString_toInt: long* [in,out], int [in], int* [out,retval]
Iwrp_QString QString_number_2: double [in], unsigned char [in], int [in], IDispatch** [out,retval]
Iwrp_QString QString_sprintf: unsigned char* [in,out], IDispatch** [out,retval]
Iwrp_QString QString_vsprintf: unsigned char* [in,out], unsigned char* [in,out], IDispatch** [out,retval]
Iwrp_QString QString_data: IDispatch** [out,retval]
Iwrp_QString QString_begin: IDispatch** [out,retval]
Iwrp_QWidget QWidget_qt_metacall: long [in], int [in], void** [in,out], int* [out,retval]
Iwrp_QWidget QWidget_setGeometry: IDispatch* [in]
Iwrp_QWidget QWidget_setGeometry_2: int [in], int [in], int [in], int [in]
Iwrp_QWidget QWidget_windowFlags: IDispatch** [out,retval]
Iwrp_QWidget QWidget_setWindowFlags: IDispatch* [in]
Iwrp_QByteArray QByteArray_data: unsigned char** [out,retval]
Iwrp_QFlags_enum_Qt_ItemFlag_ QFlags_enum_Qt_ItemFlag__operator_OR: long [in], IDispatch** [out,retval]
Iwrp_QLayout QLayout_parentWidget: IDispatch** [out,retval]
Iwrp_QDateTime QDateTime_toMSecsSinceEpoch: int64* [out,retval]
Iwrp_QPointF QPointF_rx: double** [out,retval]
Iwrp_QList_int_ QList_int__append: int* [in,out]
Iwrp_QList_int_ QList_int__DTOR_QList_int_
Iwrp_QPointer_QObject_ QPointer_QObject__operator_ASSIGMENT: IDispatch* [in], IDispatch** [out,retval]
Iwrp_QMotifStyle QMotifStyle_polish: IDispatch* [in]
Iwrp_QGraphicsItem QGraphicsItem_setParentItem: IDispatch* [in]
Iwrp_QValidator QValidator_locale: IDispatch** [out,retval]
Iwrp_QValidator QValidator_setLocale: IDispatch* [in]
)")) {
    const size_t space = row.find(L' '), colon = row.find(L':');
    const std::vector<Member> ms = members(row.substr(0, space));
    const Member* m = find(ms, row.substr(space + 1, colon - space - 1));
    ASSERT_NE(nullptr, m) << row;
    EXPECT_EQ(row.substr(space + 1), m->text());
  }
}

// Template instances carry what Qt instantiates: a base exported with its
// class (QPolygon : QVector<QPoint>) is whole, an instance only Qt's own
// code uses keeps what that code calls.
TEST_F(TypeLibrary, TemplateInstancesCarryWhatQtInstantiates) {
  auto suffixes = [&](const wchar_t* itf, const std::wstring& prefix) {
    std::set<std::wstring> out;
    for (const Member& m : members(itf)) {
      EXPECT_EQ(0u, m.name.find(prefix)) << m.name;
      out.insert(m.name.substr(prefix.size()));
    }
    return out;
  };
  // Destructors are named after the instance, template arguments included.
  std::set<std::wstring> point = suffixes(L"Iwrp_QVector_QPoint_", L"QVector_QPoint__");
  std::set<std::wstring> pointF = suffixes(L"Iwrp_QVector_QPointF_", L"QVector_QPointF__");
  EXPECT_EQ(1u, point.erase(L"DTOR_QVector_QPoint_"));
  EXPECT_EQ(1u, pointF.erase(L"DTOR_QVector_QPointF_"));
  EXPECT_EQ(point, pointF);
  for (const wchar_t* n : {L"squeeze", L"fill", L"mid", L"lastIndexOf", L"startsWith", L"pop_front",
                           L"operator_LESS_LESS_2", L"toList", L"fromList"})
    EXPECT_EQ(1u, point.count(n)) << n;
  // A QObject * const & key has no Automation form: QHash<QObject*,int>'s
  // lookups are not there (the exact list is a known gap below).
  std::set<std::wstring> hash = suffixes(L"Iwrp_QHash_QObject___int_", L"QHash_QObject___int__");
  for (const wchar_t* n : {L"begin", L"end", L"detach", L"DTOR_QHash_QObject___int_"})
    EXPECT_EQ(1u, hash.count(n)) << n;
  for (const wchar_t* n : {L"remove", L"contains", L"value", L"key", L"insert"}) EXPECT_EQ(0u, hash.count(n)) << n;
  // A list of integers: what Qt's own code appends, reads and counts.
  std::set<std::wstring> ints = suffixes(L"Iwrp_QList_int_", L"QList_int__");
  for (const wchar_t* n : {L"append", L"at", L"size", L"count", L"isEmpty"}) EXPECT_EQ(1u, ints.count(n)) << n;
}

// Candidates without an Automation form are dropped (QString's *Ref
// functions return a class without a wrapper, winId a window handle, event
// delivery takes a QObject); their suffixes and DISPIDs stay unused, and
// overloads stand together.
TEST_F(TypeLibrary, DroppedCandidatesKeepTheirNumbers) {
  for (const std::wstring& row : lines(LR"(
Iwrp_QString QString_midRef
Iwrp_QString QString_leftRef
Iwrp_QString QString_rightRef
Iwrp_QString QString_toStdString
Iwrp_QWidget QWidget_winId
Iwrp_QCoreApplication QCoreApplication_postEvent
Iwrp_QCoreApplication QCoreApplication_sendEvent
Iwrp_QCoreApplication QCoreApplication_notify
)")) {
    const size_t space = row.find(L' ');
    EXPECT_EQ(nullptr, find(members(row.substr(0, space)), row.substr(space + 1))) << row;
  }
  std::vector<Member> str = members(L"Iwrp_QString");
  const Member* le3 = find(str, L"QString_operator_LESS_ASSIGMENT_3");
  const Member* le4 = find(str, L"QString_operator_LESS_ASSIGMENT_4");
  ASSERT_TRUE(le3 && le4);
  EXPECT_EQ(le3->id + 1, le4->id);

  // The second half (from QColor on) counts again from the first number: its
  // DISPIDs are shared with members of the first half (QMetaObject's).
  std::set<MEMBERID> metaIds;
  for (const Member& m : members(L"Iwrp_QMetaObject")) metaIds.insert(m.id);
  std::vector<Member> color = members(L"Iwrp_QColor");
  ASSERT_FALSE(color.empty());
  EXPECT_LT(color.front().id, 0x0D001010);
  EXPECT_TRUE(std::any_of(color.begin(), color.end(), [&](const Member& m) { return metaIds.count(m.id) > 0; }));
}

// Known gaps: anchors of the catalogue (and telling members) that the Qt
// 4.8.7 declarations do not give by any rule found so far. The report's
// anchor section shows for each what the declarations put in its place (one
// close and four repaint candidates in QWidget, no dropped one in QColor;
// isEmpty in the QHash instance, since Qt 4.8's QHash::remove calls it;
// overloads numbered by their parameter lists). Each row prints its gap;
// a row whose anchor starts to hold fails, so that it moves to the tests
// above.
TEST_F(TypeLibrary, KnownGapsAreStillGaps) {
  auto absent = [&](const wchar_t* itf, const wchar_t* name) { return find(members(itf), name) == nullptr; };
  auto dispid = [&](const wchar_t* itf, const wchar_t* name) {
    const Member* m = find(members(itf), name);
    return m != nullptr ? m->id : -1;
  };
  auto hashMembers = [&] {
    std::vector<std::wstring> names;
    for (const Member& m : members(L"Iwrp_QHash_QObject___int_")) names.push_back(m.name);
    std::sort(names.begin(), names.end());
    return names;
  };
  const struct {
    const char* anchor;
    std::function<bool()> holds;
  } gaps[] = {
      {"QString_operator_LESS_ASSIGMENT_2 absent",
       [&] { return absent(L"Iwrp_QString", L"QString_operator_LESS_ASSIGMENT_2"); }},
      {"QString_operator_LESS_ASSIGMENT at 0x0D00113F",
       [&] { return dispid(L"Iwrp_QString", L"QString_operator_LESS_ASSIGMENT") == 0x0D00113F; }},
      {"QWidget_close absent", [&] { return absent(L"Iwrp_QWidget", L"QWidget_close"); }},
      {"QWidget_repaint to _4 absent", [&] { return absent(L"Iwrp_QWidget", L"QWidget_repaint_4"); }},
      {"QWidget_parentWidget absent", [&] { return absent(L"Iwrp_QWidget", L"QWidget_parentWidget"); }},
      {"QMetaObject_classInfo at 0x0D001004",
       [&] { return dispid(L"Iwrp_QMetaObject", L"QMetaObject_classInfo") == 0x0D001004; }},
      {"QColor_alpha first at 0x0D001004",
       [&] {
         std::vector<Member> color = members(L"Iwrp_QColor");
         return !color.empty() && color.front().name == L"QColor_alpha" && color.front().id == 0x0D001004;
       }},
      {"QHash<QObject *,int> holds begin, end, detach and its destructor only",
       [&] {
         return hashMembers() == std::vector<std::wstring>{L"QHash_QObject___int__DTOR_QHash_QObject___int_",
                                                           L"QHash_QObject___int__begin",
                                                           L"QHash_QObject___int__detach", L"QHash_QObject___int__end"};
       }},
      {"QWidget_childAt takes (int, int)",
       [&] {
         const Member* m = find(members(L"Iwrp_QWidget"), L"QWidget_childAt");
         return m != nullptr && m->signature.find(L"int [in], int [in]") == 0;
       }},
  };
  for (const auto& gap : gaps) {
    const bool holds = gap.holds();
    std::printf("%s: %s\n", holds ? "NOW HOLDS" : "known gap", gap.anchor);
    EXPECT_FALSE(holds) << gap.anchor << " now holds: move it to the anchors that hold";
  }
}

// The longest interface and member names are found by name; an unknown
// member is not, a known one gives its DISPID.
TEST_F(TypeLibrary, GetIDsOfNamesResolvesLongNames) {
  std::wstring longestItf, longestMember, itfOfLongest;
  for (UINT i = 0; i < lib_->GetTypeInfoCount(); ++i) {
    ITypeInfo* ti = nullptr;
    lib_->GetTypeInfo(i, &ti);
    const std::wstring name = nameOf(ti);
    if (name.size() > longestItf.size()) longestItf = name;
    for (const Member& m : membersOf(ti))
      if (m.name.size() > longestMember.size()) longestMember = m.name, itfOfLongest = name;
    ti->Release();
  }
  EXPECT_EQ(169u, longestItf.size()) << std::string(longestItf.begin(), longestItf.end());
  ITypeInfo* ti = byName(longestItf);
  ASSERT_NE(nullptr, ti);
  ti->Release();

  const struct {
    std::wstring itf, member;
    HRESULT hr;
  } lookups[] = {{itfOfLongest, longestMember, S_OK},
                 {L"Iwrp_QWidget", L"QWidget_paintEvent", DISP_E_UNKNOWNNAME},
                 {L"Iwrp_QWidget", L"QWidget_setVisible", S_OK}};
  for (const auto& row : lookups) {
    ti = byName(row.itf);
    ASSERT_NE(nullptr, ti);
    std::wstring asked = row.member;
    LPOLESTR names[1] = {&asked[0]};
    MEMBERID id = 0;
    EXPECT_EQ(row.hr, ti->GetIDsOfNames(names, 1, &id)) << std::string(asked.begin(), asked.end());
    if (row.hr == S_OK) {
      EXPECT_EQ(find(members(row.itf), row.member)->id, id);
    }
    ti->Release();
  }
}

}  // namespace
