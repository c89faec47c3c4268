// The sample's wrappers DLL driven by member name through IDispatch, as a
// host drives it: what the sample objects receive, what comes back, and how
// the generated exposers compose their wrappers.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <string>

#include "DispatchStress.h"
#include "SampleHost.h"

using namespace sampletest;

namespace {

std::string TextOf(IDispatch* object) {
  SString* text = InstanceAs<SString>(object);
  return text != nullptr && text->data() != nullptr ? text->data() : "<null>";
}

std::wstring InterfaceNameAt(IDispatch* exposer, UINT index) {
  ITypeInfo* info = nullptr;
  if (FAILED(exposer->GetTypeInfo(index, 0, &info))) return L"<none>";
  BSTR name = nullptr;
  info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr);
  info->Release();
  std::wstring result = name != nullptr ? name : L"<unnamed>";
  SysFreeString(name);
  return result;
}

// A class-typed argument whose instance cannot be had.
class RefusingProxy : public kwtest::HostObject<IkwInstanceProxy> {
 public:
  RefusingProxy() : HostObject(IID_IkwInstanceProxy) {}
  STDMETHOD(GetInstance)(void** instance) override {
    ++calls;
    return E_ACCESSDENIED;
  }
  int calls = 0;
};

// A host object answering IDispatch (no members) and IkwInstanceProxy
// through a RefusingProxy.
class RefusingArgument : public kwtest::HostObject<IDispatch> {
 public:
  RefusingArgument() : HostObject(IID_IDispatch) {}
  STDMETHOD(QueryInterface)(REFIID iid, void** ppv) override {
    if (ppv != nullptr && IsEqualIID(iid, IID_IkwInstanceProxy)) {
      proxy.AddRef();
      *ppv = static_cast<IkwInstanceProxy*>(&proxy);
      return S_OK;
    }
    return HostObject::QueryInterface(iid, ppv);
  }
  STDMETHOD(GetTypeInfoCount)(UINT* count) override { return E_NOTIMPL; }
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  STDMETHOD(Invoke)(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }
  RefusingProxy proxy;
};

// Calls SString_vsprintf on `text` with a real argument list.
HRESULT VsprintfThroughHost(IDispatch* text, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Result result;
  HRESULT hr = CallByName(text, L"SString_vsprintf",
                          {BytesRef(format), BytesRef(reinterpret_cast<const char*>(arguments))}, &result.value);
  va_end(arguments);
  return hr;
}

}  // namespace

