// COMGlue::NameTable: the statistics' side of the host's address book (the
// INameTable a context's site offers). An address has the book's name when
// the book has an entry for it, else the host's text of the address.
#pragma once

#include <cstddef>

#include "frame/engine_interfaces.h"
#include "platform/unknown.h"

// An address book entry as the wireless node statistics keep it: the host's
// values in an order and width of their own.
struct ZemoNameEntry {
  MediaSpec Spec;
  WCHAR Name[64];         // empty: no entry
  ULONG HostValue3;       // the host's value at 300
  BYTE Reserved1[4];
  ULONGLONG HostValue1;   // at 292, widened
  ULONGLONG HostValue2;   // at 296, widened
  BYTE HostByte2;         // at 304
  BYTE Kind;              // at 308
  BYTE HostByte1;         // at 288
  BYTE Reserved2;         // zero
  BYTE Trust;             // at 312
  BYTE Reserved3[3];
};
static_assert(sizeof(ZemoNameEntry) == 192);
static_assert(offsetof(ZemoNameEntry, Name) == 32 && offsetof(ZemoNameEntry, HostValue3) == 160 &&
              offsetof(ZemoNameEntry, HostValue1) == 168 && offsetof(ZemoNameEntry, HostValue2) == 176 &&
              offsetof(ZemoNameEntry, HostByte2) == 184 && offsetof(ZemoNameEntry, Kind) == 185 &&
              offsetof(ZemoNameEntry, HostByte1) == 186 && offsetof(ZemoNameEntry, Trust) == 188);

namespace COMGlue {

// The wide characters of a name buffer.
inline constexpr size_t kNameChars = 64;

class NameTable {
 public:
  // table may be null. The host's ZemoCore.MediaUtils is created here; a
  // failure to create it is raised.
  explicit NameTable(INameTable* table);
  virtual ~NameTable();
  NameTable(const NameTable&) = delete;
  NameTable& operator=(const NameTable&) = delete;

  // With an entry: true, the entry's kNameChars characters in name (without
  // a terminating zero if all are used) and its host values at 300, 304 and
  // 308. Without one: false, the host's text of spec in name, cut to the
  // buffer and terminated, and zeros. Any out pointer may be null.
  virtual bool GetName(const MediaSpec* spec, WCHAR* name, ULONG* value, BYTE* byte, BYTE* kind);
  // True with the entry's fields; false, and zeros, without an entry.
  virtual bool GetEntry(const MediaSpec* spec, ZemoNameEntry* entry);
  // The book's change stamp; raises E_NOINTERFACE if it keeps none.
  virtual ULONG GetTableStamp();

 private:
  // The book's entry for spec; false without a book, on a failed lookup or
  // for an empty name.
  bool Lookup(const MediaSpec* spec, ZemoNameTableEntry& entry);

  zemo::ComPtr<INameTable> m_table;
  zemo::ComPtr<IMediaUtils> m_mediaUtils;
};

// The address book of a context's site: the context's IObjectWithSite, its
// site's IServiceProvider, and that one's kServiceNameTable. Null when any
// step of the way fails.
zemo::ComPtr<INameTable> AddressBookOf(IUnknown* context) noexcept;

}  // namespace COMGlue
