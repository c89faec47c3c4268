#include "SampleHost.h"

namespace sampletest {

namespace {

VARIANT Typed(VARTYPE type) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = type;
  return v;
}

}  // namespace

VARIANT I4(int value) {
  VARIANT v = Typed(VT_I4);
  V_I4(&v) = value;
  return v;
}

VARIANT I8(long long value) {
  VARIANT v = Typed(VT_I8);
  V_I8(&v) = value;
  return v;
}

VARIANT R4(float value) {
  VARIANT v = Typed(VT_R4);
  V_R4(&v) = value;
  return v;
}

VARIANT R8(double value) {
  VARIANT v = Typed(VT_R8);
  V_R8(&v) = value;
  return v;
}

VARIANT UI1(unsigned char value) {
  VARIANT v = Typed(VT_UI1);
  V_UI1(&v) = value;
  return v;
}

VARIANT UI2(unsigned short value) {
  VARIANT v = Typed(VT_UI2);
  V_UI2(&v) = value;
  return v;
}

VARIANT Object(IDispatch* object) {
  VARIANT v = Typed(VT_DISPATCH);
  V_DISPATCH(&v) = object;
  return v;
}

VARIANT LongRef(LONG* location) {
  VARIANT v = Typed(VT_BYREF | VT_I4);
  V_I4REF(&v) = location;
  return v;
}

VARIANT BytesRef(const char* bytes) {
  VARIANT v = Typed(VT_BYREF | VT_UI1);
  V_UI1REF(&v) = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes));
  return v;
}

HRESULT CallByName(IDispatch* object, const wchar_t* name, std::initializer_list<VARIANT> args, VARIANT* result,
                   SCODE* memberResult) {
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = kwtest::IdOf(object, name, &id);
  if (FAILED(hr)) return hr;
  return kwtest::InvokeWithVariants(object, id, DISPATCH_METHOD, args, result, memberResult);
}

}  // namespace sampletest
