// AddressBook: a simple INameTable a host fills with names of addresses, to
// register on its site under kServiceNameTable.
#pragma once

#include <array>
#include <map>
#include <string_view>

#include "frame/engine_interfaces.h"
#include "platform/object.h"

inline constexpr char16_t kProgIdAddressBook[] = u"ZemoEngine.AddressBook";

namespace zemo {

class AddressBook final : public Object<AddressBook, INameTable, INameTableStamp> {
 public:
  // Adds the entry, or replaces the one of an equal spec. An empty name
  // gives E_INVALIDARG.
  HRESULT Add(const ZemoNameTableEntry& entry);
  // The same for a name alone; a name of more than 64 units gives E_INVALIDARG.
  HRESULT AddName(const MediaSpec& spec, std::u16string_view name, BYTE kind = 0, BYTE trust = 0);
  // S_FALSE if the book has no such entry.
  HRESULT Remove(const MediaSpec& spec);
  size_t Count() const;
  void Clear();

  HRESULT Lookup(const MediaSpec* spec, ZemoNameTableEntry* entry, BOOL* found) override;
  ULONG GetStamp() override;

 private:
  // Specs are equal when class, type, mask and the value over its length are.
  using Key = std::array<uint8_t, sizeof(MediaSpec)>;
  static Key KeyOf(const MediaSpec& spec);

  std::map<Key, ZemoNameTableEntry> m_entries;
  ULONG m_stamp = 0;
};

}  // namespace zemo
