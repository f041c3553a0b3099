// Arbitrary bytes as the stream of an AlarmStates: a count that may lie and
// 24-byte entries.
#include "fuzz_statistic.h"

#include "frame/clsids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzStreamLoad(CLSID_AlarmStates, data, size);
  return 0;
}
