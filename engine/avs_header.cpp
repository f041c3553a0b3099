// AVS (the capture header of linux-wlan-ng), all fields big-endian: version
// (0x80211001 or 0x80211002), header length, MAC time, host time, PHY type,
// channel, data rate (100 kbit/s units), antenna, priority, signal type
// (2: dBm), signal, noise, preamble, encoding, and in version 2 a sequence,
// drops and the sniffer's address. Every frame behind it ends in a check
// sequence, all ones when the hardware gave none.
#include "engine/radio_reading.h"

namespace zemo {
namespace {

constexpr uint32_t kVersion1 = 0x80211001;
constexpr uint32_t kVersion2 = 0x80211002;
constexpr uint32_t kFieldsEnd = 64;  // the fields read here lie within version 1's header
constexpr uint32_t kPhyOfdmA = 8;    // 802.11a: the 5 GHz band
constexpr uint32_t kSignalInDbm = 2;

uint32_t Be32(const uint8_t* d, uint32_t at) {
  return uint32_t(d[at]) << 24 | uint32_t(d[at + 1]) << 16 | uint32_t(d[at + 2]) << 8 | d[at + 3];
}

}  // namespace

bool LooksLikeAvs(const uint8_t* data, uint32_t length) noexcept {
  if (!data || length < 4) return false;
  const uint32_t version = Be32(data, 0);
  return version == kVersion1 || version == kVersion2;
}

RadioReading ReadAvs(const uint8_t* data, uint32_t length) noexcept {
  RadioReading r;
  r.headerLength = length;
  if (!LooksLikeAvs(data, length) || length < 8) return r;
  const uint32_t declared = Be32(data, 4);
  if (declared < kFieldsEnd || declared > 0xFFFF) return r;
  r.known = declared <= length;
  r.headerLength = r.known ? declared : length;
  r.fcs = true;
  if (r.headerLength < kFieldsEnd) return r;
  const auto number = static_cast<int32_t>(Be32(data, 28));
  r.haveChannel = ChannelOfNumber(number, Be32(data, 24) == kPhyOfdmA, &r.channel);
  const uint32_t rate = Be32(data, 32) / 5;  // 100 kbit/s to half megabits
  if (rate <= 0xFFFF) r.rate = static_cast<uint16_t>(rate);
  if (Be32(data, 44) == kSignalInDbm) {
    const auto signal = static_cast<int32_t>(Be32(data, 48)), noise = static_cast<int32_t>(Be32(data, 52));
    if (signal >= -127 && signal < 0) r.signalDbm = static_cast<int8_t>(signal);
    if (noise >= -127 && noise < 0) r.noiseDbm = static_cast<int8_t>(noise);
  }
  return r;
}

}  // namespace zemo
