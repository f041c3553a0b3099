// Arbitrary bytes as the shared pages of a performance class's writer, cut
// into pages of 1024 bytes: page 0 starts with the definition, every page
// holds its number and entries. The input is another process's memory and
// is untrusted. Collection answers 0 or ERROR_MORE_DATA, never writes past
// the room it is given, and what it writes is whole objects whose lengths
// add up to the bytes it says it used.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "perfcounters/perf_provider.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

constexpr uint32_t kPageSize = 1024;
constexpr size_t kMaxPages = 6;

// Pages out of the input, each its own allocation so that a read past one
// is caught; no registry, so a class without pages has no definition.
class FuzzSystem final : public zemo::PosixPerfSystem {
 public:
  std::vector<std::vector<uint8_t>> pages;
  std::vector<std::u16string> names;

  HRESULT QueryValue(std::u16string_view, std::u16string_view, zemo::RegistryValue&) override {
    return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
  }
  uint32_t PageSize() override { return kPageSize; }
  const uint8_t* MapPage(std::u16string_view name, size_t size) override {
    for (size_t i = 0; i < pages.size(); ++i)
      if (names[i] == name && size <= pages[i].size()) return pages[i].data();
    return nullptr;
  }
  void UnmapPage(const uint8_t*, size_t) override {}
};

class FuzzClass final : public zemo::PerfProvider {
 public:
  explicit FuzzClass(zemo::PerfSystem& system) : PerfProvider(system) {}
  std::u16string GetAppName() override { return u"Fuzz"; }
  HRESULT CreateMap(WORD, std::u16string_view, DWORD*) override { return E_NOTIMPL; }
};

void CollectInto(FuzzClass& c, const char16_t* request, DWORD room) {
  std::vector<uint8_t> buffer(room);
  void* data = buffer.data();
  DWORD bytes = room, objects = 0;
  const DWORD result = c.Collect(request, &data, &bytes, &objects);
  Require(result == 0 || result == ERROR_MORE_DATA);
  Require(data == buffer.data() + bytes && bytes <= room);
  if (result) return Require(bytes == 0 && objects == 0);
  size_t at = 0;
  for (DWORD i = 0; i < objects; ++i) {
    Require(bytes - at >= sizeof(zemo::PERF_OBJECT_TYPE));
    zemo::PERF_OBJECT_TYPE h;
    std::memcpy(&h, buffer.data() + at, sizeof h);
    Require(h.TotalByteLength >= h.DefinitionLength && h.TotalByteLength <= bytes - at);
    at += h.TotalByteLength;
  }
  Require(at == bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzSystem system;
  FuzzClass c(system);
  for (size_t at = 0; at < size && system.pages.size() < kMaxPages; at += kPageSize) {
    std::vector<uint8_t> page(kPageSize, 0);
    std::memcpy(page.data(), data + at, std::min<size_t>(kPageSize, size - at));
    system.pages.push_back(std::move(page));
    system.names.push_back(c.PageName(static_cast<uint32_t>(system.names.size())));
  }
  CollectInto(c, u"Global", 1 << 16);
  // Room that runs out partway, and a request by name ids.
  CollectInto(c, u"Global", size % 700);
  CollectInto(c, u"2 4 6 8 10 12 14 16", 1 << 16);
  c.Close();
  CollectInto(c, u"global", 1 << 16);
  return 0;
}
