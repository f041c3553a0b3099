// The object skeleton: one base that a class names its interfaces in.
//
//   class NodeStats final : public zemo::Object<NodeStats, INodeStats, IZemoStats, ...> { ... };
//
// The base gives the interface table (in the order listed), QueryInterface,
// an atomic reference count, the object's one recursive lock, the module's
// live-object count, creation with FinalConstruct, and the failure boundary:
//
//   HRESULT NodeStats::GetCount(ULONG* out) {
//     return Locked([&] { CheckOut(out); *out = m_count; });
//   }
//
// A class that may be part of an aggregate sets kAggregatable. Created with an
// outer object, its interfaces then hand QueryInterface, AddRef and Release to
// the outer object, and its own identity and lifetime are a separate inner
// IUnknown, the one pointer the outer object keeps.
//
// A dual interface is listed as DualInterface<I> (platform/dispatch.h); the
// first of them also answers IDispatch.
//
// Where two interfaces carry an operation of the same name and signature that
// must behave differently, list an adapter in place of each of them: a struct
// that derives from the interface, declares `using interface_type = I;` and
// forwards the operation (final) to a distinct name of the class.
#pragma once

#include <atomic>
#include <mutex>
#include <new>
#include <type_traits>
#include <utility>

#include "platform/interfaces.h"
#include "platform/object_lock.h"

namespace zemo {

// Live objects plus LockServer calls of this module.
class ModuleCount {
 public:
  static void Lock() noexcept { s_count.fetch_add(1, std::memory_order_relaxed); }
  static void Unlock() noexcept { s_count.fetch_sub(1, std::memory_order_acq_rel); }
  static LONG Get() noexcept { return s_count.load(std::memory_order_acquire); }

 private:
  static inline std::atomic<LONG> s_count{0};
};

// The count a destroyed object is left with, so that a late use stands out.
inline constexpr ULONG kDestroyedRefCount = 0xC0000001u;

namespace detail {
template <class E, class = void>
struct InterfaceOf {
  using type = E;
};
template <class E>
struct InterfaceOf<E, std::void_t<typename E::interface_type>> {
  using type = typename E::interface_type;
};
template <class T>
struct ReturnsHr : std::is_same<std::invoke_result_t<T>, HRESULT> {};
}  // namespace detail

template <class E>
using InterfaceOf = typename detail::InterfaceOf<E>::type;

// Raises E_POINTER for a null out-pointer and clears interface out-pointers.
template <class T>
inline void CheckOut(T* out) {
  if (!out) AtlThrow(E_POINTER);
  if constexpr (std::is_pointer_v<T>) *out = nullptr;
}

// The failure boundary, shared by every public operation: a CAtlException
// gives its status, anything else E_UNEXPECTED. The body returns HRESULT or
// nothing (S_OK).
template <class F>
HRESULT Boundary(F&& body) noexcept {
  try {
    if constexpr (detail::ReturnsHr<F>::value)
      return body();
    else
      return body(), S_OK;
  } catch (const CAtlException& e) {
    return e.Status();
  } catch (...) {
    return E_UNEXPECTED;
  }
}

template <class D, class... E>
class Object : public E... {
  static_assert(sizeof...(E) > 0, "an object offers at least one interface");
  using First = std::tuple_element_t<0, std::tuple<E...>>;

 public:
  // Aggregation is refused unless a class says otherwise.
  static constexpr bool kAggregatable = false;
  // Whether a live object keeps the module loaded (cached class factories don't).
  static constexpr bool kCountsInModule = true;
  // Whether references to an object are only ever taken and dropped by one
  // thread at a time, each handing the object on to the next through a
  // synchronised hand-over (a host's packet): its count then needs no
  // atomic read-modify-write.
  static constexpr bool kReferencedByOneThread = false;

  HRESULT QueryInterface(REFIID iid, void** out) override {
    if constexpr (D::kAggregatable)
      if (m_outer) return m_outer->QueryInterface(iid, out);
    return OwnQueryInterface(iid, out);
  }

  ULONG AddRef() override {
    if constexpr (D::kAggregatable)
      if (m_outer) return m_outer->AddRef();
    return OwnAddRef();
  }

  ULONG Release() override {
    if constexpr (D::kAggregatable)
      if (m_outer) return m_outer->Release();
    return OwnRelease();
  }

  // The owning interface pointer without a reference added.
  IUnknown* GetUnknown() noexcept {
    return static_cast<IUnknown*>(static_cast<InterfaceOf<First>*>(static_cast<First*>(this)));
  }

  // Creation steps 1 and 3 to 6: construct, hold one reference through
  // FinalConstruct, then hand out the wanted interface. A failure destroys
  // the object. Used by class factories and by owners creating sub-objects.
  template <class... Args>
  static HRESULT CreateObject(REFIID iid, void** out, Args&&... args) noexcept {
    if (!out) return E_POINTER;
    *out = nullptr;
    D* p = nullptr;
    try {
      p = new D(std::forward<Args>(args)...);
    } catch (...) {
      return E_OUTOFMEMORY;
    }
    p->AddRef();
    HRESULT hr = Boundary([&]() -> HRESULT { return p->FinalConstruct(); });
    if (SUCCEEDED(hr)) hr = p->QueryInterface(iid, out);
    p->Release();
    return hr;
  }

