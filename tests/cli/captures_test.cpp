// Real captures and a live interface through the zemostats program.
#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <unistd.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <thread>

#include <nlohmann/json.hpp>

#include "cli/capture_source.h"
#include "cli/cli_support.h"

namespace {

using nlohmann::json;
using namespace zemo::testing_cli;
namespace fs = std::filesystem;

struct Truth {
  bool opens = false;
  uint64_t packets = 0;
  uint64_t bytes = 0;
  bool readError = false;
};

// What libpcap itself reads from the file, which the capture's totals are,
// frames beyond the engine's 16-bit lengths too.
Truth ReadWithLibpcap(const std::string& path) {
  Truth t;
  std::string error;
  auto source = zemo::cli::CaptureSource::OpenFile(path, &error);
  if (!source) return t;
  t.opens = true;
  zemo::cli::CaptureFrame frame{};
  for (;;) {
    zemo::cli::ReadResult r = source->Next(&frame);
    if (r != zemo::cli::ReadResult::kFrame) {
      t.readError = r == zemo::cli::ReadResult::kError;
      break;
    }
    ++t.packets;
    t.bytes += frame.wireLength;
  }
  return t;
}

// The problems of JSON documents against the document's schema, one a line,
// from Debian's python3-jsonschema; nullopt when it is not installed.
std::optional<std::string> SchemaProblems(const std::vector<std::string>& documents, const std::string& scratch) {
  if (std::system("/usr/bin/python3 -c 'import jsonschema' >/dev/null 2>&1") != 0) return std::nullopt;
  const std::string list = scratch + "/documents", script = scratch + "/validate.py", out = scratch + "/problems";
  std::ofstream(list) << [&] {
    std::string text;
    for (const std::string& d : documents) text += d + "\n";
    return text;
  }();
  std::ofstream(script) << R"(import json, sys
import jsonschema
validator = jsonschema.Draft7Validator(json.load(open(sys.argv[1])))
jsonschema.Draft7Validator.check_schema(validator.schema)
for path in open(sys.argv[2]).read().split("\n"):
    if path:
        for e in validator.iter_errors(json.load(open(path))):
            print(path + ": /" + "/".join(str(p) for p in e.absolute_path) + ": " + e.message[:300])
)";
  const std::string command = "/usr/bin/python3 " + script + " " ZEMO_SOURCE_DIR "/cli/zemostats.schema.json " +
                              list + " >" + out + " 2>&1";
  const int status = std::system(command.c_str());
  std::string problems = ReadFile(out);
  if (status != 0 && problems.empty()) problems = "the validator failed";
  return problems;
}

// One capture through `zemostats analyze --json`, read on a second thread
// and again on one; empty when all is well, else what went wrong. The
// document goes to saveAs.
std::string CheckCapture(const std::string& path, bool leakCheck, const std::string& saveAs) {
  Truth truth = ReadWithLibpcap(path);
  // The leak check at exit is most of an instrumented run's time: every
  // tenth capture has it, to keep the whole run short.
  const char* inherited = std::getenv("ASAN_OPTIONS");
  std::string noLeakCheck = "ASAN_OPTIONS=" + std::string(inherited ? inherited : "") + ":detect_leaks=0";
  RunResult r = RunZemostats({"analyze", "--json", path}, "", leakCheck ? "" : noLeakCheck);
  for (const char* report : {"runtime error", "AddressSanitizer", "LeakSanitizer", "UndefinedBehavior"})
    if (r.err.find(report) != std::string::npos) return "sanitizer report: " + r.err;
  if (!truth.opens) {
    if (r.exitCode != 1 || r.err.find(path) == std::string::npos) return "an unreadable file must fail with its name";
    return "";
  }
  int wanted = truth.readError ? 1 : 0;
  if (r.exitCode != wanted) return "exit code " + std::to_string(r.exitCode) + ", wanted " + std::to_string(wanted) + ": " + r.err;
  json doc = json::parse(r.out, nullptr, false);
  if (doc.is_discarded()) return "no JSON document";
  std::ofstream(saveAs) << r.out;
  uint64_t packets = doc["capture"]["packets"].get<uint64_t>(), bytes = doc["capture"]["bytes"].get<uint64_t>();
  if (packets != truth.packets || bytes != truth.bytes)
    return "totals " + std::to_string(packets) + " packets, " + std::to_string(bytes) + " bytes; libpcap reads " +
           std::to_string(truth.packets) + ", " + std::to_string(truth.bytes);
  if (truth.readError && doc["warnings"].empty()) return "a read error without a warning";
  RunResult single = RunZemostats({"analyze", "--json", "--threads", "1", path}, "", noLeakCheck);
  if (single.out != r.out) return "one thread and two give different documents";
  return "";
}

