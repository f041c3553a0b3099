// The class store: an in-process stand-in for the registry's class keys,
// the registrar that applies registration scripts to it, and creation by
// class identifier.
//
// The store is a tree of keys under the root "HKCR" (and "HKLM", "HKCU"),
// each with a default value and named string values. Scripts use the
// registrar's syntax:
//
//   HKCR
//   {
//     NoRemove CLSID
//     {
//       ForceRemove {GUID} = s 'Thing Class'
//       {
//         InprocServer32 = s '%MODULE%' { val ThreadingModel = s 'Both' }
//       }
//     }
//   }
//
// Creation looks first at class objects that the host registered in this
// process, then at the module named by InprocServer32: a module registered
// in process by its path, or else a shared library opened by that path.
//
// Values are typed as in the registry (text, number, bytes, list of texts).
// Besides the class keys, other parts of the module keep keys of their own
// under HKLM through the operations on full paths.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/interfaces.h"

inline constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;
inline constexpr DWORD CLSCTX_INPROC_HANDLER = 0x2;
inline constexpr DWORD CLSCTX_LOCAL_SERVER = 0x4;
inline constexpr DWORD CLSCTX_REMOTE_SERVER = 0x10;
inline constexpr DWORD CLSCTX_ALL = 0x17;

using DllGetClassObjectFn = HRESULT (*)(REFCLSID clsid, REFIID iid, void** out);

extern "C" {
ZEMO_API HRESULT CLSIDFromProgID(LPCOLESTR progId, CLSID* out);
// The version-dependent identifier from the class key's ProgID value, in task memory.
ZEMO_API HRESULT ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* out);
ZEMO_API HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** out);
ZEMO_API HRESULT CoGetClassObject(REFCLSID clsid, DWORD context, void* reserved, REFIID iid, void** out);
// Makes a host's class object creatable in this process; the cookie revokes it.
ZEMO_API HRESULT CoRegisterClassObject(REFCLSID clsid, IUnknown* factory, DWORD context, DWORD flags, DWORD* cookie);
ZEMO_API HRESULT CoRevokeClassObject(DWORD cookie);
// The registrar for a host that serves classes of its own: applies a
// registration script (the form of registration/*.rgs, without replaceable
// parameters) to the class store, registering or unregistering. This is how a
// host built against the installed module gives its engine objects their
// program identifiers.
ZEMO_API HRESULT RegistrarRunScript(LPCOLESTR script, BOOL registering);
}

// The registry's value types.
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_MULTI_SZ = 7;

namespace zemo {

// One named value: its type and its bytes as the registry keeps them (text
// as UTF-16 units with the terminator, a number as four bytes, little-endian).
struct RegistryValue {
  DWORD type = REG_SZ;
  std::vector<uint8_t> data;

  static RegistryValue Text(std::u16string_view text, DWORD type = REG_SZ);
  static RegistryValue Number(uint32_t value);
  static RegistryValue Bytes(std::span<const uint8_t> bytes, DWORD type = REG_BINARY);
  // UTF-16 units as they stand, terminators included (a list of texts).
  static RegistryValue Units(std::u16string_view units, DWORD type);

  // The text of a REG_SZ or REG_EXPAND_SZ value, up to its terminator.
  std::optional<std::u16string> AsText() const;
  // The number of a REG_DWORD value of four bytes.
  std::optional<uint32_t> AsNumber() const;
  // The data as UTF-16 units; an odd last byte is left out.
  std::u16string AsUnits() const;
};

// One key of the store. Names compare without regard to case.
struct RegistryKey {
  struct NoCase {
    bool operator()(const std::u16string& a, const std::u16string& b) const;
  };
  std::optional<std::u16string> defaultValue;
  std::map<std::u16string, RegistryValue, NoCase> values;
  std::map<std::u16string, RegistryKey, NoCase> keys;
};

class ClassStore {
 public:
  // Applies a script; replacements maps "MODULE" to its text. Register
  // creates keys and values (ForceRemove keys are deleted first); unregister
  // deletes every key the script names that is not NoRemove, with its
  // subtree. A malformed script is E_FAIL and changes nothing.
  static HRESULT RunScript(std::u16string_view script, const std::map<std::u16string, std::u16string>& replacements,
                           bool registering);

  // The default value of a key path such as u"CLSID\\{...}\\ProgID" under HKCR.
  static std::optional<std::u16string> ReadDefault(std::u16string_view path);
  // The text of a named value under HKCR.
  static std::optional<std::u16string> ReadValue(std::u16string_view path, std::u16string_view name);
  static bool KeyExists(std::u16string_view path);

  // Keys and values by a full path that starts with its root, such as
  // u"HKLM\\SOFTWARE\\Thing". Failures are the registry's own:
  // ERROR_FILE_NOT_FOUND for a missing key or value, as an HRESULT.
  static HRESULT OpenKey(std::u16string_view fullPath);
  // Creates the key and any missing key above it.
  static HRESULT CreateKey(std::u16string_view fullPath);
  static HRESULT QueryValue(std::u16string_view fullPath, std::u16string_view name, RegistryValue& out);
  static HRESULT SetValue(std::u16string_view fullPath, std::u16string_view name, RegistryValue value);
  static HRESULT DeleteValue(std::u16string_view fullPath, std::u16string_view name);
  // Deletes the key with everything below it.
  static HRESULT DeleteKey(std::u16string_view fullPath);

  // Modules present in this process, by the path their registration names.
  static void RegisterModule(const std::u16string& path, DllGetClassObjectFn entry);
  static void UnregisterModule(const std::u16string& path);

  // Every key and value under a root, one line each, for tests and diagnostics.
  static std::vector<std::u16string> Dump(std::u16string_view root = u"HKCR");
  // Empties the store (tests only).
  static void ClearForTesting();
};

// The path of the shared object or program that holds this code.
std::u16string ModulePathOf(const void* address);

}  // namespace zemo
