// Arbitrary bytes as the binary stream of a TupleTable.
#include "fuzz_identity.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzIdentityStream(CLSID_TupleTable, data, size);
  return 0;
}
