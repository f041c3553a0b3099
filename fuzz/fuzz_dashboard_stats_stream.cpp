// Arbitrary bytes as the binary stream of a DashboardStats: a version, a
// count and that many histories. A count far past the histories present
// must end at the first missing one rather than reserve for the count.
#include "frame/clsids.h"
#include "frame/stream_persist.h"
#include "fuzz_statistic.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzStreamLoad(CLSID_DashboardStats, data, size);
  return 0;
}
