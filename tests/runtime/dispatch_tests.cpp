// Composite dispatch of exposers: counts and indices of type information,
// name resolution and the routing of DISPIDs that composed wrappers share.
// FxDerived composes wrp_FxBase then wrp_FxDerived; both interfaces use
// DISPID 1 (FxBase_setValue / FxDerived_scale) and DISPID 7 (the property
// FxBase_level / the method FxDerived_touch).
#include <gtest/gtest.h>

#include "FixtureHost.h"

using namespace fxtest;

namespace {

class DispatchTest : public DerivedExposerTest {
 protected:
  void InitCounter(FxCounter& counter) override {
    counter.value = 5;
    counter.level = 42;
  }

  GUID TypeGuidAt(UINT index) {
    ITypeInfo* info = nullptr;
    EXPECT_EQ(S_OK, exposer_->GetTypeInfo(index, LOCALE_USER_DEFAULT, &info));
    if (info == nullptr) return GUID_NULL;
    TYPEATTR* attributes = nullptr;
    GUID guid = GUID_NULL;
    if (SUCCEEDED(info->GetTypeAttr(&attributes))) {
      guid = attributes->guid;
      info->ReleaseTypeAttr(attributes);
    }
    info->Release();
    return guid;
  }

  // Property get of DISPID 7: answered only by wrp_FxBase (FxBase_level).
  HRESULT GetLevel(int* level) {
    VARIANT result;
    VariantInit(&result);
    HRESULT hr = InvokeWith(exposer_, kIdLevelOrTouch, DISPATCH_PROPERTYGET, {}, &result);
    *level = V_VT(&result) == VT_I4 ? V_I4(&result) : -1;
    VariantClear(&result);
    return hr;
  }
};

}  // namespace

TEST_F(DispatchTest, TypeInfoCountIsCompositionLength) {
  UINT count = 0;
  ASSERT_EQ(S_OK, exposer_->GetTypeInfoCount(&count));
  EXPECT_EQ(2u, count);

  FxCounter other;
  IDispatch* base = host_.Wrap(L"FxBase", &other);
  ASSERT_NE(nullptr, base);
  ASSERT_EQ(S_OK, base->GetTypeInfoCount(&count));
  EXPECT_EQ(1u, count);
  base->Release();

  EXPECT_EQ(E_POINTER, exposer_->GetTypeInfoCount(nullptr));
}

TEST_F(DispatchTest, TypeInfoByIndexInCompositionOrder) {
  EXPECT_EQ(IID_Iwrp_FxBase, TypeGuidAt(0));
  EXPECT_EQ(IID_Iwrp_FxDerived, TypeGuidAt(1));
}

TEST_F(DispatchTest, TypeInfoIndexTestedBeforeOutPointer) {
  ITypeInfo* info = reinterpret_cast<ITypeInfo*>(0x1234);
  EXPECT_EQ(E_INVALIDARG, exposer_->GetTypeInfo(2, 0, &info));
  EXPECT_EQ(reinterpret_cast<ITypeInfo*>(0x1234), info);
  EXPECT_EQ(E_INVALIDARG, exposer_->GetTypeInfo(0xFFFFFFFFu, 0, &info));
  EXPECT_EQ(E_INVALIDARG, exposer_->GetTypeInfo(2, 0, nullptr));
  EXPECT_EQ(E_POINTER, exposer_->GetTypeInfo(1, 0, nullptr));
}

TEST_F(DispatchTest, NamesResolveThroughTheWrapperThatKnowsThem) {
  DISPID id = 0;
  ASSERT_EQ(S_OK, IdOf(exposer_, L"FxBase_value", &id));
  EXPECT_EQ(2, id);
  ASSERT_EQ(S_OK, IdOf(exposer_, L"FxDerived_twin", &id));
  EXPECT_EQ(11, id);

  // Shared DISPID 1: whichever name was resolved last owns the route.
  ASSERT_EQ(S_OK, IdOf(exposer_, L"FxDerived_scale", &id));
  ASSERT_EQ(kIdSetValueOrScale, id);
  EXPECT_EQ(S_OK, InvokeWith(exposer_, id, DISPATCH_METHOD, {3}));
  EXPECT_EQ(15, counter_.value) << "DISPID 1 must reach FxDerived_scale";

  ASSERT_EQ(S_OK, IdOf(exposer_, L"FxBase_setValue", &id));
  ASSERT_EQ(kIdSetValueOrScale, id);
  EXPECT_EQ(S_OK, InvokeWith(exposer_, id, DISPATCH_METHOD, {3}));
  EXPECT_EQ(3, counter_.value) << "DISPID 1 must now reach FxBase_setValue";
}

