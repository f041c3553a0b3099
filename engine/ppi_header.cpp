// PPI: version (0), flags (bit 0: fields padded to 4 bytes), header length
// (u16) and the link type of the frame behind it (u32), all little-endian;
// then fields of type (u16), length (u16) and data. The 802.11-common field
// (type 2) holds the TSF timer, flags (0x1 check sequence present, 0x4 check
// sequence bad), rate (500 kbit/s), channel frequency and flags, hop set and
// pattern, signal and noise in dBm (-128: none). The 802.11n MAC and PHY
// field (type 4) holds the MCS index of an HT frame.
#include "engine/radio_reading.h"

namespace zemo {
namespace {

constexpr uint16_t kCommon = 2;
constexpr uint16_t kMacPhy = 4;
constexpr uint32_t kCommonLength = 20;
constexpr uint32_t kMacPhyMcsEnd = 10;  // flags, A-MPDU id, delimiters, MCS
constexpr int8_t kPpiNoDbm = -128;

uint16_t Le16(const uint8_t* d, uint32_t at) { return uint16_t(d[at] | d[at + 1] << 8); }
uint32_t Le32(const uint8_t* d, uint32_t at) { return uint32_t(Le16(d, at)) | uint32_t(Le16(d, at + 2)) << 16; }

void ReadCommon(const uint8_t* f, RadioReading& r) {
  const uint16_t flags = Le16(f, 8);
  r.fcs = flags & 0x1;
  r.badFcs = flags & 0x4;
  r.rate = Le16(f, 10);
  if (const uint16_t mhz = Le16(f, 12)) {
    r.channel = ChannelOfFrequency(mhz, Le16(f, 14));
    r.haveChannel = true;
  }
  const auto signal = static_cast<int8_t>(f[18]), noise = static_cast<int8_t>(f[19]);
  if (signal != kPpiNoDbm) r.signalDbm = signal;
  if (noise != kPpiNoDbm) r.noiseDbm = noise;
}

}  // namespace

RadioReading ReadPpi(const uint8_t* data, uint32_t length) noexcept {
  RadioReading r;
  r.headerLength = length;
  if (!data || length < 8) return r;
  r.badVersion = data[0] != 0;
  if (r.badVersion) return r;
  const uint32_t declared = Le16(data, 2);
  if (declared < 8) return r;
  r.known = declared <= length;
  r.headerLength = r.known ? declared : length;
  r.payloadLinkType = Le32(data, 4);
  const bool aligned = data[1] & 0x1;
  uint16_t htRate = 0;
  for (uint32_t at = 8; uint64_t(at) + 4 <= r.headerLength;) {
    const uint16_t type = Le16(data, at), size = Le16(data, at + 2);
    const uint32_t body = at + 4;
    if (uint64_t(body) + size > r.headerLength) break;  // a field that claims more than the header holds
    if (type == kCommon && size >= kCommonLength) ReadCommon(data + body, r);
    if (type == kMacPhy && size >= kMacPhyMcsEnd) {
      const uint32_t flags = Le32(data, body);
      htRate = HtRate(data[body + 9], flags & 0x2, flags & 0x4);
    }
    at = body + size;
    if (aligned) at = (at + 3) & ~uint32_t(3);
  }
  // The common field's rate is 0 for an HT frame, whose MCS says it.
  if (r.rate == 0) r.rate = htRate;
  return r;
}

}  // namespace zemo
