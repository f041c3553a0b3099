// Running the zemostats program from a test: a scratch folder, the command
// with its exit code and both output streams.
#pragma once

#include <string>
#include <vector>

namespace zemo::testing_cli {

// A fresh folder under the system's temporary folder, removed with its content.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  const std::string& Path() const { return m_path; }
  std::string File(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

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

std::string ReadFile(const std::string& path);
bool FileExists(const std::string& path);

}  // namespace zemo::testing_cli
