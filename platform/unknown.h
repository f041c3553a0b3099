// IUnknown, interface identity and the owning smart pointer.
//
// Every interface is a pure abstract struct: no data members, no virtual
// destructor, operations in their contract order. Its identifier is the
// static member `iid`, read through IidOf<I>().
#pragma once

#include <utility>

#include "platform/exception.h"
#include "platform/guid.h"

struct IUnknown {
  static constexpr IID iid = MakeGuid("00000000-0000-0000-C000-000000000046");
  virtual HRESULT QueryInterface(REFIID iid, void** out) = 0;
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;
};

template <class I>
constexpr const IID& IidOf() {
  return I::iid;
}

namespace zemo {

// An owning reference. Inside the code this is the only way to hold one.
template <class T>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(std::nullptr_t) noexcept {}
  ComPtr(T* p) noexcept : m_p(p) {
    if (m_p) m_p->AddRef();
  }
  ComPtr(const ComPtr& o) noexcept : ComPtr(o.m_p) {}
  ComPtr(ComPtr&& o) noexcept : m_p(std::exchange(o.m_p, nullptr)) {}
  template <class U>
  ComPtr(const ComPtr<U>& o) noexcept : ComPtr(static_cast<T*>(o.Get())) {}
  ~ComPtr() { Reset(); }

  ComPtr& operator=(const ComPtr& o) noexcept {
    ComPtr(o).Swap(*this);
    return *this;
  }
  ComPtr& operator=(ComPtr&& o) noexcept {
    ComPtr(std::move(o)).Swap(*this);
    return *this;
  }
  ComPtr& operator=(T* p) noexcept {
    ComPtr(p).Swap(*this);
    return *this;
  }
  ComPtr& operator=(std::nullptr_t) noexcept {
    Reset();
    return *this;
  }

  void Reset() noexcept {
    if (T* p = std::exchange(m_p, nullptr)) p->Release();
  }
  void Swap(ComPtr& o) noexcept { std::swap(m_p, o.m_p); }

  T* Get() const noexcept { return m_p; }
  T* operator->() const noexcept { return m_p; }
  T& operator*() const noexcept { return *m_p; }
  explicit operator bool() const noexcept { return m_p != nullptr; }

  // Releases what is held and gives the slot for an out-parameter.
  T** ReleaseAndGetAddressOf() noexcept {
    Reset();
    return &m_p;
  }
  void** OutVoid() noexcept { return reinterpret_cast<void**>(ReleaseAndGetAddressOf()); }

  // Takes over a reference that the caller already owns.
  void Attach(T* p) noexcept {
    Reset();
    m_p = p;
  }
  T* Detach() noexcept { return std::exchange(m_p, nullptr); }

  // Hands out a new reference through an out-parameter.
  void CopyTo(T** out) const noexcept {
    if (m_p) m_p->AddRef();
    *out = m_p;
  }

  template <class U>
  HRESULT As(ComPtr<U>* out) const noexcept {
    if (!m_p) return E_POINTER;
    return m_p->QueryInterface(IidOf<U>(), out->OutVoid());
  }
  // The same, raising the status on failure.
  template <class U>
  ComPtr<U> Query() const {
    ComPtr<U> out;
    CheckHr(As(&out));
    return out;
  }

  friend bool operator==(const ComPtr& a, const ComPtr& b) { return a.m_p == b.m_p; }
  friend bool operator==(const ComPtr& a, std::nullptr_t) { return a.m_p == nullptr; }

 private:
  T* m_p = nullptr;
};

// Queries any interface pointer for another; a null source is E_POINTER.
template <class U, class T>
HRESULT QueryTo(T* from, ComPtr<U>* out) {
  if (!from) return E_POINTER;
  return from->QueryInterface(IidOf<U>(), out->OutVoid());
}

}  // namespace zemo
