// Late binding for dual interfaces: IDispatch answered from the operations of
// the interface itself, so a script host can call them by name.
//
// A dual interface is declared once, as the list of its operations:
//
//   #define ZEMO_IALARMSTATES_OPERATIONS(OP) OP(AddState, (const GUID& id, ULONG condition, ULONG severity)) OP(GetStateCount, (LONG* count))
//   ZEMO_DUAL_INTERFACE(IAlarmStates, IID_IAlarmStates, ZEMO_IALARMSTATES_OPERATIONS);
//
// (one line per operation in the code, each ending in a backslash).
//
// That declares the struct, IDispatch first and then the operations in list
// order (the vtable is the contract), and its dispatch table: dispatch id 1
// for the first operation, 2 for the next, names found without regard to case.
// A class lists DualInterface<IAlarmStates> in its skeleton where it would
// list IAlarmStates; the skeleton answers IDispatch with its first dual
// interface.
//
// A late-bound call passes the arguments in reverse order, as the platform
// does. An in argument is converted to the parameter's type (integers,
// doubles and enumerations by VariantChangeType, identifiers from their
// braced text, interfaces by QueryInterface, VT_EMPTY and VT_NULL giving a
// null interface). An out argument is a VT_BYREF|VT_VARIANT, or a VT_BYREF of
// the value's own type; the last out parameter may be left off and then comes
// back as the call's result. Out values are integers and doubles as
// themselves, identifiers as braced text, interfaces as VT_DISPATCH when they
// are dual, else VT_UNKNOWN. A failed conversion is the conversion's status
// with the argument's position in argErr; a failure of the operation itself
// is DISP_E_EXCEPTION, with the operation's status in the EXCEPINFO.
#pragma once

#include <span>
#include <tuple>
#include <type_traits>
#include <utility>

#include "platform/interfaces.h"
#include "platform/variant.h"

inline constexpr DISPID DISPID_UNKNOWN = -1;

