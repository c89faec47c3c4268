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
#include "module/ComSupport.h"
#include "wrappers/WrapperBase.h"
#include "BodyProbe.h"

HRESULT wrp_SString_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_SSize_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_SWidget_CreateBound(void*, CStaticWrappersManager*, IDispatch**);
HRESULT wrp_SAbstractButton_CreateBound(void*, CStaticWrappersManager*, IDispatch**);

namespace {

// The module object every wrapper locks while it lives.
kwatl::CAtlModule g_testModule;

using kwtest::MakeWrapper;
using kwtest::RecordingManager;

class BodyTest : public ::testing::Test {
 protected:
  RecordingManager manager_;
};

}  // namespace

TEST_F(BodyTest, PointersAndScalarReferencesAsTheInterfaceDeclaresThem) {
  SWidget widget;
  Iwrp_SWidget* wrapper = MakeWrapper<Iwrp_SWidget>(&wrp_SWidget_CreateBound, IID_Iwrp_SWidget, &widget, &manager_);
  ASSERT_NE(nullptr, wrapper);

  int marker = 0;
  EXPECT_EQ(S_OK, wrapper->SWidget_setUserData(&marker));
  EXPECT_EQ(&marker, widget.userData());
  void* userData = nullptr;
  EXPECT_EQ(S_OK, wrapper->SWidget_userData(&userData));
  EXPECT_EQ(&marker, userData);

  // Character pointers are stored as they are, not copied.
  unsigned char* name = nullptr;
  EXPECT_EQ(S_OK, wrapper->SWidget_className(&name));
  ASSERT_NE(nullptr, name);
  EXPECT_EQ(static_cast<const void*>(widget.className()), static_cast<const void*>(name));
  SString text("abc");
  Iwrp_SString* textWrapper = MakeWrapper<Iwrp_SString>(&wrp_SString_CreateBound, IID_Iwrp_SString, &text, &manager_);
  ASSERT_NE(nullptr, textWrapper);
  unsigned char* data = nullptr;
  EXPECT_EQ(S_OK, textWrapper->SString_data(&data));
  EXPECT_EQ(static_cast<const void*>(text.data()), static_cast<const void*>(data));
  unsigned char at = 0;
  EXPECT_EQ(S_OK, textWrapper->SString_at(1, &at));
  EXPECT_EQ('b', at);

  // A scalar returned by reference into a pointer-sized slot: its value,
  // sign-extended, never its address.
  SSize size(3, -2);
  Iwrp_SSize* sizeWrapper = MakeWrapper<Iwrp_SSize>(&wrp_SSize_CreateBound, IID_Iwrp_SSize, &size, &manager_);
  ASSERT_NE(nullptr, sizeWrapper);
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
  Iwrp_SAbstractButton* wrapper =
      MakeWrapper<Iwrp_SAbstractButton>(&wrp_SAbstractButton_CreateBound, IID_Iwrp_SAbstractButton, &button, &manager_);
  Iwrp_SWidget* widgetWrapper =
      MakeWrapper<Iwrp_SWidget>(&wrp_SWidget_CreateBound, IID_Iwrp_SWidget, &button, &manager_);
  ASSERT_TRUE(wrapper && widgetWrapper);

  IDispatch* result = reinterpret_cast<IDispatch*>(1);
  EXPECT_EQ(S_FALSE, wrapper->SAbstractButton_text(&result));
  EXPECT_EQ(S_FALSE, wrapper->SAbstractButton_iconSize(&result));
  EXPECT_EQ(S_FALSE, wrapper->SAbstractButton_group(&result));
  EXPECT_EQ(S_FALSE, widgetWrapper->SWidget_windowFlags(&result));
  EXPECT_EQ(S_FALSE, widgetWrapper->SWidget_parentWidget(&result));
  EXPECT_EQ(nullptr, result);  // the manager's out-parameter is the body's retval

  ASSERT_EQ(5u, manager_.requests.size());
  EXPECT_EQ(L"SString", manager_.requests[0].typeName);
  SString* copy = static_cast<SString*>(manager_.requests[0].instance);
  ASSERT_NE(nullptr, copy);
  EXPECT_STREQ("Go", copy->data());
  EXPECT_EQ(L"SSize", manager_.requests[1].typeName);
  SSize* size = static_cast<SSize*>(manager_.requests[1].instance);
  ASSERT_NE(nullptr, size);
  EXPECT_EQ(8, size->width());
  EXPECT_EQ(9, size->height());
  EXPECT_EQ(L"SButtonGroup", manager_.requests[2].typeName);
  EXPECT_EQ(nullptr, manager_.requests[2].instance);
  EXPECT_EQ(L"SFlags<enum Sample::WindowType>", manager_.requests[3].typeName);
  EXPECT_EQ(L"SWidget", manager_.requests[4].typeName);
  EXPECT_EQ(nullptr, manager_.requests[4].instance);

  // Refused results are not freed: the copies stay readable.
  EXPECT_STREQ("Go", copy->data());
  EXPECT_EQ(0u, widgetWrapper->Release());
  EXPECT_EQ(0u, wrapper->Release());
}

TEST_F(BodyTest, EveryLiveWrapperHoldsOneModuleLock) {
  SSize size;
  const LONG before = g_testModule.GetLockCount();
  Iwrp_SSize* first = MakeWrapper<Iwrp_SSize>(&wrp_SSize_CreateBound, IID_Iwrp_SSize, &size, &manager_);
  Iwrp_SSize* second = MakeWrapper<Iwrp_SSize>(&wrp_SSize_CreateBound, IID_Iwrp_SSize, &size, &manager_);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(before + 2, g_testModule.GetLockCount());
  EXPECT_EQ(S_OK, first->SSize_setWidth(5));
  EXPECT_EQ(5, size.width());
  EXPECT_EQ(0u, first->Release());
  EXPECT_EQ(before + 1, g_testModule.GetLockCount());
  EXPECT_EQ(0u, second->Release());
  EXPECT_EQ(before, g_testModule.GetLockCount());
  EXPECT_EQ(5, size.width());  // the instance is never the wrapper's to free
}
