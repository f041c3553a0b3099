#include "wireless/wireless_association.h"

#include <algorithm>
#include <stdexcept>

#include "frame/clsids.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"

namespace zemo {
namespace {

constexpr uint32_t kAny = WirelessAssociationSet::kAny;
constexpr uint16_t kProbeRequest = 0xE0, kProbeResponse = 0xE1, kBeacon = 0xE2;

constexpr std::u16string_view kFieldNames[4] = {u"ESSIDIndex", u"BSSIDIndex", u"NodeIndex", u"Strength"};

ULONG* Fields(ZemoWirelessNodeAssociation& r) { return &r.ESSIDIndex; }
const ULONG* Fields(const ZemoWirelessNodeAssociation& r) { return &r.ESSIDIndex; }

}  // namespace

// --- the set ---

bool WirelessAssociationSet::Matches(const ZemoWirelessNodeAssociation& pattern,
                                     const ZemoWirelessNodeAssociation& r) noexcept {
  return (pattern.ESSIDIndex == kAny || pattern.ESSIDIndex == r.ESSIDIndex) &&
         (pattern.BSSIDIndex == kAny || pattern.BSSIDIndex == r.BSSIDIndex) &&
         (pattern.NodeIndex == kAny || pattern.NodeIndex == r.NodeIndex) &&
         (pattern.Strength == kAny || pattern.Strength == r.Strength);
}

void WirelessAssociationSet::File(int field, uint32_t value, uint64_t number) {
  if (field < 3 && value != kAny) m_index[field][value].push_back(number);
}

void WirelessAssociationSet::Unfile(int field, uint32_t value, uint64_t number) {
  if (field >= 3 || value == kAny) return;
  auto it = m_index[field].find(value);
  if (it == m_index[field].end()) return;
  Bucket& b = it->second;
  b.erase(std::find(b.begin(), b.end(), number));
  if (b.empty()) m_index[field].erase(it);
}

void WirelessAssociationSet::Candidates(const ZemoWirelessNodeAssociation& pattern) const {
  m_candidates.clear();
  const Bucket* rarest = nullptr;
  for (int f = 0; f < 3; ++f) {
    const uint32_t v = Fields(pattern)[f];
    if (v == kAny) continue;
    auto it = m_index[f].find(v);
    if (it == m_index[f].end()) return;  // no record holds that value
    if (!rarest || it->second.size() < rarest->size()) rarest = &it->second;
  }
  if (rarest) {
    m_candidates.assign(rarest->begin(), rarest->end());
  } else {
    for (const auto& [number, r] : m_records) m_candidates.push_back(number);
    std::sort(m_candidates.begin(), m_candidates.end());
  }
}

uint32_t WirelessAssociationSet::UpdateMatching(const ZemoWirelessNodeAssociation& pattern,
                                                const ZemoWirelessNodeAssociation& values) {
  Candidates(pattern);
  uint32_t matched = 0;
  for (uint64_t number : m_candidates) {
    ZemoWirelessNodeAssociation& r = m_records.find(number)->second;
    if (!Matches(pattern, r)) continue;
    ++matched;
    for (int f = 0; f < 4; ++f) {
      const uint32_t v = Fields(values)[f];
      if (v == kAny || v == Fields(r)[f]) continue;
      Unfile(f, Fields(r)[f], number);
      Fields(r)[f] = v;
      File(f, v, number);
      m_listValid = false;
    }
  }
  if (matched) ++m_changeCount;
  return matched;
}

bool WirelessAssociationSet::ContainsMatch(const ZemoWirelessNodeAssociation& pattern) const {
  Candidates(pattern);
  for (uint64_t number : m_candidates)
    if (Matches(pattern, m_records.find(number)->second)) return true;
  return false;
}

uint32_t WirelessAssociationSet::RemoveMatching(const ZemoWirelessNodeAssociation& pattern) {
  Candidates(pattern);
  uint32_t removed = 0;
  for (uint64_t number : m_candidates) {
    auto it = m_records.find(number);
    if (!Matches(pattern, it->second)) continue;
    for (int f = 0; f < 3; ++f) Unfile(f, Fields(it->second)[f], number);
    m_records.erase(it);
    ++removed;
  }
  if (removed) {
    ++m_changeCount;
    m_listValid = false;
  }
  return removed;
}

void WirelessAssociationSet::Clear() noexcept {
  m_records.clear();
  for (auto& index : m_index) index.clear();
  m_list.clear();
  m_listValid = true;
}

void WirelessAssociationSet::Append(const ZemoWirelessNodeAssociation& record) {
  if (m_records.size() + 1 >= kMaxRecords) throw std::length_error("association records");
  const uint64_t number = m_nextNumber++;
  m_records.emplace(number, record);
  for (int f = 0; f < 3; ++f) File(f, Fields(record)[f], number);
  m_listValid = false;
}

void WirelessAssociationSet::UpdateOrAdd(const ZemoWirelessNodeAssociation& pattern,
                                         const ZemoWirelessNodeAssociation& values) {
  if (UpdateMatching(pattern, values)) return;
  Append(values);
  ++m_changeCount;
}

const std::vector<ZemoWirelessNodeAssociation>& WirelessAssociationSet::Records() const {
  if (!m_listValid) {
    std::vector<uint64_t> numbers;
    numbers.reserve(m_records.size());
    for (const auto& [number, r] : m_records) numbers.push_back(number);
    std::sort(numbers.begin(), numbers.end());
    m_list.clear();
    m_list.reserve(numbers.size());
    for (uint64_t number : numbers) m_list.push_back(m_records.find(number)->second);
    m_listValid = true;
  }
  return m_list;
}

void WirelessAssociationSet::Save(IStream* stream) const {
  WriteValue(stream, static_cast<uint32_t>(m_records.size()));
  WriteRecords(stream, std::span<const ZemoWirelessNodeAssociation>(Records()));
}

// Read one at a time, so that a stream that ends early leaves what came.
void WirelessAssociationSet::Load(IStream* stream) {
  if (!stream) AtlThrow(E_POINTER);
  Clear();
  const auto count = ReadValue<uint32_t>(stream);
  for (uint32_t i = 0; i < count; ++i) Append(ReadValue<ZemoWirelessNodeAssociation>(stream));
}

void RecordAssociation(WirelessAssociationSet& set, uint32_t essid, uint32_t bssid, uint32_t node,
                       uint16_t frameKind) {
  if (node != kAny && bssid != kAny) {
    set.UpdateOrAdd({kAny, bssid, node, kAny}, {kAny, bssid, node, kStrengthFirm});
    set.RemoveMatching({kAny, kAny, node, kStrengthLoose});
  }
  if (essid == kAny) return;
  if (frameKind == kProbeRequest) {
    // A station with a firm tie gets no loose one.
    if (set.ContainsMatch({kAny, kAny, node, kStrengthFirm})) return;
    if (node == bssid)
      set.UpdateOrAdd({essid, bssid, kAny, kAny}, {essid, bssid, kAny, kStrengthLoose});
    else
      set.UpdateOrAdd({essid, kAny, node, kAny}, {essid, kAny, node, kStrengthLoose});
  } else if (frameKind == kProbeResponse || frameKind == kBeacon) {
    set.UpdateOrAdd({essid, bssid, kAny, kAny}, {essid, bssid, kAny, kStrengthFirm});
  }
}

// --- the component ---

HRESULT WirelessNodeAssociationTable::GetCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_set.Count();
  });
}

