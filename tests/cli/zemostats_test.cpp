// The zemostats program end to end: the generated sample against the
// generator's own record, bad input, exports, and the decoder over the
// sample frame by frame.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <set>
#include <tuple>

#include <nlohmann/json.hpp>

#include "cli/capture_source.h"
#include "cli/cli_support.h"
#include "cli/generator.h"
#include "cli/report.h"
#include "engine/frame_decoder.h"
#include "engine/media_utils.h"
#include "platform/clock.h"
#include "platform/strings.h"

namespace {

using nlohmann::json;
using zemo::cli::GeneratedFrame;
using namespace zemo::testing_cli;

std::string MacText(const std::array<uint8_t, 6>& m) {
  char buf[18];
  std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
  return buf;
}

// The generator's addresses: 10.x.y.z, fd00::<host>, ff02::fb, 224.0.0.251, 255.255.255.255.
std::string IpText(const GeneratedFrame& g, bool source) {
  const auto& a = source ? g.sourceIp : g.destinationIp;
  char buf[64];
  if (g.kind != GeneratedFrame::kIpv6) {
    std::snprintf(buf, sizeof buf, "%u.%u.%u.%u", a[0], a[1], a[2], a[3]);
    return buf;
  }
  unsigned high = unsigned(a[12]) << 8 | a[13], low = unsigned(a[14]) << 8 | a[15];
  const char* prefix = a[0] == 0xFF ? "ff02" : "fd00";
  if (high)
    std::snprintf(buf, sizeof buf, "%s::%x:%x", prefix, high, low);
  else
    std::snprintf(buf, sizeof buf, "%s::%x", prefix, low);
  return buf;
}

// The protocol the frame should be reported as, by the generator's ports.
std::string ProtocolText(const GeneratedFrame& g) {
  if (g.kind == GeneratedFrame::kArp) return "ARP";
  static const std::map<std::pair<int, int>, std::string> kServices = {
      {{6, 80}, "HTTP"}, {{6, 443}, "HTTPS"}, {{6, 22}, "SSH"},  {{6, 25}, "SMTP"},      {{6, 445}, "SMB"},
      {{17, 53}, "DNS"}, {{17, 123}, "NTP"},  {{17, 67}, "DHCP"}, {{17, 5353}, "mDNS"}};
  for (int port : {g.sourcePort, g.destinationPort}) {
    auto it = kServices.find({g.transport, port});
    if (it != kServices.end()) return it->second;
  }
  if (g.transport == 1) return "ICMP";
  if (g.transport == 58) return "ICMPv6";
  return "?";
}

struct NodeFigures {
  uint64_t packetsSent = 0, packetsReceived = 0, bytesSent = 0, bytesReceived = 0;
  bool operator==(const NodeFigures&) const = default;
};

class GeneratedSample : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_dir = new ScratchDir;
    s_record = new std::vector<GeneratedFrame>;
    std::string error;
    ASSERT_TRUE(zemo::cli::Generate(SamplePath(), Options(), s_record, &error)) << error;
  }
  static void TearDownTestSuite() {
    delete s_record;
    delete s_dir;
  }
  static std::string SamplePath() { return s_dir->File("sample.pcap"); }
  static zemo::cli::GeneratorOptions Options() {
    zemo::cli::GeneratorOptions options;
    options.packets = 4000;
    options.hosts = 40;
    options.seconds = 12;
    options.seed = 7;
    return options;
  }
  static const std::vector<GeneratedFrame>& Record() { return *s_record; }

  static inline ScratchDir* s_dir = nullptr;
  static inline std::vector<GeneratedFrame>* s_record = nullptr;
};

TEST_F(GeneratedSample, TheGeneratorIsDeterministic) {
  ScratchDir dir;
  zemo::cli::GeneratorOptions options = Options();
  std::string error;
  ASSERT_TRUE(zemo::cli::Generate(dir.File("again.pcap"), options, nullptr, &error)) << error;
  EXPECT_EQ(ReadFile(SamplePath()), ReadFile(dir.File("again.pcap")));
  options.seed = 8;
  ASSERT_TRUE(zemo::cli::Generate(dir.File("other.pcap"), options, nullptr, &error)) << error;
  EXPECT_NE(ReadFile(SamplePath()), ReadFile(dir.File("other.pcap")));
}

