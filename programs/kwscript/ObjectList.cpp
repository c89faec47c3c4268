#include "kwscript/ObjectList.h"

namespace kwscript {

namespace {

enum ListMember : DISPID { kCount = 1, kItem = 2 };

}  // namespace

IDispatch* CObjectList::Make(std::vector<IDispatch*> objects) { return new CObjectList(std::move(objects)); }

CObjectList::~CObjectList() {
  for (IDispatch* object : m_objects)
    if (object != nullptr) object->Release();
}

STDMETHODIMP CObjectList::QueryInterface(REFIID iid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch)) {
    *ppv = static_cast<IDispatch*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) CObjectList::AddRef() { return InterlockedIncrement(&m_refs); }

STDMETHODIMP_(ULONG) CObjectList::Release() {
  const ULONG refs = InterlockedDecrement(&m_refs);
  if (refs == 0) delete this;
  return refs;
}

STDMETHODIMP CObjectList::GetTypeInfoCount(UINT* count) {
  if (count == nullptr) return E_POINTER;
  *count = 0;
  return S_OK;
}

STDMETHODIMP CObjectList::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  if (names == nullptr || ids == nullptr || count == 0) return E_INVALIDARG;
  for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
  if (lstrcmpiW(names[0], L"count") == 0 || lstrcmpiW(names[0], L"length") == 0) ids[0] = kCount;
  if (lstrcmpiW(names[0], L"item") == 0) ids[0] = kItem;
  return ids[0] == DISPID_UNKNOWN || count > 1 ? DISP_E_UNKNOWNNAME : S_OK;
}

STDMETHODIMP CObjectList::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result, EXCEPINFO*,
                                 UINT* argumentError) {
  if (result != nullptr) VariantInit(result);
  if (id == kCount) {
    if (result != nullptr) {
      V_VT(result) = VT_I4;
      V_I4(result) = static_cast<LONG>(m_objects.size());
    }
    return S_OK;
  }
  if (id != kItem && id != DISPID_VALUE) return DISP_E_MEMBERNOTFOUND;
  if (params == nullptr || params->cArgs != 1) return DISP_E_BADPARAMCOUNT;
  VARIANT index;
  VariantInit(&index);
  if (FAILED(VariantChangeType(&index, &params->rgvarg[0], 0, VT_I4))) {
    if (argumentError != nullptr) *argumentError = 0;
    return DISP_E_TYPEMISMATCH;
  }
  if (V_I4(&index) < 0 || static_cast<size_t>(V_I4(&index)) >= m_objects.size()) return DISP_E_BADINDEX;
  if (result != nullptr) {
    IDispatch* object = m_objects[V_I4(&index)];
    object->AddRef();
    V_VT(result) = VT_DISPATCH;
    V_DISPATCH(result) = object;
  }
  return S_OK;
}

}  // namespace kwscript