TEST_F(SampleTest, ScalarArgumentsReachTheObjectAndComeBack) {
  SPushButton button;
  IDispatch* exposer = Wrap(L"SPushButton", &button);
  ASSERT_NE(nullptr, exposer);

  // bool: any non-zero value is true; the result is 1, never -1.
  EXPECT_EQ(S_OK, CallByName(exposer, L"SAbstractButton_setChecked", {I4(2)}));
  EXPECT_TRUE(button.isChecked());
  Result checked;
  EXPECT_EQ(S_OK, CallByName(exposer, L"SAbstractButton_isChecked", {}, &checked.value));
  EXPECT_EQ(VT_I4, V_VT(&checked.value));
  EXPECT_EQ(1, V_I4(&checked.value));
  Result state;
  EXPECT_EQ(S_OK, CallByName(exposer, L"SAbstractButton_checkState", {}, &state.value));
  EXPECT_EQ(Sample::Checked, V_I4(&state.value));
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setEnabled", {I4(0)}));
  EXPECT_FALSE(button.isEnabled());
  Result enabled;
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_isEnabled", {}, &enabled.value));
  EXPECT_EQ(0, V_I4(&enabled.value));

  // Numbers of every width, in and out.
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setOpacity", {R8(0.25)}));
  EXPECT_EQ(0.25, button.opacity());
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setZoom", {R4(1.5f)}));
  EXPECT_EQ(1.5f, button.zoom());
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setSerial", {I8(0x123456789LL)}));
  EXPECT_EQ(0x123456789LL, button.serial());
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setShortcutKey", {UI2(0xBEEF)}));
  EXPECT_EQ(0xBEEF, button.shortcutKey());
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setMnemonic", {UI1('M')}));
  EXPECT_EQ('M', button.mnemonic());
  Result opacity, zoom, serial, key, mnemonic;
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_opacity", {}, &opacity.value));
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_zoom", {}, &zoom.value));
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_serial", {}, &serial.value));
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_shortcutKey", {}, &key.value));
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_mnemonic", {}, &mnemonic.value));
  EXPECT_EQ(0.25, V_R8(&opacity.value));
  EXPECT_EQ(1.5f, V_R4(&zoom.value));
  EXPECT_EQ(0x123456789LL, V_I8(&serial.value));
  EXPECT_EQ(0xBEEF, V_UI2(&key.value));
  EXPECT_EQ('M', V_UI1(&mnemonic.value));

  // Enumerations travel as their values.
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setAlignment", {I4(Sample::AlignBottom)}));
  EXPECT_EQ(Sample::AlignBottom, button.alignment());
  Result alignment;
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_alignment", {}, &alignment.value));
  EXPECT_EQ(Sample::AlignBottom, V_I4(&alignment.value));

  EXPECT_EQ(S_OK, CallByName(exposer, L"SAbstractButton_animateClick", {I4(75)}));
  EXPECT_EQ(75, button.lastAnimation());
  EXPECT_EQ(1, button.clickCount());
  EXPECT_EQ(0u, exposer->Release());
}

TEST_F(SampleTest, ExposersComposeTheirListedWrappers) {
  SPushButton push;
  SRadioButton radio;
  SFrame frame;
  IDispatch* pushExposer = Wrap(L"SPushButton", &push);
  IDispatch* radioExposer = Wrap(L"SRadioButton", &radio);
  IDispatch* frameExposer = Wrap(L"SFrame", &frame);
  ASSERT_TRUE(pushExposer && radioExposer && frameExposer);

  UINT count = 0;
  EXPECT_EQ(S_OK, pushExposer->GetTypeInfoCount(&count));
  EXPECT_EQ(3u, count);
  EXPECT_EQ(L"Iwrp_SWidget", InterfaceNameAt(pushExposer, 0));
  EXPECT_EQ(L"Iwrp_SAbstractButton", InterfaceNameAt(pushExposer, 1));
  EXPECT_EQ(L"Iwrp_SPushButton", InterfaceNameAt(pushExposer, 2));
  EXPECT_EQ(S_OK, CallByName(pushExposer, L"SPushButton_setDefault", {I4(1)}));
  EXPECT_TRUE(push.isDefault());
  EXPECT_EQ(S_OK, CallByName(pushExposer, L"SWidget_setContentsMargins", {I4(1), I4(2), I4(3), I4(4)}));
  int margins[4] = {};
  push.getContentsMargins(&margins[0], &margins[1], &margins[2], &margins[3]);
  EXPECT_EQ(4, margins[3]);

  // The radio button's list leaves SWidget out: its names stay unknown.
  EXPECT_EQ(S_OK, radioExposer->GetTypeInfoCount(&count));
  EXPECT_EQ(2u, count);
  EXPECT_EQ(L"Iwrp_SAbstractButton", InterfaceNameAt(radioExposer, 0));
  DISPID id = 0;
  EXPECT_EQ(DISP_E_UNKNOWNNAME, kwtest::IdOf(radioExposer, L"SWidget_isEnabled", &id));
  EXPECT_EQ(S_OK, CallByName(radioExposer, L"SAbstractButton_setChecked", {I4(1)}));
  EXPECT_TRUE(radio.isChecked());

  EXPECT_EQ(S_OK, frameExposer->GetTypeInfoCount(&count));
  EXPECT_EQ(2u, count);
  EXPECT_EQ(S_OK, CallByName(frameExposer, L"SFrame_setLineWidth", {I4(3)}));
  EXPECT_EQ(3, frame.lineWidth());

  EXPECT_EQ(0u, pushExposer->Release());
  EXPECT_EQ(0u, radioExposer->Release());
  EXPECT_EQ(0u, frameExposer->Release());
}

