// For hosts that call generated method bodies through their vtables: a
// manager that records what the bodies ask it to wrap, and the dual
// interface of a wrapper made directly by its factory.
#pragma once

#include <objbase.h>
#include <oaidl.h>

#include <string>
#include <vector>

#include "managers/StaticWrappersManager.h"
#include "wrappers/WrapperBase.h"

namespace kwwrap {

struct WrapRequest {
  std::wstring typeName;
  void* instance;
};

// A manager that records requests and answers with a fixed HRESULT.
class RecordingManager : public CStaticWrappersManager {
 public:
  HRESULT CreateWrapper(const wchar_t* typeName, void* instance, IDispatch** result) override {
    requests.push_back({typeName, instance});
    *result = nullptr;
    return answer;
  }
  std::vector<WrapRequest> requests;
  HRESULT answer = S_FALSE;
};

// The interface `Face` (identifier `iid`) of a new wrapper made by `factory`
// over `instance`; null when it cannot be made.
template <class Face>
Face* MakeWrapper(WrapperFactory factory, const IID& iid, void* instance, CStaticWrappersManager* manager) {
  IDispatch* dispatch = nullptr;
  if (FAILED(factory(instance, manager, &dispatch))) return nullptr;
  Face* face = nullptr;
  dispatch->QueryInterface(iid, reinterpret_cast<void**>(&face));
  dispatch->Release();
  return face;
}

}  // namespace kwwrap
