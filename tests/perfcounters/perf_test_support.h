// A performance class for tests, the registry it is registered in, and a
// writer of shared pages in the test's own process. Names carry the
// process id, so that test processes running side by side never meet.
#pragma once

#include <unistd.h>

#include <string>
#include <vector>

#include "perfcounters/perf_provider.h"

namespace zemo::testing_support {

// Counter types: a 32-bit and a 64-bit number, a UTF-16 and a narrow text.
inline constexpr DWORD kRawCount = 0x00010000;
inline constexpr DWORD kLargeRawCount = 0x00010100;
inline constexpr DWORD kUnicodeText = 0x00000B00;
inline constexpr DWORD kNarrowText = 0x00010B00;

// Languages and string resources as a test sets them.
class TestPerfSystem : public PosixPerfSystem {
 public:
  WORD ThreadLanguage() override { return threadLanguage; }
  WORD SystemLanguage() override { return systemLanguage; }
  std::vector<WORD> StringLanguages(std::u16string_view, DWORD block) override {
    return block == resourceBlock ? resourceLanguages : std::vector<WORD>();
  }

  WORD threadLanguage = 0x409;
  WORD systemLanguage = 0x409;
  DWORD resourceBlock = 0;
  std::vector<WORD> resourceLanguages;
};

// Two objects: "Engine", without instances, and "Adapter", with them; in
// German for language 7, else in English. Records: the entry's five words,
// then the values (see the offsets), an Adapter's name at 40.
class TestCounters : public PerfProvider {
 public:
  explicit TestCounters(PerfSystem& system, std::u16string suffix = u"")
      : PerfProvider(system), m_app(u"ZemoPerfTest" + std::u16string(suffix) + PidText()) {}

  std::u16string GetAppName() override { return m_app; }
  HRESULT CreateMap(WORD language, std::u16string_view, DWORD* stringId) override {
    const bool german = (language & 0x3FF) == 0x07;
    auto text = [&](const char16_t* en, const char16_t* de) { return std::u16string(german ? de : en); };
    AddObject({.id = 1, .name = text(u"Engine", u"Motor"), .help = text(u"The engine", u"Der Motor"),
               .detailLevel = 100, .instanceLess = true, .recordSize = 48});
    AddCounter({.id = 10, .name = text(u"Packets", u"Pakete"), .help = u"p", .counterType = kRawCount, .dataOffset = 20});
    AddCounter({.id = 11, .name = text(u"Bytes", u"Bytes"), .help = u"b", .counterType = kLargeRawCount, .dataOffset = 24});
    AddCounter({.id = 12, .name = text(u"State", u"Zustand"), .help = u"s", .counterType = kUnicodeText,
                .maxStringLength = 6, .dataOffset = 32});
    for (int extra = 0; extra < extraObjects; ++extra)
      AddObject({.id = DWORD(100 + extra), .name = u"Extra", .help = u"x", .instanceLess = true});
    AddObject({.id = 2, .name = text(u"Adapter", u"Adapter"), .help = text(u"An adapter", u"Ein Adapter"),
               .detailLevel = 200, .defaultCounter = 1, .recordSize = 72, .maxInstanceName = 16});
    AddCounter({.id = 20, .name = text(u"Frames", u"Rahmen"), .help = u"f", .counterType = kRawCount, .dataOffset = 20});
    AddCounter({.id = 21, .name = text(u"Errors", u"Fehler"), .help = u"e", .counterType = kLargeRawCount,
                .dataOffset = 24});
    AddCounter({.id = 22, .name = text(u"Vendor", u"Hersteller"), .help = u"v", .counterType = kNarrowText,
                .maxStringLength = 5, .dataOffset = 32});
    *stringId = stringIdToGive;
    return S_OK;
  }

  int extraObjects = 0;
  DWORD stringIdToGive = 0;

  static std::u16string PidText() {
    const std::string pid = std::to_string(getpid());
    return std::u16string(pid.begin(), pid.end());
  }

 private:
  std::u16string m_app;
};

// The platform's title database as a fresh system has it: ids up to 100 and
// 101 taken, English and German installed, each with a title below and one
// above the ids a class will get. Removed again with the classes' keys.
class PerfRegistry {
 public:
  PerfRegistry();
  ~PerfRegistry();
  PerfRegistry(const PerfRegistry&) = delete;
  PerfRegistry& operator=(const PerfRegistry&) = delete;

  static const std::u16string kPerflib;
  // A value of a key below HKEY_LOCAL_MACHINE: a number, text, or the texts
  // of a list joined by '|'.
  static std::u16string Read(std::u16string_view key, std::u16string_view name);
  static DWORD Number(std::u16string_view key, std::u16string_view name);
};

// A writer of a class's shared pages. A page starts with the definition
// (page 0) or zeros, holds its number at H and entries from H + 4 rounded
// up to 16; Entry builds one. Pages are unlinked when the writer goes.
class PageWriter {
 public:
  PageWriter(PerfProvider& provider, const std::vector<uint8_t>& definition);
  ~PageWriter();
  PageWriter(const PageWriter&) = delete;
  PageWriter& operator=(const PageWriter&) = delete;

  // Adds the next page.
  void AddPage();
  // Writes bytes at a page's first entry + offset.
  void Write(size_t page, size_t offset, const std::vector<uint8_t>& bytes);
  void WriteWord(size_t page, size_t offset, uint32_t word);

  // An entry of `size` bytes: header words, then values placed by offset.
  struct Value {
    size_t offset;
    std::vector<uint8_t> bytes;
  };
  static std::vector<uint8_t> Entry(uint32_t size, uint32_t object, uint32_t instance, bool inUse,
                                    std::u16string_view name, const std::vector<Value>& values);
  static std::vector<uint8_t> Le32(uint32_t v);
  static std::vector<uint8_t> Le64(uint64_t v);

 private:
  PerfProvider& m_provider;
  std::vector<uint8_t> m_definition;
  size_t m_pageSize;
  size_t m_firstEntry;
  std::vector<uint8_t*> m_pages;
};

}  // namespace zemo::testing_support
