#include "tables/protocol_stats.h"

#include "frame/selection.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"
#include "network/stat_rows.h"
#include "platform/class_store.h"
#include "platform/strings.h"
#include "tables/table_support.h"

namespace zemo {

namespace {

constexpr uint8_t kProtocolType = 9;
// Deeper than any protocol tree; a parent chain this long has a loop in it.
constexpr uint32_t kMaxTreeDepth = 64;

uint32_t SpecId(const MediaSpec& spec) noexcept {
  return uint32_t(spec.fData[0]) | uint32_t(spec.fData[1]) << 8 | uint32_t(spec.fData[2]) << 16 |
         uint32_t(spec.fData[3]) << 24;
}
void SetSpecId(MediaSpec& spec, uint32_t id) noexcept {
  for (int i = 0; i < 4; ++i) spec.fData[i] = static_cast<uint8_t>(id >> (8 * i));
}

constexpr TableColumn kColumns[] = {
    {u"Protocol", VT_BSTR}, {u"Packets", VT_UI8},  {u"Bytes", VT_UI8},
    {u"FirstTime", VT_UI8}, {u"LastTime", VT_UI8}, {u"EntityIndex", VT_UI4},
};

}  // namespace

// ---- construction ------------------------------------------------------------

template <class D, class... X>
HRESULT TProtocolStats<D, X...>::FinalConstruct() {
  CLSID clsid;
  HRESULT hr = CLSIDFromProgID(kProgIdProtoSpecs, &clsid);
  if (SUCCEEDED(hr))
    hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IProtoSpecs::iid, m_protoSpecs.OutVoid());
  return hr;
}

// ---- IProtocolStats ----------------------------------------------------------

template <class D, class... X>
HRESULT TProtocolStats<D, X...>::GetEntityTable(IEntityTable** table) {
  return this->EntityTableOut(table);
}

template <class D, class... X>
HRESULT TProtocolStats<D, X...>::GetProtocolCount(ULONG* count) {
  return this->RecordCount(count);
}

template <class D, class... X>
HRESULT TProtocolStats<D, X...>::GetProtocolIndex(ULONG entityIndex, ULONG* recordIndex) {
  return this->Locked([&]() -> HRESULT {
    CheckOut(recordIndex);
    *recordIndex = kNoRecord;
    *recordIndex = m_table.ChainFind(entityIndex);
    return *recordIndex != kNoRecord ? S_OK : S_FALSE;
  });
}

template <class D, class... X>
HRESULT TProtocolStats<D, X...>::GetProtocolEntry(ULONG recordIndex, ZemoProtocolStatEntry* entry) {
  return this->RecordEntry(recordIndex, entry);
}

// ---- records -----------------------------------------------------------------

template <class D, class... X>
uint32_t TProtocolStats<D, X...>::AddRecord(ULONG entity, uint32_t depth) {
  MediaSpec spec{};
  if (m_entities && depth < kMaxTreeDepth && SUCCEEDED(m_entities->GetEntity(entity, &spec, nullptr)) &&
      spec.fType == kProtocolType) {
    const uint32_t id = SpecId(spec);
    ULONG level = 0;
    CheckHr(m_protoSpecs->GetSpecLevel(id, &level));
    if (level > 1) {
      ULONG parent = 0;
      HRESULT hr = m_protoSpecs->GetParentSpec(id, &parent);
      // An answer without a number of its own stands for a grouping in the
      // tree; ProtocolStats climbs past it to a real protocol.
      if constexpr (D::kSkipNoIdParents) {
        for (uint32_t steps = 0; SUCCEEDED(hr) && (parent & 0xFFFF) == 0xFFFF; ++steps) {
          if (steps == kMaxTreeDepth) hr = E_FAIL;
          else hr = m_protoSpecs->GetParentSpec(parent, &parent);
        }
      }
      if (SUCCEEDED(hr) && parent != 0) {
        SetSpecId(spec, parent);
        ULONG parentEntity = kNoEntityId;
        if (SUCCEEDED(m_entities->FindOrAdd(&spec, 1, &parentEntity)) && m_table.Find(parentEntity) == kNoRecord)
          AddRecord(parentEntity, depth + 1);
      }
    }
  }
  return m_table.Add(entity);
}

template <class D, class... X>
ZemoProtocolStatEntry& TProtocolStats<D, X...>::FindOrAddForLoad(ULONG entity) {
  uint32_t i = m_table.Find(entity);
  return m_table[i != kNoRecord ? i : AddRecord(entity)];
}

template <class D, class... X>
HRESULT TProtocolStats<D, X...>::CountAt(ULONG entity, ZemoTime time, USHORT length) {
  uint32_t i = m_table.Find(entity);
  if (i == kNoRecord) {
    try {
      i = AddRecord(entity);
    } catch (const CAtlException& e) {
      return e.Status();
    }
  }
  CountProtocol(m_table[i].Stat, time, length);
  return S_OK;
}

// ---- IPersistFile ------------------------------------------------------------

