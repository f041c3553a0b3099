// WirelessPacketView: what the second-generation wireless engines read of
// one packet, built on the stack for the one call.
//
// Building it reads the packet's data pointer (null on failure), time stamp
// (all ones on failure) and 802.11 flag (false on failure). Lengths are read
// on first use, IPacketAddresses and IWirelessPacket asked for on first use
// and released with the view. The radio readings come from the packet's
// media block:
//
//   offset 4  u32 medium kind (6: 802.11)   offset 24 u8 signal percent
//   offset 8  u16 data rate, half Mbit/s    offset 25 u8 noise percent
//   offset 10 SWirelessChannel              offset 26 i8 signal dBm
//                                           offset 27 i8 noise dBm
//
// A failure of the packet's calls is raised. Rate, signal and noise raise
// E_FAIL when the packet has no 802.11 block; the channel reports false.
#pragma once

#include "frame/packet.h"
#include "platform/exception.h"
#include "platform/object.h"
#include "wireless/wireless_signal.h"

namespace zemo {

// A yes-or-no question to the packet; a failure is thrown.
inline bool PacketTest(IPacket* p, HRESULT (IPacket::*test)(BOOL*)) {
  BOOL yes = FALSE;
  CheckHr((p->*test)(&yes));
  return yes != FALSE;
}

// One of the packet's addresses, or the empty spec where it has none.
inline MediaSpec PacketAddressOr(IPacketAddresses* a, HRESULT (IPacketAddresses::*get)(MediaSpec*)) {
  MediaSpec s{};
  if (FAILED((a->*get)(&s))) s = MediaSpec{};
  return s;
}

class WirelessPacketView {
 public:
  explicit WirelessPacketView(IPacket* packet);
  WirelessPacketView(const WirelessPacketView&) = delete;
  WirelessPacketView& operator=(const WirelessPacketView&) = delete;

  IPacket* Packet() const noexcept { return m_packet; }
  const BYTE* Data() const noexcept { return m_data; }
  ZemoTime Time() const noexcept { return m_time; }
  bool Wireless() const noexcept { return m_wireless; }

  USHORT PacketLength();
  USHORT CaptureLength();
  IPacketAddresses* Addresses();
  IWirelessPacket* Radio();

  USHORT DataRate();
  // False when the packet carries no 802.11 block.
  bool Channel(SWirelessChannel* channel);
  BYTE SignalPercent();
  BYTE NoisePercent();
  int8_t SignalDBm();
  int8_t NoiseDBm();
  // The four readings at once.
  SignalReading Readings();

  // The frame's bytes and captured length, read anew; null and 0 if either
  // call fails.
  void Frame(const BYTE** data, USHORT* length) const;

  bool TestStatus(ULONG mask) const;
  bool TestFlags(ULONG mask) const;

 private:
  // The 802.11 block, or null when there is none; read once.
  const BYTE* Block();
  const BYTE* RequireBlock();

  IPacket* m_packet;
  const BYTE* m_data = nullptr;
  ZemoTime m_time = ~ZemoTime{0};
  bool m_wireless = false;
  USHORT m_packetLength = 0;  // 0: not read yet
  USHORT m_captureLength = 0;
  const BYTE* m_block = nullptr;  // the 802.11 block, once read
  bool m_blockRead = false;
  ComPtr<IPacketAddresses> m_addresses;
  ComPtr<IWirelessPacket> m_radio;
};

// The transmitter and receiver of an 802.11 packet, empty where it has
// none. A host may name them only where they differ from the frame's source
// and destination (so that a frame counts once in one conversation): where
// the packet names no transmitter, its source stands in, and its
// destination for the receiver.
void ReadRadioPair(IPacketAddresses* addresses, MediaSpec* transmitter, MediaSpec* receiver);

}  // namespace zemo