TEST_F(GeneratedSample, TheMixHoldsWhatTheSampleShouldShow) {
  std::set<std::string> protocols;
  uint64_t broadcast = 0, multicast = 0;
  for (const GeneratedFrame& g : Record()) {
    protocols.insert(ProtocolText(g));
    broadcast += g.destinationMac[0] == 0xFF;
    multicast += g.destinationMac[0] == 0x01 || g.destinationMac[0] == 0x33;
  }
  for (const char* p : {"ARP", "HTTP", "HTTPS", "SSH", "DNS", "NTP", "DHCP", "mDNS", "ICMP", "ICMPv6"})
    EXPECT_TRUE(protocols.count(p)) << p;
  EXPECT_FALSE(protocols.count("?"));
  EXPECT_GT(broadcast, 0u);
  EXPECT_GT(multicast, 0u);
}

// Every frame of the file decodes to the addresses and protocol the
// generator wrote, and libpcap reads exactly the frames it recorded.
TEST_F(GeneratedSample, EachFrameDecodesToWhatWasWritten) {
  std::string error;
  auto source = zemo::cli::CaptureSource::OpenFile(SamplePath(), &error);
  ASSERT_TRUE(source) << error;
  ASSERT_EQ(zemo::link::kEthernet, uint32_t(source->LinkType()));
  zemo::FrameDecoder decoder(uint32_t(source->LinkType()));
  auto packet = zemo::Packet::Create();
  zemo::cli::CaptureFrame frame{};
  size_t i = 0;
  while (source->Next(&frame) == zemo::cli::ReadResult::kFrame) {
    ASSERT_LT(i, Record().size());
    const GeneratedFrame& g = Record()[i++];
    decoder.Decode(*packet, frame.data, frame.captureLength, frame.wireLength, frame.time);
    EXPECT_EQ(g.wireLength, frame.wireLength);
    EXPECT_EQ(zemo::kUnixEpochAsZemoTime + g.time, frame.time);
    MediaSpec s{};
    ASSERT_EQ(S_OK, packet->GetPhysicalSource(&s));
    EXPECT_EQ(MacText(g.sourceMac), zemo::ToUtf8(zemo::SpecText(s)));
    ASSERT_EQ(S_OK, packet->GetPhysicalDestination(&s));
    EXPECT_EQ(MacText(g.destinationMac), zemo::ToUtf8(zemo::SpecText(s)));
    ASSERT_EQ(S_OK, packet->GetLogicalSource(&s));
    EXPECT_EQ(IpText(g, true), zemo::ToUtf8(zemo::SpecText(s)));
    ASSERT_EQ(S_OK, packet->GetLogicalDestination(&s));
    EXPECT_EQ(IpText(g, false), zemo::ToUtf8(zemo::SpecText(s)));
    ASSERT_EQ(S_OK, packet->GetProtocol(&s));
    EXPECT_EQ(ProtocolText(g), zemo::ToUtf8(zemo::SpecText(s))) << "frame " << i;
    BOOL broadcast = FALSE;
    packet->IsBroadcast(&broadcast);
    EXPECT_EQ(g.destinationMac[0] == 0xFF, bool(broadcast));
  }
  EXPECT_EQ(Record().size(), i);
}

