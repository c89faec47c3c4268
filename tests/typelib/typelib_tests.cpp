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
#include <map>
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

std::wstring modulePath() {
  wchar_t buf[MAX_PATH];
  GetModuleFileNameW(nullptr, buf, MAX_PATH);
  std::wstring p(buf);
  return p.substr(0, p.find_last_of(L"\\/") + 1) + L"kwQtWrappers.dll";
}

std::string flatten(const std::string& type) {
  std::string out;
  for (size_t i = 0; i < type.size(); ++i) {
    char c = type[i];
    if (c == ':' && i + 1 < type.size() && type[i + 1] == ':') {
      out += '_';
      ++i;
    } else if (isalnum(static_cast<unsigned char>(c)) || c == '_') {
      out += c;
    } else {
      out += '_';
    }
  }
  return out;
}

struct CatalogueEntry {
  int place;
  int half;
  std::string type;
};

std::vector<CatalogueEntry> readCatalogue() {
  std::vector<CatalogueEntry> out;
  std::ifstream in(KW_CATALOGUE_DIR "/classes.tsv");
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream row(line);
    std::string place, half, group, members, wrapped, type;
    std::getline(row, place, '\t');
    std::getline(row, half, '\t');
    std::getline(row, group, '\t');
    std::getline(row, members, '\t');
    std::getline(row, wrapped, '\t');
    std::getline(row, type);
    out.push_back({std::stoi(place), std::stoi(half), type});
  }
  return out;
}

// One member as seen through the vtable part of a dual interface.
struct Member {
  MEMBERID id;
  std::wstring name;
  std::wstring signature;  // "type [dir], ..." of all parameters
};

