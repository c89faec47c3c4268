// Common declarations of the sample object model: a small stand-in for an
// application's classes, used to prove the wrappers end to end.
#pragma once

#ifdef KWSAMPLE_BUILDING
#define KWSAMPLE_API __declspec(dllexport)
#else
#define KWSAMPLE_API __declspec(dllimport)
#endif

namespace Sample {

enum Alignment { AlignLeft = 0x1, AlignRight = 0x2, AlignHCenter = 0x4, AlignTop = 0x20, AlignBottom = 0x40 };
enum WindowType { Widget = 0x0, Window = 0x1, Dialog = 0x3, FramelessHint = 0x800, StaysOnTopHint = 0x40000 };
enum CheckState { Unchecked = 0, PartiallyChecked = 1, Checked = 2 };
enum AspectMode { IgnoreAspect, KeepAspect, KeepAspectExpanding };

}  // namespace Sample

// A set of flags of one enumeration, held as one 32-bit value (no user copy
// constructor: copies are plain bytes).
template <typename Enum>
class SFlags {
 public:
  SFlags() : m_value(0) {}
  SFlags(Enum flag) : m_value(flag) {}
  int value() const { return m_value; }
  bool testFlag(Enum flag) const { return (m_value & flag) == static_cast<int>(flag); }
  SFlags operator|(Enum flag) const { return fromInt(m_value | flag); }
  SFlags operator&(int mask) const { return fromInt(m_value & mask); }
  SFlags& operator|=(Enum flag) {
    m_value |= flag;
    return *this;
  }
  bool operator!() const { return m_value == 0; }

 private:
  static SFlags fromInt(int value) {
    SFlags flags;
    flags.m_value = value;
    return flags;
  }
  int m_value;
};
