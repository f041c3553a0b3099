// Value conversion for every place that turns a VARIANT into another type:
// the platform's VariantChangeType, widened by fixed rules for the 64-bit
// integers so that saved values read back the same whatever the platform
// knows of them:
//
//   BSTR -> I8/UI8     decimal parse; no digits or out of range: E_INVALIDARG
//   I1..UI4 -> I8      widened by sign
//   I1..UI4 -> UI8     widened; a negative value: DISP_E_OVERFLOW
//   I8 <-> UI8         a value the target can't hold: DISP_E_OVERFLOW
//   I8/UI8 -> BSTR     decimal text
//   I8/UI8 -> I4/UI4   the low 32 bits, unchecked
//   BSTR -> I1         as _wtol, the low 8 bits
//   other -> I8/UI8    E_FAIL
#pragma once

#include "platform/variant.h"

namespace zemo {

// Converts src to vt into dest (dest may equal src). On failure dest is left
// as it was.
HRESULT ChangeType(VARIANT* dest, const VARIANT* src, VARTYPE vt);

// The same, raising the failed status.
void ChangeTypeOrThrow(VARIANT* dest, const VARIANT* src, VARTYPE vt);

}  // namespace zemo
