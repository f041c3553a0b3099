// Arbitrary bytes as the binary stream of a SizeStats: the first byte picks
// the medium its set comes from, the rest is the stream. A row longer than
// the twelve buckets must be refused; whatever loads saves as the set's row,
// led by as many of the loaded values as the set has buckets, and loads
// again to the same bytes.
#include "frame/clsids.h"
#include "fuzz_counter_stats.h"
#include "network/size_stats.h"

#include <algorithm>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  using namespace zemo::fuzz;
  if (size < 1) return 0;
  auto context = MediumContext(data[0]);
  auto stats = AddedTo<SizeStats>(context);
  LONG buckets = 0;
  Require(stats->GetBucketCount(&buckets) == S_OK);
  std::span<const uint8_t> stream(data + 1, size - 1);
  HRESULT hr = LoadStream(stats.Get(), stream);
  Require(hr == S_OK || hr == E_FAIL);
  if (FAILED(hr)) return 0;
  ULONG n = 0;
  std::memcpy(&n, stream.data(), sizeof n);
  Require(n <= kMaxSizeBuckets);
  std::vector<uint8_t> saved = SavedBytes(stats->GetUnknown());
  Require(saved.size() == 4 + 8 * static_cast<size_t>(buckets));
  const size_t shown = std::min<size_t>(n, static_cast<size_t>(buckets));
  Require(std::equal(saved.begin() + 4, saved.begin() + 4 + 8 * shown, stream.begin() + 4));
  auto again = AddedTo<SizeStats>(context);
  Require(LoadStream(again.Get(), saved) == S_OK);
  Require(SavedBytes(again->GetUnknown()) == saved);
  return 0;
}
