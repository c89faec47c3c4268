// The fixed list of type names a wrappers manager knows, in test order. Each
// catalogue DLL defines the list (generated from its catalogue data); an entry
// without a factory is a known name whose exposer the DLL does not carry.
#pragma once

#include <objbase.h>
#include <oaidl.h>

#include <cstddef>

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
