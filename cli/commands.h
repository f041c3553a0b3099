// The commands of zemostats, behind the argument parser. Each returns the
// process exit code: 0 success, 1 a data error (2, a usage error, is the
// parser's).
#pragma once

#include <cstdint>
#include <string>

#include "cli/generator.h"

namespace zemo::cli {

struct OutputOptions {
  bool json = false;
  std::string exportDirectory;  // empty: no export
  size_t top = 10;
  bool timing = false;  // where the time went, on standard error
};

struct LiveOptions {
  std::string interface;
  uint64_t count = 0;     // 0: no limit
  uint32_t seconds = 0;   // 0: no limit
};

int AnalyzeCommand(const std::string& path, const OutputOptions& output);
int CaptureCommand(const LiveOptions& live, const OutputOptions& output);
int GenerateCommand(const std::string& path, const GeneratorOptions& options);

}  // namespace zemo::cli
