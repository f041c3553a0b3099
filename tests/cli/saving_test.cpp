// Saved statistics contexts end to end: `analyze --save` in both forms and
// `show` of the file against the run's own report, the delta series of
// `--save-deltas` against one whole save, damaged files, and the usage rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

#include <nlohmann/json.hpp>

#include "cli/cli_support.h"
#include "cli/generator.h"

namespace {

using nlohmann::json;
using namespace zemo::testing_cli;

// What only a run knows and a saved context therefore leaves out.
const char* const kRunOnlyFields[] = {"files",
                                      "live",
                                      "link_type",
                                      "link_type_number",
                                      "link_type_description",
                                      "decoded",
                                      "file_size",
                                      "snap_length",
                                      "truncated",
                                      "peak_packets_per_second",
                                      "peak_bits_per_second",
                                      "time_ordered",
                                      "traffic"};

void WriteFile(const std::string& path, const std::string& bytes) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(f) << path;
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

// The report from its first statistic on: what follows the capture section,
// but the traffic lines, which a run counts itself and a saved context
// reads from its dashboard.
std::string AfterCapture(const std::string& report) {
  size_t at = report.find("\n\n");
  std::string rest = at == std::string::npos ? std::string() : report.substr(at);
  size_t traffic = rest.find("\nTraffic\n");
  if (traffic != std::string::npos) rest.erase(traffic, rest.find("\n\n", traffic + 1) - traffic);
  return rest;
}

class SavedContext : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_dir = new ScratchDir;
    s_record = new std::vector<zemo::cli::GeneratedFrame>;
    zemo::cli::GeneratorOptions options;
    options.packets = 3000;
    options.hosts = 30;
    options.seconds = 12;
    options.seed = 11;
    std::string error;
    ASSERT_TRUE(zemo::cli::Generate(Sample(), options, s_record, &error)) << error;
    RunResult r = RunZemostats({"analyze", "--json", Sample()});
    ASSERT_EQ(0, r.exitCode) << r.err;
    s_analyzed = new json(json::parse(r.out));
  }
  static void TearDownTestSuite() {
    delete s_analyzed;
    delete s_record;
    delete s_dir;
  }
  static std::string Sample() { return s_dir->File("sample.pcap"); }
  static const json& Analyzed() { return *s_analyzed; }

  // The show document agrees with the run's in every field a save keeps,
  // and names the saved files in place of what it cannot know.
  static void ExpectSameCapture(const json& shown, const std::vector<std::string>& files) {
    json run = Analyzed()["capture"];
    for (const char* field : kRunOnlyFields) {
      EXPECT_FALSE(shown["capture"].contains(field)) << field;
      run.erase(field);
    }
    json saved = shown["capture"];
    EXPECT_EQ(json(files), saved["saved"]);
    saved.erase("saved");
    EXPECT_EQ(run, saved);
  }

  static inline ScratchDir* s_dir = nullptr;
  static inline std::vector<zemo::cli::GeneratedFrame>* s_record = nullptr;
  static inline json* s_analyzed = nullptr;
};