TEST_F(SampleTest, ValueResultsAreNewObjectsOverSeparateCopies) {
  SPushButton button;
  button.setText("Go");
  IDispatch* exposer = Wrap(L"SPushButton", &button);
  ASSERT_NE(nullptr, exposer);

  const int constructed = SString::constructions();
  Result first, second;
  ASSERT_EQ(S_OK, CallByName(exposer, L"SAbstractButton_text", {}, &first.value));
  ASSERT_EQ(S_OK, CallByName(exposer, L"SAbstractButton_text", {}, &second.value));
  ASSERT_NE(nullptr, first.object());
  ASSERT_NE(nullptr, second.object());
  EXPECT_NE(first.object(), second.object());
  EXPECT_NE(InstanceAs<SString>(first.object()), InstanceAs<SString>(second.object()));
  EXPECT_EQ("Go", TextOf(first.object()));
  // Each call copies the returned string once more onto the heap.
  EXPECT_GE(SString::constructions() - constructed, 4);

  // Changing a copy leaves the button alone.
  EXPECT_EQ(S_OK, CallByName(first.object(), L"SString_append", {BytesRef("!")}));
  EXPECT_EQ("Go!", TextOf(first.object()));
  EXPECT_STREQ("Go", button.text().data());

  // A class without a copy constructor is copied as bytes.
  button.setIconSize(SSize(24, 12));
  Result icon;
  ASSERT_EQ(S_OK, CallByName(exposer, L"SAbstractButton_iconSize", {}, &icon.value));
  SSize* iconSize = InstanceAs<SSize>(icon.object());
  ASSERT_NE(nullptr, iconSize);
  EXPECT_EQ(24, iconSize->width());
  EXPECT_EQ(12, iconSize->height());

  // Flags come back as an object and go back in by value.
  button.setWindowFlags(SFlags<Sample::WindowType>(Sample::Dialog));
  Result flags;
  ASSERT_EQ(S_OK, CallByName(exposer, L"SWidget_windowFlags", {}, &flags.value));
  ASSERT_NE(nullptr, flags.object());
  EXPECT_EQ(Sample::Dialog, InstanceAs<SFlags<Sample::WindowType>>(flags.object())->value());
  Result widened;
  ASSERT_EQ(S_OK, CallByName(flags.object(), L"SFlags_enum_Sample_WindowType__operator_OR",
                             {I4(Sample::StaysOnTopHint)}, &widened.value));
  EXPECT_EQ(Sample::Dialog | Sample::StaysOnTopHint, InstanceAs<SFlags<Sample::WindowType>>(widened.object())->value());
  EXPECT_EQ(Sample::Dialog, InstanceAs<SFlags<Sample::WindowType>>(flags.object())->value());
  SWidget other;
  IDispatch* otherExposer = Wrap(L"SWidget", &other);
  EXPECT_EQ(S_OK, CallByName(otherExposer, L"SWidget_setWindowFlags", {Object(widened.object())}));
  EXPECT_EQ(Sample::Dialog | Sample::StaysOnTopHint, other.windowFlags().value());
  Result hasHint;
  EXPECT_EQ(S_OK, CallByName(widened.object(), L"SFlags_enum_Sample_WindowType__testFlag", {I4(Sample::StaysOnTopHint)},
                             &hasHint.value));
  EXPECT_EQ(1, V_I4(&hasHint.value));
  // Members of the template instance that nothing instantiates are not there.
  DISPID unused = 0;
  EXPECT_EQ(DISP_E_UNKNOWNNAME, kwtest::IdOf(flags.object(), L"SFlags_enum_Sample_WindowType__operator_AND", &unused));

  EXPECT_EQ(0u, otherExposer->Release());
  EXPECT_EQ(0u, exposer->Release());
}

