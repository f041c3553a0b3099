// Arbitrary bytes as the UTF-8 text of a document holding limit settings.
// A load succeeds or, without the element, fails with E_FAIL; what loaded
// saves and loads again to the same five values.
#include "frame/stream_persist.h"  // before the shared checks, which use it
#include "fuzz_statistic.h"

#include "frame/clsids.h"
#include "tables/limit_interfaces.h"

namespace {

struct Values {
  LONG enabled = 0, reset = 0, notify = 0, severity = 0;
  ULONG limit = 0;
  bool operator==(const Values&) const = default;
};

Values Read(IUnknown* object) {
  auto settings = zemo::ComPtr<IUnknown>(object).Query<IZemoStatsLimitSettings>();
  Values v;
  zemo::fuzz::Require(settings->GetEnabled(&v.enabled) == S_OK && settings->GetLimit(&v.limit) == S_OK &&
                      settings->GetReset(&v.reset) == S_OK && settings->GetNotify(&v.notify, &v.severity) == S_OK);
  return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  using fuzz::Require;
  ComPtr<IXMLDOMDocument> document = fuzz::ParsedDocument(data, size);
  if (!document) return 0;
  ComPtr<IUnknown> object = fuzz::NewObject(CLSID_ZemoStatsLimitSettings);
  HRESULT hr = LoadObjectFromXml(object.Get(), document.Get(), document.Get());
  Require(hr == S_OK || hr == E_FAIL);
  if (FAILED(hr)) return 0;

  ComPtr<IXMLDOMDocument> copy = CreateXmlDocument();
  Require(SaveObjectToXml(object.Get(), copy.Get(), copy.Get(), FALSE) == S_OK);
  ComPtr<IUnknown> again = fuzz::NewObject(CLSID_ZemoStatsLimitSettings);
  Require(LoadObjectFromXml(again.Get(), copy.Get(), copy.Get()) == S_OK);
  Require(Read(again.Get()) == Read(object.Get()));
  return 0;
}
