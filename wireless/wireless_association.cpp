#include "wireless/wireless_association.h"

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

uint32_t WirelessAssociationSet::UpdateMatching(const ZemoWirelessNodeAssociation& pattern,
                                                const ZemoWirelessNodeAssociation& values) {
  uint32_t matched = 0;
  for (ZemoWirelessNodeAssociation& r : m_records) {
    if (!Matches(pattern, r)) continue;
    ++matched;
    for (int f = 0; f < 4; ++f)
      if (Fields(values)[f] != kAny) Fields(r)[f] = Fields(values)[f];
  }
  if (matched) ++m_changeCount;
  return matched;
}

bool WirelessAssociationSet::ContainsMatch(const ZemoWirelessNodeAssociation& pattern) const noexcept {
  for (const ZemoWirelessNodeAssociation& r : m_records)
    if (Matches(pattern, r)) return true;
  return false;
}

uint32_t WirelessAssociationSet::RemoveMatching(const ZemoWirelessNodeAssociation& pattern) {
  uint32_t removed = 0;
  for (size_t i = m_records.size(); i-- > 0;)
    if (Matches(pattern, m_records[i])) {
      m_records.erase(m_records.begin() + static_cast<ptrdiff_t>(i));
      ++removed;
    }
  if (removed) ++m_changeCount;
  return removed;
}

// Capacity grows by half of itself, and at least by the record asked for.
void WirelessAssociationSet::Append(const ZemoWirelessNodeAssociation& record) {
  const size_t n = m_records.size();
  if (n + 1 >= kMaxRecords) throw std::length_error("association records");
  if (n == m_records.capacity()) m_records.reserve(std::min(kMaxRecords, std::max(n + 1, n + n / 2)));
  m_records.push_back(record);
}

void WirelessAssociationSet::UpdateOrAdd(const ZemoWirelessNodeAssociation& pattern,
                                         const ZemoWirelessNodeAssociation& values) {
  if (UpdateMatching(pattern, values)) return;
  Append(values);
  ++m_changeCount;
}

void WirelessAssociationSet::Save(IStream* stream) const {
  WriteValue(stream, static_cast<uint32_t>(m_records.size()));
  WriteRecords(stream, std::span<const ZemoWirelessNodeAssociation>(m_records));
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
