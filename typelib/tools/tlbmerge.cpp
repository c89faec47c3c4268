// tlbmerge: joins type libraries into one.
//
//   tlbmerge.exe <out.tlb> <first.tlb> [<more.tlb> ...]
//
// The library attributes (name, LIBID, version, lcid, help string) come from
// the first input; the type descriptions of all inputs follow one another in
// input order.  Only what the wrappers' libraries hold is copied: interfaces
// (dual or not) with their methods, parameter names, custom data and
// references to types of imported libraries.  widl writes at most 512 type
// descriptions into one library, so a larger library is compiled in parts
// and joined here through the platform's ICreateTypeLib2.
#include <windows.h>
#include <oleauto.h>

#include <cstdio>
#include <cwchar>
#include <map>
#include <string>
#include <vector>

namespace {

int fail(const char* what, HRESULT hr) {
  std::fprintf(stderr, "tlbmerge: %s failed (0x%08lX)\n", what, static_cast<unsigned long>(hr));
  return 1;
}

#define CHECK(expr, what)                    \
  do {                                       \
    HRESULT hr_ = (expr);                    \
    if (FAILED(hr_)) return fail(what, hr_); \
  } while (0)

// Copies a TYPEDESC, re-targeting user-defined references into the
// destination type description.  Returns a failure HRESULT if a reference
// cannot be carried over.
struct TypeCopier {
  ITypeInfo* source;
  ICreateTypeInfo* dest;
  std::vector<TYPEDESC*> owned;

  ~TypeCopier() {
    for (TYPEDESC* t : owned) delete t;
  }

  HRESULT copy(const TYPEDESC& in, TYPEDESC& out) {
    out = in;
    if (in.vt == VT_PTR || in.vt == VT_SAFEARRAY) {
      TYPEDESC* inner = new TYPEDESC;
      owned.push_back(inner);
      HRESULT hr = copy(*in.lptdesc, *inner);
      out.lptdesc = inner;
      return hr;
    }
    if (in.vt == VT_USERDEFINED) {
      ITypeInfo* ref = nullptr;
      HRESULT hr = source->GetRefTypeInfo(in.hreftype, &ref);
      if (FAILED(hr)) return hr;
      HREFTYPE href = 0;
      hr = dest->AddRefTypeInfo(ref, &href);
      ref->Release();
      if (FAILED(hr)) return hr;
      out.hreftype = href;
    }
    return S_OK;
  }
};

int copyCustData(ITypeInfo* ti, ICreateTypeInfo2* dest) {
  ITypeInfo2* ti2 = nullptr;
  if (FAILED(ti->QueryInterface(IID_ITypeInfo2, reinterpret_cast<void**>(&ti2)))) return 0;
  CUSTDATA cd{};
  HRESULT hr = ti2->GetAllCustData(&cd);
  if (SUCCEEDED(hr)) {
    for (DWORD i = 0; i < cd.cCustData; ++i) {
      hr = dest->SetCustData(cd.prgCustData[i].guid, &cd.prgCustData[i].varValue);
      if (FAILED(hr)) break;
    }
    ClearCustData(&cd);
  }
  ti2->Release();
  return FAILED(hr) ? fail("copying custom data", hr) : 0;
}

// Copies the methods of an interface (for a dual interface: of its vtable
// part, where the methods have their full signatures).
int copyInterface(ITypeInfo* src, ICreateTypeLib2* lib, const std::wstring& name) {
  TYPEATTR* attr = nullptr;
  CHECK(src->GetTypeAttr(&attr), "GetTypeAttr");
  TYPEATTR a = *attr;
  src->ReleaseTypeAttr(attr);

  ITypeInfo* body = src;  // where the methods are read from
  bool dual = a.typekind == TKIND_DISPATCH && (a.wTypeFlags & TYPEFLAG_FDUAL);
  if (dual) {
    HREFTYPE href = 0;
    CHECK(src->GetRefTypeOfImplType(static_cast<UINT>(-1), &href), "GetRefTypeOfImplType(-1)");
    CHECK(src->GetRefTypeInfo(href, &body), "GetRefTypeInfo(vtable part)");
    CHECK(body->GetTypeAttr(&attr), "GetTypeAttr(vtable part)");
    a = *attr;
    body->ReleaseTypeAttr(attr);
  }

  ICreateTypeInfo* cti = nullptr;
  std::vector<wchar_t> nameBuf(name.begin(), name.end());
  nameBuf.push_back(0);
  CHECK(lib->CreateTypeInfo(nameBuf.data(), TKIND_INTERFACE, &cti), "CreateTypeInfo");
  ICreateTypeInfo2* cti2 = nullptr;
  CHECK(cti->QueryInterface(IID_ICreateTypeInfo2, reinterpret_cast<void**>(&cti2)), "ICreateTypeInfo2");

  CHECK(cti->SetGuid(a.guid), "SetGuid");
  CHECK(cti->SetVersion(a.wMajorVerNum, a.wMinorVerNum), "SetVersion");
  UINT flags = a.wTypeFlags;
  if (dual) flags |= TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION;
  CHECK(cti->SetTypeFlags(flags), "SetTypeFlags");

  TypeCopier types{body, cti, {}};
  for (UINT i = 0; i < a.cImplTypes; ++i) {
    HREFTYPE href = 0;
    ITypeInfo* base = nullptr;
    CHECK(body->GetRefTypeOfImplType(i, &href), "GetRefTypeOfImplType");
    CHECK(body->GetRefTypeInfo(href, &base), "GetRefTypeInfo(base)");
    HREFTYPE newRef = 0;
    HRESULT hr = cti->AddRefTypeInfo(base, &newRef);
    base->Release();
    if (FAILED(hr)) return fail("AddRefTypeInfo(base)", hr);
    CHECK(cti->AddImplType(i, newRef), "AddImplType");
  }

  for (UINT f = 0; f < a.cFuncs; ++f) {
    FUNCDESC* fd = nullptr;
    CHECK(body->GetFuncDesc(f, &fd), "GetFuncDesc");
    FUNCDESC copy = *fd;
    std::vector<ELEMDESC> params(fd->lprgelemdescParam, fd->lprgelemdescParam + fd->cParams);
    HRESULT hr = types.copy(fd->elemdescFunc.tdesc, copy.elemdescFunc.tdesc);
    for (SHORT p = 0; SUCCEEDED(hr) && p < fd->cParams; ++p) {
      hr = types.copy(fd->lprgelemdescParam[p].tdesc, params[p].tdesc);
      params[p].paramdesc.pparamdescex = nullptr;
      params[p].paramdesc.wParamFlags &= ~PARAMFLAG_FHASDEFAULT;
    }
    copy.lprgelemdescParam = params.empty() ? nullptr : params.data();
    copy.lprgscode = nullptr;
    copy.cScodes = 0;
    if (SUCCEEDED(hr)) hr = cti->AddFuncDesc(f, &copy);
    if (FAILED(hr)) {
      body->ReleaseFuncDesc(fd);
      return fail("AddFuncDesc", hr);
    }
    std::vector<BSTR> names(fd->cParams + 1, nullptr);
    UINT got = 0;
    hr = body->GetNames(fd->memid, names.data(), static_cast<UINT>(names.size()), &got);
    MEMBERID memid = fd->memid;
    body->ReleaseFuncDesc(fd);
    if (FAILED(hr)) return fail("GetNames", hr);
    std::vector<LPOLESTR> ptrs(names.begin(), names.begin() + got);
    hr = cti->SetFuncAndParamNames(f, ptrs.data(), got);
    for (BSTR b : names) SysFreeString(b);
    if (FAILED(hr)) return fail("SetFuncAndParamNames", hr);
    (void)memid;
  }

  if (int rc = copyCustData(src, cti2)) return rc;
  CHECK(cti->LayOut(), "LayOut");
  cti2->Release();
  cti->Release();
  if (body != src) body->Release();
  return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: tlbmerge <out.tlb> <first.tlb> [<more.tlb> ...]\n");
    return 2;
  }
  HRESULT hr = CoInitialize(nullptr);
  if (FAILED(hr)) return fail("CoInitialize", hr);

