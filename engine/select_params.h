// ZemoUtil.SelectParams: the path of selection steps that a host hands to
// ISelectableObject::Select and that the statistics describe themselves with.
#pragma once

#include <vector>

#include "frame/engine_interfaces.h"
#include "platform/object.h"

namespace zemo {

class SelectParams final : public Object<SelectParams, ISelectParams> {
 public:
  HRESULT AddItem(BSTR name, IPropertyBag* bag) override;
  HRESULT GetCount(LONG* count) override;
  HRESULT NextItem(BSTR* name, IPropertyBag** bag) override;
  HRESULT Rewind() override;

 private:
  struct Step {
    CBstr name;
    ComPtr<IPropertyBag> bag;
  };
  std::vector<Step> m_steps;
  size_t m_next = 0;  // steps before this one have been taken
};

}  // namespace zemo
