#include "cli/commands.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <thread>

#include "cli/analysis.h"
#include "cli/capture_source.h"
#include "cli/frame_ring.h"
#include "cli/merged_source.h"
#include "cli/node_views.h"
#include "cli/report.h"
#include "cli/saving.h"
#include "cli/time_window.h"
#include "platform/clock.h"
#include "platform/strings.h"

namespace zemo::cli {
namespace {

std::atomic<bool> g_stop{false};
std::atomic<FrameSource*> g_live{nullptr};

void OnSignal(int) {
  g_stop = true;
  if (FrameSource* s = g_live.load()) s->BreakLoop();
}

// Ctrl-C and termination end a live capture cleanly, with its report. The
// handlers go in before anything slow happens (opening the interface, loading
// the module), so that an early interrupt is a clean stop too.
class StopOnSignal {
 public:
  StopOnSignal() {
    g_stop = false;
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, &m_int);
    sigaction(SIGTERM, &sa, &m_term);
  }
  ~StopOnSignal() {
    sigaction(SIGINT, &m_int, nullptr);
    sigaction(SIGTERM, &m_term, nullptr);
  }

 private:
  struct sigaction m_int {}, m_term {};
};

// While it lives, a signal also breaks the source's wait for packets.
class SignalBreaks {
 public:
  explicit SignalBreaks(FrameSource* source) { g_live = source; }
  ~SignalBreaks() { g_live = nullptr; }
};

void Fail(const std::string& message) { std::fprintf(stderr, "zemostats: %s\n", message.c_str()); }

// The progress bar of a long run of files on a terminal: how much of the
// files is read, packets, their rate and the time left. Only a run that takes
// more than a second shows it, refreshed twice a second; it goes before
// anything else is printed.
class Progress {
 public:
  Progress(const FrameSource& source, bool wanted)
      : m_source(source), m_on(wanted && !source.Live() && isatty(STDERR_FILENO)), m_begin(MonotonicNs()) {}
  ~Progress() {
    if (m_shown) std::fprintf(stderr, "\r\033[K");
  }
  void Tick(uint64_t frames) {
    if (!m_on || (frames & 0x3FF)) return;
    const uint64_t now = MonotonicNs();
    if (now - m_begin < 1000000000ull || now - m_last < 500000000ull) return;
    m_last = now;
    m_shown = true;
    const double elapsed = (now - m_begin) / 1e9;
    const uint64_t size = m_source.Size(), at = std::min(m_source.Position(), size);
    char rate[64];
    std::snprintf(rate, sizeof rate, "%llu packets  %.0f packets/s", static_cast<unsigned long long>(frames),
                  frames / elapsed);
    std::string line = rate;
    if (size && at) {
      constexpr int kWidth = 24;
      const double done = double(at) / double(size);
      const int filled = static_cast<int>(done * kWidth);
      const double left = elapsed * (1 - done) / done;
      char head[64];
      std::snprintf(head, sizeof head, "[%s%s] %3.0f%%  ", std::string(filled, '#').c_str(),
                    std::string(kWidth - filled, '.').c_str(), done * 100);
      line = head + SizeText(at) + " of " + SizeText(size) + "  " + line + "  " +
             std::to_string(static_cast<uint64_t>(left + 0.5)) + " s left";
    }
    std::fprintf(stderr, "\r\033[K%s", line.c_str());
  }

