// Ieee80211Header: what the MAC header of an 802.11 frame says: its kind
// and class, where its addresses stand and which is which, its protection
// and the cipher its security header names, and the authentication its
// body carries (an authentication frame's algorithm, an EAPOL frame's EAP
// method).
#pragma once

#include <cstdint>

#include "frame/packet.h"

namespace zemo {

struct Ieee80211Header {
  bool present = false;  // the frame control was captured
  uint8_t version = 0;   // the protocol version: 0, any other is unknown
  uint8_t type = 0;      // 0 management, 1 control, 2 data, 3 extension
  uint8_t subtype = 0;
  uint8_t flags = 0;            // the second frame control byte
  uint16_t kind = 0xFFFF;       // the frame kind in the protocol tree
  uint16_t frameKind = 0xFFFF;  // the packet's frame kind: the four-address data frame named apart
  LONG packetClass = 0;         // 1 management, 2 control, 3 data
  uint32_t headerLength = 0;    // the MAC header, as the frame control says

  // Where each address starts in the frame; 0 where the frame has none.
  uint32_t receiver = 0, transmitter = 0, source = 0, destination = 0, bssid = 0;

  bool isProtected = false;
  LONG encryption = kEncryptionNone;  // as the security header tells, if it was captured
  bool haveKeyIndex = false;
  uint8_t keyIndex = 0;
  LONG authentication = kAuthenticationNone;

  // Where an LLC header starts, for a data frame whose payload is one; 0
  // for a frame that carries none (control, management, null data, protected).
  uint32_t llc = 0;
};

// frame holds captured bytes of the frame. dataPad: the radio says that the
// header is padded to a multiple of 4 bytes before the payload.
Ieee80211Header ReadIeee80211Header(const uint8_t* frame, uint32_t captured, bool dataPad) noexcept;

}  // namespace zemo