HRESULT WirelessNodeAssociationTable::GetAssociation(ULONG index, ZemoWirelessNodeAssociation* record) {
  return Locked([&] {
    CheckOut(record);
    if (index >= m_set.Count()) AtlThrow(E_INVALIDARG);
    *record = m_set.Records()[index];
  });
}

HRESULT WirelessNodeAssociationTable::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_WirelessNodeAssociationTable;
  });
}

HRESULT WirelessNodeAssociationTable::Load(IStream* stream) {
  return Locked([&] { m_set.Load(stream); });
}

HRESULT WirelessNodeAssociationTable::Save(IStream* stream, BOOL) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    m_set.Save(stream);
  });
}

void WirelessNodeAssociationTable::SaveXml(const WirelessAssociationSet& set, IUnknown* document, IUnknown* parent) {
  ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
  ComPtr<IXMLDOMNode> node = XmlNodeOf(parent);
  ComPtr<IXMLDOMElement> table = CreateChildElement(doc.Get(), node.Get(), u"WirelessNodeAssociationTable");
  for (const ZemoWirelessNodeAssociation& r : set.Records()) {
    ComPtr<IXMLDOMElement> e = CreateChildElement(doc.Get(), table.Get(), u"WirelessNodeAssociation");
    for (int f = 0; f < 4; ++f)
      if (Fields(r)[f] != kAny) SetChildText(doc.Get(), e.Get(), kFieldNames[f], static_cast<ULONG>(Fields(r)[f]));
  }
}

void WirelessNodeAssociationTable::LoadXml(WirelessAssociationSet& set, IUnknown* document, IUnknown* parent) {
  XmlDocumentOf(document);
  ComPtr<IXMLDOMNode> node = XmlNodeOf(parent);
  set.Clear();
  ComPtr<IXMLDOMElement> table = SelectXmlElement(node.Get(), u"WirelessNodeAssociationTable");
  if (!table) AtlThrow(E_FAIL);
  ForEachChildElement(table.Get(), [&](IXMLDOMElement* e) {
    if (XmlElementName(e) != u"WirelessNodeAssociation") return;
    ZemoWirelessNodeAssociation r{kAny, kAny, kAny, kAny};
    for (int f = 0; f < 4; ++f) {
      ULONG v = 0;
      if (GetChildText(e, kFieldNames[f], v)) Fields(r)[f] = v;
    }
    set.Append(r);
  });
}

HRESULT WirelessNodeAssociationTable::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] { LoadXml(m_set, document, node); });
}

HRESULT WirelessNodeAssociationTable::Save(IUnknown* document, IUnknown* node, BOOL) {
  return Locked([&] { SaveXml(m_set, document, node); });
}

HRESULT WirelessNodeAssociationTable::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&] {
    CheckExportExtension(fileName, kExportTxt);
    return WriteTextFile(fileName, FileOpenStyle::Runtime, [](TextWriter&) {});
  });
}

}  // namespace zemo
