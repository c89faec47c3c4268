// Identity of exposers and of the wrappers they compose: which interfaces
// each answers, the instance round trip, and the free-threaded marshaler.
#include <gtest/gtest.h>

#include <thread>

#include "FixtureHost.h"

using namespace fxtest;

namespace {

class IdentityTest : public DerivedExposerTest {
 protected:
  void InitCounter(FxCounter& counter) override { counter.value = 9; }

  // A composed wrapper, reached through a fixture member that returns itself.
  IUnknown* Peer(const wchar_t* member) {
    VARIANT result;
    VariantInit(&result);
    EXPECT_EQ(S_OK, Call(exposer_, member, {}, &result));
    EXPECT_EQ(VT_UNKNOWN, V_VT(&result));
    return V_VT(&result) == VT_UNKNOWN ? V_UNKNOWN(&result) : nullptr;
  }
};

void* Query(IUnknown* object, REFIID iid, HRESULT* hr) {
  void* face = reinterpret_cast<void*>(0x77);
  *hr = object->QueryInterface(iid, &face);
  if (SUCCEEDED(*hr)) static_cast<IUnknown*>(face)->Release();
  return face;
}

}  // namespace

TEST_F(IdentityTest, ExposerAnswersDispatchProxyAndMarshal) {
  HRESULT hr = S_OK;
  void* unknown = Query(exposer_, IID_IUnknown, &hr);
  EXPECT_EQ(S_OK, hr);
  EXPECT_EQ(static_cast<void*>(exposer_), unknown) << "IUnknown is the IDispatch face";
  EXPECT_EQ(static_cast<void*>(exposer_), Query(exposer_, IID_IDispatch, &hr));
  EXPECT_EQ(S_OK, hr);
  void* proxy = Query(exposer_, IID_IkwInstanceProxy, &hr);
  EXPECT_EQ(S_OK, hr);
  EXPECT_NE(static_cast<void*>(exposer_), proxy);
  EXPECT_EQ(unknown, Query(static_cast<IUnknown*>(proxy), IID_IUnknown, &hr)) << "one identity";
  Query(exposer_, IID_IMarshal, &hr);
  EXPECT_EQ(S_OK, hr);

  EXPECT_EQ(nullptr, Query(exposer_, IID_IPersist, &hr));
  EXPECT_EQ(E_NOINTERFACE, hr);
  EXPECT_EQ(nullptr, Query(exposer_, IID_Iwrp_FxBase, &hr)) << "wrapper interfaces stay inside";
  EXPECT_EQ(E_NOINTERFACE, hr);
  EXPECT_EQ(E_POINTER, exposer_->QueryInterface(IID_IDispatch, nullptr));
  EXPECT_EQ(1u, Refs(exposer_)) << "queries must not leak references";
}

TEST_F(IdentityTest, InstanceRoundTripsThroughProxy) {
  EXPECT_EQ(&counter_, InstanceOf(exposer_));
  FxCounter other;
  IDispatch* second = host_.Wrap(L"FxBase", &other);
  ASSERT_NE(nullptr, second);
  EXPECT_EQ(&other, InstanceOf(second));
  EXPECT_NE(static_cast<IUnknown*>(second), static_cast<IUnknown*>(exposer_));
  IkwInstanceProxy* proxy = nullptr;
  ASSERT_EQ(S_OK, second->QueryInterface(IID_IkwInstanceProxy, reinterpret_cast<void**>(&proxy)));
  EXPECT_EQ(E_POINTER, proxy->GetInstance(nullptr));
  proxy->Release();
  EXPECT_EQ(0u, second->Release());
}

TEST_F(IdentityTest, MarshalIsTheFreeThreadedMarshaler) {
  IMarshal* marshal = nullptr;
  ASSERT_EQ(S_OK, exposer_->QueryInterface(IID_IMarshal, reinterpret_cast<void**>(&marshal)));
  CLSID unmarshaler = CLSID_NULL;
  EXPECT_EQ(S_OK, marshal->GetUnmarshalClass(IID_IDispatch, exposer_, MSHCTX_INPROC, nullptr, MSHLFLAGS_NORMAL,
                                             &unmarshaler));
  // {0000033A-0000-0000-C000-000000000046}, the in-process free-threaded unmarshaler.
  const CLSID freeThreaded = {0x0000033A, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
  EXPECT_EQ(freeThreaded, unmarshaler);
  IUnknown* outer = nullptr;
  ASSERT_EQ(S_OK, marshal->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&outer)));
  EXPECT_EQ(static_cast<IUnknown*>(exposer_), outer) << "the marshaler is aggregated";
  outer->Release();
  marshal->Release();
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
    if (SUCCEEDED(unmarshaled)) {
      VARIANT result;
      VariantInit(&result);
      if (Call(received, L"FxBase_value", {}, &result) == S_OK) value = V_I4(&result);
      received->Release();
    }
    CoUninitialize();
  }).join();
  ASSERT_EQ(S_OK, unmarshaled);
  EXPECT_EQ(static_cast<IDispatch*>(exposer_), received) << "no proxy between apartments";
  EXPECT_EQ(9, value);
}

