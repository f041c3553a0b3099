// Arbitrary bytes as the binary stream of a EntityTable.
#include "fuzz_identity.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzIdentityStream(CLSID_EntityTable, data, size);
  return 0;
}
