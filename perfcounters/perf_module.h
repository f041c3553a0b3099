// The module as a performance counter provider: its table of performance
// classes, the registration that DllRegisterServer and DllUnregisterServer
// run for them, and the three entry points a performance monitor calls.
//
// The module's table has one slot, and it is empty: the module publishes no
// counters, its entry points answer at once and its registration writes
// nothing. The table operations take any table, so that a table with
// classes in it runs the same code.
//
// The entry points' names hold '@' (_OpenPerfMon@4, _CollectPerfMon@16,
// _ClosePerfMon@0), which a linker reads as the start of a symbol version.
// They are linked as _OpenPerfMon_4 and so on, and the module's dynamic
// symbol table is given the true names after the link (cmake/rename_exports.cpp).
// So no program links against them: a monitor finds them with dlsym.
#pragma once

#include <span>
#include <string_view>

#include "perfcounters/perf_provider.h"

namespace zemo {

// The module's table of performance classes; a null slot is skipped.
std::span<PerfProvider* const> PerfProviderTable();

// Register, then LoadStrings, for each class in table order; the first
// failure ends the run and is returned.
HRESULT RegisterProviders(std::span<PerfProvider* const> table, std::u16string_view module);
// Unregister for each class; the first failure ends the run.
HRESULT UnregisterProviders(std::span<PerfProvider* const> table);

// Collect for each class, the room left passed on from class to class:
// `*bytes` is the room on entry and the bytes used on return. A class's
// non-zero result ends the call with 0 bytes, 0 objects and `*data` as it
// was; ERROR_INVALID_PARAMETER for a null pointer.
DWORD CollectProviders(std::span<PerfProvider* const> table, const char16_t* request, void** data, DWORD* bytes,
                       DWORD* objects);
// Closes each class.
DWORD CloseProviders(std::span<PerfProvider* const> table);

}  // namespace zemo
