// tlbdump: prints the type library embedded in a DLL (or a .tlb file).
//
//   tlbdump.exe <file> [<interface name>]
//
// Without an interface name every interface is printed.  Output, one item a
// line:
//   library <name> <LIBID> <major>.<minor> lcid=0x<lcid> syskind=<n> doc="<text>"
//   interface <name> <IID> kind=<dispatch|interface|...> flags=0x<hex>
//             funcs=<n> vtbl=<bytes> custom=<GUID>:"<text>" ...
//     0x<DISPID> <member>(<type> <name> [<in,out,retval>], ...)
// Members and parameter types are read from the vtable part of a dual
// interface, where results appear as [out, retval] parameters.
#include <windows.h>
#include <oleauto.h>

#include "TypeText.h"

#include <cstdio>
#include <cwchar>
#include <string>

namespace {

std::wstring guidText(const GUID& g) {
  wchar_t buf[64];
  StringFromGUID2(g, buf, 64);
  return buf;
}

const wchar_t* kindText(TYPEKIND k) {
  switch (k) {
    case TKIND_ENUM:
      return L"enum";
    case TKIND_RECORD:
      return L"record";
    case TKIND_MODULE:
      return L"module";
    case TKIND_INTERFACE:
      return L"interface";
    case TKIND_DISPATCH:
      return L"dispatch";
    case TKIND_COCLASS:
      return L"coclass";
    case TKIND_ALIAS:
      return L"alias";
    case TKIND_UNION:
      return L"union";
    default:
      return L"?";
  }
}

std::wstring customText(ITypeInfo* ti) {
  std::wstring out;
  ITypeInfo2* ti2 = nullptr;
  if (FAILED(ti->QueryInterface(IID_ITypeInfo2, reinterpret_cast<void**>(&ti2)))) return out;
  CUSTDATA cd{};
  if (SUCCEEDED(ti2->GetAllCustData(&cd))) {
    for (DWORD i = 0; i < cd.cCustData; ++i) {
      out += L" custom=" + guidText(cd.prgCustData[i].guid) + L":";
      VARIANT v;
      VariantInit(&v);
      if (SUCCEEDED(VariantChangeType(&v, &cd.prgCustData[i].varValue, 0, VT_BSTR))) {
        out += L"\"" + std::wstring(v.bstrVal, SysStringLen(v.bstrVal)) + L"\"";
        VariantClear(&v);
      }
    }
    ClearCustData(&cd);
  }
  ti2->Release();
  return out;
}

void printMembers(ITypeInfo* body, UINT count) {
  for (UINT f = 0; f < count; ++f) {
    FUNCDESC* fd = nullptr;
    if (FAILED(body->GetFuncDesc(f, &fd))) continue;
    BSTR names[64] = {};
    UINT got = 0;
    body->GetNames(fd->memid, names, 64, &got);
    std::wstring line = L"  ";
    wchar_t id[16];
    std::swprintf(id, 16, L"0x%08X", static_cast<unsigned>(fd->memid));
    line += id;
    line += L" ";
    line += got ? std::wstring(names[0], SysStringLen(names[0])) : L"?";
    line += L"(";
    for (SHORT p = 0; p < fd->cParams; ++p) {
      const ELEMDESC& e = fd->lprgelemdescParam[p];
      if (p) line += L", ";
      line += kwtypelib::TypeText(body, e.tdesc);
      line += L" ";
      if (static_cast<UINT>(p + 1) < got && names[p + 1])
        line += std::wstring(names[p + 1], SysStringLen(names[p + 1]));
      USHORT pf = e.paramdesc.wParamFlags;
      std::wstring dir;
      if (pf & PARAMFLAG_FIN) dir += L"in";
      if (pf & PARAMFLAG_FOUT) dir += dir.empty() ? L"out" : L",out";
      if (pf & PARAMFLAG_FRETVAL) dir += L",retval";
      if (pf & PARAMFLAG_FOPT) dir += L",optional";
      if (!dir.empty()) line += L" [" + dir + L"]";
    }
    line += L")";
    std::wprintf(L"%ls\n", line.c_str());
    for (UINT i = 0; i < got; ++i) SysFreeString(names[i]);
    body->ReleaseFuncDesc(fd);
  }
}

void printInterface(ITypeInfo* ti) {
  TYPEATTR* a = nullptr;
  if (FAILED(ti->GetTypeAttr(&a))) return;
  BSTR name = nullptr;
  ti->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr);
  ITypeInfo* body = ti;
  TYPEATTR* ba = a;
  if (a->typekind == TKIND_DISPATCH && (a->wTypeFlags & TYPEFLAG_FDUAL)) {
    HREFTYPE href = 0;
    if (SUCCEEDED(ti->GetRefTypeOfImplType(static_cast<UINT>(-1), &href)) &&
        SUCCEEDED(ti->GetRefTypeInfo(href, &body)) && SUCCEEDED(body->GetTypeAttr(&ba))) {
    } else {
      body = ti;
      ba = a;
    }
  }
  std::wprintf(L"interface %ls %ls kind=%ls flags=0x%X funcs=%u vtbl=%u%ls\n", name ? name : L"?",
               guidText(a->guid).c_str(), kindText(a->typekind), static_cast<unsigned>(a->wTypeFlags),
               static_cast<unsigned>(ba->cFuncs), static_cast<unsigned>(ba->cbSizeVft), customText(ti).c_str());
  printMembers(body, ba->cFuncs);
  if (body != ti) {
    body->ReleaseTypeAttr(ba);
    body->Release();
  }
  ti->ReleaseTypeAttr(a);
  SysFreeString(name);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: tlbdump <file.dll|file.tlb> [<interface name>]\n");
    return 2;
  }
  CoInitialize(nullptr);
  ITypeLib* tl = nullptr;
  HRESULT hr = LoadTypeLibEx(argv[1], REGKIND_NONE, &tl);
  if (FAILED(hr)) {
    std::fwprintf(stderr, L"tlbdump: LoadTypeLibEx(%ls) failed (0x%08lX)\n", argv[1], static_cast<unsigned long>(hr));
    return 1;
  }
  TLIBATTR* la = nullptr;
  tl->GetLibAttr(&la);
  BSTR libName = nullptr, libDoc = nullptr;
  tl->GetDocumentation(-1, &libName, &libDoc, nullptr, nullptr);
  std::wprintf(L"library %ls %ls %u.%u lcid=0x%X syskind=%u doc=\"%ls\" typeinfos=%u\n", libName ? libName : L"",
               guidText(la->guid).c_str(), la->wMajorVerNum, la->wMinorVerNum, static_cast<unsigned>(la->lcid),
               static_cast<unsigned>(la->syskind), libDoc ? libDoc : L"", tl->GetTypeInfoCount());
  tl->ReleaseTLibAttr(la);
  int rc = 0;
  if (argc > 2) {
    rc = 1;
    for (UINT i = 0; i < tl->GetTypeInfoCount(); ++i) {
      BSTR n = nullptr;
      tl->GetDocumentation(static_cast<INT>(i), &n, nullptr, nullptr, nullptr);
      bool match = n && std::wcscmp(n, argv[2]) == 0;
      SysFreeString(n);
      if (!match) continue;
      ITypeInfo* ti = nullptr;
      if (SUCCEEDED(tl->GetTypeInfo(i, &ti))) {
        printInterface(ti);
        ti->Release();
        rc = 0;
      }
    }
    if (rc) std::fwprintf(stderr, L"tlbdump: no interface %ls\n", argv[2]);
  } else {
    for (UINT i = 0; i < tl->GetTypeInfoCount(); ++i) {
      ITypeInfo* ti = nullptr;
      if (SUCCEEDED(tl->GetTypeInfo(i, &ti))) {
        printInterface(ti);
        ti->Release();
      }
    }
  }
  SysFreeString(libName);
  SysFreeString(libDoc);
  tl->Release();
  CoUninitialize();
  return rc;
}