 private:
  const FrameSource& m_source;
  bool m_on;
  bool m_shown = false;
  uint64_t m_begin;
  uint64_t m_last = 0;
};

// The link speed of an interface in bits per second, 0 if the system does not say.
uint64_t LinkSpeedOf(const std::string& interface) {
  std::ifstream in("/sys/class/net/" + interface + "/speed");
  long long mbits = 0;
  if (!(in >> mbits) || mbits <= 0) return 0;
  return static_cast<uint64_t>(mbits) * 1000000ull;
}

// What the summary says of where the capture comes from.
CaptureFactsData SourceFacts(const FrameSource& source, const CaptureInfo& info, const LiveOptions* live) {
  CaptureFactsData facts;
  std::string files;
  for (const std::string& f : info.files) files += (files.empty() ? "" : ", ") + (f == "-" ? "standard input" : f);
  facts.source = FromUtf8(live                      ? "Interface " + info.file
                          : info.files.size() > 1   ? "Files " + files
                          : info.files[0] == "-"    ? "Standard input"
                                                    : "File " + files);
  facts.linkType = info.linkType;
  facts.linkTypeName = FromUtf8(info.linkTypeName);
  facts.linkSpeed = live ? LinkSpeedOf(live->interface) : 0;
  facts.fileSize = source.Size();
  return facts;
}

// The outputs every command ends with: the exports, then the report or the
// JSON document. False when the export failed.
bool Output(const Analysis& analysis, const CaptureInfo& info, const OutputOptions& output,
            const AlarmWatch* watch = nullptr) {
  std::string error;
  if (!output.exportDirectory.empty() && !ExportAll(analysis, output.exportDirectory, &error)) {
    Fail(error);
    return false;
  }
  // The CSV files hold every row of a table, in the report's order.
  if (!output.csvDirectory.empty() &&
      !WriteCsv(output.csvDirectory, GatherReport(analysis, info, {SIZE_MAX, output.sort}, watch), &error)) {
    Fail(error);
    return false;
  }
  const std::vector<ReportSection> report = GatherReport(analysis, info, {output.top, output.sort}, watch);
  if (output.json) {
    WriteJson(stdout, analysis, info, report, watch);
  } else {
    const char* noColor = std::getenv("NO_COLOR");
    const char* term = std::getenv("TERM");
    const bool colour = output.color == ColorMode::kAlways ||
                        (output.color == ColorMode::kAuto && isatty(STDOUT_FILENO) && !(noColor && *noColor) &&
                         !(term && std::strcmp(term, "dumb") == 0));
    PrintReport(stdout, analysis, info, report, colour);
  }
  std::fflush(stdout);
  return true;
}

// What the reading side ended with.
struct ReadOutcome {
  bool dataError = false;
  std::string error;
  uint64_t readNs = 0, decodeNs = 0;
};

// Reads frames until the source ends or fails, a signal comes or a live
// limit is reached, and decodes each into an entry of sink (FrameRing or
// InlineFeed); quiet spells of a live capture become idle entries, and an
// end entry closes the run.
template <class Sink>
ReadOutcome ReadFrames(FrameSource& source, const Analysis& analysis, const LiveOptions* live,
                       const OutputOptions& output, TimeWindow* window, Sink& sink) {
  const bool timing = output.timing;
  ReadOutcome out;
  Progress progress(source, !output.quiet);
  const uint64_t deadline = live && live->seconds ? MonotonicNs() + uint64_t(live->seconds) * 1000000000ull : 0;
  uint64_t frames = 0;
  CaptureFrame frame{};
  for (;;) {
    uint64_t t0 = timing ? MonotonicNs() : 0;
    ReadResult r = source.Next(&frame);
    out.readNs += (timing ? MonotonicNs() : 0) - t0;
    if (r == ReadResult::kFrame) {
      if (window && !window->Keeps(frame.time)) {
        progress.Tick(++frames);
        continue;
      }
      FrameRing::Entry& e = sink.Acquire();
      e.kind = FrameRing::Kind::kFrame;
      uint64_t t2 = timing ? MonotonicNs() : 0;
      analysis.Decode(frame, e.decoded);
      if (timing) out.decodeNs += MonotonicNs() - t2;
      sink.Commit(false);
      progress.Tick(++frames);
      if (live && live->count && frames >= live->count) break;
    } else if (r == ReadResult::kTimeout) {
      FrameRing::Entry& e = sink.Acquire();
      e.kind = FrameRing::Kind::kIdle;
      e.now = Now();
      sink.Commit(true);
    } else if (r == ReadResult::kEnd) {
      break;
    } else {
      out.dataError = true;
      out.error = "reading stopped at packet " + std::to_string(frames + 1) + ": " + source.Error() +
                  "; the statistics cover the packets before it";
      break;
    }
    if (g_stop || (deadline && MonotonicNs() >= deadline)) break;
  }
  sink.Acquire().kind = FrameRing::Kind::kEnd;
  sink.Commit(true);
  return out;
}

// One entry of the reading side into the analysis; false at the end.
bool Consume(Analysis& analysis, const FrameRing::Entry& e) {
  switch (e.kind) {
    case FrameRing::Kind::kFrame: analysis.Process(e.decoded); return true;
    case FrameRing::Kind::kIdle: analysis.Idle(e.now); return true;
    default: return false;
  }
}

// The sink of a run on one thread: each entry goes to the engine at once.
class InlineFeed {
 public:
  explicit InlineFeed(Analysis& analysis) : m_analysis(analysis) { m_entry.decoded.packet = Packet::Create(); }
  FrameRing::Entry& Acquire() { return m_entry; }
  void Commit(bool) { Consume(m_analysis, m_entry); }

