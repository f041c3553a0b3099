// A hostile title list of a language (Counter or Help) edited as a class's
// texts are installed and taken out. The list is the input's UTF-16 units
// behind three words: the run's first and last id and how many titles go in.
// An edit succeeds or fails with a status; a list it made is a closed list
// again, the same edit of it changes nothing when the run fits in first to
// last, and taking the run out leaves no id in that range.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "perfcounters/perf_titles.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// The ids of a list's pairs, as the edit reads them.
std::vector<uint64_t> Ids(const std::u16string& list) {
  std::vector<uint64_t> ids;
  bool isId = true;
  for (size_t at = 0; at < list.size();) {
    const size_t end = list.find(u'\0', at);
    if (end == at || end == std::u16string::npos) break;
    if (isId) ids.push_back(zemo::DecimalId(std::u16string_view(list).substr(at, end - at)));
    isId = !isId;
    at = end + 1;
  }
  return ids;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 12) return 0;
  uint32_t words[3];
  std::memcpy(words, data, 12);
  const DWORD first = words[0], last = words[1];
  static const std::u16string kTitles[] = {u"Packets", u"Bytes", u"Errors", u"Frames"};
  const std::span<const std::u16string> titles(kTitles, words[2] % 5);
  std::u16string list((size - 12) / 2, u'\0');
  std::memcpy(list.data(), data + 12, list.size() * 2);

  std::u16string once;
  const HRESULT hr = zemo::ReplaceTitles(list, titles, first, last, once);
  Require(hr == S_OK || hr == E_INVALIDARG || hr == HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
  if (FAILED(hr)) return 0;
  Require(once.size() >= 2 && once[once.size() - 1] == 0 && once[once.size() - 2] == 0);

  if (titles.empty() || uint64_t(first) + 2 * (titles.size() - 1) <= last) {
    std::u16string twice;
    Require(zemo::ReplaceTitles(once, titles, first, last, twice) == S_OK && twice == once);
  }
  std::u16string removed;
  Require(zemo::ReplaceTitles(once, {}, first, last, removed) == S_OK);
  for (uint64_t id : Ids(removed)) Require(id < first || id > last);
  return 0;
}
