#include "engine/packet.h"

namespace zemo {
namespace {

template <class T>
HRESULT Give(T* out, const T& value) noexcept {
  if (!out) return E_POINTER;
  *out = value;
  return S_OK;
}

template <class T>
HRESULT GiveFlag(BOOL* out, T on) noexcept {
  return Give<BOOL>(out, on ? TRUE : FALSE);
}

template <class T>
void PutLe(BYTE* at, T value) noexcept {
  for (size_t i = 0; i < sizeof(T); ++i) at[i] = static_cast<BYTE>(static_cast<uint64_t>(value) >> (8 * i));
}

}  // namespace

void Packet::Clear() noexcept {
  m_s = Scalars{};
  m_hasAddress = 0;
  m_layerCount = 0;
  m_fieldCount = 0;
  m_headerFieldCount = 0;
}

void Packet::SetWirelessMediaInfo() noexcept {
  BYTE* b = m_mediaBlock;
  PutLe<ULONG>(b, kWirelessMediaInfoLength);
  PutLe<ULONG>(b + 4, kMediaKind80211);
  PutLe<USHORT>(b + 8, m_s.dataRate);
  PutLe<int16_t>(b + 10, m_s.channel.Channel);
  PutLe<uint32_t>(b + 12, m_s.channel.Frequency);
  PutLe<uint32_t>(b + 16, m_s.channel.Band);
  PutLe<uint32_t>(b + 20, 0);
  b[24] = m_s.signalPercent;
  b[25] = m_s.noisePercent;
  b[26] = static_cast<BYTE>(m_s.signalDbm);
  b[27] = static_cast<BYTE>(m_s.noiseDbm);
  SetMediaInfo(b, kWirelessMediaInfoLength);
}

// IPacket

HRESULT Packet::GetPacketData(const BYTE** data) { return Give(data, m_s.data); }

HRESULT Packet::GetMediaInfo(const BYTE** block, ULONG* length) {
  if (!block || !length) return E_POINTER;
  *block = m_s.mediaInfo;
  *length = m_s.mediaInfoLength;
  return S_OK;
}

HRESULT Packet::GetPacketClass(LONG* packetClass) { return Give(packetClass, m_s.packetClass); }
HRESULT Packet::GetPacketLength(USHORT* length) { return Give(length, m_s.packetLength); }
HRESULT Packet::GetSliceLength(USHORT* length) { return Give(length, m_s.sliceLength); }
HRESULT Packet::GetCaptureLength(USHORT* length) { return Give(length, m_s.captureLength); }
HRESULT Packet::GetFlags(ULONG* flags) { return Give(flags, m_s.flags); }
HRESULT Packet::GetTimeStamp(ZemoTime* time) { return Give(time, m_s.time); }
HRESULT Packet::GetFrameProtoSpecId(USHORT* id) { return Give(id, m_s.frameProtoSpecId); }
HRESULT Packet::GetProtoSpecId(ULONG* id) { return Give(id, m_s.protoSpecId); }
HRESULT Packet::TestStatus(ULONG mask, BOOL* set) { return GiveFlag(set, m_s.status & mask); }
HRESULT Packet::TestFlags(ULONG mask, BOOL* set) { return GiveFlag(set, m_s.flags & mask); }
HRESULT Packet::IsWireless(BOOL* yes) { return GiveFlag(yes, Is(kWireless)); }
HRESULT Packet::HasChannelNumber(BOOL* yes) { return GiveFlag(yes, Is(kHasChannel)); }
HRESULT Packet::HasLineNumber(BOOL* yes) { return GiveFlag(yes, Is(kHasLine)); }
HRESULT Packet::IsError(BOOL* yes) { return GiveFlag(yes, Is(kError)); }
HRESULT Packet::IsMulticast(BOOL* yes) { return GiveFlag(yes, Is(kMulticast)); }
HRESULT Packet::IsBroadcast(BOOL* yes) { return GiveFlag(yes, Is(kBroadcast)); }

// IPacketAddresses

HRESULT Packet::Address(PacketAddress which, MediaSpec* spec) const noexcept {
  if (!spec) return E_POINTER;
  if (!HasAddress(which)) return E_FAIL;
  *spec = m_addresses[size_t(which)];
  return S_OK;
}

HRESULT Packet::GetProtocol(MediaSpec* spec) { return Address(PacketAddress::kProtocol, spec); }
HRESULT Packet::GetPhysicalSource(MediaSpec* spec) { return Address(PacketAddress::kPhysicalSource, spec); }
HRESULT Packet::GetPhysicalDestination(MediaSpec* spec) { return Address(PacketAddress::kPhysicalDestination, spec); }
HRESULT Packet::GetLogicalSource(MediaSpec* spec) { return Address(PacketAddress::kLogicalSource, spec); }
HRESULT Packet::GetLogicalDestination(MediaSpec* spec) { return Address(PacketAddress::kLogicalDestination, spec); }
HRESULT Packet::GetBSSID(MediaSpec* spec) { return Address(PacketAddress::kBssid, spec); }
HRESULT Packet::GetWirelessReceiver(MediaSpec* spec) { return Address(PacketAddress::kWirelessReceiver, spec); }
HRESULT Packet::GetWirelessTransmitter(MediaSpec* spec) { return Address(PacketAddress::kWirelessTransmitter, spec); }

// IWirelessPacket

HRESULT Packet::GetChannel(SWirelessChannel* channel) { return Radio(channel, m_s.channel); }
HRESULT Packet::GetDataRate(USHORT* rate) { return Radio(rate, m_s.dataRate); }
HRESULT Packet::GetSignalPercent(BYTE* percent) { return Radio(percent, m_s.signalPercent); }
HRESULT Packet::GetSignalDBm(int8_t* dbm) { return Radio(dbm, m_s.signalDbm); }
HRESULT Packet::GetNoisePercent(BYTE* percent) { return Radio(percent, m_s.noisePercent); }
HRESULT Packet::GetNoiseDBm(int8_t* dbm) { return Radio(dbm, m_s.noiseDbm); }
HRESULT Packet::GetTransmitEncryption(LONG* kind) { return Radio(kind, m_s.transmitEncryption); }
HRESULT Packet::GetReceiveEncryption(LONG* kind) { return Radio(kind, m_s.receiveEncryption); }
HRESULT Packet::GetAuthentication(LONG* kind) { return Radio(kind, m_s.authentication); }


HRESULT Packet::GetWEPKeyIndex(BYTE* index) {
  if (!index) return E_POINTER;
  *index = 0;
  if (!Is(kWireless)) return E_FAIL;
  if (!Is(kHasWepKey)) return S_FALSE;
  *index = m_s.wepKeyIndex;
  return S_OK;
}

// IPacketFields

HRESULT Packet::GetLayers(ULONG* count, ZemoLayerReport* layers) {
  if (!count) return E_POINTER;
  ULONG n = m_layerCount < *count ? m_layerCount : *count;
  if (n && !layers) return E_POINTER;
  for (ULONG i = 0; i < n; ++i) layers[i] = m_layers[i];
  *count = n;
  return n < m_layerCount ? S_FALSE : S_OK;
}

HRESULT Packet::FindField(const Field* fields, ULONG count, ULONG id, const BYTE** data, USHORT* length) noexcept {
  if (!data || !length) return E_POINTER;
  *data = nullptr;
  *length = 0;
  for (ULONG i = 0; i < count; ++i) {
    if (fields[i].id == id) {
      *data = fields[i].data;
      *length = fields[i].length;
      return S_OK;
    }
  }
  return E_FAIL;
}

HRESULT Packet::GetFieldById(ULONG id, ULONG, const BYTE** data, USHORT* length) {
  return FindField(m_fields, m_fieldCount, id, data, length);
}

HRESULT Packet::GetHeaderFieldById(ULONG id, ULONG, const BYTE** data, USHORT* length) {
  return FindField(m_headerFields, m_headerFieldCount, id, data, length);
}

// IChannelPacket, ILinePacket

HRESULT Packet::GetChannelNumber(ULONG* number) {
  if (!number) return E_POINTER;
  if (!Is(kHasChannel)) return E_FAIL;
  *number = m_s.channelNumber;
  return S_OK;
}

HRESULT Packet::GetLineNumber(BYTE* number) {
  if (!number) return E_POINTER;
  if (!Is(kHasLine)) return E_FAIL;
  *number = m_s.lineNumber;
  return S_OK;
}

}  // namespace zemo
