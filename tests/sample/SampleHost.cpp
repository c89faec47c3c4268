#include "SampleHost.h"

namespace sampletest {

HRESULT CallByName(IDispatch* object, const wchar_t* name, std::initializer_list<VARIANT> args, VARIANT* result,
                   SCODE* memberResult) {
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = kwtest::IdOf(object, name, &id);
  if (FAILED(hr)) return hr;
  return kwtest::InvokeWithVariants(object, id, DISPATCH_METHOD, args, result, memberResult);
}

}  // namespace sampletest
