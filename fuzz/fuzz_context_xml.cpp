// Arbitrary bytes as the UTF-8 text of a document holding a StatsContext:
// the load ends in a status, the context stays usable, and what loaded saves
// and loads again.
#include "fuzz_statistic.h"

#include "engine/engine.h"
#include "frame/clsids.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  // The identity tables the context makes for itself need the host's engine.
  static const bool engine = RegisterEngineClasses() == S_OK;
  fuzz::Require(engine);
  ComPtr<IXMLDOMDocument> document = fuzz::ParsedDocument(data, size);
  if (!document) return 0;
  ComPtr<IUnknown> context = fuzz::NewObject(CLSID_StatsContext);
  HRESULT hr = LoadObjectFromXml(context.Get(), document.Get(), document.Get());
  // Usable whatever happened: the stream form saves every statistic it holds.
  fuzz::SavedBytes(context.Get());
  if (FAILED(hr)) return 0;
  ComPtr<IXMLDOMDocument> out = CreateXmlDocument();
  if (FAILED(SaveObjectToXml(context.Get(), out.Get(), out.Get(), FALSE))) return 0;  // a statistic without XML form
  ComPtr<IUnknown> again = fuzz::NewObject(CLSID_StatsContext);
  fuzz::Require(LoadObjectFromXml(again.Get(), out.Get(), out.Get()) == S_OK);
  return 0;
}
