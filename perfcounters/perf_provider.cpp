// A performance class's registration: its key, its title ids and its texts.
// Collection is in perf_collect.cpp.
#include "perfcounters/perf_provider.h"

#include "perfcounters/perf_titles.h"
#include "platform/exception.h"
#include "platform/object.h"

namespace zemo {
namespace {

constexpr char16_t kPerflibKey[] = u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Perflib";
constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
constexpr HRESULT kInvalidData = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
constexpr WORD kUsEnglish = 0x409;
// The buffer the platform gives a module's path, its terminator included.
constexpr size_t kMaxPath = 260;

std::u16string Hex3(WORD language) {
  static const char16_t kDigits[] = u"0123456789abcdef";
  const unsigned v = language & 0x3FF;
  return {kDigits[v >> 8], kDigits[(v >> 4) & 15], kDigits[v & 15]};
}

}  // namespace

// The class's run of title ids.
struct PerfProvider::Ranges {
  DWORD firstCounter, lastCounter, firstHelp, lastHelp;
};

PerfProvider::~PerfProvider() { Close(); }

std::u16string PerfProvider::ClassKey() {
  return u"SYSTEM\\CurrentControlSet\\Services\\" + GetAppName() + u"\\Performance";
}

std::u16string PerfProvider::LanguageKey(WORD language) { return kPerflibKey + (u"\\" + Hex3(language)); }

void PerfProvider::AddObject(PerfObject object) {
  object.counters.clear();
  m_objects.push_back(std::move(object));
}

void PerfProvider::AddCounter(PerfCounter counter) {
  if (m_objects.empty()) AtlThrow(E_UNEXPECTED);  // a counter needs its object first
  m_objects.back().counters.push_back(std::move(counter));
}

HRESULT PerfProvider::BuildMap(WORD language, std::u16string_view module, DWORD* stringId) {
  m_objects.clear();
  m_loaded = false;
  *stringId = 0;
  return Boundary([&] { return CreateMap(language, module, stringId); });
}

namespace {

DWORD ReadNumber(PerfSystem& system, std::u16string_view key, std::u16string_view name) {
  RegistryValue v;
  CheckHr(system.QueryValue(key, name, v));
  const auto number = v.AsNumber();
  if (!number) AtlThrow(kInvalidData);
  return *number;
}

std::u16string ReadText(PerfSystem& system, std::u16string_view key, std::u16string_view name) {
  RegistryValue v;
  CheckHr(system.QueryValue(key, name, v));
  const auto text = v.AsText();
  if (!text) AtlThrow(kInvalidData);
  return *text;
}

void WriteNumber(PerfSystem& system, std::u16string_view key, std::u16string_view name, DWORD value) {
  CheckHr(system.SetValue(key, name, RegistryValue::Number(value)));
}

void WriteText(PerfSystem& system, std::u16string_view key, std::u16string_view name, std::u16string_view text,
               DWORD type = REG_SZ) {
  CheckHr(system.SetValue(key, name, RegistryValue::Text(text, type)));
}

}  // namespace

PerfProvider::Ranges PerfProvider::ReadRanges() {
  const std::u16string key = ClassKey();
  return {ReadNumber(m_system, key, u"First Counter"), ReadNumber(m_system, key, u"Last Counter"),
          ReadNumber(m_system, key, u"First Help"), ReadNumber(m_system, key, u"Last Help")};
}

HRESULT PerfProvider::Register(std::u16string_view module) {
  return Boundary([&] {
    DWORD stringId = 0;
    if (FAILED(BuildMap(m_system.ThreadLanguage(), module, &stringId))) CheckHr(BuildMap(kUsEnglish, module, &stringId));
    UnloadStrings();  // what an earlier registration installed, if anything
    DWORD name = 0, help = 0;
    CheckHr(ReserveIds(&name, &help));
    auto next = [&](DWORD& nameIndex, DWORD& helpIndex) {
      nameIndex = name;
      helpIndex = help;
      name += 2;
      help += 2;
    };
    for (PerfObject& o : m_objects) {
      next(o.nameIndex, o.helpIndex);
      for (PerfCounter& c : o.counters) next(c.nameIndex, c.helpIndex);
    }
    const std::u16string key = ClassKey();
    CheckHr(m_system.CreateKey(key));
    if (module.size() >= kMaxPath) AtlThrow(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER));
    WriteText(m_system, key, u"Library", module, REG_EXPAND_SZ);
    WriteText(m_system, key, u"Open", u"_OpenPerfMon@4");
    WriteText(m_system, key, u"Collect", u"_CollectPerfMon@16");
    WriteText(m_system, key, u"Close", u"_ClosePerfMon@0");
    WriteText(m_system, key, u"Languages", u"");
    CheckHr(m_system.SetValue(key, u"Map", RegistryValue::Bytes(SaveDefinition(m_objects))));
    const HRESULT hr = m_system.DeleteValue(key, u"Disable Performance Counters");
    if (FAILED(hr) && hr != kNotFound) AtlThrow(hr);
  });
}