TEST_F(IdentityTest, WrapperAnswersOnlyItsOwnFaces) {
  IUnknown* peer = Peer(L"FxBase_peer");
  ASSERT_NE(nullptr, peer);
  HRESULT hr = S_OK;
  EXPECT_EQ(static_cast<void*>(peer), Query(peer, IID_IUnknown, &hr));
  EXPECT_EQ(S_OK, hr);
  EXPECT_EQ(static_cast<void*>(peer), Query(peer, IID_IDispatch, &hr));
  EXPECT_EQ(S_OK, hr);
  EXPECT_EQ(static_cast<void*>(peer), Query(peer, IID_Iwrp_FxBase, &hr));
  EXPECT_EQ(S_OK, hr);
  EXPECT_EQ(nullptr, Query(peer, IID_IkwInstanceProxy, &hr));
  EXPECT_EQ(E_NOINTERFACE, hr);
  EXPECT_EQ(nullptr, Query(peer, IID_Iwrp_FxDerived, &hr));
  EXPECT_EQ(E_NOINTERFACE, hr);
  EXPECT_EQ(nullptr, Query(peer, IID_IMarshal, &hr));
  EXPECT_EQ(E_NOINTERFACE, hr);
  EXPECT_EQ(E_POINTER, peer->QueryInterface(IID_IUnknown, nullptr));
  peer->Release();

  IUnknown* second = Peer(L"FxDerived_peer");
  ASSERT_NE(nullptr, second);
  EXPECT_EQ(static_cast<void*>(second), Query(second, IID_Iwrp_FxDerived, &hr));
  EXPECT_EQ(nullptr, Query(second, IID_Iwrp_FxBase, &hr));
  EXPECT_NE(static_cast<void*>(second), static_cast<void*>(peer)) << "one wrapper per composed class";
  second->Release();
}

TEST_F(IdentityTest, WrapperDispatchesThroughItsTypeInfo) {
  IUnknown* peer = Peer(L"FxBase_peer");
  ASSERT_NE(nullptr, peer);
  IDispatch* wrapper = nullptr;
  ASSERT_EQ(S_OK, peer->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&wrapper)));
  peer->Release();

  UINT count = 0;
  EXPECT_EQ(S_OK, wrapper->GetTypeInfoCount(&count));
  EXPECT_EQ(1u, count);
  EXPECT_EQ(E_POINTER, wrapper->GetTypeInfoCount(nullptr));
  ITypeInfo* first = nullptr;
  ITypeInfo* fifth = nullptr;
  ASSERT_EQ(S_OK, wrapper->GetTypeInfo(0, 0, &first));
  ASSERT_EQ(S_OK, wrapper->GetTypeInfo(5, 0, &fifth));
  EXPECT_EQ(first, fifth) << "any index gives the one cached type information";
  TYPEATTR* attributes = nullptr;
  ASSERT_EQ(S_OK, first->GetTypeAttr(&attributes));
  EXPECT_EQ(IID_Iwrp_FxBase, attributes->guid);
  first->ReleaseTypeAttr(attributes);
  first->Release();
  fifth->Release();
  EXPECT_EQ(E_POINTER, wrapper->GetTypeInfo(0, 0, nullptr));

  DISPID id = 0;
  EXPECT_EQ(DISP_E_UNKNOWNNAME, IdOf(wrapper, L"FxDerived_touch", &id)) << "only its own class's names";
  VARIANT result;
  VariantInit(&result);
  ASSERT_EQ(S_OK, Call(wrapper, L"FxBase_add", {2, 5}, &result));
  EXPECT_EQ(19, V_I4(&result));
  EXPECT_EQ(19, counter_.value);
  EXPECT_EQ(DISP_E_BADPARAMCOUNT, InvokeWith(wrapper, 3, DISPATCH_METHOD, {1}));
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, InvokeWith(wrapper, 11, DISPATCH_METHOD, {}));
  wrapper->Release();
}
