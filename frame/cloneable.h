// ICloneable: an object that makes a new object of its own class with its
// own settings (trackers, alarms, snapshots). What a clone shares and what it
// starts afresh is each class's to say.
#pragma once

#include "frame/iids.h"
#include "platform/interfaces.h"

struct ICloneable : IUnknown {
  static constexpr IID iid = IID_ICloneable;
  virtual HRESULT Clone(IUnknown** out) = 0;
};

namespace zemo {

// A clone of object asked for interface I; raises failures.
template <class I>
ComPtr<I> CloneAs(IUnknown* object) {
  ComPtr<ICloneable> cloneable;
  CheckHr(QueryTo(object, &cloneable));
  ComPtr<IUnknown> clone;
  CheckHr(cloneable->Clone(clone.ReleaseAndGetAddressOf()));
  return clone.template Query<I>();
}

}  // namespace zemo
