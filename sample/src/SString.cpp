#include "kwsample/SString.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

int g_constructions = 0;

char* Duplicate(const char* text) {
  const size_t length = text != nullptr ? std::strlen(text) : 0;
  char* copy = new char[length + 1];
  if (length != 0) std::memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

}  // namespace

SString::SString() : m_text(Duplicate("")) { ++g_constructions; }
SString::SString(const char* text) : m_text(Duplicate(text)) { ++g_constructions; }
SString::SString(const SString& other) : m_text(Duplicate(other.m_text)) { ++g_constructions; }
SString::~SString() {
  delete[] m_text;
  m_text = nullptr;
}

SString& SString::operator=(const SString& other) {
  if (this != &other) {
    char* copy = Duplicate(other.m_text);
    delete[] m_text;
    m_text = copy;
  }
  return *this;
}

int SString::size() const { return static_cast<int>(std::strlen(m_text)); }
bool SString::isEmpty() const { return m_text[0] == '\0'; }
const char* SString::data() const { return m_text; }
char SString::at(int index) const { return index >= 0 && index < size() ? m_text[index] : '\0'; }

SString SString::toUpper() const {
  SString upper(*this);
  for (char* c = upper.m_text; *c != '\0'; ++c) *c = static_cast<char>(std::toupper(static_cast<unsigned char>(*c)));
  return upper;
}

SString& SString::append(const SString& other) { return append(other.m_text); }

SString& SString::append(const char* text) {
  const size_t mine = std::strlen(m_text);
  const size_t theirs = std::strlen(text);
  char* joined = new char[mine + theirs + 1];
  std::memcpy(joined, m_text, mine);
  std::memcpy(joined + mine, text, theirs + 1);
  delete[] m_text;
  m_text = joined;
  return *this;
}

int SString::toInt(bool* ok, int base) const {
  // strtol leaves `end` unset for a base it does not take.
  if (base != 0 && (base < 2 || base > 36)) {
    if (ok != nullptr) *ok = false;
    return 0;
  }
  char* end = nullptr;
  long value = std::strtol(m_text, &end, base);
  const bool converted = end != m_text && *end == '\0';
  if (ok != nullptr) *ok = converted;
  return converted ? static_cast<int>(value) : 0;
}

double SString::toDouble(bool* ok) const {
  char* end = nullptr;
  double value = std::strtod(m_text, &end);
  const bool converted = end != m_text && *end == '\0';
  if (ok != nullptr) *ok = converted;
  return converted ? value : 0.0;
}

bool SString::operator==(const SString& other) const { return std::strcmp(m_text, other.m_text) == 0; }
bool SString::operator!=(const SString& other) const { return !(*this == other); }
SString& SString::operator+=(const SString& other) { return append(other); }

SString& SString::sprintf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsprintf(format, arguments);
  va_end(arguments);
  return *this;
}

SString& SString::vsprintf(const char* format, va_list arguments) {
  char buffer[512];
  std::vsnprintf(buffer, sizeof buffer, format, arguments);
  *this = SString(buffer);
  return *this;
}

SString SString::number(int value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%d", value);
  return SString(buffer);
}

SString SString::number(double value, char format, int precision) {
  // Only the floating-point conversions: any other letter would make the
  // pattern read or write arguments that are not there.
  if (std::strchr("eEfgG", format) == nullptr || format == '\0') format = 'g';
  if (precision < 0 || precision > 40) precision = 6;
  char pattern[8] = {'%', '.', '*', format, '\0'};
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, pattern, precision, value);
  return SString(buffer);
}

int SString::constructions() { return g_constructions; }
