// The performance counter provider: the module's empty table as a monitor
// and the registrar see it, and the machinery below the table run for a
// test class, with its registry and a writer of its pages in this process.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>

#include "frame/module.h"
#include "perf_test_support.h"
#include "perfcounters/perf_module.h"
#include "perfcounters/perf_titles.h"
#include "platform/strings.h"

namespace {

using namespace zemo;
using namespace zemo::testing_support;

constexpr char16_t kModule[] = u"/opt/zemo/libzemostats.so";

// One object of a collection, read back by its lengths.
struct Collected {
  PERF_OBJECT_TYPE header;
  std::vector<std::u16string> names;               // of the instances
  std::vector<std::vector<uint8_t>> blocks;        // one per instance, or one
};

std::vector<Collected> Parse(const uint8_t* data, size_t bytes) {
  std::vector<Collected> out;
  for (size_t at = 0; at < bytes;) {
    Collected c;
    std::memcpy(&c.header, data + at, sizeof c.header);
    EXPECT_LE(at + c.header.TotalByteLength, bytes);
    size_t p = at + c.header.DefinitionLength;
    auto block = [&] {
      DWORD length;
      std::memcpy(&length, data + p, 4);
      c.blocks.emplace_back(data + p, data + p + length);
      p += length;
    };
    if (c.header.NumInstances == PERF_NO_INSTANCES) block();
    for (LONG i = 0; i < c.header.NumInstances; ++i) {
      PERF_INSTANCE_DEFINITION d;
      std::memcpy(&d, data + p, sizeof d);
      c.names.emplace_back(reinterpret_cast<const char16_t*>(data + p + d.NameOffset));
      EXPECT_EQ((c.names.back().size() + 1) * 2, d.NameLength);
      p += d.ByteLength;
      block();
    }
    EXPECT_EQ(at + c.header.TotalByteLength, p);
    at = p;
    out.push_back(std::move(c));
  }
  return out;
}

// A list of texts from the form Read gives.
RegistryValue List(std::u16string text) {
  for (char16_t& c : text)
    if (c == u'|') c = 0;
  return RegistryValue::Units(text + u'\0' + u'\0', REG_MULTI_SZ);
}

template <class T>
T At(const std::vector<uint8_t>& block, size_t offset) {
  T v{};
  std::memcpy(&v, block.data() + offset, sizeof v);
  return v;
}

// A whole collection of a table into a buffer of `room` bytes.
struct Collection {
  DWORD result, bytes, objects;
  bool dataMoved;  // to the end of what was written
  std::vector<Collected> parsed;
};

Collection Collect(std::span<PerfProvider* const> table, const char16_t* request, DWORD room) {
  std::vector<uint8_t> buffer(room + 1);
  void* data = buffer.data();
  Collection c{0, room, 0, false, {}};
  c.result = CollectProviders(table, request, &data, &c.bytes, &c.objects);
  c.dataMoved = data != buffer.data();
  EXPECT_EQ(buffer.data() + c.bytes, data);
  c.parsed = Parse(buffer.data(), c.bytes);
  EXPECT_EQ(c.objects, c.parsed.size());
  return c;
}

TEST(PerfCounters, TheModulesEmptyTableAnswersAtOnceAndRegistersNothing) {
  void* module = dlopen(ZEMO_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(nullptr, module) << dlerror();
  auto open = reinterpret_cast<DWORD (*)(char16_t*)>(dlsym(module, "_OpenPerfMon@4"));
  auto collect = reinterpret_cast<DWORD (*)(char16_t*, void**, DWORD*, DWORD*)>(dlsym(module, "_CollectPerfMon@16"));
  auto close = reinterpret_cast<DWORD (*)()>(dlsym(module, "_ClosePerfMon@0"));
  ASSERT_TRUE(open && collect && close);
  EXPECT_EQ(nullptr, dlsym(module, "_OpenPerfMon_4"));  // the names the linker knew are gone
  EXPECT_EQ(0u, open(nullptr));
  uint8_t buffer[64];
  void* data = buffer;
  DWORD bytes = sizeof buffer, objects = 7;
  char16_t global[] = u"Global";
  EXPECT_EQ(0u, collect(global, &data, &bytes, &objects));
  EXPECT_EQ(0u, bytes);
  EXPECT_EQ(buffer, data);
  EXPECT_EQ(7u, objects);
  EXPECT_EQ(0u, close());
  dlclose(module);

  const auto before = ClassStore::Dump(u"HKLM");
  ASSERT_EQ(S_OK, DllRegisterServer());
  EXPECT_EQ(before, ClassStore::Dump(u"HKLM"));
  ASSERT_EQ(S_OK, DllUnregisterServer());
  EXPECT_EQ(before, ClassStore::Dump(u"HKLM"));
}

TEST(PerfDefinition, LoadsWhatItSavesLaysCountersOutAndRefusesMalformedBytes) {
  TestPerfSystem system;
  TestCounters counters(system);
  DWORD stringId;
  ASSERT_EQ(S_OK, counters.CreateMap(0x409, kModule, &stringId));
  const std::vector<uint8_t> bytes = SaveDefinition(counters.Objects());
  std::vector<PerfObject> loaded;
  ASSERT_EQ(S_OK, LoadDefinition(bytes, 1000, loaded));
  ASSERT_EQ(2u, loaded.size());
  EXPECT_EQ(u"Engine", loaded[0].name);
  EXPECT_EQ(u"Vendor", loaded[1].counters[2].name);
  EXPECT_EQ(72u, loaded[1].recordSize);
  EXPECT_EQ(16u, loaded[1].maxInstanceName);

  // Numbers go to their own alignment; text takes its characters rounded up to 4.
  struct Layout {
    size_t object;
    std::vector<DWORD> offsets, sizes;
    DWORD block;
    LONG instances;
  } layouts[] = {{0, {8, 16, 24}, {4, 8, 12}, 40, PERF_NO_INSTANCES}, {1, {8, 16, 24}, {4, 8, 8}, 32, 0}};
  for (const Layout& l : layouts) {
    const PerfObject& o = loaded[l.object];
    EXPECT_EQ(l.block, o.blockLength);
    EXPECT_EQ(64u + 3 * 40, o.header.TotalByteLength);
    EXPECT_EQ(o.header.TotalByteLength, o.header.DefinitionLength);
    EXPECT_EQ(l.instances, o.header.NumInstances);
    EXPECT_EQ(1000, o.header.PerfFreq.QuadPart);
    for (size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(l.offsets[i], o.counters[i].definition.CounterOffset) << l.object << i;
      EXPECT_EQ(l.sizes[i], o.counters[i].definition.CounterSize) << l.object << i;
    }
  }
  EXPECT_EQ(200u, loaded[1].header.DetailLevel);
  EXPECT_EQ(1, loaded[1].header.DefaultCounter);

  // Without its strings a definition loads with empty names.
  std::vector<uint8_t> bare(bytes.begin(), bytes.begin() + 8 + 36 * 8);
  const uint32_t bareSize = static_cast<uint32_t>(bare.size());
  std::memcpy(bare.data(), &bareSize, 4);
  ASSERT_EQ(S_OK, LoadDefinition(bare, 1, loaded));
  EXPECT_EQ(u"", loaded[0].name);
  EXPECT_EQ(3u, loaded[1].counters.size());

  auto with = [&](size_t offset, uint32_t word) {
    std::vector<uint8_t> b = bytes;
    std::memcpy(b.data() + offset, &word, 4);
    return b;
  };
  const std::vector<uint8_t> malformed[] = {
      std::vector<uint8_t>(bytes.begin(), bytes.end() - 1),  // shorter than its total size
      with(0, 7),                                            // total size below the preamble
      with(4, 12),                                           // more entries than the total holds
      with(8, 0),                                            // a counter before any object
      with(8, 2),                                            // neither object nor counter
      with(8 + 16, 5),                                       // instance-less neither -1 nor 0
      with(8 + 36 * 8, 1000),                                // a string past the end
  };
  for (const auto& b : malformed) {
    loaded.resize(1);
    EXPECT_EQ(E_FAIL, LoadDefinition(b, 1, loaded)) << &b - malformed;
    EXPECT_TRUE(loaded.empty());
  }
}

TEST(PerfTitles, OldPairsSurviveAroundTheNewRun) {
  // '|' stands for a terminator.
  auto list = [](std::string_view text) {
    std::u16string units(text.begin(), text.end());
    for (char16_t& c : units)
      if (c == u'|') c = 0;
    return units;
  };
  const std::vector<std::u16string> two = {u"x", u"y"};
  struct Case {
    const char* old;
    std::vector<std::u16string> titles;
    DWORD first, last;
    HRESULT hr;
    const char* expected;
  } cases[] = {
      {"2|a|4|b|10|c||", two, 4, 6, S_OK, "2|a|4|x|6|y|10|c||"},     // the old 4 goes, 10 stays behind the run
      {"2|a|4|b|10|c||", two, 12, 14, S_OK, "2|a|4|b|10|c|12|x|14|y||"},
      {"2|a|4|b|6|c||", {}, 4, 4, S_OK, "2|a|6|c||"},                  // only taking out
      {"|", two, 8, 10, S_OK, "8|x|10|y||"},                             // an empty list
      {"7|a||", {}, 7, 7, S_OK, "||"},
      {"abc|a|4|b||", {u"x"}, 2, 2, S_OK, "abc|a|2|x|4|b||"},           // an id without digits is 0
      {"2|a|", two, 4, 6, HRESULT_FROM_WIN32(ERROR_INVALID_DATA), ""},  // one terminator at the end
      {"2|a|4||", two, 4, 6, HRESULT_FROM_WIN32(ERROR_INVALID_DATA), ""},
      {"", two, 4, 6, HRESULT_FROM_WIN32(ERROR_INVALID_DATA), ""},
      {"2|a||", {u""}, 4, 4, E_INVALIDARG, ""},
      {"2|a||", two, 0xFFFFFFFE, 0xFFFFFFFF, E_INVALIDARG, ""},
  };
  for (const Case& c : cases) {
    std::u16string out;
    EXPECT_EQ(c.hr, ReplaceTitles(list(c.old), c.titles, c.first, c.last, out)) << c.old;
    if (c.hr == S_OK) {
      EXPECT_EQ(list(c.expected), out) << c.old;
    }
  }
}

TEST(PerfRegistration, ReservesIdsOnceAndGivesThemBackOnlyFromTheEnd) {
  PerfRegistry registry;
  TestPerfSystem system;
  TestCounters a(system, u"A"), b(system, u"B");
  const std::u16string& perflib = PerfRegistry::kPerflib;
  auto ids = [&](TestCounters& c) {
    const std::u16string key = c.ClassKey();
    return std::vector<DWORD>{PerfRegistry::Number(key, u"First Counter"), PerfRegistry::Number(key, u"Last Counter"),
                              PerfRegistry::Number(key, u"First Help"), PerfRegistry::Number(key, u"Last Help"),
                              PerfRegistry::Number(perflib, u"Last Counter"), PerfRegistry::Number(perflib, u"Last Help")};
  };

  ASSERT_EQ(S_OK, a.Register(kModule));
  EXPECT_EQ((std::vector<DWORD>{102, 116, 103, 117, 116, 117}), ids(a));
  const std::u16string key = a.ClassKey();
  EXPECT_EQ(kModule, PerfRegistry::Read(key, u"Library"));
  EXPECT_EQ(u"_OpenPerfMon@4", PerfRegistry::Read(key, u"Open"));
  EXPECT_EQ(u"_CollectPerfMon@16", PerfRegistry::Read(key, u"Collect"));
  EXPECT_EQ(u"_ClosePerfMon@0", PerfRegistry::Read(key, u"Close"));
  EXPECT_EQ(u"", PerfRegistry::Read(key, u"Languages"));
  // Map holds the definition with its ids, objects and counters in one run.
  RegistryValue map;
  ASSERT_EQ(S_OK, system.QueryValue(key, u"Map", map));
  EXPECT_EQ(REG_BINARY, map.type);
  std::vector<PerfObject> objects;
  ASSERT_EQ(S_OK, LoadDefinition(map.data, 1, objects));
  ASSERT_EQ(2u, objects.size());
  EXPECT_EQ(102u, objects[0].nameIndex);
  EXPECT_EQ(109u, objects[0].counters[2].helpIndex);
  EXPECT_EQ(110u, objects[1].nameIndex);
  EXPECT_EQ(u"Adapter", objects[1].name);

  ASSERT_EQ(S_OK, a.Register(kModule));  // as many names: the same ids
  EXPECT_EQ((std::vector<DWORD>{102, 116, 103, 117, 116, 117}), ids(a));
  ASSERT_EQ(S_OK, b.Register(kModule));
  EXPECT_EQ((std::vector<DWORD>{118, 132, 119, 133, 132, 133}), ids(b));
  a.extraObjects = 1;  // more names: a new run at the end
  ASSERT_EQ(S_OK, a.Register(kModule));
  EXPECT_EQ((std::vector<DWORD>{134, 150, 135, 151, 150, 151}), ids(a));

  ASSERT_EQ(S_OK, b.Unregister());  // not the last run: its ids stay taken
  EXPECT_EQ(150u, PerfRegistry::Number(perflib, u"Last Counter"));
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), ClassStore::OpenKey(u"HKLM\\" + b.ClassKey()));
  ASSERT_EQ(S_OK, a.Unregister());
  EXPECT_EQ(132u, PerfRegistry::Number(perflib, u"Last Counter"));
  EXPECT_EQ(133u, PerfRegistry::Number(perflib, u"Last Help"));
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), a.Unregister());

  // A module path that fills the platform's buffer; a number of the wrong type.
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER), a.Register(std::u16string(260, u'x')));
  ASSERT_EQ(S_OK, system.SetValue(perflib, u"Last Counter", RegistryValue::Text(u"132")));
  a.extraObjects = 3;
  EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INVALID_DATA), a.Register(kModule));
}

