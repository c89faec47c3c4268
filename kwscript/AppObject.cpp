#include "kwscript/AppObject.h"

#include "host/HostSupport.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtGui/QApplication>
#include <QtGui/QWidget>

#include <cstdio>

namespace kwscript {

namespace {

const wchar_t* const kMethods[] = {L"find", L"str", L"text", L"isNull", L"processEvents", L"echo"};
enum Method { kFind = 1, kStr, kText, kIsNull, kProcessEvents, kEcho };

// Argument `position` (first argument first) of `params`, references followed.
const VARIANT* Argument(const DISPPARAMS* params, UINT position) {
  if (params == nullptr || position >= params->cArgs) return nullptr;
  const VARIANT* arg = &params->rgvarg[params->cArgs - 1 - position];
  return V_VT(arg) == (VT_BYREF | VT_VARIANT) ? V_VARIANTREF(arg) : arg;
}

QString TextOfVariant(const VARIANT* arg) {
  VARIANT text;
  VariantInit(&text);
  if (FAILED(VariantChangeType(&text, const_cast<VARIANT*>(arg), VARIANT_ALPHABOOL, VT_BSTR))) return "<object>";
  QString out = QString::fromWCharArray(V_BSTR(&text), SysStringLen(V_BSTR(&text)));
  VariantClear(&text);
  return out;
}

void ReturnText(VARIANT* result, const QString& text) {
  if (result == nullptr) return;
  V_VT(result) = VT_BSTR;
  V_BSTR(result) = SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text.utf16()), text.size());
}

void ReturnObject(VARIANT* result, IDispatch* object) {
  if (result == nullptr) {
    if (object != nullptr) object->Release();
    return;
  }
  V_VT(result) = VT_DISPATCH;
  V_DISPATCH(result) = object;  // null: null in JScript, Nothing in VBScript
}

// The text behind a QString, QByteArray or QLatin1String object of this host.
HRESULT TextOfObject(const VARIANT* arg, QString* text) {
  IDispatch* exposer = arg != nullptr && V_VT(arg) == VT_DISPATCH ? CScriptObject::ExposerOf(V_DISPATCH(arg)) : nullptr;
  if (exposer == nullptr) return DISP_E_TYPEMISMATCH;
  IkwInstanceProxy* proxy = nullptr;
  void* instance = nullptr;
  if (SUCCEEDED(exposer->QueryInterface(IID_IkwInstanceProxy, reinterpret_cast<void**>(&proxy)))) {
    proxy->GetInstance(&instance);
    proxy->Release();
  }
  const std::vector<std::wstring> composed = kwhost::ComposedInterfaces(exposer);
  const std::wstring own = composed.empty() ? L"" : composed.back();
  if (instance == nullptr) return DISP_E_TYPEMISMATCH;
  if (own == L"Iwrp_QString")
    *text = *static_cast<QString*>(instance);
  else if (own == L"Iwrp_QByteArray")
    *text = QString::fromUtf8(*static_cast<QByteArray*>(instance));
  else if (own == L"Iwrp_QLatin1String")
    *text = QString(*static_cast<QLatin1String*>(instance));
  else
    return DISP_E_TYPEMISMATCH;
  return S_OK;
}

}  // namespace

STDMETHODIMP CAppObject::GetTypeInfoCount(UINT* count) {
  if (count == nullptr) return E_POINTER;
  *count = 0;
  return S_OK;
}

STDMETHODIMP CAppObject::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  if (names == nullptr || ids == nullptr || count == 0) return E_INVALIDARG;
  for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
  for (DISPID id = kFind; id <= kEcho; ++id)
    if (lstrcmpiW(names[0], kMethods[id - 1]) == 0) ids[0] = id;
  return ids[0] == DISPID_UNKNOWN || count > 1 ? DISP_E_UNKNOWNNAME : S_OK;
}

IDispatch* CAppObject::Find(const QString& name) {
  foreach (QWidget* top, QApplication::topLevelWidgets()) {
    QWidget* widget = top->objectName() == name ? top : top->findChild<QWidget*>(name);
    if (widget == nullptr) continue;
    for (const QMetaObject* meta = widget->metaObject(); meta != nullptr; meta = meta->superClass()) {
      IDispatch* exposer = nullptr;
      const std::wstring type = QString(meta->className()).toStdWString();
      if (m_context->manager->CreateWrapper(type.c_str(), widget, &exposer) == S_OK) {
        IDispatch* object = CScriptObject::Wrap(exposer, m_context);
        exposer->Release();
        return object;
      }
    }
  }
  return nullptr;
}

STDMETHODIMP CAppObject::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result, EXCEPINFO*,
                                UINT* argumentError) {
  if (result != nullptr) VariantInit(result);
  const VARIANT* first = Argument(params, 0);
  switch (id) {
    case kFind:
    case kStr: {
      if (first == nullptr) return DISP_E_BADPARAMCOUNT;
      const QString text = TextOfVariant(first);
      if (id == kFind) {
        ReturnObject(result, Find(text));
        return S_OK;
      }
      IDispatch* exposer = nullptr;
      HRESULT hr = m_context->manager->CreateWrapper(L"QString", new QString(text), &exposer);
      if (FAILED(hr)) return hr;
      ReturnObject(result, CScriptObject::Wrap(exposer, m_context));
      exposer->Release();
      return S_OK;
    }
    case kText: {
      QString text;
      HRESULT hr = TextOfObject(first, &text);
      if (FAILED(hr)) {
        if (argumentError != nullptr) *argumentError = params->cArgs - 1;
        return first == nullptr ? DISP_E_BADPARAMCOUNT : hr;
      }
      ReturnText(result, text);
      return S_OK;
    }
    case kIsNull: {
      bool isNull = first == nullptr || V_VT(first) == VT_NULL || V_VT(first) == VT_EMPTY ||
                    (V_VT(first) == VT_DISPATCH && V_DISPATCH(first) == nullptr);
      if (result != nullptr) {
        V_VT(result) = VT_BOOL;
        V_BOOL(result) = isNull ? VARIANT_TRUE : VARIANT_FALSE;
      }
      return S_OK;
    }
    case kProcessEvents:
      QApplication::processEvents();
      return S_OK;
    case kEcho: {
      QStringList parts;
      for (UINT i = 0; params != nullptr && i < params->cArgs; ++i) parts << TextOfVariant(Argument(params, i));
      std::printf("%s\n", parts.join(" ").toUtf8().constData());
      std::fflush(stdout);
      return S_OK;
    }
    default:
      return DISP_E_MEMBERNOTFOUND;
  }
}

}  // namespace kwscript
