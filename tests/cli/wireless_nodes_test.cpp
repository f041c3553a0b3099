// What zemostats shows of 802.11 nodes beside the module's statistics:
// names escaped where they are not printable, an access point's protection
// from its beacons, a station's roams at the frames that show them, and the
// report's sections.
#include <gtest/gtest.h>

#include "cli/cli_support.h"
#include "cli/wireless_node_views.h"
#include "cli/wireless_watch.h"
#include "engine/packet_builder.h"

namespace {

using namespace zemo;
using namespace zemo::cli;
using Mac = PacketBuilder::Mac;

TEST(WirelessNodes, NamesAreEscapedWhereTheyAreNotPrintable) {
  const std::pair<std::string, std::string> cases[] = {
      {"lab", "lab"},
      {"\xB2\xE2\xCA\xD4", "\\xB2\\xE2\\xCA\\xD4"},      // not UTF-8
      {"caf\xC3\xA9", "caf\xC3\xA9"},                    // UTF-8 stands
      {"a\\b", "a\\\\b"},                                // the escape itself
      {std::string("x\0y", 3), "x\\x00y"},               // control bytes
      {"\x7F\xC2\x85", "\\x7F\\xC2\\x85"},               // DEL and a C1 control
      {"\xC0\x80\xED\xA0\x80", "\\xC0\\x80\\xED\\xA0\\x80"},  // an overlong form, a surrogate
      {"\xE2\x82", "\\xE2\\x82"},                        // a sequence cut short
  };
  for (const auto& [bytes, shown] : cases) EXPECT_EQ(shown, EscapedName(bytes)) << shown;
}

TEST(WirelessNodes, ProtectionAndRoamsFromTheFrames) {
  const Mac a{0, 1, 1, 1, 1, 1}, b{0, 2, 2, 2, 2, 2}, station{0, 9, 9, 9, 9, 9}, all{255, 255, 255, 255, 255, 255};
  constexpr ZemoTime kT0 = 133000000000000000ull, kSecond = 1000000000ull;
  WirelessWatch watch;
  PacketBuilder p;
  auto frame = [&](uint8_t fc0, uint8_t fc1, const Mac& ta, const Mac& ra, const Mac& bssid, ZemoTime t,
                   std::vector<BYTE> body) {
    std::vector<BYTE> bytes(24, 0);
    bytes[0] = fc0, bytes[1] = fc1;
    bytes.insert(bytes.end(), body.begin(), body.end());
    p.Clear().Time(t).Length(static_cast<ULONG>(bytes.size())).Data(bytes).Transmitter(ta).Receiver(ra).Bssid(bssid);
    watch.Observe(p.Get());
  };
  // A beacon of A with an RSN element; B's with the Privacy bit alone.
  std::vector<BYTE> beacon(12, 0);
  beacon[10] = 0x11;
  beacon.insert(beacon.end(), {0, 1, 'x', 48, 2, 1, 0});
  frame(0x80, 0, a, all, a, kT0, beacon);
  beacon.resize(12);
  frame(0x80, 0, b, all, b, kT0, beacon);
  ASSERT_TRUE(watch.ProtectionOf(a));
  EXPECT_EQ("WPA2", ProtectionText(*watch.ProtectionOf(a)));
  EXPECT_EQ("WEP", ProtectionText(*watch.ProtectionOf(b)));
  EXPECT_EQ(nullptr, watch.ProtectionOf(station));

  // Data to A, a refused association with B, then data to B two seconds on.
  frame(0x08, 0x01, station, a, a, kT0, std::vector<BYTE>(8, 0));
  frame(0x10, 0x00, b, station, b, kT0 + kSecond, {0, 0, 1, 0});  // status 1 at bytes 26 and 27
  EXPECT_TRUE(watch.Roams().empty());
  frame(0x08, 0x01, station, b, b, kT0 + 2 * kSecond, std::vector<BYTE>(8, 0));
  frame(0x08, 0x02, b, station, b, kT0 + 3 * kSecond, std::vector<BYTE>(8, 0));
  ASSERT_EQ(1u, watch.Roams().size());
  const WirelessWatch::Roam& r = watch.Roams()[0];
  EXPECT_EQ(kT0 + 2 * kSecond, r.time);
  EXPECT_EQ(station, r.station);
  EXPECT_EQ(a, r.from);
  EXPECT_EQ(b, r.to);
  EXPECT_EQ("roam", RoamJson(r)["kind"]);
  EXPECT_EQ("00:01:01:01:01:01", RoamJson(r)["from"]);
}

TEST(WirelessNodes, TheReportHasAccessPointsStationsAndNetworks) {
  const std::string capture = std::string(ZEMO_SHARED_DIR) + "/captures/aircrack/wpa2-psk-linksys.cap";
  if (!testing_cli::FileExists(capture)) GTEST_SKIP() << capture << " is absent";
  const testing_cli::RunResult run = testing_cli::RunZemostats({"analyze", capture});
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_NE(std::string::npos, run.out.find("\nAccess points\n  signal in dBm: least, greatest\n"
                                          "  BSSID              Network  Channel       Protection  Stations"));
  EXPECT_NE(std::string::npos, run.out.find("  00:0b:86:c2:a4:85  linksys  1 - 2412 MHz  WPA2               1"));
  EXPECT_NE(std::string::npos, run.out.find("  00:13:ce:55:98:ef  00:0b:86:c2:a4:85  linksys"));
  EXPECT_NE(std::string::npos, run.out.find("\nNetworks\n  Network  Access points  Stations\n  linksys              1"));
}

}  // namespace
