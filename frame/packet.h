// The host's captured packet as the statistics see it: IPacket and its
// extension interfaces. A packet lives for one ProcessPacket call.
#pragma once

#include "identity/media_specs.h"
#include "platform/unknown.h"
#include "wireless/wireless_channel.h"

// Error bits of TestStatus.
inline constexpr ULONG kPacketStatusCrc = 0x2;
inline constexpr ULONG kPacketStatusFrame = 0x4;
inline constexpr ULONG kPacketStatusShort = 0x8;
inline constexpr ULONG kPacketStatusOversize = 0x10;
inline constexpr ULONG kPacketStatusRunt = 0x20;

struct IPacket : IUnknown {
  static constexpr IID iid = MakeGuid("9D5B2A34-6C0E-4E57-8A41-2F6B1C3D7E90");
  virtual HRESULT GetPacketData(const BYTE** data) = 0;
  virtual HRESULT GetMediaInfo(const BYTE** block, ULONG* length) = 0;
  virtual HRESULT GetPacketClass(LONG* packetClass) = 0;
  virtual HRESULT GetPacketLength(USHORT* length) = 0;  // on the wire
  virtual HRESULT GetSliceLength(USHORT* length) = 0;   // 0 for a whole packet
  virtual HRESULT GetCaptureLength(USHORT* length) = 0;  // bound of every read of the data
  virtual HRESULT GetFlags(ULONG* flags) = 0;
  virtual HRESULT GetTimeStamp(ZemoTime* time) = 0;
  virtual HRESULT GetFrameProtoSpecId(USHORT* id) = 0;
  virtual HRESULT GetProtoSpecId(ULONG* id) = 0;  // low 16 bits used
  virtual HRESULT TestStatus(ULONG mask, BOOL* set) = 0;
  virtual HRESULT TestFlags(ULONG mask, BOOL* set) = 0;
  virtual HRESULT IsWireless(BOOL* yes) = 0;
  virtual HRESULT HasChannelNumber(BOOL* yes) = 0;
  virtual HRESULT HasLineNumber(BOOL* yes) = 0;
  virtual HRESULT IsError(BOOL* yes) = 0;
  virtual HRESULT IsMulticast(BOOL* yes) = 0;
  virtual HRESULT IsBroadcast(BOOL* yes) = 0;
};

// A failure from any of these means the packet has no such address.
struct IPacketAddresses : IUnknown {
  static constexpr IID iid = MakeGuid("068E6EBE-D67A-4B6D-933C-658A09D04E5D");
  virtual HRESULT GetProtocol(MediaSpec* spec) = 0;
  virtual HRESULT GetPhysicalSource(MediaSpec* spec) = 0;
  virtual HRESULT GetPhysicalDestination(MediaSpec* spec) = 0;
  virtual HRESULT GetLogicalSource(MediaSpec* spec) = 0;
  virtual HRESULT GetLogicalDestination(MediaSpec* spec) = 0;
  virtual HRESULT GetBSSID(MediaSpec* spec) = 0;
  virtual HRESULT GetWirelessReceiver(MediaSpec* spec) = 0;
  virtual HRESULT GetWirelessTransmitter(MediaSpec* spec) = 0;
};

// dBm readings of -127 mean that there is no reading.
inline constexpr int8_t kNoDbmReading = -127;

// The values of GetTransmitEncryption and GetReceiveEncryption: the cipher
// of a protected frame as its security header names it. They rise with the
// strength of the cipher, since a node keeps the greatest it was seen with.
inline constexpr LONG kEncryptionNone = 0;
inline constexpr LONG kEncryptionWep = 1;
inline constexpr LONG kEncryptionCkip = 2;
inline constexpr LONG kEncryptionTkip = 3;
inline constexpr LONG kEncryptionCcmp = 4;
// The values of GetAuthentication: the EAP method a frame carries.
inline constexpr LONG kAuthenticationNone = 0;
inline constexpr LONG kAuthenticationEap = 1;
inline constexpr LONG kAuthenticationLeap = 2;
inline constexpr LONG kAuthenticationPeap = 3;
inline constexpr LONG kAuthenticationEapTls = 4;

struct IWirelessPacket : IUnknown {
  static constexpr IID iid = MakeGuid("3C5E607D-758B-4F37-9FA0-8E28C5FE6C0A");
  virtual HRESULT GetChannel(SWirelessChannel* channel) = 0;
  virtual HRESULT GetDataRate(USHORT* rate) = 0;  // half megabits per second
  virtual HRESULT GetSignalPercent(BYTE* percent) = 0;
  virtual HRESULT GetSignalDBm(int8_t* dbm) = 0;
  virtual HRESULT GetNoisePercent(BYTE* percent) = 0;
  virtual HRESULT GetNoiseDBm(int8_t* dbm) = 0;
  virtual HRESULT GetTransmitEncryption(LONG* kind) = 0;
  virtual HRESULT GetReceiveEncryption(LONG* kind) = 0;
  virtual HRESULT GetAuthentication(LONG* kind) = 0;
  virtual HRESULT GetWEPKeyIndex(BYTE* index) = 0;
};

// One decoded layer of a packet, outermost first. 0xFFFF: no identifier.
struct ZemoLayerReport {
  USHORT ProtoSpecId;
  USHORT HeaderLength;  // bytes of this layer's header
  ULONG Offset;         // where the layer starts in the packet data
  ULONG Length;         // bytes from there to the end of the layer
};
static_assert(sizeof(ZemoLayerReport) == 12);

struct IPacketFields : IUnknown {
  static constexpr IID iid = MakeGuid("BE66DD79-1ED7-4F91-B2C8-685D2B06FAF3");
  // count: in, the room in layers; out, the number filled.
  virtual HRESULT GetLayers(ULONG* count, ZemoLayerReport* layers) = 0;
  // The bytes of a field by its identifier; a field the packet lacks fails.
  virtual HRESULT GetFieldById(ULONG id, ULONG reserved, const BYTE** data, USHORT* length) = 0;
  virtual HRESULT GetHeaderFieldById(ULONG id, ULONG reserved, const BYTE** data, USHORT* length) = 0;
};

struct IChannelPacket : IUnknown {
  static constexpr IID iid = MakeGuid("6BEF432C-41C9-463A-B22D-3A34F08FA439");
  virtual HRESULT GetChannelNumber(ULONG* number) = 0;  // counted from 1
};

struct ILinePacket : IUnknown {
  static constexpr IID iid = MakeGuid("67AFFB12-DC17-4958-A7FE-576C3A7723E2");
  virtual HRESULT GetLineNumber(BYTE* number) = 0;  // counted from 1
};