  std::vector<ITypeLib*> inputs;
  for (int i = 2; i < argc; ++i) {
    ITypeLib* tl = nullptr;
    hr = LoadTypeLibEx(argv[i], REGKIND_NONE, &tl);
    if (FAILED(hr)) {
      std::fwprintf(stderr, L"tlbmerge: cannot load %ls\n", argv[i]);
      return fail("LoadTypeLibEx", hr);
    }
    inputs.push_back(tl);
  }

  TLIBATTR* la = nullptr;
  CHECK(inputs[0]->GetLibAttr(&la), "GetLibAttr");
  TLIBATTR libAttr = *la;
  inputs[0]->ReleaseTLibAttr(la);
  BSTR libName = nullptr, libDoc = nullptr;
  CHECK(inputs[0]->GetDocumentation(-1, &libName, &libDoc, nullptr, nullptr), "GetDocumentation(library)");

  DeleteFileW(argv[1]);
  ICreateTypeLib2* lib = nullptr;
  CHECK(CreateTypeLib2(libAttr.syskind, argv[1], &lib), "CreateTypeLib2");
  CHECK(lib->SetName(libName), "SetName");
  CHECK(lib->SetGuid(libAttr.guid), "SetGuid(library)");
  CHECK(lib->SetVersion(libAttr.wMajorVerNum, libAttr.wMinorVerNum), "SetVersion(library)");
  CHECK(lib->SetLcid(libAttr.lcid), "SetLcid");
  CHECK(lib->SetLibFlags(libAttr.wLibFlags), "SetLibFlags");
  if (libDoc) CHECK(lib->SetDocString(libDoc), "SetDocString");

  for (ITypeLib* tl : inputs) {
    UINT n = tl->GetTypeInfoCount();
    for (UINT i = 0; i < n; ++i) {
      ITypeInfo* ti = nullptr;
      CHECK(tl->GetTypeInfo(i, &ti), "GetTypeInfo");
      BSTR name = nullptr;
      CHECK(ti->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr), "GetDocumentation");
      int rc = copyInterface(ti, lib, std::wstring(name, SysStringLen(name)));
      SysFreeString(name);
      ti->Release();
      if (rc) return rc;
    }
  }
  CHECK(lib->SaveAllChanges(), "SaveAllChanges");
  lib->Release();
  for (ITypeLib* tl : inputs) tl->Release();
  SysFreeString(libName);
  SysFreeString(libDoc);
  CoUninitialize();
  return 0;
}
