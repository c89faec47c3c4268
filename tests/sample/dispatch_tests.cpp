// The sample's wrappers DLL driven by member name through IDispatch, as a
// host drives it: what the sample objects receive, what comes back, and how
// the generated exposers compose their wrappers.
#include <gtest/gtest.h>

#include <cstdarg>
#include <functional>
#include <string>

#include "DispatchStress.h"
#include "HostTest.h"
#include "kwsample/SWidget.h"

using namespace kwtest;

namespace {

using WindowFlags = SFlags<Sample::WindowType>;

class SampleTest : public HostTest {
 protected:
  SampleTest() : HostTest(L"kwSampleWrappers.dll") {}
};

std::string TextOf(IDispatch* object) {
  SString* text = InstanceAs<SString>(object);
  return text != nullptr && text->data() != nullptr ? text->data() : "<null>";
}

// A class-typed argument whose instance cannot be had: it answers
// IkwInstanceProxy with a proxy that refuses, and no members.
class RefusingArgument : public HostObject<IDispatch> {
 public:
  struct Proxy : HostObject<IkwInstanceProxy> {
    Proxy() : HostObject(IID_IkwInstanceProxy) {}
    STDMETHOD(GetInstance)(void**) override {
      ++calls;
      return E_ACCESSDENIED;
    }
    int calls = 0;
  } proxy;
  RefusingArgument() : HostObject(IID_IDispatch) {}
  STDMETHOD(QueryInterface)(REFIID iid, void** ppv) override {
    if (ppv == nullptr || !IsEqualIID(iid, IID_IkwInstanceProxy)) return HostObject::QueryInterface(iid, ppv);
    proxy.AddRef();
    *ppv = static_cast<IkwInstanceProxy*>(&proxy);
    return S_OK;
  }
  STDMETHOD(GetTypeInfoCount)(UINT*) override { return E_NOTIMPL; }
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  STDMETHOD(Invoke)(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }
};

double AsDouble(const VARIANT& value) {
  VARIANT number;
  VariantInit(&number);
  return VariantChangeType(&number, const_cast<VARIANT*>(&value), 0, VT_R8) == S_OK ? V_R8(&number) : -1e300;
}

}  // namespace

