// ZemoUtil.SimplePropBag: a property bag in memory, for the parameters of a
// selection step.
#pragma once

#include <map>
#include <string>

#include "platform/object.h"

namespace zemo {

class SimplePropBag final : public Object<SimplePropBag, IPropertyBag> {
 public:
  // value: in, the type wanted (VT_EMPTY: as stored); out, the value.
  HRESULT Read(LPCOLESTR name, VARIANT* value, IErrorLog* log) override;
  HRESULT Write(LPCOLESTR name, VARIANT* value) override;

 private:
  struct NoCase {
    bool operator()(const std::u16string& a, const std::u16string& b) const { return WideCompareNoCase(a, b) < 0; }
  };
  std::map<std::u16string, CVariant, NoCase> m_values;
};

}  // namespace zemo