 private:
  Analysis& m_analysis;
  FrameRing::Entry m_entry;
};

// The capture read through the analysis: on this thread alone, or read and
// decoded on a second one while this one feeds the engine.
ReadOutcome Feed(FrameSource& source, Analysis& analysis, const LiveOptions* live, const OutputOptions& output,
                 TimeWindow* window) {
  if (output.threads < 2) {
    InlineFeed feed(analysis);
    return ReadFrames(source, analysis, live, output, window, feed);
  }
  constexpr size_t kRingEntries = 512;
  FrameRing ring(kRingEntries);
  ReadOutcome outcome;
  std::thread reader([&] { outcome = ReadFrames(source, analysis, live, output, window, ring); });
  try {
    while (Consume(analysis, ring.Next())) {
    }
  } catch (...) {
    // The reader is told to stop as a signal would, and drained to its end
    // entry, so that it can be joined before the failure goes on.
    g_stop = true;
    while (ring.Next().kind != FrameRing::Kind::kEnd) {
    }
    reader.join();
    throw;
  }
  reader.join();
  return outcome;
}

// The alarms and tracks of a run, on a server beside the context, ticked
// at each second the analysis comes to. A bad alarm file stops the run here,
// before any packet is read.
std::unique_ptr<AlarmWatch> StartWatch(Analysis& analysis, const WatchOptions& options, std::string* error) {
  auto watch = std::make_unique<AlarmWatch>();
  if (!options.alarms.empty() && !watch->LoadAlarms(options.alarms, error)) return nullptr;
  MediaSpec key{};
  for (const std::string& node : options.nodes)
    if (ParseAddress(node, &key)) watch->AddTrack("node", node, key);
  for (const std::string& protocol : options.protocols)
    if (ParseProtocol(protocol, &key)) watch->AddTrack("protocol", protocol, key);
  SWirelessChannel channel{0, 0, 0};
  for (const std::string& label : options.channels)
    if (ParseChannelLabel(label, &channel)) watch->AddChannelTrack(label, channel);
  if (!watch->Start(analysis.Context(), error)) return nullptr;
  AlarmWatch* w = watch.get();
  analysis.OnSecond([w](ZemoTime now, bool jumped) { w->Tick(now, jumped); });
  return watch;
}

int Run(FrameSource& source, CaptureInfo& info, const OutputOptions& output, const SaveOptions& save,
        const LiveOptions* live, const WatchOptions& watchOptions, TimeWindow* window) {
  Analysis analysis;
  analysis.EnableTiming(output.timing);
  analysis.SetWindow(output.window);
  std::string error;
  if (!analysis.Start(source.LinkType(), live ? LinkSpeedOf(live->interface) : 0, &error)) {
    Fail(error);
    return 1;
  }
  info.linkType = static_cast<uint32_t>(source.LinkType());
  info.linkTypeName = source.LinkTypeName();
  info.linkTypeText = source.LinkTypeText();
  info.snapLength = source.SnapLength();
  info.fileSize = source.Size();
  analysis.StoreSummaryEvery(output.summaryEvery);
  CaptureFactsData facts = SourceFacts(source, info, live);
  analysis.DescribeSource(facts, live != nullptr);
  if (!analysis.Decoder().Known())
    info.warnings.push_back("link type " + info.linkTypeName + " (" + std::to_string(info.linkType) +
                            ") is not decoded: its frames count in totals, sizes, history and errors, without "
                            "addresses or protocols");

  // Where the saves and exports go is checked before the run, so that a
  // long capture does not end in a write that fails. The delta series saves
  // at the context's ticks, which come once a second of capture time, so
  // the packet path never waits for a file.
  if ((!save.file.empty() && !CheckSaveTarget(save.file, &error)) ||
      (!output.exportDirectory.empty() && !EnsureDirectory(output.exportDirectory, &error)) ||
      (!output.csvDirectory.empty() && !EnsureDirectory(output.csvDirectory, &error))) {
    Fail(error);
    return 1;
  }
  bool saveFailed = false;
  std::unique_ptr<DeltaSeries> series;
  if (!save.deltaDirectory.empty()) {
    series = std::make_unique<DeltaSeries>(save.deltaDirectory, save.every);
    if (!series->Open(&error)) {
      Fail(error);
      return 1;
    }
    analysis.OnTick([&](ZemoTime tick) {
      std::string failure;
      if (!series->AtTick(analysis.Context(), tick, &failure)) {
        Fail(failure + "; no more deltas are saved");
        saveFailed = true;
      }
    });
  }

  // A live capture shows the window's top talkers at every tick, as a
  // line of its own on standard error, beside the report to come.
  if (live)
    analysis.OnTick([&](ZemoTime tick) {
      constexpr size_t kTalkers = 3;
      std::string line = WindowTickLine(analysis, tick, kTalkers);
      if (!line.empty()) std::fprintf(stderr, "%s\n", line.c_str());
    });

  std::unique_ptr<AlarmWatch> watch;
  if (watchOptions.Any()) {
    watch = StartWatch(analysis, watchOptions, &error);
    if (!watch) {
      Fail(error);
      return 1;
    }
  }

  SignalBreaks breaks(live ? &source : nullptr);
  ReadOutcome read = Feed(source, analysis, live, output, window);
  if (window) {
    info.from = window->From();
    info.to = window->To();
  }
  analysis.AddReadTimes(read.readNs, read.decodeNs);
  const bool dataError = read.dataError;
  for (std::string& w : analysis.Warnings(info.linkTypeName)) info.warnings.push_back(std::move(w));
  if (dataError) info.warnings.push_back(read.error);
  // Past the loop a second interrupt ends the program as usual.
  if (live) {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
  }
  analysis.Finish();
  if (watch) {
    watch->Finish();
    info.warnings.insert(info.warnings.end(), watch->Warnings().begin(), watch->Warnings().end());
  }
  // What only the interface knows, read once the reading is over.
  uint64_t received = 0, dropped = 0;
  if (live && source.InterfaceCounts(&received, &dropped)) {
    facts.haveReceived = true;
    facts.interfaceReceived = received;
    analysis.DescribeSource(facts, true);
    analysis.SetPacketsDropped(dropped);
  }
  // The summary as the run ends, before any save takes it along.
  if (HRESULT hr = analysis.UpdateSummary(); FAILED(hr))
    info.warnings.push_back("the summary is incomplete: its update failed (" + HrText(hr) + ")");

  // A failed save, like a damaged capture, still leaves the report.
  if (series && !series->Finish(analysis.Context(), &error)) {
    Fail(error);
    saveFailed = true;
  }
  if (!save.file.empty()) {
    std::vector<std::string> leftOut;
    bool saved = SaveContextFile(analysis.Context(), save.file, &leftOut, &error);
    for (const std::string& name : leftOut)
      std::fprintf(stderr, "zemostats: note: %s is left out of the XML save of %s: it has no XML form\n",
                   name.c_str(), save.file.c_str());
    // The window's XML form is its name alone.
    if (saved && IsXmlName(save.file))
      for (const StatisticEntry& s : analysis.Statistics())
        if (s.selectName == "rollingnodestats")
          std::fprintf(stderr, "zemostats: note: the XML save of %s keeps no nodes of the window: only the stream "
                               "form holds them\n", save.file.c_str());
    if (!saved) {
      Fail(error);
      saveFailed = true;
    }
  }

  for (const std::string& w : info.warnings) std::fprintf(stderr, "zemostats: warning: %s\n", w.c_str());
  const uint64_t outputStart = MonotonicNs();
  if (!Output(analysis, info, output, watch.get())) return 1;
  if (output.timing) {
    const RunFacts& f = analysis.Facts();
    double frames = f.frames ? double(f.frames) : 1.0;
    std::fprintf(stderr,
                 "timing: %llu frames; read %.3f s (%.0f ns/frame), decode %.3f s (%.0f ns/frame), engine %.3f s "
                 "(%.0f ns/frame), output %.3f s\n",
                 static_cast<unsigned long long>(f.frames), f.readNs / 1e9, f.readNs / frames, f.decodeNs / 1e9,
                 f.decodeNs / frames, f.engineNs / 1e9, f.engineNs / frames, (MonotonicNs() - outputStart) / 1e9);
  }
  return dataError || saveFailed ? 1 : 0;
}

}  // namespace

