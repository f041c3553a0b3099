// Arbitrary bytes as the UTF-8 text of an XML document that a SummaryStats loads.
#include "fuzz_summary.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzSummaryXml<zemo::SummaryStats>(data, size);
  return 0;
}
