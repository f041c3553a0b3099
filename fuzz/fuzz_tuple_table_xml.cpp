// Arbitrary bytes as the UTF-8 text of a document holding a TupleTable.
#include "fuzz_identity.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzIdentityXml(CLSID_TupleTable, data, size);
  return 0;
}
