// What the channel statistics tests share: the network fixture, 802.11
// packets with their frame control bytes and radio readings, both
// generations of statistics fed alike, and their channels read back.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "context/stats_context.h"
#include "engine/adapter_info.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "frame/stream_persist.h"
#include "platform/class_store.h"
#include "support/stream_bytes.h"
#include "tests/network/network_fixture.h"
#include "wireless/wireless_channel_stats2.h"
#include "wireless/wireless_interfaces.h"

namespace zemo::testing {

inline constexpr ZemoTime kWirelessT0 = 133000000000000000ull;
inline constexpr ZemoTime kWirelessSecond = 1000000000ull;

// Frame control bytes.
inline constexpr uint8_t kBeacon = 0x80, kAck = 0xD4, kData = 0x08;
inline constexpr uint8_t kToDs = 0x01, kFromDs = 0x02, kRetry = 0x08, kProtected = 0x40;

class WirelessFixture : public NetworkFixture {
 protected:
  void SetUp() override {
    NetworkFixture::SetUp();
    first = Create<IWirelessChannelStats>(CLSID_WirelessChannelStats);
    second = Create<IWirelessChannelStats2>(CLSID_WirelessChannelStats2);
  }

  // An 802.11 packet heard on channel: its frame control and a body, on
  // the wire length bytes.
  IPacket* Frame(const SWirelessChannel& channel, uint8_t fc0, uint8_t fc1, USHORT rate, int8_t signalDbm = -127,
                 int8_t noiseDbm = -127, ULONG length = 100, ZemoTime time = kWirelessT0) {
    std::vector<BYTE> bytes(24, 0);
    bytes[0] = fc0;
    bytes[1] = fc1;
    auto percent = [](int8_t dbm) { return static_cast<BYTE>(dbm == -127 ? 0 : 2 * (dbm + 100)); };
    packet.Clear().Time(time).Length(length).Data(bytes).Wireless(channel, rate, percent(signalDbm), signalDbm,
                                                                     percent(noiseDbm), noiseDbm);
    return packet.Get();
  }

  // The packet to both generations.
  void FeedBoth(IPacket* p) {
    EXPECT_EQ(S_OK, first.Query<IProcessPacket>()->ProcessPacket(p));
    EXPECT_EQ(S_OK, second.Query<IProcessPacket>()->ProcessPacket(p));
  }

  // Each channel of a statistic by the first generation's interface, in its order.
  static std::vector<ZemoWirelessChannelStat> Channels(IUnknown* stats) {
    ComPtr<IWirelessChannelStats> s;
    EXPECT_EQ(S_OK, QueryTo(stats, &s));
    ULONG count = 0;
    EXPECT_EQ(S_OK, s->GetChannelCount(&count));
    std::vector<ZemoWirelessChannelStat> out(count);
    for (ULONG i = 0; i < count; ++i) EXPECT_EQ(S_OK, s->GetChannelStat(i, &out[i]));
    return out;
  }
  static std::vector<int> Numbers(IUnknown* stats) {
    std::vector<int> out;
    for (const ZemoWirelessChannelStat& c : Channels(stats)) out.push_back(c.Channel.Channel);
    return out;
  }

  ComPtr<IWirelessChannelStats> first;
  ComPtr<IWirelessChannelStats2> second;
};

}  // namespace zemo::testing
