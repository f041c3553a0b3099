// Failures below the interface travel as CAtlException, which carries a status
// and nothing else. AtlThrow is the one way to raise it; CheckHr raises a
// failed status from another object unchanged.
#pragma once

#include "platform/types.h"

class CAtlException {
 public:
  explicit CAtlException(HRESULT hr) noexcept : m_hr(hr) {}
  HRESULT Status() const noexcept { return m_hr; }
  operator HRESULT() const noexcept { return m_hr; }

 private:
  HRESULT m_hr;
};

[[noreturn]] inline void AtlThrow(HRESULT hr) { throw CAtlException(hr); }

inline HRESULT CheckHr(HRESULT hr) {
  if (FAILED(hr)) AtlThrow(hr);
  return hr;
}
