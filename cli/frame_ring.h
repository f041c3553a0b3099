// FrameRing: the bounded hand-over from the thread that reads and decodes
// frames to the thread that feeds them to the engine, so that both cores
// work. Entries leave in the order they came in, so the engine sees the
// packets and ticks of a capture exactly as one thread would.
//
// Each side works on its own stretch of the ring and meets the other under
// the mutex only once a batch: the producer hands over every kBatch entries
// (and at once for a tick or the end), the consumer gives back what it has
// finished as often. An entry is reused, with its packet and its buffer,
// each time round, so the run allocates nothing once every buffer has held
// the largest frame.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "cli/analysis.h"

namespace zemo::cli {

class FrameRing {
 public:
  enum class Kind { kFrame, kIdle, kEnd };
  struct Entry {
    Kind kind = Kind::kEnd;
    ZemoTime now = 0;  // of kIdle: the clock of a quiet live capture
    DecodedFrame decoded;
  };

  static constexpr uint64_t kBatch = 32;

  // capacity: a power of two, at least two batches.
  explicit FrameRing(size_t capacity);

  // Producer: the next entry to fill, waiting while all are in use; handing
  // over what was filled before it first when it must wait.
  Entry& Acquire();
  // Producer: the entry from Acquire is filled. Hands over a whole batch,
  // or everything at once when `now` is set.
  void Commit(bool now);

  // Consumer: the next filled entry, waiting for one. It stays the
  // consumer's until the next call. The packet of the entry behind it, when
  // filled already, is fetched into this core's caches meanwhile.
  Entry& Next();

 private:
  void Publish();

  std::vector<Entry> m_entries;
  const uint64_t m_mask;

  std::mutex m_mutex;
  std::condition_variable m_filled, m_freed;
  uint64_t m_published = 0;  // entries handed to the consumer; under the mutex
  uint64_t m_released = 0;   // entries handed back to the producer; under the mutex
  // Who sleeps, under the mutex: a side is woken only then, and the
  // producer only once half the ring is free, so that the two threads meet
  // in the kernel once in many batches rather than once a batch.
  bool m_producerWaits = false;
  bool m_consumerWaits = false;

  uint64_t m_written = 0;    // producer's own: entries committed
  uint64_t m_freeUntil = 0;  // producer's own: entries below this are free to fill
  uint64_t m_read = 0;       // consumer's own: entries taken
  uint64_t m_available = 0;  // consumer's own: entries below this are filled
  uint64_t m_returned = 0;   // consumer's own: entries below this are given back
};

}  // namespace zemo::cli
