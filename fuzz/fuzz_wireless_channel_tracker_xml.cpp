// Arbitrary bytes as the UTF-8 text of a document holding a
// WirelessChannelStatsTracker.
#include "frame/stream_persist.h"  // before the shared checks, which use it
#include "fuzz_statistic.h"

#include "frame/clsids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzXmlRoundTrip(CLSID_WirelessChannelStatsTracker, data, size);
  return 0;
}