TEST_F(GeneratedSample, TheJsonDocumentAgreesWithTheRecord) {
  RunResult r = RunZemostats({"analyze", "--json", SamplePath()});
  ASSERT_EQ(0, r.exitCode) << r.err;
  json doc = json::parse(r.out);
  const json& capture = doc["capture"];
  uint64_t bytes = 0;
  for (const GeneratedFrame& g : Record()) bytes += g.wireLength;
  EXPECT_EQ(Record().size(), capture["packets"].get<uint64_t>());
  EXPECT_EQ(bytes, capture["bytes"].get<uint64_t>());
  EXPECT_EQ("EN10MB", capture["link_type"]);
  EXPECT_EQ(0, capture["media_type"]);
  EXPECT_EQ(0, capture["media_subtype"]);
  EXPECT_EQ(Record().back().time - Record().front().time, capture["duration_ns"].get<uint64_t>());
  EXPECT_EQ("2026-01-01T00:00:00.000000000Z", capture["start"]);
  EXPECT_TRUE(doc["warnings"].empty());

  // Each statistic's table as GetTable gives it: columns, then rows of as many cells.
  for (const auto& [name, table] : doc["statistics"].items()) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(table["columns"].is_array());
    for (const json& row : table["rows"]) EXPECT_EQ(table["columns"].size(), row.size());
  }

  if (doc["statistics"].contains("nodestats")) {
    // Every address the generator used, with what it sent and received.
    std::map<std::string, NodeFigures> expected;
    for (const GeneratedFrame& g : Record()) {
      for (auto [source, destination] : {std::pair{MacText(g.sourceMac), MacText(g.destinationMac)},
                                         std::pair{IpText(g, true), IpText(g, false)}}) {
        expected[source].packetsSent++;
        expected[source].bytesSent += g.wireLength;
        expected[destination].packetsReceived++;
        expected[destination].bytesReceived += g.wireLength;
      }
    }
    const json& nodes = doc["statistics"]["nodestats"];
    std::map<std::string, NodeFigures> got;
    for (const json& row : nodes["rows"]) {
      got[row["Node"].get<std::string>()] =
          NodeFigures{row["PacketsSent"], row["PacketsReceived"], row["BytesSent"], row["BytesReceived"]};
    }
    EXPECT_EQ(expected.size(), got.size());
    for (const auto& [node, figures] : expected) {
      auto it = got.find(node);
      ASSERT_NE(got.end(), it) << node;
      EXPECT_EQ(figures, it->second) << node;
    }
  }
  if (doc["statistics"].contains("dashboardstats")) {
    // The series starts at the first packet and holds the bytes of every
    // interval closed by a tick; the last, open one is not in it yet.
    const json& traffic = doc["statistics"]["dashboardstats"];
    const uint64_t interval = traffic["interval_seconds"].get<uint64_t>();
    const json& rows = traffic["rows"];
    ASSERT_FALSE(rows.empty());
    EXPECT_EQ(capture["start"], rows[0]["Time"]);
    const uint64_t covered = rows.size() * interval * 1000000000ull;
    uint64_t inClosedIntervals = 0;
    for (const GeneratedFrame& g : Record())
      if (g.time - Record().front().time < covered) inClosedIntervals += g.wireLength;
    double sum = 0;
    for (const json& row : rows) sum += row["BytesPerSecond"].get<double>() * static_cast<double>(interval);
    EXPECT_DOUBLE_EQ(static_cast<double>(inClosedIntervals), sum);
  }
  if (doc["statistics"].contains("conversationstats")) {
    // A conversation between the logical and one between the physical addresses of each frame.
    std::map<std::tuple<std::string, std::string, std::string>, uint64_t> expected;
    for (const GeneratedFrame& g : Record()) {
      expected[{IpText(g, true), IpText(g, false), ProtocolText(g)}]++;
      expected[{MacText(g.sourceMac), MacText(g.destinationMac), ProtocolText(g)}]++;
    }
    std::map<std::tuple<std::string, std::string, std::string>, uint64_t> got;
    for (const json& row : doc["statistics"]["conversationstats"]["rows"])
      got[{row["Source"], row["Dest"], row["Protocol"]}] += row["Packets"].get<uint64_t>();
    EXPECT_EQ(expected, got);
  }
}

