#include "perfcounters/perf_module.h"

namespace zemo {
namespace {

// No statistic of the module is published as a counter.
PerfProvider* const kProviders[1] = {nullptr};

}  // namespace

std::span<PerfProvider* const> PerfProviderTable() { return kProviders; }

HRESULT RegisterProviders(std::span<PerfProvider* const> table, std::u16string_view module) {
  for (PerfProvider* p : table) {
    if (!p) continue;
    HRESULT hr = p->Register(module);
    if (SUCCEEDED(hr)) hr = p->LoadStrings(module);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

HRESULT UnregisterProviders(std::span<PerfProvider* const> table) {
  for (PerfProvider* p : table)
    if (p)
      if (const HRESULT hr = p->Unregister(); FAILED(hr)) return hr;
  return S_OK;
}

DWORD CollectProviders(std::span<PerfProvider* const> table, const char16_t* request, void** data, DWORD* bytes,
                       DWORD* objects) {
  if (!data || !bytes || !objects) return ERROR_INVALID_PARAMETER;
  void* const start = *data;
  const DWORD room = *bytes;
  DWORD used = 0;
  for (PerfProvider* p : table) {
    if (!p) continue;
    DWORD left = room - used;
    if (const DWORD result = p->Collect(request, data, &left, objects)) {
      *bytes = 0;
      *objects = 0;
      *data = start;
      return result;
    }
    used += left;
  }
  *bytes = used;
  return 0;
}

DWORD CloseProviders(std::span<PerfProvider* const> table) {
  for (PerfProvider* p : table)
    if (p) p->Close();
  return 0;
}

}  // namespace zemo

extern "C" {

// The device names are not used.
ZEMO_API DWORD OpenPerfMon(char16_t*) __asm__("_OpenPerfMon_4");
ZEMO_API DWORD CollectPerfMon(char16_t* request, void** data, DWORD* bytes, DWORD* objects) __asm__(
    "_CollectPerfMon_16");
ZEMO_API DWORD ClosePerfMon() __asm__("_ClosePerfMon_0");

DWORD OpenPerfMon(char16_t*) { return 0; }

DWORD CollectPerfMon(char16_t* request, void** data, DWORD* bytes, DWORD* objects) {
  return zemo::CollectProviders(zemo::PerfProviderTable(), request, data, bytes, objects);
}

DWORD ClosePerfMon() { return zemo::CloseProviders(zemo::PerfProviderTable()); }

}  // extern "C"