namespace zemo::dispatch {

// One operation of a dual interface: its name and its late-bound call.
// invoke answers the conversion's status, or DISP_E_EXCEPTION with the
// operation's own status in *callStatus.
struct Entry {
  const char16_t* name;
  HRESULT (*invoke)(IDispatch* self, const DISPPARAMS& params, VARIANT* result, uint32_t* argErr,
                    HRESULT* callStatus);
};

// The shared halves of IDispatch over a table of entries.
HRESULT IdsOfNames(std::span<const Entry> entries, REFIID reserved, LPOLESTR* names, uint32_t count, DISPID* ids);
HRESULT Invoke(std::span<const Entry> entries, IDispatch* self, DISPID id, REFIID reserved, WORD flags,
               DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep, uint32_t* argErr);

// The argument an out or byref-in argument points at, or the argument itself.
const VARIANT& Deref(const VARIANT& arg);
// Checks that an out argument can take a value of type vt.
HRESULT CheckOutSlot(const VARIANT& arg, VARTYPE vt);
// Moves value into an out argument (already checked) or into a call's result.
void StoreOut(const VARIANT& arg, CVariant& value);
void StoreResult(VARIANT* result, CVariant& value);

// The VARTYPE a scalar travels as, and its field.
template <class T>
struct Scalar;
template <class T, VARTYPE V, auto Field>
struct ScalarOf {
  static constexpr VARTYPE kType = V;
  static T Get(const VARIANT& v) { return static_cast<T>(v.*Field); }
  static void Set(VARIANT& v, T x) {
    v.*Field = static_cast<std::remove_reference_t<decltype(v.*Field)>>(x);
    v.vt = V;
  }
};
template <> struct Scalar<int16_t> : ScalarOf<int16_t, VT_I2, &VARIANT::iVal> {};
template <> struct Scalar<uint16_t> : ScalarOf<uint16_t, VT_UI2, &VARIANT::uiVal> {};
template <> struct Scalar<int32_t> : ScalarOf<int32_t, VT_I4, &VARIANT::lVal> {};
template <> struct Scalar<uint32_t> : ScalarOf<uint32_t, VT_UI4, &VARIANT::ulVal> {};
template <> struct Scalar<int64_t> : ScalarOf<int64_t, VT_I8, &VARIANT::llVal> {};
template <> struct Scalar<uint64_t> : ScalarOf<uint64_t, VT_UI8, &VARIANT::ullVal> {};
template <> struct Scalar<double> : ScalarOf<double, VT_R8, &VARIANT::dblVal> {};

template <class T>
using ScalarBase = typename std::conditional_t<std::is_enum_v<T>, std::underlying_type<T>, std::type_identity<T>>::type;

template <class T>
concept ScalarParam = std::is_arithmetic_v<T> || std::is_enum_v<T>;
template <class T>
concept InterfaceParam = std::is_base_of_v<IUnknown, T>;

// How one parameter type crosses a late-bound call: a Holder for the value,
// Read of an in argument, Pass to the operation, and for out parameters the
// VARTYPE of the value and its Store.
template <class T>
struct Param;

template <ScalarParam T>
struct Param<T> {
  static constexpr bool kOut = false;
  using Holder = T;
  static HRESULT Read(const VARIANT& arg, Holder& h) {
    using S = Scalar<ScalarBase<T>>;
    CVariant v;
    HRESULT hr = VariantChangeType(&v, &Deref(arg), 0, S::kType);
    if (SUCCEEDED(hr)) h = static_cast<T>(S::Get(v));
    return hr;
  }
  static T Pass(Holder& h) { return h; }
};

template <>
struct Param<BSTR> {
  static constexpr bool kOut = false;
  using Holder = CVariant;
  static HRESULT Read(const VARIANT& arg, Holder& h) { return VariantChangeType(&h, &Deref(arg), 0, VT_BSTR); }
  static BSTR Pass(Holder& h) { return h.bstrVal; }
};

template <>
struct Param<GUID> {
  static constexpr bool kOut = false;
  using Holder = GUID;
  static HRESULT Read(const VARIANT& arg, Holder& h);
  static const GUID& Pass(Holder& h) { return h; }
};
template <>
struct Param<const GUID&> : Param<GUID> {};

template <InterfaceParam I>
struct Param<I*> {
  static constexpr bool kOut = false;
  using Holder = ComPtr<I>;
  static HRESULT Read(const VARIANT& arg, Holder& h) {
    const VARIANT& v = Deref(arg);
    if (v.vt == VT_EMPTY || v.vt == VT_NULL) return S_OK;
    if (v.vt != VT_UNKNOWN && v.vt != VT_DISPATCH) return DISP_E_TYPEMISMATCH;
    IUnknown* object = v.vt == VT_UNKNOWN ? v.punkVal : reinterpret_cast<IUnknown*>(v.pdispVal);
    if (!object) return S_OK;
    return SUCCEEDED(object->QueryInterface(IidOf<I>(), h.OutVoid())) ? S_OK : DISP_E_TYPEMISMATCH;
  }
  static I* Pass(Holder& h) { return h.Get(); }
};

template <ScalarParam T>
struct Param<T*> {
  static constexpr bool kOut = true;
  static constexpr VARTYPE kType = Scalar<ScalarBase<T>>::kType;
  using Holder = T;
  static T* Pass(Holder& h) { return &h; }
  static CVariant Value(Holder& h) {
    CVariant v;
    Scalar<ScalarBase<T>>::Set(v, static_cast<ScalarBase<T>>(h));
    return v;
  }
};

template <>
struct Param<BSTR*> {
  static constexpr bool kOut = true;
  static constexpr VARTYPE kType = VT_BSTR;
  using Holder = CBstr;
  static BSTR* Pass(Holder& h) { return h.Out(); }
  static CVariant Value(Holder& h);
};

template <>
struct Param<GUID*> {
  static constexpr bool kOut = true;
  static constexpr VARTYPE kType = VT_BSTR;
  using Holder = GUID;
  static GUID* Pass(Holder& h) { return &h; }
  static CVariant Value(Holder& h);
};

template <InterfaceParam I>
struct Param<I**> {
  static constexpr bool kOut = true;
  static constexpr VARTYPE kType = std::is_base_of_v<IDispatch, I> ? VT_DISPATCH : VT_UNKNOWN;
  using Holder = ComPtr<I>;
  static I** Pass(Holder& h) { return h.ReleaseAndGetAddressOf(); }
  static CVariant Value(Holder& h) {
    CVariant v;
    v.vt = kType;
    // The reference the operation handed out moves into the variant.
    if constexpr (kType == VT_DISPATCH)
      v.pdispVal = h.Detach();
    else
      v.punkVal = h.Detach();
    return v;
  }
};

// The late-bound call of one operation, from its member pointer.
template <auto M>
struct Operation;

template <class I, class... A, HRESULT (I::*M)(A...)>
struct Operation<M> {
  static constexpr size_t kCount = sizeof...(A);

  static HRESULT Invoke(IDispatch* self, const DISPPARAMS& params, VARIANT* result, uint32_t* argErr,
                        HRESULT* callStatus) {
    return Run(self, params, result, argErr, callStatus, std::index_sequence_for<A...>{});
  }

