#include "perfcounters/perf_system.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/strings.h"

namespace zemo {
namespace {

constexpr WORD kEnglish = 0x409;
constexpr WORD kDefaultSublanguage = 1 << 10;

std::u16string UnderLocalMachine(std::u16string_view path) { return u"HKLM\\" + std::u16string(path); }

// The first of the variables that is set and not empty.
std::string_view LocaleFrom(std::initializer_list<const char*> variables) {
  for (const char* v : variables)
    if (const char* value = std::getenv(v); value && *value) return value;
  return {};
}

WORD LanguageOr(std::string_view locale, WORD fallback) {
  const WORD language = LanguageOfLocale(locale);
  return language ? language : fallback;
}

}  // namespace

HRESULT PosixPerfSystem::OpenKey(std::u16string_view path) { return ClassStore::OpenKey(UnderLocalMachine(path)); }

HRESULT PosixPerfSystem::CreateKey(std::u16string_view path) {
  return ClassStore::CreateKey(UnderLocalMachine(path));
}

HRESULT PosixPerfSystem::QueryValue(std::u16string_view path, std::u16string_view name, RegistryValue& out) {
  return ClassStore::QueryValue(UnderLocalMachine(path), name, out);
}

HRESULT PosixPerfSystem::SetValue(std::u16string_view path, std::u16string_view name, const RegistryValue& value) {
  return ClassStore::SetValue(UnderLocalMachine(path), name, value);
}

HRESULT PosixPerfSystem::DeleteValue(std::u16string_view path, std::u16string_view name) {
  return ClassStore::DeleteValue(UnderLocalMachine(path), name);
}

HRESULT PosixPerfSystem::DeleteKey(std::u16string_view path) {
  return ClassStore::DeleteKey(UnderLocalMachine(path));
}

uint32_t PosixPerfSystem::PageSize() { return static_cast<uint32_t>(sysconf(_SC_PAGESIZE)); }

const uint8_t* PosixPerfSystem::MapPage(std::u16string_view name, size_t size) {
  const int fd = shm_open(PosixPageName(name).c_str(), O_RDONLY, 0);
  if (fd < 0) return nullptr;
  // A view past the end of the object would fault when read.
  struct stat st {};
  void* view = MAP_FAILED;
  if (fstat(fd, &st) == 0 && st.st_size >= 0 && static_cast<uint64_t>(st.st_size) >= size)
    view = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
  close(fd);
  return view == MAP_FAILED ? nullptr : static_cast<const uint8_t*>(view);
}

void PosixPerfSystem::UnmapPage(const uint8_t* view, size_t size) {
  if (view) munmap(const_cast<uint8_t*>(view), size);
}

WORD PosixPerfSystem::ThreadLanguage() {
  return LanguageOr(LocaleFrom({"LC_ALL", "LC_MESSAGES", "LANG"}), kEnglish);
}

WORD PosixPerfSystem::SystemLanguage() { return LanguageOr(LocaleFrom({"LANG"}), kEnglish); }

int64_t PosixPerfSystem::PerformanceFrequency() { return 1000000000; }

std::vector<std::u16string> PosixPerfSystem::ResourceModules(std::u16string_view module) {
  return {std::u16string(module)};
}

std::vector<WORD> PosixPerfSystem::StringLanguages(std::u16string_view, DWORD) { return {}; }

PerfSystem& DefaultPerfSystem() {
  static PosixPerfSystem* system = new PosixPerfSystem();  // never destroyed: used during exit
  return *system;
}

std::string PosixPageName(std::u16string_view name) {
  std::string out = "/" + ToUtf8(name);
  for (size_t i = 1; i < out.size(); ++i)
    if (out[i] == '/' || out[i] == '\\' || out[i] == '\0') out[i] = '_';
  return out;
}

WORD LanguageOfLocale(std::string_view locale) {
  static const std::pair<std::string_view, WORD> kPrimary[] = {
      {"zh", 0x04}, {"cs", 0x05}, {"da", 0x06}, {"de", 0x07}, {"el", 0x08}, {"en", 0x09}, {"es", 0x0A},
      {"fi", 0x0B}, {"fr", 0x0C}, {"he", 0x0D}, {"hu", 0x0E}, {"is", 0x0F}, {"it", 0x10}, {"ja", 0x11},
      {"ko", 0x12}, {"nl", 0x13}, {"nb", 0x14}, {"nn", 0x14}, {"no", 0x14}, {"pl", 0x15}, {"pt", 0x16},
      {"ro", 0x18}, {"ru", 0x19}, {"sv", 0x1D}, {"tr", 0x1F},
  };
  const std::string_view code = locale.substr(0, locale.find_first_of("_.@"));
  for (auto [name, primary] : kPrimary)
    if (code == name) return static_cast<WORD>(primary | kDefaultSublanguage);
  return 0;
}

}  // namespace zemo
