// Arbitrary bytes as a frame of media type 1 that may be addressed to the
// ring error monitor; the first byte says whether it carries routing
// information. The frame sits in a buffer of exactly its length, so any read
// past the capture length is caught. The report's amounts must add up in
// counter 0, and the statistic must count exactly what the walk reads.
#include <memory>

#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "fuzz_counter_stats.h"
#include "network/error_stats.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  using namespace zemo::fuzz;
  if (size < 1 || size > 65536) return 0;
  const bool routed = data[0] & 1;
  const size_t length = size - 1;
  auto frame = std::make_unique<BYTE[]>(length);
  std::memcpy(frame.get(), data + 1, length);

  ErrorCounts counts{};
  ReadErrorReport(length ? frame.get() : nullptr, length, routed, counts);
  uint64_t sum = 0;
  for (size_t i = 1; i < counts.size(); ++i) sum += counts[i];
  Require(sum == counts[0]);

  auto context = MediumContext(3);  // media type 1
  auto stats = AddedTo<ErrorStats>(context);
  PacketBuilder p;
  p.Time(133500000000000000ull).Length(static_cast<ULONG>(length)).Status(routed ? kPacketStatusShort : 0);
  p.Target().SetData(frame.get(), static_cast<ULONG>(length));
  Require(stats->ProcessPacket(p.Get()) == S_OK);
  ErrorCounts seen{};
  Require(stats->GetCounters(13, seen.data()) == S_OK);
  Require(seen == counts);
  return 0;
}
