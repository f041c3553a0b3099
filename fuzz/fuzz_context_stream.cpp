// Arbitrary bytes as the stream of a StatsContext: whatever the input, the
// load ends in a status, the context stays usable, and what loaded saves and
// loads again.
#include "fuzz_statistic.h"

#include "engine/engine.h"
#include "frame/clsids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  // The identity tables the context makes for itself need the host's engine.
  static const bool engine = RegisterEngineClasses() == S_OK;
  fuzz::Require(engine);
  ComPtr<IUnknown> context = fuzz::NewObject(CLSID_StatsContext);
  HRESULT hr = LoadObjectFromStream(context.Get(), CreateReadOnlyStream(data, size).Get());
  std::vector<uint8_t> saved = fuzz::SavedBytes(context.Get());
  if (FAILED(hr)) return 0;
  ComPtr<IUnknown> again = fuzz::NewObject(CLSID_StatsContext);
  fuzz::Require(LoadObjectFromStream(again.Get(), CreateReadOnlyStream(saved.data(), saved.size()).Get()) == S_OK);
  return 0;
}
