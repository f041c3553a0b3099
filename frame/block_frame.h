// The u64 block frame of the second-generation wireless streams, with its
// section tags and checked counts.
//
// A block is a u64 length and its content; the length counts the whole
// block, its own eight bytes included. A reader steps to the block's end
// whatever it took from it, so a newer writer may append fields that an
// older reader skips.
//
// These streams report malformed input with standard exceptions (the texts
// below are fixed); at an interface boundary they come out as E_UNEXPECTED.
// Read and write failures of the stream itself are CAtlException, as in
// frame/stream_persist.h.
#pragma once

#include <stdexcept>

#include "frame/stream_persist.h"

namespace zemo {

// Raises std::invalid_argument("null pointer ioStream") for a null stream.
void CheckBlockStream(IStream* ioStream);

// Remembers the position and writes eight zero bytes; End() writes the length.
class BlockWriter {
 public:
  explicit BlockWriter(IStream* ioStream);
  void End();

 private:
  IStream* m_stream;
  uint64_t m_start;
};

// Remembers the position and reads the length; End() seeks to the block's end.
class BlockReader {
 public:
  explicit BlockReader(IStream* ioStream);
  uint64_t Length() const noexcept { return m_length; }
  // To start + length, unless that is negative as a signed 64-bit value.
  void End();

 private:
  IStream* m_stream;
  uint64_t m_start;
  uint64_t m_length;
};

// One block around body(); an exception from body leaves the frame open.
template <class F>
void WriteBlock(IStream* ioStream, F&& body) {
  BlockWriter block(ioStream);
  body();
  block.End();
}

template <class F>
void ReadBlock(IStream* ioStream, F&& body) {
  BlockReader block(ioStream);
  body();
  block.End();
}

// Section tags: written as u32, compared at once on reading. A different
// tag raises std::runtime_error("!( inSyncTag == nTag )").
void WriteSyncTag(IStream* ioStream, uint32_t nTag);
void ReadSyncTag(IStream* ioStream, uint32_t inSyncTag);

[[noreturn]] void ThrowBelowRange();
[[noreturn]] void ThrowAboveRange();

// A count read from a stream must lie in [inMin, inMax]; otherwise
// std::out_of_range with the text of the failed comparison.
template <class T, class M1, class M2>
T CheckRange(T inVal, M1 inMin, M2 inMax) {
  if (inVal < static_cast<T>(inMin)) ThrowBelowRange();
  if (static_cast<T>(inMax) < inVal) ThrowAboveRange();
  return inVal;
}

template <class T, class M1, class M2>
T ReadRanged(IStream* ioStream, M1 inMin, M2 inMax) {
  CheckBlockStream(ioStream);
  return CheckRange(ReadValue<T>(ioStream), inMin, inMax);
}

}  // namespace zemo
