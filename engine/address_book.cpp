#include "engine/address_book.h"

#include <cstring>

#include "engine/spec_values.h"

namespace zemo {

AddressBook::Key AddressBook::KeyOf(const MediaSpec& spec) {
  Key k{};
  k[0] = spec.fClass;
  k[1] = spec.fType;
  std::memcpy(&k[4], &spec.fMask, sizeof spec.fMask);
  std::memcpy(&k[8], spec.fData, specs::Length(spec.fType));
  return k;
}

HRESULT AddressBook::Add(const ZemoNameTableEntry& entry) {
  return Locked([&] {
    if (entry.Name[0] == 0) AtlThrow(E_INVALIDARG);
    m_entries[KeyOf(entry.Spec)] = entry;
    ++m_stamp;
  });
}

HRESULT AddressBook::AddName(const MediaSpec& spec, std::u16string_view name, BYTE kind, BYTE trust) {
  return Locked([&] {
    ZemoNameTableEntry entry{};
    if (name.empty() || name.size() > std::size(entry.Name)) AtlThrow(E_INVALIDARG);
    entry.Spec = spec;
    std::memcpy(entry.Name, name.data(), name.size() * sizeof(WCHAR));
    entry.Kind = kind;
    entry.Trust = trust;
    m_entries[KeyOf(spec)] = entry;
    ++m_stamp;
  });
}

HRESULT AddressBook::Remove(const MediaSpec& spec) {
  return Locked([&] {
    if (m_entries.erase(KeyOf(spec)) == 0) return S_FALSE;
    ++m_stamp;
    return S_OK;
  });
}

size_t AddressBook::Count() const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  return m_entries.size();
}

void AddressBook::Clear() {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_entries.clear();
  ++m_stamp;
}

HRESULT AddressBook::Lookup(const MediaSpec* spec, ZemoNameTableEntry* entry, BOOL* found) {
  return Locked([&] {
    CheckOut(found);
    CheckOut(entry);
    *found = FALSE;
    *entry = ZemoNameTableEntry{};
    if (!spec) AtlThrow(E_POINTER);
    auto it = m_entries.find(KeyOf(*spec));
    if (it == m_entries.end()) return;
    *entry = it->second;
    *found = TRUE;
  });
}

ULONG AddressBook::GetStamp() {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  return m_stamp;
}

}  // namespace zemo