// The hosts behind each MAC and the moving window, against the record: the
// window of 6 s is six buckets of 1 s from the first frame, so at the end it
// holds the frames of the last six whole seconds the capture reached.
TEST_F(GeneratedSample, HostsBehindAddressesAndTheWindowAgreeWithTheRecord) {
  RunResult r = RunZemostats({"analyze", "--json", "--window", "6", SamplePath()});
  ASSERT_EQ(0, r.exitCode) << r.err;
  json doc = json::parse(r.out);

  std::map<std::string, std::set<std::string>> behind, macsOf;
  const uint64_t t0 = Record().front().time;
  const uint64_t lastBucket = (Record().back().time - t0) / 1000000000ull;
  std::map<std::string, NodeFigures> window;
  size_t inWindow = 0;
  for (const GeneratedFrame& g : Record()) {
    for (auto [mac, ip] : {std::pair{MacText(g.sourceMac), IpText(g, true)},
                           std::pair{MacText(g.destinationMac), IpText(g, false)}}) {
      behind[mac].insert(ip);
      if (!(std::stoi(mac.substr(0, 2), nullptr, 16) & 1)) macsOf[ip].insert(mac);  // unicast MACs only
    }
    if ((g.time - t0) / 1000000000ull + 5 < lastBucket) continue;
    ++inWindow;
    for (auto [source, destination] : {std::pair{MacText(g.sourceMac), MacText(g.destinationMac)},
                                       std::pair{IpText(g, true), IpText(g, false)}}) {
      window[source].packetsSent++;
      window[source].bytesSent += g.wireLength;
      window[destination].packetsReceived++;
      window[destination].bytesReceived += g.wireLength;
    }
  }
  const json& hosts = doc["hosts_behind_addresses"];
  std::map<std::string, std::set<std::string>> gotBehind;
  for (const json& p : hosts["physical"])
    for (const json& ip : p["logical"]) gotBehind[p["address"].get<std::string>()].insert(ip.get<std::string>());
  EXPECT_EQ(behind, gotBehind);
  std::map<std::string, std::set<std::string>> several, gotSeveral;
  for (const auto& [ip, macs] : macsOf)
    if (macs.size() > 1) several[ip] = macs;
  for (const json& l : hosts["logical_behind_several"])
    for (const json& mac : l["physical"]) gotSeveral[l["address"].get<std::string>()].insert(mac.get<std::string>());
  EXPECT_EQ(several, gotSeveral);

  const json& ring = doc["statistics"]["rollingnodestats"];
  EXPECT_EQ(6, ring["window_seconds"]);
  EXPECT_EQ(1, ring["bucket_seconds"]);
  std::map<std::string, NodeFigures> got;
  for (const json& row : ring["rows"])
    got[row["Node"].get<std::string>()] =
        NodeFigures{row["PacketsSent"], row["PacketsReceived"], row["BytesSent"], row["BytesReceived"]};
  EXPECT_LT(inWindow, Record().size() * 2 / 3);  // the window left the first half behind
  EXPECT_EQ(window, got);

  RunResult report = RunZemostats({"analyze", "--top", "3", "--window", "6", SamplePath()});
  ASSERT_EQ(0, report.exitCode) << report.err;
  for (const char* heading : {"Top 3 logical addresses of the last 6 s\n  6 buckets of 1 s", "Hosts behind addresses\n",
                              "Logical addresses behind several physical ones"})
    EXPECT_NE(std::string::npos, report.out.find(heading)) << heading;
}

// --from and --to keep the packets of their window, given in seconds from
// the first packet or as ISO 8601 times, in the report and in its figures.
TEST_F(GeneratedSample, TheTimeWindowKeepsThePacketsOfItsTime) {
  const uint64_t first = Record().front().time;
  auto count = [&](uint64_t from, uint64_t to) {
    return std::count_if(Record().begin(), Record().end(),
                         [&](const GeneratedFrame& g) { return g.time >= first + from && g.time <= first + to; });
  };
  const uint64_t s = 1000000000ull;
  const std::tuple<std::string, std::string, int64_t> cases[] = {
      {"2", "4.5", count(2 * s, 4 * s + s / 2)},
      {"2026-01-01T00:00:02Z", "2026-01-01 01:00:04.5+01:00", count(2 * s, 4 * s + s / 2)},
      {"11", "", count(11 * s, 100 * s)},
      {"", "0", count(0, 0)},
      {"20", "", 0},
  };
  for (const auto& [from, to, packets] : cases) {
    std::vector<std::string> args = {"analyze", "--json", SamplePath()};
    if (!from.empty()) args.insert(args.end(), {"--from", from});
    if (!to.empty()) args.insert(args.end(), {"--to", to});
    RunResult r = RunZemostats(args);
    ASSERT_EQ(0, r.exitCode) << r.err;
    json capture = json::parse(r.out)["capture"];
    EXPECT_EQ(packets, capture["packets"].get<int64_t>()) << from << " " << to;
    if (!from.empty() && packets) {
      EXPECT_LE(capture["from"].get<std::string>(), capture["start"].get<std::string>());
    }
  }
}

// The report of the bundled sample (the capture `zemostats generate` writes
// by default, which scripts/run.sh shows) is the golden file, which a person
// has read: a change of its layout or figures shows in review as a change of
// that file. ZEMO_UPDATE_GOLDEN=1 writes the file anew.
TEST(ZemostatsReport, TheBundledSampleReadsAsItsGoldenFile) {
  ScratchDir dir;
  const std::string sample = dir.File("sample.pcap");
  std::string error;
  ASSERT_TRUE(zemo::cli::Generate(sample, {}, nullptr, &error)) << error;
  RunResult r = RunZemostats({"analyze", sample});
  ASSERT_EQ(0, r.exitCode) << r.err;
  // Named as scripts/run.sh names it.
  std::string report = r.out;
  for (size_t at; (at = report.find(sample)) != std::string::npos;)
    report.replace(at, sample.size(), "build/samples/sample.pcap");
  const std::string golden = ZEMO_SOURCE_DIR "/tests/cli/golden/sample_report.txt";
  if (std::getenv("ZEMO_UPDATE_GOLDEN")) {
    std::FILE* f = std::fopen(golden.c_str(), "wb");
    ASSERT_TRUE(f) << golden;
    std::fwrite(report.data(), 1, report.size(), f);
    std::fclose(f);
  }
  const std::string want = ReadFile(golden);
  size_t line = 1, at = 0;
  while (at < want.size() && at < report.size() && want[at] == report[at]) line += want[at++] == '\n';
  EXPECT_EQ(want, report) << "first difference on line " << line << " of " << golden;
  // No colour off a terminal unless asked for.
  EXPECT_EQ(std::string::npos, r.out.find('\033'));
  RunResult coloured = RunZemostats({"analyze", "--color", "always", sample});
  EXPECT_NE(std::string::npos, coloured.out.find("\033[1mCapture\033[0m\n"));
}

