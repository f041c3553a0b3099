// MediaSpec: the 32-byte value form of an address or protocol everywhere in
// the system (packets, tables, interfaces, streams), and its rules: the type
// table with each type's entity sub-table, class, value length and full
// mask, equality, validity, the group-address tests, and the text and XML
// forms of a value.
#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include "platform/types.h"

struct MediaSpec {
  uint8_t fClass;   // 0 none, 1 protocol, 2 address, 3 the class of types 34 and 36
  uint8_t fType;    // form of the value; 0 none
  uint8_t fReserved[2];
  uint32_t fMask;   // which part of the value counts, from the top bit down
  uint8_t fData[24];
};
static_assert(sizeof(MediaSpec) == 32);

struct IXMLDOMElement;

namespace zemo {

inline constexpr uint32_t kEntitySubTableCount = 23;
inline constexpr uint8_t kNoEntitySubTable = 0xFF;
// Types at or above this have no length, no mask and no sub-table.
inline constexpr uint32_t kMediaTypeLimit = 45;
inline constexpr uint32_t kMaxSpecLength = sizeof(MediaSpec::fData);

// One row of the type table.
struct MediaTypeRule {
  uint8_t subTable;  // kNoEntitySubTable: the type cannot be stored
  uint8_t specClass; // class the entity table hands back; 0 for a type without a sub-table
  uint8_t length;    // bytes of the value
  uint32_t fullMask;
};

namespace detail {

// Types with a sub-table, in sub-table order: the order of every stream.
struct SubTableType {
  uint8_t type, specClass, length;
  uint32_t fullMask;
};
inline constexpr SubTableType kSubTableTypes[kEntitySubTableCount] = {
    {1, 1, 2, 0xC0000000u},   {2, 1, 1, 0x80000000u},   {3, 1, 5, 0xF8000000u},  {6, 1, 1, 0x80000000u},
    {9, 1, 4, 0xC0000000u},   {10, 2, 6, 0xFC000000u},  {21, 2, 4, 0xFFFFFFFFu}, {20, 2, 3, 0xE0000000u},
    {22, 2, 2, 0xC0000000u},  {24, 2, 16, 0xFFFF0000u}, {13, 2, 6, 0xFC000000u}, {25, 2, 10, 0xFFC00000u},
    {34, 3, 2, 0xC0000000u},  {36, 3, 4, 0xF0000000u},  {37, 1, 2, 0xC0000000u}, {38, 1, 2, 0xC0000000u},
    {39, 1, 0, 0},            {40, 1, 0, 0},            {42, 1, 0, 0},           {41, 1, 0, 0},
    {44, 1, 0, 0},            {11, 2, 6, 0xFC000000u},  {43, 2, 2, 0xC0000000u},
};

// One mask bit for each value byte, from the top bit down.
constexpr uint32_t ByteMask(uint32_t length) { return length == 0 ? 0 : ~0u << (32 - length); }

constexpr MediaTypeRule BuildRule(uint32_t type) {
  for (uint32_t n = 0; n < kEntitySubTableCount; ++n)
    if (kSubTableTypes[n].type == type)
      return {static_cast<uint8_t>(n), kSubTableTypes[n].specClass, kSubTableTypes[n].length,
              kSubTableTypes[n].fullMask};
  // Types with a length but no sub-table.
  uint8_t length = 0;
  switch (type) {
    case 4: case 5: case 32: case 33: length = 1; break;
    case 35: length = 2; break;
    case 12: length = 6; break;
    default: break;
  }
  return {kNoEntitySubTable, 0, length, ByteMask(length)};
}

struct RuleTable {
  MediaTypeRule rules[kMediaTypeLimit];
  constexpr RuleTable() : rules{} {
    for (uint32_t t = 0; t < kMediaTypeLimit; ++t) rules[t] = BuildRule(t);
  }
};
inline constexpr RuleTable kRules{};

}  // namespace detail

// The rule of a type; a type at 45 or above gets an empty rule.
constexpr MediaTypeRule MediaTypeRuleOf(uint32_t type) {
  return type < kMediaTypeLimit ? detail::kRules.rules[type] : MediaTypeRule{kNoEntitySubTable, 0, 0, 0};
}
constexpr uint32_t MediaSpecLength(uint32_t type) { return MediaTypeRuleOf(type).length; }
constexpr uint32_t MediaSpecFullMask(uint32_t type) { return MediaTypeRuleOf(type).fullMask; }
constexpr uint8_t EntitySubTableOf(uint32_t type) { return MediaTypeRuleOf(type).subTable; }
// Type, class and length of a sub-table (n below kEntitySubTableCount).
constexpr uint8_t SubTableType(uint32_t n) { return detail::kSubTableTypes[n].type; }
constexpr uint8_t SubTableClass(uint32_t n) { return detail::kSubTableTypes[n].specClass; }
constexpr uint32_t SubTableLength(uint32_t n) { return detail::kSubTableTypes[n].length; }

// Class and type both set.
constexpr bool IsValidSpec(const MediaSpec& spec) { return spec.fClass != 0 && spec.fType != 0; }

// Class, type and mask equal, and the data equal over the type's length.
inline bool SpecsEqual(const MediaSpec& a, const MediaSpec& b) {
  return a.fClass == b.fClass && a.fType == b.fType && a.fMask == b.fMask &&
         std::memcmp(a.fData, b.fData, MediaSpecLength(a.fType)) == 0;
}

// The group-address tests, over the value bytes of types 10, 11, 13, 21 and
// 25; false for any other type. IsBroadcast and IsMulticast also need every
// bit of the type's full mask in the value's mask.
bool IsBroadcast(const MediaSpec& spec);
bool IsMulticast(const MediaSpec& spec);
bool IsGroupAddress(const MediaSpec& spec);

// ---- text and XML forms of a value -----------------------------------------

// The value of a hexadecimal digit of either case, or -1.
int HexDigitValue(char16_t c);
// Upper-case hexadecimal, two digits a byte.
std::string HexText(const uint8_t* data, size_t length);
std::u16string HexText16(const uint8_t* data, size_t length);
// Hexadecimal of either case into out (room for kMaxSpecLength bytes, the
// rest zeroed); the byte count, or -1 for an odd count of digits, a character
// that is not a digit, or more than kMaxSpecLength bytes.
int ParseHex(std::u16string_view text, uint8_t (&out)[kMaxSpecLength]);

// The entity address form, how an object puts a MediaSpec on an XML element
// of its own choosing: attributes `class`, `type`, `mask` (decimal, only when
// it differs from the type's full mask) and `data` (hexadecimal over the
// type's length). Failures are raised.
void SaveSpecAttributes(IXMLDOMElement* element, const MediaSpec& spec);
// A missing class or type leaves 0 (raises E_FAIL if required), a missing
// mask gives the full mask; a missing or malformed data raises E_FAIL.
MediaSpec LoadSpecAttributes(IXMLDOMElement* element, bool classAndTypeRequired = false);

}  // namespace zemo
