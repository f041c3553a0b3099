// Arbitrary bytes as the stream of a WirelessNodeAssociationTable: what
// loads saves to the same bytes.
#include "fuzz_statistic.h"

#include "frame/clsids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzStreamLoad(CLSID_WirelessNodeAssociationTable, data, size);
  return 0;
}
