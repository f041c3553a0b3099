// Packet: the host's packet object. A capture host decodes a frame, fills one
// Packet with what it found and hands it to the statistics; the same object
// is cleared and filled again for the next frame.
//
// No locks: a packet belongs to the one thread that fills it and passes it
// down for one call, and the statistics only read it during that call. Every
// getter is a few loads and stores, and nothing here allocates after Create().
// The packet refers to the host's frame bytes and media block; it copies
// neither, so they must outlive the call.
#pragma once

#include "frame/packet.h"
#include "platform/object.h"

namespace zemo {

// The addresses a packet may carry, in the order of IPacketAddresses.
enum class PacketAddress : uint8_t {
  kProtocol,
  kPhysicalSource,
  kPhysicalDestination,
  kLogicalSource,
  kLogicalDestination,
  kBssid,
  kWirelessReceiver,
  kWirelessTransmitter,
};
inline constexpr size_t kPacketAddressCount = 8;

// The 802.11 media block that SetWirelessMediaInfo builds, as the wireless
// statistics read it: u32 block length, u32 medium kind (6: 802.11), then the
// radio readings.
inline constexpr ULONG kMediaKind80211 = 6;
inline constexpr ULONG kWirelessMediaInfoLength = 28;

class Packet final : public Object<Packet, IPacket, IPacketAddresses, IWirelessPacket, IPacketFields, IChannelPacket,
                                   ILinePacket> {
 public:
  // A packet goes from the thread that fills it to the one that hands it to
  // the engine, and a statistic holds a reference only within its packet
  // call: one thread at a time references it.
  static constexpr bool kReferencedByOneThread = true;

  static constexpr ULONG kMaxLayers = 64;
  static constexpr ULONG kMaxFields = 16;  // of each kind

  Packet() = default;

  // Back to an empty packet: no data, no addresses, no layers, no radio
  // readings (-127 dBm), protocol identifiers 0xFFFF.
  void Clear() noexcept;

  // Asks the processor to bring in what the statistics read of a packet
  // (its header, scalars, addresses and first layers): for a host that
  // decoded it on another core and will hand it to the engine soon.
  void Prefetch() const noexcept {
    const auto* first = reinterpret_cast<const char*>(this);
    const auto* last = reinterpret_cast<const char*>(&m_layers[4]);
    for (const char* p = first; p < last; p += 64) __builtin_prefetch(p);
  }

  // Filling. Lengths beyond 65535 are cut to 65535.
  void SetData(const BYTE* data, ULONG captureLength) noexcept {
    m_s.data = data;
    m_s.captureLength = Cut(captureLength);
  }
  void SetPacketLength(ULONG length) noexcept { m_s.packetLength = Cut(length); }
  void SetSliceLength(ULONG length) noexcept { m_s.sliceLength = Cut(length); }
  void SetTimeStamp(ZemoTime time) noexcept { m_s.time = time; }
  void SetFlags(ULONG flags) noexcept { m_s.flags = flags; }
  void SetStatus(ULONG status) noexcept { m_s.status = status; }
  void SetPacketClass(LONG packetClass) noexcept { m_s.packetClass = packetClass; }
  void SetProtoSpecId(ULONG id) noexcept { m_s.protoSpecId = id; }
  void SetFrameProtoSpecId(USHORT id) noexcept { m_s.frameProtoSpecId = id; }
  void SetMediaInfo(const BYTE* block, ULONG length) noexcept {
    m_s.mediaInfo = block;
    m_s.mediaInfoLength = length;
  }
  void SetError(bool on) noexcept { SetBit(kError, on); }
  void SetMulticast(bool on) noexcept { SetBit(kMulticast, on); }
  void SetBroadcast(bool on) noexcept { SetBit(kBroadcast, on); }

  void SetAddress(PacketAddress which, const MediaSpec& spec) noexcept {
    m_addresses[size_t(which)] = spec;
    m_hasAddress |= uint8_t(1u << size_t(which));
  }
  void RemoveAddress(PacketAddress which) noexcept { m_hasAddress &= uint8_t(~(1u << size_t(which))); }
  bool HasAddress(PacketAddress which) const noexcept { return m_hasAddress >> size_t(which) & 1; }

  // Radio readings; they mark the packet as an 802.11 frame.
  void SetWireless(bool on) noexcept { SetBit(kWireless, on); }
  void SetChannel(const SWirelessChannel& channel) noexcept { m_s.channel = channel; }
  void SetDataRate(USHORT halfMegabits) noexcept { m_s.dataRate = halfMegabits; }
  void SetSignal(BYTE percent, int8_t dbm) noexcept {
    m_s.signalPercent = percent;
    m_s.signalDbm = dbm;
  }
  void SetNoise(BYTE percent, int8_t dbm) noexcept {
    m_s.noisePercent = percent;
    m_s.noiseDbm = dbm;
  }
  void SetSecurity(LONG transmitEncryption, LONG receiveEncryption, LONG authentication) noexcept {
    m_s.transmitEncryption = transmitEncryption;
    m_s.receiveEncryption = receiveEncryption;
    m_s.authentication = authentication;
  }
  void SetWEPKeyIndex(BYTE index) noexcept {
    m_s.wepKeyIndex = index;
    SetBit(kHasWepKey, true);
  }
  // Writes the 802.11 media block from the radio readings into the packet's
  // own room and makes it the packet's media block.
  void SetWirelessMediaInfo() noexcept;

  void SetChannelNumber(ULONG number) noexcept {
    m_s.channelNumber = number;
    SetBit(kHasChannel, true);
  }
  void SetLineNumber(BYTE number) noexcept {
    m_s.lineNumber = number;
    SetBit(kHasLine, true);
  }

  // Appends a layer, outermost first; false when all 64 are taken.
  bool AddLayer(const ZemoLayerReport& layer) noexcept {
    if (m_layerCount == kMaxLayers) return false;
    m_layers[m_layerCount++] = layer;
    return true;
  }
  ULONG LayerCount() const noexcept { return m_layerCount; }
  // A field for GetFieldById or GetHeaderFieldById; false when the room is taken.
  bool AddField(ULONG id, const BYTE* data, USHORT length) noexcept { return Add(m_fields, m_fieldCount, id, data, length); }
  bool AddHeaderField(ULONG id, const BYTE* data, USHORT length) noexcept {
    return Add(m_headerFields, m_headerFieldCount, id, data, length);
  }

  // IPacket
  HRESULT GetPacketData(const BYTE** data) override;
  HRESULT GetMediaInfo(const BYTE** block, ULONG* length) override;
  HRESULT GetPacketClass(LONG* packetClass) override;
  HRESULT GetPacketLength(USHORT* length) override;
  HRESULT GetSliceLength(USHORT* length) override;
  HRESULT GetCaptureLength(USHORT* length) override;
  HRESULT GetFlags(ULONG* flags) override;
  HRESULT GetTimeStamp(ZemoTime* time) override;
  HRESULT GetFrameProtoSpecId(USHORT* id) override;
  HRESULT GetProtoSpecId(ULONG* id) override;
  HRESULT TestStatus(ULONG mask, BOOL* set) override;
  HRESULT TestFlags(ULONG mask, BOOL* set) override;
  HRESULT IsWireless(BOOL* yes) override;
  HRESULT HasChannelNumber(BOOL* yes) override;
  HRESULT HasLineNumber(BOOL* yes) override;
  HRESULT IsError(BOOL* yes) override;
  HRESULT IsMulticast(BOOL* yes) override;
  HRESULT IsBroadcast(BOOL* yes) override;

  // IPacketAddresses: E_FAIL for an address the packet lacks.
  HRESULT GetProtocol(MediaSpec* spec) override;
  HRESULT GetPhysicalSource(MediaSpec* spec) override;
  HRESULT GetPhysicalDestination(MediaSpec* spec) override;
  HRESULT GetLogicalSource(MediaSpec* spec) override;
  HRESULT GetLogicalDestination(MediaSpec* spec) override;
  HRESULT GetBSSID(MediaSpec* spec) override;
  HRESULT GetWirelessReceiver(MediaSpec* spec) override;
  HRESULT GetWirelessTransmitter(MediaSpec* spec) override;

  // IWirelessPacket: E_FAIL on a packet that is not an 802.11 frame.
  // GetWEPKeyIndex gives S_FALSE and 0 for a frame without a key index.
  HRESULT GetChannel(SWirelessChannel* channel) override;
  HRESULT GetDataRate(USHORT* rate) override;
  HRESULT GetSignalPercent(BYTE* percent) override;
  HRESULT GetSignalDBm(int8_t* dbm) override;
  HRESULT GetNoisePercent(BYTE* percent) override;
  HRESULT GetNoiseDBm(int8_t* dbm) override;
  HRESULT GetTransmitEncryption(LONG* kind) override;
  HRESULT GetReceiveEncryption(LONG* kind) override;
  HRESULT GetAuthentication(LONG* kind) override;
  HRESULT GetWEPKeyIndex(BYTE* index) override;

  // IPacketFields. GetLayers fills at most the room given; when the packet
  // has more layers it fills the room with the outermost ones and gives S_FALSE.
  // A field the packet lacks gives E_FAIL.
  HRESULT GetLayers(ULONG* count, ZemoLayerReport* layers) override;
  HRESULT GetFieldById(ULONG id, ULONG reserved, const BYTE** data, USHORT* length) override;
  HRESULT GetHeaderFieldById(ULONG id, ULONG reserved, const BYTE** data, USHORT* length) override;

  // IChannelPacket, ILinePacket: E_FAIL when the packet has no such number.
  HRESULT GetChannelNumber(ULONG* number) override;
  HRESULT GetLineNumber(BYTE* number) override;

 private:
  enum Bit : uint16_t {
    kWireless = 1,
    kHasChannel = 2,
    kHasLine = 4,
    kError = 8,
    kMulticast = 16,
    kBroadcast = 32,
    kHasWepKey = 64,
  };
  struct Field {
    ULONG id;
    USHORT length;
    const BYTE* data;
  };
  // Everything a packet sets but its arrays, with the values of an empty
  // packet: Clear assigns a fresh one.
  struct Scalars {
    const BYTE* data = nullptr;
    const BYTE* mediaInfo = nullptr;
    ULONG mediaInfoLength = 0;
    USHORT captureLength = 0, packetLength = 0, sliceLength = 0, frameProtoSpecId = 0xFFFF;
    ZemoTime time = 0;
    ULONG flags = 0, status = 0, protoSpecId = 0xFFFF, channelNumber = 0;
    LONG packetClass = 0;
    uint16_t bits = 0;
    BYTE lineNumber = 0;
    SWirelessChannel channel = {0, 0, 0};
    USHORT dataRate = 0;
    BYTE signalPercent = 0, noisePercent = 0;
    int8_t signalDbm = kNoDbmReading, noiseDbm = kNoDbmReading;
    BYTE wepKeyIndex = 0;
    LONG transmitEncryption = 0, receiveEncryption = 0, authentication = 0;
  };

  static USHORT Cut(ULONG n) noexcept { return n > 0xFFFF ? 0xFFFF : static_cast<USHORT>(n); }
  void SetBit(Bit bit, bool on) noexcept { m_s.bits = static_cast<uint16_t>(on ? (m_s.bits | bit) : (m_s.bits & ~bit)); }
  bool Is(Bit bit) const noexcept { return (m_s.bits & bit) != 0; }
  static bool Add(Field* fields, ULONG& count, ULONG id, const BYTE* data, USHORT length) noexcept {
    if (count == kMaxFields) return false;
    fields[count++] = {id, length, data};
    return true;
  }
  HRESULT Address(PacketAddress which, MediaSpec* spec) const noexcept;
  template <class T>
  HRESULT Radio(T* out, const T& value) const noexcept {
    if (!out) return E_POINTER;
    if (!Is(kWireless)) return E_FAIL;
    *out = value;
    return S_OK;
  }
  static HRESULT FindField(const Field* fields, ULONG count, ULONG id, const BYTE** data, USHORT* length) noexcept;

  Scalars m_s;
  uint8_t m_hasAddress = 0;
  ULONG m_layerCount = 0;
  ULONG m_fieldCount = 0;
  ULONG m_headerFieldCount = 0;
  MediaSpec m_addresses[kPacketAddressCount];
  ZemoLayerReport m_layers[kMaxLayers];
  Field m_fields[kMaxFields];
  Field m_headerFields[kMaxFields];
  BYTE m_mediaBlock[kWirelessMediaInfoLength];
};

}  // namespace zemo
