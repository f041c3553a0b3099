#include "frame/name_table.h"

#include <algorithm>
#include <cstring>

#include "platform/class_store.h"
#include "platform/exception.h"
#include "platform/strings.h"

namespace COMGlue {


NameTable::NameTable(INameTable* table) : m_table(table) {
  CLSID clsid;
  CheckHr(CLSIDFromProgID(kProgIdMediaUtils, &clsid));
  CheckHr(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IMediaUtils::iid, m_mediaUtils.OutVoid()));
}

NameTable::~NameTable() = default;

bool NameTable::Lookup(const MediaSpec* spec, ZemoNameTableEntry& entry) {
  if (!spec) AtlThrow(E_POINTER);
  entry = ZemoNameTableEntry{};
  BOOL found = FALSE;
  return m_table && SUCCEEDED(m_table->Lookup(spec, &entry, &found)) && entry.Name[0] != 0;
}

bool NameTable::GetName(const MediaSpec* spec, WCHAR* name, ULONG* value, BYTE* byte, BYTE* kind) {
  ZemoNameTableEntry entry;
  const bool found = Lookup(spec, entry);
  if (value) *value = entry.HostValue3;
  if (byte) *byte = entry.HostByte2;
  if (kind) *kind = entry.Kind;
  if (!name) return found;
  if (found) {
    std::memcpy(name, entry.Name, sizeof entry.Name);
    return true;
  }
  zemo::CBstr text;
  CheckHr(m_mediaUtils->SpecToString(spec, text.Out()));
  const size_t n = std::min<size_t>(text.Length(), kNameChars - 1);
  std::copy_n(text.View().data(), n, name);
  name[n] = 0;
  return false;
}

bool NameTable::GetEntry(const MediaSpec* spec, ZemoNameEntry* entry) {
  if (!entry) AtlThrow(E_POINTER);
  ZemoNameTableEntry from;
  const bool found = Lookup(spec, from);
  *entry = ZemoNameEntry{};
  if (!found) return false;
  entry->Spec = from.Spec;
  std::memcpy(entry->Name, from.Name, sizeof from.Name);
  entry->HostValue3 = from.HostValue3;
  entry->HostValue1 = from.HostValue1;
  entry->HostValue2 = from.HostValue2;
  entry->HostByte2 = from.HostByte2;
  entry->Kind = from.Kind;
  entry->HostByte1 = from.HostByte1;
  entry->Trust = from.Trust;
  return true;
}

ULONG NameTable::GetTableStamp() {
  zemo::ComPtr<INameTableStamp> stamp;
  if (!m_table || FAILED(m_table->QueryInterface(INameTableStamp::iid, stamp.OutVoid()))) AtlThrow(E_NOINTERFACE);
  return stamp->GetStamp();
}

zemo::ComPtr<INameTable> AddressBookOf(IUnknown* context) noexcept {
  zemo::ComPtr<INameTable> book;
  if (!context) return book;
  zemo::ComPtr<IObjectWithSite> withSite;
  zemo::ComPtr<IServiceProvider> services;
  if (FAILED(context->QueryInterface(IObjectWithSite::iid, withSite.OutVoid())) || !withSite ||
      FAILED(withSite->GetSite(IServiceProvider::iid, services.OutVoid())) || !services ||
      FAILED(services->QueryService(kServiceNameTable, INameTable::iid, book.OutVoid())))
    book = nullptr;
  return book;
}

}  // namespace COMGlue
