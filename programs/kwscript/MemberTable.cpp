#include "kwscript/MemberTable.h"

#include <algorithm>
#include <cwctype>

namespace kwscript {

namespace {

// Compares a wide name with a narrow (ASCII) one: <0, 0, >0.
int CompareName(const wchar_t* wide, const char* narrow) {
  for (;; ++wide, ++narrow) {
    const int a = static_cast<unsigned short>(*wide), b = static_cast<unsigned char>(*narrow);
    if (a != b || a == 0) return a - b;
  }
}

bool SameIgnoringCase(const wchar_t* wide, const char* narrow) {
  for (;; ++wide, ++narrow) {
    if (std::towupper(*wide) != std::towupper(static_cast<unsigned char>(*narrow))) return false;
    if (*wide == L'\0') return true;
  }
}

}  // namespace

const InterfaceInfo* FindInterface(const wchar_t* name) {
  const InterfaceInfo* end = kInterfaces + kInterfaceCount;
  const InterfaceInfo* found =
      std::lower_bound(kInterfaces, end, name,
                       [](const InterfaceInfo& info, const wchar_t* key) { return CompareName(key, info.name) > 0; });
  return found != end && CompareName(name, found->name) == 0 ? found : nullptr;
}

const MemberInfo* FindMember(const InterfaceInfo& table, const wchar_t* name) {
  for (std::size_t i = 0; i < table.count; ++i)
    if (SameIgnoringCase(name, table.members[i].name)) return &table.members[i];
  return nullptr;
}

}  // namespace kwscript
