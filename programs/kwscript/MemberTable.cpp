#include "kwscript/MemberTable.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <cwctype>
#include <string>

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

// The interface of that name in one sorted table, or null.
const InterfaceInfo* FindIn(const InterfaceInfo* table, std::size_t count, const wchar_t* name) {
  const InterfaceInfo* end = table + count;
  const InterfaceInfo* found =
      std::lower_bound(table, end, name,
                       [](const InterfaceInfo& info, const wchar_t* key) { return CompareName(key, info.name) > 0; });
  return found != end && CompareName(name, found->name) == 0 ? found : nullptr;
}

}  // namespace

// The library's table first: an interface both sets have (a class the
// library only declares, such as QGraphicsView) has members in the second
// set's table only, since the library's lists wrapped interfaces alone.
const InterfaceInfo* FindInterface(const wchar_t* name) {
  if (const InterfaceInfo* found = FindIn(kInterfaces, kInterfaceCount, name)) return found;
  return FindIn(kMoreInterfaces, kMoreInterfaceCount, name);
}

const InterfaceInfo* FindInterfaceOfType(const char* typeName) {
  // Interface names spell the type name with every character that cannot
  // stand in an identifier as "_".
  std::wstring name = L"Iwrp_";
  for (const char* c = typeName; *c != '\0'; ++c)
    name += std::isalnum(static_cast<unsigned char>(*c)) ? static_cast<wchar_t>(*c) : L'_';
  return FindInterface(name.c_str());
}

std::vector<ChainLink> WholeChain(const InterfaceInfo& own, void* instance) {
  std::vector<ChainLink> chain;
  auto listed = [&](const char* typeName) {
    for (const ChainLink& link : chain)
      if (std::strcmp(link.typeName, typeName) == 0) return true;
    return std::strcmp(own.typeName, typeName) == 0;
  };
  for (std::size_t i = 0; i < own.baseCount; ++i)
    chain.push_back(ChainLink{own.bases[i].typeName, instance != nullptr ? own.bases[i].up(instance) : nullptr});
  for (std::size_t k = 0; k < chain.size(); ++k) {
    const InterfaceInfo* info = FindInterfaceOfType(chain[k].typeName);
    for (std::size_t i = 0; info != nullptr && i < info->baseCount; ++i)
      if (!listed(info->bases[i].typeName))
        chain.push_back(ChainLink{info->bases[i].typeName,
                                  chain[k].part != nullptr ? info->bases[i].up(chain[k].part) : nullptr});
  }
  return chain;
}

const MemberInfo* FindMember(const InterfaceInfo& table, const wchar_t* name) {
  for (std::size_t i = 0; i < table.count; ++i)
    if (SameIgnoringCase(name, table.members[i].name)) return &table.members[i];
  return nullptr;
}

}  // namespace kwscript
