// Composite dispatch of exposers. FxDerived composes wrp_FxBase then
// wrp_FxDerived; both use DISPID 1 (FxBase_setValue / FxDerived_scale) and
// DISPID 7 (the property FxBase_level / the method FxDerived_touch).
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "FixtureHost.h"

using namespace fxtest;

namespace {

using DispatchTest = DerivedExposerTest;

GUID TypeGuidAt(IDispatch* object, UINT index) {
  ITypeInfo* info = nullptr;
  TYPEATTR* attributes = nullptr;
  EXPECT_EQ(S_OK, object->GetTypeInfo(index, LOCALE_USER_DEFAULT, &info));
  if (info == nullptr || FAILED(info->GetTypeAttr(&attributes))) return GUID_NULL;
  const GUID guid = attributes->guid;
  info->ReleaseTypeAttr(attributes);
  info->Release();
  return guid;
}

TEST_F(DispatchTest, TypeInformationFollowsTheComposition) {
  UINT count = 0;
  ASSERT_EQ(S_OK, exposer_->GetTypeInfoCount(&count));
  EXPECT_EQ(2u, count);
  EXPECT_EQ(E_POINTER, exposer_->GetTypeInfoCount(nullptr));
  EXPECT_EQ(IID_Iwrp_FxBase, TypeGuidAt(exposer_, 0));
  EXPECT_EQ(IID_Iwrp_FxDerived, TypeGuidAt(exposer_, 1));
  // The index is tested before the out pointer, which is left alone.
  ITypeInfo* info = reinterpret_cast<ITypeInfo*>(0x1234);
  for (UINT index : {2u, 0xFFFFFFFFu}) EXPECT_EQ(E_INVALIDARG, exposer_->GetTypeInfo(index, 0, &info));
  EXPECT_EQ(reinterpret_cast<ITypeInfo*>(0x1234), info);
  EXPECT_EQ(E_INVALIDARG, exposer_->GetTypeInfo(2, 0, nullptr));
  EXPECT_EQ(E_POINTER, exposer_->GetTypeInfo(1, 0, nullptr));
}

TEST_F(DispatchTest, ArgumentsResultsAndDispatchErrorsPassThrough) {
  VARIANT result;
  VariantInit(&result);
  ASSERT_EQ(S_OK, Call(exposer_, L"FxBase_add", {4, 3}, &result));
  EXPECT_EQ(VT_I4, V_VT(&result));
  EXPECT_EQ(17, V_I4(&result));
  EXPECT_EQ(17, counter_.value);

  VARIANT text;
  V_VT(&text) = VT_BSTR;
  V_BSTR(&text) = SysAllocString(L"not a number");
  DISPPARAMS params{&text, nullptr, 1, 0};
  DISPID id = 0;
  ASSERT_EQ(S_OK, IdOf(exposer_, L"FxDerived_scale", &id));
  EXPECT_EQ(DISP_E_TYPEMISMATCH,
            exposer_->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, nullptr, nullptr));
  VariantClear(&text);
  EXPECT_EQ(17, counter_.value);
}

// Routing scenarios: each step resolves a name or invokes DISPID `id`
// (methods and puts with the argument 3); the counter starts at value 5, level 42.
enum Op { kResolve, kMethod, kMethodWithoutArgument, kGet, kPut };
struct Step {
  Op op;
  DISPID id;  // also the one kResolve expects
  HRESULT expected;
  const wchar_t* name;
};
Step Resolve(const wchar_t* name, DISPID id, HRESULT hr = S_OK) { return {kResolve, id, hr, name}; }
Step Method(DISPID id, HRESULT hr) { return {kMethod, id, hr, nullptr}; }
Step MethodWithoutArgument(DISPID id, HRESULT hr) { return {kMethodWithoutArgument, id, hr, nullptr}; }
Step Get(DISPID id, HRESULT hr) { return {kGet, id, hr, nullptr}; }
Step Put(DISPID id, HRESULT hr) { return {kPut, id, hr, nullptr}; }

struct Scenario {
  Scenario(const char* name, int value, int touches, std::vector<Step> steps)
      : name(name), value(value), touches(touches), steps(std::move(steps)) {}
  const char* name;
  int value, touches;  // the counter afterwards
  std::vector<Step> steps;
};

void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

class RoutingTest : public DerivedExposerTest, public ::testing::WithParamInterface<Scenario> {};

TEST_P(RoutingTest, RoutesFollowResolvedNamesAndFirstAnswers) {
  const WORD flags[] = {0, DISPATCH_METHOD, DISPATCH_METHOD, DISPATCH_PROPERTYGET, DISPATCH_PROPERTYPUT};
  for (const Step& step : GetParam().steps) {
    SCOPED_TRACE(testing::Message() << "step " << step.op << " on DISPID " << step.id);
    DISPID id = -1;
    kwhost::Result result;
    if (step.op == kResolve) {
      EXPECT_EQ(step.expected, IdOf(exposer_, step.name, &id));
      EXPECT_TRUE(step.expected != S_OK || step.id == id) << id;
    } else if (step.op == kMethod || step.op == kPut) {
      EXPECT_EQ(step.expected, InvokeWith(exposer_, step.id, flags[step.op], {3}));
    } else {
      EXPECT_EQ(step.expected, InvokeWith(exposer_, step.id, flags[step.op], {}, &result.value));
      EXPECT_TRUE(step.op != kGet || step.expected != S_OK || V_I4(&result.value) == 42);
    }
  }
  EXPECT_EQ(GetParam().value, counter_.value);
  EXPECT_EQ(GetParam().touches, counter_.touches);
}

const HRESULT kNotFound = DISP_E_MEMBERNOTFOUND;

INSTANTIATE_TEST_SUITE_P(
    Exposer, RoutingTest,
    ::testing::Values(
        Scenario("UnresolvedGetIsAnsweredByTheFirstWrapper", 5, 0, {Get(7, S_OK)}),
        Scenario("UnresolvedCallIsRoutedAndRemembered", 5, 3, {Method(7, S_OK), Get(7, kNotFound)}),
        Scenario("FailingCallStillRecordsItsRoute", 5, 0,
                 {MethodWithoutArgument(7, DISP_E_BADPARAMCOUNT), Get(7, kNotFound)}),
        Scenario("NobodyAnsweringRecordsNothing", 5, 0, {Method(4711, kNotFound), Put(7, kNotFound), Get(7, S_OK)}),
        Scenario("ResolvedRouteIsFollowedWithoutSearching", 5, 0,
                 {Resolve(L"FxBase_level", 7), Method(7, kNotFound), Get(7, S_OK)}),
        Scenario("UnknownNameLeavesRoutesUnchanged", 5, 3,
                 {Resolve(L"FxDerived_touch", 7), Resolve(L"FxNobody_here", 0, DISP_E_UNKNOWNNAME), Get(7, kNotFound),
                  Method(7, S_OK)}),
        // setValue(3) then scale(3) gives 9; any other pair of targets does not.
        Scenario("LastResolvedNameOwnsASharedId", 9, 0,
                 {Resolve(L"FxBase_value", 2), Resolve(L"FxDerived_twin", 11), Resolve(L"FxBase_setValue", 1),
                  Method(1, S_OK), Resolve(L"FxDerived_scale", 1), Method(1, S_OK)})),
    [](const ::testing::TestParamInfo<Scenario>& info) { return std::string(info.param.name); });

}  // namespace