TEST(SharedCaptures, EveryCaptureRunsCleanWithTheTotalsLibpcapReads) {
  SKIP_WITHOUT_SHARED_CAPTURES();
  const std::vector<std::string> files = SharedCaptures();
  ASSERT_FALSE(files.empty());
  ScratchDir documents;
  CheckEachFile(files, [&](size_t i, const std::string& path) {
    return CheckCapture(path, i % 10 == 0, documents.File(std::to_string(i) + ".json"));
  });

  // Every document has the form its schema file gives.
  std::vector<std::string> written;
  for (size_t i = 0; i < files.size(); ++i)
    if (FileExists(documents.File(std::to_string(i) + ".json"))) written.push_back(documents.File(std::to_string(i) + ".json"));
  EXPECT_GT(written.size(), files.size() / 2);
  std::optional<std::string> problems = SchemaProblems(written, documents.Path());
  if (!problems && std::getenv("ZEMO_REQUIRE_PEERS")) {
    ADD_FAILURE() << "python3-jsonschema is missing";
  }
  if (problems) {
    EXPECT_EQ("", problems->substr(0, 4000)) << "documents that break cli/zemostats.schema.json";
  }
}

// A CSV file's fields, by RFC 4180; a line that does not end in CRLF, or a
// quote out of place, is a problem.
std::vector<std::vector<std::string>> ParseCsv(const std::string& text, std::string* problem) {
  std::vector<std::vector<std::string>> lines(1, std::vector<std::string>(1));
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    std::string& field = lines.back().back();
    if (quoted) {
      if (c != '"') field += c;
      else if (i + 1 < text.size() && text[i + 1] == '"') field += text[++i];
      else quoted = false;
    } else if (c == '"' && field.empty()) {
      quoted = true;
    } else if (c == ',') {
      lines.back().emplace_back();
    } else if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
      ++i;
      lines.emplace_back(1);
    } else if (c == '\n' || c == '\r' || c == '"') {
      *problem = "a bare line end or quote at byte " + std::to_string(i);
      return {};
    } else {
      field += c;
    }
  }
  if (quoted || lines.back().size() != 1 || !lines.back()[0].empty()) *problem = "the last line is not ended";
  lines.pop_back();
  return lines;
}

// A value of the JSON document as a CSV field has it.
bool SameValue(const json& value, const std::string& field) {
  if (value.is_null()) return field.empty();
  if (value.is_string()) return value.get<std::string>() == field;
  if (value.is_number_float()) return !field.empty() && std::strtod(field.c_str(), nullptr) == value.get<double>();
  return value.dump() == field;
}

