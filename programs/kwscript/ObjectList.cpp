#include "kwscript/ObjectList.h"

#include <QtCore/QString>

#include "kwscript/ScriptObject.h"

namespace kwscript {

namespace {

const wchar_t* const kNames[] = {L"count", L"item", L"length"};
enum ListMember : DISPID { kCount = 1, kItem = 2, kLength = 3 };

// Indexes asked for by name (JScript's list[2]) get DISPIDs from here on,
// names a list does not have from kUnknownBase on, so that using one says so.
constexpr DISPID kIndexBase = 0x10000;
constexpr DISPID kUnknownBase = 0x20000000;

// What a list answers besides IDispatch, so that the host knows its own lists.
const IID IID_IObjectList = {0x7b2e4c10, 0x3d5f, 0x4e8a, {0x91, 0x6c, 0x2a, 0x58, 0xd0, 0x3e, 0x7f, 0x14}};

}  // namespace

IDispatch* CObjectList::Make(std::vector<IDispatch*> objects) {
  std::vector<VARIANT> values(objects.size());
  for (std::size_t i = 0; i < objects.size(); ++i) {
    V_VT(&values[i]) = VT_DISPATCH;
    V_DISPATCH(&values[i]) = objects[i];
  }
  return new CObjectList(std::move(values));
}

IDispatch* CObjectList::MakeOfValues(std::vector<VARIANT> values) { return new CObjectList(std::move(values)); }

CObjectList::CObjectList(std::vector<VARIANT> values) : CountedDispatch(IID_IObjectList), m_values(std::move(values)) {}

const std::vector<VARIANT>* CObjectList::ValuesOf(IUnknown* object) {
  IDispatch* list = nullptr;
  if (object == nullptr || FAILED(object->QueryInterface(IID_IObjectList, reinterpret_cast<void**>(&list))))
    return nullptr;
  list->Release();  // the caller holds the object
  return &static_cast<CObjectList*>(list)->m_values;
}

CObjectList::~CObjectList() {
  for (VARIANT& value : m_values) VariantClear(&value);
}

STDMETHODIMP CObjectList::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  if (count == 1 && names != nullptr && ids != nullptr && names[0] != nullptr && names[0][0] >= L'0' &&
      names[0][0] <= L'9') {
    wchar_t* end = nullptr;
    const unsigned long index = wcstoul(names[0], &end, 10);
    if (*end == L'\0' && index < 0x1000000) {
      ids[0] = kIndexBase + static_cast<DISPID>(index);
      return S_OK;
    }
  }
  const HRESULT hr = IdsOfFixedNames(kNames, sizeof kNames / sizeof kNames[0], names, count, ids);
  if (hr != DISP_E_UNKNOWNNAME || count != 1) return hr;
  m_unknown.push_back(QString::fromWCharArray(names[0]));
  ids[0] = kUnknownBase + static_cast<DISPID>(m_unknown.size() - 1);
  return S_OK;
}

STDMETHODIMP CObjectList::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                                 EXCEPINFO* exception, UINT* argumentError) {
  if (result != nullptr) VariantInit(result);
  if (id >= kUnknownBase && static_cast<std::size_t>(id - kUnknownBase) < m_unknown.size())
    return Refuse(exception, DISP_E_MEMBERNOTFOUND,
                  QString("a list has length (or count), item(i) and [i]; not \"%1\"").arg(m_unknown[id - kUnknownBase]));
  if (id == kCount || id == kLength) {
    if (result != nullptr) {
      V_VT(result) = VT_I4;
      V_I4(result) = static_cast<LONG>(m_values.size());
    }
    return S_OK;
  }
  VARIANT index;
  VariantInit(&index);
  if (id >= kIndexBase) {
    V_VT(&index) = VT_I4;
    V_I4(&index) = id - kIndexBase;
  } else {
    if (id != kItem && id != DISPID_VALUE) return DISP_E_MEMBERNOTFOUND;
    if (params == nullptr || params->cArgs != 1)
      return Refuse(exception, DISP_E_BADPARAMCOUNT, "list.item(i) takes one index, from 0");
    if (FAILED(VariantChangeType(&index, &params->rgvarg[0], 0, VT_I4))) {
      if (argumentError != nullptr) *argumentError = 0;
      VARIANT text;
      VariantInit(&text);
      VariantChangeType(&text, &params->rgvarg[0], VARIANT_ALPHABOOL, VT_BSTR);
      const QString given = V_VT(&text) == VT_BSTR ? QString::fromWCharArray(V_BSTR(&text)) : QString("that value");
      VariantClear(&text);
      return Refuse(exception, DISP_E_TYPEMISMATCH, QString("list.item(i) takes a whole number; \"%1\" is none").arg(given));
    }
  }
  if (V_I4(&index) < 0 || static_cast<size_t>(V_I4(&index)) >= m_values.size())
    return Refuse(exception, DISP_E_BADINDEX,
                  m_values.empty() ? QString("list.item(%1): the list is empty").arg(V_I4(&index))
                                   : QString("list.item(%1): the list has %2 item(s), 0 to %3")
                                         .arg(V_I4(&index))
                                         .arg(m_values.size())
                                         .arg(m_values.size() - 1));
  if (result != nullptr) VariantCopy(result, &m_values[V_I4(&index)]);
  return S_OK;
}

}  // namespace kwscript
