// The fixed list of type names a wrappers manager knows, in test order. Each
// catalogue DLL defines the list (generated from its catalogue data); an entry
// without a factory is a known name whose exposer the DLL does not carry.
// An open-addressing index over the list finds a name in constant time.
#pragma once

#include <objbase.h>
#include <oaidl.h>

#include <cstddef>
#include <cstdint>

class CStaticWrappersManager;

// Creates the exposer of one type, binds it to `instance` and `manager`, and
// stores its IDispatch in `result`. Returns the creation or query HRESULT.
using ExposerFactory = HRESULT (*)(void* instance, CStaticWrappersManager* manager, IDispatch** result);

struct TypeNameTest {
  const char* typeName;  // as the compiler spells the type, narrow
  ExposerFactory createExposer;
};

extern const TypeNameTest g_typeNameChain[];
extern const std::size_t g_typeNameChainLength;

// Positions in g_typeNameChain, placed by TypeNameHash & g_typeNameSlotMask
// with linear probing; kEmptyTypeNameSlot marks a free slot. At most half full.
extern const std::uint16_t g_typeNameSlots[];
extern const std::size_t g_typeNameSlotMask;
constexpr std::uint16_t kEmptyTypeNameSlot = 0xFFFF;

// 32-bit FNV-1a over the UTF-16 code units of `name` (the generator hashes
// the known names the same way).
inline std::uint32_t TypeNameHash(const wchar_t* name) {
  std::uint32_t hash = 0x811C9DC5u;
  for (; *name != L'\0'; ++name) hash = (hash ^ static_cast<std::uint16_t>(*name)) * 0x01000193u;
  return hash;
}

// The entry whose name has exactly the code units of `name` (case and
// blanks count), or null. Allocates nothing.
const TypeNameTest* FindTypeName(const wchar_t* name);