TEST_F(DispatchTest, UnknownNameLeavesRoutesUnchanged) {
  DISPID id = 0;
  ASSERT_EQ(S_OK, IdOf(exposer_, L"FxDerived_touch", &id));
  ASSERT_EQ(kIdLevelOrTouch, id);

  DISPID unknown = 0;
  EXPECT_EQ(DISP_E_UNKNOWNNAME, IdOf(exposer_, L"FxNobody_here", &unknown));

  // Still routed to wrp_FxDerived: the base's property is not reached.
  int level = 0;
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, GetLevel(&level));
  EXPECT_EQ(S_OK, InvokeWith(exposer_, kIdLevelOrTouch, DISPATCH_METHOD, {1}));
  EXPECT_EQ(1, counter_.touches);
}

TEST_F(DispatchTest, ResolvedRouteIsFollowedWithoutSearching) {
  DISPID id = 0;
  ASSERT_EQ(S_OK, IdOf(exposer_, L"FxBase_level", &id));
  ASSERT_EQ(kIdLevelOrTouch, id);
  // The route goes to wrp_FxBase, which has no method 7: no fall-back to FxDerived_touch.
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, InvokeWith(exposer_, id, DISPATCH_METHOD, {1}));
  EXPECT_EQ(0, counter_.touches);
  int level = 0;
  EXPECT_EQ(S_OK, GetLevel(&level));
  EXPECT_EQ(42, level);
}

TEST_F(DispatchTest, UnresolvedDispIdFindsFirstAnsweringWrapper) {
  // Nothing resolved yet: the property get is answered by wrp_FxBase.
  int level = 0;
  EXPECT_EQ(S_OK, GetLevel(&level));
  EXPECT_EQ(42, level);
}

TEST_F(DispatchTest, UnresolvedDispIdIsRoutedAndRemembered) {
  // wrp_FxBase answers "member not found" for method 7, wrp_FxDerived runs it.
  EXPECT_EQ(S_OK, InvokeWith(exposer_, kIdLevelOrTouch, DISPATCH_METHOD, {1}));
  EXPECT_EQ(1, counter_.touches);
  // Remembered: the property get now goes to wrp_FxDerived, which has none.
  int level = 0;
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, GetLevel(&level));
}

TEST_F(DispatchTest, FailingCallStillRecordsItsRoute) {
  // FxDerived_touch is found but needs its argument.
  EXPECT_EQ(DISP_E_BADPARAMCOUNT, InvokeWith(exposer_, kIdLevelOrTouch, DISPATCH_METHOD, {}));
  EXPECT_EQ(0, counter_.touches);
  int level = 0;
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, GetLevel(&level)) << "route to wrp_FxDerived was not recorded";
}

TEST_F(DispatchTest, NobodyAnsweringRecordsNothing) {
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, InvokeWith(exposer_, 4711, DISPATCH_METHOD, {}));
  // Property put of 7 is nobody's; afterwards 7 is still searched afresh.
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, InvokeWith(exposer_, kIdLevelOrTouch, DISPATCH_PROPERTYPUT, {1}));
  int level = 0;
  EXPECT_EQ(S_OK, GetLevel(&level));
  EXPECT_EQ(42, level);
}

TEST_F(DispatchTest, ArgumentsAndResultsPassThrough) {
  VARIANT result;
  VariantInit(&result);
  ASSERT_EQ(S_OK, Call(exposer_, L"FxBase_add", {4, 3}, &result));
  EXPECT_EQ(VT_I4, V_VT(&result));
  EXPECT_EQ(17, V_I4(&result));
  EXPECT_EQ(17, counter_.value);
  // Errors of the platform's dispatch come back unchanged, argument index included.
  VARIANT text;
  VariantInit(&text);
  V_VT(&text) = VT_BSTR;
  V_BSTR(&text) = SysAllocString(L"not a number");
  DISPPARAMS params{&text, nullptr, 1, 0};
  UINT argumentError = 99;
  DISPID id = 0;
  ASSERT_EQ(S_OK, IdOf(exposer_, L"FxDerived_scale", &id));
  EXPECT_EQ(DISP_E_TYPEMISMATCH,
            exposer_->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, nullptr, &argumentError));
  VariantClear(&text);
  EXPECT_EQ(17, counter_.value);
}
