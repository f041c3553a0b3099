#include "cli/cli_support.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace zemo::testing_cli {
namespace {

std::atomic<int> g_runs{0};

}  // namespace

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

std::string Output(const std::string& command) {
  std::string out;
  if (std::FILE* p = popen((command + " 2>/dev/null").c_str(), "r")) {
    char buf[1 << 16];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    pclose(p);
  }
  return out;
}

bool FileExists(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

RunResult RunZemostats(const std::vector<std::string>& args, const std::string& stdinFile,
                       const std::string& environment) {
  ScratchDir dir;
  std::string command = (environment.empty() ? "" : "env " + Quote(environment) + " ") + Quote(ZEMO_CLI_PATH);
  for (const std::string& a : args) command += " " + Quote(a);
  std::string out = dir.File("out-" + std::to_string(g_runs++)), err = out + ".err";
  command += " >" + Quote(out) + " 2>" + Quote(err);
  if (!stdinFile.empty()) command += " <" + Quote(stdinFile);
  int status = std::system(command.c_str());
  RunResult r;
  r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
  r.out = ReadFile(out);
  r.err = ReadFile(err);
  return r;
}

}  // namespace zemo::testing_cli
