// zemostats against its peers on every shared capture: capinfos for the
// capture's totals and times, tshark for the nodes and conversations of each
// Ethernet capture, and tshark's io,stat for the traffic lines.
//
// tshark is asked once per capture for each frame's length, time, protocol
// stack and outermost Ethernet, IPv4, IPv6 and ARP addresses; what zemostats
// must count follows from those by its own rules, where they differ from
// tshark's on purpose (README, "Where zemostats counts otherwise"):
// - ARP's sender and target protocol addresses are the logical pair of the
//   frame, where tshark's endpoints and conversations have no ARP;
// - a tunnel counts under its outermost addresses only (occurrence f, and
//   the first of IPv4, IPv6 and ARP in the frame's protocols);
// - a frame longer than 65535 bytes counts as 65535 bytes in the tables, whose
//   packet lengths are 16-bit; the capture totals are whole.
// And where capinfos reads a file otherwise than libpcap:
// - SunATM frames: capinfos counts them without the 4-byte pseudo-header
//   that libpcap's length holds;
// - a file with invalid time stamps: capinfos orders its packets by them,
//   zemostats leaves them out of the time order;
// - a file of a link type that capinfos does not know: nothing to compare.
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>

#include <nlohmann/json.hpp>

#include "cli/cli_support.h"
#include "cli/generator.h"

namespace {

using nlohmann::json;
using namespace zemo::testing_cli;
namespace fs = std::filesystem;

// A decimal number, 0 when the text is none.
uint64_t Number(const std::string& text) {
  uint64_t n = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return n;
    n = n * 10 + uint64_t(c - '0');
  }
  return n;
}

struct Figures {
  uint64_t packetsSent = 0, packetsReceived = 0, bytesSent = 0, bytesReceived = 0;
  bool operator==(const Figures&) const = default;
};
using Nodes = std::map<std::string, Figures>;
using Pair = std::pair<std::string, std::string>;
using Conversations = std::map<Pair, std::pair<uint64_t, uint64_t>>;  // packets, bytes

// Seconds since 1970 with up to nine decimals, as capinfos and tshark write
// them, in nanoseconds; none for what is no such time.
std::optional<uint64_t> EpochNs(const std::string& text) {
  size_t dot = text.find('.');
  if (text.empty() || text.find_first_not_of("0123456789.\n") != std::string::npos) return std::nullopt;
  std::string fraction = dot == std::string::npos ? "" : text.substr(dot + 1, text.find('\n', dot) - dot - 1);
  if (fraction.size() > 9) return std::nullopt;
  fraction.resize(9, '0');
  return Number(text.substr(0, dot)) * 1000000000ull + Number(fraction);
}

struct Expected {
  uint64_t packets = 0, bytes = 0;
  uint64_t earliest = ~0ull, latest = 0;
  Nodes nodes;
  Conversations conversations;
};

// What zemostats must count of an Ethernet capture, from tshark's fields.
Expected FromTshark(const std::string& path) {
  Expected e;
  for (const std::vector<std::string>& c :
       TsharkFields(path,
                    {"frame.len", "frame.protocols", "eth.src", "eth.dst", "ip.src", "ip.dst", "ipv6.src", "ipv6.dst",
                     "arp.src.proto_ipv4", "arp.dst.proto_ipv4", "frame.time_epoch"},
                    "-E occurrence=f")) {
    const uint64_t length = Number(c[0]);
    const uint64_t counted = std::min<uint64_t>(length, 0xFFFF);
    ++e.packets;
    e.bytes += length;
    if (std::optional<uint64_t> time = EpochNs(c[10])) {
      e.earliest = std::min(e.earliest, *time);
      e.latest = std::max(e.latest, *time);
    }
    std::vector<Pair> pairs;
    if (!c[2].empty() && !c[3].empty()) pairs.emplace_back(c[2], c[3]);
    for (const std::string& layer : Split(c[1], ':')) {
      const int at = layer == "ip" ? 4 : layer == "ipv6" ? 6 : layer == "arp" ? 8 : -1;
      if (at < 0) continue;
      if (!c[at].empty() && !c[at + 1].empty()) pairs.emplace_back(c[at], c[at + 1]);
      break;
    }
    for (const auto& [source, destination] : pairs) {
      Figures& s = e.nodes[source];
      ++s.packetsSent;
      s.bytesSent += counted;
      Figures& d = e.nodes[destination];
      ++d.packetsReceived;
      d.bytesReceived += counted;
      auto& conversation = e.conversations[{source, destination}];
      ++conversation.first;
      conversation.second += counted;
    }
  }
  return e;
}

