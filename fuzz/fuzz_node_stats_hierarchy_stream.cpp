// Arbitrary bytes as the stream of a NodeStatsHierarchy. A pair row whose
// physical record is missing brings that record in, so what loaded may save
// to a row more for each row read; it must still be a fixed point.
#include "frame/stream_persist.h"  // before the shared checks, which use it
#include "fuzz_statistic.h"

#include "frame/clsids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo::fuzz;
  zemo::ComPtr<IUnknown> object = NewObject(CLSID_NodeStatsHierarchy);
  HRESULT hr = zemo::LoadObjectFromStream(object.Get(), zemo::CreateReadOnlyStream(data, size).Get());
  Require(hr == S_OK || hr == E_FAIL);
  if (FAILED(hr)) return 0;
  constexpr size_t kHead = 8, kRow = 112;
  std::vector<uint8_t> saved = SavedBytes(object.Get());
  Require(saved.size() <= kHead + 2 * (size - kHead) / kRow * kRow);
  Require(std::equal(saved.begin(), saved.begin() + 4, data));
  zemo::ComPtr<IUnknown> again = NewObject(CLSID_NodeStatsHierarchy);
  Require(zemo::LoadObjectFromStream(again.Get(), zemo::CreateReadOnlyStream(saved.data(), saved.size()).Get()) == S_OK);
  Require(SavedBytes(again.Get()) == saved);
  return 0;
}
