// Widgets of the sample object model.
#pragma once

#include "kwsample/SObject.h"
#include "kwsample/SSize.h"

class SButtonGroup;

class KWSAMPLE_API SWidget : public SObject {
 public:
  explicit SWidget(SWidget* parent = 0);
  ~SWidget() override;

  SWidget* parentWidget() const;
  void setParent(SWidget* parent);
  SWidget* childAt(int x, int y) const;
  void addChild(SWidget* child, int x, int y);

  bool isEnabled() const { return m_enabled; }
  void setEnabled(bool enabled) { m_enabled = enabled; }
  SSize size() const { return m_size; }
  void resize(const SSize& size) { m_size = size; }
  void resize(int width, int height) { m_size = SSize(width, height); }
  // Takes a callback, which has no automation form: the overload is dropped.
  void resize(void (*onResized)(int, int));
  void setGeometry(int x, int y, int width, int height);
  void getContentsMargins(int* left, int* top, int* right, int* bottom) const;
  void setContentsMargins(int left, int top, int right, int bottom);
  SString windowTitle() const { return m_title; }
  void setWindowTitle(const SString& title) { m_title = title; }
  SFlags<Sample::WindowType> windowFlags() const { return m_flags; }
  void setWindowFlags(SFlags<Sample::WindowType> flags) { m_flags = flags; }
  // Inline uses of the flags, as an application's headers have them: the
  // members of SFlags<Sample::WindowType> these instantiate are its wrapped ones.
  bool testWindowFlag(Sample::WindowType flag) const { return m_flags.testFlag(flag); }
  void addWindowFlag(Sample::WindowType flag) { m_flags |= flag; }
  SFlags<Sample::WindowType> windowFlagsWith(Sample::WindowType flag) const { return m_flags | flag; }
  bool hasWindowFlags() const { return !m_flags == false; }
  int windowFlagBits() const { return m_flags.value(); }
  Sample::Alignment alignment() const { return m_alignment; }
  void setAlignment(Sample::Alignment alignment) { m_alignment = alignment; }
  double opacity() const { return m_opacity; }
  void setOpacity(double opacity) { m_opacity = opacity; }
  float zoom() const { return m_zoom; }
  void setZoom(float zoom) { m_zoom = zoom; }
  long long serial() const { return m_serial; }
  void setSerial(long long serial) { m_serial = serial; }
  unsigned short shortcutKey() const { return m_key; }
  void setShortcutKey(unsigned short key) { m_key = key; }
  char mnemonic() const { return m_mnemonic; }
  void setMnemonic(char mnemonic) { m_mnemonic = mnemonic; }
  void* userData() const { return m_userData; }
  void setUserData(void* data) { m_userData = data; }
  const char* className() const;
  int instanceNumber() const;
  static int instances();
  static SString tr(const char* text, const char* comment);
  static SString tr(const char* text, const char* comment, int count);
  // printf-style: only the format reaches the widget through automation.
  int logf(const char* format, ...);

 private:
  SWidget* m_children[8];
  int m_childX[8];
  int m_childY[8];
  int m_childCount;
  int m_margins[4];
  bool m_enabled;
  SSize m_size;
  SString m_title;
  SFlags<Sample::WindowType> m_flags;
  Sample::Alignment m_alignment;
  double m_opacity;
  float m_zoom;
  long long m_serial;
  unsigned short m_key;
  char m_mnemonic;
  void* m_userData;
  int m_number;
};

class KWSAMPLE_API SFrame : public SWidget {
 public:
  explicit SFrame(SWidget* parent = 0) : SWidget(parent), m_lineWidth(1) {}
  int lineWidth() const { return m_lineWidth; }
  void setLineWidth(int width) { m_lineWidth = width; }

 private:
  int m_lineWidth;
};

class KWSAMPLE_API SAbstractButton : public SWidget {
 public:
  explicit SAbstractButton(SWidget* parent = 0);
  ~SAbstractButton() override;

  SString text() const { return m_text; }
  void setText(const SString& text) { m_text = text; }
  bool isChecked() const { return m_checked; }
  void setChecked(bool checked) { m_checked = checked; }
  Sample::CheckState checkState() const { return m_checked ? Sample::Checked : Sample::Unchecked; }
  SSize iconSize() const { return m_iconSize; }
  void setIconSize(const SSize& size) { m_iconSize = size; }
  SButtonGroup* group() const { return m_group; }
  void setGroup(SButtonGroup* group) { m_group = group; }
  int clickCount() const { return m_clicks; }
  void click();
  void animateClick(int msec);
  int lastAnimation() const { return m_lastAnimation; }

 protected:
  void nextCheckState();

 private:
  SString m_text;
  bool m_checked;
  SSize m_iconSize;
  SButtonGroup* m_group;
  int m_clicks;
  int m_lastAnimation;
};

class KWSAMPLE_API SPushButton : public SAbstractButton {
 public:
  explicit SPushButton(SWidget* parent = 0) : SAbstractButton(parent), m_default(false) {}
  bool isDefault() const { return m_default; }
  void setDefault(bool isDefault) { m_default = isDefault; }

 private:
  bool m_default;
};

class KWSAMPLE_API SRadioButton : public SAbstractButton {
 public:
  explicit SRadioButton(SWidget* parent = 0) : SAbstractButton(parent) {}
  bool isExclusive() const { return group() != 0; }
};

class KWSAMPLE_API SButtonGroup : public SObject {
 public:
  SButtonGroup() : m_count(0) {}
  void addButton(SAbstractButton* button);
  int buttonCount() const { return m_count; }
  SAbstractButton* button(int index) const;

 private:
  SAbstractButton* m_buttons[8];
  int m_count;
};