// The report's tables in their forms on real captures: each table of the
// JSON document's report has its CSV file, whose head is the table's
// columns and whose lines are the whole table in the report's order, the
// rows the report shows first; capture.csv has the capture's figures; and
// the rows of every table in the JSON document are keyed by its columns.
TEST(SharedCaptures, CsvFilesAndTheJsonDocumentHoldTheSameTables) {
  SKIP_WITHOUT_SHARED_CAPTURES();
  const fs::path root = CapturesRoot();
  for (const char* name : {"tcpdump/afs.pcap", "aircrack/wpa2-psk-linksys.cap", "tcpdump/LINKTYPE_RAW_ipv6.pcap",
                           "tcpdump/mptcp-v0.pcap"}) {
    SCOPED_TRACE(name);
    ScratchDir dir;
    const std::string csv = dir.File("csv");
    RunResult r = RunZemostats({"analyze", "--json", "--top", "3", "--csv", csv, (root / name).string()});
    ASSERT_EQ(0, r.exitCode) << r.err;
    const json doc = json::parse(r.out);
    ASSERT_FALSE(doc["report"].empty());
    for (const auto& [id, table] : doc["report"].items()) {
      SCOPED_TRACE(id);
      std::string problem;
      const auto lines = ParseCsv(ReadFile(csv + "/" + id + ".csv"), &problem);
      ASSERT_EQ("", problem);
      ASSERT_FALSE(lines.empty());
      EXPECT_EQ(table["columns"].get<std::vector<std::string>>(), lines[0]);
      EXPECT_EQ(table["rows"].size() + table["more_rows"].get<size_t>(), lines.size() - 1);
      for (size_t i = 0; i < table["rows"].size() && i + 1 < lines.size(); ++i)
        for (size_t c = 0; c < lines[0].size() && c < lines[i + 1].size(); ++c)
          EXPECT_TRUE(SameValue(table["rows"][i][lines[0][c]], lines[i + 1][c]))
              << "row " << i << " " << lines[0][c] << ": " << table["rows"][i][lines[0][c]] << " " << lines[i + 1][c];
    }
    std::string problem;
    bool packets = false;
    for (const auto& line : ParseCsv(ReadFile(csv + "/capture.csv"), &problem))
      if (line.size() == 3 && line[1] == "packets") packets = SameValue(doc["capture"]["packets"], line[2]);
    EXPECT_TRUE(packets) << problem;
    for (const json* tables : {&doc["report"], &doc["statistics"]})
      for (const auto& [id, table] : tables->items())
        for (const json& row : table["rows"]) {
          std::set<std::string> keys;
          for (const auto& [key, value] : row.items()) keys.insert(key);
          ASSERT_EQ(table["columns"].get<std::set<std::string>>(), keys) << id;
        }
  }
}