// Each setter's argument reaches the button; each getter gives the value back
// with the VARTYPE of its declaration (bool: any non-zero is true, 1 comes back).
TEST_F(SampleTest, ScalarArgumentsReachTheObjectAndComeBack) {
  SPushButton button;
  Held exposer = Wrap(L"SPushButton", &button);
  const struct {
    const wchar_t* setter;
    VARIANT in;
    const wchar_t* getter;
    VARIANT out;
    std::function<bool()> received;
  } rows[] = {
      {L"SAbstractButton_setChecked", I4(2), L"SAbstractButton_isChecked", I4(1), [&] { return button.isChecked(); }},
      {L"SWidget_setEnabled", I4(0), L"SWidget_isEnabled", I4(0), [&] { return !button.isEnabled(); }},
      {L"SWidget_setOpacity", R8(0.25), L"SWidget_opacity", R8(0.25), [&] { return button.opacity() == 0.25; }},
      {L"SWidget_setZoom", R4(1.5f), L"SWidget_zoom", R4(1.5f), [&] { return button.zoom() == 1.5f; }},
      {L"SWidget_setSerial", I8(0x123456789LL), L"SWidget_serial", I8(0x123456789LL),
       [&] { return button.serial() == 0x123456789LL; }},
      {L"SWidget_setShortcutKey", UI2(0xBEEF), L"SWidget_shortcutKey", UI2(0xBEEF),
       [&] { return button.shortcutKey() == 0xBEEF; }},
      {L"SWidget_setMnemonic", UI1('M'), L"SWidget_mnemonic", UI1('M'), [&] { return button.mnemonic() == 'M'; }},
      {L"SWidget_setAlignment", I4(Sample::AlignBottom), L"SWidget_alignment", I4(Sample::AlignBottom),
       [&] { return button.alignment() == Sample::AlignBottom; }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(Narrow(row.setter));
    EXPECT_EQ(S_OK, CallByName(exposer, row.setter, {row.in}));
    EXPECT_TRUE(row.received());
    Result got = Get(exposer, row.getter);
    EXPECT_EQ(V_VT(&row.out), V_VT(&got.value));
    EXPECT_EQ(AsDouble(row.out), AsDouble(got.value));
  }
  EXPECT_EQ(Sample::Checked, IntOf(Get(exposer, L"SAbstractButton_checkState")));
  EXPECT_EQ(S_OK, CallByName(exposer, L"SAbstractButton_animateClick", {I4(75)}));
  EXPECT_EQ(75, button.lastAnimation());
  EXPECT_EQ(1, button.clickCount());
}

// An exposer answers the names of the wrappers its list composes (and no
// others) and routes each call to the wrapper that owns the name.
TEST_F(SampleTest, ExposersComposeTheirListedWrappers) {
  SPushButton push;
  SRadioButton radio;
  SFrame frame;
  Held pushExposer = Wrap(L"SPushButton", &push), radioExposer = Wrap(L"SRadioButton", &radio);
  Held frameExposer = Wrap(L"SFrame", &frame);
  using Names = std::vector<std::wstring>;
  EXPECT_EQ((Names{L"Iwrp_SWidget", L"Iwrp_SAbstractButton", L"Iwrp_SPushButton"}), ComposedInterfaces(pushExposer));
  EXPECT_EQ((Names{L"Iwrp_SAbstractButton", L"Iwrp_SRadioButton"}), ComposedInterfaces(radioExposer));
  EXPECT_EQ((Names{L"Iwrp_SWidget", L"Iwrp_SFrame"}), ComposedInterfaces(frameExposer));
  EXPECT_EQ(&radio, InstanceOf(radioExposer));

  EXPECT_EQ(S_OK, CallByName(pushExposer, L"SPushButton_setDefault", {I4(1)}));
  EXPECT_TRUE(push.isDefault());
  EXPECT_EQ(S_OK, CallByName(pushExposer, L"SWidget_setContentsMargins", {I4(1), I4(2), I4(3), I4(4)}));
  int margins[4] = {};
  push.getContentsMargins(&margins[0], &margins[1], &margins[2], &margins[3]);
  EXPECT_EQ(4, margins[3]);
  EXPECT_EQ(S_OK, CallByName(radioExposer, L"SAbstractButton_setChecked", {I4(1)}));
  EXPECT_TRUE(radio.isChecked());
  EXPECT_EQ(S_OK, CallByName(frameExposer, L"SFrame_setLineWidth", {I4(3)}));
  EXPECT_EQ(3, frame.lineWidth());
  // The radio button's list leaves SWidget out: its names stay unknown.
  DISPID id = 0;
  EXPECT_EQ(DISP_E_UNKNOWNNAME, IdOf(radioExposer, L"SWidget_isEnabled", &id));
}

TEST_F(SampleTest, ValueResultsAreNewObjectsOverSeparateCopies) {
  SPushButton button;
  button.setText("Go");
  Held exposer = Wrap(L"SPushButton", &button);

  const int constructed = SString::constructions();
  Result first = Get(exposer, L"SAbstractButton_text"), second = Get(exposer, L"SAbstractButton_text");
  ASSERT_TRUE(first.object() && second.object());
  EXPECT_NE(first.object(), second.object());
  EXPECT_NE(InstanceAs<SString>(first.object()), InstanceAs<SString>(second.object()));
  EXPECT_EQ("Go", TextOf(first.object()));
  EXPECT_GE(SString::constructions() - constructed, 4) << "each call copies the string once more onto the heap";
  EXPECT_EQ(S_OK, CallByName(first.object(), L"SString_append", {BytesRef("!")}));
  EXPECT_EQ("Go!", TextOf(first.object()));
  EXPECT_STREQ("Go", button.text().data()) << "changing a copy leaves the button alone";

  // A class without a copy constructor is copied as bytes.
  button.setIconSize(SSize(24, 12));
  SSize* iconSize = InstanceAs<SSize>(Get(exposer, L"SAbstractButton_iconSize").object());
  ASSERT_NE(nullptr, iconSize);
  EXPECT_TRUE(*iconSize == SSize(24, 12));

  // Flags come back as an object and go back in by value.
  button.setWindowFlags(WindowFlags(Sample::Dialog));
  Result flags = Get(exposer, L"SWidget_windowFlags");
  ASSERT_NE(nullptr, flags.object());
  EXPECT_EQ(Sample::Dialog, InstanceAs<WindowFlags>(flags.object())->value());
  Result widened = Get(flags.object(), L"SFlags_enum_Sample_WindowType__operator_OR", {I4(Sample::StaysOnTopHint)});
  EXPECT_EQ(Sample::Dialog | Sample::StaysOnTopHint, InstanceAs<WindowFlags>(widened.object())->value());
  EXPECT_EQ(Sample::Dialog, InstanceAs<WindowFlags>(flags.object())->value());
  SWidget other;
  Held otherExposer = Wrap(L"SWidget", &other);
  EXPECT_EQ(S_OK, CallByName(otherExposer, L"SWidget_setWindowFlags", {Object(widened.object())}));
  EXPECT_EQ(Sample::Dialog | Sample::StaysOnTopHint, other.windowFlags().value());
  EXPECT_EQ(1, IntOf(Get(widened.object(), L"SFlags_enum_Sample_WindowType__testFlag", {I4(Sample::StaysOnTopHint)})));
  // Members of the template instance that nothing instantiates are not there.
  DISPID unused = 0;
  EXPECT_EQ(DISP_E_UNKNOWNNAME, IdOf(flags.object(), L"SFlags_enum_Sample_WindowType__operator_AND", &unused));

  // An operator returning *this changes the bound value and gives a copy.
  SSize size(10, 20), step(1, 2);
  Held sizeExposer = Wrap(L"SSize", &size), stepExposer = Wrap(L"SSize", &step);
  Result copy = Get(sizeExposer, L"SSize_operator_MINUS_ASSIGMENT", {Object(stepExposer)});
  EXPECT_TRUE(size == SSize(9, 18));
  SSize* copied = InstanceAs<SSize>(copy.object());
  ASSERT_NE(nullptr, copied);
  EXPECT_NE(&size, copied);
  EXPECT_TRUE(*copied == SSize(9, 18));
  size.setWidth(100);
  EXPECT_EQ(9, copied->width());
  EXPECT_EQ(0, IntOf(Get(sizeExposer, L"SSize_operator_EQUAL", {Object(copy.object())})));
  EXPECT_EQ(S_OK, CallByName(sizeExposer, L"SSize_scale", {Object(stepExposer), I4(Sample::IgnoreAspect)}));
  EXPECT_TRUE(size == SSize(1, 2));
}

TEST_F(SampleTest, ClassArgumentsComeThroughTheirProxiesAndPointerResultsAreTheObjects) {
  SPushButton button;
  button.setText("before");
  SString title("Title");
  SWidget parent;
  SButtonGroup group;
  Held exposer = Wrap(L"SPushButton", &button), titleExposer = Wrap(L"SString", &title);
  Held parentExposer = Wrap(L"SWidget", &parent), groupExposer = Wrap(L"SButtonGroup", &group);

  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setWindowTitle", {Object(titleExposer)}));
  EXPECT_STREQ("Title", button.windowTitle().data());
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_setParent", {Object(parentExposer)}));
  EXPECT_EQ(&parent, button.parentWidget());
  EXPECT_EQ(S_OK, CallByName(groupExposer, L"SButtonGroup_addButton", {Object(exposer)}));
  EXPECT_EQ(&group, button.group());
  parent.addChild(&button, 5, 6);

  EXPECT_EQ(&group, InstanceAs<SButtonGroup>(Get(exposer, L"SAbstractButton_group").object()));
  EXPECT_EQ(&parent, InstanceAs<SWidget>(Get(exposer, L"SWidget_parentWidget").object()));
  EXPECT_EQ(static_cast<SAbstractButton*>(&button),
            InstanceAs<SAbstractButton>(Get(groupExposer, L"SButtonGroup_button", {I4(0)}).object()));
  EXPECT_EQ(static_cast<SWidget*>(&button),
            InstanceAs<SWidget>(Get(parentExposer, L"SWidget_childAt", {I4(5), I4(6)}).object()));

  // An argument whose instance cannot be had: its HRESULT, no call, and the
  // proxy's reference given back.
  RefusingArgument refusing;
  SCODE refused = 0;
  EXPECT_EQ(DISP_E_EXCEPTION, CallByName(exposer, L"SAbstractButton_setText", {Object(&refusing)}, nullptr, &refused));
  EXPECT_EQ(E_ACCESSDENIED, refused);
  EXPECT_EQ(1, refusing.proxy.calls);
  EXPECT_EQ(1, refusing.proxy.refs());
  EXPECT_STREQ("before", button.text().data());
}

// A pointer result reaches the sink even when null, under its static type
// name; the host's own requests never pass the sink.
TEST_F(SampleTest, InnerResultsGoToTheSinkButTheHostsOwnRequestsDoNot) {
  SPushButton button;
  Held exposer = Wrap(L"SPushButton", &button);
  RecordingSink sink(E_ABORT);
  ASSERT_EQ(S_OK, host_.notificator()->SetDispatchSink(&sink));
  EXPECT_EQ(DISP_E_EXCEPTION, CallByName(exposer, L"SAbstractButton_group", {}));
  ASSERT_EQ(1u, sink.calls.size());
  EXPECT_EQ(L"SButtonGroup", sink.calls[0].typeName);
  EXPECT_EQ(nullptr, sink.calls[0].instance);
  SString value("x");
  { Held direct = Wrap(L"SString", &value); }
  EXPECT_EQ(1u, sink.calls.size()) << "the host's own requests do not pass the sink";
  EXPECT_EQ(S_OK, host_.notificator()->SetDispatchSink(nullptr));
}

// Byte strings, formats, argument lists, static members and out-parameters.
TEST_F(SampleTest, TextFormatsStaticsAndOutParameters) {
  SWidget widget;
  SString text("old"), number("2.5"), hex("ff");
  Held widgetExposer = Wrap(L"SWidget", &widget), textExposer = Wrap(L"SString", &text);
  Held numberExposer = Wrap(L"SString", &number), hexExposer = Wrap(L"SString", &hex);

  // Static members ignore the instance.
  EXPECT_EQ(SWidget::instances(), IntOf(Get(widgetExposer, L"SWidget_instances")));
  EXPECT_EQ("Open [menu] #3",
            TextOf(Get(widgetExposer, L"SWidget_tr_2", {BytesRef("Open"), BytesRef("menu"), I4(3)}).object()));
  EXPECT_EQ("Open", TextOf(Get(widgetExposer, L"SWidget_tr", {BytesRef("Open"), BytesRef("")}).object()));
  EXPECT_EQ("2.50", TextOf(Get(textExposer, L"SString_number", {R8(2.5), UI1('f'), I4(2)}).object()));
  EXPECT_STREQ("old", text.data());

  // Variadic functions get the format alone; a va_list travels as the pointer it is.
  Result rewritten = Get(textExposer, L"SString_sprintf", {BytesRef("100%% plain")});
  EXPECT_STREQ("100% plain", text.data());
  EXPECT_EQ("100% plain", TextOf(rewritten.object()));
  EXPECT_NE(&text, InstanceAs<SString>(rewritten.object()));
  EXPECT_EQ(6, IntOf(Get(widgetExposer, L"SWidget_logf", {BytesRef("logged")})));
  EXPECT_STREQ("logged", widget.windowTitle().data());
  ASSERT_EQ(S_OK, kwhost::CallWithArgumentList(textExposer, L"SString_vsprintf", "a=%d b=%s", 7, "x"));
  EXPECT_STREQ("a=7 b=x", text.data());

  // bool*: one byte is written, the other three stay as the host set them.
  LONG ok = static_cast<LONG>(0xFFFFFF00);
  EXPECT_EQ(2.5, RealOf(Get(numberExposer, L"SString_toDouble", {LongRef(&ok)})));
  EXPECT_EQ(static_cast<LONG>(0xFFFFFF01), ok);
  const struct {
    int base, value;
    LONG ok;
  } bases[] = {{16, 255, 0x7F7F7F01}, {1, 0, 0x7F7F7F00}, {-1, 0, 0x7F7F7F00}, {37, 0, 0x7F7F7F00}};
  for (const auto& row : bases) {
    LONG hexOk = 0x7F7F7F7F;
    EXPECT_EQ(row.value, IntOf(Get(hexExposer, L"SString_toInt", {LongRef(&hexOk), I4(row.base)}))) << row.base;
    EXPECT_EQ(row.ok, hexOk) << row.base;
  }
  widget.setContentsMargins(7, 8, 9, 10);
  LONG margins[4] = {-1, -1, -1, -1};
  EXPECT_EQ(S_OK, CallByName(widgetExposer, L"SWidget_getContentsMargins",
                             {LongRef(&margins[0]), LongRef(&margins[1]), LongRef(&margins[2]), LongRef(&margins[3])}));
  EXPECT_EQ((std::vector<LONG>{7, 8, 9, 10}), std::vector<LONG>(margins, margins + 4));
}

// The destructor member runs the destructor in place; the memory stays the host's.
TEST_F(SampleTest, DestructorMemberDestroysInPlace) {
  auto* widget = new SWidget;
  Held exposer = Wrap(L"SWidget", widget);
  const int before = SWidget::instances();
  EXPECT_EQ(S_OK, CallByName(exposer, L"SWidget_DTOR_SWidget", {}));
  EXPECT_EQ(before - 1, SWidget::instances());
  EXPECT_EQ(widget, InstanceOf(exposer));
  ::operator delete(widget);  // the destructor ran; the memory is the test's
}

// The exposer's one-name lookup answers exactly as asking each composed
// wrapper's type information in turn: every member name in any case,
// IDispatch's own names, parameter names, unknown and non-ASCII names; the
// route it records serves the next Invoke.
TEST_F(SampleTest, NameLookupAnswersAsTheInOrderSearch) {
  SPushButton button;
  Held exposer = Wrap(L"SPushButton", &button);
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
  ForEachFunction(exposer, [&names](const std::wstring& name, const FUNCDESC&) {
    names.push_back(name);
    std::wstring swapped = name;
    for (wchar_t& c : swapped) c = static_cast<wchar_t>(iswupper(c) ? towlower(c) : towupper(c));
    names.push_back(swapped);
  });
  for (const std::wstring& name : names) {
    LPOLESTR asked = const_cast<LPOLESTR>(name.c_str());
    HRESULT expected = DISP_E_UNKNOWNNAME;
    DISPID expectedId = DISPID_UNKNOWN, id = DISPID_UNKNOWN;
    for (UINT i = 0; i < composed && expected != S_OK; ++i) {
      ITypeInfo* info = nullptr;
      exposer->GetTypeInfo(i, 0, &info);
      if (info->GetIDsOfNames(&asked, 1, &expectedId) == S_OK) expected = S_OK;
      info->Release();
    }
    EXPECT_EQ(expected, exposer->GetIDsOfNames(IID_NULL, &asked, 1, 0, &id)) << Narrow(name);
    if (expected == S_OK) {
      EXPECT_EQ(expectedId, id) << Narrow(name);
    }
  }
  EXPECT_EQ(S_OK, CallByName(exposer, L"sabstractbutton_setchecked", {I4(1)}));
  EXPECT_TRUE(button.isChecked());
}
