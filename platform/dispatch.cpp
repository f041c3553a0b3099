#include "platform/dispatch.h"

#include <cstring>

#include "platform/object.h"
#include "platform/strings.h"

namespace zemo::dispatch {

HRESULT IdsOfNames(std::span<const Entry> entries, REFIID reserved, LPOLESTR* names, uint32_t count, DISPID* ids) {
  if (!(reserved == GUID_NULL)) return DISP_E_UNKNOWNINTERFACE;
  if (count == 0) return S_OK;
  if (!names) return E_INVALIDARG;
  if (!ids) return E_POINTER;
  for (uint32_t i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
  HRESULT hr = S_OK;
  if (names[0]) {
    for (size_t i = 0; i < entries.size(); ++i)
      if (WideEqualNoCase(entries[i].name, names[0])) {
        ids[0] = static_cast<DISPID>(i + 1);
        break;
      }
  }
  if (ids[0] == DISPID_UNKNOWN) hr = DISP_E_UNKNOWNNAME;
  // Operations take their arguments by position only: no parameter has a name.
  if (count > 1) hr = DISP_E_UNKNOWNNAME;
  return hr;
}

HRESULT Invoke(std::span<const Entry> entries, IDispatch* self, DISPID id, REFIID reserved, WORD flags,
               DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep, uint32_t* argErr) {
  if (!(reserved == GUID_NULL)) return DISP_E_UNKNOWNINTERFACE;
  if (id < 1 || static_cast<size_t>(id) > entries.size()) return DISP_E_MEMBERNOTFOUND;
  // Every member is an operation; a property put has nothing to put into.
  if (!(flags & (DISPATCH_METHOD | DISPATCH_PROPERTYGET))) return DISP_E_MEMBERNOTFOUND;
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  if (!params) params = &none;
  if (params->cNamedArgs) return DISP_E_NONAMEDARGS;
  if (params->cArgs && !params->rgvarg) return E_INVALIDARG;
  const Entry& entry = entries[static_cast<size_t>(id - 1)];
  HRESULT callStatus = S_OK;
  HRESULT hr = Boundary([&] { return entry.invoke(self, *params, result, argErr, &callStatus); });
  if (hr == DISP_E_EXCEPTION && excep) {
    std::memset(excep, 0, sizeof *excep);
    excep->bstrSource = SysAllocString(entry.name);
    excep->scode = callStatus;
  }
  return hr;
}

const VARIANT& Deref(const VARIANT& arg) {
  if (arg.vt == (VT_BYREF | VT_VARIANT) && arg.byref) return *static_cast<const VARIANT*>(arg.byref);
  return arg;
}

HRESULT CheckOutSlot(const VARIANT& arg, VARTYPE vt) {
  if (!(arg.vt & VT_BYREF) || !arg.byref) return DISP_E_TYPEMISMATCH;
  const VARTYPE to = arg.vt & VT_TYPEMASK;
  return to == VT_VARIANT || to == vt ? S_OK : DISP_E_TYPEMISMATCH;
}

void StoreOut(const VARIANT& arg, CVariant& value) {
  VARIANT& from = value;
  if ((arg.vt & VT_TYPEMASK) == VT_VARIANT) {
    auto* to = static_cast<VARIANT*>(arg.byref);
    VariantClear(to);
    std::memcpy(to, &from, sizeof(VARIANT));
    VariantInit(&from);
    return;
  }
  // A typed slot takes the payload; an out slot holds nothing of its own yet.
  switch (from.vt) {
    case VT_BSTR: *static_cast<BSTR*>(arg.byref) = from.bstrVal; break;
    case VT_UNKNOWN: *static_cast<IUnknown**>(arg.byref) = from.punkVal; break;
    case VT_DISPATCH: *static_cast<IDispatch**>(arg.byref) = from.pdispVal; break;
    case VT_I2: case VT_UI2: std::memcpy(arg.byref, &from.iVal, 2); break;
    case VT_I4: case VT_UI4: std::memcpy(arg.byref, &from.lVal, 4); break;
    default: std::memcpy(arg.byref, &from.llVal, 8); break;
  }
  VariantInit(&from);
}

void StoreResult(VARIANT* result, CVariant& value) {
  if (!result) return;
  VariantClear(result);
  std::memcpy(result, static_cast<VARIANT*>(&value), sizeof(VARIANT));
  VariantInit(&value);
}

HRESULT Param<GUID>::Read(const VARIANT& arg, Holder& h) {
  CVariant v;
  HRESULT hr = VariantChangeType(&v, &Deref(arg), 0, VT_CLSID);
  if (FAILED(hr)) return hr;
  if (!v.puuid) return DISP_E_TYPEMISMATCH;
  h = *v.puuid;
  return S_OK;
}

CVariant Param<BSTR*>::Value(Holder& h) {
  CVariant v;
  v.vt = VT_BSTR;
  v.bstrVal = h.Detach();
  return v;
}

CVariant Param<GUID*>::Value(Holder& h) {
  OLECHAR text[39];
  StringFromGUID2(h, text, 39);
  return CVariant::Str(text);
}

}  // namespace zemo::dispatch
