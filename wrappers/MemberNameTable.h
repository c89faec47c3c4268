// The member names an exposer class answers, resolved once per class and
// shared by all its objects: for each name, the first composed wrapper whose
// type information knows it (ITypeInfo's case-insensitive match) and the
// DISPID it has there. Each exposer class keeps one as a static member.
// Once built, lookups take no lock, one hash probe and allocate nothing.
#pragma once

#include <objbase.h>
#include <oaidl.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

class CMemberNameTable {
 public:
  enum class Lookup { kFound, kUnknown, kNotAnswered };

  // Looks `name` up for an exposer of this class; `typeInfoOf(index)` gives
  // its composed wrappers' type information (a reference added, null when
  // there is none), `count` how many there are. kNotAnswered: the table
  // cannot answer (no type information yet, or a name outside ASCII, which
  // ITypeInfo may fold otherwise); the caller searches in order instead.
  template <class TypeInfoOf>
  Lookup Find(const wchar_t* name, unsigned count, TypeInfoOf&& typeInfoOf, unsigned* index, DISPID* dispId) {
    if (!m_ready.load(std::memory_order_acquire) && !Build(count, typeInfoOf)) return Lookup::kNotAnswered;
    return FindBuilt(name, index, dispId);
  }

 private:
  struct Entry {
    std::wstring name;  // upper-cased
    unsigned index;     // composed wrapper that answers it first
    DISPID dispId;
  };

  // Fills the table from the composed wrappers, in composition order; false
  // (and nothing kept) when a wrapper has no type information.
  template <class TypeInfoOf>
  bool Build(unsigned count, TypeInfoOf& typeInfoOf) {
    std::vector<Entry> entries;
    for (unsigned index = 0; index < count; ++index) {
      ITypeInfo* info = typeInfoOf(index);
      if (info == nullptr) return false;
      bool read = AddNames(info, index, &entries);
      info->Release();
      if (!read) return false;
    }
    Publish(std::move(entries));
    return true;
  }
  static bool AddNames(ITypeInfo* info, unsigned index, std::vector<Entry>* entries);
  void Publish(std::vector<Entry> entries);
  Lookup FindBuilt(const wchar_t* name, unsigned* index, DISPID* dispId);

  SRWLOCK m_buildLock = SRWLOCK_INIT;  // one Publish at a time
  std::atomic<bool> m_ready{false};    // set once the two tables below are complete; they never change after
  std::vector<Entry> m_entries;        // first answer of each name, composition order
  std::vector<std::uint32_t> m_slots;  // open addressing over m_entries, 0: empty, else position + 1
};
