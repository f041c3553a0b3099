// The records a performance monitor reads back from a counter provider, in
// the layouts the operating system publishes for them, and the words of a
// counter type that the provider looks at.
//
// The name and help title fields, pointers on 32-bit systems, are always 0
// here and kept as 32-bit words, as on 64-bit systems.
#pragma once

#include <bit>
#include <cstring>

#include "platform/types.h"

namespace zemo {

static_assert(std::endian::native == std::endian::little, "the records' words are read in place");

// The word at any offset of a buffer.
inline uint32_t WordAt(const uint8_t* bytes, size_t offset) {
  uint32_t w;
  std::memcpy(&w, bytes + offset, 4);
  return w;
}

inline uint64_t RoundUp(uint64_t v, uint64_t to) { return (v + to - 1) / to * to; }

// One performance object: its header, then its counter definitions, then
// its instances or its one counter block.
struct PERF_OBJECT_TYPE {
  DWORD TotalByteLength;
  DWORD DefinitionLength;
  DWORD HeaderLength;
  DWORD ObjectNameTitleIndex;
  DWORD ObjectNameTitle;
  DWORD ObjectHelpTitleIndex;
  DWORD ObjectHelpTitle;
  DWORD DetailLevel;
  DWORD NumCounters;
  LONG DefaultCounter;
  LONG NumInstances;
  DWORD CodePage;
  LARGE_INTEGER PerfTime;
  LARGE_INTEGER PerfFreq;
};
static_assert(sizeof(PERF_OBJECT_TYPE) == 64);

struct PERF_COUNTER_DEFINITION {
  DWORD ByteLength;
  DWORD CounterNameTitleIndex;
  DWORD CounterNameTitle;
  DWORD CounterHelpTitleIndex;
  DWORD CounterHelpTitle;
  LONG DefaultScale;
  DWORD DetailLevel;
  DWORD CounterType;
  DWORD CounterSize;
  DWORD CounterOffset;
};
static_assert(sizeof(PERF_COUNTER_DEFINITION) == 40);

// An instance, followed by its UTF-16 name and then its counter block.
struct PERF_INSTANCE_DEFINITION {
  DWORD ByteLength;
  DWORD ParentObjectTitleIndex;
  DWORD ParentObjectInstance;
  LONG UniqueID;
  DWORD NameOffset;
  DWORD NameLength;  // bytes, the terminator included
};
static_assert(sizeof(PERF_INSTANCE_DEFINITION) == 24);

// The instance count of an object that has no instances.
inline constexpr LONG PERF_NO_INSTANCES = -1;

// The size class of a counter type, and the flag of a narrow string.
inline constexpr DWORD PERF_SIZE_MASK = 0x300;
inline constexpr DWORD PERF_SIZE_DWORD = 0x000;
inline constexpr DWORD PERF_SIZE_LARGE = 0x100;
inline constexpr DWORD PERF_SIZE_ZERO = 0x200;
inline constexpr DWORD PERF_SIZE_VARIABLE_LEN = 0x300;
inline constexpr DWORD PERF_TEXT_ASCII = 0x10000;

// A counter block starts with its length; the values begin at this offset.
inline constexpr DWORD kCounterBlockHeader = 8;

}  // namespace zemo