TEST_F(SampleTest, OperatorReturningItselfChangesTheBoundValueAndReturnsACopy) {
  SSize size(10, 20);
  SSize step(1, 2);
  IDispatch* sizeExposer = Wrap(L"SSize", &size);
  IDispatch* stepExposer = Wrap(L"SSize", &step);
  ASSERT_TRUE(sizeExposer && stepExposer);

  Result copy;
  ASSERT_EQ(S_OK, CallByName(sizeExposer, L"SSize_operator_MINUS_ASSIGMENT", {Object(stepExposer)}, &copy.value));
  EXPECT_EQ(9, size.width());
  EXPECT_EQ(18, size.height());
  SSize* copied = InstanceAs<SSize>(copy.object());
  ASSERT_NE(nullptr, copied);
  EXPECT_NE(&size, copied);
  EXPECT_TRUE(*copied == size);
  size.setWidth(100);
  EXPECT_EQ(9, copied->width());

  Result equal;
  ASSERT_EQ(S_OK, CallByName(sizeExposer, L"SSize_operator_EQUAL", {Object(copy.object())}, &equal.value));
  EXPECT_EQ(0, V_I4(&equal.value));
  EXPECT_EQ(S_OK, CallByName(sizeExposer, L"SSize_scale", {Object(stepExposer), I4(Sample::IgnoreAspect)}));
  EXPECT_EQ(1, size.width());
  EXPECT_EQ(2, size.height());

  EXPECT_EQ(0u, sizeExposer->Release());
  EXPECT_EQ(0u, stepExposer->Release());
}

TEST_F(SampleTest, ClassArgumentsComeThroughTheirProxies) {
  SPushButton button;
  button.setText("before");
  SString title("Title");
  SWidget parent;
  SButtonGroup group;
  IDispatch* exposer = Wrap(L"SPushButton", &button);
  IDispatch* titleExposer = Wrap(L"SString", &title);
  IDispatch* parentExposer = Wrap(L"SWidget", &parent);
  IDispatch* groupExposer = Wrap(L"SButtonGroup", &group);
  ASSERT_TRUE(exposer && titleExposer && parentExposer && groupExposer);

  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setWindowTitle", {Object(titleExposer)}));
  EXPECT_STREQ("Title", button.windowTitle().data());
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setParent", {Object(parentExposer)}));
  EXPECT_EQ(&parent, button.parentWidget());
  EXPECT_EQ(S_OK, CallByName(groupExposer, L"SButtonGroup_addButton", {Object(exposer)}));
  EXPECT_EQ(&group, button.group());

  // Pointer results are the objects themselves, not copies.
  Result groupResult, parentResult, member;
  ASSERT_EQ(S_OK, CallByName(exposer, L"SAbstractButton_group", {}, &groupResult.value));
  EXPECT_EQ(&group, InstanceAs<SButtonGroup>(groupResult.object()));
  ASSERT_EQ(S_OK, CallByName(exposer, L"SWidget_parentWidget", {}, &parentResult.value));
  EXPECT_EQ(&parent, InstanceAs<SWidget>(parentResult.object()));
  ASSERT_EQ(S_OK, CallByName(groupExposer, L"SButtonGroup_button", {I4(0)}, &member.value));
  EXPECT_EQ(static_cast<SAbstractButton*>(&button), InstanceAs<SAbstractButton>(member.object()));
  parent.addChild(&button, 5, 6);
  Result child;
  ASSERT_EQ(S_OK, CallByName(parentExposer, L"SWidget_childAt", {I4(5), I4(6)}, &child.value));
  EXPECT_EQ(static_cast<SWidget*>(&button), InstanceAs<SWidget>(child.object()));

  // An argument whose instance cannot be had: its HRESULT, and no call.
  RefusingArgument refusing;
  SCODE refused = 0;
  EXPECT_EQ(DISP_E_EXCEPTION, CallByName(exposer, L"SAbstractButton_setText", {Object(&refusing)}, nullptr, &refused));
  EXPECT_EQ(E_ACCESSDENIED, refused);
  EXPECT_EQ(1, refusing.proxy.calls);
  EXPECT_EQ(1, refusing.proxy.refs());
  EXPECT_STREQ("before", button.text().data());

  EXPECT_EQ(0u, groupExposer->Release());
  EXPECT_EQ(0u, parentExposer->Release());
  EXPECT_EQ(0u, titleExposer->Release());
  EXPECT_EQ(0u, exposer->Release());
}