HRESULT PerfProvider::ReserveIds(DWORD* firstName, DWORD* firstHelp) {
  return Boundary([&] {
    CheckOut(firstName);
    CheckOut(firstHelp);
    uint64_t ids = 0;  // 2 x (objects + counters)
    for (const PerfObject& o : m_objects) ids += 2 * (1 + uint64_t(o.counters.size()));
    const std::u16string key = ClassKey();

    // The class's own run, if it is long enough.
    const HRESULT kept = Boundary([&] {
      CheckHr(m_system.OpenKey(key));
      const Ranges r = ReadRanges();
      auto holds = [&](DWORD first, DWORD last) { return int64_t(last) - int64_t(first) + 2 >= int64_t(ids); };
      if (!holds(r.firstCounter, r.lastCounter) || !holds(r.firstHelp, r.lastHelp)) return S_FALSE;
      *firstName = r.firstCounter;
      *firstHelp = r.firstHelp;
      return S_OK;
    });
    if (kept == S_OK) return;

    // A new run at the end of the platform's.
    CheckHr(m_system.OpenKey(kPerflibKey));
    CheckHr(m_system.CreateKey(key));
    const DWORD lastCounter = ReadNumber(m_system, kPerflibKey, u"Last Counter");
    const DWORD lastHelp = ReadNumber(m_system, kPerflibKey, u"Last Help");
    if (uint64_t(lastCounter) + ids + 2 > UINT32_MAX || uint64_t(lastHelp) + ids + 2 > UINT32_MAX)
      AtlThrow(kInvalidData);
    const DWORD newLastCounter = static_cast<DWORD>(lastCounter + ids);
    const DWORD newLastHelp = static_cast<DWORD>(lastHelp + ids);
    WriteNumber(m_system, kPerflibKey, u"Last Counter", newLastCounter);
    WriteNumber(m_system, kPerflibKey, u"Last Help", newLastHelp);
    WriteNumber(m_system, key, u"First Counter", lastCounter + 2);
    WriteNumber(m_system, key, u"Last Counter", newLastCounter);
    WriteNumber(m_system, key, u"First Help", lastHelp + 2);
    WriteNumber(m_system, key, u"Last Help", newLastHelp);
    *firstName = lastCounter + 2;
    *firstHelp = lastHelp + 2;
  });
}

HRESULT PerfProvider::LoadStrings(std::u16string_view module) {
  return Boundary([&] {
    DWORD stringId = 0;
    CheckHr(BuildMap(0, module, &stringId));
    if (stringId == 0) return InstallStrings(0, module);
    bool installed = false;
    for (const std::u16string& resources : m_system.ResourceModules(module))
      for (WORD language : m_system.StringLanguages(resources, stringId / 16 + 1))
        installed |= CheckHr(InstallStrings(language, resources)) == S_OK;
    return installed ? S_OK : S_FALSE;
  });
}

