// A performance class's collection: its definition and its writer's pages,
// and the objects, instances and counter blocks copied out of them.
#include <cstring>
#include <new>
#include <string>

#include "perfcounters/perf_provider.h"
#include "perfcounters/perf_titles.h"
#include "platform/strings.h"

namespace zemo {
namespace {

constexpr uint32_t kEnd = 0;
constexpr uint32_t kNextPage = 0xFFFFFFFF;
// Size, object id, instance id, in use, name offset.
constexpr uint32_t kEntryHeader = 20;
// An entry up to this size is copied on the stack.
constexpr size_t kStackEntry = 1024;

struct MoreData {};

// Whether a request's words name an object by its name id.
bool Named(std::span<const std::u16string_view> words, DWORD nameIndex) {
  for (std::u16string_view word : words) {
    size_t digits = 0;
    if (DecimalId(word, &digits) == nameIndex && digits == word.size()) return true;
  }
  return false;
}

// The bytes a counter's value takes in the writer's record.
uint64_t SourceSize(const PerfCounter& c) {
  switch (c.counterType & PERF_SIZE_MASK) {
    case PERF_SIZE_VARIABLE_LEN:
      return uint64_t(c.maxStringLength) * ((c.counterType & PERF_TEXT_ASCII) ? 1 : 2);
    default:
      return CounterSize(c);
  }
}

}  // namespace

// The caller's buffer: every write takes its room first, and a write that
// does not fit ends the collection.
class PerfProvider::Output {
 public:
  Output(uint8_t* base, DWORD room) : m_base(base), m_room(base ? room : 0) {}
  // `bytes` of zeros at the end, and where they start.
  size_t Take(uint64_t bytes) {
    if (bytes > m_room - m_used) throw MoreData();
    const size_t at = m_used;
    if (bytes) std::memset(m_base + at, 0, bytes);
    m_used += bytes;
    return at;
  }
  uint8_t* At(size_t offset) { return m_base + offset; }
  DWORD Used() const { return static_cast<DWORD>(m_used); }