TEST_F(SampleTest, InnerResultsGoToTheSinkWithTheStaticTypeName) {
  SPushButton button;
  IDispatch* exposer = Wrap(L"SPushButton", &button);
  ASSERT_NE(nullptr, exposer);
  kwtest::RecordingSink sink(E_ABORT);
  ASSERT_EQ(S_OK, host_.notificator()->SetDispatchSink(&sink));

  // group() of a button without a group: the null pointer goes on as it is.
  // The sink's answer is the member's HRESULT.
  Result group, text;
  SCODE groupResult = 0, textResult = 0;
  EXPECT_EQ(DISP_E_EXCEPTION, CallByName(exposer, L"SAbstractButton_group", {}, &group.value, &groupResult));
  EXPECT_EQ(DISP_E_EXCEPTION, CallByName(exposer, L"SAbstractButton_text", {}, &text.value, &textResult));
  EXPECT_EQ(E_ABORT, groupResult);
  EXPECT_EQ(E_ABORT, textResult);
  ASSERT_EQ(2u, sink.calls.size());
  EXPECT_EQ(L"SButtonGroup", sink.calls[0].typeName);
  EXPECT_EQ(nullptr, sink.calls[0].instance);
  EXPECT_EQ(nullptr, sink.calls[0].reserved);
  EXPECT_EQ(L"SString", sink.calls[1].typeName);
  EXPECT_NE(nullptr, sink.calls[1].instance);
  for (const kwtest::SinkCall& call : sink.calls)
    for (VARIANT_BOOL flag : call.flags) EXPECT_EQ(VARIANT_TRUE, flag);

  // The host's own requests do not pass the sink.
  SString value("x");
  IDispatch* direct = Wrap(L"SString", &value);
  EXPECT_NE(nullptr, direct);
  EXPECT_EQ(2u, sink.calls.size());
  if (direct != nullptr) direct->Release();

  EXPECT_EQ(S_OK, host_.notificator()->SetDispatchSink(nullptr));
  EXPECT_EQ(0u, exposer->Release());
}

TEST_F(SampleTest, StaticMembersIgnoreTheInstance) {
  SWidget widget;
  SString text("");
  IDispatch* widgetExposer = Wrap(L"SWidget", &widget);
  IDispatch* textExposer = Wrap(L"SString", &text);
  ASSERT_TRUE(widgetExposer && textExposer);

  Result instances;
  ASSERT_EQ(S_OK, CallByName(widgetExposer, L"SWidget_instances", {}, &instances.value));
  EXPECT_EQ(SWidget::instances(), V_I4(&instances.value));

  Result translated, plain;
  ASSERT_EQ(S_OK,
            CallByName(widgetExposer, L"SWidget_tr_2", {BytesRef("Open"), BytesRef("menu"), I4(3)}, &translated.value));
  EXPECT_EQ("Open [menu] #3", TextOf(translated.object()));
  ASSERT_EQ(S_OK, CallByName(widgetExposer, L"SWidget_tr", {BytesRef("Open"), BytesRef("")}, &plain.value));
  EXPECT_EQ("Open", TextOf(plain.object()));

  Result number;
  ASSERT_EQ(S_OK, CallByName(textExposer, L"SString_number", {R8(2.5), UI1('f'), I4(2)}, &number.value));
  EXPECT_EQ("2.50", TextOf(number.object()));
  EXPECT_STREQ("", text.data());

  EXPECT_EQ(0u, widgetExposer->Release());
  EXPECT_EQ(0u, textExposer->Release());
}

