// The report's web page in a headless Chromium: it draws every chart with
// data and without an error, and the figures it shows are the JSON
// document's.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/cli_support.h"
#include "cli/generator.h"

namespace {

using nlohmann::json;
using namespace zemo::testing_cli;
namespace fs = std::filesystem;

std::string FindChromium() {
  for (const char* path : {"/usr/bin/chromium", "/usr/bin/chromium-browser", "/usr/bin/google-chrome"})
    if (access(path, X_OK) == 0) return path;
  return "";
}

// Chromium opens the page headless, lets its scripts run, and then does
// what `action` asks (--dump-dom, --screenshot=FILE); stdout and stderr
// (its log, console messages among them) go to the files given.
bool Browse(const std::string& chromium, const ScratchDir& dir, const std::string& page, const std::string& action,
            const std::string& out, const std::string& err) {
  const std::string command = "timeout 180 " + Quote(chromium) +
                              " --headless --no-sandbox --disable-gpu --hide-scrollbars --no-first-run"
                              " --enable-logging=stderr --v=0 --window-size=1100,2000 --virtual-time-budget=10000"
                              " --user-data-dir=" + Quote(dir.File("profile")) + " " + action +
                              " " + Quote("file://" + page) + " >" + Quote(out) + " 2>" + Quote(err);
  return std::system(command.c_str()) == 0;
}

std::string Unescape(std::string_view text) {
  static const std::pair<std::string_view, char> kEntities[] = {
      {"&quot;", '"'}, {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&#39;", '\''}, {"&nbsp;", ' '}};
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    bool done = false;
    for (const auto& [entity, c] : kEntities)
      if (text.substr(i, entity.size()) == entity) {
        out += c;
        i += entity.size() - 1;
        done = true;
        break;
      }
    if (!done) out += text[i];
  }
  return out;
}

// The values of one attribute in a piece of the page, in order.
std::vector<std::string> Attributes(std::string_view html, std::string_view name) {
  std::vector<std::string> values;
  const std::string mark = " " + std::string(name) + "=\"";
  for (size_t at = html.find(mark); at != std::string_view::npos; at = html.find(mark, at)) {
    at += mark.size();
    const size_t end = html.find('"', at);
    values.push_back(Unescape(html.substr(at, end - at)));
  }
  return values;
}

// The element whose opening tag holds `mark`, up to its closing tag.
std::string_view Element(std::string_view html, std::string_view mark, std::string_view close) {
  const size_t at = html.find(mark);
  if (at == std::string_view::npos) return {};
  const size_t end = html.find(close, at);
  return html.substr(at, end == std::string_view::npos ? std::string_view::npos : end - at);
}

// Checks one capture's page; the screenshot goes to shot.
void CheckPage(const std::string& chromium, const std::string& capture, const std::string& shot) {
  ScratchDir dir;
  const std::string page = dir.File("report.html");
  RunResult r = RunZemostats({"analyze", "--json", "--top", "5", "--html", page, capture});
  ASSERT_EQ(0, r.exitCode) << r.err;
  const json doc = json::parse(r.out);

  ASSERT_TRUE(Browse(chromium, dir, page, "--dump-dom", dir.File("dom"), dir.File("log")))
      << ReadFile(dir.File("log"));
  const std::string dom = ReadFile(dir.File("dom")), log = ReadFile(dir.File("log"));
  // Console messages come in Chromium's log as INFO:CONSOLE lines; the page
  // writes none of its own, so that any is a fault.
  EXPECT_EQ(std::string::npos, log.find(":CONSOLE")) << log;
  ASSERT_NE(std::string::npos, dom.find("data-ready=\"1\"")) << "the page's script did not finish";
  const std::string_view errors = Element(dom, "id=\"page-errors\"", "</pre>");
  ASSERT_FALSE(errors.empty());
  EXPECT_EQ(std::string_view::npos, errors.find_first_not_of(" \n", errors.find('>') + 1)) << errors;

  // Every chart drew points; the traffic adds up to the capture at each zoom.
  const std::vector<std::string> points = Attributes(dom, "data-points");
  const std::vector<std::string> charts = Attributes(dom, "data-charts");
  ASSERT_EQ(1u, charts.size());
  EXPECT_EQ(std::to_string(points.size()), charts[0]);
  EXPECT_GE(points.size(), 2u) << "traffic and sizes at least";
  for (const std::string& p : points) EXPECT_GT(std::stoul(p), 0u) << "a chart without data";
  const std::string_view traffic = Element(dom, "data-chart=\"traffic\"", ">");
  ASSERT_FALSE(traffic.empty());
  EXPECT_EQ(doc["capture"]["packets"], json::parse(Attributes(traffic, "data-totalpackets").at(0)));
  EXPECT_EQ(doc["capture"]["bytes"], json::parse(Attributes(traffic, "data-totalbytes").at(0)));

  // The capture's figures and every table of the report, cell by cell.
  for (const char* key : {"packets", "bytes", "duration_ns", "average_bits_per_second"}) {
    const std::string_view card = Element(dom, "data-key=\"" + std::string(key) + "\"", ">");
    ASSERT_FALSE(card.empty()) << key;
    EXPECT_EQ(doc["capture"][key], json::parse(Attributes(card, "data-v").at(0))) << key;
  }
  ASSERT_FALSE(doc["report"].empty());
  for (const auto& [id, table] : doc["report"].items()) {
    SCOPED_TRACE(id);
    const std::string_view shown = Element(dom, "data-table=\"" + id + "\"", "</table>");
    ASSERT_FALSE(shown.empty()) << "the page has no table " << id;
    const std::vector<std::string> keys = Attributes(shown, "data-key");
    if (table["rows"].empty()) continue;
    EXPECT_EQ(table["columns"].get<std::vector<std::string>>(), keys);
    const std::vector<std::string> cells = Attributes(shown, "data-v");
    ASSERT_EQ(table["rows"].size() * keys.size(), cells.size());
    for (size_t i = 0; i < table["rows"].size(); ++i)
      for (size_t c = 0; c < keys.size(); ++c)
        EXPECT_EQ(table["rows"][i][keys[c]], json::parse(cells[i * keys.size() + c])) << "row " << i << " " << keys[c];
  }

  ASSERT_TRUE(Browse(chromium, dir, page, "--screenshot=" + Quote(shot), dir.File("shot-out"), dir.File("shot-log")))
      << ReadFile(dir.File("shot-log"));
  EXPECT_EQ(0u, ReadFile(shot).rfind("\x89PNG", 0)) << "no screenshot";
}

// The bundled sample (its screenshot is the README's; ZEMO_SCREENSHOT=FILE
// keeps it) and real captures of Ethernet and 802.11, one with signal readings.
TEST(HtmlReport, PagesDrawEveryChartWithTheFiguresOfTheJsonDocument) {
  const std::string chromium = FindChromium();
  if (chromium.empty()) {
    if (std::getenv("ZEMO_REQUIRE_PEERS")) FAIL() << "chromium is missing";
    GTEST_SKIP() << "chromium is missing: the page is not opened";
  }
  ScratchDir dir;
  const std::string sample = dir.File("sample.pcap");
  std::string error;
  ASSERT_TRUE(zemo::cli::Generate(sample, {}, nullptr, &error)) << error;
  const char* kept = std::getenv("ZEMO_SCREENSHOT");
  {
    SCOPED_TRACE("the bundled sample");
    CheckPage(chromium, sample, kept ? kept : dir.File("sample.png"));
  }
  const fs::path root = fs::path(ZEMO_SHARED_DIR) / "captures";
  if (!fs::is_directory(root)) return;
  for (const char* name : {"tcpdump/afs.pcap", "aircrack/wpa2-psk-linksys.cap", "aircrack/zn2i.pcap"}) {
    SCOPED_TRACE(name);
    CheckPage(chromium, (root / name).string(), dir.File("capture.png"));
  }
}

}  // namespace
