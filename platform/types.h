// Fixed-width types and status codes of the object runtime.
//
// Interfaces and records use only these: the C++ `long` is never part of a
// binary contract, since its width differs between platforms.
#pragma once

#include <cstddef>
#include <cstdint>

#define ZEMO_API __attribute__((visibility("default")))

using HRESULT = int32_t;
using LONG = int32_t;
using ULONG = uint32_t;
using DWORD = uint32_t;
using WORD = uint16_t;
using BYTE = uint8_t;
using SHORT = int16_t;
using USHORT = uint16_t;
using BOOL = int32_t;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using WCHAR = char16_t;
using OLECHAR = char16_t;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
using VARTYPE = uint16_t;
using VARIANT_BOOL = int16_t;
using BSTR = OLECHAR*;

// Nanoseconds since 1601-01-01 UTC; 0 means no time set.
using ZemoTime = uint64_t;

inline constexpr BOOL TRUE = 1;
inline constexpr BOOL FALSE = 0;
inline constexpr VARIANT_BOOL VARIANT_TRUE = -1;
inline constexpr VARIANT_BOOL VARIANT_FALSE = 0;

union LARGE_INTEGER {
  int64_t QuadPart;
};
union ULARGE_INTEGER {
  uint64_t QuadPart;
};
static_assert(sizeof(LARGE_INTEGER) == 8 && sizeof(ULARGE_INTEGER) == 8);

constexpr HRESULT MakeHr(uint32_t v) { return static_cast<HRESULT>(v); }

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = MakeHr(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = MakeHr(0x80004002u);
inline constexpr HRESULT E_POINTER = MakeHr(0x80004003u);
inline constexpr HRESULT E_FAIL = MakeHr(0x80004005u);
inline constexpr HRESULT E_UNEXPECTED = MakeHr(0x8000FFFFu);
inline constexpr HRESULT E_OUTOFMEMORY = MakeHr(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = MakeHr(0x80070057u);
inline constexpr HRESULT CLASS_E_NOAGGREGATION = MakeHr(0x80040110u);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = MakeHr(0x80040111u);
inline constexpr HRESULT REGDB_E_CLASSNOTREG = MakeHr(0x80040154u);
inline constexpr HRESULT REGDB_E_READREGDB = MakeHr(0x80040150u);
inline constexpr HRESULT REGDB_E_WRITEREGDB = MakeHr(0x80040151u);
inline constexpr HRESULT CO_E_CLASSSTRING = MakeHr(0x800401F3u);
inline constexpr HRESULT DISP_E_UNKNOWNINTERFACE = MakeHr(0x80020001u);
inline constexpr HRESULT DISP_E_MEMBERNOTFOUND = MakeHr(0x80020003u);
inline constexpr HRESULT DISP_E_TYPEMISMATCH = MakeHr(0x80020005u);
inline constexpr HRESULT DISP_E_UNKNOWNNAME = MakeHr(0x80020006u);
inline constexpr HRESULT DISP_E_NONAMEDARGS = MakeHr(0x80020007u);
inline constexpr HRESULT DISP_E_EXCEPTION = MakeHr(0x80020009u);
inline constexpr HRESULT DISP_E_OVERFLOW = MakeHr(0x8002000Au);
inline constexpr HRESULT DISP_E_BADVARTYPE = MakeHr(0x80020008u);
inline constexpr HRESULT DISP_E_BADPARAMCOUNT = MakeHr(0x8002000Eu);
inline constexpr HRESULT STG_E_INVALIDFUNCTION = MakeHr(0x80030001u);
inline constexpr HRESULT STG_E_INVALIDPOINTER = MakeHr(0x80030009u);
inline constexpr HRESULT STG_E_MEDIUMFULL = MakeHr(0x80030070u);
inline constexpr HRESULT STG_E_ACCESSDENIED = MakeHr(0x80030005u);

inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_MORE_DATA = 234;

// A system error code of 1 or above becomes 0x8007xxxx; below 1 it stays.
constexpr HRESULT HRESULT_FROM_WIN32(int64_t code) {
  return code <= 0 ? static_cast<HRESULT>(code)
                   : MakeHr((static_cast<uint32_t>(code) & 0xFFFFu) | 0x80070000u);
}

constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }

// Turns the C library's errno into a status the way the platform maps its own
// error codes: the value of errno stands in for the system error code.
HRESULT HresultFromErrno(int err);
