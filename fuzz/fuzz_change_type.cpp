// Arbitrary text, and arbitrary payloads of the scalar types, converted to
// every type by ChangeType. A conversion must not crash or leak, must give
// the same answer in place as into another variant, and a 64-bit integer
// must come back from its own text unchanged.
#include <cstdlib>
#include <cstring>

#include "frame/change_type.h"

namespace {

constexpr VARTYPE kTypes[] = {VT_EMPTY, VT_NULL, VT_I2,  VT_I4,  VT_R4,  VT_R8,   VT_BSTR,    VT_DISPATCH,
                              VT_ERROR, VT_BOOL, VT_UNKNOWN, VT_I1, VT_UI1, VT_UI2, VT_UI4, VT_I8,
                              VT_UI8,   VT_INT,  VT_UINT, VT_CLSID};
constexpr VARTYPE kScalarSources[] = {VT_I1, VT_UI1, VT_I2, VT_UI2, VT_I4, VT_UI4, VT_I8, VT_UI8, VT_R8, VT_BOOL};

void Check(const VARIANT& src) {
  for (VARTYPE vt : kTypes) {
    zemo::CVariant out;
    HRESULT hr = zemo::ChangeType(&out, &src, vt);
    zemo::CVariant inPlace(src);
    HRESULT hrInPlace = zemo::ChangeType(&inPlace, &inPlace, vt);
    if (hr != hrInPlace) std::abort();
    if (FAILED(hr)) continue;
    if (out.vt != vt || inPlace.vt != vt) std::abort();
    if (vt == VT_I8 || vt == VT_UI8) {
      if (out.ullVal != inPlace.ullVal) std::abort();
      zemo::CVariant text, back;
      if (FAILED(zemo::ChangeType(&text, &out, VT_BSTR))) std::abort();
      if (FAILED(zemo::ChangeType(&back, &text, vt)) || back.ullVal != out.ullVal) std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // As text: bytes as Latin-1 units, or as UTF-16 units when the first byte is odd.
  std::u16string text;
  if (size && (data[0] & 1)) {
    for (size_t i = 1; i + 1 < size; i += 2) text += static_cast<char16_t>(data[i] | (data[i + 1] << 8));
  } else {
    for (size_t i = 0; i < size; ++i) text += static_cast<char16_t>(data[i]);
  }
  Check(zemo::CVariant::Str(text));

  // As a scalar: a type from the first byte, the payload from the next eight.
  if (size >= 1) {
    zemo::CVariant scalar;
    scalar.vt = kScalarSources[data[0] % std::size(kScalarSources)];
    std::memcpy(&scalar.llVal, data + 1, std::min<size_t>(size - 1, 8));
    if (scalar.vt == VT_BOOL) scalar.boolVal = scalar.boolVal ? VARIANT_TRUE : VARIANT_FALSE;
    Check(scalar);
  }
  return 0;
}
