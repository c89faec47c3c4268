// Text of an Automation type as a type library declares it ("long*",
// "IDispatch**", "unsigned char*"), and a walk over a type's functions, for
// people and tests that read the library's contract.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <cwchar>
#include <string>

namespace kwtypelib {

inline std::wstring TypeText(ITypeInfo* ti, const TYPEDESC& t) {
  switch (t.vt) {
    case VT_PTR:
      return TypeText(ti, *t.lptdesc) + L"*";
    case VT_I1:
      return L"char";
    case VT_UI1:
      return L"unsigned char";
    case VT_I2:
      return L"short";
    case VT_UI2:
      return L"unsigned short";
    case VT_I4:
      return L"long";
    case VT_UI4:
      return L"unsigned long";
    case VT_INT:
      return L"int";
    case VT_UINT:
      return L"unsigned int";
    case VT_I8:
      return L"int64";
    case VT_UI8:
      return L"uint64";
    case VT_R4:
      return L"single";
    case VT_R8:
      return L"double";
    case VT_BOOL:
      return L"VARIANT_BOOL";
    case VT_BSTR:
      return L"BSTR";
    case VT_VARIANT:
      return L"VARIANT";
    case VT_VOID:
      return L"void";
    case VT_HRESULT:
      return L"HRESULT";
    case VT_DISPATCH:
      return L"IDispatch*";
    case VT_UNKNOWN:
      return L"IUnknown*";
    case VT_USERDEFINED: {
      ITypeInfo* ref = nullptr;
      std::wstring name = L"?";
      if (SUCCEEDED(ti->GetRefTypeInfo(t.hreftype, &ref))) {
        BSTR b = nullptr;
        if (SUCCEEDED(ref->GetDocumentation(MEMBERID_NIL, &b, nullptr, nullptr, nullptr)) && b) {
          name.assign(b, SysStringLen(b));
          SysFreeString(b);
        }
        ref->Release();
      }
      return name;
    }
    default: {
      wchar_t buf[32];
      std::swprintf(buf, 32, L"vt%u", static_cast<unsigned>(t.vt));
      return buf;
    }
  }
}

// Calls `visit(name, function)` for each function of `info`, in order.
template <class Visit>
void ForEachFunction(ITypeInfo* info, Visit&& visit) {
  TYPEATTR* attr = nullptr;
  if (info == nullptr || FAILED(info->GetTypeAttr(&attr))) return;
  const UINT count = attr->cFuncs;
  info->ReleaseTypeAttr(attr);
  for (UINT f = 0; f < count; ++f) {
    FUNCDESC* function = nullptr;
    if (FAILED(info->GetFuncDesc(f, &function))) continue;
    BSTR name = nullptr;
    UINT got = 0;
    info->GetNames(function->memid, &name, 1, &got);
    visit(name != nullptr ? std::wstring(name, SysStringLen(name)) : std::wstring(), *function);
    SysFreeString(name);
    info->ReleaseFuncDesc(function);
  }
}

}  // namespace kwtypelib