 private:
  template <size_t K>
  using ParamAt = Param<std::tuple_element_t<K, std::tuple<A...>>>;

  static constexpr bool LastIsOut() {
    if constexpr (kCount == 0)
      return false;
    else
      return ParamAt<kCount - 1>::kOut;
  }

  template <size_t K>
  static HRESULT Prepare(const DISPPARAMS& params, bool retval, typename ParamAt<K>::Holder& holder,
                         uint32_t* argErr) {
    if (retval && K + 1 == kCount) return S_OK;  // comes back as the result
    const uint32_t at = params.cArgs - 1 - static_cast<uint32_t>(K);
    HRESULT hr;
    if constexpr (ParamAt<K>::kOut)
      hr = CheckOutSlot(params.rgvarg[at], ParamAt<K>::kType);
    else
      hr = ParamAt<K>::Read(params.rgvarg[at], holder);
    if (FAILED(hr) && argErr) *argErr = at;
    return hr;
  }

  template <size_t K>
  static void Finish(const DISPPARAMS& params, bool retval, typename ParamAt<K>::Holder& holder, VARIANT* result) {
    if constexpr (ParamAt<K>::kOut) {
      CVariant value = ParamAt<K>::Value(holder);
      if (retval && K + 1 == kCount)
        StoreResult(result, value);
      else
        StoreOut(params.rgvarg[params.cArgs - 1 - K], value);
    }
  }

  template <size_t... K>
  static HRESULT Run(IDispatch* self, const DISPPARAMS& params, [[maybe_unused]] VARIANT* result,
                     [[maybe_unused]] uint32_t* argErr, HRESULT* callStatus, std::index_sequence<K...>) {
    const bool retval = LastIsOut() && params.cArgs + 1 == kCount;
    if (params.cArgs != kCount && !retval) return DISP_E_BADPARAMCOUNT;
    std::tuple<typename Param<A>::Holder...> holders{};
    HRESULT hr = S_OK;
    if (!(SUCCEEDED(hr = Prepare<K>(params, retval, std::get<K>(holders), argErr)) && ...)) return hr;
    *callStatus = (static_cast<I*>(self)->*M)(Param<A>::Pass(std::get<K>(holders))...);
    if (FAILED(*callStatus)) return DISP_E_EXCEPTION;
    (Finish<K>(params, retval, std::get<K>(holders), result), ...);
    return S_OK;
  }
};

}  // namespace zemo::dispatch

namespace zemo {

// The IDispatch half of a dual interface I, listed in a class's skeleton in
// place of I.
template <class I>
struct DualInterface : I {
  using interface_type = I;
  // No type information is offered: names and ids come from the interface.
  HRESULT GetTypeInfoCount(uint32_t* count) final {
    if (!count) return E_POINTER;
    *count = 0;
    return S_OK;
  }
  HRESULT GetTypeInfo(uint32_t, LCID, ITypeInfo** out) final {
    if (!out) return E_POINTER;
    *out = nullptr;
    return E_NOTIMPL;
  }
  HRESULT GetIDsOfNames(REFIID reserved, LPOLESTR* names, uint32_t count, LCID, DISPID* ids) final {
    return dispatch::IdsOfNames(I::DispatchEntries(), reserved, names, count, ids);
  }
  HRESULT Invoke(DISPID id, REFIID reserved, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                 EXCEPINFO* excep, uint32_t* argErr) final {
    return dispatch::Invoke(I::DispatchEntries(), this, id, reserved, flags, params, result, excep, argErr);
  }
};

}  // namespace zemo

#define ZEMO_DUAL_OPERATION_(name, params) virtual HRESULT name params = 0;
#define ZEMO_DISPATCH_ENTRY_(name, params) {u"" #name, &::zemo::dispatch::Operation<&DispatchSelf::name>::Invoke},

// Declares the dual interface Name with identifier Iid and the operations
// that Operations(OP) lists as OP(name, (parameters)).
#define ZEMO_DUAL_INTERFACE(Name, Iid, Operations)                                              \
  struct Name : IDispatch {                                                                     \
    static constexpr IID iid = Iid;                                                             \
    Operations(ZEMO_DUAL_OPERATION_)                                                            \
    static std::span<const ::zemo::dispatch::Entry> DispatchEntries() {                         \
      using DispatchSelf = Name;                                                                \
      static constexpr ::zemo::dispatch::Entry kEntries[] = {Operations(ZEMO_DISPATCH_ENTRY_)}; \
      return kEntries;                                                                          \
    }                                                                                           \
  }
