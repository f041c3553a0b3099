// Arbitrary bytes as the stream of an AlarmCollection, which holds a
// document: whatever loads saves a stream that loads into the same alarms.
#include "fuzz_statistic.h"

#include "frame/clsids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  using fuzz::Require;
  ComPtr<IUnknown> object = fuzz::NewObject(CLSID_AlarmCollection);
  HRESULT hr = LoadObjectFromStream(object.Get(), CreateReadOnlyStream(data, size).Get());
  Require(hr != E_UNEXPECTED && hr != E_OUTOFMEMORY);
  if (FAILED(hr)) return 0;
  std::vector<uint8_t> saved = fuzz::SavedBytes(object.Get());
  ComPtr<IUnknown> again = fuzz::NewObject(CLSID_AlarmCollection);
  Require(LoadObjectFromStream(again.Get(), CreateReadOnlyStream(saved.data(), saved.size()).Get()) == S_OK);
  Require(fuzz::SavedBytes(again.Get()) == saved);
  return 0;
}