TEST(PerfRegistration, InstallsEachLanguageOnceAndTakesItsTitlesOutAgain) {
  PerfRegistry registry;
  TestPerfSystem system;
  TestCounters a(system);
  PerfProvider* const table[] = {nullptr, &a};
  const std::u16string english = PerfRegistry::kPerflib + u"\\009";
  const std::u16string german = PerfRegistry::kPerflib + u"\\007";
  const std::u16string englishBefore = PerfRegistry::Read(english, u"Counter");
  const std::u16string germanBefore = PerfRegistry::Read(german, u"Counter");

  // Texts from no resource go in in the thread's language.
  ASSERT_EQ(S_OK, RegisterProviders(table, kModule));
  const std::u16string englishCounters =
      u"1|1847|2|System|4|Memory|102|Engine|104|Packets|106|Bytes|108|State|110|Adapter|112|Frames|114|Errors|116|"
      u"Vendor|200|Later";
  EXPECT_EQ(englishCounters, PerfRegistry::Read(english, u"Counter"));
  EXPECT_EQ(u"3|System help|5|Memory help|103|The engine|105|p|107|b|109|s|111|An adapter|113|f|115|e|117|v|201|Later help",
            PerfRegistry::Read(english, u"Help"));
  EXPECT_EQ(u"009 ", PerfRegistry::Read(a.ClassKey(), u"Languages"));
  EXPECT_EQ(germanBefore, PerfRegistry::Read(german, u"Counter"));

  // Once installed, a language is left alone.
  ASSERT_EQ(S_OK, system.SetValue(english, u"Counter", List(u"1|9")));
  EXPECT_EQ(S_OK, a.InstallStrings(0x409, kModule));
  EXPECT_EQ(u"1|9", PerfRegistry::Read(english, u"Counter"));
  ASSERT_EQ(S_OK, system.SetValue(english, u"Counter", List(englishCounters)));

  // Texts in a string resource go in in each of its languages; one without a
  // key of its own (French) falls back to the system's, installed already.
  a.stringIdToGive = 37;
  system.resourceBlock = 37 / 16 + 1;
  system.resourceLanguages = {0x407, 0x40C};
  ASSERT_EQ(S_OK, a.LoadStrings(kModule));
  EXPECT_EQ(u"1|1847|2|System|102|Motor|104|Pakete|106|Bytes|108|Zustand|110|Adapter|112|Rahmen|114|Fehler|116|"
            u"Hersteller|200|Später",
            PerfRegistry::Read(german, u"Counter"));
  EXPECT_EQ(u"009 007 ", PerfRegistry::Read(a.ClassKey(), u"Languages"));
  system.systemLanguage = 0x411;
  EXPECT_EQ(S_FALSE, a.InstallStrings(0x40C, kModule));
  system.resourceLanguages = {};
  EXPECT_EQ(S_FALSE, a.LoadStrings(kModule));

  // Unregistering takes the titles out of every language they went into.
  ASSERT_EQ(S_OK, UnregisterProviders(table));
  EXPECT_EQ(englishBefore, PerfRegistry::Read(english, u"Counter"));
  EXPECT_EQ(germanBefore, PerfRegistry::Read(german, u"Counter"));
  EXPECT_EQ(100u, PerfRegistry::Number(PerfRegistry::kPerflib, u"Last Counter"));
}