 private:
  uint8_t* m_base;
  uint64_t m_room;
  uint64_t m_used = 0;
};

std::u16string PerfProvider::PageName(uint32_t number) {
  std::u16string digits = FromUtf8(std::to_string(number));
  if (digits.size() < 3) digits.insert(0, 3 - digits.size(), u'0');
  return u"Global\\ATLPERF_" + GetAppName() + u"_" + digits;
}

bool PerfProvider::OpenPages() {
  if (m_pages.empty()) {
    m_pageSize = m_system.PageSize();
    const uint8_t* first = m_system.MapPage(PageName(0), m_pageSize);
    if (!first) return true;  // no writer: no pages
    m_pages.push_back(first);
    // The definition, copied once: the writer is free to change its page.
    const uint32_t h = m_pageSize >= 4 ? WordAt(first, 0) : 0;
    if (h < 8 || uint64_t(h) + 4 > m_pageSize) return Close(), false;
    try {
      const std::vector<uint8_t> definition(first, first + h);
      if (FAILED(LoadDefinition(definition, m_system.PerformanceFrequency(), m_objects))) return Close(), false;
    } catch (const std::bad_alloc&) {
      return Close(), false;
    }
    m_loaded = true;
    m_indexAt = h;
    m_firstEntry = static_cast<uint32_t>(RoundUp(uint64_t(h) + 4, 16));
  }
  // The pages the writer added since; each names its own number.
  while (WordAt(m_pages.back(), m_indexAt) == m_pages.size() - 1) {
    const uint8_t* next = m_system.MapPage(PageName(static_cast<uint32_t>(m_pages.size())), m_pageSize);
    if (!next) break;
    m_pages.push_back(next);
  }
  return true;
}

bool PerfProvider::LoadMap() {
  RegistryValue map;
  if (FAILED(m_system.QueryValue(ClassKey(), u"Map", map)) || map.type != REG_BINARY) return false;
  if (FAILED(LoadDefinition(map.data, m_system.PerformanceFrequency(), m_objects))) return false;
  m_loaded = true;
  return true;
}

DWORD PerfProvider::Collect(const char16_t* request, void** data, DWORD* room, DWORD* objects) {
  if (!data || !room || !objects) return ERROR_INVALID_PARAMETER;
  uint8_t* const start = static_cast<uint8_t*>(*data);
  auto nothing = [&](DWORD result) {
    *room = 0;
    *objects = 0;
    *data = start;
    return result;
  };
  DWORD result = 0;
  try {
    if (!OpenPages()) return nothing(0);
    if ((!m_loaded || m_objects.empty()) && !LoadMap()) return nothing(0);
    // "Global" in any case of letters, or name ids between blanks.
    const std::u16string_view text = request ? request : u"";
    const bool global = WideEqualNoCase(text, u"Global");
    const std::vector<std::u16string_view> words = Words(text);
    Output out(start, *room);
    DWORD collected = 0;
    for (const PerfObject& o : m_objects)
      if (global || Named(words, o.nameIndex)) {
        CollectObject(o, out);
        ++collected;
      }
    *room = out.Used();
    *objects += collected;
    *data = start + out.Used();
    return 0;
  } catch (const MoreData&) {
    result = ERROR_MORE_DATA;
  } catch (const std::bad_alloc&) {
    result = ERROR_MORE_DATA;
  } catch (...) {
    result = 0;
  }
  return nothing(result);
}

void PerfProvider::CollectObject(const PerfObject& object, Output& out) const {
  const size_t headerAt = out.Take(sizeof(PERF_OBJECT_TYPE));
  for (const PerfCounter& c : object.counters)
    std::memcpy(out.At(out.Take(sizeof(PERF_COUNTER_DEFINITION))), &c.definition, sizeof(PERF_COUNTER_DEFINITION));
  PERF_OBJECT_TYPE header = object.header;

  // The entries, page by page: 0 ends them, 0xFFFFFFFF goes on at the next
  // page, and an entry that does not fit its page ends them too.
  bool found = false;
  for (const uint8_t* page : m_pages) {
    uint64_t at = m_firstEntry;
    uint32_t size = kEnd;
    while (at + 4 <= m_pageSize && (size = WordAt(page, at)) != kEnd && size != kNextPage) {
      if (size < kEntryHeader || size > m_pageSize - at) {
        size = kEnd;
        break;
      }
      if (WordAt(page, at + 4) == object.id &&
          CollectEntry(object, page, static_cast<uint32_t>(at), header, out))
        found = true;
      at += size;
    }
    if (size != kNextPage) break;
  }

  if (object.instanceLess && !found) {
    const size_t block = out.Take(object.blockLength);
    std::memcpy(out.At(block), &object.blockLength, 4);
    header.TotalByteLength += object.blockLength;
  }
  std::memcpy(out.At(headerAt), &header, sizeof header);
}

bool PerfProvider::CollectEntry(const PerfObject& object, const uint8_t* page, uint32_t at, PERF_OBJECT_TYPE& header,
                                Output& out) const {
  // One copy of the entry, then tests of the copy alone.
  const uint32_t instance = WordAt(page, at + 8);
  const uint32_t size = WordAt(page, at);
  if (size < kEntryHeader || size > m_pageSize - at) return false;
  uint8_t onStack[kStackEntry];
  std::vector<uint8_t> onHeap;
  uint8_t* entry = onStack;
  if (size > kStackEntry) {
    onHeap.resize(size);
    entry = onHeap.data();
  }
  std::memcpy(entry, page + at, size);
  if (WordAt(entry, 0) != size || WordAt(entry, 4) != object.id || WordAt(entry, 8) != instance ||
      WordAt(entry, 12) == 0)
    return false;
  for (const PerfCounter& c : object.counters)
    if (uint64_t(c.dataOffset) + SourceSize(c) > size) return false;
  const uint32_t nameAt = WordAt(entry, 16);
  if (!object.instanceLess && nameAt > size) return false;

  if (object.instanceLess) {
    header.NumInstances = PERF_NO_INSTANCES;
  } else {
    // The name runs to its terminator or the entry's end.
    size_t units = 0;
    while (nameAt + 2 * (units + 1) <= size && (entry[nameAt + 2 * units] | entry[nameAt + 2 * units + 1]))
      ++units;
    const uint64_t nameBytes = 2 * (units + 1);
    const uint64_t length = sizeof(PERF_INSTANCE_DEFINITION) + RoundUp(nameBytes, 8);
    const size_t instanceAt = out.Take(length);
    PERF_INSTANCE_DEFINITION d{};
    d.ByteLength = static_cast<DWORD>(length);
    d.UniqueID = -1;
    d.NameOffset = sizeof(PERF_INSTANCE_DEFINITION);
    d.NameLength = static_cast<DWORD>(nameBytes);
    std::memcpy(out.At(instanceAt), &d, sizeof d);
    std::memcpy(out.At(instanceAt + sizeof d), entry + nameAt, 2 * units);
    ++header.NumInstances;
    header.TotalByteLength += static_cast<DWORD>(length);
  }

  const size_t blockAt = out.Take(object.blockLength);
  uint8_t* block = out.At(blockAt);
  std::memcpy(block, &object.blockLength, 4);
  for (const PerfCounter& c : object.counters) {
    const PERF_COUNTER_DEFINITION& d = c.definition;
    const uint8_t* value = entry + c.dataOffset;
    if ((c.counterType & PERF_SIZE_MASK) != PERF_SIZE_VARIABLE_LEN) {
      std::memcpy(block + d.CounterOffset, value, d.CounterSize);
    } else if (c.maxStringLength > 0) {
      // Up to one less than the maximum, and the terminator of the zeroed block.
      const size_t unit = (c.counterType & PERF_TEXT_ASCII) ? 1 : 2;
      size_t n = 0;
      while (n + 1 < c.maxStringLength && (value[n * unit] | (unit == 2 ? value[n * unit + 1] : 0))) ++n;
      std::memcpy(block + d.CounterOffset, value, n * unit);
    }
  }
  header.TotalByteLength += object.blockLength;
  return true;
}

void PerfProvider::Close() {
  for (const uint8_t* page : m_pages) m_system.UnmapPage(page, m_pageSize);
  m_pages.clear();
  m_objects.clear();
  m_loaded = false;
  m_indexAt = m_firstEntry = 0;
}

}  // namespace zemo
