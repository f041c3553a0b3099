#include "cli/wireless_watch.h"

#include <cstring>

#include "engine/ieee80211_elements.h"
#include "platform/unknown.h"
#include "wireless/wireless_packet_view.h"

namespace zemo::cli {
namespace {

constexpr uint8_t kData = 0x08, kAssociationResponse = 0x10, kReassociationResponse = 0x30;
constexpr size_t kCapability = 34;

bool MacOf(const MediaSpec& spec, WirelessWatch::Mac* mac) {
  if (!IsValidSpec(spec) || spec.fData[0] & 1) return false;  // no group address is a node here
  std::memcpy(mac->data(), spec.fData, 6);
  return true;
}

bool Test(IPacket* p, HRESULT (IPacket::*test)(BOOL*)) {
  BOOL yes = FALSE;
  return SUCCEEDED((p->*test)(&yes)) && yes;
}

}  // namespace

void WirelessWatch::Observe(IPacket* packet) {
  const BYTE* frame = nullptr;
  USHORT captured = 0;
  if (FAILED(packet->GetPacketData(&frame)) || FAILED(packet->GetCaptureLength(&captured)) || !frame ||
      captured < 24 || Test(packet, &IPacket::IsError))
    return;
  ComPtr<IPacketAddresses> addresses;
  if (FAILED(QueryTo(packet, &addresses))) return;
  MediaSpec bssidSpec{}, transmitterSpec{}, receiverSpec{};
  if (FAILED(addresses->GetBSSID(&bssidSpec))) return;
  ReadRadioPair(addresses.Get(), &transmitterSpec, &receiverSpec);
  Mac bssid;
  if (!MacOf(bssidSpec, &bssid)) return;
  const uint8_t subtype = frame[0] & 0xFC, direction = frame[1] & 0x03;

  if (const size_t at = subtype == 0x80 || subtype == 0x50 ? 36 : 0; at && captured > kCapability) {
    Protection& p = m_protection[bssid];
    p.privacy = p.privacy || (frame[kCapability] & 0x10);
    if (captured > at) {
      const ManagementElements e = ReadManagementElements(frame + at, captured - at);
      p.rsn = p.rsn || e.rsn;
      p.wpa = p.wpa || e.wpa;
    }
  }

  // Whose access point the frame tells, if anyone's.
  Mac station;
  bool data = subtype == kData;
  bool tells = false;
  if (captured >= 28) {
    if (data && direction == 1)
      tells = MacOf(transmitterSpec, &station);
    else if (data && direction == 2)
      tells = !Test(packet, &IPacket::IsMulticast) && !Test(packet, &IPacket::IsBroadcast) &&
              MacOf(receiverSpec, &station);
    else if ((subtype == kAssociationResponse || subtype == kReassociationResponse) && frame[26] == 0 &&
             frame[27] == 0)
      tells = MacOf(receiverSpec, &station);
  }
  if (!tells || station == bssid) return;
  ZemoTime time = 0;
  packet->GetTimeStamp(&time);
  auto [it, first] = m_last.try_emplace(station, Last{bssid, time});
  if (first) return;
  Last& last = it->second;
  if (last.bssid == bssid) {
    if (data) last.time = time;
    return;
  }
  // A gap of nothing, or one backwards in time, is no roam.
  if (time > last.time) m_roams.push_back({time, station, last.bssid, bssid});
  last = {bssid, time};
}

const WirelessWatch::Protection* WirelessWatch::ProtectionOf(const Mac& bssid) const {
  auto it = m_protection.find(bssid);
  return it == m_protection.end() ? nullptr : &it->second;
}

std::string ProtectionText(const WirelessWatch::Protection& p) {
  if (p.rsn) return p.wpa ? "WPA2/WPA" : "WPA2";
  if (p.wpa) return "WPA";
  return p.privacy ? "WEP" : "open";
}

}  // namespace zemo::cli