// Figures once reported wrong on these captures, against what tshark and
// capinfos say of them (each found by a user comparing the two).
TEST(SharedCaptures, FiguresOnceWrongAreWhatTsharkCounts) {
  SKIP_WITHOUT_SHARED_CAPTURES();
  const fs::path root = CapturesRoot();
  // Packets of a protocol over all its conversations, of a protocol in the
  // protocol table, and the warning that has a text.
  auto conversations = [](const json& doc, const std::string& protocol) {
    uint64_t packets = 0;
    for (const json& row : doc["statistics"]["conversationstats"]["rows"])
      if (row["Protocol"] == protocol) packets += row["Packets"].get<uint64_t>();
    return packets;
  };
  auto protocol = [](const json& doc, const std::string& name) {
    for (const json& row : doc["statistics"]["protocolidstats"]["rows"])
      if (row["Protocol"] == name) return row["Packets"].get<uint64_t>();
    return uint64_t(0);
  };
  auto warned = [](const json& doc, const std::string& text) {
    for (const json& w : doc["warnings"])
      if (w.get<std::string>().find(text) != std::string::npos) return true;
    return false;
  };
  struct Case {
    const char* file;
    std::function<void(const json&)> check;
  };
  const Case cases[] = {
      // A frame that crossed no distribution system counts once in its conversation.
      {"aircrack/wpa2-psk-linksys.cap", [&](const json& d) { EXPECT_EQ(85u, conversations(d, "802.11 Beacon")); }},
      {"aircrack/zn2i.pcap", [&](const json& d) { EXPECT_EQ(4u, conversations(d, "EAPOL")); }},
      {"aircrack/80211ad_beacon.pcap",
       [&](const json& d) { EXPECT_EQ(1u, d["statistics"]["conversationstats"]["rows"][0]["Packets"].get<uint64_t>()); }},
      // A stamp a second or more past its second poisons no rate.
      {"tcpdump/timestamp_invalid_nano.pcap",
       [&](const json& d) {
         EXPECT_TRUE(warned(d, "2 packets have invalid time stamps")) << d["warnings"];
         EXPECT_TRUE(warned(d, "the first: packet 2"));
         EXPECT_LT(d["capture"]["average_bits_per_second"].get<double>(), 1e6);
       }},
      {"tcpdump/bigtcp-ipv4.pcap",
       [&](const json& d) {
         EXPECT_EQ(80066u, d["capture"]["bytes"].get<uint64_t>());
         EXPECT_TRUE(warned(d, "1 packet longer than 65535 bytes counts as 65535 bytes")) << d["warnings"];
       }},
      // The first fragments of a datagram carry UDP; per-VLAN spanning tree,
      // CDP in GRE; IPv4 on a raw IPv6 link is said and not taken for IPv6.
      {"tcpdump/afs.pcap", [&](const json& d) { EXPECT_EQ(427u, protocol(d, "UDP")); }},
      {"tcpdump/various_gre.pcap",
       [&](const json& d) {
         EXPECT_EQ(63u, protocol(d, "STP"));
         EXPECT_EQ(3u, protocol(d, "CDP"));
         EXPECT_EQ(5u, protocol(d, "Ethernet Loopback"));
       }},
      {"tcpdump/LINKTYPE_IPV6_invalid.pcap",
       [&](const json& d) {
         EXPECT_EQ(0u, protocol(d, "IPv6"));
         EXPECT_TRUE(warned(d, "does not hold the protocol that link type IPV6 carries")) << d["warnings"];
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    RunResult r = RunZemostats({"analyze", "--json", (root / c.file).string()});
    ASSERT_EQ(0, r.exitCode) << r.err;
    c.check(json::parse(r.out));
  }
}

// A network namespace with a veth pair: one end stays here, the other in
// the namespace with an address to send to.
class VethPair {
 public:
  VethPair() {
    std::string id = std::to_string(getpid() % 100000);
    m_namespace = "zst" + id;
    m_here = "zsa" + id;
    m_there = "zsb" + id;
    // A subnet of this process's own, since other test runs may make pairs at the same time.
    int pid = getpid();
    std::string subnet = "10." + std::to_string(64 + (pid / 256) % 128) + "." + std::to_string(pid % 256) + ".";
    m_far = subnet + "2";
    m_ok = Sh("ip netns add " + m_namespace) && Sh("ip link add " + m_here + " type veth peer name " + m_there) &&
           Sh("ip link set " + m_there + " netns " + m_namespace) && Sh("ip addr add " + subnet + "1/24 dev " + m_here) &&
           Sh("ip link set " + m_here + " up") &&
           Sh("ip netns exec " + m_namespace + " ip addr add " + m_far + "/24 dev " + m_there) &&
           Sh("ip netns exec " + m_namespace + " ip link set " + m_there + " up");
  }
  ~VethPair() {
    Sh("ip link del " + m_here);
    Sh("ip netns del " + m_namespace);
  }
  bool Ok() const { return m_ok; }
  const std::string& Here() const { return m_here; }
  const std::string& Far() const { return m_far; }

 private:
  static bool Sh(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }
  std::string m_namespace, m_here, m_there, m_far;
  bool m_ok = false;
};

// UDP datagrams to an address every 20 ms while it lives, on a thread of its
// own; it stops and joins on every way out of a test, a failed ASSERT too.
class Sender {
 public:
  explicit Sender(const std::string& address) : m_thread([this, address] { Run(address); }) {}
  ~Sender() { Stop(); }
  void Stop() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
  }

 private:
  void Run(const std::string& address) {
    int s = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(9);
    inet_pton(AF_INET, address.c_str(), &to.sin_addr);
    char payload[32] = "zemostats live test";
    // At most a minute, whatever happens.
    for (int i = 0; i < 3000 && !m_stop; ++i) {
      sendto(s, payload, sizeof payload, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    close(s);
  }

  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

TEST(ZemostatsLive, CapturesACountedNumberOfPacketsFromAVethPair) {
  if (geteuid() != 0) GTEST_SKIP() << "a live capture in a network namespace needs root";
  VethPair veth;
  if (!veth.Ok()) GTEST_SKIP() << "this machine cannot make a network namespace with a veth pair";

  auto capture = std::async(std::launch::async, [&] {
    return RunZemostats({"capture", "-i", veth.Here(), "-c", "25", "-G", "60", "--json"});
  });
  Sender sender(veth.Far());
  RunResult r = capture.get();
  sender.Stop();
  ASSERT_EQ(0, r.exitCode) << r.err;
  json doc = json::parse(r.out);
  EXPECT_EQ(25u, doc["capture"]["packets"].get<uint64_t>());
  EXPECT_GE(doc["capture"]["bytes"].get<uint64_t>(), 25u * 42);
  EXPECT_EQ("EN10MB", doc["capture"]["link_type"]);
  EXPECT_TRUE(doc["capture"]["live"].get<bool>());

  // The summary has what only the interface knows: what it received and
  // dropped, and how long the capture ran.
  auto find = [](const json& nodes, const char* id) -> const json* {
    for (const json& node : nodes)
      if (node["id"] == id) return &node;
    return nullptr;
  };
  const json* source = find(doc["summary"], "{BDE7310D-FF9E-4486-A150-08409F83DE67}");
  const json* general = find(doc["summary"], "{A8B16D75-4399-454F-802C-962B7DEC8C1E}");
  ASSERT_TRUE(source && general) << doc["summary"].dump(1);
  EXPECT_EQ("Interface " + veth.Here(), (*source)["name"]);
  const json* received = find((*source)["items"], "{FDD49B65-3BCB-4411-A90E-027A5D637CD4}");
  const json* dropped = find((*general)["items"], "{3D746368-C270-4BF5-8170-AD1E01E7B5EF}");
  const json* ran = find((*general)["items"], "{3C5CB151-585B-42AE-B894-0C2CC5324EF1}");
  ASSERT_TRUE(received && dropped && ran);
  EXPECT_GE((*received)["value"].get<uint64_t>(), 25u);
  EXPECT_GT((*ran)["value"].get<int64_t>(), 0);
}

TEST(ZemostatsLive, StopsCleanlyOnInterruptAndAtItsTimeLimit) {
  if (geteuid() != 0) GTEST_SKIP() << "a live capture in a network namespace needs root";
  VethPair veth;
  if (!veth.Ok()) GTEST_SKIP() << "this machine cannot make a network namespace with a veth pair";
  ScratchDir dir;
  Sender sender(veth.Far());
  // Interrupted a while after it set up its handler: still a whole report
  // and success. The script waits for the handler (SIGINT caught in the
  // process's SigCgt mask) so that a slow start on a busy machine is not
  // taken for a failure, and a watchdog kills a capture that ignored the
  // interrupt, so that it cannot hold the test.
  std::string out = dir.File("out.json"), rc = dir.File("rc");
  std::string script = std::string("'") + ZEMO_CLI_PATH + "' capture -i " + veth.Here() + " --json >" + out +
                       " 2>/dev/null & pid=$!\n"
                       "(sleep 60; kill -KILL $pid) 2>/dev/null & watchdog=$!\n"
                       "n=0\n"
                       "while [ $n -lt 600 ]; do\n"
                       "  mask=$(sed -n 's/^SigCgt:[[:space:]]*//p' /proc/$pid/status 2>/dev/null)\n"
                       "  [ -n \"$mask\" ] && [ $((0x$mask & 2)) -ne 0 ] && break\n"
                       "  sleep 0.1; n=$((n + 1))\n"
                       "done\n"
                       "sleep 1.5; kill -INT $pid; wait $pid; echo $? >" + rc + "\n"
                       "kill $watchdog 2>/dev/null; exit 0\n";
  ASSERT_EQ(0, std::system(script.c_str()));
  EXPECT_EQ("0\n", ReadFile(rc));
  json doc = json::parse(ReadFile(out));
  EXPECT_GT(doc["capture"]["packets"].get<uint64_t>(), 0u);

  auto begin = std::chrono::steady_clock::now();
  RunResult timed = RunZemostats({"capture", "-i", veth.Here(), "-G", "1", "--json"});
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  sender.Stop();
  EXPECT_EQ(0, timed.exitCode) << timed.err;
  EXPECT_LT(seconds, 10.0);
  EXPECT_GT(json::parse(timed.out)["capture"]["packets"].get<uint64_t>(), 0u);
}

// Every second of a live capture a line on standard error names the
// window's top talkers with their rates, as the window's table has them.
TEST(ZemostatsLive, PrintsTheWindowsTopTalkersEverySecond) {
  if (geteuid() != 0) GTEST_SKIP() << "a live capture in a network namespace needs root";
  VethPair veth;
  if (!veth.Ok()) GTEST_SKIP() << "this machine cannot make a network namespace with a veth pair";
  Sender sender(veth.Far());
  RunResult r = RunZemostats({"capture", "-i", veth.Here(), "-G", "4", "--window", "10", "--json"});
  sender.Stop();
  ASSERT_EQ(0, r.exitCode) << r.err;
  json doc = json::parse(r.out);
  std::set<std::string> nodes;
  for (const json& row : doc["statistics"]["rollingnodestats"]["rows"]) nodes.insert(row["Node"].get<std::string>());
  EXPECT_EQ(10, doc["statistics"]["rollingnodestats"]["window_seconds"]);
  const std::regex line(R"(^\d\d:\d\d:\d\d  last (\d+) s:  (\S+) [0-9.]+ (k|M|G)?bit/s.*)");
  int lines = 0;
  std::istringstream err(r.err);
  for (std::string text; std::getline(err, text);) {
    std::smatch m;
    if (!std::regex_match(text, m, line)) continue;
    ++lines;
    EXPECT_LE(std::stoi(m[1]), 10) << text;
    EXPECT_TRUE(nodes.count(m[2])) << text;
  }
  EXPECT_GE(lines, 2) << r.err;
}

// An interface where nothing comes (a veth pair without addresses or IPv6):
// -G ends the capture on time all the same.
TEST(ZemostatsLive, StopsOnTimeOnAnIdleInterface) {
  if (geteuid() != 0) GTEST_SKIP() << "a veth pair needs root";
  const std::string here = "zsi" + std::to_string(getpid() % 100000), there = "zsj" + std::to_string(getpid() % 100000);
  auto sh = [](const std::string& c) { return std::system((c + " >/dev/null 2>&1").c_str()) == 0; };
  if (!sh("ip link add " + here + " type veth peer name " + there)) GTEST_SKIP() << "this machine cannot make a veth pair";
  sh("sysctl -qw net.ipv6.conf." + here + ".disable_ipv6=1 net.ipv6.conf." + there + ".disable_ipv6=1");
  sh("ip link set " + here + " up");
  sh("ip link set " + there + " up");
  ScratchDir dir;
  const std::string out = dir.File("out.json");
  auto begin = std::chrono::steady_clock::now();
  // timeout ends a capture that would wait for a packet forever.
  int status = std::system(("timeout 30 '" + std::string(ZEMO_CLI_PATH) + "' capture -i " + here +
                            " -G 2 --json >" + out + " 2>/dev/null").c_str());
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  sh("ip link del " + here);
  EXPECT_EQ(0, WEXITSTATUS(status));
  EXPECT_LT(seconds, 10.0);
  json doc = json::parse(ReadFile(out), nullptr, false);
  ASSERT_FALSE(doc.is_discarded());
  EXPECT_EQ(0u, doc["capture"]["packets"].get<uint64_t>());
}

// A live capture saves its context as it goes: the full save and the
// deltas, loaded in order, are the capture's state at its end.
TEST(ZemostatsLive, SavesAFullContextAndItsDeltasAsItGoes) {
  if (geteuid() != 0) GTEST_SKIP() << "a live capture in a network namespace needs root";
  VethPair veth;
  if (!veth.Ok()) GTEST_SKIP() << "this machine cannot make a network namespace with a veth pair";
  ScratchDir dir;
  std::string series = dir.File("series"), whole = dir.File("whole.ctx");
  Sender sender(veth.Far());
  RunResult r = RunZemostats(
      {"capture", "-i", veth.Here(), "-G", "4", "--save-deltas", series, "--every", "1", "--save", whole, "--json"});
  sender.Stop();
  ASSERT_EQ(0, r.exitCode) << r.err;

  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(series)) files.push_back(entry.path().string());
  std::sort(files.begin(), files.end());
  // Four seconds of traffic: a full save at the first tick, a delta at each
  // later one and at the end.
  ASSERT_GE(files.size(), 3u);
  EXPECT_EQ(series + "/context-000000.full", files[0]);
  EXPECT_EQ(series + "/context-000001.delta", files[1]);

  std::vector<std::string> args = {"show", "--json"};
  args.insert(args.end(), files.begin(), files.end());
  RunResult fromSeries = RunZemostats(args);
  RunResult fromWhole = RunZemostats({"show", "--json", whole});
  ASSERT_EQ(0, fromSeries.exitCode) << fromSeries.err;
  ASSERT_EQ(0, fromWhole.exitCode) << fromWhole.err;
  json run = json::parse(r.out), a = json::parse(fromSeries.out), b = json::parse(fromWhole.out);
  EXPECT_GT(a["capture"]["packets"].get<uint64_t>(), 0u);
  EXPECT_EQ(run["capture"]["packets"], a["capture"]["packets"]);
  EXPECT_EQ(b["capture"]["bytes"], a["capture"]["bytes"]);
  EXPECT_EQ(b["statistics"], a["statistics"]);
  EXPECT_EQ(run["statistics"], a["statistics"]);
}

}  // namespace