TEST_F(SavedContext, AStreamSaveShowsWhatTheRunShowed) {
  ScratchDir dir;
  std::string saved = dir.File("run.ctx");
  RunResult run = RunZemostats({"analyze", "--json", "--save", saved, Sample()});
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_TRUE(run.err.empty()) << run.err;
  // Saving does not change what the run reports.
  EXPECT_EQ(Analyzed(), json::parse(run.out));
  EXPECT_FALSE(FileExists(saved + ".partial"));

  RunResult shown = RunZemostats({"show", "--json", saved});
  ASSERT_EQ(0, shown.exitCode) << shown.err;
  json doc = json::parse(shown.out);
  ExpectSameCapture(doc, {saved});
  ASSERT_TRUE(doc["statistics"].contains("dashboardstats"));
  EXPECT_EQ(Analyzed()["statistics"], doc["statistics"]);
  EXPECT_TRUE(doc["warnings"].empty());

  // The report for people: the same sections, the saved file in the capture
  // section, and a plain word on what is not there.
  RunResult report = RunZemostats({"show", "--top", "4", saved});
  RunResult direct = RunZemostats({"analyze", "--top", "4", Sample()});
  ASSERT_EQ(0, report.exitCode) << report.err;
  EXPECT_NE(std::string::npos, report.out.find(saved + " (a whole save)"));
  EXPECT_NE(std::string::npos, report.out.find("the link type, the file and the peak rate"));
  EXPECT_EQ(std::string::npos, report.out.find("Peak rate"));
  EXPECT_NE(std::string::npos, report.out.find("1 s a line, as the saved dashboard has it"));
  EXPECT_FALSE(AfterCapture(direct.out).empty());
  EXPECT_EQ(AfterCapture(direct.out), AfterCapture(report.out));

  // Exports come from the loaded statistics as they come from the run's.
  std::string exports = dir.File("exports"), runExports = dir.File("run-exports");
  ASSERT_EQ(0, RunZemostats({"show", "--export", exports, saved}).exitCode);
  ASSERT_EQ(0, RunZemostats({"analyze", "--export", runExports, Sample()}).exitCode);
  for (const char* name : {"nodestats", "protocolstats", "sizestats"}) {
    ASSERT_TRUE(FileExists(exports + "/" + name + ".txt")) << name;
    EXPECT_EQ(ReadFile(runExports + "/" + name + ".txt"), ReadFile(exports + "/" + name + ".txt")) << name;
  }
}

TEST_F(SavedContext, AnXmlSaveLeavesOutOnlyTheDashboard) {
  ScratchDir dir;
  // The form follows the extension in any case.
  std::string saved = dir.File("run.XML");
  RunResult run = RunZemostats({"analyze", "--json", "--save", saved, Sample()});
  ASSERT_EQ(0, run.exitCode) << run.err;
  // A line says what the save leaves out, and one that the window is empty in it.
  EXPECT_EQ(2, std::count(run.err.begin(), run.err.end(), '\n')) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("DashboardStats is left out of the XML save of " + saved)) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("the XML save of " + saved + " keeps no nodes of the window")) << run.err;
  // The dashboard went back into the context with its state: the run's own
  // report still holds its traffic series.
  EXPECT_EQ(Analyzed(), json::parse(run.out));
  std::string text = ReadFile(saved);
  EXPECT_EQ(0u, text.find("<?xml"));
  EXPECT_NE(std::string::npos, text.find("<statscontext>"));

  RunResult shown = RunZemostats({"show", "--json", saved});
  ASSERT_EQ(0, shown.exitCode) << shown.err;
  json doc = json::parse(shown.out);
  ExpectSameCapture(doc, {saved});
  json expected = Analyzed()["statistics"];
  expected.erase("dashboardstats");
  EXPECT_FALSE(doc["statistics"].contains("dashboardstats"));
  EXPECT_TRUE(doc["statistics"]["rollingnodestats"]["rows"].empty());
  EXPECT_FALSE(expected["rollingnodestats"]["rows"].empty());
  expected["rollingnodestats"]["rows"] = json::array();
  EXPECT_EQ(expected, doc["statistics"]);

  // Told apart by content, not by name: an XML save under another name
  // still loads, and so does one with a byte order mark and blank lines.
  std::string renamed = dir.File("run.saved");
  WriteFile(renamed, "\xEF\xBB\xBF\n  " + text);
  RunResult again = RunZemostats({"show", "--json", renamed});
  ASSERT_EQ(0, again.exitCode) << again.err;
  EXPECT_EQ(doc["statistics"], json::parse(again.out)["statistics"]);
}

