// MergedSource: the frames of several capture files as one capture, in time
// order as mergecap merges them: each time the file whose next frame is
// earliest gives it (the later file of the list on a tie), so that a file's
// own order stays as it is. The files must share a link type.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/capture_source.h"

namespace zemo::cli {

class MergedSource final : public FrameSource {
 public:
  // Opens each file ("-" for standard input, once at most). Null with a
  // message naming the file that failed, or the two whose link types differ.
  static std::unique_ptr<MergedSource> Open(const std::vector<std::string>& paths, std::string* error);

  // The capture filter on every file.
  bool SetFilter(const std::string& expression, std::string* error);

  int LinkType() const override { return m_files.front().source->LinkType(); }
  std::string LinkTypeName() const override { return m_files.front().source->LinkTypeName(); }
  bool Live() const override { return false; }
  uint32_t SnapLength() const override;
  ReadResult Next(CaptureFrame* frame) override;
  const std::string& Error() const override { return m_error; }
  uint64_t Position() const override;
  uint64_t Size() const override;
  bool InterfaceCounts(uint64_t*, uint64_t*) const override { return false; }
  void BreakLoop() override {}

 private:
  struct File {
    std::string path;
    std::unique_ptr<CaptureSource> source;
    CaptureFrame next{};
    bool waiting = false;  // next holds the file's frame to come
    bool ended = false;
  };
  std::vector<File> m_files;
  std::string m_error;
};

}  // namespace zemo::cli
