// The module's entry points, with C linkage, as a host resolves them by name.
#pragma once

#include "platform/guid.h"

extern "C" {
ZEMO_API HRESULT DllGetClassObject(REFCLSID clsid, REFIID iid, void** out);
ZEMO_API HRESULT DllCanUnloadNow();
ZEMO_API HRESULT DllRegisterServer();
ZEMO_API HRESULT DllUnregisterServer();
}

namespace zemo {
// The application and type library identifier of the module.
inline constexpr GUID kModuleAppId = MakeGuid("753D40EA-DFDE-47E0-A993-D5314BEA8535");
// The type library of SummaryStatsSnapshot.
inline constexpr GUID kSnapshotTypeLib = MakeGuid("A8DE7CD5-3C35-477E-8693-FABDB57294C2");

struct ClassInfo;
// The class factory of one row of the class table, created on first demand
// under the module-wide lock and cached for the life of the module.
HRESULT GetClassObjectFor(const ClassInfo& row, REFIID iid, void** out);
// Releases the cached class factories, as the module does when it unloads.
void ReleaseClassFactories();
// An object of one of the module's own classes by its class identifier, as
// an owner creates its sub-objects: CoCreateInstance first, so that a host
// may stand in a class object of its own; a class the store does not know
// comes from the module's class table, registered or not.
HRESULT CreateModuleInstance(REFCLSID clsid, REFIID iid, void** out);
}  // namespace zemo