// The series of a run, loaded in order, is the run's last state: the same
// document as one whole save at the end.
TEST_F(SavedContext, AFullSaveAndItsDeltasAddUpToTheWholeRun) {
  ScratchDir dir;
  std::string series = dir.File("series"), whole = dir.File("whole.ctx");
  RunResult run = RunZemostats({"analyze", "--save-deltas", series, "--every", "2", "--save", whole, Sample()});
  ASSERT_EQ(0, run.exitCode) << run.err;

  // The cadence in packet time: the full save at the first tick (the first
  // new second), a delta at the first tick two seconds or more after the
  // save before, and one at the end.
  const uint64_t first = (*s_record)[0].time / 1000000000ull;
  std::set<uint64_t> ticks;
  for (const auto& g : *s_record)
    if (g.time / 1000000000ull > first) ticks.insert(g.time / 1000000000ull);
  size_t expected = 0;
  uint64_t due = 0;
  for (uint64_t second : ticks)
    if (expected == 0 || second >= due) {
      ++expected;
      due = second + 2;
    }
  ++expected;
  ASSERT_GE(expected, 5u);

  std::vector<std::string> files = {series + "/context-000000.full"};
  for (size_t i = 1; i < expected; ++i) {
    char name[48];
    std::snprintf(name, sizeof name, "/context-%06zu.delta", i);
    files.push_back(series + name);
  }
  for (const std::string& f : files) EXPECT_TRUE(FileExists(f)) << f;
  char past[48];
  std::snprintf(past, sizeof past, "/context-%06zu.delta", expected);
  EXPECT_FALSE(FileExists(series + past));

  std::vector<std::string> args = {"show", "--json"};
  args.insert(args.end(), files.begin(), files.end());
  RunResult fromSeries = RunZemostats(args);
  ASSERT_EQ(0, fromSeries.exitCode) << fromSeries.err;
  RunResult fromWhole = RunZemostats({"show", "--json", whole});
  ASSERT_EQ(0, fromWhole.exitCode) << fromWhole.err;
  json a = json::parse(fromSeries.out), b = json::parse(fromWhole.out);
  EXPECT_EQ(json(files), a["capture"]["saved"]);
  a["capture"].erase("saved");
  b["capture"].erase("saved");
  EXPECT_EQ(b, a);
  EXPECT_EQ(Analyzed()["statistics"], a["statistics"]);
  std::vector<std::string> reportArgs = {"show"};
  reportArgs.insert(reportArgs.end(), files.begin(), files.end());
  RunResult report = RunZemostats(reportArgs);
  const std::string summary = "and " + std::to_string(expected - 1) + " deltas, the last " + files.back();
  EXPECT_NE(std::string::npos, report.out.find(summary)) << report.out.substr(0, 300);
  // A delta holds what changed since the save before, not everything.
  EXPECT_LT(ReadFile(files.back()).size(), ReadFile(whole).size() * 3 / 4);

  // The full save alone is the state at the first tick, and each delta
  // brings the rest: without the last ones the totals fall short.
  json early = json::parse(RunZemostats({"show", "--json", files[0]}).out);
  EXPECT_LT(early["capture"]["packets"].get<uint64_t>(), s_record->size());
  std::vector<std::string> most(args.begin(), args.end() - 1);
  json almost = json::parse(RunZemostats(most).out);
  EXPECT_LT(early["capture"]["packets"], almost["capture"]["packets"]);
  EXPECT_LT(almost["capture"]["packets"].get<uint64_t>(), s_record->size());

  // A second run refuses the folder rather than leave stale deltas behind.
  RunResult rerun = RunZemostats({"analyze", "--save-deltas", series, "--every", "2", Sample()});
  EXPECT_EQ(1, rerun.exitCode);
  EXPECT_NE(std::string::npos, rerun.err.find(series + ": already holds saves")) << rerun.err;
  EXPECT_TRUE(rerun.out.empty());

  // A delta of another capture does not quietly replace the first: the
  // sample with its first packet moved 100 seconds earlier starts elsewhere.
  std::string bytes = ReadFile(Sample());
  uint32_t seconds = 0;
  std::memcpy(&seconds, bytes.data() + 24, 4);
  seconds -= 100;
  std::memcpy(bytes.data() + 24, &seconds, 4);
  std::string moved = dir.File("moved.pcap"), other = dir.File("other.ctx");
  WriteFile(moved, bytes);
  ASSERT_EQ(0, RunZemostats({"analyze", "--save", other, moved}).exitCode);
  RunResult mixed = RunZemostats({"show", files[0], other});
  EXPECT_EQ(1, mixed.exitCode);
  EXPECT_NE(std::string::npos, mixed.err.find(other + ": a save of another capture than " + files[0])) << mixed.err;
  EXPECT_TRUE(mixed.out.empty());

  // A series that does not start with its full save, out of order, or with
  // a delta of another run of the same capture, is refused by name.
  std::string rerunSeries = dir.File("rerun");
  ASSERT_EQ(0, RunZemostats({"analyze", "--save-deltas", rerunSeries, "--every", "2", Sample()}).exitCode);
  const std::string foreign = rerunSeries + "/context-000002.delta";
  const std::pair<std::vector<std::string>, std::string> broken[] = {
      {{files[1], files[2]}, files[1] + ": a delta; its series starts with its full save"},
      {{files[0], files[2], files[1]}, files[2] + ": out of order or after a missing delta"},
      {{files[0], files[1], foreign}, foreign + ": a delta of another run than " + files[0]},
      {{files[0], files[1], files[0]}, files[0] + ": a full save, which comes only first"},
  };
  for (const auto& [series, says] : broken) {
    std::vector<std::string> show = {"show"};
    show.insert(show.end(), series.begin(), series.end());
    RunResult r = RunZemostats(show);
    EXPECT_EQ(1, r.exitCode) << says;
    EXPECT_NE(std::string::npos, r.err.find(says)) << r.err;
    EXPECT_TRUE(r.out.empty()) << says;
  }
}