class TypeLibrary : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    CoInitialize(nullptr);
    HRESULT hr = LoadTypeLib(modulePath().c_str(), &lib_);
    ASSERT_EQ(S_OK, hr) << "LoadTypeLib on the DLL";
  }
  static void TearDownTestSuite() {
    if (lib_) lib_->Release();
    lib_ = nullptr;
    CoUninitialize();
  }

  static ITypeInfo* byName(const std::wstring& name) {
    for (UINT i = 0; i < lib_->GetTypeInfoCount(); ++i) {
      BSTR n = nullptr;
      lib_->GetDocumentation(static_cast<INT>(i), &n, nullptr, nullptr, nullptr);
      if (bstr(n) == name) {
        ITypeInfo* ti = nullptr;
        lib_->GetTypeInfo(i, &ti);
        return ti;
      }
    }
    return nullptr;
  }

  // The vtable part of a dual interface.
  static ITypeInfo* vtablePart(ITypeInfo* ti) {
    HREFTYPE href = 0;
    ITypeInfo* body = nullptr;
    if (FAILED(ti->GetRefTypeOfImplType(static_cast<UINT>(-1), &href))) return nullptr;
    if (FAILED(ti->GetRefTypeInfo(href, &body))) return nullptr;
    return body;
  }

  static std::vector<Member> members(const std::wstring& itf) {
    std::vector<Member> out;
    ITypeInfo* ti = byName(itf);
    if (!ti) return out;
    ITypeInfo* body = vtablePart(ti);
    TYPEATTR* a = nullptr;
    body->GetTypeAttr(&a);
    for (UINT f = 0; f < a->cFuncs; ++f) {
      FUNCDESC* fd = nullptr;
      body->GetFuncDesc(f, &fd);
      BSTR names[1] = {};
      UINT got = 0;
      body->GetNames(fd->memid, names, 1, &got);
      Member m{fd->memid, bstr(names[0]), L""};
      for (SHORT p = 0; p < fd->cParams; ++p) {
        const ELEMDESC& e = fd->lprgelemdescParam[p];
        if (p) m.signature += L", ";
        m.signature += kwtypelib::TypeText(body, e.tdesc);
        USHORT pf = e.paramdesc.wParamFlags;
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
    ti->Release();
    return out;
  }

  static const Member* find(const std::vector<Member>& ms, const std::wstring& name) {
    for (const Member& m : ms)
      if (m.name == name) return &m;
    return nullptr;
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
  // No library flags (the platform marks a loaded library as having a
  // disk image, which is not a flag of the library itself).
  EXPECT_EQ(0, a->wLibFlags & ~LIBFLAG_FHASDISKIMAGE);
  lib_->ReleaseTLibAttr(a);
  BSTR name = nullptr, doc = nullptr;
  ASSERT_EQ(S_OK, lib_->GetDocumentation(-1, &name, &doc, nullptr, nullptr));
  EXPECT_EQ(L"QtClientWrap", bstr(name));
  EXPECT_EQ(L"Static wrappers support library", bstr(doc));
}

TEST_F(TypeLibrary, InterfacesInCatalogueOrderAllDualOverIDispatch) {
  std::vector<CatalogueEntry> cat = readCatalogue();
  ASSERT_EQ(643u, cat.size());
  ASSERT_EQ(643u, lib_->GetTypeInfoCount());
  std::set<std::wstring> iids;
  for (UINT i = 0; i < 643; ++i) {
    SCOPED_TRACE(cat[i].type);
    ITypeInfo* ti = nullptr;
    ASSERT_EQ(S_OK, lib_->GetTypeInfo(i, &ti));
    BSTR n = nullptr;
    ti->GetDocumentation(MEMBERID_NIL, &n, nullptr, nullptr, nullptr);
    EXPECT_EQ(widen("Iwrp_" + flatten(cat[i].type)), bstr(n));

    TYPEATTR* a = nullptr;
    ASSERT_EQ(S_OK, ti->GetTypeAttr(&a));
    EXPECT_EQ(TKIND_DISPATCH, a->typekind);
    EXPECT_TRUE(a->wTypeFlags & TYPEFLAG_FDUAL);
    EXPECT_TRUE(a->wTypeFlags & TYPEFLAG_FDISPATCHABLE);
    EXPECT_EQ(0, a->wMajorVerNum);
    EXPECT_EQ(0, a->wMinorVerNum);
    wchar_t g[64];
    StringFromGUID2(a->guid, g, 64);
    iids.insert(g);

    // The dispatch view derives from IDispatch itself.
    HREFTYPE href = 0;
    ITypeInfo* base = nullptr;
    ASSERT_EQ(S_OK, ti->GetRefTypeOfImplType(0, &href));
    ASSERT_EQ(S_OK, ti->GetRefTypeInfo(href, &base));
    TYPEATTR* ba = nullptr;
    base->GetTypeAttr(&ba);
    EXPECT_TRUE(IsEqualGUID(IID_IDispatch, ba->guid));
    base->ReleaseTypeAttr(ba);
    base->Release();

    // The vtable part: 7 IUnknown/IDispatch slots, then 8 bytes a member.
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

    ITypeInfo2* ti2 = nullptr;
    ASSERT_EQ(S_OK, ti->QueryInterface(IID_ITypeInfo2, reinterpret_cast<void**>(&ti2)));
    VARIANT v;
    VariantInit(&v);
    ASSERT_EQ(S_OK, ti2->GetCustData(kCustomQt, &v));
    ASSERT_EQ(VT_BSTR, v.vt);
    EXPECT_EQ(L"Qt", std::wstring(v.bstrVal, SysStringLen(v.bstrVal)));
    VariantClear(&v);
    ti2->Release();
    ti->ReleaseTypeAttr(a);
    ti->Release();
  }
  EXPECT_EQ(643u, iids.size()) << "every interface has its own IID";
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
    BSTR n = nullptr;
    ti->GetDocumentation(MEMBERID_NIL, &n, nullptr, nullptr, nullptr);
    EXPECT_EQ(g.name, bstr(n));
    ti->Release();
  }
}

TEST_F(TypeLibrary, QAbstractButtonMembersInOrder) {
  // Public functions and slots of QAbstractButton in Qt 4.8, in the order
  // of its declaration with overloads standing together, the meta-object
  // functions first.
  const std::vector<std::pair<std::wstring, std::wstring>> expected = {
      {L"QAbstractButton_qt_metacast", L"unsigned char* [in,out], void** [out,retval]"},
      {L"QAbstractButton_tr", L"unsigned char* [in,out], unsigned char* [in,out], IDispatch** [out,retval]"},
      {L"QAbstractButton_tr_2",
       L"unsigned char* [in,out], unsigned char* [in,out], int [in], IDispatch** [out,retval]"},
      {L"QAbstractButton_trUtf8", L"unsigned char* [in,out], unsigned char* [in,out], IDispatch** [out,retval]"},
      {L"QAbstractButton_trUtf8_2",
       L"unsigned char* [in,out], unsigned char* [in,out], int [in], IDispatch** [out,retval]"},
      {L"QAbstractButton_qt_metacall", L"long [in], int [in], void** [in,out], int* [out,retval]"},
      {L"QAbstractButton_DTOR_QAbstractButton", L""},
      {L"QAbstractButton_setText", L"IDispatch* [in]"},
      {L"QAbstractButton_text", L"IDispatch** [out,retval]"},
      {L"QAbstractButton_setIcon", L"IDispatch* [in]"},
      {L"QAbstractButton_icon", L"IDispatch** [out,retval]"},
      {L"QAbstractButton_iconSize", L"IDispatch** [out,retval]"},
      {L"QAbstractButton_setShortcut", L"IDispatch* [in]"},
      {L"QAbstractButton_shortcut", L"IDispatch** [out,retval]"},
      {L"QAbstractButton_setCheckable", L"long [in]"},
      {L"QAbstractButton_isCheckable", L"long* [out,retval]"},
      {L"QAbstractButton_isChecked", L"long* [out,retval]"},
      {L"QAbstractButton_setDown", L"long [in]"},
      {L"QAbstractButton_isDown", L"long* [out,retval]"},
      {L"QAbstractButton_setAutoRepeat", L"long [in]"},
      {L"QAbstractButton_autoRepeat", L"long* [out,retval]"},
      {L"QAbstractButton_setAutoRepeatDelay", L"int [in]"},
      {L"QAbstractButton_autoRepeatDelay", L"int* [out,retval]"},
      {L"QAbstractButton_setAutoRepeatInterval", L"int [in]"},
      {L"QAbstractButton_autoRepeatInterval", L"int* [out,retval]"},
      {L"QAbstractButton_setAutoExclusive", L"long [in]"},
      {L"QAbstractButton_autoExclusive", L"long* [out,retval]"},
      {L"QAbstractButton_group", L"IDispatch** [out,retval]"},
      {L"QAbstractButton_setIconSize", L"IDispatch* [in]"},
      {L"QAbstractButton_animateClick", L"int [in]"},
      {L"QAbstractButton_click", L""},
      {L"QAbstractButton_toggle", L""},
      {L"QAbstractButton_setChecked", L"long [in]"},
  };
  std::vector<Member> got = members(L"Iwrp_QAbstractButton");
  ASSERT_EQ(expected.size(), got.size());
  for (size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(expected[i].first, got[i].name) << i;
    EXPECT_EQ(expected[i].second, got[i].signature) << got[i].name;
    if (i) {
      EXPECT_EQ(got[i - 1].id + 1, got[i].id) << "no candidate of QAbstractButton is dropped";
    }
  }
  // Signals and protected members are never members.
  EXPECT_EQ(nullptr, find(got, L"QAbstractButton_clicked"));
  EXPECT_EQ(nullptr, find(got, L"QAbstractButton_toggled"));
  EXPECT_EQ(nullptr, find(got, L"QAbstractButton_hitButton"));
  EXPECT_EQ(nullptr, find(got, L"QAbstractButton_metaObject"));
}

TEST_F(TypeLibrary, MappedSignaturesOfNamedMembers) {
  const struct {
    const wchar_t* itf;
    const wchar_t* member;
    const wchar_t* signature;
  } cases[] = {
      {L"Iwrp_QString", L"QString_toInt", L"long* [in,out], int [in], int* [out,retval]"},
      {L"Iwrp_QString", L"QString_number_2", L"double [in], unsigned char [in], int [in], IDispatch** [out,retval]"},
      {L"Iwrp_QString", L"QString_sprintf", L"unsigned char* [in,out], IDispatch** [out,retval]"},
      {L"Iwrp_QString", L"QString_vsprintf",
       L"unsigned char* [in,out], unsigned char* [in,out], IDispatch** [out,retval]"},
      {L"Iwrp_QString", L"QString_data", L"IDispatch** [out,retval]"},
      {L"Iwrp_QString", L"QString_begin", L"IDispatch** [out,retval]"},
      {L"Iwrp_QWidget", L"QWidget_qt_metacall", L"long [in], int [in], void** [in,out], int* [out,retval]"},
      {L"Iwrp_QWidget", L"QWidget_setGeometry", L"IDispatch* [in]"},
      {L"Iwrp_QWidget", L"QWidget_setGeometry_2", L"int [in], int [in], int [in], int [in]"},
      // Flags travel as objects, whether or not the manager knows their type.
      {L"Iwrp_QWidget", L"QWidget_windowFlags", L"IDispatch** [out,retval]"},
      {L"Iwrp_QWidget", L"QWidget_setWindowFlags", L"IDispatch* [in]"},
      {L"Iwrp_QByteArray", L"QByteArray_data", L"unsigned char** [out,retval]"},
      {L"Iwrp_QFlags_enum_Qt_ItemFlag_", L"QFlags_enum_Qt_ItemFlag__operator_OR",
       L"long [in], IDispatch** [out,retval]"},
      {L"Iwrp_QLayout", L"QLayout_parentWidget", L"IDispatch** [out,retval]"},
      {L"Iwrp_QDateTime", L"QDateTime_toMSecsSinceEpoch", L"int64* [out,retval]"},
      {L"Iwrp_QPointF", L"QPointF_rx", L"double** [out,retval]"},
      {L"Iwrp_QList_int_", L"QList_int__append", L"int* [in,out]"},
      {L"Iwrp_QList_int_", L"QList_int__DTOR_QList_int_", L""},
      // The template's own parameter: a QObject pointer from any wrapper.
      {L"Iwrp_QPointer_QObject_", L"QPointer_QObject__operator_ASSIGMENT",
       L"IDispatch* [in], IDispatch** [out,retval]"},
      // Classes with no wrapper class of their own keep members over
      // classes the module cannot wrap (QApplication, QGraphicsItem).
      {L"Iwrp_QMotifStyle", L"QMotifStyle_polish", L"IDispatch* [in]"},
      {L"Iwrp_QGraphicsItem", L"QGraphicsItem_setParentItem", L"IDispatch* [in]"},
      // A declared-only Qt class is still a class of the library that
      // wrapped classes take and give (QLocale).
      {L"Iwrp_QValidator", L"QValidator_locale", L"IDispatch** [out,retval]"},
      {L"Iwrp_QValidator", L"QValidator_setLocale", L"IDispatch* [in]"},
  };
  for (const auto& c : cases) {
    std::vector<Member> ms = members(c.itf);
    const Member* m = find(ms, c.member);
    ASSERT_NE(nullptr, m) << c.member;
    EXPECT_EQ(c.signature, m->signature) << c.member;
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

  std::set<std::wstring> hash = suffixes(L"Iwrp_QHash_QObject___int_", L"QHash_QObject___int__");
  for (const wchar_t* n : {L"begin", L"end", L"detach", L"DTOR_QHash_QObject___int_"})
    EXPECT_EQ(1u, hash.count(n)) << n;
  // Its lookups take a QObject * const & key, which has no Automation form.
  for (const wchar_t* n : {L"remove", L"contains", L"value", L"key", L"insert"}) EXPECT_EQ(0u, hash.count(n)) << n;
  // A list of integers: what Qt's own code appends, reads and counts.
  std::set<std::wstring> ints = suffixes(L"Iwrp_QList_int_", L"QList_int__");
  for (const wchar_t* n : {L"append", L"at", L"size", L"count", L"isEmpty"}) EXPECT_EQ(1u, ints.count(n)) << n;
}

TEST_F(TypeLibrary, DroppedCandidatesKeepTheirNumbers) {
  // QString's *Ref functions return a class without a wrapper, winId a
  // window handle.  Their suffixes and DISPIDs stay unused.
  std::vector<Member> str = members(L"Iwrp_QString");
  EXPECT_EQ(nullptr, find(str, L"QString_midRef"));
  EXPECT_EQ(nullptr, find(str, L"QString_leftRef"));
  EXPECT_EQ(nullptr, find(str, L"QString_rightRef"));
  EXPECT_EQ(nullptr, find(str, L"QString_toStdString"));
  std::vector<Member> widget = members(L"Iwrp_QWidget");
  EXPECT_EQ(nullptr, find(widget, L"QWidget_winId"));
  // Event delivery takes a QObject, a class the module has no wrapper for.
  std::vector<Member> app = members(L"Iwrp_QCoreApplication");
  EXPECT_EQ(nullptr, find(app, L"QCoreApplication_postEvent"));
  EXPECT_EQ(nullptr, find(app, L"QCoreApplication_sendEvent"));
  EXPECT_EQ(nullptr, find(app, L"QCoreApplication_notify"));
  // Overloads stand together: QString's operator<= take consecutive numbers.
  const Member* le3 = find(str, L"QString_operator_LESS_ASSIGMENT_3");
  const Member* le4 = find(str, L"QString_operator_LESS_ASSIGMENT_4");
  ASSERT_NE(nullptr, le3);
  ASSERT_NE(nullptr, le4);
  EXPECT_EQ(le3->id + 1, le4->id);

  // Across every interface: DISPIDs rise strictly along the members, and
  // where they leap the skipped numbers belong to dropped candidates.
  std::map<std::wstring, MEMBERID> seen;
  size_t gaps = 0;
  for (UINT i = 0; i < lib_->GetTypeInfoCount(); ++i) {
    BSTR n = nullptr;
    lib_->GetDocumentation(static_cast<INT>(i), &n, nullptr, nullptr, nullptr);
    std::vector<Member> ms = members(bstr(n));
    for (size_t k = 1; k < ms.size(); ++k) {
      EXPECT_LT(ms[k - 1].id, ms[k].id) << ms[k].name;
      gaps += static_cast<size_t>(ms[k].id - ms[k - 1].id - 1);
    }
    for (const Member& m : ms) EXPECT_GE(m.id, kFirstDispId);
  }
  EXPECT_GT(gaps, 0u);
}

TEST_F(TypeLibrary, SameDispIdOnDifferentInterfacesOfTheTwoHalves) {
  std::vector<Member> meta = members(L"Iwrp_QMetaObject");
  std::vector<Member> color = members(L"Iwrp_QColor");
  // QMetaObject stands near the start of the first half, QColor opens the
  // second, which counts again from the first number: the two share
  // DISPIDs, and each resolves them to its own members.
  std::set<MEMBERID> metaIds;
  for (const Member& m : meta) metaIds.insert(m.id);
  ASSERT_FALSE(color.empty());
  EXPECT_LT(color.front().id, 0x0D001010);
  const Member* shared = nullptr;
  for (const Member& m : color)
    if (metaIds.count(m.id)) {
      shared = &m;
      break;
    }
  ASSERT_NE(nullptr, shared);
  ITypeInfo* ti = byName(L"Iwrp_QMetaObject");
  BSTR name = nullptr;
  UINT got = 0;
  ITypeInfo* body = vtablePart(ti);
  ASSERT_EQ(S_OK, body->GetNames(shared->id, &name, 1, &got));
  std::wstring metaName = bstr(name);
  EXPECT_EQ(0u, metaName.find(L"QMetaObject_"));
  EXPECT_EQ(0u, shared->name.find(L"QColor_"));
  body->Release();
  ti->Release();
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

TEST_F(TypeLibrary, GetIDsOfNamesResolvesLongNames) {
  // Find the longest interface and member names present and look them up.
  std::wstring longestItf;
  std::wstring longestMember, itfOfLongest;
  for (UINT i = 0; i < lib_->GetTypeInfoCount(); ++i) {
    BSTR n = nullptr;
    lib_->GetDocumentation(static_cast<INT>(i), &n, nullptr, nullptr, nullptr);
    std::wstring name = bstr(n);
    if (name.size() > longestItf.size()) longestItf = name;
    for (const Member& m : members(name))
      if (m.name.size() > longestMember.size()) {
        longestMember = m.name;
        itfOfLongest = name;
      }
  }
  EXPECT_EQ(169u, longestItf.size()) << std::string(longestItf.begin(), longestItf.end());
  ITypeInfo* ti = byName(longestItf);
  ASSERT_NE(nullptr, ti);
  ti->Release();

  ti = byName(itfOfLongest);
  ASSERT_NE(nullptr, ti);
  std::vector<wchar_t> buf(longestMember.begin(), longestMember.end());
  buf.push_back(0);
  LPOLESTR names[1] = {buf.data()};
  MEMBERID id = 0;
  EXPECT_EQ(S_OK, ti->GetIDsOfNames(names, 1, &id));
  EXPECT_GE(id, kFirstDispId);
  ti->Release();

  std::vector<Member> widget = members(L"Iwrp_QWidget");
  ti = byName(L"Iwrp_QWidget");
  wchar_t unknown[] = L"QWidget_paintEvent";
  LPOLESTR bad[1] = {unknown};
  EXPECT_EQ(DISP_E_UNKNOWNNAME, ti->GetIDsOfNames(bad, 1, &id));
  wchar_t known[] = L"QWidget_setVisible";
  LPOLESTR good[1] = {known};
  ASSERT_EQ(S_OK, ti->GetIDsOfNames(good, 1, &id));
  EXPECT_EQ(find(widget, L"QWidget_setVisible")->id, id);
  ti->Release();
}

}  // namespace