TEST(PerfCollect, ServesTheDefinitionOfMapWhenNoWriterRuns) {
  PerfRegistry registry;
  TestPerfSystem system;
  TestCounters registrarA(system, u"A"), registrarB(system, u"B");
  ASSERT_EQ(S_OK, registrarA.Register(kModule));
  ASSERT_EQ(S_OK, registrarB.Register(kModule));
  // The classes as a monitor's process loads them.
  TestCounters a(system, u"A"), b(system, u"B");
  PerfProvider* const table[] = {&a, &b};

  // Each object's header and definitions; a zero block for an object without
  // instances, none for one with.
  constexpr DWORD kEngine = 64 + 3 * 40 + 40, kAdapter = 64 + 3 * 40;
  const Collection all = Collect(table, u"Global", 4096);
  ASSERT_EQ(0u, all.result);
  ASSERT_EQ(4u, all.objects);
  EXPECT_EQ(2 * (kEngine + kAdapter), all.bytes);
  const Collected& engine = all.parsed[0];
  EXPECT_EQ(102u, engine.header.ObjectNameTitleIndex);
  EXPECT_EQ(PERF_NO_INSTANCES, engine.header.NumInstances);
  ASSERT_EQ(1u, engine.blocks.size());
  std::vector<uint8_t> zeroBlock(40, 0);
  zeroBlock[0] = 40;
  EXPECT_EQ(zeroBlock, engine.blocks[0]);
  EXPECT_EQ(0, all.parsed[1].header.NumInstances);
  EXPECT_EQ(118u, all.parsed[2].header.ObjectNameTitleIndex);

  struct Request {
    const char16_t* text;
    std::vector<DWORD> names;  // of the objects collected
  } requests[] = {
      {u"gLoBaL", {102, 110, 118, 126}}, {u"110", {110}},         {u"7 126  102", {102, 126}},
      {u"Costly", {}},                   {u"", {}},               {u"102x 1100", {}},
      {nullptr, {}},
  };
  for (const Request& r : requests) {
    const Collection c = Collect(table, r.text, 4096);
    EXPECT_EQ(0u, c.result);
    std::vector<DWORD> names;
    for (const Collected& o : c.parsed) names.push_back(o.header.ObjectNameTitleIndex);
    EXPECT_EQ(r.names, names) << (r.text ? ToUtf8(r.text) : "null");
  }

  // Room for the first class but not the second: nothing at all.
  for (DWORD room : {DWORD(0), kEngine - 1, kEngine + kAdapter + kEngine}) {
    const Collection shortRoom = Collect(table, u"Global", room);
    EXPECT_EQ(ERROR_MORE_DATA, shortRoom.result) << room;
    EXPECT_EQ(0u, shortRoom.bytes);
    EXPECT_EQ(0u, shortRoom.objects);
    EXPECT_FALSE(shortRoom.dataMoved);
  }
}

