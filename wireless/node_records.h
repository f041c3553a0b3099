// The records of the 802.11 node statistics. All are byte-packed and cross
// interfaces and streams as they stand.
//
// ZemoWirelessNodeStat2 (470 bytes) is the second generation's node record;
// ZemoWirelessNodeStatEntry2 (536 bytes) the engine's stored form of it.
// ZemoWirelessNodeStat (216 bytes) and ZemoWirelessNodeStatEntry (232) are
// the first generation's. Both share their first 192 bytes, from
// FirstTimeSent to APChannel.
#pragma once

#include <cstddef>

#include "frame/byte_string.h"
#include "identity/media_specs.h"
#include "wireless/channel_records.h"

#pragma pack(push, 1)

// The counters and identity both generations share, in the same first
// 192 bytes (FirstTimeSent to APChannel). Times are 0 until the first
// packet, the least sizes 0xFFFF; bytes are wire lengths. WEPPackets: the
// Protected bit or packet flag 0x4; WEPICVErrors: packet flag 0x8. ESSID is
// zero-padded. Type: kNodeType...; EncryptionType 0 none, 1 WEP, 2 CKIP,
// 3 TKIP; AuthenticationType 0 none, 1 EAP, 2 LEAP, 3 PEAP, 4 EAPTLS.
// DSChannel: where the node was last heard; APChannel: its access point's,
// or the one it announces.
#define ZEMO_WIRELESS_NODE_COMMON \
  ZemoTime FirstTimeSent; \
  ZemoTime LastTimeSent; \
  ZemoTime FirstTimeReceived; \
  ZemoTime LastTimeReceived; \
  uint64_t PacketsSent; \
  uint64_t PacketsReceived; \
  uint64_t BytesSent; \
  uint64_t BytesReceived; \
  uint64_t BroadcastPackets; \
  uint64_t BroadcastBytes; \
  uint64_t MulticastPackets; \
  uint64_t MulticastBytes; \
  uint16_t MinPacketSizeSent; \
  uint16_t MaxPacketSizeSent; \
  uint16_t MinPacketSizeReceived; \
  uint16_t MaxPacketSizeReceived; \
  uint64_t RetryPackets; \
  uint64_t WEPPackets; \
  uint64_t BeaconPackets; \
  uint64_t WEPICVErrors; \
  uint8_t ESSID[32]; \
  uint8_t ESSIDLength; \
  uint8_t Type; \
  uint8_t EncryptionType; \
  uint8_t AuthenticationType; \
  SWirelessChannel DSChannel; \
  SWirelessChannel APChannel;

struct ZemoWirelessNodeCommon {
  ZEMO_WIRELESS_NODE_COMMON
};
static_assert(sizeof(ZemoWirelessNodeCommon) == 192);
static_assert(offsetof(ZemoWirelessNodeCommon, MinPacketSizeSent) == 96 &&
              offsetof(ZemoWirelessNodeCommon, RetryPackets) == 104 && offsetof(ZemoWirelessNodeCommon, ESSID) == 136 &&
              offsetof(ZemoWirelessNodeCommon, ESSIDLength) == 168 && offsetof(ZemoWirelessNodeCommon, Type) == 169 &&
              offsetof(ZemoWirelessNodeCommon, DSChannel) == 172 && offsetof(ZemoWirelessNodeCommon, APChannel) == 182);

struct ZemoWirelessNodeStat2 {
  ZEMO_WIRELESS_NODE_COMMON
  uint8_t WEPKey;
  uint8_t Trust;  // 0 unknown, 1 known, 2 trusted
  uint8_t BeaconsContainESSID;
  uint8_t AdHocBaseStation;
  uint8_t PrivacyFlag;
  uint8_t PowerSave;
  WirelessSignalStat Signal;
  WirelessSignalStat Noise;
  WirelessSignalStat Reserved1[2];
  WirelessSignalStat RecentSignal;
  WirelessSignalStat Reserved2;
  WirelessSignalStat RecentNoise;
  WirelessSignalStat Reserved3;
  ZemoTime RollTime;
  uint64_t RecentCount;
  uint64_t RoamTime;  // sum of roaming gaps, nanoseconds
  uint32_t RoamCount;
  uint32_t EntityIndex;  // the entity, or for a network name the count of names before it
  uint32_t RecentBSSIDStatIndex;
  uint32_t RecentESSIDStatIndex;
};
static_assert(sizeof(ZemoWirelessNodeStat2) == 470);
static_assert(offsetof(ZemoWirelessNodeStat2, WEPKey) == 192 && offsetof(ZemoWirelessNodeStat2, Trust) == 193 &&
              offsetof(ZemoWirelessNodeStat2, BeaconsContainESSID) == 194 &&
              offsetof(ZemoWirelessNodeStat2, AdHocBaseStation) == 195 &&
              offsetof(ZemoWirelessNodeStat2, PrivacyFlag) == 196 && offsetof(ZemoWirelessNodeStat2, PowerSave) == 197 &&
              offsetof(ZemoWirelessNodeStat2, Signal) == 198 && offsetof(ZemoWirelessNodeStat2, Noise) == 227 &&
              offsetof(ZemoWirelessNodeStat2, RecentSignal) == 314 &&
              offsetof(ZemoWirelessNodeStat2, RecentNoise) == 372 && offsetof(ZemoWirelessNodeStat2, RollTime) == 430 &&
              offsetof(ZemoWirelessNodeStat2, RecentCount) == 438 && offsetof(ZemoWirelessNodeStat2, RoamTime) == 446 &&
              offsetof(ZemoWirelessNodeStat2, RoamCount) == 454 &&
              offsetof(ZemoWirelessNodeStat2, EntityIndex) == 458 &&
              offsetof(ZemoWirelessNodeStat2, RecentBSSIDStatIndex) == 462 &&
              offsetof(ZemoWirelessNodeStat2, RecentESSIDStatIndex) == 466);