// Differences between what tshark implies and what zemostats counted, in words.
std::vector<std::string> CompareTables(const Expected& e, const json& doc) {
  std::vector<std::string> out;
  const json& nodes = doc["statistics"]["nodestats"];
  Nodes got;
  for (const json& row : nodes["rows"])
    got[row["Node"].get<std::string>()] = {row["PacketsSent"], row["PacketsReceived"], row["BytesSent"],
                                           row["BytesReceived"]};
  auto text = [](const Figures& f) {
    return std::to_string(f.packetsSent) + "/" + std::to_string(f.packetsReceived) + " packets, " +
           std::to_string(f.bytesSent) + "/" + std::to_string(f.bytesReceived) + " bytes sent/received";
  };
  for (const auto& [node, figures] : e.nodes) {
    auto it = got.find(node);
    if (it == got.end())
      out.push_back("node " + node + " missing (tshark: " + text(figures) + ")");
    else if (!(it->second == figures))
      out.push_back("node " + node + ": " + text(it->second) + "; tshark: " + text(figures));
  }
  for (const auto& [node, figures] : got)
    if (!e.nodes.count(node)) out.push_back("node " + node + " that tshark has not: " + text(figures));

  // Conversations by direction, over all protocols.
  const json& table = doc["statistics"]["conversationstats"];
  Conversations conversations;
  for (const json& row : table["rows"]) {
    auto& c = conversations[{row["Source"], row["Dest"]}];
    c.first += row["Packets"].get<uint64_t>();
    c.second += row["Bytes"].get<uint64_t>();
  }
  if (conversations != e.conversations) {
    for (const auto& [pair, figures] : e.conversations)
      if (conversations[pair] != figures)
        out.push_back("conversation " + pair.first + " > " + pair.second + ": " +
                      std::to_string(conversations[pair].first) + " packets; tshark: " +
                      std::to_string(figures.first));
    if (conversations.size() != e.conversations.size())
      out.push_back(std::to_string(conversations.size()) + " conversations; tshark: " +
                    std::to_string(e.conversations.size()));
  }
  return out;
}

// ISO 8601 UTC with nanoseconds as seconds since 1970, in nanoseconds.
uint64_t IsoNs(const std::string& iso) {
  std::tm tm{};
  unsigned long long fraction = 0;
  if (std::sscanf(iso.c_str(), "%d-%d-%dT%d:%d:%d.%lluZ", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour,
                  &tm.tm_min, &tm.tm_sec, &fraction) != 7)
    return 0;
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  return uint64_t(timegm(&tm)) * 1000000000ull + fraction;
}

