// The measurements both benchmark hosts make, over a subject each host sets
// up: the sample application's objects (bench_host.cpp) or real Qt objects
// (qt_bench.cpp).
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <functional>
#include <string>
#include <vector>

#include "com/Interfaces.h"

namespace kwbench {

// The type library of a wrappers DLL loaded from its file: the first load in
// the process, loads with nothing else holding it, and second loads while a
// first one is held (the platform's cache answers those).
struct TypeLibraryLoad {
  std::wstring dll;
  double firstNs = 0, freshNs = 0, heldNs = 0;
  HRESULT hr = E_FAIL;
};

// Made before the DLL is loaded or its type library used by anyone.
TypeLibraryLoad MeasureTypeLibraryLoad(const wchar_t* dll);

// One chain of type-name tests: a manager and its first, middle and last
// known names with an instance for each (an unknown name is added).
struct Chain {
  std::string label;
  IWrappersManager* manager;
  const wchar_t* names[3];
  void* instances[3];
};

// What the measurements run on.
struct Subject {
  std::string title;
  IWrappersManager* manager = nullptr;
  const wchar_t* buttonType = nullptr;  // a type name composing three wrappers
  void* button = nullptr;
  // A member of the first, second and third composed class; the first is a
  // scalar getter of the first class.
  const wchar_t* members[3] = {};
  const wchar_t* valueMember = nullptr;  // gives a new object over a copy
  // The dual interface of a wrapper of the first composed class compiled
  // into the host (bound to `button`), and the getter through its vtable.
  IUnknown* body = nullptr;
  std::function<void()> bodyVtableCall;
  std::vector<Chain> chains;
  TypeLibraryLoad typeLibrary;
  // Each thread's own object: its type name (composing one wrapper), a
  // scalar getter, how the thread makes and destroys it, and the dual
  // interface of that wrapper compiled into the host over it (a new reference).
  const wchar_t* threadType = nullptr;
  const wchar_t* threadMember = nullptr;
  std::function<void*()> newThreadObject;
  std::function<void(void*)> deleteThreadObject;
  std::function<IUnknown*(void*)> newThreadBody;
};

// Runs and prints the six sections, then the summary; false when the
// subject could not be set up as described.
bool RunSections(const Subject& subject);

}  // namespace kwbench
