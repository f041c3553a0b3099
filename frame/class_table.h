// The module's class table: every class it knows, in table order, with what
// creation, registration and QueryInterface need of it.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "platform/guid.h"
#include "platform/unknown.h"

namespace zemo {

using CreatorFn = HRESULT (*)(IUnknown* outer, REFIID iid, void** out);

struct ClassInfo {
  const char16_t* name;  // "NodeStats"
  CLSID clsid;
  bool aggregatable;
  CreatorFn create;  // null: not served
  std::vector<const IID*> interfaces;

  std::u16string Description() const { return std::u16string(name) + u" Class"; }
  std::u16string ProgId() const { return u"ZemoStats." + std::u16string(name) + u".1"; }
  std::u16string VersionIndependentProgId() const { return u"ZemoStats." + std::u16string(name); }
};

std::span<const ClassInfo> ClassTable();

// The row of a class identifier, comparing all 16 bytes; null if none.
const ClassInfo* FindClass(REFCLSID clsid);

// The registration script of a class (file registration/<name>.rgs), or of
// the application identifier for the name "AppID"; null if there is none.
const char16_t* RegistrationScript(std::u16string_view name);

// The creation steps shared by every class factory: the out-pointer check,
// the aggregation rule, then construction and the interface.
template <class D>
HRESULT CreateClass(IUnknown* outer, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if constexpr (D::kAggregatable)
    return D::CreateAggregated(outer, iid, out);
  else
    return outer ? CLASS_E_NOAGGREGATION : D::CreateObject(iid, out);
}

}  // namespace zemo
