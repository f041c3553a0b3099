#include "wireless/wireless_packet_view.h"

#include <cstring>

namespace zemo {
namespace {

constexpr ULONG kMedium80211 = 6;
constexpr ULONG kBlockLength = 28;

}  // namespace

WirelessPacketView::WirelessPacketView(IPacket* packet) : m_packet(packet) {
  if (FAILED(packet->GetPacketData(&m_data))) m_data = nullptr;
  if (FAILED(packet->GetTimeStamp(&m_time))) m_time = ~ZemoTime{0};
  BOOL wireless = FALSE;
  m_wireless = SUCCEEDED(packet->IsWireless(&wireless)) && wireless;
}

USHORT WirelessPacketView::PacketLength() {
  if (!m_packetLength) CheckHr(m_packet->GetPacketLength(&m_packetLength));
  return m_packetLength;
}

USHORT WirelessPacketView::CaptureLength() {
  if (!m_captureLength) CheckHr(m_packet->GetCaptureLength(&m_captureLength));
  return m_captureLength;
}

IPacketAddresses* WirelessPacketView::Addresses() {
  if (!m_addresses) CheckHr(QueryTo(m_packet, &m_addresses));
  return m_addresses.Get();
}

IWirelessPacket* WirelessPacketView::Radio() {
  if (!m_radio) CheckHr(QueryTo(m_packet, &m_radio));
  return m_radio.Get();
}

const BYTE* WirelessPacketView::Block() {
  if (m_blockRead) return m_block;
  const BYTE* block = nullptr;
  ULONG length = 0;
  CheckHr(m_packet->GetMediaInfo(&block, &length));
  m_blockRead = true;
  if (!block || length < kBlockLength) return nullptr;
  ULONG kind;
  std::memcpy(&kind, block + 4, sizeof kind);
  m_block = kind == kMedium80211 ? block : nullptr;
  return m_block;
}

const BYTE* WirelessPacketView::RequireBlock() {
  const BYTE* block = Block();
  if (!block) AtlThrow(E_FAIL);
  return block;
}

USHORT WirelessPacketView::DataRate() {
  USHORT rate;
  std::memcpy(&rate, RequireBlock() + 8, sizeof rate);
  return rate;
}

bool WirelessPacketView::Channel(SWirelessChannel* channel) {
  const BYTE* block = Block();
  if (!block) return false;
  std::memcpy(channel, block + 10, sizeof *channel);
  return true;
}

BYTE WirelessPacketView::SignalPercent() { return RequireBlock()[24]; }
BYTE WirelessPacketView::NoisePercent() { return RequireBlock()[25]; }
int8_t WirelessPacketView::SignalDBm() { return static_cast<int8_t>(RequireBlock()[26]); }
int8_t WirelessPacketView::NoiseDBm() { return static_cast<int8_t>(RequireBlock()[27]); }

SignalReading WirelessPacketView::Readings() {
  const BYTE* block = RequireBlock();
  return MakeReading(block[24], static_cast<int8_t>(block[26]), block[25], static_cast<int8_t>(block[27]));
}

void WirelessPacketView::Frame(const BYTE** data, USHORT* length) const {
  *data = nullptr;
  *length = 0;
  const BYTE* d = nullptr;
  USHORT n = 0;
  if (FAILED(m_packet->GetPacketData(&d)) || FAILED(m_packet->GetCaptureLength(&n))) return;
  *data = d;
  *length = n;
}

bool WirelessPacketView::TestStatus(ULONG mask) const {
  BOOL set = FALSE;
  CheckHr(m_packet->TestStatus(mask, &set));
  return set != FALSE;
}

bool WirelessPacketView::TestFlags(ULONG mask) const {
  BOOL set = FALSE;
  CheckHr(m_packet->TestFlags(mask, &set));
  return set != FALSE;
}

void ReadRadioPair(IPacketAddresses* addresses, MediaSpec* transmitter, MediaSpec* receiver) {
  auto read = [addresses](HRESULT (IPacketAddresses::*get)(MediaSpec*), HRESULT (IPacketAddresses::*fallback)(MediaSpec*),
                          MediaSpec* out) {
    *out = MediaSpec{};
    if (SUCCEEDED((addresses->*get)(out))) return;
    *out = MediaSpec{};
    if (FAILED((addresses->*fallback)(out))) *out = MediaSpec{};
  };
  read(&IPacketAddresses::GetWirelessTransmitter, &IPacketAddresses::GetPhysicalSource, transmitter);
  read(&IPacketAddresses::GetWirelessReceiver, &IPacketAddresses::GetPhysicalDestination, receiver);
}

}  // namespace zemo
