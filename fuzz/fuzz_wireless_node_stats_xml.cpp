// Arbitrary bytes as the UTF-8 text of a document holding a
// WirelessNodeStats. Fields a record's form leaves out (the signal figures
// of a node that never sent) may load, so the stream forms of the two
// objects need not agree: the markup must.
#include "frame/stream_persist.h"  // before the shared checks, which use it
#include "fuzz_statistic.h"

#include "frame/clsids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzXmlRoundTrip(CLSID_WirelessNodeStats, data, size);
  return 0;
}
