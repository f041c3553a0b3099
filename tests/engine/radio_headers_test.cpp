// The radio headers before an 802.11 frame and the 802.11 header itself,
// each read alone, and what the decoder makes of them in the packet.
#include <gtest/gtest.h>

#include <vector>

#include "engine/frame_decoder.h"
#include "engine/ieee80211_header.h"
#include "engine/proto_specs.h"
#include "engine/radio_reading.h"
#include "support/frame_bytes.h"

namespace zemo {
namespace {

using namespace testing_support;

// A radiotap header of these presence words and field bytes, its length filled in.
Bytes Radiotap(const std::vector<uint32_t>& words, const Bytes& fields) {
  Bytes presence;
  for (uint32_t w : words) presence = presence + Le32(w);
  return Bytes{0, 0} + Le16(uint16_t(4 + presence.size() + fields.size())) + presence + fields;
}

struct Expect {
  SWirelessChannel channel;
  uint16_t rate;
  int signal, noise;
};

void Check(const RadioReading& r, const Expect& e, const char* what) {
  EXPECT_EQ(e.channel, r.channel) << what << ": channel " << r.channel.Channel << " " << r.channel.Frequency << " "
                                  << r.channel.Band;
  EXPECT_EQ(e.rate, r.rate) << what;
  EXPECT_EQ(e.signal, r.signalDbm) << what;
  EXPECT_EQ(e.noise, r.noiseDbm) << what;
}

TEST(RadioHeaders, RadiotapFieldsNamespacesAndRates) {
  constexpr uint32_t kFlags = 1u << 1, kRate = 1u << 2, kChannel = 1u << 3, kSignal = 1u << 5, kNoise = 1u << 6;
  constexpr uint32_t kTsft = 1u << 0, kXChannel = 1u << 18, kMcs = 1u << 19, kVht = 1u << 21, kHe = 1u << 23;
  constexpr uint32_t kReset = 1u << 29, kVendor = 1u << 30, kMore = 1u << 31;
  const Bytes ch6 = Le16(2437) + Le16(0x00A0);  // 2 GHz, CCK
  struct Case {
    const char* what;
    Bytes header;
    Expect expect;
    bool fcs;
  } cases[] = {
      // Aligned fields after the presence word: the TSF timer pads to 8.
      {"legacy", Radiotap({kTsft | kFlags | kRate | kChannel | kSignal | kNoise}, Zeros(8) + Bytes{0x10, 11} + ch6 +
                                                                                      Bytes{uint8_t(-42), uint8_t(-95)}),
       {{6, 2437, 4}, 11, -42, -95}, true},
      // A second standard namespace repeats the signal per antenna: the first counts.
      {"antennas", Radiotap({kSignal | kReset | kMore, kSignal}, Bytes{uint8_t(-50), uint8_t(-70)}),
       {{0, 0, 1}, 0, -50, -127}, false},
      // A vendor namespace's data is skipped by its length.
      {"vendor", Radiotap({kVendor | kMore, 0x7 | kReset | kMore, kSignal},
                          Bytes{0x00, 0x11, 0x22, 0x33} + Le16(5) + Zeros(5) + Bytes{uint8_t(-61)}),
       {{0, 0, 1}, 0, -61, -127}, false},
      // The extended channel tells an HT40 channel with its secondary above; MCS 7, 40 MHz, short GI: 150 Mbit/s.
      {"ht40", Radiotap({kXChannel | kMcs}, Le32(0x20000 | 0x100) + Le16(5180) + Bytes{36, 20} + Bytes{0x07, 0x05, 7}),
       {{36, 5180, 303}, 300, -127, -127}, false},
      // MCS 7 at 20 MHz, short GI: 72.2 Mbit/s, to the nearest half megabit.
      {"mcs", Radiotap({kMcs}, Bytes{0x07, 0x04, 7}), {{0, 0, 1}, 144, -127, -127}, false},
      // VHT: 80 MHz, MCS 9, two streams, short GI: 866.7 Mbit/s.
      {"vht", Radiotap({kVht}, Le16(0x0044) + Bytes{0x04, 4, 0x92, 0, 0, 0} + Zeros(4)),
       {{0, 0, 1}, 1733, -127, -127}, false},
      // HE: 20 MHz, MCS 9, two streams, 0.8 us guard: 229.4 Mbit/s.
      {"he", Radiotap({kHe}, Le16(0x4020) + Le16(0x0002) + Le16(0x0900) + Le16(0) + Le16(0) + Le16(2)),
       {{0, 0, 1}, 459, -127, -127}, false},
      // Turbo, half rate in the public safety band, and 60 GHz.
      {"turbo", Radiotap({kChannel}, Le16(5210) + Le16(0x0110)), {{42, 5210, 7}, 0, -127, -127}, false},
      {"half", Radiotap({kChannel}, Le16(4945) + Le16(0x4100)), {{10, 4945, 102}, 0, -127, -127}, false},
      {"60 GHz", Radiotap({kChannel}, Le16(60480) + Le16(0)), {{2, 60480, 1}, 0, -127, -127}, false},
      // Cut short in its fields: what was captured counts.
      {"cut", Bytes{0, 0, 40, 0} + Le32(kRate | kChannel | kSignal) + Bytes{22, 0} + ch6,
       {{6, 2437, 4}, 22, -127, -127}, false},
      // A field past those of known size ends the reading there.
      {"unknown field", Radiotap({kRate | (1u << 28) | kReset | kMore, kSignal}, Bytes{22, uint8_t(-40)}),
       {{0, 0, 1}, 22, -127, -127}, false},
      {"version 1", Bytes{1, 0, 8, 0} + Le32(kRate) + Bytes{22}, {{0, 0, 1}, 0, -127, -127}, false},
  };
  for (const Case& c : cases) {
    const RadioReading r = ReadRadiotap(c.header.data(), uint32_t(c.header.size()));
    Check(r, c.expect, c.what);
    EXPECT_EQ(c.fcs, r.fcs) << c.what;
  }
  const Bytes cut = cases[10].header;
  EXPECT_FALSE(ReadRadiotap(cut.data(), uint32_t(cut.size())).known);
  EXPECT_EQ(cut.size(), ReadRadiotap(cut.data(), uint32_t(cut.size())).headerLength);
}

TEST(RadioHeaders, PrismAvsAndPpi) {
  auto item = [](uint32_t did, int32_t value, uint16_t length = 4) {
    return Le32(did) + Le16(0) + Le16(length) + Le32(uint32_t(value));
  };
  auto prism = [&](int32_t rssi, int32_t signal, int32_t noise) {
    return Le32(0x44) + Le32(144) + Zeros(16) + item(0x10044, 1) + item(0x20044, 2) + item(0x30044, 7) +
           item(0x40044, rssi) + item(0, 0, 0) + item(0x60044, signal) + item(0x70044, noise, noise ? 4 : 0) +
           item(0x80044, 2) + item(0x90044, 0) + item(0xA0044, 100);
  };
  // A signal that cannot be a power in dBm is no reading; the RSSI stands in.
  Check(ReadPrism(prism(0, 57, 0).data(), 144), {{7, 2442, 4}, 2, -127, -127}, "prism, no dBm");
  Check(ReadPrism(prism(-61, 57, -92).data(), 144), {{7, 2442, 4}, 2, -61, -92}, "prism, rssi");
  Check(ReadPrism(prism(-61, -48, 0).data(), 144), {{7, 2442, 4}, 2, -48, -127}, "prism, signal");

  auto avs = [](uint32_t phy, uint32_t channel, uint32_t rate, uint32_t ssiType) {
    return Be32(0x80211001) + Be32(64) + Zeros(16) + Be32(phy) + Be32(channel) + Be32(rate) + Be32(0) + Be32(0) +
           Be32(ssiType) + Be32(uint32_t(-55)) + Be32(uint32_t(-95)) + Be32(0) + Be32(0);
  };
  const Bytes a = avs(8, 36, 540, 2);
  ASSERT_TRUE(LooksLikeAvs(a.data(), 64));
  RadioReading r = ReadAvs(a.data(), 64);
  Check(r, {{36, 5180, 3}, 108, -55, -95}, "avs");
  EXPECT_TRUE(r.fcs);  // every AVS frame ends in its check sequence
  Check(ReadAvs(avs(4, 14, 110, 1).data(), 64), {{14, 2484, 4}, 22, -127, -127}, "avs, rssi");
  EXPECT_FALSE(LooksLikeAvs(prism(0, 0, 0).data(), 144));

  // PPI, fields padded to 4 bytes: 802.11-common without a rate, then the
  // MCS of the 802.11n MAC and PHY field (MCS 15, 40 MHz: 270 Mbit/s).
  const Bytes common = Zeros(8) + Le16(0x0001) + Le16(0) + Le16(2437) + Le16(0x00C0) + Bytes{0, 0, 0x80, uint8_t(-90)};
  const Bytes macPhy = Le32(0x2) + Le32(0) + Bytes{0, 15, 2, 0} + Zeros(36);
  const Bytes fields = Le16(2) + Le16(uint16_t(common.size())) + common + Le16(4) + Le16(uint16_t(macPhy.size())) +
                       macPhy + Le16(99) + Le16(3) + Bytes{1, 2, 3, 0};
  const Bytes ppi = Bytes{0, 1} + Le16(uint16_t(8 + fields.size())) + Le32(105) + fields;
  r = ReadPpi(ppi.data(), uint32_t(ppi.size()));
  Check(r, {{6, 2437, 4}, 540, -127, -90}, "ppi");
  EXPECT_TRUE(r.fcs);
  EXPECT_TRUE(r.known);
  EXPECT_EQ(105u, r.payloadLinkType);
}

TEST(RadioHeaders, Ieee80211KindProtectionAndAuthentication) {
  const Bytes macs = Zeros(18);
  const Bytes llcEapol = Bytes{0xAA, 0xAA, 0x03, 0, 0, 0, 0x88, 0x8E};
  struct Case {
    const char* what;
    Bytes frame;
    uint16_t frameKind;
    LONG encryption;
    int keyIndex;  // -1: none
    LONG authentication;
  } cases[] = {
      {"wep", Bytes{0x08, 0x41, 0, 0} + macs + Zeros(2) + Bytes{1, 2, 3, 0x40}, proto::kWlanDataFrame, kEncryptionWep, 1,
       0},
      {"tkip", Bytes{0x88, 0x41, 0, 0} + macs + Zeros(4) + Bytes{0x01, 0x21, 0x05, 0x60}, proto::kWlanQosData,
       kEncryptionTkip, 1, 0},
      {"ccmp", Bytes{0x08, 0x42, 0, 0} + macs + Zeros(2) + Bytes{0x01, 0x00, 0x00, 0x20}, proto::kWlanDataFrame,
       kEncryptionCcmp, 0, 0},
      {"security cut", Bytes{0x08, 0x41, 0, 0} + macs + Zeros(2) + Bytes{1, 2}, proto::kWlanDataFrame, 0, -1, 0},
      {"peap", Bytes{0x08, 0x01, 0, 0} + macs + Zeros(2) + llcEapol + Bytes{1, 0, 0, 6, 2, 7, 0, 6, 25},
       proto::kWlanDataFrame, 0, -1, kAuthenticationPeap},
      {"eap identity", Bytes{0x08, 0x01, 0, 0} + macs + Zeros(2) + llcEapol + Bytes{1, 0, 0, 5, 2, 1, 0, 5, 1},
       proto::kWlanDataFrame, 0, -1, kAuthenticationEap},
      {"eapol key", Bytes{0x08, 0x02, 0, 0} + macs + Zeros(2) + llcEapol + Bytes{2, 3, 0, 95}, proto::kWlanDataFrame, 0,
       -1, 0},
      {"leap", Bytes{0xB0, 0x00, 0, 0} + macs + Zeros(2) + Le16(0x80) + Le16(1) + Le16(0), proto::kWlanAuthentication, 0,
       -1, kAuthenticationLeap},
      {"wds", Bytes{0x08, 0x03, 0, 0} + macs + Zeros(2) + Zeros(6), proto::kWlanWdsData, 0, -1, 0},
  };
  for (const Case& c : cases) {
    const Ieee80211Header h = ReadIeee80211Header(c.frame.data(), uint32_t(c.frame.size()), false);
    EXPECT_EQ(c.frameKind, h.frameKind) << c.what;
    EXPECT_EQ(c.encryption, h.encryption) << c.what;
    EXPECT_EQ(c.keyIndex >= 0, h.haveKeyIndex) << c.what;
    if (c.keyIndex >= 0) {
      EXPECT_EQ(c.keyIndex, h.keyIndex) << c.what;
    }
    EXPECT_EQ(c.authentication, h.authentication) << c.what;
  }
  // With the radio's padding, the payload starts on a 4-byte boundary.
  const Bytes qos = Bytes{0x88, 0x01, 0, 0} + macs + Zeros(4) + Zeros(2) + llcEapol;
  EXPECT_EQ(26u, ReadIeee80211Header(qos.data(), uint32_t(qos.size()), false).llc);
  EXPECT_EQ(28u, ReadIeee80211Header(qos.data(), uint32_t(qos.size()), true).llc);
  EXPECT_FALSE(ReadIeee80211Header(qos.data(), 1, false).present);
}

TEST(RadioHeaders, BehindARadioHeaderThePacketIsThe80211Frame) {
  const Bytes frame = Bytes{0x08, 0x41, 0, 0} + Zeros(20) + Bytes{1, 2, 3, 0x80} + Zeros(10);
  const Bytes header = Radiotap({(1u << 1) | (1u << 3)}, Bytes{0x10, 0} + Le16(5180) + Le16(0x0140));
  const Bytes record = header + frame + Zeros(4);
  auto p = Packet::Create();
  FrameDecoder(link::kRadiotap).Decode(*p, record.data(), uint32_t(record.size()), uint32_t(record.size()) + 100, 7);
  const BYTE* data = nullptr;
  USHORT captured = 0, wire = 0;
  p->GetPacketData(&data);
  p->GetCaptureLength(&captured);
  p->GetPacketLength(&wire);
  EXPECT_EQ(record.data() + header.size(), data);
  EXPECT_EQ(frame.size() + 4, captured);
  EXPECT_EQ(record.size() + 100, wire);  // the record's whole length
  LONG cipher = 0, authentication = 9;
  BYTE key = 9;
  p->GetTransmitEncryption(&cipher);
  p->GetAuthentication(&authentication);
  EXPECT_EQ(S_OK, p->GetWEPKeyIndex(&key));
  EXPECT_EQ(kEncryptionWep, cipher);
  EXPECT_EQ(0, authentication);
  EXPECT_EQ(2, key);
  SWirelessChannel channel{};
  p->GetChannel(&channel);
  EXPECT_EQ((SWirelessChannel{36, 5180, 3}), channel);

  // A bare 802.11 frame names no channel: channel 0 of no band.
  FrameDecoder(link::kIeee80211).Decode(*p, frame.data(), uint32_t(frame.size()), uint32_t(frame.size()), 7);
  p->GetChannel(&channel);
  EXPECT_EQ((SWirelessChannel{0, 0, 1}), channel);
  EXPECT_EQ(MediumOfLinkType(link::kPpi).subType, 3u);
  EXPECT_TRUE(IsKnownLinkType(link::kAvs));
}

}  // namespace
}  // namespace zemo
