// The library's COM interfaces, as a host sees them. A host includes this
// header, loads the DLL, calls GetModuleIntf and works through these.
#pragma once

#include <objbase.h>
#include <oaidl.h>

// Builds a GUID constant from its textual parts (usable in constant expressions).
constexpr GUID kwMakeGuid(unsigned long d1, unsigned short d2, unsigned short d3, unsigned char b0, unsigned char b1,
                          unsigned char b2, unsigned char b3, unsigned char b4, unsigned char b5, unsigned char b6,
                          unsigned char b7) {
  return GUID{d1, d2, d3, {b0, b1, b2, b3, b4, b5, b6, b7}};
}

// {C6736F7A-FD53-4EE5-9899-478623853C6C}
inline constexpr IID IID_ImxModuleIntf =
    kwMakeGuid(0xC6736F7A, 0xFD53, 0x4EE5, 0x98, 0x99, 0x47, 0x86, 0x23, 0x85, 0x3C, 0x6C);
// {128D278A-C2E8-4C27-BDC7-B2646CFAD32E}
inline constexpr IID IID_IWrappersModule =
    kwMakeGuid(0x128D278A, 0xC2E8, 0x4C27, 0xBD, 0xC7, 0xB2, 0x64, 0x6C, 0xFA, 0xD3, 0x2E);
// {E0D4CB60-7B03-4E72-BC1D-8978C2C28C40}
inline constexpr IID IID_IWrappersManager =
    kwMakeGuid(0xE0D4CB60, 0x7B03, 0x4E72, 0xBC, 0x1D, 0x89, 0x78, 0xC2, 0xC2, 0x8C, 0x40);
// {D0C351BB-662C-42F4-A10A-72CA25C6DF18}
inline constexpr IID IID_IkwQtDispatchNotificator =
    kwMakeGuid(0xD0C351BB, 0x662C, 0x42F4, 0xA1, 0x0A, 0x72, 0xCA, 0x25, 0xC6, 0xDF, 0x18);
// {5BC62750-0CD5-4E88-91DD-9E9A587CAD9F}
inline constexpr IID IID_IkwInstanceProxy =
    kwMakeGuid(0x5BC62750, 0x0CD5, 0x4E88, 0x91, 0xDD, 0x9E, 0x9A, 0x58, 0x7C, 0xAD, 0x9F);

// Listener registration on the module interface object.
struct ImxModuleIntf : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE AddPrimaryListener(IUnknown* listener) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemovePrimaryListener(IUnknown* listener) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddSecondaryListener(IUnknown* listener) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemoveSecondaryListener(IUnknown* listener) = 0;
};

// Second face of the module interface object: the source of wrappers managers.
struct IWrappersModule : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateWrappersManager(IUnknown** manager) = 0;
};

// Implemented by the host. The library calls the slot after IUnknown's on
// whatever pointer was registered, without querying it.
struct IModuleUnloadListener : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE OnModuleUnload(BSTR moduleFolder, ImxModuleIntf* module) = 0;
};

// Turns (type name, raw instance pointer) into an automation object.
struct IWrappersManager : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateWrapper(const wchar_t* typeName, void* instance, IDispatch** result) = 0;
};

// Installs the host's dispatch sink on a wrappers manager.
struct IkwQtDispatchNotificator : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE SetDispatchSink(IUnknown* sink) = 0;
};

// Implemented by the host. Receives every wrapping request that comes from
// inside the library while it is installed.
struct IQtDispatchSink : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateDispatch(void* instance, void* reserved, const wchar_t* typeName,
                                                   VARIANT_BOOL flag1, VARIANT_BOOL flag2, VARIANT_BOOL flag3,
                                                   IDispatch** result) = 0;
};

// Gives the raw instance pointer an exposer stands for.
struct IkwInstanceProxy : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetInstance(void** instance) = 0;
};

// The library's one export.
extern "C" typedef HRESULT(WINAPI* GetModuleIntfFn)(void** ppv);
