// The 802.11 MAC header: frame control (2 bytes), duration, then up to four
// addresses and a sequence number by the frame's type; a QoS data frame adds
// a QoS control field, an ordered one an HT control field. Behind the header
// of a protected frame stands its security header, whose fourth byte holds
// the key index and the extended-IV bit that tells WEP from TKIP and CCMP.
#include "engine/ieee80211_header.h"

#include "engine/proto_specs.h"

namespace zemo {
namespace {

constexpr uint32_t kA1 = 4, kA2 = 10, kA3 = 16, kA4 = 24;

struct Bytes {
  const uint8_t* d;
  uint32_t end;
  bool Has(uint32_t at, uint32_t n) const { return uint64_t(at) + n <= end; }
  uint8_t U8(uint32_t at) const { return d[at]; }
  uint16_t Le16(uint32_t at) const { return uint16_t(d[at] | d[at + 1] << 8); }
};

// The security header: WEP has no extended IV; TKIP's second byte is the
// WEP seed made from its first, where CCMP's third byte is reserved.
void ReadSecurity(const Bytes& b, Ieee80211Header& h) {
  const uint32_t at = h.headerLength;
  if (!b.Has(at, 4)) return;
  const uint8_t keyId = b.U8(at + 3);
  h.haveKeyIndex = true;
  h.keyIndex = keyId >> 6;
  if (!(keyId & 0x20))
    h.encryption = kEncryptionWep;
  else if (b.U8(at + 1) == ((b.U8(at) | 0x20) & 0x7F))
    h.encryption = kEncryptionTkip;
  else
    h.encryption = kEncryptionCcmp;
}

LONG AuthenticationOfEapType(uint8_t type) {
  switch (type) {
    case 13: return kAuthenticationEapTls;
    case 17: return kAuthenticationLeap;
    case 25: return kAuthenticationPeap;
    default: return kAuthenticationEap;
  }
}

// EAPOL behind an LLC and SNAP header: EAP inside it names its method;
// EAPOL start and logoff are 802.1X all the same; keys alone (a pre-shared
// key's handshake) are no EAP.
void ReadEapol(const Bytes& b, uint32_t llc, Ieee80211Header& h) {
  static constexpr uint8_t kSnapEapol[] = {0xAA, 0xAA, 0x03, 0x00, 0x00, 0x00, 0x88, 0x8E};
  if (!b.Has(llc, sizeof kSnapEapol + 4)) return;
  for (uint32_t i = 0; i < sizeof kSnapEapol; ++i)
    if (b.U8(llc + i) != kSnapEapol[i]) return;
  const uint32_t eapol = llc + sizeof kSnapEapol;
  switch (b.U8(eapol + 1)) {
    case 0: {  // an EAP packet: a request or response names its method
      const uint32_t eap = eapol + 4;
      if (!b.Has(eap, 1)) return;
      const uint8_t code = b.U8(eap);
      h.authentication = (code == 1 || code == 2) && b.Has(eap, 5) ? AuthenticationOfEapType(b.U8(eap + 4))
                                                                     : kAuthenticationEap;
      return;
    }
    case 1:  // start
    case 2:  // logoff
      h.authentication = kAuthenticationEap;
      return;
    default: return;
  }
}

}  // namespace

Ieee80211Header ReadIeee80211Header(const uint8_t* frame, uint32_t captured, bool dataPad) noexcept {
  Ieee80211Header h;
  const Bytes b{frame, frame ? captured : 0};
  if (!b.Has(0, 2)) return h;
  h.present = true;
  const uint8_t fc0 = b.U8(0);
  h.flags = b.U8(1);
  h.version = fc0 & 3;
  h.type = (fc0 >> 2) & 3;
  h.subtype = fc0 >> 4;
  h.kind = proto::ByIeee80211Type(h.type, h.subtype);
  h.frameKind = h.kind;
  if (h.type < 3) h.packetClass = h.type + 1;
  h.isProtected = h.flags & 0x40;
  const bool toDs = h.flags & 1, fromDs = h.flags & 2, ordered = h.flags & 0x80;

  h.headerLength = 24;
  if (h.type == 1) {
    // Control frames carry a receiver, most a transmitter, none a third address.
    const bool twoAddresses = h.kind != proto::kWlanCts && h.kind != proto::kWlanAck;
    h.headerLength = twoAddresses ? 16 : 10;
    h.receiver = kA1;
    if (h.kind == proto::kWlanPsPoll)
      h.bssid = kA1;
    else
      h.destination = kA1;
    if (twoAddresses) {
      h.transmitter = kA2;
      if (h.kind == proto::kWlanCfEnd || h.kind == proto::kWlanCfEndAck)
        h.bssid = kA2;
      else
        h.source = kA2;
    }
    return h;
  }

  h.receiver = kA1;
  h.transmitter = kA2;
  // Source, destination and BSSID by the distribution-system bits.
  h.destination = kA1, h.source = kA2, h.bssid = kA3;
  if (h.type == 2) {
    if (toDs && fromDs) {
      h.headerLength += 6;
      h.destination = kA3, h.source = kA4, h.bssid = 0;
      // Relayed between access points: it tells nothing of what its sender is.
      h.frameKind = proto::kWlanWdsData;
    } else if (toDs) {
      h.bssid = kA1, h.source = kA2, h.destination = kA3;
    } else if (fromDs) {
      h.destination = kA1, h.bssid = kA2, h.source = kA3;
    }
    if (h.subtype & 0x8) h.headerLength += 2 + (ordered ? 4 : 0);  // QoS control, HT control
  } else if (ordered) {
    h.headerLength += 4;  // HT control of a management frame
  }

  if (h.isProtected) {
    ReadSecurity(b, h);
    return h;
  }
  if (h.kind == proto::kWlanAuthentication && b.Has(h.headerLength, 2) &&
      b.Le16(h.headerLength) == 0x80)  // the network EAP algorithm: LEAP
    h.authentication = kAuthenticationLeap;
  // Only data frames that carry data go on to LLC.
  if (h.type == 2 && !(h.subtype & 0x4)) {
    h.llc = dataPad ? (h.headerLength + 3) & ~uint32_t(3) : h.headerLength;
    ReadEapol(b, h.llc, h);
  }
  return h;
}

}  // namespace zemo
