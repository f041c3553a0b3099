// Binary stream persistence shared by every class: loading and saving a
// nested object, typed reads and writes of raw little-endian records, and the
// count fix-up of filtered tables.
//
// Failures are raised as CAtlException: a failed Read or Write with its own
// status, a short read or write with E_FAIL, a null stream with E_POINTER.
#pragma once

#include <algorithm>
#include <bit>
#include <span>
#include <type_traits>
#include <vector>

#include "platform/interfaces.h"
#include "platform/stream.h"

namespace zemo {

// The object's IPersistStream Load or Save. Null arguments give E_POINTER;
// an object without IPersistStream gives the QueryInterface status.
HRESULT LoadObjectFromStream(IUnknown* object, IStream* stream);
HRESULT SaveObjectToStream(IUnknown* object, IStream* stream, BOOL clearDirty);

// Exactly `bytes` bytes, in as many Read/Write calls as a 32-bit count needs
// (one for anything below 4 GiB).
void ReadBytes(IStream* stream, void* data, size_t bytes);
void WriteBytes(IStream* stream, const void* data, size_t bytes);

// Records travel as their raw bytes; this code runs on little-endian hosts
// only, so raw bytes are the little-endian form.
static_assert(std::endian::native == std::endian::little, "stream records are written as raw little-endian bytes");

template <class T>
inline constexpr bool kStreamRecord = std::is_trivially_copyable_v<T> && !std::is_pointer_v<T>;

template <class T>
void WriteValue(IStream* stream, const T& value) {
  static_assert(kStreamRecord<T>);
  WriteBytes(stream, &value, sizeof(T));
}

template <class T>
void ReadValue(IStream* stream, T& value) {
  static_assert(kStreamRecord<T>);
  ReadBytes(stream, &value, sizeof(T));
}

template <class T>
T ReadValue(IStream* stream) {
  T value{};
  ReadValue(stream, value);
  return value;
}

// A run of records in one Write (or Read) call: a table of a million rows
// goes out at memory speed instead of one call per row.
template <class T>
void WriteRecords(IStream* stream, std::span<const T> records) {
  static_assert(kStreamRecord<T>);
  WriteBytes(stream, records.data(), records.size_bytes());
}

template <class T>
void ReadRecords(IStream* stream, std::span<T> records) {
  static_assert(kStreamRecord<T>);
  ReadBytes(stream, records.data(), records.size_bytes());
}

// `count` records read from a stream whose count field may lie: the array
// grows with what actually arrives, a chunk at a time, so a hostile count
// costs no more memory than the bytes behind it. A short stream raises E_FAIL.
template <class T>
std::vector<T> ReadRecordArray(IStream* stream, uint64_t count) {
  static_assert(kStreamRecord<T>);
  constexpr uint64_t kChunk = (64 * 1024) / sizeof(T) + 1;
  std::vector<T> records;
  while (records.size() < count) {
    size_t have = records.size();
    records.resize(have + static_cast<size_t>(std::min<uint64_t>(kChunk, count - have)));
    ReadRecords(stream, std::span<T>(records).subspan(have));
  }
  return records;
}

// The position, by Seek 0 from the present; and an absolute Seek.
uint64_t StreamPosition(IStream* stream);
void StreamSeekTo(IStream* stream, uint64_t position);

// The count fix-up. A filtered table writes the total count of its entries,
// then only those that pass; if fewer went out, the count field is corrected
// afterwards and the stream left behind the entries. So the stream must be
// seekable.
//
//   CountFixup<ULONG> rows(stream, total);
//   for (...) if (passes) { WriteValue(stream, row); rows.Add(); }
//   rows.Finish();
template <class Count = ULONG>
class CountFixup {
  static_assert(std::is_integral_v<Count>);

 public:
  CountFixup(IStream* stream, Count total) : m_stream(stream), m_total(total) {
    m_start = StreamPosition(stream);
    WriteValue(stream, total);
  }

  void Add(Count n = 1) noexcept { m_written += n; }
  Count Written() const noexcept { return m_written; }

  // Rewrites the count field if it differs from what was written.
  void Finish() {
    if (m_written == m_total) return;
    uint64_t end = StreamPosition(m_stream);
    StreamSeekTo(m_stream, m_start);
    WriteValue(m_stream, m_written);
    StreamSeekTo(m_stream, end);
  }

 private:
  IStream* m_stream;
  Count m_total;
  Count m_written = 0;
  uint64_t m_start = 0;
};

// The same with a callback: body(CountFixup&) writes the entries and counts them.
template <class Count = ULONG, class F>
Count WriteCounted(IStream* stream, Count total, F&& body) {
  CountFixup<Count> fixup(stream, total);
  body(fixup);
  fixup.Finish();
  return fixup.Written();
}

}  // namespace zemo
