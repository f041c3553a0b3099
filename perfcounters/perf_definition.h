// The definition of a performance class: its objects, each with its
// counters, and the one binary form that the definition takes both in the
// registry value "Map" and at the start of a writer's first page. All words
// are u32, little-endian:
//
//   total size (this word included), entry count,
//   per entry nine words, each object followed by its counters,
//   then, unless total size = 8 + 36 x entry count, one string per entry in
//   the same order: a word with its length in UTF-16 units, the units
//   without a terminator, padded to a multiple of 4 bytes.
//
//   word   object entry             counter entry
//   0      1                        0
//   1      id                       id
//   2      detail level             detail level
//   3      default counter          counter type
//   4      instance-less (-1 or 0)  maximum string length
//   5      record size              data offset
//   6      maximum instance name    default scale
//   7      name index               name index
//   8      help index               help index
//
// A loaded definition also carries what a collection copies out as it
// stands: each object's header and each counter's definition, with the
// counters laid out in a counter block.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "perfcounters/perf_records.h"

namespace zemo {

struct PerfCounter {
  DWORD id = 0;
  std::u16string name{};
  std::u16string help{};
  DWORD detailLevel = 0;
  DWORD counterType = 0;
  LONG defaultScale = 0;
  DWORD maxStringLength = 0;  // characters; 0 for a number
  DWORD dataOffset = 0;       // of the value in the writer's record
  DWORD nameIndex = 0;        // title ids; 0 until registered
  DWORD helpIndex = 0;
  PERF_COUNTER_DEFINITION definition{};
};

struct PerfObject {
  DWORD id = 0;
  std::u16string name{};
  std::u16string help{};
  DWORD detailLevel = 0;
  DWORD defaultCounter = 0;
  bool instanceLess = false;
  DWORD recordSize = 0;       // bytes of the writer's record of one instance
  DWORD maxInstanceName = 0;  // characters
  DWORD nameIndex = 0;
  DWORD helpIndex = 0;
  PERF_OBJECT_TYPE header{};
  DWORD blockLength = kCounterBlockHeader;  // of one counter block, a multiple of 8
  std::vector<PerfCounter> counters{};
};

// The bytes a counter takes in a counter block, by its type's size class.
uint64_t CounterSize(const PerfCounter& counter);

// The binary form of a definition, with every object's and counter's name.
std::vector<uint8_t> SaveDefinition(std::span<const PerfObject> objects);

// Replaces `objects` with the definition in `bytes` (which may run on past
// its total size) and lays each object out; `frequency` goes into the
// headers. E_FAIL for a malformed definition, which leaves `objects` empty.
HRESULT LoadDefinition(std::span<const uint8_t> bytes, int64_t frequency, std::vector<PerfObject>& objects);

}  // namespace zemo