TEST_F(SampleTest, OutParametersWriteThroughTheHostsLocations) {
  SString number("2.5");
  SString hex("ff");
  IDispatch* numberExposer = Wrap(L"SString", &number);
  IDispatch* hexExposer = Wrap(L"SString", &hex);
  ASSERT_TRUE(numberExposer && hexExposer);

  // bool*: one byte is written, the other three stay as the host set them.
  LONG ok = static_cast<LONG>(0xFFFFFF00);
  Result value;
  ASSERT_EQ(S_OK, CallByName(numberExposer, L"SString_toDouble", {LongRef(&ok)}, &value.value));
  EXPECT_EQ(static_cast<LONG>(0xFFFFFF01), ok);
  EXPECT_EQ(2.5, V_R8(&value.value));
  LONG hexOk = 0x7F7F7F7F;
  Result parsed;
  ASSERT_EQ(S_OK, CallByName(hexExposer, L"SString_toInt", {LongRef(&hexOk), I4(16)}, &parsed.value));
  EXPECT_EQ(255, V_I4(&parsed.value));
  EXPECT_EQ(0x7F7F7F01, hexOk);
  for (int base : {1, -1, 37}) {  // bases strtol does not take: no conversion, no fault
    LONG refused = 0x7F7F7F7F;
    Result none;
    ASSERT_EQ(S_OK, CallByName(hexExposer, L"SString_toInt", {LongRef(&refused), I4(base)}, &none.value));
    EXPECT_EQ(0, V_I4(&none.value));
    EXPECT_EQ(0x7F7F7F00, refused) << base;
  }

  SWidget widget;
  widget.setContentsMargins(7, 8, 9, 10);
  IDispatch* widgetExposer = Wrap(L"SWidget", &widget);
  LONG margins[4] = {-1, -1, -1, -1};
  EXPECT_EQ(S_OK, CallByName(widgetExposer, L"SWidget_getContentsMargins",
                             {LongRef(&margins[0]), LongRef(&margins[1]), LongRef(&margins[2]), LongRef(&margins[3])}));
  EXPECT_EQ(7, margins[0]);
  EXPECT_EQ(10, margins[3]);

  EXPECT_EQ(0u, widgetExposer->Release());
  EXPECT_EQ(0u, numberExposer->Release());
  EXPECT_EQ(0u, hexExposer->Release());
}

TEST_F(SampleTest, FormatsAndArgumentLists) {
  SString text("old");
  SWidget widget;
  IDispatch* textExposer = Wrap(L"SString", &text);
  IDispatch* widgetExposer = Wrap(L"SWidget", &widget);
  ASSERT_TRUE(textExposer && widgetExposer);

  // Variadic functions get the format alone.
  Result rewritten;
  ASSERT_EQ(S_OK, CallByName(textExposer, L"SString_sprintf", {BytesRef("100%% plain")}, &rewritten.value));
  EXPECT_STREQ("100% plain", text.data());
  EXPECT_EQ("100% plain", TextOf(rewritten.object()));
  EXPECT_NE(&text, InstanceAs<SString>(rewritten.object()));
  Result written;
  ASSERT_EQ(S_OK, CallByName(widgetExposer, L"SWidget_logf", {BytesRef("logged")}, &written.value));
  EXPECT_EQ(6, V_I4(&written.value));
  EXPECT_STREQ("logged", widget.windowTitle().data());

  // A va_list travels as the pointer it is.
  ASSERT_EQ(S_OK, VsprintfThroughHost(textExposer, "a=%d b=%s", 7, "x"));
  EXPECT_STREQ("a=7 b=x", text.data());

  EXPECT_EQ(0u, textExposer->Release());
  EXPECT_EQ(0u, widgetExposer->Release());
}

