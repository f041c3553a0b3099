// Arbitrary bytes as the UTF-8 text of a document holding a NetworkStats.
#include "frame/clsids.h"
#include "fuzz_statistic.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzXmlLoad(CLSID_NetworkStats, data, size);
  return 0;
}
