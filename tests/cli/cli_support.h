// Running the zemostats program from a test: a scratch folder, the command
// with its exit code and both output streams.
#pragma once

#include <string>
#include <vector>

#include "support/scratch_dir.h"

namespace zemo::testing_cli {

using testing_support::ReadFile;
using testing_support::ScratchDir;

struct RunResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

// Runs the program with the arguments (each quoted for the shell),
// optional standard input from a file and optional settings of its
// environment ("NAME=value").
RunResult RunZemostats(const std::vector<std::string>& args, const std::string& stdinFile = "",
                       const std::string& environment = "");

bool FileExists(const std::string& path);

// A text quoted for the shell, and a command's standard output (its errors
// dropped), for the tests that ask a peer program.
std::string Quote(const std::string& s);
std::string Output(const std::string& command);

}  // namespace zemo::testing_cli