TEST_F(SampleTest, DroppedOverloadKeepsItsNumberAndDestructorMemberDestroysInPlace) {
  auto* widget = new SWidget;
  IDispatch* exposer = Wrap(L"SWidget", widget);
  ASSERT_NE(nullptr, exposer);

  DISPID resize2 = 0, resize3 = 0, geometry = 0;
  EXPECT_EQ(S_OK, kwtest::IdOf(exposer, L"SWidget_resize_2", &resize2));
  EXPECT_EQ(DISP_E_UNKNOWNNAME, kwtest::IdOf(exposer, L"SWidget_resize_3", &resize3));
  EXPECT_EQ(S_OK, kwtest::IdOf(exposer, L"SWidget_setGeometry", &geometry));
  EXPECT_EQ(resize2 + 2, geometry);
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_resize_2", {I4(30), I4(40)}));
  EXPECT_EQ(30, widget->size().width());
  EXPECT_EQ(40, widget->size().height());

  const int before = SWidget::instances();
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_DTOR_SWidget", {}));
  EXPECT_EQ(before - 1, SWidget::instances());
  EXPECT_EQ(widget, kwtest::InstanceOf(exposer));
  EXPECT_EQ(0u, exposer->Release());
  ::operator delete(widget);  // the destructor ran; the memory is the test's
}

// The exposer's one-name lookup (a table per exposer class) answers exactly
// as asking each composed wrapper's type information in turn would: every
// member name in any case, IDispatch's own names, parameter names, unknown
// and non-ASCII names, and the route it records serves the next Invoke.
TEST_F(SampleTest, NameLookupAnswersAsTheInOrderSearch) {
  SPushButton button;
  IDispatch* exposer = Wrap(L"SPushButton", &button);
  ASSERT_NE(nullptr, exposer);
  UINT composed = 0;
  exposer->GetTypeInfoCount(&composed);
  std::vector<std::wstring> names = {L"QueryInterface",
                                     L"invoke",
                                     L"GetTypeInfoCount",
                                     L"Par0",
                                     L"RetPar",
                                     L"SWidget_",
                                     L"",
                                     L"SWidget_setEnabled ",
                                     L"SW\u00eddget_setEnabled"};
  kwtest::ForEachFunction(exposer, [&names](const std::wstring& name, const FUNCDESC&) {
    names.push_back(name);
    std::wstring swapped = name;
    for (wchar_t& c : swapped) c = static_cast<wchar_t>(iswupper(c) ? towlower(c) : towupper(c));
    names.push_back(swapped);
  });
  for (const std::wstring& name : names) {
    LPOLESTR asked = const_cast<LPOLESTR>(name.c_str());
    HRESULT expected = DISP_E_UNKNOWNNAME;
    DISPID expectedId = DISPID_UNKNOWN;
    for (UINT i = 0; i < composed && expected != S_OK; ++i) {
      ITypeInfo* info = nullptr;
      exposer->GetTypeInfo(i, 0, &info);
      if (info->GetIDsOfNames(&asked, 1, &expectedId) == S_OK) expected = S_OK;
      info->Release();
    }
    DISPID id = DISPID_UNKNOWN;
    EXPECT_EQ(expected, exposer->GetIDsOfNames(IID_NULL, &asked, 1, 0, &id)) << std::string(name.begin(), name.end());
    if (expected == S_OK) {
      EXPECT_EQ(expectedId, id) << std::string(name.begin(), name.end());
    }
  }
  // A name resolved in a lower case routes its Invoke to the wrapper that owns it.
  EXPECT_EQ(S_OK, CallByName(exposer, L"sabstractbutton_setchecked", {I4(1)}));
  EXPECT_TRUE(button.isChecked());
  EXPECT_EQ(0u, exposer->Release());
}
