#include "cli/frame_ring.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using zemo::cli::FrameRing;

// A producer far faster than its consumer, and the other way round, through
// a ring of two batches: every entry arrives once, in order, with what the
// producer put in it, ticks and the end included.
TEST(FrameRing, EntriesArriveOnceAndInOrderWhateverSideIsFaster) {
  for (bool slowConsumer : {true, false}) {
    FrameRing ring(2 * FrameRing::kBatch);
    constexpr uint64_t kEntries = 20000;
    std::thread producer([&] {
      for (uint64_t i = 0; i < kEntries; ++i) {
        FrameRing::Entry& e = ring.Acquire();
        const bool tick = i % 1000 == 999;
        e.kind = tick ? FrameRing::Kind::kIdle : FrameRing::Kind::kFrame;
        e.now = i;
        e.decoded.frame.wireLength = static_cast<uint32_t>(i);
        ring.Commit(tick);
        if (!slowConsumer && i % 64 == 0) std::this_thread::yield();
      }
      ring.Acquire().kind = FrameRing::Kind::kEnd;
      ring.Commit(true);
    });
    uint64_t seen = 0;
    for (;;) {
      FrameRing::Entry& e = ring.Next();
      if (e.kind == FrameRing::Kind::kEnd) break;
      ASSERT_EQ(seen, e.now);
      ASSERT_EQ(seen % 1000 == 999 ? FrameRing::Kind::kIdle : FrameRing::Kind::kFrame, e.kind);
      if (e.kind == FrameRing::Kind::kFrame) {
        ASSERT_EQ(seen, e.decoded.frame.wireLength);
      }
      ++seen;
      if (slowConsumer && seen % 64 == 0) std::this_thread::yield();
    }
    producer.join();
    EXPECT_EQ(kEntries, seen);
  }
}

}  // namespace
