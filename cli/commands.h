// The commands of zemostats, behind the argument parser. Each returns the
// process exit code: 0 success, 1 a data error (2, a usage error, is the
// parser's).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/alarm_watch.h"
#include "cli/generator.h"
#include "cli/report_model.h"

namespace zemo::cli {

enum class ColorMode { kAuto, kNever, kAlways };

struct OutputOptions {
  bool json = false;
  std::string exportDirectory;  // empty: no export
  std::string csvDirectory;     // empty: no CSV files
  size_t top = 10;
  SortBy sort = SortBy::kBytes;
  ColorMode color = ColorMode::kAuto;
  bool quiet = false;  // no progress bar
  bool timing = false;  // where the time went, on standard error
  unsigned threads = 2;  // of a run: 1 reads, decodes and counts on one thread
  uint32_t window = 1800;  // of a run: seconds of the moving window of top nodes
  uint32_t summaryEvery = 0;  // of a run: seconds of capture time between stored summaries; 0: none
};

// What part of the capture a run reads.
struct InputOptions {
  std::string filter;    // a capture filter in tcpdump's language; empty: none
  std::string from, to;  // the window of packet time (TimeWindow); empty: open
};

struct LiveOptions {
  std::string interface;
  uint64_t count = 0;     // 0: no limit
  uint32_t seconds = 0;   // 0: no limit
};

// Saves of the whole statistics context (cli/saving.h).
struct SaveOptions {
  std::string file;            // --save: after the run; empty: none
  std::string deltaDirectory;  // --save-deltas: as the run goes; empty: none
  uint32_t every = 0;          // --every: seconds of capture time between deltas
};

// Several files are merged in time order, as mergecap merges them.
int AnalyzeCommand(const std::vector<std::string>& paths, const OutputOptions& output, const SaveOptions& save,
                   const WatchOptions& watch = {}, const InputOptions& input = {});
int CaptureCommand(const LiveOptions& live, const OutputOptions& output, const SaveOptions& save,
                   const WatchOptions& watch = {}, const InputOptions& input = {});
// The report of a saved context: a whole save and then its deltas.
int ShowCommand(const std::vector<std::string>& paths, const OutputOptions& output);
int GenerateCommand(const std::string& path, const GeneratorOptions& options);

}  // namespace zemo::cli
