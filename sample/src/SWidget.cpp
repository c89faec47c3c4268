#include "kwsample/SWidget.h"

#include <cstdio>

namespace {
int g_widgetInstances = 0;
}  // namespace

void SSize::scale(int width, int height, Sample::AspectMode mode) { scale(SSize(width, height), mode); }

void SSize::scale(const SSize& size, Sample::AspectMode mode) {
  if (mode == Sample::IgnoreAspect || m_width <= 0 || m_height <= 0) {
    *this = size;
    return;
  }
  // Largest (KeepAspect) or smallest (KeepAspectExpanding) size of this
  // aspect ratio within / around the given size.
  const long long byWidth = static_cast<long long>(size.m_width) * m_height / m_width;
  const bool fitWidth = (mode == Sample::KeepAspect) ? byWidth <= size.m_height : byWidth >= size.m_height;
  if (fitWidth) {
    *this = SSize(size.m_width, static_cast<int>(byWidth));
  } else {
    *this = SSize(static_cast<int>(static_cast<long long>(size.m_height) * m_width / m_height), size.m_height);
  }
}

SSize& SSize::operator*=(double factor) {
  m_width = static_cast<int>(m_width * factor + 0.5);
  m_height = static_cast<int>(m_height * factor + 0.5);
  return *this;
}

SObject::SObject(SObject* parent) : m_parent(parent) {}
SObject::~SObject() {}
SString SObject::objectName() const { return m_name; }
void SObject::setObjectName(const SString& name) { m_name = name; }

SWidget::SWidget(SWidget* parent)
    : SObject(parent),
      m_childCount(0),
      m_margins{0, 0, 0, 0},
      m_enabled(true),
      m_alignment(Sample::AlignLeft),
      m_opacity(1.0),
      m_zoom(1.0f),
      m_serial(0),
      m_key(0),
      m_mnemonic(0),
      m_userData(nullptr),
      m_number(++g_widgetInstances) {}

SWidget::~SWidget() { --g_widgetInstances; }

SWidget* SWidget::parentWidget() const { return static_cast<SWidget*>(m_parent); }
void SWidget::setParent(SWidget* parent) { m_parent = parent; }

void SWidget::addChild(SWidget* child, int x, int y) {
  if (m_childCount == 8) return;
  m_children[m_childCount] = child;
  m_childX[m_childCount] = x;
  m_childY[m_childCount] = y;
  ++m_childCount;
  child->setParent(this);
}

SWidget* SWidget::childAt(int x, int y) const {
  for (int i = 0; i < m_childCount; ++i)
    if (m_childX[i] == x && m_childY[i] == y) return m_children[i];
  return nullptr;
}

void SWidget::resize(void (*onResized)(int, int)) {
  if (onResized != nullptr) onResized(m_size.width(), m_size.height());
}

void SWidget::setGeometry(int, int, int width, int height) { m_size = SSize(width, height); }

void SWidget::getContentsMargins(int* left, int* top, int* right, int* bottom) const {
  if (left) *left = m_margins[0];
  if (top) *top = m_margins[1];
  if (right) *right = m_margins[2];
  if (bottom) *bottom = m_margins[3];
}

void SWidget::setContentsMargins(int left, int top, int right, int bottom) {
  m_margins[0] = left;
  m_margins[1] = top;
  m_margins[2] = right;
  m_margins[3] = bottom;
}

const char* SWidget::className() const { return "SWidget"; }
int SWidget::instanceNumber() const { return m_number; }
int SWidget::instances() { return g_widgetInstances; }

SString SWidget::tr(const char* text, const char* comment) { return tr(text, comment, -1); }

SString SWidget::tr(const char* text, const char* comment, int count) {
  SString result(text);
  if (comment != nullptr && *comment != '\0') result.append(" [").append(comment).append("]");
  if (count >= 0) result.append(" #").append(SString::number(count));
  return result;
}

int SWidget::logf(const char* format, ...) {
  char buffer[256];
  va_list arguments;
  va_start(arguments, format);
  int written = std::vsnprintf(buffer, sizeof buffer, format, arguments);
  va_end(arguments);
  m_title = SString(buffer);
  return written;
}

SAbstractButton::SAbstractButton(SWidget* parent)
    : SWidget(parent), m_checked(false), m_iconSize(16, 16), m_group(nullptr), m_clicks(0), m_lastAnimation(0) {}
SAbstractButton::~SAbstractButton() {}

void SAbstractButton::click() {
  ++m_clicks;
  nextCheckState();
}

void SAbstractButton::animateClick(int msec) {
  m_lastAnimation = msec;
  click();
}

void SAbstractButton::nextCheckState() { m_checked = !m_checked; }

void SButtonGroup::addButton(SAbstractButton* button) {
  if (m_count == 8) return;
  m_buttons[m_count++] = button;
  button->setGroup(this);
}

SAbstractButton* SButtonGroup::button(int index) const {
  return index >= 0 && index < m_count ? m_buttons[index] : nullptr;
}
