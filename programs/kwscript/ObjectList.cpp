#include "kwscript/ObjectList.h"

namespace kwscript {

namespace {

const wchar_t* const kNames[] = {L"count", L"item", L"length"};
enum ListMember : DISPID { kCount = 1, kItem = 2, kLength = 3 };

}  // namespace

IDispatch* CObjectList::Make(std::vector<IDispatch*> objects) { return new CObjectList(std::move(objects)); }

CObjectList::~CObjectList() {
  for (IDispatch* object : m_objects)
    if (object != nullptr) object->Release();
}

STDMETHODIMP CObjectList::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  return IdsOfFixedNames(kNames, sizeof kNames / sizeof kNames[0], names, count, ids);
}

STDMETHODIMP CObjectList::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result, EXCEPINFO*,
                                 UINT* argumentError) {
  if (result != nullptr) VariantInit(result);
  if (id == kCount || id == kLength) {
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
