// TTableTracker: a tracker of one record of a table statistic, keyed by the
// MediaSpec of an address or protocol: NodeStatsTracker (a NodeStats row)
// and ProtocolStatsTracker (a ProtocolStatsByID row). The key is found in
// the context's entity table once, its row then read by index on every
// update; the index stays found across Reset, as the row does in its table.
//
// Beyond TStatsTracker, the class gives kStatisticClsid (the statistic it
// samples, as the context keys it), kKeyElement (the child element of the
// key in its XML form), FindRow (the row of an entity: -1 while there is none,
// or raises) and ReadRow (a copy of a row).
#pragma once

#include "alarms/stats_tracker.h"
#include "identity/identity_interfaces.h"
#include "identity/media_specs.h"

namespace zemo {

template <class D, class IKey, class IStats, class Entry>
class TTableTracker : public TStatsTracker<D, IKey> {
 public:
  using Source = Entry;

  // The key interface.
  HRESULT GetKey(MediaSpec* key) override {
    return this->Locked([&] {
      CheckOut(key);
      *key = m_key;
    });
  }
  // A row already found stays: the key names the row only until it is found.
  HRESULT SetKey(MediaSpec key) override {
    return this->Locked([&] { m_key = key; });
  }
  HRESULT GetStatType(LONG* type) override {
    return this->Locked([&] {
      CheckOut(type);
      *type = this->m_stat;
    });
  }
  HRESULT SetStatType(LONG type) override {
    return this->Locked([&] { this->m_stat = type; });
  }

  HRESULT Bind(IZemoStatsContext* context) {
    return context->GetStats(D::kStatisticClsid, IidOf<IStats>(), m_statistic.OutVoid());
  }

  HRESULT Read(Entry& entry) {
    if (!m_statistic) return E_FAIL;  // never bound, or the context lacks the statistic
    ComPtr<IEntityTable> entities;
    CheckHr(m_statistic->GetEntityTable(entities.ReleaseAndGetAddressOf()));
    if (m_row == -1) {
      if (!entities) return E_FAIL;
      ULONG entity = kNoEntityId;
      CheckHr(entities->FindOrAdd(&m_key, 0, &entity));
      m_row = D::FindRow(m_statistic.Get(), entity);
    }
    return CheckHr(D::ReadRow(m_statistic.Get(), static_cast<ULONG>(m_row), &entry));
  }

  void CopyTo(IZemoStatsTracker* clone) {
    ComPtr<IKey> keyed = ComPtr<IZemoStatsTracker>(clone).template Query<IKey>();
    CheckHr(keyed->SetKey(m_key));
    CheckHr(keyed->SetStatType(this->m_stat));
  }

  void SaveXml(IXMLDOMDocument* document, IXMLDOMElement* element) {
    SetAttribute(element, u"stattype", this->m_stat);
    SetAttribute(element, u"history", this->History());
    ComPtr<IXMLDOMElement> key = CreateChildElement(document, element, D::kKeyElement);
    SaveSpecAttributes(key.Get(), m_key);
  }
  void LoadXml(IXMLDOMElement* element) {
    GetAttribute(element, u"stattype", this->m_stat);
    LONG history = 0;
    if (GetAttribute(element, u"history", history)) this->ApplyHistory(history);
    ComPtr<IXMLDOMElement> key = SelectXmlElement(element, D::kKeyElement);
    if (!key) AtlThrow(E_FAIL);
    m_key = LoadSpecAttributes(key.Get());
  }

 private:
  MediaSpec m_key{};
  ComPtr<IStats> m_statistic;
  LONG m_row = -1;
};

}  // namespace zemo