// The summary's group or item of that name among nodes, or null.
const json* Named(const json& nodes, const std::string& name) {
  for (const json& node : nodes)
    if (node["name"] == name) return &node;
  return nullptr;
}

TEST_F(GeneratedSample, TheSummaryIsNamedFromAnyFolderAndKeptBySaves) {
  // From a folder without a stat map of its own: the shipped one names the items.
  ScratchDir dir;
  char* back = getcwd(nullptr, 0);
  ASSERT_EQ(0, chdir(dir.Path().c_str()));
  const std::string saved = dir.File("context.save");
  RunResult r = RunZemostats({"analyze", "--json", "--summary-every", "4", "--save", saved, SamplePath()});
  RunResult report = RunZemostats({"analyze", SamplePath()});
  // A map in the current folder wins, as it does for the module.
  std::FILE* map = std::fopen("Statmap.xml", "w");
  std::fputs("<m><stat id=\"{297321C1-3D83-4A00-9A9D-E0532AD40D10}\" name=\"The wire\"/></m>", map);
  std::fclose(map);
  RunResult own = RunZemostats({"analyze", SamplePath()});
  ASSERT_EQ(0, chdir(back));
  free(back);
  ASSERT_EQ(0, r.exitCode) << r.err;

  json doc = json::parse(r.out);
  const json* network = Named(doc["summary"], "Network");
  ASSERT_NE(nullptr, network) << doc["summary"].dump(1);
  EXPECT_EQ(Record().size(), (*Named((*network)["items"], "Packets"))["value"].get<uint64_t>());
  EXPECT_EQ(doc["capture"]["bytes"], (*Named((*network)["items"], "Bytes"))["value"]);
  const json* expert = Named(doc["summary"], "Expert information");
  ASSERT_NE(nullptr, expert);
  EXPECT_EQ(5u, (*expert)["items"].size());
  EXPECT_NE(nullptr, Named(doc["summary"], "File " + SamplePath()));
  // Twelve seconds stored every four, from the first tick on.
  ASSERT_EQ(3u, doc["summary_series"].size());
  for (const json& stored : doc["summary_series"]) EXPECT_NE(nullptr, Named(stored["summary"], "Network"));
  EXPECT_FALSE(doc["statistics"].contains("summarystats"));

  EXPECT_NE(std::string::npos, report.out.find("\nSummary\n  General\n")) << report.out;
  EXPECT_NE(std::string::npos, report.out.find("\n  Network\n")) << report.out;
  EXPECT_NE(std::string::npos, own.out.find("\n  The wire\n")) << own.out;

  // A saved context shows the same summary and the stored ones.
  RunResult shown = RunZemostats({"show", "--json", saved});
  ASSERT_EQ(0, shown.exitCode) << shown.err;
  json again = json::parse(shown.out);
  EXPECT_EQ(doc["summary"], again["summary"]);
  EXPECT_EQ(doc["summary_series"], again["summary_series"]);
}

