// ZemoStatsContextCollection: an ordered list of contexts that a host keeps
// together, to save and restore several captures as one XML document. The
// one class of the module that may be part of an aggregate.
#pragma once

#include "frame/persist_interfaces.h"
#include "frame/ref_array.h"
#include "frame/stats_interfaces.h"
#include "platform/object.h"

namespace zemo {

class ZemoStatsContextCollection final
    : public Object<ZemoStatsContextCollection, IZemoStatsContextCollection, IPersistXml> {
 public:
  static constexpr bool kAggregatable = true;

  // IZemoStatsContextCollection
  HRESULT GetContextCount(LONG* count) override;
  HRESULT GetContextAt(LONG index, IZemoStatsContext** context) override;
  // A context may stand in the list more than once.
  HRESULT AddContext(IZemoStatsContext* context) override;
  HRESULT RemoveAllContexts() override;

  // IPersistXml: the element stats-contexts with one element context for each.
  HRESULT GetClassID(CLSID* out) override;
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;

 private:
  TRefArray<IZemoStatsContext> m_contexts;
};

}  // namespace zemo
