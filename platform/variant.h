// VARIANT, the tagged value of the runtime, with the platform's VARTYPE
// numbers (they appear in saved XML, so they are fixed).
#pragma once

#include <string>

#include "platform/guid.h"
#include "platform/strings.h"
#include "platform/unknown.h"

struct IDispatch;

enum : VARTYPE {
  VT_EMPTY = 0,
  VT_NULL = 1,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_R4 = 4,
  VT_R8 = 5,
  VT_BSTR = 8,
  VT_DISPATCH = 9,
  VT_ERROR = 10,
  VT_BOOL = 11,
  VT_VARIANT = 12,
  VT_UNKNOWN = 13,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_CLSID = 72,
  VT_ARRAY = 0x2000,
  VT_BYREF = 0x4000,
  VT_TYPEMASK = 0x0FFF,
};

// 24 bytes: the type, three reserved words and an 8-byte payload, padded to
// two pointers as on the platform.
struct VARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    LONGLONG llVal;
    LONG lVal;
    BYTE bVal;
    SHORT iVal;
    float fltVal;
    double dblVal;
    VARIANT_BOOL boolVal;
    HRESULT scode;
    BSTR bstrVal;
    IUnknown* punkVal;
    IDispatch* pdispVal;
    void* parray;
    int8_t cVal;
    USHORT uiVal;
    ULONG ulVal;
    ULONGLONG ullVal;
    int32_t intVal;
    uint32_t uintVal;
    CLSID* puuid;  // VT_CLSID: a task-memory block the variant owns
    void* byref;
    struct {
      void* pvRecord;
      void* pRecInfo;
    } record;
  };
};
static_assert(sizeof(VARIANT) == 24);

extern "C" {
ZEMO_API void VariantInit(VARIANT* v);
ZEMO_API HRESULT VariantClear(VARIANT* v);
ZEMO_API HRESULT VariantCopy(VARIANT* dest, const VARIANT* src);
// The platform's ordinary conversions between the scalar types, text and
// booleans. Out of range is DISP_E_OVERFLOW, text that is no number
// DISP_E_TYPEMISMATCH. dest may equal src.
ZEMO_API HRESULT VariantChangeType(VARIANT* dest, const VARIANT* src, USHORT flags, VARTYPE vt);
}

namespace zemo {

// Owner of one VARIANT; clears it on destruction.
class CVariant : public VARIANT {
 public:
  CVariant() noexcept { VariantInit(this); }
  CVariant(const CVariant& o) : CVariant() { CheckHr(VariantCopy(this, &o)); }
  CVariant(const VARIANT& o) : CVariant() { CheckHr(VariantCopy(this, &o)); }
  CVariant(CVariant&& o) noexcept : VARIANT(o) { VariantInit(&o); }
  ~CVariant() { VariantClear(this); }
  CVariant& operator=(CVariant o) noexcept {
    std::swap(static_cast<VARIANT&>(*this), static_cast<VARIANT&>(o));
    return *this;
  }

  static CVariant I4(int32_t v) { return Scalar(VT_I4, [&](VARIANT& x) { x.lVal = v; }); }
  static CVariant UI4(uint32_t v) { return Scalar(VT_UI4, [&](VARIANT& x) { x.ulVal = v; }); }
  static CVariant I8(int64_t v) { return Scalar(VT_I8, [&](VARIANT& x) { x.llVal = v; }); }
  static CVariant UI8(uint64_t v) { return Scalar(VT_UI8, [&](VARIANT& x) { x.ullVal = v; }); }
  static CVariant UI2(uint16_t v) { return Scalar(VT_UI2, [&](VARIANT& x) { x.uiVal = v; }); }
  static CVariant UI1(uint8_t v) { return Scalar(VT_UI1, [&](VARIANT& x) { x.bVal = v; }); }
  static CVariant R8(double v) { return Scalar(VT_R8, [&](VARIANT& x) { x.dblVal = v; }); }
  static CVariant Bool(bool v) { return Scalar(VT_BOOL, [&](VARIANT& x) { x.boolVal = v ? VARIANT_TRUE : VARIANT_FALSE; }); }
  static CVariant Str(std::u16string_view text);
  static CVariant Clsid(const CLSID& id);
  // Holds a new reference to the object (null allowed).
  static CVariant Unknown(IUnknown* p);

  VARIANT* Out() noexcept {
    VariantClear(this);
    return this;
  }
  // Converts in place, raising the status on failure.
  void ChangeTo(VARTYPE vt) { CheckHr(VariantChangeType(this, this, 0, vt)); }

 private:
  template <class F>
  static CVariant Scalar(VARTYPE vt, F set) {
    CVariant v;
    v.vt = vt;
    set(v);
    return v;
  }
};

// Decimal text of a double that reads back to the same value.
std::u16string DoubleToText(double v);

}  // namespace zemo
