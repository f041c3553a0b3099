// Support for the error, size, history and dashboard tests: the network
// statistics' fixture with a context on a chosen medium, tables as text,
// streams of raw bytes, and a scratch folder for text exports.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "support/scratch_dir.h"
#include "support/stream_bytes.h"
#include "support/table_cells.h"
#include "support/xml_text.h"
#include "context/stats_context.h"
#include "engine/engine.h"
#include "engine/packet_builder.h"
#include "frame/module.h"
#include "frame/persist_interfaces.h"
#include "frame/stream_persist.h"
#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "platform/stream.h"
#include "tests/network/network_fixture.h"

#define EXPECT_FAILS(expr) EXPECT_TRUE(FAILED(expr)) << #expr

namespace sized {

using zemo::ComPtr;
using zemo::testing_support::LoadStreamBytes;
using zemo::testing_support::ParseXml;
using zemo::testing_support::StreamBytes;

// The rows of a statistic's table as "Stat=Value " pairs.
inline std::string TableText(ISelectableObject* stats) {
  auto t = zemo::testing_support::ReadTable(stats);
  std::string out;
  for (const auto& row : t.rows) {
    if (row.size() < 2) return "short row";
    EXPECT_EQ(VT_BSTR, row[0].vt);
    EXPECT_EQ(VT_UI8, row[1].vt);
    out += zemo::ToUtf8(zemo::XmlText(row[0])) + "=" + std::to_string(row[1].ullVal) + " ";
  }
  return out;
}

inline constexpr ZemoTime kSec = 1000000000ull;
inline constexpr ZemoTime kBase = 133500000000000000ull;  // on a whole second, in 2024

class StatsTest : public zemo::testing::NetworkFixture {
 protected:
  static ComPtr<zemo::StatsContext> Context(ULONG type, ULONG subType = 0, ULONGLONG speed = 0) {
    auto context = zemo::StatsContext::Create();
    EXPECT_EQ(S_OK, context->SetMediaType(type));
    EXPECT_EQ(S_OK, context->SetMediaSubType(subType));
    EXPECT_EQ(S_OK, context->SetLinkSpeed(speed));
    return context;
  }

  // A new S added to a new context on this medium, as a host sets it up.
  template <class S>
  ComPtr<S> InContext(REFCLSID clsid, ULONG type, ULONG subType, ULONGLONG speed) {
    m_contexts.push_back(m_context = Context(type, subType, speed));
    auto stats = S::Create();
    EXPECT_EQ(S_OK, m_context->AddStats(clsid, stats.Get()));
    return stats;
  }

  // The document element `root` of a new document, for XML round trips.
  static ComPtr<IXMLDOMElement> XmlRoot(ComPtr<IXMLDOMDocument>& document) {
    document = zemo::CreateXmlDocument();
    auto root = zemo::CreateChildElement(document.Get(), document.Get(), u"root");
    return root;
  }

  std::u16string File(const std::string& leaf) const { return m_dir.WideFile(leaf); }
  static std::string Contents(const std::u16string& name) { return zemo::testing_support::ReadFile(name); }
  static bool Exists(const std::u16string& name) { return std::filesystem::exists(zemo::ToUtf8(name)); }

  ComPtr<zemo::StatsContext> m_context;
  // A statistic holds its context without a reference: every context made stays alive.
  std::vector<ComPtr<zemo::StatsContext>> m_contexts;

 private:
  zemo::testing_support::ScratchDir m_dir;
};

// Little-endian bytes of a record, for building streams by hand.
template <class T>
void Put(std::vector<uint8_t>& out, T value) {
  uint8_t bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  out.insert(out.end(), bytes, bytes + sizeof(T));
}

}  // namespace sized