  // Creation as part of the aggregate of outer, which can only ask for
  // IUnknown: what it gets is the inner IUnknown that owns the object.
  static HRESULT CreateAggregated(IUnknown* outer, REFIID iid, void** out) noexcept {
    static_assert(D::kAggregatable, "the class refuses aggregation");
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!outer) return CreateObject(iid, out);
    if (iid != IUnknown::iid) return CLASS_E_NOAGGREGATION;
    D* p = nullptr;
    try {
      p = new D();
    } catch (...) {
      return E_OUTOFMEMORY;
    }
    p->m_outer = outer;
    p->OwnAddRef();
    HRESULT hr = Boundary([&]() -> HRESULT { return p->FinalConstruct(); });
    if (SUCCEEDED(hr)) hr = p->OwnQueryInterface(iid, out);
    p->OwnRelease();
    return hr;
  }

  // The same for code that wants the class itself; raises on failure.
  template <class... Args>
  static ComPtr<D> Create(Args&&... args) {
    ComPtr<First> first;
    CheckHr(CreateObject(IidOf<InterfaceOf<First>>(), first.OutVoid(), std::forward<Args>(args)...));
    return ComPtr<D>(static_cast<D*>(first.Get()));
  }

  // Defaults a class may hide.
  HRESULT FinalConstruct() { return S_OK; }
  void FinalRelease() {}

  // The reference count, for tests and diagnostics.
  ULONG RefCountForTesting() const noexcept { return m_refs.load(); }

 protected:
  Object() noexcept {
    if constexpr (D::kCountsInModule) ModuleCount::Lock();
  }
  ~Object() {
    if constexpr (D::kCountsInModule) ModuleCount::Unlock();
  }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  CObjectLock& ObjectLock() const noexcept { return m_lock; }

  // A public operation that touches data: the lock, then the boundary.
  template <class F>
  HRESULT Locked(F&& body) const noexcept {
    std::lock_guard<CObjectLock> hold(m_lock);
    return Boundary(std::forward<F>(body));
  }

  // A public operation that touches no data (GetClassID and the like).
  template <class F>
  static HRESULT Unlocked(F&& body) noexcept {
    return Boundary(std::forward<F>(body));
  }

 private:
  // The non-delegating IUnknown of an aggregated object.
  struct InnerUnknown final : IUnknown {
    explicit InnerUnknown(Object* owner) noexcept : m_owner(owner) {}
    HRESULT QueryInterface(REFIID iid, void** out) override { return m_owner->OwnQueryInterface(iid, out); }
    ULONG AddRef() override { return m_owner->OwnAddRef(); }
    ULONG Release() override { return m_owner->OwnRelease(); }
    Object* m_owner;
  };

  HRESULT OwnQueryInterface(REFIID iid, void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    void* found = nullptr;
    if (iid == IUnknown::iid) {
      if constexpr (D::kAggregatable)
        if (m_outer) found = static_cast<IUnknown*>(&m_inner);
      if (!found) found = GetUnknown();
    } else {
      (void)((iid == IidOf<InterfaceOf<E>>() &&
              (found = static_cast<InterfaceOf<E>*>(static_cast<E*>(this)), true)) ||
             ...);
      // Late binding goes through the first dual interface.
      if (!found && iid == IDispatch::iid) (void)((found = DispatchOf<E>()) || ...);
    }
    if (!found) return E_NOINTERFACE;
    static_cast<IUnknown*>(found)->AddRef();
    *out = found;
    return S_OK;
  }

  template <class X>
  void* DispatchOf() noexcept {
    if constexpr (std::is_base_of_v<IDispatch, InterfaceOf<X>>)
      return static_cast<IDispatch*>(static_cast<InterfaceOf<X>*>(static_cast<X*>(this)));
    else
      return nullptr;
  }

  ULONG OwnAddRef() noexcept {
    if constexpr (D::kReferencedByOneThread) {
      const ULONG refs = m_refs.load(std::memory_order_relaxed) + 1;
      m_refs.store(refs, std::memory_order_relaxed);
      return refs;
    }
    return m_refs.fetch_add(1, std::memory_order_relaxed) + 1;
  }

  ULONG OwnRelease() {
    ULONG left;
    if constexpr (D::kReferencedByOneThread) {
      left = m_refs.load(std::memory_order_relaxed) - 1;
      m_refs.store(left, std::memory_order_relaxed);
    } else {
      left = m_refs.fetch_sub(1, std::memory_order_acq_rel) - 1;
    }
    if (left == 0) Destroy();
    return left;
  }

  // The last release, out of line: it keeps the rare path out of every
  // Release that inlines, and the compiler's lifetime checks from following
  // a delete into callers that still hold a reference.
  [[gnu::noinline]] void Destroy() {
    m_refs.store(kDestroyedRefCount, std::memory_order_relaxed);
    D* self = static_cast<D*>(this);
    self->FinalRelease();
    delete self;
  }

  std::atomic<ULONG> m_refs{0};
  mutable CObjectLock m_lock;
  // Set only while the object is part of an aggregate; not owned.
  IUnknown* m_outer = nullptr;
  InnerUnknown m_inner{this};
};

// A new object of class D, handed out as interface I with one reference.
template <class D, class I, class... Args>
ComPtr<I> MakeObject(Args&&... args) {
  ComPtr<I> out;
  CheckHr(D::CreateObject(IidOf<I>(), out.OutVoid(), std::forward<Args>(args)...));
  return out;
}

}  // namespace zemo
