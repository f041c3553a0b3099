// The decoder's faults and ExpertStats, which counts them for the summary.
#include "engine/expert_stats.h"

#include <gtest/gtest.h>

#include <vector>

#include "engine/capture_facts.h"
#include "frame/xml_persist.h"
#include "platform/stream.h"
#include "summary/summary_stats_snapshot.h"
#include "support/frame_bytes.h"

namespace zemo {
namespace {

using namespace testing_support;

const Bytes kEthernetIpv4 = Bytes(12, 0x02) + Bytes{0x08, 0x00};

Bytes Ipv4Header(uint8_t versionAndLength, uint16_t total) {
  return Bytes{versionAndLength, 0, uint8_t(total >> 8), uint8_t(total), 0, 1, 0, 0, 64, 17, 0, 0} + Bytes(8, 10);
}

TEST(FrameFaults, EachKindIsFoundWhereItIs) {
  struct Case {
    const char* what;
    uint32_t linkType;
    Bytes frame;
    uint32_t wire;  // 0: the frame's size
    uint32_t faults;
  };
  const Case cases[] = {
      {"a sound frame", link::kEthernet, kEthernetIpv4 + Ipv4Header(0x45, 20), 0, 0},
      {"an IPv4 length past the frame", link::kEthernet, kEthernetIpv4 + Ipv4Header(0x45, 400), 0, kFaultMalformed},
      {"a frame cut by the capture", link::kEthernet, kEthernetIpv4 + Ipv4Header(0x45, 20), 200, kFaultTruncated},
      {"an unknown link type", 147, Bytes(20, 0), 0, kFaultUnknownLink},
      {"raw IP of version 5", link::kRaw, Ipv4Header(0x55, 20), 0, kFaultBadVersion},
      // A header of another version where the carrier names IPv4 is also a frame error.
      {"IPv4 of version 6 behind Ethernet", link::kEthernet, kEthernetIpv4 + Ipv4Header(0x65, 20), 0,
       kFaultBadVersion | kFaultMalformed},
      {"radiotap of version 1", link::kRadiotap, Bytes{1, 0, 8, 0, 0, 0, 0, 0} + Bytes(24, 0), 0, kFaultBadVersion},
      {"an 802.11 frame of protocol version 2", link::kIeee80211, Bytes{0x0A, 0} + Bytes(22, 0), 0, kFaultBadVersion},
      {"a frame over 65535 bytes", link::kEthernet, kEthernetIpv4 + Ipv4Header(0x45, 20), 70000,
       kFaultTruncated | kFaultCountedShort},
  };
  auto packet = Packet::Create();
  auto expert = ExpertStats::Create();
  ExpertStats::Counts expected{};
  for (const Case& c : cases) {
    const uint32_t wire = c.wire ? c.wire : uint32_t(c.frame.size());
    const uint32_t faults = FrameDecoder(c.linkType).Decode(*packet, c.frame.data(), uint32_t(c.frame.size()), wire, 1);
    EXPECT_EQ(c.faults, faults) << c.what;
    expert->Count(faults);
    for (size_t i = 0; i < kFrameFaultKinds; ++i) expected[i] += (c.faults >> i) & 1;
  }
  EXPECT_EQ(expected, expert->Read());

  // The counts go to the summary as packets, under the expert group.
  auto snapshot = SummaryStatsSnapshot::Create();
  ASSERT_EQ(S_OK, expert->UpdateSummaryStats(snapshot->GetUnknown()));
  for (size_t i = 0; i < kFrameFaultKinds; ++i) {
    SummaryStatValue v{};
    GUID parent{};
    ASSERT_EQ(S_OK, snapshot->GetValue(expert_items::kFaults[i], &v));
    snapshot->GetParent(expert_items::kFaults[i], &parent);
    EXPECT_EQ(ULONG{kSummaryPackets}, v.Type);
    EXPECT_EQ(expected[i], uint64_t{v.Count});
    EXPECT_EQ(expert_items::kGroup, parent);
  }
  EXPECT_EQ(E_NOINTERFACE, expert->UpdateSummaryStats(expert->GetUnknown()));

  // Both saved forms bring the counts back; a reset clears them.
  auto stream = CreateMemoryStream();
  ASSERT_EQ(S_OK, expert->Save(stream.Get(), FALSE));
  std::vector<uint8_t> bytes = MemoryStreamBytes(stream.Get());
  EXPECT_EQ(8 + 8 * kFrameFaultKinds, bytes.size());
  auto fromStream = ExpertStats::Create();
  ASSERT_EQ(S_OK, fromStream->Load(CreateReadOnlyStream(bytes.data(), bytes.size()).Get()));
  EXPECT_EQ(expected, fromStream->Read());
  bytes[0] = 2;
  EXPECT_EQ(E_FAIL, fromStream->Load(CreateReadOnlyStream(bytes.data(), bytes.size()).Get()));
  auto document = CreateXmlDocument();
  ASSERT_EQ(S_OK, static_cast<IPersistXml*>(expert.Get())->Save(document.Get(), document.Get(), FALSE));
  auto fromXml = ExpertStats::Create();
  ASSERT_EQ(S_OK, static_cast<IPersistXml*>(fromXml.Get())->Load(document.Get(), document.Get()));
  EXPECT_EQ(expected, fromXml->Read());
  fromXml->Reset();
  EXPECT_EQ(ExpertStats::Counts{}, fromXml->Read());
}

TEST(CaptureFacts, WritesWhatTheHostKnows) {
  auto facts = CaptureFacts::Create();
  auto snapshot = SummaryStatsSnapshot::Create();
  CaptureFactsData data;
  data.source = u"File trace.pcap";
  data.linkType = 1;
  data.linkTypeName = u"EN10MB";
  data.fileSize = 5000;
  facts->Set(data);
  ASSERT_EQ(S_OK, facts->UpdateSummaryStats(snapshot->GetUnknown()));
  CBstr label;
  snapshot->GetLabel(capture_items::kGroup, label.Out());
  EXPECT_EQ(u"File trace.pcap", label.View());
  snapshot->GetLabel(capture_items::kLinkType, label.Out());
  EXPECT_EQ(u"Link type EN10MB", label.View());
  SummaryStatValue v{};
  ASSERT_EQ(S_OK, snapshot->GetValue(capture_items::kFileSize, &v));
  EXPECT_EQ(5000u, uint64_t{v.Count});
  // What the host does not know has no item.
  LONG has = 1;
  snapshot->HasItem(capture_items::kLinkSpeed, &has);
  EXPECT_EQ(0, has);
  snapshot->HasItem(capture_items::kInterfaceReceived, &has);
  EXPECT_EQ(0, has);
}

}  // namespace
}  // namespace zemo
