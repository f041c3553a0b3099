// Arbitrary bytes as the binary stream of an ErrorStats, in either form: the
// first byte picks the medium of the statistic that loads it, the rest is the
// stream. Whatever loads saves in the tagged form, which loads into a fresh
// object to the same bytes; the loaded statistic then takes a packet and ticks.
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "fuzz_counter_stats.h"
#include "network/error_stats.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zemo;
  using namespace zemo::fuzz;
  if (size < 1) return 0;
  auto context = MediumContext(data[0]);
  auto stats = AddedTo<ErrorStats>(context);
  HRESULT hr = LoadStream(stats.Get(), std::span<const uint8_t>(data + 1, size - 1));
  Require(hr == S_OK || hr == E_FAIL);
  if (FAILED(hr)) return 0;
  LONG count = 0;
  Require(stats->GetCounterCount(&count) == S_OK && count >= 0 && count <= 13);
  std::vector<uint8_t> saved = SavedBytes(stats->GetUnknown());
  Require(saved.size() == 24 + 9 * static_cast<size_t>(count));
  auto fresh = ErrorStats::Create();
  Require(LoadStream(fresh.Get(), saved) == S_OK);
  Require(SavedBytes(fresh->GetUnknown()) == saved);

  // The loaded medium and count drive the packet path; nothing may count past the count.
  const std::vector<BYTE> report = {0x10, 0x40, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x08, 0, 0, 0, 0, 0, 0,
                                    0x00, 0x20, 0x00, 0x29, 0x06, 0x2D, 1, 1, 1, 1, 0x04, 0x30, 0x00, 0x03};
  PacketBuilder p;
  p.Time(133500000000000000ull).Length(64).Data(report).Error().Status(0x3E);
  HRESULT packet = stats->ProcessPacket(p.Get());
  Require(packet == S_OK || (count == 0 && packet == E_FAIL));
  Require(stats->ProcessTime(133500002000000000ull) == packet);
  return 0;
}
