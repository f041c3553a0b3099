// Running the zemostats program from a test: a scratch folder, the command
// with its exit code and both output streams; the shared captures, and the
// peer programs its figures are compared with.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <initializer_list>
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

// A word quoted for the shell.
std::string Quote(const std::string& s);
// A command's standard output (its errors are dropped).
std::string Output(const std::string& command);

// A line's cells between separators; a separator at the end gives an empty last cell.
std::vector<std::string> Split(const std::string& line, char by);

// The shared third-party captures: their folder, and every capture in it in
// name order, or only those of the given link types.
std::filesystem::path CapturesRoot();
std::vector<std::string> SharedCaptures(const std::vector<int>& linkTypes = {});
// A capture's link type; -1 when it cannot be opened.
int LinkTypeOf(const std::string& path);

// Whether each program is installed; the missing ones are named in `missing`.
bool HavePeers(std::initializer_list<const char*> programs, std::string* missing);
// tshark's fields of each frame of a capture (-T fields), a row of as many
// cells as fields a frame.
std::vector<std::vector<std::string>> TsharkFields(const std::string& path, const std::vector<std::string>& fields,
                                                   const std::string& options = "");

// Runs `check` on every file, two at a time: most of a check's time is the
// start of an instrumented program. What it says of a file fails the test.
void CheckEachFile(const std::vector<std::string>& files,
                   const std::function<std::string(size_t index, const std::string& path)>& check);

}  // namespace zemo::testing_cli

#define SKIP_WITHOUT_SHARED_CAPTURES()                                                        \
  do {                                                                                          \
    if (!std::filesystem::is_directory(::zemo::testing_cli::CapturesRoot()))                   \
      GTEST_SKIP() << ::zemo::testing_cli::CapturesRoot() << " is absent: no third-party captures"; \
  } while (0)

// Where figures are compared with a peer, the peer must be there when CI
// says so (scripts/test.sh installs them).
#define SKIP_WITHOUT_PEERS(...)                                                                   \
  do {                                                                                            \
    std::string missing;                                                                          \
    if (!::zemo::testing_cli::HavePeers({__VA_ARGS__}, &missing)) {                               \
      if (std::getenv("ZEMO_REQUIRE_PEERS")) FAIL() << "missing peers: " << missing;              \
      GTEST_SKIP() << "the peers are needed (scripts/test.sh installs them): " << missing;        \
    }                                                                                             \
  } while (0)
