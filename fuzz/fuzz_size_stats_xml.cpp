// Arbitrary bytes after a first one, which picks the medium, as the UTF-8
// text of an XML document whose element `sizestats` a SizeStats loads.
#include "fuzz_counter_stats.h"
#include "network/size_stats.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzCounterXml<zemo::SizeStats>(data, size);
  return 0;
}
