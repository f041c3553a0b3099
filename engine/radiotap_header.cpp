// Radiotap: a version byte (0), a pad byte, the header's length (u16), and
// presence words (u32, little-endian), each announcing fields by its bits;
// bit 31 says another word follows. The fields come after the last word, in
// bit order, each aligned to its natural size from the header's start. Bit
// 29 of a word starts the standard namespace again with the next word, bit
// 30 a vendor's namespace, whose data the reader skips by its length.
#include <cstring>

#include "engine/radio_reading.h"

namespace zemo {
namespace {

struct Shape {
  uint8_t align, size;
};

// Alignment and size of the standard fields 0 to 27; a field past them has
// no known size, and the reader stops there.
constexpr Shape kShapes[] = {
    {8, 8},  {1, 1}, {1, 1}, {2, 4}, {1, 2}, {1, 1}, {1, 1}, {2, 2}, {2, 2},  {2, 2},
    {1, 1},  {1, 1}, {1, 1}, {1, 1}, {2, 2}, {2, 2}, {1, 1}, {1, 1}, {4, 8},  {1, 3},
    {4, 8},  {2, 12}, {8, 12}, {2, 12}, {2, 12}, {2, 6}, {1, 1}, {2, 4},
};

constexpr uint32_t kDmgBand = 57000;  // MHz: 802.11ad and above

enum Field : uint32_t {
  kFlags = 1,
  kRate = 2,
  kChannel = 3,
  kSignal = 5,
  kNoise = 6,
  kXChannel = 18,
  kMcs = 19,
  kVht = 21,
  kHe = 23,
};

struct Bytes {
  const uint8_t* d;
  uint32_t end;  // reads stay below this

