// PacketBuilder: fills a Packet in one expression, for tests and tools.
//
//   PacketBuilder p;
//   p.Time(t).Length(60).EthernetSource(a).EthernetDestination(b).Ipv4(s, d).Layers({kEthernetII, kIpv4, kTcp});
//   stats->ProcessPacket(p.Get());
//
// The builder owns the packet and a copy of its bytes; both live as long as
// the builder does.
#pragma once

#include <array>
#include <initializer_list>
#include <vector>

#include "engine/packet.h"
#include "engine/spec_values.h"

namespace zemo {

// The base of a hand-made test packet: every IPacket operation answers
// E_NOTIMPL until the packet overrides it. Listed in the object skeleton in
// place of IPacket: Object<MyPacket, PacketStub, ...>.
struct PacketStub : IPacket {
  using interface_type = IPacket;
  HRESULT GetPacketData(const BYTE**) override { return E_NOTIMPL; }
  HRESULT GetMediaInfo(const BYTE**, ULONG*) override { return E_NOTIMPL; }
  HRESULT GetPacketClass(LONG*) override { return E_NOTIMPL; }
  HRESULT GetPacketLength(USHORT*) override { return E_NOTIMPL; }
  HRESULT GetSliceLength(USHORT*) override { return E_NOTIMPL; }
  HRESULT GetCaptureLength(USHORT*) override { return E_NOTIMPL; }
  HRESULT GetFlags(ULONG*) override { return E_NOTIMPL; }
  HRESULT GetTimeStamp(ZemoTime*) override { return E_NOTIMPL; }
  HRESULT GetFrameProtoSpecId(USHORT*) override { return E_NOTIMPL; }
  HRESULT GetProtoSpecId(ULONG*) override { return E_NOTIMPL; }
  HRESULT TestStatus(ULONG, BOOL*) override { return E_NOTIMPL; }
  HRESULT TestFlags(ULONG, BOOL*) override { return E_NOTIMPL; }
  HRESULT IsWireless(BOOL*) override { return E_NOTIMPL; }
  HRESULT HasChannelNumber(BOOL*) override { return E_NOTIMPL; }
  HRESULT HasLineNumber(BOOL*) override { return E_NOTIMPL; }
  HRESULT IsError(BOOL*) override { return E_NOTIMPL; }
  HRESULT IsMulticast(BOOL*) override { return E_NOTIMPL; }
  HRESULT IsBroadcast(BOOL*) override { return E_NOTIMPL; }
};

class PacketBuilder {
 public:
  using Mac = std::array<uint8_t, 6>;
  using Ip4 = std::array<uint8_t, 4>;
  using Ip6 = std::array<uint8_t, 16>;

  PacketBuilder() : m_packet(Packet::Create()) {}

  IPacket* Get() const { return m_packet.Get(); }
  Packet& Target() const { return *m_packet; }

  // Starts over with an empty packet.
  PacketBuilder& Clear() {
    m_packet->Clear();
    m_data.clear();
    return *this;
  }

  PacketBuilder& Time(ZemoTime t) { return Do([&] { m_packet->SetTimeStamp(t); }); }
  // Length on the wire.
  PacketBuilder& Length(ULONG n) { return Do([&] { m_packet->SetPacketLength(n); }); }
  PacketBuilder& SliceLength(ULONG n) { return Do([&] { m_packet->SetSliceLength(n); }); }
  // The captured bytes; the capture length becomes their count.
  PacketBuilder& Data(std::vector<BYTE> bytes) {
    m_data = std::move(bytes);
    m_packet->SetData(m_data.data(), static_cast<ULONG>(m_data.size()));
    return *this;
  }
  PacketBuilder& Flags(ULONG f) { return Do([&] { m_packet->SetFlags(f); }); }
  PacketBuilder& Status(ULONG s) { return Do([&] { m_packet->SetStatus(s); }); }
  PacketBuilder& Class(LONG c) { return Do([&] { m_packet->SetPacketClass(c); }); }
  PacketBuilder& Error() { return Do([&] { m_packet->SetError(true); }); }
  PacketBuilder& Multicast() { return Do([&] { m_packet->SetMulticast(true); }); }
  PacketBuilder& Broadcast() { return Do([&] { m_packet->SetBroadcast(true); }); }
  PacketBuilder& ChannelNumber(ULONG n) { return Do([&] { m_packet->SetChannelNumber(n); }); }
  PacketBuilder& LineNumber(BYTE n) { return Do([&] { m_packet->SetLineNumber(n); }); }

