// The records of the channel statistics. All are byte-packed and cross
// interfaces and streams as they stand.
//
// ZemoWirelessChannelCounts, the counters of one channel, heads both the
// first generation's record (ZemoWirelessChannelStat, 300 bytes, one signal
// and noise figure) and the second's (ZemoWirelessChannelStatEntry2, 1603
// bytes, a signal picture of each distribution-system direction).
#pragma once

#include <cstddef>

#include "platform/types.h"
#include "wireless/wireless_channel.h"

#pragma pack(push, 1)

// One measured quantity: percent figures, dBm figures and the sum of power.
struct WirelessSignalStat {
  uint32_t Valid;  // 0 until the first sample
  uint8_t Current;
  uint8_t Min;
  uint8_t Max;
  uint64_t PercentSum;
  double PowerSum;  // milliwatts: the sum of 10^(dBm / 10)
  int16_t CurrentDBm;
  int16_t MinDBm;
  int16_t MaxDBm;
};
static_assert(sizeof(WirelessSignalStat) == 29);

// Signal, noise and their ratio over all time, over the running interval and
// over the interval before it.
struct WirelessSignalSet {
  WirelessSignalStat Signal;
  WirelessSignalStat Noise;
  WirelessSignalStat SNR;
  WirelessSignalStat RecentSignal;
  WirelessSignalStat RecentNoise;
  WirelessSignalStat RecentSNR;
  WirelessSignalStat PreviousSignal;
  WirelessSignalStat PreviousNoise;
  WirelessSignalStat PreviousSNR;
  uint64_t RecentCount;  // samples of the running interval
};
static_assert(sizeof(WirelessSignalSet) == 269);

// Packets and bytes of a channel by frame class, direction and flag. Bytes
// are wire lengths.
struct ZemoWirelessChannelCounts {
  ZemoTime FirstTime;
  ZemoTime LastTime;
  uint64_t Packets;
  uint64_t Bytes;
  uint64_t DataPackets;
  uint64_t DataBytes;
  uint64_t MgmtPackets;
  uint64_t MgmtBytes;
  uint64_t CtrlPackets;
  uint64_t CtrlBytes;
  uint64_t LocalPackets;  // neither To DS nor From DS
  uint64_t LocalBytes;
  uint64_t FromDSPackets;
  uint64_t FromDSBytes;
  uint64_t ToDSPackets;
  uint64_t ToDSBytes;
  uint64_t DSDSPackets;
  uint64_t DSDSBytes;
  uint64_t RetryPackets;
  uint64_t RetryBytes;
  uint64_t ProtectedPackets;  // Protected bit, or packet flag 0x4
  uint64_t ProtectedBytes;
  uint64_t OrderPackets;
  uint64_t OrderBytes;
  uint64_t Flag40Packets;
  uint64_t Flag40Bytes;
  uint64_t NoFlag40Packets;
  uint64_t NoFlag40Bytes;
  uint64_t CRCErrors;
  uint64_t WEPICVErrors;
};
static_assert(sizeof(ZemoWirelessChannelCounts) == 240);

struct ZemoWirelessChannelStatEntry2 {
  ZemoWirelessChannelCounts Counts;
  SWirelessChannel Channel;  // the key
  ZemoTime RollTime;         // last change of interval; 0 until the first
  WirelessSignalSet AllSignals;
  WirelessSignalSet FromDSSignals;
  WirelessSignalSet ToDSSignals;
  WirelessSignalSet DSDSSignals;
  WirelessSignalSet LocalSignals;
};
static_assert(sizeof(ZemoWirelessChannelStatEntry2) == 1603);
static_assert(offsetof(ZemoWirelessChannelStatEntry2, Channel) == 240);
static_assert(offsetof(ZemoWirelessChannelStatEntry2, AllSignals) == 258);
static_assert(offsetof(ZemoWirelessChannelStatEntry2, LocalSignals) == 1334);

// In this record -127 in a dBm field means no reading.
struct ZemoWirelessChannelStat {
  ZemoWirelessChannelCounts Counts;
  uint64_t SignalSum;  // percent values
  uint8_t SignalMin;
  uint8_t SignalMax;
  uint8_t SignalCurrent;
  double SignalPower;
  int16_t SignaldBmMin;
  int16_t SignaldBmMax;
  int16_t SignaldBmCurrent;
  uint64_t NoiseSum;
  uint8_t NoiseMin;
  uint8_t NoiseMax;
  uint8_t NoiseCurrent;
  double NoisePower;
  int16_t NoisedBmMin;
  int16_t NoisedBmMax;
  int16_t NoisedBmCurrent;
  SWirelessChannel Channel;  // the key
};
static_assert(sizeof(ZemoWirelessChannelStat) == 300);
static_assert(offsetof(ZemoWirelessChannelStat, SignalPower) == 251);
static_assert(offsetof(ZemoWirelessChannelStat, NoisedBmMin) == 284);
static_assert(offsetof(ZemoWirelessChannelStat, Channel) == 290);

// A channel's packets and bytes at one data rate.
struct ZemoWirelessChannelDataRateStat {
  uint64_t Packets;
  uint64_t Bytes;
};
static_assert(sizeof(ZemoWirelessChannelDataRateStat) == 16);

#pragma pack(pop)

namespace zemo {

// A channel table admits this many data rates: a packet at a further rate
// counts in its channel's totals and at no rate.
inline constexpr uint32_t kMaxChannelDataRates = 255;

// The frame control of a captured 802.11 frame counted into a channel's
// counters: class, direction, Retry, Protected and Order, packets and
// bytes. The Protected bit stands, or else isProtected() (the packet's flag)
// decides. The direction counted: 0 local, 1 To DS, 2 From DS, 3 DS-DS.
template <class IsProtected>
uint32_t CountFrameControl(ZemoWirelessChannelCounts& c, uint8_t fc0, uint8_t fc1, uint64_t length,
                           IsProtected&& isProtected) {
  // Packed fields bind to no reference: each pair is counted where it stands.
  switch (fc0 & 0x0C) {
    case 0x00: c.MgmtPackets += 1, c.MgmtBytes += length; break;
    case 0x04: c.CtrlPackets += 1, c.CtrlBytes += length; break;
    case 0x08: c.DataPackets += 1, c.DataBytes += length; break;
    default: break;  // the extension type is no class
  }
  const uint32_t direction = fc1 & 0x03;
  switch (direction) {
    case 0: c.LocalPackets += 1, c.LocalBytes += length; break;
    case 1: c.ToDSPackets += 1, c.ToDSBytes += length; break;
    case 2: c.FromDSPackets += 1, c.FromDSBytes += length; break;
    default: c.DSDSPackets += 1, c.DSDSBytes += length; break;
  }
  if (fc1 & 0x08) c.RetryPackets += 1, c.RetryBytes += length;
  if ((fc1 & 0x40) || isProtected()) c.ProtectedPackets += 1, c.ProtectedBytes += length;
  if (fc1 & 0x80) c.OrderPackets += 1, c.OrderBytes += length;
  return direction;
}

}  // namespace zemo
