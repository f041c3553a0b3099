#include "engine/media_utils.h"

#include <bit>
#include <cstdio>

#include "engine/proto_specs.h"
#include "engine/spec_values.h"
#include "platform/strings.h"

namespace zemo {
namespace {

constexpr char kHex[] = "0123456789abcdef";

void AppendHexByte(std::string& s, uint8_t b) {
  s += kHex[b >> 4];
  s += kHex[b & 0x0F];
}

std::string Physical(const uint8_t* v, uint32_t length) {
  std::string s;
  for (uint32_t i = 0; i < length; ++i) {
    if (i) s += ':';
    AppendHexByte(s, v[i]);
  }
  return s;
}

std::string Dotted(const uint8_t* v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%u.%u.%u.%u", v[0], v[1], v[2], v[3]);
  return buf;
}

void AppendGroup(std::string& s, unsigned g) {
  char buf[5];
  std::snprintf(buf, sizeof buf, "%x", g);
  s += buf;
}

// RFC 5952: lower case, no leading zeros, the longest run of two or more zero
// groups as "::" (the first of equal runs), IPv4-mapped addresses in mixed form.
std::string Ipv6Text(const uint8_t* v) {
  unsigned g[8];
  for (int i = 0; i < 8; ++i) g[i] = unsigned(v[2 * i]) << 8 | v[2 * i + 1];
  if (g[0] == 0 && g[1] == 0 && g[2] == 0 && g[3] == 0 && g[4] == 0 && g[5] == 0xFFFF) return "::ffff:" + Dotted(v + 12);
  int bestAt = -1, bestLength = 1;
  for (int i = 0; i < 8;) {
    if (g[i] != 0) {
      ++i;
      continue;
    }
    int j = i;
    while (j < 8 && g[j] == 0) ++j;
    if (j - i > bestLength) bestAt = i, bestLength = j - i;
    i = j;
  }
  std::string s;
  for (int i = 0; i < 8; ++i) {
    if (i == bestAt) {
      s += "::";
      i += bestLength - 1;
      continue;
    }
    if (i && i != bestAt + bestLength) s += ':';
    AppendGroup(s, g[i]);
  }
  return s;
}

// "/n" for a mask that keeps a prefix of the value, n in bits; "" for the full mask.
std::string MaskSuffix(const MediaSpec& spec) {
  uint32_t full = specs::FullMask(spec.fType);
  uint32_t mask = spec.fMask & full;
  if (mask == full) return {};
  uint32_t ones = std::countl_one(mask);
  if (ones < 32 && (mask << ones) != 0) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "/0x%08x", spec.fMask);
    return buf;
  }
  // IPv4 masks count bits; the others one bit for each byte.
  uint32_t bits = spec.fType == specs::kTypeIpv4 ? ones : ones * 8;
  return "/" + std::to_string(bits);
}

}  // namespace

std::u16string SpecText(const MediaSpec& spec) {
  const uint8_t* v = spec.fData;
  uint32_t length = specs::Length(spec.fType);
  std::string s;
  switch (spec.fType) {
    case specs::kTypeProtocol: {
      uint32_t id = specs::ProtocolId(spec);
      if (const char16_t* name = proto::Name(id)) return name;
      char buf[8];
      std::snprintf(buf, sizeof buf, "0x%04x", id & 0xFFFF);
      return FromUtf8(buf);
    }
    case specs::kTypeEthernet:
    case specs::kTypePhysical11:
    case specs::kTypePhysical13:
    case specs::kTypePhysical43:
      s = Physical(v, length);
      break;
    case specs::kTypeIpv4:
      s = Dotted(v);
      break;
    case specs::kTypeIpv6:
      s = Ipv6Text(v);
      break;
    default:
      for (uint32_t i = 0; i < length; ++i) AppendHexByte(s, v[i]);
      if (length == 0) return {};
      break;
  }
  return FromUtf8(s + MaskSuffix(spec));
}

HRESULT MediaUtils::SpecToString(const MediaSpec* spec, BSTR* text) {
  return Unlocked([&] {
    CheckOut(text);
    if (!spec) AtlThrow(E_POINTER);
    *text = AllocBstr(SpecText(*spec));
  });
}

}  // namespace zemo