  PacketBuilder& Address(PacketAddress which, const MediaSpec& spec) {
    return Do([&] { m_packet->SetAddress(which, spec); });
  }
  PacketBuilder& EthernetSource(const Mac& mac) {
    return Address(PacketAddress::kPhysicalSource, specs::Ethernet(mac.data()));
  }
  PacketBuilder& EthernetDestination(const Mac& mac) {
    return Address(PacketAddress::kPhysicalDestination, specs::Ethernet(mac.data()));
  }
  PacketBuilder& Ipv4(const Ip4& source, const Ip4& destination) {
    Address(PacketAddress::kLogicalSource, specs::Ipv4(source.data()));
    return Address(PacketAddress::kLogicalDestination, specs::Ipv4(destination.data()));
  }
  PacketBuilder& Ipv6(const Ip6& source, const Ip6& destination) {
    Address(PacketAddress::kLogicalSource, specs::Ipv6(source.data()));
    return Address(PacketAddress::kLogicalDestination, specs::Ipv6(destination.data()));
  }
  PacketBuilder& Bssid(const Mac& mac) { return Address(PacketAddress::kBssid, specs::Ethernet(mac.data())); }
  PacketBuilder& Transmitter(const Mac& mac) {
    return Address(PacketAddress::kWirelessTransmitter, specs::Ethernet(mac.data()));
  }
  PacketBuilder& Receiver(const Mac& mac) {
    return Address(PacketAddress::kWirelessReceiver, specs::Ethernet(mac.data()));
  }

  // The decoded protocol: the protocol identifier and the type-9 protocol address.
  PacketBuilder& Protocol(uint16_t id) {
    m_packet->SetProtoSpecId(id);
    return Address(PacketAddress::kProtocol, specs::Protocol(id));
  }
  // One layer report for each identifier, outermost first; the innermost
  // becomes the packet's protocol.
  PacketBuilder& Layers(std::initializer_list<uint16_t> ids) {
    for (uint16_t id : ids) m_packet->AddLayer({id, 0, 0, 0});
    return ids.size() ? Protocol(*(ids.end() - 1)) : *this;
  }
  PacketBuilder& Layer(const ZemoLayerReport& layer) { return Do([&] { m_packet->AddLayer(layer); }); }
  PacketBuilder& FrameKind(USHORT id) { return Do([&] { m_packet->SetFrameProtoSpecId(id); }); }

  // An 802.11 frame with these radio readings, and the media block built from them.
  PacketBuilder& Wireless(const SWirelessChannel& channel, USHORT halfMegabits, BYTE signalPercent = 0,
                          int8_t signalDbm = kNoDbmReading, BYTE noisePercent = 0, int8_t noiseDbm = kNoDbmReading) {
    m_packet->SetWireless(true);
    m_packet->SetChannel(channel);
    m_packet->SetDataRate(halfMegabits);
    m_packet->SetSignal(signalPercent, signalDbm);
    m_packet->SetNoise(noisePercent, noiseDbm);
    m_packet->SetWirelessMediaInfo();
    return *this;
  }
  PacketBuilder& Security(LONG transmitEncryption, LONG receiveEncryption, LONG authentication) {
    return Do([&] { m_packet->SetSecurity(transmitEncryption, receiveEncryption, authentication); });
  }
  PacketBuilder& WEPKeyIndex(BYTE index) { return Do([&] { m_packet->SetWEPKeyIndex(index); }); }

 private:
  template <class F>
  PacketBuilder& Do(F&& f) {
    f();
    return *this;
  }

  ComPtr<Packet> m_packet;
  std::vector<BYTE> m_data;
};

}  // namespace zemo
