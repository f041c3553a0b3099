#include "cli/cli_support.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "cli/capture_source.h"

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

std::vector<std::string> Split(const std::string& line, char by) {
  std::vector<std::string> cells;
  std::stringstream in(line);
  for (std::string cell; std::getline(in, cell, by);) cells.push_back(cell);
  if (!line.empty() && line.back() == by) cells.emplace_back();
  return cells;
}

std::filesystem::path CapturesRoot() { return std::filesystem::path(ZEMO_SHARED_DIR) / "captures"; }

int LinkTypeOf(const std::string& path) {
  std::string error;
  auto source = cli::CaptureSource::OpenFile(path, &error);
  return source ? int(source->LinkType()) : -1;
}

std::vector<std::string> SharedCaptures(const std::vector<int>& linkTypes) {
  std::vector<std::string> files;
  if (!std::filesystem::is_directory(CapturesRoot())) return files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(CapturesRoot())) {
    if (!entry.is_regular_file() || entry.path().filename() == "README.md") continue;
    const std::string path = entry.path().string();
    if (linkTypes.empty() || std::count(linkTypes.begin(), linkTypes.end(), LinkTypeOf(path))) files.push_back(path);
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool HavePeers(std::initializer_list<const char*> programs, std::string* missing) {
  for (const char* program : programs)
    if (std::system(("command -v " + std::string(program) + " >/dev/null 2>&1").c_str()) != 0)
      *missing += program + std::string(" ");
  return missing->empty();
}

std::vector<std::vector<std::string>> TsharkFields(const std::string& path, const std::vector<std::string>& fields,
                                                   const std::string& options) {
  std::string command = "tshark -n -r " + Quote(path) + " -T fields -E separator=/t " + options;
  for (const std::string& f : fields) command += " -e " + f;
  std::vector<std::vector<std::string>> rows;
  std::stringstream lines(Output(command));
  for (std::string line; std::getline(lines, line);) {
    rows.push_back(Split(line, '\t'));
    rows.back().resize(fields.size());
  }
  return rows;
}

void CheckEachFile(const std::vector<std::string>& files,
                   const std::function<std::string(size_t index, const std::string& path)>& check) {
  std::atomic<size_t> next{0};
  std::mutex lock;
  std::vector<std::pair<size_t, std::string>> faults;
  auto work = [&] {
    for (size_t i; (i = next++) < files.size();) {
      std::string fault = check(i, files[i]);
      if (fault.empty()) continue;
      std::lock_guard<std::mutex> hold(lock);
      faults.emplace_back(i, std::move(fault));
    }
  };
  std::thread helper(work);
  work();
  helper.join();
  std::sort(faults.begin(), faults.end());
  for (const auto& [i, fault] : faults) ADD_FAILURE() << files[i] << ": " << fault.substr(0, 8000);
  EXPECT_TRUE(faults.empty()) << faults.size() << " of " << files.size() << " captures";
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
