#include "engine/packet.h"

#include <gtest/gtest.h>

#include <cstring>

#include "engine/packet_builder.h"
#include "engine/proto_specs.h"

namespace {

using zemo::ComPtr;
using zemo::PacketAddress;
using zemo::PacketBuilder;
namespace proto = zemo::proto;
namespace specs = zemo::specs;

bool SameSpec(const MediaSpec& a, const MediaSpec& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The value of a getter that must succeed.
template <class T, class I>
T Read(I* p, HRESULT (I::*get)(T*)) {
  T value{};
  EXPECT_EQ(S_OK, (p->*get)(&value));
  return value;
}
BOOL Bits(IPacket* p, HRESULT (IPacket::*test)(ULONG, BOOL*), ULONG mask) {
  BOOL set = -1;
  EXPECT_EQ(S_OK, (p->*test)(mask, &set));
  return set;
}

TEST(EnginePacket, GettersGiveWhatWasSet) {
  const BYTE frame[4] = {1, 2, 3, 4};
  auto p = zemo::Packet::Create();
  IPacket* i = p.Get();
  p->SetData(frame, 4);
  p->SetPacketLength(1514);
  p->SetSliceLength(128);
  p->SetTimeStamp(0x0123456789ABCDEFull);
  p->SetFlags(0x0C);
  p->SetStatus(kPacketStatusCrc | kPacketStatusRunt);
  p->SetPacketClass(2);
  p->SetProtoSpecId(proto::kHttp);
  p->SetFrameProtoSpecId(proto::kWlanBeacon);
  p->SetMulticast(true);
  p->SetChannelNumber(3);
  p->SetLineNumber(2);

  EXPECT_EQ(frame, Read(i, &IPacket::GetPacketData));
  EXPECT_EQ(4, Read(i, &IPacket::GetCaptureLength));
  EXPECT_EQ(1514, Read(i, &IPacket::GetPacketLength));
  EXPECT_EQ(128, Read(i, &IPacket::GetSliceLength));
  EXPECT_EQ(0x0123456789ABCDEFull, Read(i, &IPacket::GetTimeStamp));
  EXPECT_EQ(0x0Cu, Read(i, &IPacket::GetFlags));
  EXPECT_EQ(2, Read(i, &IPacket::GetPacketClass));
  EXPECT_EQ(proto::kHttp, Read(i, &IPacket::GetProtoSpecId));
  EXPECT_EQ(proto::kWlanBeacon, Read(i, &IPacket::GetFrameProtoSpecId));
  EXPECT_EQ(TRUE, Bits(i, &IPacket::TestStatus, kPacketStatusCrc));
  EXPECT_EQ(FALSE, Bits(i, &IPacket::TestStatus, kPacketStatusFrame | kPacketStatusShort));
  EXPECT_EQ(TRUE, Bits(i, &IPacket::TestFlags, 0x8));
  EXPECT_EQ(FALSE, Bits(i, &IPacket::TestFlags, 0x1));
  EXPECT_EQ(TRUE, Read(i, &IPacket::IsMulticast));
  EXPECT_EQ(FALSE, Read(i, &IPacket::IsBroadcast));
  EXPECT_EQ(FALSE, Read(i, &IPacket::IsError));
  EXPECT_EQ(FALSE, Read(i, &IPacket::IsWireless));
  EXPECT_EQ(TRUE, Read(i, &IPacket::HasChannelNumber));
  EXPECT_EQ(TRUE, Read(i, &IPacket::HasLineNumber));
  IChannelPacket* channel = p.Get();
  ILinePacket* line = p.Get();
  EXPECT_EQ(3u, Read(channel, &IChannelPacket::GetChannelNumber));
  EXPECT_EQ(2, Read(line, &ILinePacket::GetLineNumber));

  // Lengths are 16 bits on the interface: more is cut, not wrapped.
  p->SetPacketLength(70000);
  EXPECT_EQ(0xFFFF, Read(i, &IPacket::GetPacketLength));
  EXPECT_EQ(E_POINTER, p->GetTimeStamp(nullptr));
  EXPECT_EQ(E_POINTER, p->TestFlags(1, nullptr));
}

TEST(EnginePacket, AddressesAnswerOnlyWhenSet) {
  const uint8_t mac[6] = {0, 1, 2, 3, 4, 5};
  auto p = zemo::Packet::Create();
  using Getter = HRESULT (IPacketAddresses::*)(MediaSpec*);
  const Getter getters[] = {&IPacketAddresses::GetProtocol,          &IPacketAddresses::GetPhysicalSource,
                            &IPacketAddresses::GetPhysicalDestination, &IPacketAddresses::GetLogicalSource,
                            &IPacketAddresses::GetLogicalDestination, &IPacketAddresses::GetBSSID,
                            &IPacketAddresses::GetWirelessReceiver,   &IPacketAddresses::GetWirelessTransmitter};
  IPacketAddresses* a = p.Get();
  MediaSpec spec;
  for (Getter g : getters) EXPECT_EQ(E_FAIL, (a->*g)(&spec));

  // Each address lands in its own getter and no other.
  for (size_t which = 0; which < zemo::kPacketAddressCount; ++which) {
    p->Clear();
    MediaSpec set = specs::Ethernet(mac);
    set.fData[5] = uint8_t(which);
    p->SetAddress(PacketAddress(which), set);
    for (size_t g = 0; g < zemo::kPacketAddressCount; ++g) {
      MediaSpec got{};
      HRESULT hr = (a->*getters[g])(&got);
      if (g == which) {
        ASSERT_EQ(S_OK, hr);
        EXPECT_TRUE(SameSpec(set, got));
      } else {
        EXPECT_EQ(E_FAIL, hr) << which << " answered at " << g;
      }
    }
  }
  p->RemoveAddress(PacketAddress::kWirelessTransmitter);
  EXPECT_EQ(E_FAIL, p->GetWirelessTransmitter(&spec));
  EXPECT_EQ(E_POINTER, p->GetProtocol(nullptr));
}

TEST(EnginePacket, ClearResetsEverythingAPacketSets) {
  const BYTE frame[2] = {};
  PacketBuilder b;
  b.Data({1, 2}).Time(5).Length(60).Flags(4).Status(2).Class(1).Layers({proto::kEthernetII, proto::kArp});
  b.EthernetSource({1, 2, 3, 4, 5, 6}).Error().Broadcast().ChannelNumber(1).LineNumber(1);
  b.Wireless({6, 2437, 1}, 108, 50, -40).WEPKeyIndex(1).FrameKind(proto::kWlanBeacon);
  b.Target().AddField(7, frame, 2);
  b.Target().Clear();

  IPacket* p = b.Get();
  EXPECT_EQ(nullptr, Read(p, &IPacket::GetPacketData));
  const BYTE* block = frame;
  ULONG blockLength = 1;
  p->GetMediaInfo(&block, &blockLength);
  EXPECT_EQ(nullptr, block);
  EXPECT_EQ(0u, blockLength);
  EXPECT_EQ(0, Read(p, &IPacket::GetCaptureLength));
  EXPECT_EQ(0, Read(p, &IPacket::GetPacketLength));
  EXPECT_EQ(0u, Read(p, &IPacket::GetTimeStamp));
  EXPECT_EQ(0u, Read(p, &IPacket::GetFlags));
  EXPECT_EQ(0xFFFFu, Read(p, &IPacket::GetProtoSpecId));
  EXPECT_EQ(0xFFFF, Read(p, &IPacket::GetFrameProtoSpecId));
  for (auto test : {&IPacket::IsWireless, &IPacket::IsError, &IPacket::IsBroadcast, &IPacket::HasChannelNumber,
                    &IPacket::HasLineNumber})
    EXPECT_EQ(FALSE, Read(p, test));
  EXPECT_EQ(FALSE, Bits(p, &IPacket::TestStatus, ~0u));
  MediaSpec spec;
  EXPECT_EQ(E_FAIL, b.Target().GetPhysicalSource(&spec));
  EXPECT_EQ(E_FAIL, b.Target().GetProtocol(&spec));
  ULONG count = 64;
  ZemoLayerReport layers[64];
  EXPECT_EQ(S_OK, b.Target().GetLayers(&count, layers));
  EXPECT_EQ(0u, count);
  const BYTE* data = nullptr;
  USHORT length = 0;
  ULONG number = 0;
  EXPECT_EQ(E_FAIL, b.Target().GetFieldById(7, 0, &data, &length));
  EXPECT_EQ(E_FAIL, b.Target().GetChannelNumber(&number));
  // No radio readings: the wireless answers fail, and the dBm defaults mean none.
  int8_t dbm = 0;
  EXPECT_EQ(E_FAIL, b.Target().GetSignalDBm(&dbm));
  b.Target().SetWireless(true);
  ASSERT_EQ(S_OK, b.Target().GetSignalDBm(&dbm));
  EXPECT_EQ(kNoDbmReading, dbm);
  BYTE key = 9;
  EXPECT_EQ(S_FALSE, b.Target().GetWEPKeyIndex(&key));
  EXPECT_EQ(0, key);
}

TEST(EnginePacket, LayersFillTheRoomGivenOutermostFirst) {
  PacketBuilder b;
  b.Layers({proto::kEthernetII, proto::kIpv4, proto::kTcp, proto::kHttp});
  ZemoLayerReport layers[64] = {};
  ULONG count = 2;
  EXPECT_EQ(S_FALSE, b.Target().GetLayers(&count, layers));
  EXPECT_EQ(2u, count);
  EXPECT_EQ(proto::kEthernetII, layers[0].ProtoSpecId);
  EXPECT_EQ(proto::kIpv4, layers[1].ProtoSpecId);
  EXPECT_EQ(0, layers[2].ProtoSpecId);  // nothing written past the room
  count = 64;
  EXPECT_EQ(S_OK, b.Target().GetLayers(&count, layers));
  EXPECT_EQ(4u, count);
  EXPECT_EQ(proto::kHttp, layers[3].ProtoSpecId);
  count = 0;
  EXPECT_EQ(S_FALSE, b.Target().GetLayers(&count, nullptr));
  EXPECT_EQ(E_POINTER, b.Target().GetLayers(nullptr, layers));

  // The builder makes the innermost layer the packet's protocol.
  MediaSpec protocol;
  ASSERT_EQ(S_OK, b.Target().GetProtocol(&protocol));
  EXPECT_EQ(9, protocol.fType);
  EXPECT_EQ(proto::kHttp, protocol.fData[0] | protocol.fData[1] << 8);

  b.Clear();
  for (ULONG i = 0; i < zemo::Packet::kMaxLayers; ++i) EXPECT_TRUE(b.Target().AddLayer({USHORT(i), 0, 0, 0}));
  EXPECT_FALSE(b.Target().AddLayer({0, 0, 0, 0}));
}

TEST(EnginePacket, WirelessReadingsAndTheirMediaBlock) {
  PacketBuilder b;
  const SWirelessChannel channel{11, 2462, 1};
  b.Wireless(channel, 108, 70, -45, 5, -92).Security(2, 3, 4).WEPKeyIndex(1);
  zemo::Packet& p = b.Target();
  IWirelessPacket* w = &p;
  EXPECT_TRUE(Read(w, &IWirelessPacket::GetChannel) == channel);
  EXPECT_EQ(108, Read(w, &IWirelessPacket::GetDataRate));
  EXPECT_EQ(70, Read(w, &IWirelessPacket::GetSignalPercent));
  EXPECT_EQ(-45, Read(w, &IWirelessPacket::GetSignalDBm));
  EXPECT_EQ(5, Read(w, &IWirelessPacket::GetNoisePercent));
  EXPECT_EQ(-92, Read(w, &IWirelessPacket::GetNoiseDBm));
  EXPECT_EQ(2, Read(w, &IWirelessPacket::GetTransmitEncryption));
  EXPECT_EQ(3, Read(w, &IWirelessPacket::GetReceiveEncryption));
  EXPECT_EQ(4, Read(w, &IWirelessPacket::GetAuthentication));
  EXPECT_EQ(1, Read(w, &IWirelessPacket::GetWEPKeyIndex));

  // The block as the wireless statistics read it.
  const BYTE* block = nullptr;
  ULONG length = 0;
  ASSERT_EQ(S_OK, p.GetMediaInfo(&block, &length));
  ASSERT_GE(length, 28u);
  ULONG mediaKind;
  USHORT blockRate;
  SWirelessChannel blockChannel;
  std::memcpy(&mediaKind, block + 4, 4);
  std::memcpy(&blockRate, block + 8, 2);
  std::memcpy(&blockChannel, block + 10, sizeof blockChannel);
  EXPECT_EQ(6u, mediaKind);
  EXPECT_EQ(108, blockRate);
  EXPECT_TRUE(blockChannel == channel);
  EXPECT_EQ(70, block[24]);
  EXPECT_EQ(5, block[25]);
  EXPECT_EQ(-45, int8_t(block[26]));
  EXPECT_EQ(-92, int8_t(block[27]));
}

TEST(EnginePacket, FieldsByIdentifierAndEveryInterfaceOnOneObject) {
  const BYTE ssid[4] = {'z', 'e', 'm', 'o'};
  auto p = zemo::Packet::Create();
  ASSERT_TRUE(p->AddField(0x100, ssid, 4));
  ASSERT_TRUE(p->AddHeaderField(0x200, ssid + 1, 2));
  const BYTE* data = nullptr;
  USHORT length = 0;
  ASSERT_EQ(S_OK, p->GetFieldById(0x100, 0, &data, &length));
  EXPECT_EQ(ssid, data);
  EXPECT_EQ(4, length);
  EXPECT_EQ(E_FAIL, p->GetFieldById(0x200, 0, &data, &length));  // a header field is not a field
  ASSERT_EQ(S_OK, p->GetHeaderFieldById(0x200, 0, &data, &length));
  EXPECT_EQ(ssid + 1, data);
  EXPECT_EQ(2, length);
  EXPECT_EQ(E_FAIL, p->GetHeaderFieldById(0x100, 0, &data, &length));

  ComPtr<IPacket> packet(p.Get());
  for (const IID* iid : {&IPacketAddresses::iid, &IWirelessPacket::iid, &IPacketFields::iid, &IChannelPacket::iid,
                         &ILinePacket::iid, &IUnknown::iid}) {
    ComPtr<IUnknown> other;
    EXPECT_EQ(S_OK, packet->QueryInterface(*iid, other.OutVoid()));
  }
}

}  // namespace
