// A text value with a user copy constructor (the heap copies of results go
// through it).
#pragma once

#include <cstdarg>

#include "kwsample/Global.h"

class KWSAMPLE_API SString {
 public:
  SString();
  SString(const char* text);
  SString(const SString& other);
  ~SString();
  SString& operator=(const SString& other);

  int size() const;
  bool isEmpty() const;
  const char* data() const;
  char at(int index) const;
  SString toUpper() const;
  SString& append(const SString& other);
  SString& append(const char* text);
  int toInt(bool* ok, int base) const;
  double toDouble(bool* ok) const;
  bool operator==(const SString& other) const;
  bool operator!=(const SString& other) const;
  SString& operator+=(const SString& other);
  SString& sprintf(const char* format, ...);
  SString& vsprintf(const char* format, va_list arguments);
  static SString number(int value);
  static SString number(double value, char format, int precision);
  // Counts every SString constructed so far (copies included).
  static int constructions();

 private:
  char* m_text;
};
