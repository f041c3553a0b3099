// A packet that answers as the engine's Packet it wraps, except for the
// operations told to fail, and counts the calls it gets.
#pragma once

#include <set>
#include <string>

#include "engine/packet_builder.h"

namespace zemo::testing {

inline constexpr HRESULT kPacketFailure = static_cast<HRESULT>(0x80047001);

class FaultyPacket final : public Object<FaultyPacket, IPacket, IChannelPacket, ILinePacket> {
 public:
  explicit FaultyPacket(IPacket* inner) : m_inner(inner) {}

  std::set<std::string> failing;  // operation names
  int calls = 0;

#define ZEMO_FORWARD(name, params, args)             \
  HRESULT name params override {                     \
    ++calls;                                         \
    if (failing.count(#name)) return kPacketFailure; \
    return m_inner->name args;                       \
  }
  ZEMO_FORWARD(GetPacketData, (const BYTE** d), (d))
  ZEMO_FORWARD(GetMediaInfo, (const BYTE** b, ULONG* n), (b, n))
  ZEMO_FORWARD(GetPacketClass, (LONG* c), (c))
  ZEMO_FORWARD(GetPacketLength, (USHORT* n), (n))
  ZEMO_FORWARD(GetSliceLength, (USHORT* n), (n))
  ZEMO_FORWARD(GetCaptureLength, (USHORT* n), (n))
  ZEMO_FORWARD(GetFlags, (ULONG* f), (f))
  ZEMO_FORWARD(GetTimeStamp, (ZemoTime* t), (t))
  ZEMO_FORWARD(GetFrameProtoSpecId, (USHORT* id), (id))
  ZEMO_FORWARD(GetProtoSpecId, (ULONG* id), (id))
  ZEMO_FORWARD(TestStatus, (ULONG m, BOOL* y), (m, y))
  ZEMO_FORWARD(TestFlags, (ULONG m, BOOL* y), (m, y))
  ZEMO_FORWARD(IsWireless, (BOOL* y), (y))
  ZEMO_FORWARD(HasChannelNumber, (BOOL* y), (y))
  ZEMO_FORWARD(HasLineNumber, (BOOL* y), (y))
  ZEMO_FORWARD(IsError, (BOOL* y), (y))
  ZEMO_FORWARD(IsMulticast, (BOOL* y), (y))
  ZEMO_FORWARD(IsBroadcast, (BOOL* y), (y))
#undef ZEMO_FORWARD

  HRESULT GetChannelNumber(ULONG* n) override {
    ++calls;
    if (failing.count("GetChannelNumber")) return kPacketFailure;
    return m_inner.Query<IChannelPacket>()->GetChannelNumber(n);
  }
  HRESULT GetLineNumber(BYTE* n) override {
    ++calls;
    if (failing.count("GetLineNumber")) return kPacketFailure;
    return m_inner.Query<ILinePacket>()->GetLineNumber(n);
  }

 private:
  ComPtr<IPacket> m_inner;
};

}  // namespace zemo::testing
