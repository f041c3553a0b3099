// Arbitrary bytes as a prism header.
#include "fuzz_radio_header.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::FuzzRadioHeader(&zemo::ReadPrism, data, size);
  return 0;
}
