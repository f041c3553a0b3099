// What the performance counter provider needs of the operating system: the
// registry below HKEY_LOCAL_MACHINE, read-only views of the pages a writer
// shares, languages, the counter frequency and the string resources of a
// module. PosixPerfSystem serves them on this system: the registry from the
// class store, the pages from POSIX shared memory.
//
// A page keeps the name its writer gives it ("Global\ATLPERF_<app>_000");
// as a POSIX shared memory object it is that name behind a '/', with every
// '/', '\' and NUL turned into '_' (PosixPageName).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/class_store.h"

namespace zemo {

class PerfSystem {
 public:
  virtual ~PerfSystem() = default;

  // Registry keys by their path below HKEY_LOCAL_MACHINE. Failures are the
  // registry's (ERROR_FILE_NOT_FOUND for a missing key or value) as HRESULTs.
  virtual HRESULT OpenKey(std::u16string_view path) = 0;
  virtual HRESULT CreateKey(std::u16string_view path) = 0;
  virtual HRESULT QueryValue(std::u16string_view path, std::u16string_view name, RegistryValue& out) = 0;
  virtual HRESULT SetValue(std::u16string_view path, std::u16string_view name, const RegistryValue& value) = 0;
  virtual HRESULT DeleteValue(std::u16string_view path, std::u16string_view name) = 0;
  // The key with everything below it.
  virtual HRESULT DeleteKey(std::u16string_view path) = 0;

  // The size of a shared page: the system's allocation granularity.
  virtual uint32_t PageSize() = 0;
  // A read-only view of the first `size` bytes of a named page, or null if
  // there is no such page or it is shorter.
  virtual const uint8_t* MapPage(std::u16string_view name, size_t size) = 0;
  virtual void UnmapPage(const uint8_t* view, size_t size) = 0;

  // Language identifiers: the calling thread's, and the system's default.
  virtual WORD ThreadLanguage() = 0;
  virtual WORD SystemLanguage() = 0;
  // Ticks per second of the system's high-resolution counter.
  virtual int64_t PerformanceFrequency() = 0;

  // The modules that hold the string resources of `module`, and the
  // languages in which one of them holds a block of strings.
  virtual std::vector<std::u16string> ResourceModules(std::u16string_view module) = 0;
  virtual std::vector<WORD> StringLanguages(std::u16string_view resourceModule, DWORD block) = 0;
};

class PosixPerfSystem : public PerfSystem {
 public:
  HRESULT OpenKey(std::u16string_view path) override;
  HRESULT CreateKey(std::u16string_view path) override;
  HRESULT QueryValue(std::u16string_view path, std::u16string_view name, RegistryValue& out) override;
  HRESULT SetValue(std::u16string_view path, std::u16string_view name, const RegistryValue& value) override;
  HRESULT DeleteValue(std::u16string_view path, std::u16string_view name) override;
  HRESULT DeleteKey(std::u16string_view path) override;

  // The memory page size: the unit of a mapping here.
  uint32_t PageSize() override;
  const uint8_t* MapPage(std::u16string_view name, size_t size) override;
  void UnmapPage(const uint8_t* view, size_t size) override;

  // From the locale named by LC_ALL, LC_MESSAGES or LANG (LANG alone for
  // the system's); English (0x409) when none names a known language.
  WORD ThreadLanguage() override;
  WORD SystemLanguage() override;
  // The monotonic clock counts nanoseconds.
  int64_t PerformanceFrequency() override;

  // Shared objects carry no string resources: the module alone, no language.
  std::vector<std::u16string> ResourceModules(std::u16string_view module) override;
  std::vector<WORD> StringLanguages(std::u16string_view resourceModule, DWORD block) override;
};

// The process's system, a PosixPerfSystem.
PerfSystem& DefaultPerfSystem();

// The POSIX shared memory name of a page.
std::string PosixPageName(std::u16string_view name);

// The language identifier of a locale name such as "de_CH.UTF-8": the
// language's primary number in the default sublanguage; 0 if unknown.
WORD LanguageOfLocale(std::string_view locale);

}  // namespace zemo
