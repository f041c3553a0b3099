// The class factory of a host class: what CoRegisterClassObject hands to the
// class store so that the module can create the class by identifier.
#pragma once

#include "frame/class_table.h"
#include "platform/object.h"

namespace zemo {

class HostClassFactory final : public Object<HostClassFactory, IClassFactory> {
 public:
  // A factory held by the class store must not keep the module's count up.
  static constexpr bool kCountsInModule = false;
  explicit HostClassFactory(CreatorFn create) : m_create(create) {}

  HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** out) override { return m_create(outer, iid, out); }
  // Host classes live in the host's own binary: there is nothing to keep loaded.
  HRESULT LockServer(BOOL) override { return S_OK; }

 private:
  CreatorFn m_create;
};

}  // namespace zemo
