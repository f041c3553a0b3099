// One performance class of the counter provider, and all that runs for it
// below the provider's table: registration of its definition and texts in
// the registry, and collection of live values from the pages its writer
// shares. A class gives its service name and builds its definition; the rest
// is here.
//
// Registry keys, below HKEY_LOCAL_MACHINE:
//   SYSTEM\CurrentControlSet\Services\<app>\Performance   the class's key:
//     Library, Open, Collect, Close, Languages, Map, and its run of title ids
//     (First Counter, Last Counter, First Help, Last Help)
//   SOFTWARE\Microsoft\Windows NT\CurrentVersion\Perflib   Last Counter, Last Help
//   ...\Perflib\<language, 3 hex digits>                  Counter, Help (perf_titles.h)
//
// A writer's pages ("Global\ATLPERF_<app>_000", _001, ...) each start with
// the same H bytes (on page 0 the definition, whose total size is H), then
// the page's number at H, then entries from H + 4 rounded up to 16. An entry
// is the writer's record of one instance: its size in bytes (0 ends all
// entries, 0xFFFFFFFF goes on at the next page), object id, instance id, an
// in-use word (0: free), the offset of its UTF-16 name, and the counter
// values at their data offsets, all from the entry's start.
//
// Collection takes no lock: the writer may change an entry while it is
// read, so each entry is copied once and used only if the copy still names
// the object and instance looked for and is in use.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "perfcounters/perf_definition.h"
#include "perfcounters/perf_system.h"

namespace zemo {

class PerfProvider {
 public:
  explicit PerfProvider(PerfSystem& system = DefaultPerfSystem()) : m_system(system) {}
  virtual ~PerfProvider();
  PerfProvider(const PerfProvider&) = delete;
  PerfProvider& operator=(const PerfProvider&) = delete;

  // The name of the class's service; it names the class's key and pages.
  virtual std::u16string GetAppName() = 0;
  // Builds the definition by AddObject and AddCounter, with the texts in
  // `language`. `stringId` gets the id of the string resource in `module`
  // that holds the texts, or 0 if they come from elsewhere.
  virtual HRESULT CreateMap(WORD language, std::u16string_view module, DWORD* stringId) = 0;

  // Registration. Register builds the definition, takes a run of title ids,
  // and writes the class's key; Unregister takes it all back, and the ids
  // too if no class took ids after it.
  HRESULT Register(std::u16string_view module);
  HRESULT Unregister();
  // The first name and help ids of a run of 2 x (objects + counters): the
  // class's own if its run is long enough, else a new run at the end.
  HRESULT ReserveIds(DWORD* firstName, DWORD* firstHelp);
  // Installs the texts in each language the class has them in; S_FALSE if
  // none was installed.
  HRESULT LoadStrings(std::u16string_view module);
  // Installs the texts of one language (0: the thread's) once; S_FALSE if
  // neither it nor the system's language has a key.
  HRESULT InstallStrings(WORD language, std::u16string_view module);
  // Takes the class's titles out of every language it was installed in.
  HRESULT UnloadStrings();
  // Writes `titles` into one title list of a language's key (perf_titles.h).
  HRESULT InsertStrings(std::u16string_view key, std::u16string_view value, std::span<const std::u16string> titles,
                        DWORD first, DWORD last);

  // Appends to `*data` the requested objects with their instances, at most
  // `*room` bytes; `*room` becomes the bytes used, `*objects` grows by the
  // objects written, `*data` moves past them. Returns 0, or ERROR_MORE_DATA
  // if the room is short; any failure leaves 0 bytes, 0 objects and `*data`
  // where it was. "Global" requests every object, in any case of letters;
  // else a request names objects by their name ids, between blanks.
  DWORD Collect(const char16_t* request, void** data, DWORD* room, DWORD* objects);
  // Unmaps the pages and drops the definition: the class is as new.
  void Close();

  // The definition as the last CreateMap or collection left it.
  const std::vector<PerfObject>& Objects() const { return m_objects; }

  std::u16string ClassKey();
  static std::u16string LanguageKey(WORD language);
  // A writer's page: "Global\ATLPERF_<app>_<number, 3 digits or more>".
  std::u16string PageName(uint32_t number);

 protected:
  // For CreateMap: appends an object and makes it the present one; appends
  // a counter to the present object.
  void AddObject(PerfObject object);
  void AddCounter(PerfCounter counter);

 private:
  struct Ranges;
  class Output;

  HRESULT BuildMap(WORD language, std::u16string_view module, DWORD* stringId);
  Ranges ReadRanges();

  bool OpenPages();
  bool LoadMap();
  void CollectObject(const PerfObject& object, Output& out) const;
  bool CollectEntry(const PerfObject& object, const uint8_t* page, uint32_t at, PERF_OBJECT_TYPE& header,
                    Output& out) const;

  PerfSystem& m_system;
  std::vector<PerfObject> m_objects;
  bool m_loaded = false;  // m_objects came from a page or Map, ready to collect
  std::vector<const uint8_t*> m_pages;
  uint32_t m_pageSize = 0;
  uint32_t m_indexAt = 0;     // H: where a page holds its number
  uint32_t m_firstEntry = 0;  // where a page's entries start
};

}  // namespace zemo
