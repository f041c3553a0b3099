// The module's persistence and selection interfaces. Documents and nodes
// arrive as IUnknown: a class asks them for the DOM interfaces it needs.
#pragma once

#include "frame/engine_interfaces.h"
#include "frame/iids.h"
#include "platform/interfaces.h"
#include "platform/stream.h"

struct ISaveStreamDeltas : IUnknown {
  static constexpr IID iid = IID_ISaveStreamDeltas;
  // Writes the entries whose time is at or after *since; *since is not changed.
  virtual HRESULT SaveDeltas(IStream* stream, ZemoTime* since) = 0;
};

struct IPersistXml : IUnknown {
  static constexpr IID iid = IID_IPersistXml;
  virtual HRESULT GetClassID(CLSID* out) = 0;
  virtual HRESULT Load(IUnknown* document, IUnknown* node) = 0;
  virtual HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) = 0;
};

struct IPersistXmlDeltas : IUnknown {
  static constexpr IID iid = IID_IPersistXmlDeltas;
  virtual HRESULT GetClassID(CLSID* out) = 0;
  virtual HRESULT Load(IUnknown* document, IUnknown* node) = 0;
  virtual HRESULT SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) = 0;
};

// A new object of the same class with the same settings.
struct ICloneable : IUnknown {
  static constexpr IID iid = IID_ICloneable;
  virtual HRESULT Clone(IUnknown** clone) = 0;
};

struct ISelectableObject : IUnknown {
  static constexpr IID iid = IID_ISelectableObject;
  virtual HRESULT GetSelectName(BSTR* name) = 0;
  virtual HRESULT GetSelectFlag(ULONG* flag) = 0;
  virtual HRESULT GetSelectParams(ISelectParams** params) = 0;
  virtual HRESULT Select(ISelectParams* params, IUnknown** out) = 0;
  virtual HRESULT GetTable(IDataTable** table) = 0;
};