// Standard input, and the file compressed with gzip, from a file and from
// standard input, read the same; empty standard input is an empty file.
TEST_F(GeneratedSample, StandardInputAndGzipReadTheSame) {
  ScratchDir dir;
  const std::string gz = dir.File("sample.pcap.gz"), empty = dir.File("empty");
  ASSERT_EQ(0, std::system(("gzip -c '" + SamplePath() + "' >'" + gz + "'").c_str()));
  std::fclose(std::fopen(empty.c_str(), "w"));
  RunResult file = RunZemostats({"analyze", "--json", SamplePath()});
  json a = json::parse(file.out);
  for (auto [name, args, input] : {std::tuple{"pipe", std::vector<std::string>{"-"}, SamplePath()},
                                   std::tuple{"gzip file", std::vector<std::string>{gz}, std::string()},
                                   std::tuple{"gzip pipe", std::vector<std::string>{"-"}, gz}}) {
    SCOPED_TRACE(name);
    args.insert(args.begin(), {"analyze", "--json"});
    RunResult r = RunZemostats(args, input);
    ASSERT_EQ(0, r.exitCode) << r.err;
    json b = json::parse(r.out);
    EXPECT_EQ(a["capture"]["packets"], b["capture"]["packets"]);
    EXPECT_EQ(a["statistics"], b["statistics"]);
  }
  RunResult none = RunZemostats({"analyze", "-"}, empty);
  EXPECT_EQ(1, none.exitCode);
  EXPECT_NE(std::string::npos, none.err.find("standard input: empty, not a capture file")) << none.err;
  // Cut short in the compressed data: a read error after the packets before it.
  std::string bytes = ReadFile(gz);
  std::FILE* f = std::fopen(gz.c_str(), "wb");
  std::fwrite(bytes.data(), 1, bytes.size() / 2, f);
  std::fclose(f);
  RunResult cut = RunZemostats({"analyze", "--json", gz});
  EXPECT_EQ(1, cut.exitCode);
  EXPECT_NE(std::string::npos, cut.err.find("reading stopped at packet")) << cut.err;
}

TEST_F(GeneratedSample, ATruncatedFileReportsUpToTheLastGoodPacket) {
  // Cut in the middle of frame 101: the header of a pcap is 24 bytes, each
  // frame 16 and its bytes.
  size_t at = 24;
  for (size_t i = 0; i < 100; ++i) at += 16 + Record()[i].wireLength;
  at += 16 + Record()[100].wireLength / 2;
  ScratchDir dir;
  std::string cut = dir.File("cut.pcap");
  std::string bytes = ReadFile(SamplePath()).substr(0, at);
  std::FILE* f = std::fopen(cut.c_str(), "wb");
  ASSERT_TRUE(f);
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
  RunResult r = RunZemostats({"analyze", "--json", cut});
  EXPECT_EQ(1, r.exitCode);
  json doc = json::parse(r.out);
  EXPECT_EQ(100u, doc["capture"]["packets"].get<uint64_t>());
  EXPECT_NE(std::string::npos, r.err.find("packet 101")) << r.err;
  ASSERT_EQ(1u, doc["warnings"].size());
  EXPECT_NE(std::string::npos, doc["warnings"][0].get<std::string>().find("packet 101"));
}

TEST_F(GeneratedSample, ExportsGoIntoTheFolder) {
  ScratchDir dir;
  std::string into = dir.File("exports");
  RunResult r = RunZemostats({"analyze", "--export", into, SamplePath()});
  ASSERT_EQ(0, r.exitCode) << r.err;
  // Every statistic with a table exports under its select name.
  RunResult j = RunZemostats({"analyze", "--json", SamplePath()});
  json doc = json::parse(j.out);
  for (const auto& [name, table] : doc["statistics"].items()) {
    if (name == "nodestats" || name == "networkstats" || name == "sizestats" || name == "errorstats") {
      EXPECT_TRUE(FileExists(into + "/" + name + ".txt")) << name;
    }
  }
  // A folder that cannot be made is a data error and leaves nothing.
  std::string blocker = dir.File("plain");
  std::fclose(std::fopen(blocker.c_str(), "w"));
  RunResult bad = RunZemostats({"analyze", "--export", blocker + "/sub", SamplePath()});
  EXPECT_EQ(1, bad.exitCode);
  EXPECT_NE(std::string::npos, bad.err.find(blocker + "/sub"));
  EXPECT_TRUE(bad.out.empty());
}

