#include "wrappers/MemberNameTable.h"

#include <new>

namespace {

// Upper-cases an ASCII code unit; anything else is returned as it is.
inline wchar_t FoldAscii(wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - 32) : c; }

// FNV-1a over the folded code units of `name`; false when it holds a
// character outside ASCII.
bool FoldedHash(const wchar_t* name, std::uint32_t* hash) {
  std::uint32_t h = 0x811C9DC5u;
  for (; *name != L'\0'; ++name) {
    if (static_cast<std::uint16_t>(*name) > 0x7F) return false;
    h = (h ^ static_cast<std::uint16_t>(FoldAscii(*name))) * 0x01000193u;
  }
  *hash = h;
  return true;
}

bool SameFolded(const std::wstring& folded, const wchar_t* name) {
  std::size_t i = 0;
  for (; name[i] != L'\0'; ++i)
    if (i >= folded.size() || folded[i] != FoldAscii(name[i])) return false;
  return i == folded.size();
}

// Names of one type information, as ITypeInfo::GetIDsOfNames matches them:
// its functions, its variables, then the interfaces it derives from.
bool CollectNames(ITypeInfo* info, std::vector<std::pair<std::wstring, DISPID>>* names, int depth) {
  TYPEATTR* attr = nullptr;
  if (depth > 8 || FAILED(info->GetTypeAttr(&attr))) return false;
  const WORD functions = attr->cFuncs, variables = attr->cVars, bases = attr->cImplTypes;
  info->ReleaseTypeAttr(attr);
  auto addName = [&](MEMBERID id) {
    BSTR name = nullptr;
    UINT got = 0;
    if (FAILED(info->GetNames(id, &name, 1, &got)) || got == 0) return false;
    names->emplace_back(std::wstring(name, SysStringLen(name)), id);
    SysFreeString(name);
    return true;
  };
  for (UINT i = 0; i < functions; ++i) {
    FUNCDESC* function = nullptr;
    if (FAILED(info->GetFuncDesc(i, &function))) return false;
    MEMBERID id = function->memid;
    info->ReleaseFuncDesc(function);
    if (!addName(id)) return false;
  }
  for (UINT i = 0; i < variables; ++i) {
    VARDESC* variable = nullptr;
    if (FAILED(info->GetVarDesc(i, &variable))) return false;
    MEMBERID id = variable->memid;
    info->ReleaseVarDesc(variable);
    if (!addName(id)) return false;
  }
  for (UINT i = 0; i < bases; ++i) {
    HREFTYPE reference = 0;
    ITypeInfo* base = nullptr;
    if (FAILED(info->GetRefTypeOfImplType(i, &reference)) || FAILED(info->GetRefTypeInfo(reference, &base)))
      return false;
    bool read = CollectNames(base, names, depth + 1);
    base->Release();
    if (!read) return false;
  }
  return true;
}

}  // namespace

bool CMemberNameTable::AddNames(ITypeInfo* info, unsigned index, std::vector<Entry>* entries) {
  try {
    std::vector<std::pair<std::wstring, DISPID>> names;
    if (!CollectNames(info, &names, 0)) return false;
    for (auto& [name, id] : names) {
      for (wchar_t& c : name) c = FoldAscii(c);
      entries->push_back({std::move(name), index, id});
    }
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void CMemberNameTable::Publish(std::vector<Entry> entries) {
  AcquireSRWLockExclusive(&m_buildLock);
  if (!m_ready.load(std::memory_order_relaxed)) {
    try {
      std::size_t size = 16;
      while (size < 2 * entries.size()) size *= 2;
      std::vector<std::uint32_t> slots(size, 0);
      std::vector<Entry> kept;
      for (Entry& entry : entries) {
        std::uint32_t hash = 0;
        if (!FoldedHash(entry.name.c_str(), &hash)) continue;  // never matched by an ASCII name
        std::size_t slot = hash & (size - 1);
        bool seen = false;
        for (; slots[slot] != 0; slot = (slot + 1) & (size - 1))
          if (kept[slots[slot] - 1].name == entry.name) seen = true;  // an earlier class answers it
        if (seen) continue;
        kept.push_back(std::move(entry));
        slots[slot] = static_cast<std::uint32_t>(kept.size());
      }
      m_entries = std::move(kept);
      m_slots = std::move(slots);
      m_ready.store(true, std::memory_order_release);
    } catch (const std::bad_alloc&) {
    }
  }
  ReleaseSRWLockExclusive(&m_buildLock);
}

CMemberNameTable::Lookup CMemberNameTable::FindBuilt(const wchar_t* name, unsigned* index, DISPID* dispId) {
  std::uint32_t hash = 0;
  if (name == nullptr || !FoldedHash(name, &hash)) return Lookup::kNotAnswered;
  if (!m_ready.load(std::memory_order_acquire)) return Lookup::kNotAnswered;  // a build that ran out of memory
  const std::size_t mask = m_slots.size() - 1;
  for (std::size_t slot = hash & mask; m_slots[slot] != 0; slot = (slot + 1) & mask) {
    const Entry& entry = m_entries[m_slots[slot] - 1];
    if (SameFolded(entry.name, name)) {
      *index = entry.index;
      *dispId = entry.dispId;
      return Lookup::kFound;
    }
  }
  return Lookup::kUnknown;
}
