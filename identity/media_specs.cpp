#include "identity/media_specs.h"

#include <algorithm>

#include "frame/xml_persist.h"

namespace zemo {
namespace {

constexpr uint8_t kTypeEthernet = 10;
constexpr uint8_t kTypePhysical11 = 11;
constexpr uint8_t kTypePhysical13 = 13;
constexpr uint8_t kTypeIpv4 = 21;
constexpr uint8_t kTypeAddress25 = 25;

bool AllFF(const uint8_t* p, size_t n) {
  return std::all_of(p, p + n, [](uint8_t b) { return b == 0xFF; });
}

bool HoldsFullMask(const MediaSpec& spec) {
  uint32_t full = MediaSpecFullMask(spec.fType);
  return (spec.fMask & full) == full;
}

// Broadcast over the value alone, for the five types that know one.
bool BroadcastValue(const MediaSpec& spec) {
  const uint8_t* d = spec.fData;
  switch (spec.fType) {
    case kTypeEthernet:
    case kTypePhysical13:
      return AllFF(d, 6);
    case kTypePhysical11:
      return ((d[0] == 0xFF && d[1] == 0xFF) || (d[0] == 0x00 && d[1] == 0xC0)) && AllFF(d + 2, 4);
    case kTypeIpv4:
      return AllFF(d, 4);
    case kTypeAddress25:
      return AllFF(d, 4) || AllFF(d + 4, 6);
    default:
      return false;
  }
}

// The group bit of the value, broadcast aside.
bool GroupBits(const MediaSpec& spec) {
  const uint8_t* d = spec.fData;
  switch (spec.fType) {
    case kTypeEthernet:
    case kTypePhysical13:
      return (d[0] & 0x01) != 0;
    case kTypePhysical11:
      return (d[0] & 0x80) != 0 && (d[2] & 0x80) != 0;
    case kTypeIpv4:
      return (d[0] >> 4) == 0xE;
    default:
      return false;
  }
}

template <class S>
S HexOf(const uint8_t* data, size_t length) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  S out(length * 2, 0);
  for (size_t i = 0; i < length; ++i) {
    out[2 * i] = static_cast<typename S::value_type>(kDigits[data[i] >> 4]);
    out[2 * i + 1] = static_cast<typename S::value_type>(kDigits[data[i] & 0xF]);
  }
  return out;
}

}  // namespace

bool IsBroadcast(const MediaSpec& spec) { return HoldsFullMask(spec) && BroadcastValue(spec); }

bool IsMulticast(const MediaSpec& spec) {
  return HoldsFullMask(spec) && GroupBits(spec) && !BroadcastValue(spec);
}

bool IsGroupAddress(const MediaSpec& spec) { return GroupBits(spec) || BroadcastValue(spec); }

int HexDigitValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  return -1;
}

std::string HexText(const uint8_t* data, size_t length) { return HexOf<std::string>(data, length); }
std::u16string HexText16(const uint8_t* data, size_t length) { return HexOf<std::u16string>(data, length); }

int ParseHex(std::u16string_view text, uint8_t (&out)[kMaxSpecLength]) {
  std::fill(std::begin(out), std::end(out), 0);
  if (text.size() % 2 != 0 || text.size() / 2 > kMaxSpecLength) return -1;
  for (size_t i = 0; i < text.size(); i += 2) {
    int high = HexDigitValue(text[i]), low = HexDigitValue(text[i + 1]);
    if (high < 0 || low < 0) return -1;
    out[i / 2] = static_cast<uint8_t>(high << 4 | low);
  }
  return static_cast<int>(text.size() / 2);
}

void SaveSpecAttributes(IXMLDOMElement* element, const MediaSpec& spec) {
  SetAttribute(element, u"class", static_cast<uint32_t>(spec.fClass));
  SetAttribute(element, u"type", static_cast<uint32_t>(spec.fType));
  if (spec.fMask != MediaSpecFullMask(spec.fType)) SetAttribute(element, u"mask", spec.fMask);
  SetAttribute(element, u"data", std::u16string_view(HexText16(spec.fData, MediaSpecLength(spec.fType))));
}

namespace {

// A byte attribute into out; false when it is absent, E_FAIL above 255.
bool ByteAttribute(IXMLDOMElement* element, std::u16string_view name, uint8_t& out) {
  uint32_t value = 0;
  if (!GetAttribute(element, name, value)) return false;
  if (value > 0xFF) AtlThrow(E_FAIL);
  out = static_cast<uint8_t>(value);
  return true;
}

}  // namespace

MediaSpec LoadSpecAttributes(IXMLDOMElement* element, bool classAndTypeRequired) {
  MediaSpec spec{};
  bool hasClass = ByteAttribute(element, u"class", spec.fClass);
  bool hasType = ByteAttribute(element, u"type", spec.fType);
  if (classAndTypeRequired && !(hasClass && hasType)) AtlThrow(E_FAIL);
  if (!GetAttribute(element, u"mask", spec.fMask)) spec.fMask = MediaSpecFullMask(spec.fType);
  std::u16string data;
  if (!GetAttribute(element, u"data", data) || ParseHex(data, spec.fData) < 0) AtlThrow(E_FAIL);
  return spec;
}

}  // namespace zemo
