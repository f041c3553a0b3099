// Arbitrary bytes as a PPI header.
#include "fuzz_radio_header.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzRadioHeader(&zemo::ReadPpi, data, size);
  return 0;
}
