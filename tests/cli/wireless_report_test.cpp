// An 802.11 capture through zemostats: its Channels and Data rates, a
// tracked channel, and a save that leaves out what has no XML form.
#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "cli/cli_support.h"

namespace {

using nlohmann::json;
using namespace zemo::testing_cli;

TEST(ZemostatsWireless, ChannelsRatesATrackedChannelAndSaves) {
  const std::string capture = std::string(ZEMO_SHARED_DIR) + "/captures/aircrack/zn2i.pcap";
  if (!FileExists(capture)) GTEST_SKIP() << capture << " is absent: the shared captures are not in this clone";
  const std::string label = "4 - 2427 MHz (bg)";

  RunResult run = RunZemostats({"analyze", "--track-channel", label, capture});
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_NE(std::string::npos, run.out.find("\nChannels\n"));
  EXPECT_NE(std::string::npos, run.out.find("  " + label + "       12   1650  100.0%         -76  -36.74  -32\n"));
  EXPECT_NE(std::string::npos, run.out.find("\nData rates\n"));
  EXPECT_NE(std::string::npos, run.out.find("  19.5 Mbit/s        1    187   8.3%"));
  EXPECT_NE(std::string::npos, run.out.find("Track of channel " + label + "\n  per second\n"));

  run = RunZemostats({"analyze", "--json", "--track-channel", label, "--track-channel", "6 - 2437 MHz (bg)", capture});
  ASSERT_EQ(0, run.exitCode) << run.err;
  const json doc = json::parse(run.out);
  const json& channels = doc["report"]["channels"]["rows"];
  ASSERT_EQ(1u, channels.size());
  EXPECT_EQ(label, channels[0]["channel"]);
  EXPECT_EQ(-76, channels[0]["signal_min_dbm"]);
  EXPECT_TRUE(channels[0]["noise_min_dbm"].is_null());  // no noise reading
  uint64_t ratePackets = 0;
  for (const json& r : doc["report"]["data_rates"]["rows"]) ratePackets += r["packets"].get<uint64_t>();
  EXPECT_EQ(12u, ratePackets);
  ASSERT_EQ(2u, doc["tracks"].size());
  EXPECT_EQ("channel", doc["tracks"][0]["kind"]);
  EXPECT_TRUE(doc["tracks"][0]["appears"]);
  uint64_t tracked = 0;
  for (const json& s : doc["tracks"][0]["series"]) tracked += s["packets"].get<uint64_t>();
  EXPECT_EQ(12u, tracked);
  EXPECT_FALSE(doc["tracks"][1]["appears"]);
  EXPECT_NE(std::string::npos, run.err.find("the tracked channel 6 - 2437 MHz (bg) never appears"));

  run = RunZemostats({"analyze", "--track-channel", "channel six", capture});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("not a channel label"));

  // The channel statistics have no XML form: an XML save leaves them out,
  // the stream form keeps them.
  ScratchDir dir;
  for (const char* name : {"saved.xml", "saved.bin"}) {
    run = RunZemostats({"analyze", "--save", dir.File(name), capture});
    ASSERT_EQ(0, run.exitCode) << run.err;
    const bool xml = std::string(name).ends_with(".xml");
    EXPECT_EQ(xml, run.err.find("WirelessChannelStats2 is left out of the XML save") != std::string::npos);
    run = RunZemostats({"show", dir.File(name)});
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_EQ(!xml, run.out.find("  " + label + "       12   1650  100.0%") != std::string::npos) << name;
  }
}

}  // namespace