// One capture against capinfos and, if it is Ethernet, tshark.
std::vector<std::string> CheckCapture(const std::string& path) {
  const std::string noLeakCheck = "ASAN_OPTIONS=" + std::string(std::getenv("ASAN_OPTIONS") ? std::getenv("ASAN_OPTIONS") : "") +
                                  ":detect_leaks=0";
  RunResult r = RunZemostats({"analyze", "--json", path}, "", noLeakCheck);
  json doc = json::parse(r.out, nullptr, false);
  // capinfos: packets, data size, first and last time, strict time order.
  std::vector<std::string> info = Split(Output("capinfos -T -r -M -c -d -a -e -S -o " + Quote(path)), '\t');
  if (info.size() < 6) return {};
  if (doc.is_discarded()) return {"zemostats reads no capture where capinfos does: " + r.err};
  std::vector<std::string> out;
  const json& capture = doc["capture"];
  const uint64_t packets = capture["packets"].get<uint64_t>();
  const uint64_t pseudoHeaders = capture["link_type"] == "SUNATM" ? 4 * packets : 0;
  if (packets != Number(info[1]) || capture["bytes"].get<uint64_t>() != Number(info[2]) + pseudoHeaders)
    out.push_back("capture " + capture["packets"].dump() + " packets, " + capture["bytes"].dump() +
                  " bytes; capinfos: " + info[1] + ", " + info[2]);
  // Times where capinfos's are sound: its first and last are the first and
  // last packets of a file in order, and a file with a stamp beyond 2038
  // it orders as it reads the seconds, signed or not, from one packet to
  // the next (a first time after the last says so).
  const std::optional<uint64_t> first = EpochNs(info[3]), last = EpochNs(info[4]);
  const bool ordered = info[5].rfind("True", 0) == 0;
  bool invalidTimes = false;
  for (const json& w : doc["warnings"]) invalidTimes |= w.get<std::string>().find("invalid time stamp") != std::string::npos;
  const std::string start = capture["start"].is_string() ? capture["start"].get<std::string>() : "";
  const std::string stop = capture["stop"].is_string() ? capture["stop"].get<std::string>() : "";
  if (first && last && *first <= *last && !invalidTimes) {
    if (ordered && (IsoNs(start) != *first || IsoNs(stop) != *last))
      out.push_back("start and stop " + start + ", " + stop + "; capinfos: " + info[3] + ", " + info[4]);
    if (capture["time_ordered"].get<bool>() != ordered)
      out.push_back("time order " + capture["time_ordered"].dump() + "; capinfos: " + info[5]);
  }

  if (capture["link_type"] == "EN10MB") {
    Expected e = FromTshark(path);
    // Out of order too, the earliest and latest of tshark's times.
    if (!invalidTimes && e.packets && (IsoNs(start) != e.earliest || IsoNs(stop) != e.latest))
      out.push_back("start and stop " + start + ", " + stop + "; tshark's earliest and latest " +
                    std::to_string(e.earliest) + ", " + std::to_string(e.latest) + " ns");
    std::vector<std::string> tables = CompareTables(e, doc);
    out.insert(out.end(), tables.begin(), tables.end());
  }
  return out;
}

#define SKIP_WITHOUT_ALL_PEERS() SKIP_WITHOUT_PEERS("tshark", "capinfos", "tcpdump", "mergecap")

TEST(Peers, EveryCaptureCountsWhatCapinfosAndTsharkCount) {
  SKIP_WITHOUT_ALL_PEERS();
  SKIP_WITHOUT_SHARED_CAPTURES();
  CheckEachFile(SharedCaptures(), [](size_t, const std::string& path) {
    std::vector<std::string> problems = CheckCapture(path);
    std::string text;
    for (size_t i = 0; i < problems.size() && i < 6; ++i) text += "\n  " + problems[i];
    if (problems.size() > 6) text += "\n  ... " + std::to_string(problems.size() - 6) + " more";
    return text;
  });
}

