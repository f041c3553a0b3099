#include "perfcounters/perf_definition.h"

#include <cstring>
#include <new>

namespace zemo {
namespace {

constexpr size_t kEntryWords = 9;
constexpr size_t kEntryBytes = kEntryWords * 4;
constexpr size_t kPreamble = 8;

void PutWord(std::vector<uint8_t>& out, uint32_t w) {
  const size_t at = out.size();
  out.resize(at + 4);
  std::memcpy(out.data() + at, &w, 4);
}

void PutString(std::vector<uint8_t>& out, const std::u16string& text) {
  PutWord(out, static_cast<uint32_t>(text.size()));
  const size_t at = out.size();
  out.resize(at + RoundUp(text.size() * 2, 4), 0);
  std::memcpy(out.data() + at, text.data(), text.size() * 2);
}

// Fills an object's header and its counters' definitions, placing each
// counter in the counter block; false if the block outgrows 32 bits.
bool LayOut(PerfObject& object, int64_t frequency) {
  const uint64_t definitionLength =
      sizeof(PERF_OBJECT_TYPE) + sizeof(PERF_COUNTER_DEFINITION) * uint64_t(object.counters.size());
  if (definitionLength > UINT32_MAX) return false;
  PERF_OBJECT_TYPE& h = object.header;
  h = {};
  h.TotalByteLength = h.DefinitionLength = static_cast<DWORD>(definitionLength);
  h.HeaderLength = sizeof(PERF_OBJECT_TYPE);
  h.ObjectNameTitleIndex = object.nameIndex;
  h.ObjectHelpTitleIndex = object.helpIndex;
  h.DetailLevel = object.detailLevel;
  h.NumCounters = static_cast<DWORD>(object.counters.size());
  h.DefaultCounter = static_cast<LONG>(object.defaultCounter);
  h.NumInstances = object.instanceLess ? PERF_NO_INSTANCES : 0;
  h.PerfFreq.QuadPart = frequency;

  uint64_t offset = kCounterBlockHeader;
  for (PerfCounter& c : object.counters) {
    const uint64_t size = CounterSize(c);
    if (size == 4 || size == 8) offset = RoundUp(offset, size);
    PERF_COUNTER_DEFINITION& d = c.definition;
    d = {};
    d.ByteLength = sizeof(PERF_COUNTER_DEFINITION);
    d.CounterNameTitleIndex = c.nameIndex;
    d.CounterHelpTitleIndex = c.helpIndex;
    d.DefaultScale = c.defaultScale;
    d.DetailLevel = c.detailLevel;
    d.CounterType = c.counterType;
    d.CounterSize = static_cast<DWORD>(size);
    d.CounterOffset = static_cast<DWORD>(offset);
    offset += size;
    if (offset > UINT32_MAX - 7) return false;
  }
  object.blockLength = static_cast<DWORD>(RoundUp(offset, 8));
  return true;
}

}  // namespace

uint64_t CounterSize(const PerfCounter& counter) {
  switch (counter.counterType & PERF_SIZE_MASK) {
    case PERF_SIZE_DWORD:
      return 4;
    case PERF_SIZE_LARGE:
      return 8;
    case PERF_SIZE_ZERO:
      return 0;
    default: {
      const uint64_t unit = (counter.counterType & PERF_TEXT_ASCII) ? 1 : 2;
      return RoundUp(counter.maxStringLength * unit, 4);
    }
  }
}

std::vector<uint8_t> SaveDefinition(std::span<const PerfObject> objects) {
  std::vector<uint8_t> out;
  uint32_t entries = 0;
  PutWord(out, 0);  // total size, known at the end
  PutWord(out, 0);
  for (const PerfObject& o : objects) {
    for (uint32_t w : {1u, o.id, o.detailLevel, o.defaultCounter, o.instanceLess ? uint32_t(PERF_NO_INSTANCES) : 0u,
                       o.recordSize, o.maxInstanceName, o.nameIndex, o.helpIndex})
      PutWord(out, w);
    for (const PerfCounter& c : o.counters)
      for (uint32_t w : {0u, c.id, c.detailLevel, c.counterType, c.maxStringLength, c.dataOffset,
                         static_cast<uint32_t>(c.defaultScale), c.nameIndex, c.helpIndex})
        PutWord(out, w);
    entries += 1 + static_cast<uint32_t>(o.counters.size());
  }
  for (const PerfObject& o : objects) {
    PutString(out, o.name);
    for (const PerfCounter& c : o.counters) PutString(out, c.name);
  }
  const uint32_t total = static_cast<uint32_t>(out.size());
  std::memcpy(out.data(), &total, 4);
  std::memcpy(out.data() + 4, &entries, 4);
  return out;
}

HRESULT LoadDefinition(std::span<const uint8_t> bytes, int64_t frequency, std::vector<PerfObject>& objects) {
  objects.clear();
  auto fail = [&] {
    objects.clear();
    return E_FAIL;
  };
  if (bytes.size() < kPreamble) return fail();
  const uint32_t total = WordAt(bytes.data(), 0);
  const uint32_t count = WordAt(bytes.data(), 4);
  if (total < kPreamble || total > bytes.size()) return fail();
  bytes = bytes.first(total);
  if (count > (total - kPreamble) / kEntryBytes) return fail();
  const size_t stringsAt = kPreamble + count * kEntryBytes;
  const bool hasStrings = stringsAt != total;

  try {
    size_t at = stringsAt;
    for (uint32_t i = 0; i < count; ++i) {
      uint32_t w[kEntryWords];
      std::memcpy(w, bytes.data() + kPreamble + i * kEntryBytes, kEntryBytes);
      std::u16string name;
      if (hasStrings) {
        if (total - at < 4) return fail();
        const uint32_t length = WordAt(bytes.data(), at);
        at += 4;
        if (length > (total - at) / 2) return fail();
        const size_t padded = RoundUp(uint64_t(length) * 2, 4);
        if (padded > total - at) return fail();
        name.resize(length);
        std::memcpy(name.data(), bytes.data() + at, size_t(length) * 2);
        at += padded;
      }
      if (w[0] == 1) {
        const LONG instanceLess = static_cast<LONG>(w[4]);
        if (instanceLess != PERF_NO_INSTANCES && instanceLess != 0) return fail();
        PerfObject& o = objects.emplace_back();
        o.id = w[1];
        o.detailLevel = w[2];
        o.defaultCounter = w[3];
        o.instanceLess = instanceLess == PERF_NO_INSTANCES;
        o.recordSize = w[5];
        o.maxInstanceName = w[6];
        o.nameIndex = w[7];
        o.helpIndex = w[8];
        o.name = std::move(name);
      } else if (w[0] == 0 && !objects.empty()) {
        PerfCounter& c = objects.back().counters.emplace_back();
        c.id = w[1];
        c.detailLevel = w[2];
        c.counterType = w[3];
        c.maxStringLength = w[4];
        c.dataOffset = w[5];
        c.defaultScale = static_cast<LONG>(w[6]);
        c.nameIndex = w[7];
        c.helpIndex = w[8];
        c.name = std::move(name);
      } else {
        return fail();  // an unknown kind, or a counter before any object
      }
    }
    for (PerfObject& o : objects)
      if (!LayOut(o, frequency)) return fail();
  } catch (const std::bad_alloc&) {
    objects.clear();
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

}  // namespace zemo
