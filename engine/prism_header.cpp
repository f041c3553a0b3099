// Prism: message code (u32), message length (u32), device name (16 bytes),
// then items of 12 bytes: identifier (u32), status (u16, 0 when supplied),
// length (u16), value (u32). The items stand in a fixed order: host time,
// MAC time, channel, RSSI, signal quality, signal, noise, rate (500 kbit/s
// units), transmitted, frame length. The header is in the byte order of
// the machine that wrote it, which its length tells.
//
// Drivers put many things in the signal fields; only a value that can be a
// received power in dBm (-120 to -1) is taken as one.
#include "engine/radio_reading.h"

namespace zemo {
namespace {

constexpr uint32_t kItemsStart = 24;
constexpr uint32_t kItemSize = 12;
enum Item : uint32_t { kChannel = 2, kRssi = 3, kSignal = 5, kNoise = 6, kRate = 7 };

struct Prism {
  const uint8_t* d;
  uint32_t end;
  bool bigEndian;

  uint32_t U32(uint32_t at) const {
    return bigEndian ? uint32_t(d[at]) << 24 | uint32_t(d[at + 1]) << 16 | uint32_t(d[at + 2]) << 8 | d[at + 3]
                     : uint32_t(d[at]) | uint32_t(d[at + 1]) << 8 | uint32_t(d[at + 2]) << 16 | uint32_t(d[at + 3]) << 24;
  }
  uint16_t U16(uint32_t at) const {
    return bigEndian ? uint16_t(d[at] << 8 | d[at + 1]) : uint16_t(d[at] | d[at + 1] << 8);
  }
  // The value of a supplied item.
  bool Item(uint32_t index, int32_t* value) const {
    const uint32_t at = kItemsStart + kItemSize * index;
    if (uint64_t(at) + kItemSize > end || U16(at + 4) != 0 || U16(at + 6) == 0) return false;
    *value = static_cast<int32_t>(U32(at + 8));
    return true;
  }
};

bool IsDbm(int32_t v) { return v >= -120 && v < 0; }

}  // namespace

RadioReading ReadPrism(const uint8_t* data, uint32_t length) noexcept {
  RadioReading r;
  r.headerLength = length;
  if (!data || length < 8) return r;
  Prism p{data, length, false};
  uint32_t declared = p.U32(4);
  if (declared > 0xFFFF) {
    p.bigEndian = true;
    declared = p.U32(4);
  }
  if (declared < kItemsStart || declared > 0xFFFF) return r;
  r.known = declared <= length;
  r.headerLength = r.known ? declared : length;
  p.end = r.headerLength;
  int32_t v = 0;
  if (p.Item(kChannel, &v)) r.haveChannel = ChannelOfNumber(v, false, &r.channel);
  if (p.Item(kSignal, &v) && IsDbm(v))
    r.signalDbm = static_cast<int8_t>(v);
  else if (p.Item(kRssi, &v) && IsDbm(v))
    r.signalDbm = static_cast<int8_t>(v);
  if (p.Item(kNoise, &v) && IsDbm(v)) r.noiseDbm = static_cast<int8_t>(v);
  if (p.Item(kRate, &v) && v > 0 && v <= 0xFFFF) r.rate = static_cast<uint16_t>(v);
  return r;
}

}  // namespace zemo
