#include "engine/capture_facts.h"

#include "summary/summary_interfaces.h"

namespace zemo {

void CaptureFacts::Set(const CaptureFactsData& facts) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_facts = facts;
}

CaptureFactsData CaptureFacts::Get() const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  return m_facts;
}

HRESULT CaptureFacts::UpdateSummaryStats(IUnknown* snapshot) {
  return Locked([&] {
    if (!snapshot) AtlThrow(E_POINTER);
    ComPtr<ISummaryStatsSnapshot> summary;
    CheckHr(snapshot->QueryInterface(ISummaryStatsSnapshot::iid, summary.OutVoid()));
    namespace items = capture_items;
    CheckHr(summary->AddGroup(items::kGroup, GUID_NULL));
    if (!m_facts.source.empty()) CheckHr(summary->SetLabel(items::kGroup, CBstr(m_facts.source).Get()));
    auto set = [&](const GUID& id, const SummaryStatValue& value, BSTR label = nullptr) {
      CheckHr(summary->SetItem(id, items::kGroup, label, &value));
    };
    const std::u16string linkLabel = u"Link type " + m_facts.linkTypeName;
    set(items::kLinkType, SummaryCount(kSummaryInt, m_facts.linkType),
        m_facts.linkTypeName.empty() ? nullptr : CBstr(linkLabel).Get());
    if (m_facts.linkSpeed) set(items::kLinkSpeed, SummaryCount(kSummaryInt, m_facts.linkSpeed));
    if (m_facts.fileSize) set(items::kFileSize, SummaryCount(kSummaryBytes, m_facts.fileSize));
    if (m_facts.haveReceived) set(items::kInterfaceReceived, SummaryCount(kSummaryPackets, m_facts.interfaceReceived));
  });
}

}  // namespace zemo
