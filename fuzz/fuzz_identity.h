// The loaders of the identity tables under arbitrary input. A stream load
// must end in a status, and whatever it took in, all of it or the part before
// a failure, must save, load into an empty table and save again to the same
// bytes: a load keeps only what its table would write, with protocols by
// their path and values in their sub-table's length, so the bytes need not
// be those that came in. Documents go through the statistics' XML check.
#pragma once

#include "engine/engine.h"
#include "frame/clsids.h"
#include "fuzz_statistic.h"

namespace zemo::fuzz {

// Entity tables need the host's protocol tree.
inline void RequireHostEngine() {
  static const bool engine = RegisterEngineClasses() == S_OK;
  Require(engine);
}

inline void FuzzIdentityStream(REFCLSID clsid, const uint8_t* data, size_t size) {
  RequireHostEngine();
  ComPtr<IUnknown> object = NewObject(clsid);
  HRESULT hr = LoadObjectFromStream(object.Get(), CreateReadOnlyStream(data, size).Get());
  Require(hr == S_OK || hr == E_FAIL || hr == E_OUTOFMEMORY);
  std::vector<uint8_t> saved = SavedBytes(object.Get());
  ComPtr<IUnknown> again = NewObject(clsid);
  Require(LoadObjectFromStream(again.Get(), CreateReadOnlyStream(saved.data(), saved.size()).Get()) == S_OK);
  Require(SavedBytes(again.Get()) == saved);
}

inline void FuzzIdentityXml(REFCLSID clsid, const uint8_t* data, size_t size) {
  RequireHostEngine();
  FuzzXmlLoad(clsid, data, size);
}

}  // namespace zemo::fuzz
