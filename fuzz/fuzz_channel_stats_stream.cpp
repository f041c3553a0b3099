// Arbitrary bytes as the binary stream of a ChannelStats.
#include "frame/clsids.h"
#include "fuzz_statistic.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzStreamLoad(CLSID_ChannelStats, data, size);
  return 0;
}
