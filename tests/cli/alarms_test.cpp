// zemostats --alarms, --track and --track-protocol on a real capture: the
// tracked series against what libpcap reads from the file, and the example
// alarms against what their comments promise of that traffic.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <map>

#include <nlohmann/json.hpp>

#include "cli/capture_source.h"
#include "cli/cli_support.h"

namespace {

using nlohmann::json;
using namespace zemo::testing_cli;

const std::string kCapture = std::string(ZEMO_SHARED_DIR) + "/captures/tcpdump/mptcp-v0.pcap";
const std::string kExample = std::string(ZEMO_SOURCE_DIR) + "/examples/alarms.xml";
constexpr uint64_t kSecond = 1000000000ull;

struct PerSecond {
  uint64_t packets = 0, bytes = 0;
};

// Per second of the file: the frames to or from 10.2.1.2, and the TCP
// frames, read from the Ethernet and IPv4 headers of each frame.
struct Truth {
  std::map<uint64_t, PerSecond> node, tcp;
  uint64_t first = 0, last = 0;
};

Truth ReadTruth() {
  Truth t;
  std::string error;
  auto source = zemo::cli::CaptureSource::OpenFile(kCapture, &error);
  EXPECT_TRUE(source) << error;
  zemo::cli::CaptureFrame f{};
  while (source && source->Next(&f) == zemo::cli::ReadResult::kFrame) {
    const uint64_t s = f.time / kSecond;
    if (!t.first) t.first = s;
    t.last = s;
    if (f.captureLength < 34 || f.data[12] != 0x08 || f.data[13] != 0x00) continue;
    const uint8_t node[4] = {10, 2, 1, 2};
    if (!std::memcmp(f.data + 26, node, 4) || !std::memcmp(f.data + 30, node, 4)) {
      ++t.node[s].packets;
      t.node[s].bytes += f.wireLength;
    }
    if (f.data[23] == 6) {
      ++t.tcp[s].packets;
      t.tcp[s].bytes += f.wireLength;
    }
  }
  return t;
}

// The second of an ISO time of the report, as a count since 1970.
uint64_t SecondOf(const std::string& iso) {
  std::tm tm{};
  strptime(iso.c_str(), "%Y-%m-%dT%H:%M:%S", &tm);
  return static_cast<uint64_t>(timegm(&tm));
}

std::vector<uint64_t> EventSeconds(const json& doc, const std::string& alarm, const std::string& state) {
  std::vector<uint64_t> seconds;
  for (const json& e : doc["events"])
    if (e["alarm"] == alarm && e["state"] == state) seconds.push_back(SecondOf(e["time"]));
  return seconds;
}

TEST(ZemostatsAlarms, TheExampleAlarmsAndTracksOnARealCapture) {
  if (!FileExists(kCapture)) GTEST_SKIP() << "no shared captures at " << kCapture;
  const Truth truth = ReadTruth();
  RunResult r = RunZemostats({"analyze", kCapture, "--json", "--alarms", kExample, "--track", "10.2.1.2",
                              "--track-protocol", "TCP", "--track", "10.9.9.9"});
  ASSERT_EQ(0, r.exitCode) << r.err;
  const json doc = json::parse(r.out);

  // Each series has one row per second from the first packet's to the last's,
  // with what the file holds.
  const uint64_t epoch = 11644473600ull;  // seconds from 1601 to 1970
  ASSERT_EQ(3u, doc["tracks"].size());
  // Nodes come first, then protocols, each in the order given.
  for (int i : {0, 2}) {
    const json& track = doc["tracks"][i];
    const auto& expected = i == 0 ? truth.node : truth.tcp;
    EXPECT_TRUE(track["appears"].get<bool>());
    ASSERT_EQ(truth.last - truth.first + 1, track["series"].size()) << track["name"];
    for (const json& row : track["series"]) {
      const uint64_t s = SecondOf(row["time"]) + epoch;
      auto it = expected.find(s);
      const PerSecond want = it == expected.end() ? PerSecond{} : it->second;
      EXPECT_EQ(want.packets, row["packets"].get<uint64_t>()) << track["name"] << " " << row["time"];
      EXPECT_EQ(want.bytes, row["bytes"].get<uint64_t>()) << track["name"] << " " << row["time"];
    }
  }
  EXPECT_EQ("10.9.9.9", doc["tracks"][1]["name"]);
  EXPECT_FALSE(doc["tracks"][1]["appears"].get<bool>());

  // What the example's comments promise. A second is tested at the tick that
  // ends it, and an alarm's first tick only starts its clock.
  auto bytes = [&](uint64_t s) { return truth.node.count(s + epoch) ? truth.node.at(s + epoch).bytes : 0; };
  const uint64_t first = truth.first - epoch;
  auto firstRun = [&](int length) -> uint64_t {  // the tick after `length` busy seconds in a row
    int run = 0;
    for (uint64_t s = first + 1; s <= truth.last - epoch; ++s)
      if ((run = bytes(s) > 1000 ? run + 1 : 0) == length) return s + 1;
    return 0;
  };
  ASSERT_NE(0u, firstRun(5)) << "the capture has five busy seconds in a row";
  EXPECT_EQ(firstRun(2), EventSeconds(doc, "Busy host 10.2.1.2", "suspect").at(0));
  EXPECT_EQ(firstRun(5), EventSeconds(doc, "Busy host 10.2.1.2", "problem").at(0));
  std::vector<uint64_t> quiet;  // the ticks after a second without TCP
  for (uint64_t s = first + 1; s <= truth.last - epoch; ++s)
    if (!truth.tcp.count(s + epoch)) quiet.push_back(s + 1);
  ASSERT_FALSE(quiet.empty());
  EXPECT_EQ(quiet, EventSeconds(doc, "TCP quiet", "problem"));
  uint64_t previous = 0;
  for (const json& e : doc["events"]) {
    EXPECT_LE(previous, SecondOf(e["time"]));  // in time order
    previous = SecondOf(e["time"]);
    EXPECT_FALSE(e["message"].get<std::string>().empty());
  }

  // The report shows the same in its Alarms section.
  r = RunZemostats({"analyze", kCapture, "--alarms", kExample});
  ASSERT_EQ(0, r.exitCode) << r.err;
  EXPECT_NE(std::string::npos, r.out.find("\nAlarms\n  File  " + kExample + "\n"));
  EXPECT_NE(std::string::npos, r.out.find("Problem Event: Busy host 10.2.1.2 (> 1000/s for 4 seconds)"));
}

TEST(ZemostatsAlarms, ABadAlarmFileStopsTheRunWithOneMessage) {
  if (!FileExists(kCapture)) GTEST_SKIP() << "no shared captures at " << kCapture;
  ScratchDir dir;
  struct Case {
    const char* text;
    const char* says;
  };
  const Case cases[] = {
      {"<Alarms><Alarmobj>", "line 1: not well-formed XML"},
      {"<alarms/>", "the document element is <alarms>; an alarm collection file holds <Alarms>"},
      {"<Alarms>\n<Alarmobj clsid=\"{E1B48467-CC9F-4C91-A030-6CEAE1FD934D}\">\n<alarmnode name=\"a\" "
       "tracktype=\"3\"><condition type=\"2\" enabled=\"1\" comparison=\"3\" value=\"x\"/></alarmnode></Alarmobj>"
       "</Alarms>",
       "line 2: alarm 1 cannot be loaded: an attribute does not hold a value of its kind"},
      {"<Alarms>\n\n<Alarmobj clsid=\"{E1B48467-CC9F-4C91-A030-6CEAE1FD934D}\"><alarmnode name=\"a\" "
       "tracktype=\"3\"><stattracker clsid=\"{0EC1390E-3A7D-45B3-9803-84D74B5D5B80}\"><NodeStatsTracker "
       "stattype=\"1\"><node class=\"2\" type=\"21\" data=\"0A020102\"/></NodeStatsTracker></stattracker>"
       "</alarmnode></Alarmobj></Alarms>",
       "line 3: alarm 1 (\"a\"): no condition is enabled"},
  };
  for (const Case& c : cases) {
    const std::string file = dir.File("alarms.xml");
    FILE* f = std::fopen(file.c_str(), "wb");
    std::fputs(c.text, f);
    std::fclose(f);
    RunResult r = RunZemostats({"analyze", kCapture, "--alarms", file});
    EXPECT_EQ(1, r.exitCode) << c.says;
    EXPECT_EQ(0u, r.err.find("zemostats: " + file + ": " + c.says)) << r.err;
    EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
    EXPECT_TRUE(r.out.empty());  // no report: no packet was read
  }
}

}  // namespace
