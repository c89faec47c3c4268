// A client in a process of its own that finds a publishing agent's "app"
// object in the Running Object Table, as any C++ test host would:
//   kwrotclient NAME          reads the calculator's display, holds the
//                             objects until its input ends, then calls them
//                             again: exit 0 when both calls answer
//                             RPC_E_DISCONNECTED (the agent was unpublished)
//   kwrotclient NAME --bench  prints the cost of a call through the facade
//                             (its DISPID looked up once) beside a bare COM
//                             round trip to the same process
#include <windows.h>
#include <objbase.h>
#include <oleauto.h>

#include <chrono>
#include <cstdio>
#include <cwchar>
#include <string>

namespace {

// Calls `member` of `object` with at most one string or object argument.
HRESULT Call(IDispatch* object, const wchar_t* member, VARIANT* result, const VARIANT* argument = nullptr) {
  LPOLESTR name = const_cast<LPOLESTR>(member);
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = object->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
  if (FAILED(hr)) return hr;
  VARIANT arg = argument != nullptr ? *argument : VARIANT{};
  DISPPARAMS params{argument != nullptr ? &arg : nullptr, nullptr, argument != nullptr ? 1u : 0u, 0};
  VariantInit(result);
  return object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result, nullptr, nullptr);
}

VARIANT Text(const wchar_t* text) {
  VARIANT value;
  value.vt = VT_BSTR;
  value.bstrVal = SysAllocString(text);
  return value;
}

// The display's text, read through the facade: QLineEdit_text gives a
// QString object, app.text turns it into a string.
HRESULT ReadDisplay(IDispatch* app, IDispatch* display, std::wstring* text) {
  VARIANT qstring, plain;
  HRESULT hr = Call(display, L"QLineEdit_text", &qstring);
  if (FAILED(hr)) return hr;
  hr = Call(app, L"text", &plain, &qstring);
  VariantClear(&qstring);
  if (SUCCEEDED(hr) && plain.vt == VT_BSTR) *text = plain.bstrVal;
  VariantClear(&plain);
  return hr;
}

void WaitForInputToEnd() {
  char buffer[64];
  DWORD read = 0;
  while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), buffer, sizeof buffer, &read, nullptr) && read > 0) {
  }
}

template <typename Body>
double MicrosecondsPerCall(int calls, Body body) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < calls; ++i) body();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count() / calls;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 2) {
    std::printf("usage: kwrotclient NAME [--bench]\n");
    return 2;
  }
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  IRunningObjectTable* table = nullptr;
  IMoniker* moniker = nullptr;
  IUnknown* found = nullptr;
  IDispatch* app = nullptr;
  HRESULT hr = GetRunningObjectTable(0, &table);
  if (SUCCEEDED(hr)) hr = CreateFileMoniker(argv[1], &moniker);
  if (SUCCEEDED(hr)) hr = table->GetObject(moniker, &found);
  if (SUCCEEDED(hr)) hr = found->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&app));
  if (FAILED(hr)) {
    std::printf("no object registered as \"%ls\": 0x%08lX\n", argv[1], static_cast<unsigned long>(hr));
    return 1;
  }
  VARIANT selector = Text(L"Calculator > QLineEdit"), found_display;
  hr = Call(app, L"query", &found_display, &selector);
  VariantClear(&selector);
  if (FAILED(hr) || found_display.vt != VT_DISPATCH || found_display.pdispVal == nullptr) {
    std::printf("app.query found no display: 0x%08lX\n", static_cast<unsigned long>(hr));
    return 1;
  }
  IDispatch* display = found_display.pdispVal;
  std::wstring text;
  hr = ReadDisplay(app, display, &text);
  std::printf("display: \"%ls\" (0x%08lX)\n", text.c_str(), static_cast<unsigned long>(hr));

  if (argc > 2 && std::wcscmp(argv[2], L"--bench") == 0) {
    const int calls = 300;
    UINT count = 0;
    const double bare = MicrosecondsPerCall(calls, [&] { app->GetTypeInfoCount(&count); });
    // As a client that looks each name up once: the DISPID is kept.
    LPOLESTR name = const_cast<LPOLESTR>(L"QWidget_isVisible");
    DISPID id = DISPID_UNKNOWN;
    display->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
    DISPPARAMS none{};
    const double facade = MicrosecondsPerCall(calls, [&] {
      VARIANT result;
      VariantInit(&result);
      display->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &none, &result, nullptr, nullptr);
    });
    std::printf("remote call: display.QWidget_isVisible() %.1f us, bare COM round trip (GetTypeInfoCount) %.1f us, "
                "ratio %.2f\n",
                facade, bare, facade / bare);
    return 0;
  }

  std::printf("holding the objects\n");
  std::fflush(stdout);
  WaitForInputToEnd();
  VARIANT ignored;
  const HRESULT objectCall = Call(display, L"QLineEdit_text", &ignored);
  VariantClear(&ignored);
  selector = Text(L"Calculator");
  const HRESULT appCall = Call(app, L"query", &ignored, &selector);
  VariantClear(&ignored);
  std::printf("after unpublishing: display 0x%08lX, app 0x%08lX\n", static_cast<unsigned long>(objectCall),
              static_cast<unsigned long>(appCall));
  return objectCall == RPC_E_DISCONNECTED && appCall == RPC_E_DISCONNECTED ? 0 : 1;
}