struct ZemoWirelessNodeStatEntry2 {
  ZemoWirelessNodeStat2 Stat;
  uint8_t Padding1[2];
  uint32_t Next;  // next record of the chain; 0xFFFFFFFF at the end
  SWirelessChannel ReportedChannel;  // the APChannel last told to the channel statistics
  uint8_t Padding2[2];
  MediaSpec LastBSSID;  // of the latest data frame or successful association response
  ZemoTime LastBSSIDTime;
  // Whether a rate row follows the record in a stream. The rows themselves
  // live beside the records; a stream's value is never used as a pointer.
  uint32_t RateRow;
  uint8_t Padding3[4];
};
static_assert(sizeof(ZemoWirelessNodeStatEntry2) == 536);
static_assert(offsetof(ZemoWirelessNodeStatEntry2, Next) == 472 &&
              offsetof(ZemoWirelessNodeStatEntry2, ReportedChannel) == 476 &&
              offsetof(ZemoWirelessNodeStatEntry2, LastBSSID) == 488 &&
              offsetof(ZemoWirelessNodeStatEntry2, LastBSSIDTime) == 520 &&
              offsetof(ZemoWirelessNodeStatEntry2, RateRow) == 528);

// A node's packets and bytes sent at one data rate.
struct ZemoWirelessNodeDataRateStat {
  uint32_t Rate;  // half Mbit/s
  uint64_t Pkts;
  uint64_t Bytes;
};
static_assert(sizeof(ZemoWirelessNodeDataRateStat) == 20);

struct ZemoWirelessNodeStat {
  ZEMO_WIRELESS_NODE_COMMON
  uint8_t WEPKey;
  uint8_t Trust;  // filled on reading
  uint8_t SignalMin;  // percent; starts at 100
  uint8_t SignalMax;
  uint8_t SignalCurrent;
  uint8_t NoiseMin;  // starts at 100
  uint8_t NoiseMax;
  uint8_t NoiseCurrent;
  int16_t SignaldBmMin;  // -127: no reading
  int16_t SignaldBmMax;
  int16_t SignaldBmCurrent;
  int16_t NoisedBmMin;
  int16_t NoisedBmMax;
  int16_t NoisedBmCurrent;
  uint8_t BeaconsContainESSID;
  uint8_t AdHocBaseStation;
  uint8_t PrivacyFlag;
  uint8_t PowerSave;  // only made from a second-generation record
};
static_assert(sizeof(ZemoWirelessNodeStat) == 216);
static_assert(offsetof(ZemoWirelessNodeStat, SignalMin) == 194 && offsetof(ZemoWirelessNodeStat, SignaldBmMin) == 200 &&
              offsetof(ZemoWirelessNodeStat, NoisedBmCurrent) == 210 &&
              offsetof(ZemoWirelessNodeStat, BeaconsContainESSID) == 212 &&
              offsetof(ZemoWirelessNodeStat, PowerSave) == 215);

struct ZemoWirelessNodeStatEntry {
  uint32_t EntityIndex;
  uint32_t Next;
  uint32_t RecentBSSIDStatIndex;
  uint32_t RecentESSIDStatIndex;
  ZemoWirelessNodeStat Stat;
};
static_assert(sizeof(ZemoWirelessNodeStatEntry) == 232);

#pragma pack(pop)

namespace zemo {

// Node types.
inline constexpr uint8_t kNodeTypeNone = 0;
inline constexpr uint8_t kNodeTypeGroup = 1;  // a group address, or an ad hoc network's BSSID
inline constexpr uint8_t kNodeTypeAP = 2;
inline constexpr uint8_t kNodeTypeESSID = 3;  // a network name, not an address
inline constexpr uint8_t kNodeTypeSTA = 4;
inline constexpr uint8_t kNodeTypeAdHoc = 5;

// Frame kinds of the packet (GetFrameProtoSpecId) the node statistics read.
inline constexpr uint16_t kFrameProbeRequest = 0xE0;
inline constexpr uint16_t kFrameProbeResponse = 0xE1;
inline constexpr uint16_t kFrameBeacon = 0xE2;
inline constexpr uint16_t kFrameSkipsType = 0xD5;

// The texts users see of a node's type, cipher and authentication; empty
// for the values without one.
const char* NodeTypeText(uint8_t type);
const char* EncryptionText(uint8_t type);
const char* AuthenticationText(uint8_t type);

// The name the node statistics give the networks they cannot name.
inline constexpr char kUnknownESSID[] = "ESSID Unknown";
const ByteString& UnknownESSIDName();
// The BSSID the node statistics file frames under that name none.
MediaSpec UnknownBSSIDSpec() noexcept;

// Whether an SSID element's name (its first 32 bytes at most) is one that
// names a network: not a lone blank, and not 32 bytes of which any lies
// outside the printable range (a hidden network's padding).
bool IsUsableESSID(const uint8_t* name, size_t length) noexcept;

}  // namespace zemo
