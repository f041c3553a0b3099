#include "engine/expert_stats.h"

#include "frame/stream_persist.h"
#include "frame/xml_persist.h"
#include "network/stat_rows.h"
#include "summary/summary_interfaces.h"

namespace zemo {
namespace {

// The XML names of the counts, in FrameFault bit order.
constexpr const char16_t* kNames[kFrameFaultKinds] = {u"Malformed", u"Truncated", u"UnknownLinkType", u"BadVersion",
                                                      u"CountedShort"};

}  // namespace

void ExpertStats::Count(uint32_t faults) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  for (size_t i = 0; i < kFrameFaultKinds; ++i)
    if (faults & (1u << i)) ++m_counts[i];
}

ExpertStats::Counts ExpertStats::Read() const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  return m_counts;
}

HRESULT ExpertStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] { HandOutContext(m_context, context); });
}

HRESULT ExpertStats::SetContext(IZemoStatsContext* context) {
  return Locked([&] { m_context = context; });
}

HRESULT ExpertStats::Reset() {
  return Locked([&] { m_counts = {}; });
}

HRESULT ExpertStats::UpdateSummaryStats(IUnknown* snapshot) {
  return Locked([&] {
    if (!snapshot) AtlThrow(E_POINTER);
    ComPtr<ISummaryStatsSnapshot> summary;
    CheckHr(snapshot->QueryInterface(ISummaryStatsSnapshot::iid, summary.OutVoid()));
    for (size_t i = 0; i < kFrameFaultKinds; ++i) {
      const SummaryStatValue value = SummaryCount(kSummaryPackets, m_counts[i]);
      CheckHr(summary->SetItem(expert_items::kFaults[i], expert_items::kGroup, nullptr, &value));
    }
  });
}

HRESULT ExpertStats::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_KorvantExpertStats;
  });
}

HRESULT ExpertStats::GetSizeMax(ULARGE_INTEGER*) { return E_NOTIMPL; }

HRESULT ExpertStats::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    if (ReadValue<ULONG>(stream) != kStreamVersion || ReadValue<ULONG>(stream) != kFrameFaultKinds) AtlThrow(E_FAIL);
    Counts counts{};
    ReadRecords(stream, std::span<uint64_t>(counts));
    m_counts = counts;
  });
}

HRESULT ExpertStats::Save(IStream* stream, BOOL) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    WriteValue(stream, kStreamVersion);
    WriteValue(stream, static_cast<ULONG>(kFrameFaultKinds));
    WriteRecords(stream, std::span<const uint64_t>(m_counts));
  });
}

HRESULT ExpertStats::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] {
    XmlDocumentOf(document);
    ComPtr<IXMLDOMElement> element = SelectXmlElement(XmlNodeOf(node).Get(), u"expertstats");
    if (!element) AtlThrow(E_FAIL);
    Counts counts{};
    for (size_t i = 0; i < kFrameFaultKinds; ++i)
      if (!GetChildText(element.Get(), kNames[i], counts[i])) AtlThrow(E_FAIL);
    m_counts = counts;
  });
}

HRESULT ExpertStats::Save(IUnknown* document, IUnknown* node, BOOL) {
  return Locked([&] {
    auto doc = XmlDocumentOf(document);
    auto parent = XmlNodeOf(node);
    ComPtr<IXMLDOMElement> element = CreateXmlElement(doc.Get(), u"expertstats");
    for (size_t i = 0; i < kFrameFaultKinds; ++i) SetChildText(doc.Get(), element.Get(), kNames[i], m_counts[i]);
    AppendXmlChild(parent.Get(), element.Get());
  });
}

}  // namespace zemo
