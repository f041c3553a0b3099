// Arbitrary bytes as the UTF-8 text of a stat map. A read ends in a status
// and leaves the map whole or empty: every id it holds, once each, in the
// order of the file, with its name.
#include "fuzz_statistic.h"
#include "summary/stat_map.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  ComPtr<IXMLDOMDocument> document = fuzz::ParsedDocument(data, size);
  if (!document) return 0;
  CStatMap map;
  HRESULT hr = map.Load(document.Get());
  fuzz::Require(hr != E_UNEXPECTED && hr != E_OUTOFMEMORY);
  fuzz::Require(SUCCEEDED(hr) || map.Empty());
  const std::vector<GUID>& ids = map.Ids();
  fuzz::Require(ids.size() == map.Count());
  for (size_t i = 0; i < ids.size(); ++i) {
    std::u16string name;
    fuzz::Require(map.Lookup(ids[i], name) == S_OK);
    fuzz::Require(map.Position(ids[i]) == static_cast<long>(i));
  }
  return 0;
}
