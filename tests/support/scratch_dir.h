// A fresh folder for the files a test writes, removed with its content when
// the test is done, and the reading of a whole file back.
#pragma once

#include <string>

namespace zemo::testing_support {

class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& Path() const { return m_path; }
  std::string File(const std::string& name) const { return m_path + "/" + name; }
  // The same as a wide name, as file operations of the module take it.
  std::u16string WideFile(const std::string& name) const;

 private:
  std::string m_path;
};

// The bytes of a file; empty if it cannot be read.
std::string ReadFile(const std::string& path);
std::string ReadFile(const std::u16string& path);

}  // namespace zemo::testing_support
