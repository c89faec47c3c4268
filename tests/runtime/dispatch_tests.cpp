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

// The exposer gives its wrappers' type information in composition order and
// refuses a bad index before a null out pointer, which it leaves alone; a
// wrapper handed out on its own has its interface's only, at any index.
TEST_F(DispatchTest, TypeInformationFollowsTheComposition) {
  EXPECT_EQ((std::vector<std::wstring>{L"Iwrp_FxBase", L"Iwrp_FxDerived"}), ComposedInterfaces(exposer_));
  EXPECT_EQ(E_POINTER, exposer_->GetTypeInfoCount(nullptr));
  ITypeInfo* info = reinterpret_cast<ITypeInfo*>(0x1234);
  for (UINT index : {2u, 0xFFFFFFFFu}) EXPECT_EQ(E_INVALIDARG, exposer_->GetTypeInfo(index, 0, &info));
  EXPECT_EQ(reinterpret_cast<ITypeInfo*>(0x1234), info);
  EXPECT_EQ(E_INVALIDARG, exposer_->GetTypeInfo(2, 0, nullptr));
  EXPECT_EQ(E_POINTER, exposer_->GetTypeInfo(1, 0, nullptr));

  auto* wrapper = static_cast<IDispatch*>(ObjectResult(exposer_, L"FxBase_peer"));
  ASSERT_NE(nullptr, wrapper);
  EXPECT_EQ(std::vector<std::wstring>{L"Iwrp_FxBase"}, ComposedInterfaces(wrapper));
  ITypeInfo* first = nullptr;
  ITypeInfo* fifth = nullptr;
  ASSERT_EQ(S_OK, wrapper->GetTypeInfo(0, 0, &first));
  ASSERT_EQ(S_OK, wrapper->GetTypeInfo(5, 0, &fifth));
  EXPECT_EQ(first, fifth) << "any index gives the one cached type information";
  first->Release();
  fifth->Release();
  EXPECT_EQ(E_POINTER, wrapper->GetTypeInfo(0, 0, nullptr));
  DISPID id = 0;
  EXPECT_EQ(DISP_E_UNKNOWNNAME, IdOf(wrapper, L"FxDerived_touch", &id)) << "the other wrapper's name";
  wrapper->Release();
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
    DISPID id = 0x1234;
    Result result;
    if (step.op == kResolve) {
      // An unknown name's slot reads DISPID_UNKNOWN, as the platform's own lookup leaves it.
      EXPECT_EQ(step.expected, IdOf(exposer_, step.name, &id));
      EXPECT_EQ(step.expected == S_OK ? step.id : DISPID_UNKNOWN, id);
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

namespace {

// Without a type library in the DLL every call that needs type information
// fails with E_FAIL, the second time as the first, and the objects stay
// usable as objects: their instance, their release.
TEST(MissingTypeLibrary, EveryRequestForTypeInformationFails) {
  ManagerHost host(L"kwFxWithoutTypes.dll");
  ASSERT_TRUE(host.ready());
  FxCounter counter;
  IDispatch* exposer = host.Wrap(L"FxDerived", &counter);
  ASSERT_NE(nullptr, exposer);
  for (int attempt = 0; attempt < 2; ++attempt) {
    SCOPED_TRACE(attempt);
    ITypeInfo* info = reinterpret_cast<ITypeInfo*>(0x1234);
    EXPECT_EQ(E_FAIL, exposer->GetTypeInfo(0, 0, &info));
    DISPID id = 0;
    EXPECT_EQ(E_FAIL, IdOf(exposer, L"FxBase_value", &id));
    EXPECT_EQ(E_FAIL, InvokeWith(exposer, 2, DISPATCH_METHOD, {}));
  }
  EXPECT_EQ(&counter, InstanceOf(exposer));
  EXPECT_EQ(0u, exposer->Release());
  EXPECT_EQ(2, counter.wrappersDestroyed);
}

}  // namespace