TEST(ZemostatsBadInput, EachFailureNamesTheFileAndItsFault) {
  ScratchDir dir;
  RunResult missing = RunZemostats({"analyze", dir.File("nothing.pcap")});
  EXPECT_EQ(1, missing.exitCode);
  EXPECT_NE(std::string::npos, missing.err.find(dir.File("nothing.pcap") + ": No such file or directory"));
  EXPECT_TRUE(missing.out.empty());

  std::string text = dir.File("notes.txt");
  std::FILE* f = std::fopen(text.c_str(), "w");
  std::fputs("these are not packets, just some words in a file\n", f);
  std::fclose(f);
  RunResult wrong = RunZemostats({"analyze", "--export", dir.File("out"), text});
  EXPECT_EQ(1, wrong.exitCode);
  EXPECT_NE(std::string::npos, wrong.err.find(text + ": not a pcap or pcapng capture file")) << wrong.err;
  EXPECT_FALSE(FileExists(dir.File("out")));

  std::string empty = dir.File("empty.pcap");
  std::fclose(std::fopen(empty.c_str(), "w"));
  RunResult none = RunZemostats({"analyze", empty});
  EXPECT_EQ(1, none.exitCode);
  EXPECT_NE(std::string::npos, none.err.find(empty)) << none.err;

  RunResult folder = RunZemostats({"analyze", dir.Path()});
  EXPECT_EQ(1, folder.exitCode);
  EXPECT_NE(std::string::npos, folder.err.find("is a directory"));

  // A file that cannot be written.
  RunResult unwritable = RunZemostats({"generate", dir.File("no/such/folder/x.pcap")});
  EXPECT_EQ(1, unwritable.exitCode);
  EXPECT_NE(std::string::npos, unwritable.err.find("no/such/folder/x.pcap"));

  // Targets that cannot be written fail before the run, with the path and
  // the reason in words; /sys refuses files even to root.
  std::string capture = dir.File("one.pcap"), error;
  ASSERT_TRUE(zemo::cli::Generate(capture, {10, 4, 1, 1}, nullptr, &error)) << error;
  const std::pair<std::vector<std::string>, std::string> targets[] = {
      {{"--save", dir.Path()}, dir.Path() + " (it is a folder; name a file)"},
      {{"--save", dir.File("none/x.ctx")}, "(there is no folder " + dir.File("none") + ")"},
      {{"--save", "/sys/zemostats.ctx"}, "(cannot write in /sys: Permission denied)"},
      {{"--export", "/sys/zemostats"}, "/sys/zemostats: cannot make the folder: "},
      {{"--export", capture + "/x"}, capture + "/x: cannot make the folder: Not a directory"},
      {{"--save-deltas", "/sys/zemostats", "--every", "1"}, "/sys/zemostats: cannot make the folder"},
      {{"--csv", "/sys/zemostats"}, "/sys/zemostats: cannot make the folder"},
      {{"-f", "tcp prt 80"}, "bad capture filter 'tcp prt 80': "},
      {{"-", "-"}, "standard input (-) can be read only once"},
  };
  for (const auto& [options, says] : targets) {
    std::vector<std::string> args = {"analyze", capture};
    args.insert(args.end(), options.begin(), options.end());
    RunResult r = RunZemostats(args);
    EXPECT_EQ(1, r.exitCode) << says;
    EXPECT_NE(std::string::npos, r.err.find(says)) << r.err;
    EXPECT_TRUE(r.out.empty()) << says;
  }
  // Missing folders of an export are made.
  RunResult deep = RunZemostats({"analyze", "--export", dir.File("a/b/c"), capture});
  EXPECT_EQ(0, deep.exitCode) << deep.err;
  EXPECT_TRUE(FileExists(dir.File("a/b/c/nodestats.txt")));
  // show names a capture file for what it is.
  RunResult shown = RunZemostats({"show", capture});
  EXPECT_EQ(1, shown.exitCode);
  EXPECT_NE(std::string::npos, shown.err.find(capture + ": a capture file, not a saved statistics context")) << shown.err;
}