int AnalyzeCommand(const std::vector<std::string>& paths, const OutputOptions& output, const SaveOptions& save,
                   const WatchOptions& watch, const InputOptions& input) {
  std::string error;
  TimeWindow window;
  if (!window.Parse(input.from, input.to, &error)) {
    Fail(error);
    return 2;
  }
  std::unique_ptr<MergedSource> source = MergedSource::Open(paths, &error);
  if (!source || (!input.filter.empty() && !source->SetFilter(input.filter, &error))) {
    Fail(error);
    return 1;
  }
  CaptureInfo info;
  info.file = paths.front();
  info.files = paths;
  info.filter = input.filter;
  return Run(*source, info, output, save, nullptr, watch, window.Any() ? &window : nullptr);
}

int CaptureCommand(const LiveOptions& live, const OutputOptions& output, const SaveOptions& save,
                   const WatchOptions& watch, const InputOptions& input) {
  StopOnSignal signals;
  std::string error;
  std::unique_ptr<CaptureSource> source = CaptureSource::OpenLive(live.interface, &error);
  if (!source || (!input.filter.empty() && !source->SetFilter(input.filter, &error))) {
    Fail(error);
    return 1;
  }
  CaptureInfo info;
  info.file = live.interface;
  info.live = true;
  info.filter = input.filter;
  return Run(*source, info, output, save, &live, watch, nullptr);
}

int ShowCommand(const std::vector<std::string>& paths, const OutputOptions& output) {
  Analysis analysis;
  std::string error;
  if (!CheckSavedSeries(paths, &error) ||
      (!output.exportDirectory.empty() && !EnsureDirectory(output.exportDirectory, &error)) ||
      (!output.csvDirectory.empty() && !EnsureDirectory(output.csvDirectory, &error)) ||
      !analysis.StartFromSaves(paths, &error)) {
    Fail(error);
    return 1;
  }
  CaptureInfo info;
  info.savedFiles = paths;
  return Output(analysis, info, output) ? 0 : 1;
}

int GenerateCommand(const std::string& path, const GeneratorOptions& options) {
  std::string error;
  if (!Generate(path, options, nullptr, &error)) {
    Fail(error);
    return 1;
  }
  std::fprintf(stderr, "zemostats: wrote %llu packets of %u hosts over %u s to %s\n",
               static_cast<unsigned long long>(options.packets), options.hosts, options.seconds, path.c_str());
  return 0;
}

}  // namespace zemo::cli