HRESULT PerfProvider::InstallStrings(WORD language, std::u16string_view module) {
  return Boundary([&] {
    if (language == 0) language = m_system.ThreadLanguage();
    if (FAILED(m_system.OpenKey(LanguageKey(language)))) {
      language = m_system.SystemLanguage();
      if (FAILED(m_system.OpenKey(LanguageKey(language)))) return S_FALSE;
    }
    DWORD stringId = 0;
    CheckHr(BuildMap(language, module, &stringId));

    const std::u16string key = ClassKey();
    const std::u16string tag = Hex3(language);
    std::u16string languages;
    RegistryValue v;
    if (SUCCEEDED(m_system.QueryValue(key, u"Languages", v))) languages = v.AsText().value_or(u"");
    for (std::u16string_view word : Words(languages))
      if (word == tag) return S_OK;  // installed before

    std::vector<std::u16string> names, helps;
    for (const PerfObject& o : m_objects) {
      names.push_back(o.name);
      helps.push_back(o.help);
      for (const PerfCounter& c : o.counters) {
        names.push_back(c.name);
        helps.push_back(c.help);
      }
    }
    const Ranges r = ReadRanges();
    const std::u16string languageKey = LanguageKey(language);
    CheckHr(InsertStrings(languageKey, u"Counter", names, r.firstCounter, r.lastCounter));
    CheckHr(InsertStrings(languageKey, u"Help", helps, r.firstHelp, r.lastHelp));
    WriteText(m_system, key, u"Languages", languages + tag + u" ");
    return S_OK;
  });
}

HRESULT PerfProvider::InsertStrings(std::u16string_view key, std::u16string_view value,
                                    std::span<const std::u16string> titles, DWORD first, DWORD last) {
  return Boundary([&] {
    RegistryValue old;
    CheckHr(m_system.QueryValue(key, value, old));
    if (old.type != REG_MULTI_SZ || old.data.size() % 2) AtlThrow(kInvalidData);
    std::u16string list;
    CheckHr(ReplaceTitles(old.AsUnits(), titles, first, last, list));
    CheckHr(m_system.SetValue(key, value, RegistryValue::Units(list, REG_MULTI_SZ)));
  });
}

HRESULT PerfProvider::UnloadStrings() {
  return Boundary([&] {
    const Ranges r = ReadRanges();
    const std::u16string key = ClassKey();
    const std::u16string languages = ReadText(m_system, key, u"Languages");
    for (std::u16string_view word : Words(languages)) {
      // Only a language's own key: three hexadecimal digits.
      if (word.size() != 3 || word.find_first_not_of(u"0123456789abcdefABCDEF") != std::u16string_view::npos)
        continue;
      const std::u16string languageKey = kPerflibKey + (u"\\" + std::u16string(word));
      if (FAILED(m_system.OpenKey(languageKey))) continue;  // the language has gone
      CheckHr(InsertStrings(languageKey, u"Counter", {}, r.firstCounter, r.lastCounter));
      CheckHr(InsertStrings(languageKey, u"Help", {}, r.firstHelp, r.lastHelp));
    }
    WriteText(m_system, key, u"Languages", u"");
  });
}

HRESULT PerfProvider::Unregister() {
  return Boundary([&] {
    CheckHr(UnloadStrings());
    const DWORD lastCounter = ReadNumber(m_system, kPerflibKey, u"Last Counter");
    const DWORD lastHelp = ReadNumber(m_system, kPerflibKey, u"Last Help");
    const Ranges r = ReadRanges();
    // Ids go back only from the end of the platform's run.
    if (r.lastCounter == lastCounter) WriteNumber(m_system, kPerflibKey, u"Last Counter", r.firstCounter - 2);
    if (r.lastHelp == lastHelp) WriteNumber(m_system, kPerflibKey, u"Last Help", r.firstHelp - 2);
    CheckHr(m_system.DeleteKey(ClassKey()));
  });
}

}  // namespace zemo