TEST(PerfCollect, CopiesLiveInstancesOutOfTheWritersPages) {
  PerfRegistry registry;
  TestPerfSystem system;
  TestCounters registrar(system);
  ASSERT_EQ(S_OK, registrar.Register(kModule));
  TestCounters monitor(system);
  PerfProvider* const table[] = {&monitor};
  ASSERT_EQ(0, Collect(table, u"Global", 4096).parsed.at(1).header.NumInstances);  // no writer yet

  using V = PageWriter::Value;
  auto adapter = [](uint32_t instance, bool inUse, std::u16string_view name, uint32_t frames, uint64_t errors,
                    std::string vendor) {
    return PageWriter::Entry(72, 2, instance, inUse, name,
                             {V{20, PageWriter::Le32(frames)}, V{24, PageWriter::Le64(errors)},
                              V{32, std::vector<uint8_t>(vendor.begin(), vendor.end())}});
  };
  const std::u16string state = u"runnin";  // six characters, no terminator
  {
    PageWriter writer(monitor, SaveDefinition(registrar.Objects()));
    writer.AddPage();
    writer.AddPage();
    writer.Write(0, 0, adapter(1, true, u"eth0", 7, (uint64_t(1) << 40) + 5, "Intel"));
    writer.Write(0, 72, adapter(2, false, u"eth1", 8, 8, "Gone"));  // freed
    writer.Write(0, 144, PageWriter::Entry(48, 1, 0, true, u"",
                                           {V{20, PageWriter::Le32(1000)}, V{24, PageWriter::Le64(123456789012)},
                                            V{32, std::vector<uint8_t>(reinterpret_cast<const uint8_t*>(state.data()),
                                                                       reinterpret_cast<const uint8_t*>(state.data()) + 12)}}));
    writer.WriteWord(0, 192, 0xFFFFFFFF);  // on at the next page
    writer.Write(1, 0, adapter(3, true, u"wlan0", 9, 10, std::string("Real\0", 5)));

    const Collection c = Collect(table, u"Global", 4096);
    ASSERT_EQ(0u, c.result);
    ASSERT_EQ(2u, c.parsed.size());
    const Collected& engine = c.parsed[0];
    EXPECT_EQ(PERF_NO_INSTANCES, engine.header.NumInstances);
    ASSERT_EQ(1u, engine.blocks.size());
    EXPECT_EQ(40u, At<DWORD>(engine.blocks[0], 0));
    EXPECT_EQ(1000u, At<DWORD>(engine.blocks[0], 8));
    EXPECT_EQ(123456789012u, At<uint64_t>(engine.blocks[0], 16));
    EXPECT_EQ(u"runni", std::u16string(reinterpret_cast<const char16_t*>(engine.blocks[0].data() + 24)));
    const Collected& adapters = c.parsed[1];
    EXPECT_EQ((std::vector<std::u16string>{u"eth0", u"wlan0"}), adapters.names);
    ASSERT_EQ(2u, adapters.blocks.size());
    EXPECT_EQ(7u, At<DWORD>(adapters.blocks[0], 8));
    EXPECT_EQ((uint64_t(1) << 40) + 5, At<uint64_t>(adapters.blocks[0], 16));
    EXPECT_EQ("Inte", std::string(reinterpret_cast<const char*>(adapters.blocks[0].data() + 24)));
    EXPECT_EQ(10u, At<uint64_t>(adapters.blocks[1], 16));
    EXPECT_EQ("Real", std::string(reinterpret_cast<const char*>(adapters.blocks[1].data() + 24)));

    // A page the writer adds later is found by the next collection; an entry
    // of an object id nobody defines is passed over.
    writer.Write(1, 72, PageWriter::Entry(24, 99, 0, true, u"", {}));
    writer.WriteWord(1, 96, 0xFFFFFFFF);
    writer.AddPage();
    writer.Write(2, 0, adapter(4, true, u"ppp0", 11, 12, "Mod"));
    const Collection more = Collect(table, u"110", 4096);
    ASSERT_EQ(1u, more.parsed.size());
    EXPECT_EQ((std::vector<std::u16string>{u"eth0", u"wlan0", u"ppp0"}), more.parsed[0].names);

    // Room for the header but not the instances.
    const Collection shortRoom = Collect(table, u"110", 64 + 3 * 40 + 40);
    EXPECT_EQ(ERROR_MORE_DATA, shortRoom.result);
    EXPECT_EQ(0u, shortRoom.objects);
    EXPECT_FALSE(shortRoom.dataMoved);
  }
  // Closed and with its writer gone, the class serves Map again.
  monitor.Close();
  EXPECT_EQ(0, Collect(table, u"110", 4096).parsed.at(0).header.NumInstances);
}

}  // namespace
