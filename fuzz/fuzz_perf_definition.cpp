// Arbitrary bytes as a performance class's definition, as the registry value
// Map or the start of a writer's first page gives it. A load succeeds or
// fails with E_FAIL, never reads past the bytes, and whatever loaded saves
// and loads again to the same objects, counters and layout.
#include <cstdlib>
#include <cstring>

#include "perfcounters/perf_definition.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<zemo::PerfObject> objects;
  const HRESULT hr = zemo::LoadDefinition({data, size}, 1000, objects);
  Require(hr == S_OK || hr == E_FAIL);
  if (FAILED(hr)) return 0;

  std::vector<zemo::PerfObject> again;
  Require(zemo::LoadDefinition(zemo::SaveDefinition(objects), 1000, again) == S_OK);
  Require(again.size() == objects.size());
  for (size_t i = 0; i < objects.size(); ++i) {
    const zemo::PerfObject& a = objects[i];
    const zemo::PerfObject& b = again[i];
    Require(a.id == b.id && a.name == b.name && a.nameIndex == b.nameIndex && a.instanceLess == b.instanceLess &&
            a.blockLength == b.blockLength && a.counters.size() == b.counters.size() &&
            std::memcmp(&a.header, &b.header, sizeof a.header) == 0);
    for (size_t j = 0; j < a.counters.size(); ++j) {
      const zemo::PerfCounter& c = a.counters[j];
      Require(c.name == b.counters[j].name &&
              std::memcmp(&c.definition, &b.counters[j].definition, sizeof c.definition) == 0);
      // Every counter lies inside its object's block.
      Require(uint64_t(c.definition.CounterOffset) + c.definition.CounterSize <= a.blockLength);
    }
  }
  return 0;
}