TEST_F(SavedContext, ADamagedSaveIsADataErrorThatNamesTheFile) {
  ScratchDir dir;
  std::string stream = dir.File("run.ctx"), xml = dir.File("run.xml");
  ASSERT_EQ(0, RunZemostats({"analyze", "--save", stream, Sample()}).exitCode);
  ASSERT_EQ(0, RunZemostats({"analyze", "--save", xml, Sample()}).exitCode);
  const std::string bytes = ReadFile(stream), text = ReadFile(xml);
  ASSERT_GT(bytes.size(), 1000u);

  std::string garbage;
  for (size_t i = 0; i < 4096; ++i) garbage += char((i * 2654435761u) >> 13);
  // The header intact, then garbage where the identity tables belong.
  std::string badTables = bytes.substr(0, 52) + std::string(64, '\x5A');
  // A statistic whose class no module serves.
  std::string unknownClass = text;
  size_t clsid = unknownClass.find("statobj clsid=\"{");
  ASSERT_NE(std::string::npos, clsid);
  unknownClass.replace(clsid + 16, 8, "01234567");
  struct Case {
    const char* name;
    std::string content;
    const char* says;
  };
  const char* const kLoad = "cannot load the saved statistics context";
  const Case cases[] = {
      {"empty.ctx", "", kLoad},
      {"half.ctx", bytes.substr(0, bytes.size() / 2), kLoad},
      {"short.ctx", bytes.substr(0, bytes.size() - 1), kLoad},
      {"garbage.ctx", garbage, kLoad},
      {"tables.ctx", badTables, kLoad},
      {"unknown.xml", unknownClass, kLoad},
      {"longer.ctx", bytes + "more", "4 bytes follow the saved statistics context"},
      {"half.xml", text.substr(0, text.size() / 2), kLoad},
      {"other.xml", "<?xml version=\"1.0\"?>\n<capture><props/></capture>\n", kLoad},
      {"noprops.xml", "<statscontext><props/></statscontext>", kLoad},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string path = dir.File(c.name);
    WriteFile(path, c.content);
    RunResult r = RunZemostats({"show", "--json", path});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_NE(std::string::npos, r.err.find(path + ": " + c.says)) << r.err;
    EXPECT_TRUE(r.out.empty());
  }
  // A damaged delta after a good full save fails the same way.
  std::string cut = dir.File("cut.delta");
  WriteFile(cut, bytes.substr(0, 100));
  RunResult delta = RunZemostats({"show", stream, cut});
  EXPECT_EQ(1, delta.exitCode);
  EXPECT_NE(std::string::npos, delta.err.find(cut + ": cannot load")) << delta.err;

  RunResult missing = RunZemostats({"show", dir.File("none.ctx")});
  EXPECT_EQ(1, missing.exitCode);
  EXPECT_NE(std::string::npos, missing.err.find(dir.File("none.ctx") + ": No such file or directory")) << missing.err;
  RunResult folder = RunZemostats({"show", dir.Path()});
  EXPECT_EQ(1, folder.exitCode);
  EXPECT_NE(std::string::npos, folder.err.find(dir.Path() + ": is a directory")) << folder.err;
}