// The traffic lines against tshark -z io,stat at the same interval: frames
// and bytes of each line, from the first packet on.
TEST(Peers, TrafficLinesAreTsharksIoStatBins) {
  SKIP_WITHOUT_ALL_PEERS();
  SKIP_WITHOUT_SHARED_CAPTURES();
  for (const char* name : {"tcpdump/afs.pcap", "tcpdump/ieee802.11_exthdr.pcap", "aircrack/wpa2-psk-linksys.cap",
                           "tcpdump/mptcp-v0.pcap", "tcpdump/arp-oobr.pcap"}) {
    SCOPED_TRACE(name);
    const std::string path = (CapturesRoot() / name).string();
    RunResult r = RunZemostats({"analyze", "--json", path});
    ASSERT_EQ(0, r.exitCode) << r.err;
    const json capture = json::parse(r.out)["capture"];
    const json& traffic = capture["traffic"];
    const uint64_t interval = traffic["interval_seconds"].get<uint64_t>();
    std::vector<std::pair<uint64_t, uint64_t>> bins;
    std::stringstream lines(Output("tshark -q -r " + Quote(path) + " -z io,stat," + std::to_string(interval)));
    for (std::string line; std::getline(lines, line);) {
      std::vector<std::string> cells = Split(line, '|');
      if (cells.size() < 4 || cells[1].find("<>") == std::string::npos) continue;
      bins.emplace_back(Number(cells[2].substr(cells[2].find_first_not_of(' '))),
                        Number(cells[3].substr(cells[3].find_first_not_of(' '))));
    }
    ASSERT_FALSE(bins.empty());
    std::vector<std::pair<uint64_t, uint64_t>> ours;
    uint64_t packets = 0, bytes = 0;
    for (const json& row : traffic["rows"]) {
      ours.emplace_back(row["Packets"].get<uint64_t>(), row["Bytes"].get<uint64_t>());
      packets += ours.back().first;
      bytes += ours.back().second;
    }
    EXPECT_EQ(bins, ours);
    EXPECT_EQ(capture["packets"].get<uint64_t>(), packets);
    EXPECT_EQ(capture["bytes"].get<uint64_t>(), bytes);
    // The busiest second is tshark's busiest one-second bin.
    uint64_t peakBytes = 0;
    std::stringstream seconds(Output("tshark -q -r " + Quote(path) + " -z io,stat,1"));
    for (std::string line; std::getline(seconds, line);) {
      std::vector<std::string> cells = Split(line, '|');
      if (cells.size() >= 4 && cells[1].find("<>") != std::string::npos)
        peakBytes = std::max<uint64_t>(peakBytes, Number(cells[3].substr(cells[3].find_first_not_of(' '))));
    }
    EXPECT_EQ(peakBytes * 8, capture["peak_bits_per_second"].get<uint64_t>());
  }
}

// A capture filter passes the packets that tcpdump passes with it.
TEST(Peers, AFilterPassesWhatTcpdumpPasses) {
  SKIP_WITHOUT_ALL_PEERS();
  SKIP_WITHOUT_SHARED_CAPTURES();
  const std::pair<const char*, const char*> cases[] = {
      {"tcpdump/afs.pcap", "udp port 7000 or udp port 7001"},
      {"tcpdump/afs.pcap", "host 192.168.3.4 and not udp"},
      {"tcpdump/mptcp-v0.pcap", "tcp[tcpflags] & tcp-syn != 0"},
      {"tcpdump/LINKTYPE_RAW_ipv6.pcap", "ip6 and icmp6"},
      {"aircrack/wpa2-psk-linksys.cap", "type data"},
      {"aircrack/wpa2-psk-linksys.cap", "ether proto 0x888e or type mgt subtype beacon"},
  };
  for (const auto& [name, filter] : cases) {
    SCOPED_TRACE(std::string(name) + ": " + filter);
    const std::string path = (CapturesRoot() / name).string();
    RunResult r = RunZemostats({"analyze", "--json", "-f", filter, path});
    ASSERT_EQ(0, r.exitCode) << r.err;
    const json capture = json::parse(r.out)["capture"];
    const std::string counted = Output("tcpdump -r " + Quote(path) + " --count " + Quote(filter));
    ASSERT_NE(std::string::npos, counted.find(" packets")) << counted;
    EXPECT_EQ(Number(counted.substr(0, counted.find(' '))), capture["packets"].get<uint64_t>());
    EXPECT_EQ(filter, capture["filter"]);
  }
}

