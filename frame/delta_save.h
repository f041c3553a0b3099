// The delta rule in one place: a full save is a delta save from time 0.
//
// A delta-capable class lists these adapters in place of IPersistStream and
// IPersistXml and implements only SaveDeltas; the adapters' Save calls it
// with a local `since` of 0 and passes no flag on.
//
//   class NodeStats final
//       : public zemo::Object<NodeStats, INodeStats, ..., zemo::PersistStreamByDeltas<NodeStats>,
//                             ISaveStreamDeltas, zemo::PersistXmlByDeltas<NodeStats>, IPersistXmlDeltas, ...> {
//     HRESULT SaveDeltas(IStream* stream, ZemoTime* since) override;
//     HRESULT SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) override;
//     ...
//   };
//
// The class still implements the other operations of both interfaces
// (GetClassID, IsDirty, Load, GetSizeMax).
#pragma once

#include "frame/persist_interfaces.h"

namespace zemo {

template <class D>
struct PersistStreamByDeltas : IPersistStream {
  using interface_type = IPersistStream;
  // The dirty flag is never cleared: no object claims to be clean.
  HRESULT Save(IStream* stream, BOOL /*clearDirty*/) final {
    ZemoTime since = 0;
    return static_cast<D*>(this)->SaveDeltas(stream, &since);
  }
};

template <class D>
struct PersistXmlByDeltas : IPersistXml {
  using interface_type = IPersistXml;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL /*flag*/) final {
    ZemoTime since = 0;
    return static_cast<D*>(this)->SaveDeltas(document, node, &since);
  }
};

}  // namespace zemo
