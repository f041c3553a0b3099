// Arbitrary bytes as the binary stream of a HistoryStats. Beyond the shared
// round trip: a loaded series resumes at its own end, so a tick some
// intervals past that end appends exactly one sample per interval passed and
// never loses or rewrites a loaded one.
#include "frame/clsids.h"
#include "frame/stream_persist.h"
#include "fuzz_statistic.h"
#include "network/history_stats.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  using namespace zemo::fuzz;
  FuzzStreamLoad(CLSID_HistoryStats, data, size);

  auto history = HistoryStats::Create();
  if (FAILED(LoadObjectFromStream(history->GetUnknown(), CreateReadOnlyStream(data, size).Get()))) return 0;
  LONG interval = 0, count = 0;
  ZemoTime start = 0;
  Require(history->GetInterval(&interval) == S_OK && interval >= 1);
  Require(history->GetSampleCount(&count) == S_OK && history->GetStartTime(&start) == S_OK);
  if (start == 0) return 0;
  double* before = nullptr;
  LONG n = 0;
  Require(history->GetSamples(&before, &n) == S_OK && n == count);

  // The end of the loaded series, and a tick up to 64 intervals later.
  const unsigned __int128 step = static_cast<unsigned __int128>(interval) * 1000000000u;
  const unsigned __int128 end = static_cast<unsigned __int128>(start / 1000000000u * 1000000000u) + step * (count + 1u);
  const unsigned passed = size ? data[size - 1] % 64 : 0;
  const unsigned __int128 tick = end + step * passed;
  if (tick + 1 <= ~0ull) {
    Require(history->ProcessTime(static_cast<ZemoTime>(tick)) == S_OK);
    Require(history->ProcessTime(static_cast<ZemoTime>(tick) + 1) == S_OK);
    double* after = nullptr;
    LONG m = 0;
    Require(history->GetSamples(&after, &m) == S_OK);
    Require(m == count + static_cast<LONG>(passed) + 1);
    Require(count == 0 || std::memcmp(before, after, sizeof(double) * static_cast<size_t>(count)) == 0);
    CoTaskMemFree(after);
  }
  CoTaskMemFree(before);
  return 0;
}
