// Arbitrary bytes as the stream of a ProtocolStats.
#include "frame/stream_persist.h"  // before the shared checks, which use it
#include "fuzz_identity.h"  // the host's protocol tree, which the class needs

#include "frame/clsids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fuzz::RequireHostEngine();
  zemo::fuzz::FuzzTableStreamLoad(CLSID_ProtocolStats, data, size);
  return 0;
}
