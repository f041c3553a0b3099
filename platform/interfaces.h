// The runtime's own interfaces that the components use, with the platform's
// identifiers and operation orders, so that their vtables are the contract.
#pragma once

#include "platform/unknown.h"
#include "platform/variant.h"

struct IStream;

struct IClassFactory : IUnknown {
  static constexpr IID iid = MakeGuid("00000001-0000-0000-C000-000000000046");
  virtual HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** out) = 0;
  virtual HRESULT LockServer(BOOL lock) = 0;
};

struct IPersist : IUnknown {
  static constexpr IID iid = MakeGuid("0000010C-0000-0000-C000-000000000046");
  virtual HRESULT GetClassID(CLSID* out) = 0;
};

struct IPersistStream : IPersist {
  static constexpr IID iid = MakeGuid("00000109-0000-0000-C000-000000000046");
  virtual HRESULT IsDirty() = 0;
  virtual HRESULT Load(IStream* stream) = 0;
  virtual HRESULT Save(IStream* stream, BOOL clearDirty) = 0;
  virtual HRESULT GetSizeMax(ULARGE_INTEGER* size) = 0;
};

struct IPersistFile : IPersist {
  static constexpr IID iid = MakeGuid("0000010B-0000-0000-C000-000000000046");
  virtual HRESULT IsDirty() = 0;
  virtual HRESULT Load(LPCOLESTR fileName, DWORD mode) = 0;
  virtual HRESULT Save(LPCOLESTR fileName, BOOL remember) = 0;
  virtual HRESULT SaveCompleted(LPCOLESTR fileName) = 0;
  virtual HRESULT GetCurFile(LPOLESTR* fileName) = 0;
};

struct IObjectWithSite : IUnknown {
  static constexpr IID iid = MakeGuid("FC4801A3-2BA9-11CF-A229-00AA003D7352");
  virtual HRESULT SetSite(IUnknown* site) = 0;
  virtual HRESULT GetSite(REFIID iid, void** out) = 0;
};

struct IServiceProvider : IUnknown {
  static constexpr IID iid = MakeGuid("6D5140C1-7436-11CE-8034-00AA006009FA");
  virtual HRESULT QueryService(REFGUID service, REFIID iid, void** out) = 0;
};

struct IErrorLog : IUnknown {
  static constexpr IID iid = MakeGuid("3127CA40-446E-11CE-8135-00AA004BB851");
  virtual HRESULT AddError(LPCOLESTR propName, void* excepInfo) = 0;
};

struct IPropertyBag : IUnknown {
  static constexpr IID iid = MakeGuid("55272A00-42CB-11CE-8135-00AA004BB851");
  virtual HRESULT Read(LPCOLESTR name, VARIANT* value, IErrorLog* log) = 0;
  virtual HRESULT Write(LPCOLESTR name, VARIANT* value) = 0;
};

// Late binding. Type information is not offered by anything here, so its
// interface stays opaque.
struct ITypeInfo;
using DISPID = LONG;
using LCID = DWORD;

struct DISPPARAMS {
  VARIANT* rgvarg;
  DISPID* rgdispidNamedArgs;
  uint32_t cArgs;
  uint32_t cNamedArgs;
};

struct EXCEPINFO {
  WORD wCode;
  WORD wReserved;
  BSTR bstrSource;
  BSTR bstrDescription;
  BSTR bstrHelpFile;
  DWORD dwHelpContext;
  void* pvReserved;
  HRESULT (*pfnDeferredFillIn)(EXCEPINFO*);
  HRESULT scode;
};

inline constexpr WORD DISPATCH_METHOD = 1;
inline constexpr WORD DISPATCH_PROPERTYGET = 2;
inline constexpr WORD DISPATCH_PROPERTYPUT = 4;

struct IDispatch : IUnknown {
  static constexpr IID iid = MakeGuid("00020400-0000-0000-C000-000000000046");
  virtual HRESULT GetTypeInfoCount(uint32_t* count) = 0;
  virtual HRESULT GetTypeInfo(uint32_t index, LCID lcid, ITypeInfo** out) = 0;
  virtual HRESULT GetIDsOfNames(REFIID reserved, LPOLESTR* names, uint32_t count, LCID lcid, DISPID* ids) = 0;
  virtual HRESULT Invoke(DISPID id, REFIID reserved, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result,
                         EXCEPINFO* excep, uint32_t* argErr) = 0;
};
