// Arbitrary bytes as the UTF-8 text of a document holding a
// WirelessNodeAssociationTable.
#include "frame/stream_persist.h"  // before the shared checks, which use it
#include "fuzz_statistic.h"

#include "frame/clsids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzXmlLoad(CLSID_WirelessNodeAssociationTable, data, size);
  return 0;
}