template <class D, class... X>
HRESULT TProtocolStats<D, X...>::Save(LPCOLESTR fileName, BOOL) {
  return this->Locked([&]() -> HRESULT {
    return m_table.SaveExport(fileName, {FileOpenStyle::Runtime, true}, [&](TextWriter& out, const ZemoProtocolStatEntry& e) {
      // Only a protocol of the tree has a name; anything else prints empty.
      std::string name;
      MediaSpec spec{};
      CBstr text;
      if (m_entities && SUCCEEDED(m_entities->GetEntity(e.EntityIndex, &spec, nullptr)) &&
          spec.fType == kProtocolType && SUCCEEDED(m_protoSpecs->GetSpecName(SpecId(spec), text.Out())))
        name = text.Utf8();
      const ZemoProtocolStat& s = e.Stat;
      out.Printf("0x%8.8X\t0x%8.8X\t%s\t%llu\t%llu\t%llu\t%llu\n", e.EntityIndex, e.Next, name.c_str(),
                 static_cast<unsigned long long>(s.FirstTime), static_cast<unsigned long long>(s.LastTime),
                 static_cast<unsigned long long>(s.Packets), static_cast<unsigned long long>(s.Bytes));
    });
  });
}

// ---- ISelectableObject -------------------------------------------------------

template <class D, class... X>
HRESULT TProtocolStats<D, X...>::GetTable(IDataTable** table) {
  return this->Locked([&] {
    CheckOut(table);
    CEntityText names(m_entities.Get());
    MakeTable(table, kColumns);
    TableRows rows(*table);
    for (uint32_t i = 0, n = m_table.GetCount(); i < n; ++i) {
      const ZemoProtocolStatEntry& e = m_table[i];
      const ZemoProtocolStat& s = e.Stat;
      rows.Add({names.Of(e.EntityIndex), CVariant::UI8(s.Packets), CVariant::UI8(s.Bytes), CVariant::UI8(s.FirstTime),
                CVariant::UI8(s.LastTime), CVariant::UI4(e.EntityIndex)});
    }
  });
}

template class TProtocolStats<ProtocolStats>;
template class TProtocolStats<ProtocolStatsByID, IZemoStatsTrackerFactory>;

// ---- ProtocolStats -----------------------------------------------------------

HRESULT ProtocolStats::ProcessPacket(IPacket* packet) {
  return Locked([&]() -> HRESULT {
    if (HRESULT gate = LimitGate(); gate != S_OK) return gate;
    if (!packet) return E_INVALIDARG;
    if (!m_entities) return E_FAIL;

    PacketBasics basics;
    if (ReadPacketBasics(packet, basics) == S_FALSE) return S_FALSE;
    const ZemoTime time = basics.time;
    const USHORT length = basics.length;

    MediaSpec spec;
    spec.fClass = 0;
    spec.fType = 0;
    spec.fMask = 0;
    if (FAILED(basics.addresses->GetProtocol(&spec))) return S_OK;

    // The cache answers only after a successful find-or-add filled it, so
    // an all-zero spec never meets the empty cache's zeros.
    ULONG entity = kNoEntityId;
    if (m_lastEntity != kNoEntityId && SpecsEqual(spec, m_lastSpec)) {
      entity = m_lastEntity;
    } else {
      if (CheckHr(m_entities->FindOrAdd(&spec, 1, &entity)) == S_OK) {
        m_lastSpec = spec;
        m_lastEntity = entity;
      }
    }
    // A failed add leaves the packet uncounted, and is not the call's failure.
    CountAt(entity, time, length);
    return S_OK;
  });
}

// ---- ProtocolStatsByID -------------------------------------------------------

HRESULT ProtocolStatsByID::ProcessPacket(IPacket* packet) {
  return Locked([&]() -> HRESULT {
    if (!packet) return E_INVALIDARG;
    if (!m_entities) return E_FAIL;
    if (HRESULT gate = LimitGate(); gate != S_OK) return gate;

    BOOL wireless = FALSE;
    CheckHr(packet->IsWireless(&wireless));
    if (wireless) {
      BOOL error = FALSE;
      CheckHr(packet->IsError(&error));
      if (error) return S_FALSE;
    }
    ComPtr<IPacketAddresses> addresses;
    CheckHr(QueryTo(packet, &addresses));
    ZemoTime time = 0;
    USHORT length = 0;
    CheckHr(packet->GetTimeStamp(&time));
    CheckHr(packet->GetPacketLength(&length));

    MediaSpec spec;
    spec.fClass = 0;
    spec.fType = 0;
    spec.fMask = 0;
    CheckHr(addresses->GetProtocol(&spec));

    ULONG entity = kNoEntityId;
    if (spec.fType != kProtocolType) {
      CheckHr(m_entities->FindOrAdd(&spec, 1, &entity));
      return CountAt(entity, time, length);
    }

    ComPtr<IPacketFields> fields;
    CheckHr(QueryTo(packet, &fields));
    ZemoLayerReport layers[kLayerRoom];
    ULONG count = kLayerRoom;
    HRESULT hr = CheckHr(fields->GetLayers(&count, layers));
    if (count > kLayerRoom) count = kLayerRoom;  // a packet that claims more than it was given room for
    for (ULONG i = 0; i < count; ++i) {
      if (layers[i].ProtoSpecId == 0xFFFF) continue;
      SetSpecId(spec, layers[i].ProtoSpecId);
      CheckHr(m_entities->FindOrAdd(&spec, 1, &entity));
      hr = CountAt(entity, time, length);
    }
    return hr;
  });
}

HRESULT ProtocolStatsByID::CreateTracker(VARIANT description, IZemoStatsTracker** tracker) {
  return CreateKeyedTracker<IProtocolStatsTracker>(
      description, tracker, CLSID_ProtocolStatsTracker, [](IXMLDOMElement* root) {
        MediaSpec key = LoadSpecAttributes(root);
        if (key.fType != kProtocolType) AtlThrow(E_INVALIDARG);
        // A layer report carries 16 bits, so the key keeps only those.
        SetSpecId(key, SpecId(key) & 0xFFFF);
        return key;
      });
}

}  // namespace zemo
