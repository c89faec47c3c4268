// A plain two-dimensional size: no user copy constructor.
#pragma once

#include "kwsample/Global.h"

class KWSAMPLE_API SSize {
 public:
  SSize() : m_width(-1), m_height(-1) {}
  SSize(int width, int height) : m_width(width), m_height(height) {}

  int width() const { return m_width; }
  int height() const { return m_height; }
  void setWidth(int width) { m_width = width; }
  void setHeight(int height) { m_height = height; }
  bool isValid() const { return m_width >= 0 && m_height >= 0; }
  int& rheight() { return m_height; }
  SSize transposed() const { return SSize(m_height, m_width); }
  void scale(int width, int height, Sample::AspectMode mode);
  void scale(const SSize& size, Sample::AspectMode mode);
  SSize& operator-=(const SSize& other) {
    m_width -= other.m_width;
    m_height -= other.m_height;
    return *this;
  }
  SSize& operator*=(double factor);
  bool operator==(const SSize& other) const { return m_width == other.m_width && m_height == other.m_height; }

 private:
  int m_width;
  int m_height;
};