  bool Has(uint32_t at, uint32_t n) const { return uint64_t(at) + n <= end; }
  uint8_t U8(uint32_t at) const { return d[at]; }
  uint16_t U16(uint32_t at) const { return uint16_t(d[at] | d[at + 1] << 8); }
  uint32_t U32(uint32_t at) const { return uint32_t(U16(at)) | uint32_t(U16(at + 2)) << 16; }
};

// Subcarriers of an HE bandwidth or resource unit, by radiotap's code.
uint32_t HeSubcarriers(uint32_t code) {
  static constexpr uint32_t kSubcarriers[] = {234, 468, 980, 1960, 24, 48, 102, 234, 468, 980, 1960};
  return code < std::size(kSubcarriers) ? kSubcarriers[code] : 0;
}

uint32_t VhtBandwidth(uint8_t code) {
  if (code == 0) return 20;
  if (code <= 3) return 40;
  if (code <= 10) return 80;
  if (code <= 25) return 160;
  return 0;
}

void ReadField(const Bytes& b, uint32_t field, uint32_t at, RadioReading& r) {
  switch (field) {
    case kFlags:
      r.fcs = b.U8(at) & 0x10;
      r.dataPad = b.U8(at) & 0x20;
      r.badFcs = b.U8(at) & 0x40;
      break;
    case kRate:
      r.rate = b.U8(at);
      break;
    case kChannel:
      if (b.U16(at) == 0) break;
      r.channel = ChannelOfFrequency(b.U16(at), b.U16(at + 2));
      r.haveChannel = true;
      break;
    case kSignal: r.signalDbm = static_cast<int8_t>(b.U8(at)); break;
    case kNoise: r.noiseDbm = static_cast<int8_t>(b.U8(at)); break;
    case kXChannel:
      // The extended channel also tells the width of an 802.11n channel.
      if (b.U16(at + 4) == 0) break;
      r.channel = ChannelOfFrequency(b.U16(at + 4), b.U32(at));
      r.haveChannel = true;
      break;
    case kMcs: {
      const uint8_t known = b.U8(at), flags = b.U8(at + 1);
      // A 60 GHz frame's MCS is no HT rate.
      if (!(known & 0x02) || r.channel.Frequency >= kDmgBand) break;
      const bool forty = (known & 0x01) && (flags & 0x03) == 1;
      const bool shortGi = (known & 0x04) && (flags & 0x04);
      if (uint16_t rate = HtRate(b.U8(at + 2), forty, shortGi)) r.rate = rate;
      break;
    }
    case kVht: {
      const uint16_t known = b.U16(at);
      const uint8_t user = b.U8(at + 4);
      if (!(known & 0x0040) || (user & 0x0F) == 0) break;
      const bool shortGi = (known & 0x0004) && (b.U8(at + 2) & 0x04);
      if (uint16_t rate = VhtRate(user >> 4, user & 0x0F, VhtBandwidth(b.U8(at + 3)), shortGi)) r.rate = rate;
      break;
    }
    case kHe: {
      const uint16_t data1 = b.U16(at), data2 = b.U16(at + 2), data3 = b.U16(at + 4), data5 = b.U16(at + 8),
                     data6 = b.U16(at + 10);
      if (!(data1 & 0x0020)) break;  // no data MCS
      const uint32_t subcarriers = (data1 & 0x4000) ? HeSubcarriers(data5 & 0x0F) : HeSubcarriers(0);
      static constexpr uint32_t kGuard[] = {8, 16, 32, 0};
      const uint32_t gi = (data2 & 0x0002) ? kGuard[(data5 >> 4) & 3] : 8;
      uint32_t streams = data6 & 0x0F;
      if ((data1 & 0x0200) && (data3 & 0x8000)) streams /= 2;  // space-time block coding doubles the streams
      const bool dcm = (data1 & 0x0040) && (data3 & 0x1000);
      if (uint16_t rate = HeRate((data3 >> 8) & 0x0F, streams, subcarriers, gi, dcm)) r.rate = rate;
      break;
    }
    default: break;
  }
}

}  // namespace

RadioReading ReadRadiotap(const uint8_t* data, uint32_t length) noexcept {
  RadioReading r;
  if (!data || length < 8) {
    r.headerLength = length;
    return r;
  }
  const uint32_t declared = uint32_t(data[2]) | uint32_t(data[3]) << 8;
  r.badVersion = data[0] != 0;
  if (r.badVersion || declared < 8) {
    r.headerLength = length;
    return r;
  }
  r.known = declared <= length;
  r.headerLength = r.known ? declared : length;
  // Fields are read within the header as far as it was captured.
  const Bytes b{data, r.headerLength};

  // Where the fields start: behind the last presence word.
  uint32_t fields = 8;
  for (uint32_t word = b.U32(4); word & 0x80000000u; fields += 4) {
    if (!b.Has(fields, 4)) return r;
    word = b.U32(fields);
  }

  uint32_t at = fields;
  bool standard = true;     // in the standard namespace
  uint32_t wordInSpace = 0;  // the word's place in its namespace
  bool seen[std::size(kShapes)] = {};
  for (uint32_t wordAt = 4; wordAt < fields; wordAt += 4) {
    const uint32_t word = b.U32(wordAt);
    if (standard) {
      for (uint32_t bit = 0; bit < 29; ++bit) {
        if (!(word & (1u << bit))) continue;
        const uint32_t field = 32 * wordInSpace + bit;
        if (field >= std::size(kShapes)) return r;  // a field of unknown size: nothing after it can be found
        const Shape shape = kShapes[field];
        at = (at + shape.align - 1) & ~uint32_t(shape.align - 1);
        if (!b.Has(at, shape.size)) return r;
        // A later namespace repeats fields per antenna: the first is the frame's.
        if (!seen[field]) ReadField(b, field, at, r);
        seen[field] = true;
        at += shape.size;
      }
    }
    if (word & (1u << 29)) {
      standard = true;
      wordInSpace = 0;
    } else if (word & (1u << 30)) {
      // A vendor's namespace: OUI, sub-namespace, and the length of its data.
      at = (at + 1) & ~uint32_t(1);
      if (!b.Has(at, 6)) return r;
      at += 6 + b.U16(at + 4);
      standard = false;
      wordInSpace = 0;
    } else {
      ++wordInSpace;
    }
  }
  return r;
}

}  // namespace zemo
