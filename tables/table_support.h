// Small pieces the table statistics share beyond their record table: the
// readable text of an entity for result tables, the document element of a
// tracker description, what they read of a packet first, and the counts of
// entity types.
#pragma once

#include <deque>
#include <span>

#include "frame/engine_interfaces.h"
#include "frame/key_index.h"
#include "frame/packet.h"
#include "identity/identity_interfaces.h"
#include "platform/class_store.h"
#include "platform/object.h"
#include "platform/variant.h"
#include "platform/xml_dom.h"

namespace zemo {

// Entity identifiers as text, through the EntityTable and
// ZemoCore.MediaUtils; created once per result table, which names the same
// few entities over and over (a conversation table has three a row), so
// each entity is made text once.
class CEntityText {
 public:
  explicit CEntityText(IEntityTable* entities) : m_entities(entities) {
    CLSID clsid;
    CheckHr(CLSIDFromProgID(kProgIdMediaUtils, &clsid));
    CheckHr(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IMediaUtils::iid, m_media.OutVoid()));
  }

  // The entity's spec as text; an identifier the table does not know, or a
  // spec without a text form, gives an empty variant.
  const CVariant& Of(ULONG entity) {
    uint32_t i = m_known.Find(entity, CKeyIndex::AnyRecord{});
    if (i != CKeyIndex::kNone) return m_names[i];
    MediaSpec spec{};
    CBstr text;
    CVariant name;
    if (m_entities && SUCCEEDED(m_entities->GetEntity(entity, &spec, nullptr)) &&
        SUCCEEDED(m_media->SpecToString(&spec, text.Out())))
      name = CVariant::Str(text.View());
    m_known.Reserve();
    m_names.push_back(std::move(name));
    m_known.Insert(entity, static_cast<uint32_t>(m_names.size() - 1));
    return m_names.back();
  }

 private:
  IEntityTable* m_entities;  // the statistic's, held by it
  ComPtr<IMediaUtils> m_media;
  std::deque<CVariant> m_names;  // a deque, so that a name handed out stays put
  CKeyIndex m_known;  // an entity's place in m_names
};

// The document element of a tracker's description: a VT_UNKNOWN or
// VT_DISPATCH holding an XML document. Anything else is E_INVALIDARG, a
// document without an element E_FAIL.
inline HRESULT TrackerDescriptionRoot(const VARIANT& description, ComPtr<IXMLDOMElement>* root) {
  IUnknown* object = description.vt == VT_UNKNOWN    ? description.punkVal
                     : description.vt == VT_DISPATCH ? description.pdispVal
                                                     : nullptr;
  if (!object) return E_INVALIDARG;
  ComPtr<IXMLDOMDocument> document;
  CheckHr(QueryTo(object, &document));
  if (CheckHr(document->get_documentElement(root->ReleaseAndGetAddressOf())) != S_OK || !*root) return E_FAIL;
  return S_OK;
}

// What every table statistic reads of a packet first: its addresses, time
// and wire length. S_FALSE for a wireless packet with an error, which no
// table counts; failures raise.
struct PacketBasics {
  ComPtr<IPacketAddresses> addresses;
  ZemoTime time = 0;
  USHORT length = 0;
  BOOL wireless = FALSE;
};

inline HRESULT ReadPacketBasics(IPacket* packet, PacketBasics& out) {
  CheckHr(QueryTo(packet, &out.addresses));
  CheckHr(packet->GetTimeStamp(&out.time));
  CheckHr(packet->GetPacketLength(&out.length));
  CheckHr(packet->IsWireless(&out.wireless));
  if (out.wireless) {
    BOOL error = FALSE;
    CheckHr(packet->IsError(&error));
    if (error) return S_FALSE;
  }
  return S_OK;
}

// The four addresses of a node table in the order a packet is counted:
// sources before destinations, each destination two places behind the
// source of its layer. A getter that fails leaves its address absent
// (class and type 0).
enum NodeAddressSlot { kPhysicalSource, kLogicalSource, kPhysicalDestination, kLogicalDestination, kAddressSlots };

inline void ReadNodeAddresses(IPacketAddresses* addresses, MediaSpec (&spec)[kAddressSlots]) {
  static constexpr HRESULT (IPacketAddresses::*kGetters[kAddressSlots])(MediaSpec*) = {
      &IPacketAddresses::GetPhysicalSource, &IPacketAddresses::GetLogicalSource,
      &IPacketAddresses::GetPhysicalDestination, &IPacketAddresses::GetLogicalDestination};
  for (int slot = 0; slot < kAddressSlots; ++slot) {
    MediaSpec& s = spec[slot];
    s.fClass = 0;
    s.fType = 0;
    s.fMask = 0;
    if (FAILED((addresses->*kGetters[slot])(&s))) {
      s.fClass = 0;
      s.fType = 0;
    }
  }
}

// The entities of the addresses that the table already knows, kNoEntityId
// for the others; it finds only and adds nothing. A statistic asks for the
// records of all of them before counting any: in a large table each record
// is a trip to memory, and asked for together they arrive together.
inline void KnownEntities(IEntityTable* entities, const MediaSpec (&spec)[kAddressSlots],
                          ULONG (&ids)[kAddressSlots]) {
  for (int slot = 0; slot < kAddressSlots; ++slot)
    if (!IsValidSpec(spec[slot]) || FAILED(entities->FindOrAdd(&spec[slot], 0, &ids[slot]))) ids[slot] = kNoEntityId;
}

// The entity of an address: known, where an earlier find had it, else found
// or added now; a table that cannot hold it raises its failure.
inline ULONG EntityOf(IEntityTable* entities, const MediaSpec& spec, ULONG known) {
  if (known == kNoEntityId) CheckHr(entities->FindOrAdd(&spec, 1, &known));
  return known;
}

// The sum of the EntityTable's counts over types, asked in their order;
// no table raises E_FAIL.
inline void CountEntityTypes(IEntityTable* entities, std::span<const ULONG> types, ULONG* count) {
  CheckOut(count);
  if (!entities) AtlThrow(E_FAIL);
  ULONG sum = 0;
  for (ULONG type : types) {
    ULONG n = 0;
    CheckHr(entities->GetCount(type, &n));
    sum += n;
  }
  *count = sum;
}

}  // namespace zemo
