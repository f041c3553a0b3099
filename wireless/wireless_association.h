// The association table: which station belongs to which access point and
// which network name, as far as the air shows it.
//
// WirelessAssociationSet is the flat list of 16-byte records (indexes into a
// node table) with its change count and the pattern operations; it knows
// nothing of packets. RecordAssociation is what one packet does to a set.
// WirelessNodeAssociationTable is the component that shows a set to a
// client and stores it (stream, XML, an empty text form).
//
// In a pattern 0xFFFFFFFF matches any value; in values it leaves the field
// as it is. The change count is the owners' cheap test of whether their
// count of networks must be made again.
#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "frame/persist_interfaces.h"
#include "platform/object.h"
#include "platform/stream.h"
#include "wireless/wireless_node_interfaces.h"

namespace zemo {

class WirelessAssociationSet {
 public:
  static constexpr uint32_t kAny = 0xFFFFFFFFu;
  // The array refuses to grow to this many records.
  static constexpr size_t kMaxRecords = 0xFFFFFFF;

  WirelessAssociationSet() = default;
  WirelessAssociationSet(const WirelessAssociationSet&) = delete;
  WirelessAssociationSet& operator=(const WirelessAssociationSet&) = delete;

  // Writes values into every match; the number of matches.
  uint32_t UpdateMatching(const ZemoWirelessNodeAssociation& pattern, const ZemoWirelessNodeAssociation& values);
  bool ContainsMatch(const ZemoWirelessNodeAssociation& pattern) const;
  // Removes every match; the number removed. The others keep their order.
  uint32_t RemoveMatching(const ZemoWirelessNodeAssociation& pattern);
  // UpdateMatching, or else appends values as they stand.
  void UpdateOrAdd(const ZemoWirelessNodeAssociation& pattern, const ZemoWirelessNodeAssociation& values);
  // Empties the list; the caller moves the change count.
  void Clear() noexcept;
  void Append(const ZemoWirelessNodeAssociation& record);

  uint32_t ChangeCount() const noexcept { return m_changeCount; }
  void SetChangeCount(uint32_t count) noexcept { m_changeCount = count; }
  void Touch() noexcept { ++m_changeCount; }
  uint32_t Count() const noexcept { return static_cast<uint32_t>(m_records.size()); }
  // The records in order of arrival, made again after a change.
  const std::vector<ZemoWirelessNodeAssociation>& Records() const;

  // The stream form: u32 count, the records. Load empties the list first and
  // keeps what it read when the stream ends early.
  void Save(IStream* stream) const;
  void Load(IStream* stream);

 private:
  // Records are numbered in order of arrival; each field that holds an
  // index files its record's number under that index, so that a pattern
  // visits only the records of its rarest given field, however many ties
  // the set holds.
  using Bucket = std::vector<uint64_t>;
  static bool Matches(const ZemoWirelessNodeAssociation& pattern, const ZemoWirelessNodeAssociation& r) noexcept;
  void File(int field, uint32_t value, uint64_t number);
  void Unfile(int field, uint32_t value, uint64_t number);
  // The numbers of the records a pattern may match, into m_candidates.
  void Candidates(const ZemoWirelessNodeAssociation& pattern) const;

  std::unordered_map<uint64_t, ZemoWirelessNodeAssociation> m_records;
  uint64_t m_nextNumber = 0;
  std::unordered_map<uint32_t, Bucket> m_index[3];  // by ESSID, BSSID and node index
  uint32_t m_changeCount = 0;
  mutable std::vector<uint64_t> m_candidates;
  mutable std::vector<ZemoWirelessNodeAssociation> m_list;
  mutable bool m_listValid = true;
};

// A packet's effect on the set: essid, bssid and node are record indexes
// (kAny when unknown), frameKind the packet's frame kind.
void RecordAssociation(WirelessAssociationSet& set, uint32_t essid, uint32_t bssid, uint32_t node, uint16_t frameKind);

class WirelessNodeAssociationTable final
    : public Object<WirelessNodeAssociationTable, IWirelessNodeAssociationTable, IPersistStream, IPersistXml,
                    IPersistFile> {
 public:
  HRESULT GetCount(ULONG* count) override;
  HRESULT GetAssociation(ULONG index, ZemoWirelessNodeAssociation* record) override;

  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override { return size ? E_NOTIMPL : E_POINTER; }

  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;

  // The text form is empty: a ".txt" path gives a file of length 0.
  HRESULT Load(LPCOLESTR, DWORD) override { return E_NOTIMPL; }
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;
  HRESULT SaveCompleted(LPCOLESTR) override { return S_OK; }
  HRESULT GetCurFile(LPOLESTR*) override { return E_NOTIMPL; }

  // The set itself, for the statistics that fill it under their own lock.
  WirelessAssociationSet& Set() noexcept { return m_set; }

  // The XML form of a set under parent, and its reading (E_FAIL raised when
  // parent holds no table).
  static void SaveXml(const WirelessAssociationSet& set, IUnknown* document, IUnknown* parent);
  static void LoadXml(WirelessAssociationSet& set, IUnknown* document, IUnknown* parent);

 private:
  WirelessAssociationSet m_set;
};

}  // namespace zemo
