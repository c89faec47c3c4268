// Identity of exposers and of the wrappers they compose: which interfaces
// each answers, the instance proxy, and the free-threaded marshaler.
#include <gtest/gtest.h>

#include <thread>

#include "FixtureHost.h"

using namespace fxtest;

namespace {

using IdentityTest = DerivedExposerTest;

// `object` is its own identity; each interface of `answered` is given out
// under that identity, each of `refused` gives E_NOINTERFACE and a null
// pointer, and no query leaves a reference behind.
void ExpectFaces(IUnknown* object, std::initializer_list<const IID*> answered,
                 std::initializer_list<const IID*> refused) {
  const ULONG refs = RefCountOf(object);
  for (const IID* iid : answered) {
    IUnknown* face = nullptr;
    IUnknown* identity = nullptr;
    ASSERT_EQ(S_OK, object->QueryInterface(*iid, reinterpret_cast<void**>(&face)));
    ASSERT_EQ(S_OK, face->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)));
    EXPECT_EQ(object, identity);
    identity->Release();
    face->Release();
  }
  for (const IID* iid : refused) {
    void* face = reinterpret_cast<void*>(0x77);
    EXPECT_EQ(E_NOINTERFACE, object->QueryInterface(*iid, &face));
    EXPECT_EQ(nullptr, face);
  }
  EXPECT_EQ(E_POINTER, object->QueryInterface(IID_IUnknown, nullptr));
  EXPECT_EQ(refs, RefCountOf(object));
}

TEST_F(IdentityTest, ExposerAndEachComposedWrapperAnswerOnlyTheirOwnFaces) {
  // The exposer's IMarshal is the aggregated marshaler's: it gives the
  // exposer back as its identity.
  ExpectFaces(exposer_, {&IID_IUnknown, &IID_IDispatch, &IID_IkwInstanceProxy, &IID_IMarshal},
              {&IID_IPersist, &IID_Iwrp_FxBase, &IID_Iwrp_FxDerived});
  EXPECT_EQ(&counter_, InstanceOf(exposer_));
  IkwInstanceProxy* proxy = nullptr;
  ASSERT_EQ(S_OK, exposer_->QueryInterface(IID_IkwInstanceProxy, reinterpret_cast<void**>(&proxy)));
  EXPECT_EQ(E_POINTER, proxy->GetInstance(nullptr));
  proxy->Release();

  IUnknown* base = ObjectResult(exposer_, L"FxBase_peer");
  IUnknown* derived = ObjectResult(exposer_, L"FxDerived_peer");
  ASSERT_NE(nullptr, base);
  ASSERT_NE(nullptr, derived);
  EXPECT_NE(base, derived) << "one wrapper per composed class";
  ExpectFaces(base, {&IID_IUnknown, &IID_IDispatch, &IID_Iwrp_FxBase},
              {&IID_IkwInstanceProxy, &IID_IMarshal, &IID_Iwrp_FxDerived});
  ExpectFaces(derived, {&IID_Iwrp_FxDerived}, {&IID_Iwrp_FxBase});
  base->Release();
  derived->Release();
}

TEST_F(IdentityTest, AnotherApartmentGetsTheObjectItself) {
  IStream* stream = nullptr;
  HRESULT marshaled = E_FAIL;
  std::thread([&] {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    marshaled = CoMarshalInterThreadInterfaceInStream(IID_IDispatch, exposer_, &stream);
    CoUninitialize();
  }).join();
  ASSERT_EQ(S_OK, marshaled);
  IDispatch* received = nullptr;
  HRESULT unmarshaled = E_FAIL;
  int value = -1;
  std::thread([&] {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    unmarshaled = CoGetInterfaceAndReleaseStream(stream, IID_IDispatch, reinterpret_cast<void**>(&received));
    VARIANT result;
    if (SUCCEEDED(unmarshaled) && Call(received, L"FxBase_value", {}, &result) == S_OK) value = V_I4(&result);
    if (received != nullptr) received->Release();
    CoUninitialize();
  }).join();
  ASSERT_EQ(S_OK, unmarshaled);
  EXPECT_EQ(static_cast<IDispatch*>(exposer_), received) << "no proxy between apartments";
  EXPECT_EQ(5, value);
}

TEST_F(IdentityTest, WrapperDispatchesThroughItsOwnTypeInfoOnly) {
  auto* wrapper = static_cast<IDispatch*>(ObjectResult(exposer_, L"FxBase_peer"));
  ASSERT_NE(nullptr, wrapper);
  UINT count = 0;
  EXPECT_EQ(S_OK, wrapper->GetTypeInfoCount(&count));
  EXPECT_EQ(1u, count);
  ITypeInfo* first = nullptr;
  ITypeInfo* fifth = nullptr;
  ASSERT_EQ(S_OK, wrapper->GetTypeInfo(0, 0, &first));
  ASSERT_EQ(S_OK, wrapper->GetTypeInfo(5, 0, &fifth));
  EXPECT_EQ(first, fifth) << "any index gives the one cached type information";
  first->Release();
  fifth->Release();
  EXPECT_EQ(E_POINTER, wrapper->GetTypeInfo(0, 0, nullptr));
  DISPID id = 0;
  EXPECT_EQ(DISP_E_UNKNOWNNAME, IdOf(wrapper, L"FxDerived_touch", &id));
  EXPECT_EQ(DISP_E_BADPARAMCOUNT, InvokeWith(wrapper, 3, DISPATCH_METHOD, {1}));
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, InvokeWith(wrapper, 11, DISPATCH_METHOD, {}));
  wrapper->Release();
}

}  // namespace