// Files analyzed together are their mergecap merge: two samples whose
// packets interleave and tie, one read from standard input, and two real
// captures years apart.
TEST(Peers, FilesAnalyzedTogetherAreTheirMergecapMerge) {
  SKIP_WITHOUT_ALL_PEERS();
  ScratchDir dir;
  const std::string a = dir.File("a.pcap"), b = dir.File("b.pcap");
  std::string error;
  ASSERT_TRUE(zemo::cli::Generate(a, {3000, 30, 10, 3}, nullptr, &error)) << error;
  ASSERT_TRUE(zemo::cli::Generate(b, {2000, 20, 12, 4}, nullptr, &error)) << error;
  std::vector<std::pair<std::string, std::string>> pairs = {{a, b}};
  if (fs::is_directory(CapturesRoot()))
    pairs.emplace_back((CapturesRoot() / "tcpdump/mptcp-v0.pcap").string(), (CapturesRoot() / "tcpdump/afs.pcap").string());
  for (const auto& [first, second] : pairs) {
    SCOPED_TRACE(first + " " + second);
    const std::string merged = dir.File("merged.pcapng");
    ASSERT_EQ(0, std::system(("mergecap -w " + Quote(merged) + " " + Quote(first) + " " + Quote(second)).c_str()));
    RunResult one = RunZemostats({"analyze", "--json", merged});
    RunResult two = RunZemostats({"analyze", "--json", first, "-"}, second);
    ASSERT_EQ(0, one.exitCode) << one.err;
    ASSERT_EQ(0, two.exitCode) << two.err;
    json x = json::parse(one.out), y = json::parse(two.out);
    EXPECT_EQ(json::array({first, "-"}), y["capture"]["files"]);
    EXPECT_EQ(x["statistics"], y["statistics"]);
    EXPECT_EQ(x["report"], y["report"]);
    for (const char* field : {"packets", "bytes", "start", "stop", "time_ordered", "traffic", "peak_bits_per_second"})
      EXPECT_EQ(x["capture"][field], y["capture"][field]) << field;
  }
}

// The protocol hierarchy counts each protocol's packets as tshark's io,phs
// does, summed over the places it stands in tshark's tree, on captures
// without tunnels (whose inner layers the decoder does not report).
TEST(Peers, TheProtocolHierarchyCountsWhatTsharksIoPhsCounts) {
  SKIP_WITHOUT_ALL_PEERS();
  SKIP_WITHOUT_SHARED_CAPTURES();
  const std::map<std::string, std::string> names = {{"eth", "Ethernet II"}, {"ip", "IPv4"}, {"ipv6", "IPv6"},
                                                    {"tcp", "TCP"},         {"udp", "UDP"}, {"arp", "ARP"},
                                                    {"icmp", "ICMP"},       {"icmpv6", "ICMPv6"}};
  for (const char* name : {"tcpdump/afs.pcap", "tcpdump/mptcp-v0.pcap", "tcpdump/OSPFv2_Capture_FINAL.pcapng",
                           "tcpdump/OSPFv3_broadcast_adjacency.pcap", "tcpdump/LINKTYPE_RAW_ipv6.pcap",
                           "tcpdump/EIGRP_ipv6.pcap"}) {
    SCOPED_TRACE(name);
    const std::string path = (CapturesRoot() / name).string();
    std::map<std::string, uint64_t> theirs, ours;
    std::stringstream lines(Output("tshark -q -r " + Quote(path) + " -z io,phs"));
    for (std::string line; std::getline(lines, line);) {
      std::stringstream words(line);
      std::string protocol, frames;
      words >> protocol >> frames;
      if (names.count(protocol) && frames.rfind("frames:", 0) == 0) theirs[names.at(protocol)] += Number(frames.substr(7));
    }
    RunResult r = RunZemostats({"analyze", "--json", path});
    ASSERT_EQ(0, r.exitCode) << r.err;
    const json document = json::parse(r.out);
    for (const json& row : document["report"]["protocol_hierarchy"]["rows"])
      for (const auto& [theirName, ourName] : names)
        if (row["protocol"] == ourName) ours[ourName] += row["packets"].get<uint64_t>();
    EXPECT_FALSE(theirs.empty());
    EXPECT_EQ(theirs, ours);
  }
}

}  // namespace