TEST_F(SavedContext, AFailedSaveNamesTheFileAndStillReports) {
  ScratchDir dir;
  // A folder that is not there is found before the run.
  for (const std::string& target : {dir.File("no/such/folder/run.ctx"), dir.File("no/such/folder/run.xml")}) {
    SCOPED_TRACE(target);
    RunResult r = RunZemostats({"analyze", "--json", "--save", target, Sample()});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_NE(std::string::npos, r.err.find("cannot save the statistics context to " + target)) << r.err;
    EXPECT_TRUE(r.out.empty());
  }
  // A save that fails at the end still leaves the report, and the file that
  // was there before: here the name the new file is written under before it
  // replaces the old is taken, in both forms.
  for (const std::string& kept : {dir.File("kept.ctx"), dir.File("kept.xml")}) {
    SCOPED_TRACE(kept);
    WriteFile(kept, "an earlier save");
    std::filesystem::create_directory(kept + ".partial");
    RunResult blocked = RunZemostats({"analyze", "--json", "--save", kept, Sample()});
    EXPECT_EQ(1, blocked.exitCode);
    EXPECT_NE(std::string::npos, blocked.err.find("cannot save the statistics context to " + kept + " (permission denied, 0x8"))
        << blocked.err;
    EXPECT_EQ("an earlier save", ReadFile(kept));
    EXPECT_EQ(Analyzed()["statistics"], json::parse(blocked.out)["statistics"]);
  }

  std::string plain = dir.File("plain");
  WriteFile(plain, "x");
  RunResult notFolder = RunZemostats({"analyze", "--save-deltas", plain, "--every", "1", Sample()});
  EXPECT_EQ(1, notFolder.exitCode);
  EXPECT_NE(std::string::npos, notFolder.err.find(plain + ": not a folder")) << notFolder.err;
}

TEST(SavedContextUsage, SaveOptionsAndShowFollowTheUsageRules) {
  EXPECT_EQ(2, RunZemostats({"analyze", "x.pcap", "--save-deltas", "d"}).exitCode);
  EXPECT_EQ(2, RunZemostats({"analyze", "x.pcap", "--every", "5"}).exitCode);
  EXPECT_EQ(2, RunZemostats({"analyze", "x.pcap", "--save-deltas", "d", "--every", "0"}).exitCode);
  EXPECT_EQ(2, RunZemostats({"capture", "-i", "lo", "--save-deltas", "d"}).exitCode);
  EXPECT_EQ(2, RunZemostats({"analyze", "x.pcap", "--save"}).exitCode);
  EXPECT_EQ(2, RunZemostats({"show"}).exitCode);
  EXPECT_EQ(2, RunZemostats({"show", "x.ctx", "--timing"}).exitCode);
  RunResult help = RunZemostats({"show", "--help"});
  EXPECT_EQ(0, help.exitCode);
  EXPECT_NE(std::string::npos, help.out.find("SAVED"));
  RunResult analyzeHelp = RunZemostats({"analyze", "--help"});
  EXPECT_NE(std::string::npos, analyzeHelp.out.find("context-000000.full")) << analyzeHelp.out;
  EXPECT_NE(std::string::npos, RunZemostats({"--help"}).out.find("show"));
}

}  // namespace
