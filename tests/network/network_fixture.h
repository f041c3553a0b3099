// What the network statistics tests share: the module registered (XML
// names its elements by program identifier, tables are engine objects), a
// context whose adapter announces channels, and persistence round trips.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "context/stats_context.h"
#include "engine/adapter_info.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "frame/xml_persist.h"
#include "network/network_counters.h"
#include "platform/class_store.h"
#include "support/stream_bytes.h"
#include "support/xml_text.h"

namespace zemo::testing {

using testing_support::LoadStreamBytes;
using testing_support::StreamBytes;

inline constexpr ZemoTime kT0 = 133000000000000000ull;  // some day in 2022
inline constexpr ZemoTime kSecond = 1000000000ull;

class NetworkFixture : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(S_OK, DllRegisterServer()); }

  // A statistic of the module by class identifier, as a host creates it.
  template <class I>
  static ComPtr<I> Create(REFCLSID clsid) {
    ComPtr<I> out;
    EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IidOf<I>(), out.OutVoid()));
    return out;
  }

  // A context whose adapter announces these channel numbers.
  static ComPtr<StatsContext> ContextWithChannels(std::initializer_list<ULONG> numbers) {
    auto adapter = AdapterInfo::Create();
    std::vector<ULONG> n(numbers);
    adapter->SetChannelNumbers(n);
    auto context = StatsContext::Create();
    EXPECT_EQ(S_OK, context->SetAdapterInfo(adapter.Get()));
    return context;
  }

  // The object saved into a new document, as markup.
  static std::string XmlOf(IUnknown* object) {
    ComPtr<IXMLDOMDocument> doc = CreateXmlDocument();
    EXPECT_EQ(S_OK, SaveObjectToXml(object, doc.Get(), doc.Get(), FALSE));
    return ToUtf8(testing_support::XmlMarkup(doc.Get()));
  }

  static HRESULT LoadXml(IUnknown* object, const std::string& markup) {
    ComPtr<IXMLDOMDocument> doc = testing_support::ParseXml(markup);
    return LoadObjectFromXml(object, doc.Get(), doc.Get());
  }

  // The markup with the first occurrence of `from` replaced by `to`.
  static std::string Edited(std::string markup, const std::string& from, const std::string& to) {
    size_t at = markup.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    if (at != std::string::npos) markup.replace(at, from.size(), to);
    return markup;
  }

  PacketBuilder packet;
};

inline NetworkCounters Counters(ULONGLONG tp, ULONGLONG tb, ULONGLONG bp, ULONGLONG bb, ULONGLONG mp, ULONGLONG mb) {
  return {tp, tb, bp, bb, mp, mb};
}

}  // namespace zemo::testing

inline void PrintTo(const NetworkCounters& c, std::ostream* os) {
  *os << "{" << c.TotalPackets << ", " << c.TotalBytes << ", " << c.BroadcastPackets << ", " << c.BroadcastBytes
      << ", " << c.MulticastPackets << ", " << c.MulticastBytes << "}";
}