TEST(ZemostatsUsage, UsageErrorsAreTwoAndHelpIsZero) {
  EXPECT_EQ(2, RunZemostats({}).exitCode);
  EXPECT_EQ(2, RunZemostats({"analyze"}).exitCode);
  // Each says what is wrong in words.
  const std::pair<std::vector<std::string>, std::string> said[] = {
      {{"frobnicate"}, "unknown command 'frobnicate'"},
      {{"analyze", "x.pcap", "--top", "0"}, "--top must be at least 1"},
      {{"analyze", "x.pcap", "--top", std::string(300, '9')}, "--top must be at most 4294967295"},
      {{"analyze", "x.pcap", "--save-deltas", "d", "--every", "0.5"}, "--every takes whole seconds: 0.5 is not one"},
      {{"analyze", "x.pcap", "--threads", "3"}, "--threads must be at most 2"},
      {{"capture", "-i", "lo", "-G", "-1"}, "--seconds"},
      {{"analyze", "x.pcap", "--sort", "size"}, "--sort takes bytes, packets, sent or received: size is none of them"},
      {{"analyze", "x.pcap", "--color", "blue"}, "--color takes auto, never or always: blue is none of them"},
      {{"analyze", "x.pcap", "--from", "yesterday"}, "--from takes an ISO 8601 time"},
      {{"analyze", "x.pcap", "--from", "2026-01-01T10:00:00Z", "--to", "2026-01-01T09:00Z"},
       "--to 2026-01-01T09:00Z is before --from 2026-01-01T10:00:00Z: the window is empty"},
  };
  for (const auto& [args, says] : said) {
    RunResult r = RunZemostats(args);
    EXPECT_EQ(2, r.exitCode) << says;
    EXPECT_NE(std::string::npos, r.err.find("zemostats: " + says)) << r.err;
    EXPECT_EQ(std::string::npos, r.err.find("999999")) << r.err;
  }
  RunResult version = RunZemostats({"--version"});
  EXPECT_EQ(0, version.exitCode);
  EXPECT_EQ("zemostats " ZEMO_VERSION "\n", version.out);
  EXPECT_EQ(2, RunZemostats({"analyze", "x.pcap", "--bogus"}).exitCode);
  EXPECT_EQ(2, RunZemostats({"capture"}).exitCode);
  EXPECT_EQ(2, RunZemostats({"generate", "x.pcap", "--hosts", "2"}).exitCode);
  for (const char* command : {"analyze", "capture", "generate"}) {
    RunResult help = RunZemostats({command, "--help"});
    EXPECT_EQ(0, help.exitCode) << command;
    EXPECT_NE(std::string::npos, help.out.find("Usage")) << command;
  }
  RunResult top = RunZemostats({"--help"});
  EXPECT_EQ(0, top.exitCode);
  for (const char* command : {"analyze", "capture", "generate"}) EXPECT_NE(std::string::npos, top.out.find(command));
  // The rules that differ from tshark's are said where users look.
  for (const auto& help : {top.out, RunZemostats({"analyze", "--help"}).out})
    for (const char* rule : {"ARP's sender and target", "outer header", "transmitter-receiver hop"})
      EXPECT_NE(std::string::npos, help.find(rule)) << rule;
}

TEST(ZemostatsCapture, AMissingInterfaceIsADataError) {
  RunResult r = RunZemostats({"capture", "-i", "zs-no-such-if0", "-c", "1"});
  EXPECT_EQ(1, r.exitCode);
  EXPECT_NE(std::string::npos, r.err.find("zs-no-such-if0")) << r.err;
}

}  // namespace

namespace {

// Each kind of cell the JSON document writes, read back by a JSON parser:
// text with what JSON escapes, characters outside ASCII (a lone surrogate
// becomes U+FFFD), numbers of every width, whole doubles and what JSON
// cannot hold.
TEST(ZemostatsJson, CellsReadBackAsTheValuesTheyHold) {
  using zemo::CVariant;
  const std::u16string lone = std::u16string(u"a") + char16_t(0xD800) + u"b";
  const std::pair<CVariant, json> cases[] = {
      {CVariant::Str(u"plain 10.0.0.1"), "plain 10.0.0.1"},
      {CVariant::Str(u"quote \" back \\ tab \t nl \n bell \x07"), "quote \" back \\ tab \t nl \n bell \x07"},
      {CVariant::Str(u"caf\u00e9 \u20ac \U0001F600"), "caf\u00e9 \u20ac \U0001F600"},
      {CVariant::Str(lone), "a\uFFFDb"},
      // Whole numbers beyond what a double holds exactly go as their digits.
      {CVariant::UI8(18446744073709551615ull), "18446744073709551615"},
      {CVariant::I8(-9223372036854775807ll), "-9223372036854775807"},
      {CVariant::UI8(9007199254740992ull), 9007199254740992ull},
      {CVariant::UI8(9007199254740993ull), "9007199254740993"},
      {CVariant::UI4(4294967295u), 4294967295u},
      {CVariant::UI2(65535), 65535},
      {CVariant::R8(5.0), 5.0},
      {CVariant::R8(0.1), 0.1},
      {CVariant::R8(1e300), 1e300},
      {CVariant::R8(std::numeric_limits<double>::quiet_NaN()), nullptr},
      {CVariant::Bool(true), true},
      {CVariant(), nullptr},
  };
  for (const auto& [cell, want] : cases) {
    std::string text;
    zemo::cli::AppendJsonCell(text, cell);
    json got = json::parse(text, nullptr, false);
    ASSERT_FALSE(got.is_discarded()) << text;
    EXPECT_EQ(want, got) << text;
    EXPECT_EQ(want.is_number_float(), got.is_number_float()) << text;
  }
}

}  // namespace
