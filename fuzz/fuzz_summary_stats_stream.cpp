// Arbitrary bytes as a stream that a SummaryStats loads.
#include "fuzz_summary.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzSummaryStream<zemo::SummaryStats>(data, size);
  return 0;
}
