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
#pragma once

#include <map>
#include <optional>
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

namespace zemo {

// One key of the store. Names compare without regard to case.
struct RegistryKey {
  struct NoCase {
    bool operator()(const std::u16string& a, const std::u16string& b) const;
  };
  std::optional<std::u16string> defaultValue;
  std::map<std::u16string, std::u16string, NoCase> values;
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
  static std::optional<std::u16string> ReadValue(std::u16string_view path, std::u16string_view name);
  static bool KeyExists(std::u16string_view path);

  // Modules present in this process, by the path their registration names.
  static void RegisterModule(const std::u16string& path, DllGetClassObjectFn entry);
  static void UnregisterModule(const std::u16string& path);

  // Every key and value under HKCR, one line each, for tests and diagnostics.
  static std::vector<std::u16string> Dump();
  // Empties the store (tests only).
  static void ClearForTesting();
};

// The path of the shared object or program that holds this code.
std::u16string ModulePathOf(const void* address);

}  // namespace zemo
