// ZemoCore.MediaUtils: the text of an address or protocol as people read it.
#pragma once

#include <string>

#include "frame/engine_interfaces.h"
#include "platform/object.h"

namespace zemo {

// The text SpecToString gives, for callers inside the host:
// - 6-byte physical addresses (types 10, 11, 13): 00:1a:2b:3c:4d:5e; type 43: 00:1a
// - IPv4: dotted decimal; IPv6: the compressed form of RFC 5952
// - protocols: their name in the tree, or 0x and four hexadecimal digits if unknown
// - any other type: its value bytes in hexadecimal; empty for a type without a value.
// An address whose mask covers less than its full value gets "/" and the bits
// that count (IPv4 "10.0.0.0/8", IPv6 "2001:db8::/32", a MAC "00:1a:2b:00:00:00/24");
// a mask that is not a prefix is shown as "/0x" and its eight hexadecimal digits.
std::u16string SpecText(const MediaSpec& spec);

class MediaUtils final : public Object<MediaUtils, IMediaUtils> {
 public:
  // A null spec or text: E_POINTER.
  HRESULT SpecToString(const MediaSpec* spec, BSTR* text) override;
};

}  // namespace zemo
