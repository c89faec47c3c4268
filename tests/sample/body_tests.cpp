// The generated method bodies called through their vtables, with a manager
// that records what it is asked to wrap. This reaches the members whose
// types the platform's dispatch under Wine cannot carry (void*, pointer and
// widened scalar results) and shows exactly which type name and instance
// every result hands to the manager.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kwSampleWrappersInterfaces.h"
#include "kwsample/SWidget.h"
#include "managers/StaticWrappersManager.h"
#include "com/ComSupport.h"
#include "wrappers/WrapperBase.h"
#include "wrappers/BodyProbe.h"

HRESULT wrp_SString_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_SSize_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_SWidget_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_SAbstractButton_CreateBound(void*, CStaticWrappersManager*, IDispatch**);

namespace {

// The module object every wrapper locks while it lives.
kwatl::CAtlModule g_testModule;

class BodyTest : public ::testing::Test {
 protected:
  template <class Face>
  Face* Make(WrapperFactory factory, const IID& iid, void* instance) {
    return kwwrap::MakeWrapper<Face>(factory, iid, instance, &manager_);
  }
  kwwrap::RecordingManager manager_;
};

}  // namespace

TEST_F(BodyTest, PointersAndScalarReferencesAsTheInterfaceDeclaresThem) {
  SWidget widget;
  SString text("abc");
  SSize size(3, -2);
  auto* wrapper = Make<Iwrp_SWidget>(&wrp_SWidget_CreateBound, IID_Iwrp_SWidget, &widget);
  auto* textWrapper = Make<Iwrp_SString>(&wrp_SString_CreateBound, IID_Iwrp_SString, &text);
  auto* sizeWrapper = Make<Iwrp_SSize>(&wrp_SSize_CreateBound, IID_Iwrp_SSize, &size);
  ASSERT_TRUE(wrapper && textWrapper && sizeWrapper);

  int marker = 0;
  void* userData = nullptr;
  EXPECT_EQ(S_OK, wrapper->SWidget_setUserData(&marker));
  EXPECT_EQ(&marker, widget.userData());
  EXPECT_EQ(S_OK, wrapper->SWidget_userData(&userData));
  EXPECT_EQ(&marker, userData);

  // Character pointers are handed over as they are, not copied.
  unsigned char *name = nullptr, *data = nullptr, at = 0;
  EXPECT_EQ(S_OK, wrapper->SWidget_className(&name));
  EXPECT_EQ(static_cast<const void*>(widget.className()), static_cast<const void*>(name));
  EXPECT_EQ(S_OK, textWrapper->SString_data(&data));
  EXPECT_EQ(static_cast<const void*>(text.data()), static_cast<const void*>(data));
  EXPECT_EQ(S_OK, textWrapper->SString_at(1, &at));
  EXPECT_EQ('b', at);

  // A scalar returned by reference into a pointer-sized slot: its value,
  // sign-extended, never its address.
  int* slot = nullptr;
  EXPECT_EQ(S_OK, sizeWrapper->SSize_rheight(&slot));
  EXPECT_EQ(static_cast<std::uint64_t>(0xFFFFFFFFFFFFFFFEull), reinterpret_cast<std::uint64_t>(slot));

  EXPECT_TRUE(manager_.requests.empty());
  EXPECT_EQ(0u, sizeWrapper->Release());
  EXPECT_EQ(0u, textWrapper->Release());
  EXPECT_EQ(0u, wrapper->Release());
}

TEST_F(BodyTest, ResultsReachTheManagerWithTheirStaticTypeNames) {
  SAbstractButton button;
  button.setText("Go");
  button.setIconSize(SSize(8, 9));
  button.setWindowFlags(SFlags<Sample::WindowType>(Sample::Dialog));
  auto* wrapper = Make<Iwrp_SAbstractButton>(&wrp_SAbstractButton_CreateBound, IID_Iwrp_SAbstractButton, &button);
  auto* widgetWrapper = Make<Iwrp_SWidget>(&wrp_SWidget_CreateBound, IID_Iwrp_SWidget, &button);
  ASSERT_TRUE(wrapper && widgetWrapper);

  IDispatch* result = reinterpret_cast<IDispatch*>(1);
  EXPECT_EQ(S_FALSE, wrapper->SAbstractButton_text(&result));
  EXPECT_EQ(S_FALSE, wrapper->SAbstractButton_iconSize(&result));
  EXPECT_EQ(S_FALSE, wrapper->SAbstractButton_group(&result));
  EXPECT_EQ(S_FALSE, widgetWrapper->SWidget_windowFlags(&result));
  EXPECT_EQ(S_FALSE, widgetWrapper->SWidget_parentWidget(&result));
  EXPECT_EQ(nullptr, result);  // the manager's out-parameter is the body's retval

  const wchar_t* typeNames[] = {L"SString", L"SSize", L"SButtonGroup", L"SFlags<enum Sample::WindowType>", L"SWidget"};
  ASSERT_EQ(5u, manager_.requests.size());
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(typeNames[i], manager_.requests[i].typeName);
  SString* copy = static_cast<SString*>(manager_.requests[0].instance);
  SSize* size = static_cast<SSize*>(manager_.requests[1].instance);
  ASSERT_TRUE(copy && size);
  EXPECT_TRUE(*size == SSize(8, 9));
  EXPECT_EQ(nullptr, manager_.requests[2].instance);
  EXPECT_EQ(Sample::Dialog, static_cast<SFlags<Sample::WindowType>*>(manager_.requests[3].instance)->value());
  EXPECT_EQ(nullptr, manager_.requests[4].instance);
  // Refused results are not freed: the copies stay readable.
  EXPECT_STREQ("Go", copy->data());
  EXPECT_EQ(0u, widgetWrapper->Release());
  EXPECT_EQ(0u, wrapper->Release());
}

TEST_F(BodyTest, EveryLiveWrapperHoldsOneModuleLock) {
  SSize size;
  const LONG before = g_testModule.GetLockCount();
  auto* first = Make<Iwrp_SSize>(&wrp_SSize_CreateBound, IID_Iwrp_SSize, &size);
  auto* second = Make<Iwrp_SSize>(&wrp_SSize_CreateBound, IID_Iwrp_SSize, &size);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(before + 2, g_testModule.GetLockCount());
  EXPECT_EQ(S_OK, first->SSize_setWidth(5));
  EXPECT_EQ(0u, first->Release());
  EXPECT_EQ(before + 1, g_testModule.GetLockCount());
  EXPECT_EQ(0u, second->Release());
  EXPECT_EQ(before, g_testModule.GetLockCount());
  EXPECT_EQ(5, size.width());  // set through the wrapper, never the wrapper's to free
}
