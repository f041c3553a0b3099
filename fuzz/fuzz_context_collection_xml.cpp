// Arbitrary bytes as the UTF-8 text of a document holding a context
// collection: the load ends in a status, the list holds only whole contexts,
// and what loaded saves and loads again to as many contexts.
#include "fuzz_statistic.h"

#include "engine/engine.h"
#include "frame/clsids.h"
#include "frame/stats_interfaces.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  static const bool engine = RegisterEngineClasses() == S_OK;
  fuzz::Require(engine);
  ComPtr<IXMLDOMDocument> document = fuzz::ParsedDocument(data, size);
  if (!document) return 0;
  ComPtr<IUnknown> list = fuzz::NewObject(CLSID_ZemoStatsContextCollection);
  HRESULT hr = LoadObjectFromXml(list.Get(), document.Get(), document.Get());
  ComPtr<IZemoStatsContextCollection> contexts;
  fuzz::Require(list->QueryInterface(IID_IZemoStatsContextCollection, contexts.OutVoid()) == S_OK);
  LONG count = -1;
  fuzz::Require(contexts->GetContextCount(&count) == S_OK && count >= 0);
  // Every context in the list is usable, whether the load ended well or not.
  for (LONG i = 0; i < count; ++i) {
    ComPtr<IZemoStatsContext> context;
    fuzz::Require(contexts->GetContextAt(i, context.ReleaseAndGetAddressOf()) == S_OK);
    fuzz::SavedBytes(context.Get());
  }
  if (FAILED(hr)) return 0;
  ComPtr<IXMLDOMDocument> out = CreateXmlDocument();
  if (FAILED(SaveObjectToXml(list.Get(), out.Get(), out.Get(), TRUE))) return 0;  // a statistic without XML form
  ComPtr<IUnknown> again = fuzz::NewObject(CLSID_ZemoStatsContextCollection);
  fuzz::Require(LoadObjectFromXml(again.Get(), out.Get(), out.Get()) == S_OK);
  ComPtr<IZemoStatsContextCollection> againContexts;
  fuzz::Require(again->QueryInterface(IID_IZemoStatsContextCollection, againContexts.OutVoid()) == S_OK);
  LONG againCount = -1;
  fuzz::Require(againContexts->GetContextCount(&againCount) == S_OK && againCount == count);
  return 0;
}
