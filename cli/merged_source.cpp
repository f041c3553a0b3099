#include "cli/merged_source.h"

#include <algorithm>

namespace zemo::cli {

std::unique_ptr<MergedSource> MergedSource::Open(const std::vector<std::string>& paths, std::string* error) {
  if (std::count(paths.begin(), paths.end(), "-") > 1) {
    *error = "standard input (-) can be read only once";
    return nullptr;
  }
  auto merged = std::unique_ptr<MergedSource>(new MergedSource);
  for (const std::string& path : paths) {
    std::unique_ptr<CaptureSource> source = CaptureSource::OpenFile(path, error);
    if (!source) return nullptr;
    const File* first = merged->m_files.empty() ? nullptr : &merged->m_files.front();
    if (first && first->source->LinkType() != source->LinkType()) {
      *error = "the files have different link types: " + first->path + " " + first->source->LinkTypeName() + ", " +
               path + " " + source->LinkTypeName() + "; a run reads captures of one link type";
      return nullptr;
    }
    merged->m_files.push_back({path, std::move(source)});
  }
  return merged;
}

bool MergedSource::SetFilter(const std::string& expression, std::string* error) {
  for (File& f : m_files)
    if (!f.source->SetFilter(expression, error)) return false;
  return true;
}

uint32_t MergedSource::SnapLength() const {
  uint32_t most = 0;
  for (const File& f : m_files) most = std::max(most, f.source->SnapLength());
  return most;
}

ReadResult MergedSource::Next(CaptureFrame* frame) {
  if (m_files.size() == 1) {
    ReadResult r = m_files[0].source->Next(frame);
    if (r == ReadResult::kError) m_error = m_files[0].source->Error();
    return r;
  }
  // The frame handed out last is done with: its file may read on.
  File* earliest = nullptr;
  for (File& f : m_files) {
    if (!f.waiting && !f.ended) {
      ReadResult r = f.source->Next(&f.next);
      if (r == ReadResult::kError) {
        m_error = f.path + ": " + f.source->Error();
        return r;
      }
      f.waiting = r == ReadResult::kFrame;
      f.ended = !f.waiting;
    }
    // On a tie the later file goes first, as mergecap takes it.
    if (f.waiting && (!earliest || f.next.time <= earliest->next.time)) earliest = &f;
  }
  if (!earliest) return ReadResult::kEnd;
  *frame = earliest->next;
  earliest->waiting = false;
  return ReadResult::kFrame;
}

uint64_t MergedSource::Position() const {
  uint64_t sum = 0;
  for (const File& f : m_files) sum += f.source->Position();
  return sum;
}

uint64_t MergedSource::Size() const {
  uint64_t sum = 0;
  for (const File& f : m_files) sum += f.source->Size();
  return sum;
}

}  // namespace zemo::cli
