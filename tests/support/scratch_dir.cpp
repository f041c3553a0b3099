#include "support/scratch_dir.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/strings.h"

namespace zemo::testing_support {

ScratchDir::ScratchDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "zemostats-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  m_path = pattern;
}

ScratchDir::~ScratchDir() {
  std::error_code ec;
  std::filesystem::remove_all(m_path, ec);
}

std::u16string ScratchDir::WideFile(const std::string& name) const { return FromUtf8(File(name)); }

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::string ReadFile(const std::u16string& path) { return ReadFile(ToUtf8(path)); }

}  // namespace zemo::testing_support
