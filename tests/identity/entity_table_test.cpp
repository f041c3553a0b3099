#include "identity/entity_table.h"

#include <unistd.h>

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "engine/proto_specs.h"
#include "engine/spec_values.h"
#include "frame/selection.h"
#include "frame/xml_persist.h"
#include "identity_test_support.h"
#include "support/scratch_dir.h"
#include "support/xml_text.h"

namespace {

using namespace identity_test;
using zemo::specs::Make;
namespace proto = zemo::proto;

MediaSpec Protocol(uint32_t id) { return zemo::specs::Protocol(id); }

MediaSpec Entity(IEntityTable* table, ULONG id, ZemoTime* time = nullptr) {
  MediaSpec spec;
  EXPECT_EQ(S_OK, table->GetEntity(id, &spec, time)) << std::hex << id;
  return spec;
}

std::vector<ULONG> IdsOf(IEntityTable* table, ULONG type) {
  std::vector<ULONG> ids;
  ULONG id = 0;
  BOOL more = FALSE;
  EXPECT_EQ(S_OK, table->GetFirstId(type, &id, &more));
  while (more) {
    ids.push_back(id);
    EXPECT_EQ(S_OK, table->GetNextId(id, &id, &more));
  }
  return ids;
}

// Every entity of a table by identifier, its value as hex with its type.
std::map<ULONG, std::string> Contents(IEntityTable* table) {
  std::map<ULONG, std::string> out;
  for (uint32_t n = 0; n < zemo::kEntitySubTableCount; ++n)
    for (ULONG id : IdsOf(table, zemo::SubTableType(n))) {
      MediaSpec s = Entity(table, id);
      out[id] = std::to_string(s.fType) + ":" + zemo::HexText(s.fData, zemo::MediaSpecLength(s.fType));
    }
  return out;
}

// ---- identity -----------------------------------------------------------------

TEST(EntityTableIdentity, SameValueUnderTwoTypesIsTwoEntities) {
  auto table = NewEntityTable();
  MediaSpec ethernet = Mac(1, 10), other = Mac(1, 13);
  ULONG a = Add(table.Get(), ethernet), b = Add(table.Get(), other);
  EXPECT_EQ(0x05000000u, a);
  EXPECT_EQ(0x0A000000u, b);
  EXPECT_EQ(1u, Count(table.Get(), 10));
  EXPECT_EQ(1u, Count(table.Get(), 13));
  EXPECT_EQ(13, Entity(table.Get(), b).fType);
  // The same four bytes as an IPv4 address and as a protocol identifier.
  MediaSpec ip = Make(21, {1, 0, 0, 0}), protocol = Make(9, {1, 0, 0, 0});
  EXPECT_NE(Add(table.Get(), ip), Add(table.Get(), protocol));
  EXPECT_EQ(4u, Count(table.Get()));
}

TEST(EntityTableIdentity, ClassMaskAndBytesBehindTheLengthTakeNoPart) {
  auto table = NewEntityTable();
  MediaSpec plain = Ip(0x0A000001);
  ULONG id = Add(table.Get(), plain);
  MediaSpec odd = plain;
  odd.fClass = 7;
  odd.fMask = 0x12345678u;
  odd.fData[4] = 0xEE;  // behind an IPv4 address
  odd.fReserved[1] = 3;
  EXPECT_EQ(id, Add(table.Get(), odd));
  ULONG found = 0;
  EXPECT_EQ(S_OK, table->FindOrAdd(&odd, 0, &found));
  EXPECT_EQ(id, found);
  EXPECT_EQ(1u, Count(table.Get()));

  // What comes back is the sub-table's class and the full mask.
  MediaSpec back = Entity(table.Get(), id);
  EXPECT_EQ(2, back.fClass);
  EXPECT_EQ(21, back.fType);
  EXPECT_EQ(0xFFFFFFFFu, back.fMask);
  EXPECT_EQ(0, back.fData[4]);
  EXPECT_TRUE(zemo::SpecsEqual(plain, back));
}

TEST(EntityTableIdentity, ValuesThatShareAChainStayApart) {
  auto table = NewEntityTable();
  // IPv4 hashes by its four bytes read little-endian: 3079 apart share a chain.
  auto le = [](uint32_t v) { return Make(21, {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}); };
  ULONG a = Add(table.Get(), le(5)), b = Add(table.Get(), le(5 + 3079)), c = Add(table.Get(), le(5 + 2 * 3079));
  EXPECT_EQ(3u, std::set<ULONG>({a, b, c}).size());
  auto* impl = static_cast<zemo::EntityTable*>(table.Get());
  EXPECT_EQ(3u, impl->SubTable(6).GetShape().longest);
  EXPECT_EQ(1u, impl->SubTable(6).GetShape().used);
  for (auto [v, id] : {std::pair{5u, a}, {5u + 3079, b}, {5u + 2 * 3079, c}}) {
    MediaSpec s = le(v);
    ULONG found = 0;
    EXPECT_EQ(S_OK, table->FindOrAdd(&s, 0, &found));
    EXPECT_EQ(id, found);
  }
  // Short values fold big-endian: 00 01 and 00 01 + 3079 collide too.
  MediaSpec p1 = Make(22, {0x00, 0x01}), p2 = Make(22, {0x0C, 0x08});  // 1 and 3080
  EXPECT_NE(Add(table.Get(), p1), Add(table.Get(), p2));
  EXPECT_EQ(2u, impl->SubTable(8).GetShape().longest);

  // Longer values hash by their last four bytes: values that share a chain
  // must still compare whole. MACs whose last four bytes read 3079 * 65536
  // apart collide and differ only in bytes 4 and 5; IPv6 values that differ
  // in bytes 0 or 8 alone collide too.
  auto value = [](uint8_t type, std::initializer_list<std::pair<int, uint8_t>> bytes) {
    MediaSpec s{};
    s.fType = type;
    s.fMask = 0xFFFFFFFF;
    for (auto [at, byte] : bytes) s.fData[at] = byte;
    return s;
  };
  const uint8_t mac = zemo::specs::kTypeEthernet, ipv6 = zemo::specs::kTypeIpv6;
  for (const auto& group : {std::vector<MediaSpec>{value(mac, {}), value(mac, {{4, 0x07}, {5, 0x0C}}), value(mac, {{0, 1}})},
                            std::vector<MediaSpec>{value(ipv6, {}), value(ipv6, {{8, 1}}), value(ipv6, {{0, 1}})}}) {
    std::vector<ULONG> ids;
    for (MediaSpec s : group) ids.push_back(Add(table.Get(), s));
    EXPECT_EQ(3u, std::set<ULONG>(ids.begin(), ids.end()).size()) << int(group[0].fType);
    for (size_t k = 0; k < group.size(); ++k) {
      MediaSpec s = group[k];
      ULONG found = 0;
      EXPECT_EQ(S_OK, table->FindOrAdd(&s, 0, &found));
      EXPECT_EQ(ids[k], found);
    }
  }
}

TEST(EntityTableIdentity, ValuelessTypesAreOneEntityEach) {
  auto table = NewEntityTable();
  MediaSpec a = Valueless(39), b = Valueless(39);
  b.fData[0] = 0x42;  // no value bytes: ignored
  ULONG id = Add(table.Get(), a);
  EXPECT_EQ(0x10000000u, id);
  EXPECT_EQ(id, Add(table.Get(), b));
  EXPECT_EQ(1u, Count(table.Get(), 39));
  EXPECT_EQ(0x13000000u, Add(table.Get(), Valueless(41)));
}

TEST(EntityTableIdentity, AddsOnlyWhenAskedWithExactlyOne) {
  auto table = NewEntityTable();
  MediaSpec ip = Ip(0xC0A80001);
  ULONG id = 0;
  EXPECT_EQ(E_FAIL, table->FindOrAdd(&ip, 0, &id));
  EXPECT_EQ(kNoEntityId, id);
  EXPECT_EQ(E_FAIL, table->FindOrAdd(&ip, 2, &id));
  EXPECT_EQ(E_FAIL, table->FindOrAdd(&ip, -1, &id));
  EXPECT_EQ(0u, Count(table.Get()));
  EXPECT_EQ(E_INVALIDARG, table->FindOrAdd(nullptr, 1, &id));
  EXPECT_EQ(E_POINTER, table->FindOrAdd(&ip, 1, nullptr));
  // Types that cannot be stored.
  for (uint8_t type : {0, 4, 7, 12, 35, 45, 200}) {
    MediaSpec s = Make(type, {1, 2, 3, 4, 5, 6});
    id = 0;
    EXPECT_EQ(E_FAIL, table->FindOrAdd(&s, 1, &id)) << int(type);
    EXPECT_EQ(kNoEntityId, id);
  }
  EXPECT_EQ(0u, Count(table.Get()));
}

TEST(EntityTableIdentity, BlockBoundariesAt64RecordsKeepEveryIdentifier) {
  auto table = NewEntityTable();
  std::vector<ULONG> ids;
  for (uint32_t i = 0; i < 200; ++i) ids.push_back(Add(table.Get(), Ip(0x0A000000 + i * 7919)));
  for (uint32_t i = 0; i < 200; ++i) {
    ASSERT_EQ(0x06000000u + i, ids[i]);
    MediaSpec back = Entity(table.Get(), ids[i]);
    EXPECT_TRUE(zemo::SpecsEqual(Ip(0x0A000000 + i * 7919), back)) << i;
  }
  // Found again after the blocks filled, at and around each boundary.
  for (uint32_t i : {0u, 63u, 64u, 65u, 127u, 128u, 191u, 192u, 199u}) EXPECT_EQ(ids[i], Add(table.Get(), Ip(0x0A000000 + i * 7919)));
  EXPECT_EQ(200u, Count(table.Get(), 21));
  EXPECT_EQ(ids, IdsOf(table.Get(), 21));
  MediaSpec spec;
  EXPECT_EQ(E_FAIL, table->GetEntity(0x06000000u + 200, &spec, nullptr));
}

TEST(EntityTableIdentity, ResetEmptiesAndIdentifiersStartOver) {
  auto table = NewEntityTable();
  Add(table.Get(), Ip(1));
  Add(table.Get(), Mac(1));
  ULONG second = Add(table.Get(), Ip(2));
  EXPECT_EQ(S_OK, table->Reset());
  EXPECT_EQ(0u, Count(table.Get()));
  MediaSpec spec;
  EXPECT_EQ(E_FAIL, table->GetEntity(second, &spec, nullptr));
  EXPECT_EQ(0x06000000u, Add(table.Get(), Ip(2)));
  ULONG id = 0;
  MediaSpec first = Ip(1);
  EXPECT_EQ(E_FAIL, table->FindOrAdd(&first, 0, &id));  // the chains were emptied too
}

// ---- lookups -------------------------------------------------------------------

TEST(EntityTableLookups, CountsFirstAndNextIdentifiers) {
  auto table = NewEntityTable();
  Add(table.Get(), Ip(1));
  Add(table.Get(), Ip(2));
  Add(table.Get(), Mac(9));
  EXPECT_EQ(3u, Count(table.Get()));
  ULONG n = 9;
  EXPECT_EQ(E_INVALIDARG, table->GetCount(7, &n));
  EXPECT_EQ(E_INVALIDARG, table->GetCount(45, &n));
  EXPECT_EQ(E_POINTER, table->GetCount(0, nullptr));

  ULONG id = 0;
  BOOL more = TRUE;
  EXPECT_EQ(S_OK, table->GetFirstId(7, &id, &more));
  EXPECT_EQ(kNoEntityId, id);
  EXPECT_FALSE(more);
  EXPECT_EQ(S_OK, table->GetFirstId(24, &id, &more));  // empty sub-table
  EXPECT_EQ(kNoEntityId, id);
  EXPECT_FALSE(more);
  EXPECT_EQ(S_OK, table->GetFirstId(0, &id, &more));
  EXPECT_FALSE(more);
  EXPECT_EQ((std::vector<ULONG>{0x06000000, 0x06000001}), IdsOf(table.Get(), 21));
  EXPECT_EQ(E_INVALIDARG, table->GetNextId(kNoEntityId, &id, &more));
  EXPECT_EQ(E_INVALIDARG, table->GetNextId(0x17000000, &id, &more));
}

TEST(EntityTableLookups, GetEntityAndKindCheckTheIdentifier) {
  auto table = NewEntityTable();
  zemo::SetNowForTesting(123456789);
  ULONG id = Add(table.Get(), Mac(3, 13));
  zemo::SetNowForTesting(0);
  ZemoTime time = 0;
  MediaSpec spec = Entity(table.Get(), id, &time);
  EXPECT_EQ(123456789u, time);
  EXPECT_EQ(E_INVALIDARG, table->GetEntity(kNoEntityId, &spec, nullptr));
  EXPECT_EQ(E_FAIL, table->GetEntity(0x17000000, &spec, nullptr));
  EXPECT_EQ(E_FAIL, table->GetEntity(id + 1, &spec, nullptr));
  EXPECT_EQ(0, spec.fType);  // zeroed even on failure
  EXPECT_EQ(E_POINTER, table->GetEntity(id, nullptr, nullptr));

  // The kind comes from the sub-table number: no record needed.
  BYTE cls = 9, type = 9;
  EXPECT_EQ(S_OK, table->GetEntityKind(0x0C00FFFF, &cls, &type));
  EXPECT_EQ(3, cls);
  EXPECT_EQ(34, type);
  EXPECT_EQ(E_FAIL, table->GetEntityKind(0x17000000, &cls, &type));
  EXPECT_EQ(0, cls);
  EXPECT_EQ(0, type);
  EXPECT_EQ(E_FAIL, table->GetEntityKind(kNoEntityId, &cls, &type));
}

TEST(EntityTableLookups, ProtocolContainmentGoesThroughTheProtocolTree) {
  auto table = NewEntityTable();
  ULONG http = Add(table.Get(), Protocol(proto::kHttp)), tcp = Add(table.Get(), Protocol(proto::kTcp));
  ULONG udp = Add(table.Get(), Protocol(proto::kUdp)), ip = Add(table.Get(), Ip(1));
  BOOL yes = FALSE;
  EXPECT_EQ(S_OK, table->IsProtocolWithin(http, tcp, &yes));
  EXPECT_TRUE(yes);
  EXPECT_EQ(S_OK, table->IsProtocolWithin(tcp, tcp, &yes));
  EXPECT_TRUE(yes);
  EXPECT_EQ(S_FALSE, table->IsProtocolWithin(tcp, http, &yes));
  EXPECT_FALSE(yes);
  EXPECT_EQ(S_FALSE, table->IsProtocolWithin(http, udp, &yes));
  yes = TRUE;
  EXPECT_EQ(E_FAIL, table->IsProtocolWithin(ip, tcp, &yes));
  EXPECT_FALSE(yes);
  EXPECT_EQ(E_FAIL, table->IsProtocolWithin(http, kNoEntityId, &yes));
  EXPECT_EQ(E_FAIL, table->IsProtocolWithin(0x04000009, tcp, &yes));  // type 9 but no such record
  EXPECT_EQ(E_POINTER, table->IsProtocolWithin(http, tcp, nullptr));
}

// ---- version 0x200 -----------------------------------------------------------

std::vector<uint8_t> OldStreamWithOneMac() {
  Bytes b;
  b.Put<USHORT>(0x6865).Put<USHORT>(0x200).EmptyEntitySubTables(0, 5);
  b.Put<ULONG>(1).Put<USHORT>(6).Raw({0x00, 0x50, 0, 0, 0, 1});
  b.EmptyEntitySubTables(6, 12);
  return b.Get();
}

TEST(EntityTableVersions, OldStreamsGiveFourBitSubTablesUntilTheNextLoad) {
  auto table = NewEntityTable();
  EXPECT_EQ(0x05000000u, Add(table.Get(), Mac(7)));
  EXPECT_EQ(S_OK, table->Reset());
  ASSERT_EQ(S_OK, LoadStreamBytes(table.Get(), OldStreamWithOneMac()));
  ULONG id = 0;
  BOOL more = FALSE;
  EXPECT_EQ(S_OK, table->GetFirstId(10, &id, &more));
  EXPECT_EQ(0x50000000u, id);
  EXPECT_TRUE(zemo::SpecsEqual(Mac(1), Entity(table.Get(), id)));
  BYTE cls = 0, type = 0;
  EXPECT_EQ(S_OK, table->GetEntityKind(0x50000000u, &cls, &type));
  EXPECT_EQ(10, type);
  EXPECT_EQ(0x50000001u, Add(table.Get(), Mac(2)));
  EXPECT_EQ(0x60000000u, Add(table.Get(), Ip(1)));
  EXPECT_EQ(0xE0000000u, Add(table.Get(), Make(37, {1, 2})));
  // Sub-tables from 15 on have no four-bit number that a caller could use.
  MediaSpec high = Valueless(40);
  EXPECT_EQ(E_FAIL, table->FindOrAdd(&high, 1, &id));
  EXPECT_EQ(kNoEntityId, id);

  // Reset keeps the form.
  EXPECT_EQ(S_OK, table->Reset());
  EXPECT_EQ(0x50000000u, Add(table.Get(), Mac(3)));

  // A save is always written as 0x300, and loading one switches back.
  auto bytes = DeltaBytes(table.Get());
  EXPECT_EQ(0x00, bytes[2]);
  EXPECT_EQ(0x03, bytes[3]);
  auto fresh = NewEntityTable();
  ASSERT_EQ(S_OK, LoadStreamBytes(fresh.Get(), bytes));
  EXPECT_EQ(0x05000000u, IdsOf(fresh.Get(), 10).at(0));
  ASSERT_EQ(S_OK, LoadStreamBytes(table.Get(), bytes));
  EXPECT_EQ((std::vector<ULONG>{0x05000000}), IdsOf(table.Get(), 10));
}

TEST(EntityTableVersions, UnknownMagicOrVersionIsRefused) {
  auto table = NewEntityTable();
  EXPECT_EQ(E_FAIL, LoadStreamBytes(table.Get(), Bytes().Put<USHORT>(0x6866).Put<USHORT>(0x300).Get()));
  EXPECT_EQ(E_FAIL, LoadStreamBytes(table.Get(), Bytes().Put<USHORT>(0x6865).Put<USHORT>(0x301).Get()));
  EXPECT_EQ(E_FAIL, LoadStreamBytes(table.Get(), Bytes().Put<USHORT>(0x6865).Put<USHORT>(0x100).Get()));
  // A refused version leaves the identifiers' form alone.
  EXPECT_EQ(0x05000000u, Add(table.Get(), Mac(1)));
}

// ---- binary stream -------------------------------------------------------------

TEST(EntityTableStream, LayoutIsMagicVersionThenEverySubTableWithCountAndLength) {
  auto table = NewEntityTable();
  Add(table.Get(), Make(2, {0x11}));
  Add(table.Get(), Mac(0x01020304));
  Add(table.Get(), Mac(0x05060708));
  Add(table.Get(), Valueless(39));
  Bytes expected;
  expected.Raw({0x65, 0x68, 0x00, 0x03}).EmptyEntitySubTables(0, 1);
  expected.Put<ULONG>(1).Put<USHORT>(1).Raw({0x11}).EmptyEntitySubTables(2, 5);
  expected.Put<ULONG>(2).Put<USHORT>(6).Raw({0x00, 0x50, 1, 2, 3, 4, 0x00, 0x50, 5, 6, 7, 8}).EmptyEntitySubTables(6, 16);
  expected.Put<ULONG>(1).Put<USHORT>(0).EmptyEntitySubTables(17, 23);
  EXPECT_EQ(expected.Get(), DeltaBytes(table.Get()));

  // Save is the delta from time 0, byte for byte.
  ComPtr<IPersistStream> persist;
  ASSERT_EQ(S_OK, zemo::QueryTo(table.Get(), &persist));
  auto stream = zemo::CreateMemoryStream();
  ASSERT_EQ(S_OK, persist->Save(stream.Get(), TRUE));
  EXPECT_EQ(expected.Get(), zemo::MemoryStreamBytes(stream.Get()));
  EXPECT_EQ(E_POINTER, persist->GetSizeMax(nullptr));
  EXPECT_EQ(S_OK, persist->IsDirty());
}

TEST(EntityTableStream, ProtocolValuesTravelByTheirPathInTheProtocolTree) {
  auto specs = zemo::MakeObject<zemo::ProtoSpecs, IProtoSpecs>();
  USHORT path[100];
  ULONG depth = 100;
  ASSERT_EQ(S_OK, specs->GetSpecPath(proto::kHttp, path, &depth));
  ASSERT_GE(depth, 3u);

  auto table = NewEntityTable();
  ULONG plain = Add(table.Get(), Protocol(proto::kTcp));              // upper half 0: by its low half
  ULONG high = Add(table.Get(), Protocol(0x00070000u | proto::kHttp));  // by path
  ULONG unknown = Add(table.Get(), Protocol(0x00070000u | 0x7777));     // no path: low half
  auto bytes = DeltaBytes(table.Get());

  Bytes expected;
  expected.Raw({0x65, 0x68, 0x00, 0x03}).EmptyEntitySubTables(0, 4);
  expected.Put<ULONG>(3).Put<USHORT>(4);
  expected.Put<ULONG>(0).Put<USHORT>(proto::kTcp);
  expected.Put<ULONG>(depth);
  for (ULONG i = depth; i-- > 0;) expected.Put<USHORT>(path[i]);  // last entry first
  expected.Put<ULONG>(0).Put<USHORT>(0x7777);
  expected.EmptyEntitySubTables(5, 23);
  EXPECT_EQ(expected.Get(), bytes);

  // Loading finds the protocol by its path: the host's numbering above the
  // low half does not travel.
  auto loaded = NewEntityTable();
  ASSERT_EQ(S_OK, LoadStreamBytes(loaded.Get(), bytes));
  EXPECT_EQ(zemo::specs::ProtocolId(Entity(loaded.Get(), plain)), proto::kTcp);
  EXPECT_EQ(zemo::specs::ProtocolId(Entity(loaded.Get(), high)), proto::kHttp);
  EXPECT_EQ(zemo::specs::ProtocolId(Entity(loaded.Get(), unknown)), 0x7777u);
  BOOL within = FALSE;
  EXPECT_EQ(S_OK, loaded->IsProtocolWithin(high, plain, &within));
  EXPECT_TRUE(within);

  // A path the tree doesn't know still loads, as the value 0.
  Bytes strange;
  strange.Raw({0x65, 0x68, 0x00, 0x03}).EmptyEntitySubTables(0, 4);
  strange.Put<ULONG>(1).Put<USHORT>(4).Put<ULONG>(2).Put<USHORT>(0x7777).Put<USHORT>(0x7778);
  strange.EmptyEntitySubTables(5, 23);
  auto other = NewEntityTable();
  ASSERT_EQ(S_OK, LoadStreamBytes(other.Get(), strange.Get()));
  EXPECT_EQ(0u, zemo::specs::ProtocolId(Entity(other.Get(), 0x04000000)));
}

TEST(EntityTableStream, DeltaWithSinceBehindEveryRecordWritesOnlyEmptyCounts) {
  FixedClock clock(1000);
  auto table = NewEntityTable();
  for (uint32_t i = 0; i < 70; ++i) Add(table.Get(), Ip(i));
  Add(table.Get(), Protocol(0x00070000u | proto::kHttp));
  Add(table.Get(), Valueless(44));
  auto bytes = DeltaBytes(table.Get(), 1001);
  EXPECT_EQ(Bytes().Raw({0x65, 0x68, 0x00, 0x03}).EmptyEntitySubTables(0, 23).Get(), bytes);
  // At the time itself an entity counts.
  EXPECT_EQ(DeltaBytes(table.Get(), 0), DeltaBytes(table.Get(), 1000));
}

TEST(EntityTableStream, FullSaveThenDeltasLoadedInOrderKeepEveryIdentifier) {
  FixedClock clock(1000);
  auto table = NewEntityTable();
  for (uint32_t i = 0; i < 100; ++i) Add(table.Get(), Ip(i));
  Add(table.Get(), Mac(1));
  Add(table.Get(), Protocol(proto::kTcp));
  auto full = DeltaBytes(table.Get());

  clock.Set(2000);
  for (uint32_t i = 100; i < 150; ++i) Add(table.Get(), Ip(i));
  Add(table.Get(), Ip(5));  // a hit: no new record
  Add(table.Get(), Mac(2, 13));
  Add(table.Get(), Protocol(0x00070000u | proto::kHttp));
  Add(table.Get(), Valueless(40));
  auto delta1 = DeltaBytes(table.Get(), 2000);

  clock.Set(3000);
  for (uint32_t i = 150; i < 300; ++i) Add(table.Get(), Ip(i));  // across block boundaries
  Add(table.Get(), Mac(3));
  auto delta2 = DeltaBytes(table.Get(), 3000);
  EXPECT_EQ(4u + 23 * 6 + 150 * 4 + 6, delta2.size());

  clock.Set(9000);
  auto copy = NewEntityTable();
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), full));
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), delta1));
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), delta2));
  auto want = Contents(table.Get());
  // The protocol with an upper half comes back by its path as its low half.
  for (auto& [id, text] : want)
    if (text == "9:" + zemo::HexText(Protocol(0x00070000u | proto::kHttp).fData, 4))
      text = "9:" + zemo::HexText(Protocol(proto::kHttp).fData, 4);
  EXPECT_EQ(want, Contents(copy.Get()));
  ZemoTime time = 0;
  Entity(copy.Get(), 0x06000000, &time);
  EXPECT_EQ(9000u, time);  // new times on loading

  // Loading a delta twice changes nothing.
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), delta1));
  EXPECT_EQ(Count(table.Get()), Count(copy.Get()));
}

// The index beside the chains: a table that finds through it gives every
// value the identifier that a walk of the chains alone would (the first
// sighting's), and keeps the chains that walk would have built, when built
// by lookups, by a full load with deltas, and again after a reset.
TEST(EntityTableStream, TheIndexAgreesWithAChainWalkThroughLoadsAndResets) {
  FixedClock clock(1000);
  // Values that crowd a few chains: IPv4 3079 apart, MACs and IPv6 that
  // share their last four bytes.
  auto valueOf = [](uint32_t k) {
    switch (k % 3) {
      case 0: return Ip(7 + (k / 3 % 40) * 3079);
      case 1: return Mac((k / 3 % 50) << 16);
      default: return Make(zemo::specs::kTypeIpv6, {uint8_t(k / 3 % 30), 0, 0, 0, 0, 0, 0, 0, uint8_t(k / 90 % 2)});
    }
  };
  auto check = [&](IEntityTable* table, const std::vector<uint32_t>& fed) {
    std::map<std::pair<uint8_t, std::string>, uint32_t> firstSeen;  // what a chain walk hands out
    std::map<uint8_t, uint32_t> next;
    for (uint32_t k : fed) {
      MediaSpec s = valueOf(k);
      auto key = std::make_pair(s.fType, zemo::HexText(s.fData, zemo::MediaSpecLength(s.fType)));
      if (firstSeen.emplace(key, next[s.fType]).second) ++next[s.fType];
      ULONG id = 0;
      ASSERT_EQ(S_OK, table->FindOrAdd(&s, 0, &id));
      ASSERT_EQ((zemo::EntitySubTableOf(s.fType) << 24) | firstSeen[key], id) << k;
    }
    auto* impl = static_cast<zemo::EntityTable*>(table);
    for (uint8_t type : {21, 10, 24}) {
      const zemo::CChainTable& t = impl->SubTable(zemo::EntitySubTableOf(type));
      ExpectChainsInAddOrder(t, [&](uint32_t i) {
        return zemo::EntityTable::Hash(t.Record(i) + 12, zemo::MediaSpecLength(type));
      });
    }
  };

  auto table = NewEntityTable();
  std::vector<uint32_t> fed;
  for (uint32_t k = 0; k < 6000; ++k) fed.push_back(k * 7 % 1500);
  for (uint32_t k : fed) Add(table.Get(), valueOf(k));
  check(table.Get(), fed);
  auto full = DeltaBytes(table.Get());

  clock.Set(2000);
  std::vector<uint32_t> later;
  for (uint32_t k = 1500; k < 2400; ++k) later.push_back(k);
  for (uint32_t k : later) Add(table.Get(), valueOf(k));
  auto delta = DeltaBytes(table.Get(), 2000);

  auto copy = NewEntityTable();
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), full));
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), delta));
  fed.insert(fed.end(), later.begin(), later.end());
  check(copy.Get(), fed);

  ASSERT_EQ(S_OK, table->Reset());
  std::vector<uint32_t> again(fed.rbegin(), fed.rend());
  for (uint32_t k : again) Add(table.Get(), valueOf(k));
  check(table.Get(), again);
}

// ---- hostile streams ---------------------------------------------------------

TEST(EntityTableHostileStreams, HugeCountsEndAtTheEndOfTheBytes) {
  auto start = std::chrono::steady_clock::now();
  auto table = NewEntityTable();
  // Ten bytes: header, a count of 0xFFFFFFFF, a length of 1 and no values.
  Bytes ten;
  ten.Put<USHORT>(0x6865).Put<USHORT>(0x300).Put<ULONG>(0xFFFFFFFFu).Put<USHORT>(2);
  ASSERT_EQ(10u, ten.Get().size());
  EXPECT_EQ(E_FAIL, LoadStreamBytes(table.Get(), ten.Get()));

  // A huge count of valueless entities is one entity.
  Bytes valueless;
  valueless.Put<USHORT>(0x6865).Put<USHORT>(0x300).EmptyEntitySubTables(0, 16);
  valueless.Put<ULONG>(0xFFFFFFFFu).Put<USHORT>(0).EmptyEntitySubTables(17, 23);
  EXPECT_EQ(S_OK, LoadStreamBytes(table.Get(), valueless.Get()));
  EXPECT_EQ(1u, Count(table.Get(), 39));

  // A huge count of protocols runs out of bytes as well.
  Bytes protocols;
  protocols.Put<USHORT>(0x6865).Put<USHORT>(0x300).EmptyEntitySubTables(0, 4);
  protocols.Put<ULONG>(0xFFFFFFFFu).Put<USHORT>(4).Put<ULONG>(0).Put<USHORT>(1);
  EXPECT_EQ(E_FAIL, LoadStreamBytes(table.Get(), protocols.Get()));
  EXPECT_EQ(1u, Count(table.Get(), 9));  // what was read stays
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(EntityTableHostileStreams, BadLengthsAndDepthsAreRefused) {
  auto table = NewEntityTable();
  Bytes longValue;
  longValue.Put<USHORT>(0x6865).Put<USHORT>(0x300).Put<ULONG>(1).Put<USHORT>(25);
  longValue.Raw({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25});
  EXPECT_EQ(E_OUTOFMEMORY, LoadStreamBytes(table.Get(), longValue.Get()));

  Bytes deep;
  deep.Put<USHORT>(0x6865).Put<USHORT>(0x300).EmptyEntitySubTables(0, 4).Put<ULONG>(1).Put<USHORT>(4).Put<ULONG>(100);
  for (int i = 0; i < 100; ++i) deep.Put<USHORT>(1);
  EXPECT_EQ(E_FAIL, LoadStreamBytes(table.Get(), deep.Get()));

  // A stream length other than the sub-table's: the value is read in the
  // stream's length and compared over the sub-table's.
  Bytes shortIps;
  shortIps.Put<USHORT>(0x6865).Put<USHORT>(0x300).EmptyEntitySubTables(0, 6);
  shortIps.Put<ULONG>(2).Put<USHORT>(2).Raw({10, 1, 10, 2}).EmptyEntitySubTables(7, 23);
  EXPECT_EQ(S_OK, LoadStreamBytes(table.Get(), shortIps.Get()));
  EXPECT_TRUE(zemo::SpecsEqual(Make(21, {10, 1, 0, 0}), Entity(table.Get(), 0x06000000)));
  EXPECT_TRUE(zemo::SpecsEqual(Make(21, {10, 2, 0, 0}), Entity(table.Get(), 0x06000001)));

  // Truncated in the middle: the values before the cut stay.
  auto full = DeltaBytes(table.Get());
  auto other = NewEntityTable();
  std::vector<uint8_t> cut(full.begin(), full.begin() + 4 + 6 * 6 + 6 + 4 + 2);
  EXPECT_EQ(E_FAIL, LoadStreamBytes(other.Get(), cut));
  EXPECT_EQ(1u, Count(other.Get()));
  EXPECT_EQ(E_FAIL, LoadStreamBytes(other.Get(), {}));
}

// ---- XML -------------------------------------------------------------------------

class EntityTableXml : public ::testing::Test {
 protected:
  ComPtr<IXMLDOMDocument> Save(IEntityTable* table, ZemoTime since = 0) {
    auto doc = zemo::CreateXmlDocument();
    ComPtr<IPersistXmlDeltas> xml;
    EXPECT_EQ(S_OK, zemo::QueryTo(table, &xml));
    EXPECT_EQ(S_OK, xml->SaveDeltas(doc.Get(), doc.Get(), &since));
    return doc;
  }
  HRESULT Load(IEntityTable* table, IXMLDOMDocument* doc) { return zemo::LoadObjectFromXml(table, doc, doc); }
};

TEST_F(EntityTableXml, SavesEntitiesInSubTableOrderAndLoadsThemBack) {
  auto table = NewEntityTable();
  Add(table.Get(), Mac(0x0A0B0C0D));
  Add(table.Get(), Make(1, {0xAB, 0xCD}));
  Add(table.Get(), Valueless(39));
  auto doc = Save(table.Get());
  std::u16string xml = zemo::testing_support::XmlMarkup(doc.Get());
  EXPECT_NE(xml.find(u"<entity class=\"1\" type=\"1\" data=\"ABCD\"/><entity class=\"2\" type=\"10\" data=\"00500A0B0C0D\"/>"
                     u"<entity class=\"1\" type=\"39\" data=\"\"/></entitytable>"),
            std::u16string::npos)
      << zemo::ToUtf8(xml);
  auto copy = NewEntityTable();
  ASSERT_EQ(S_OK, Load(copy.Get(), doc.Get()));
  EXPECT_EQ(Contents(table.Get()), Contents(copy.Get()));

  // A delta behind every entity is an empty element.
  EXPECT_NE(zemo::testing_support::XmlMarkup(Save(table.Get(), ~0ull).Get()).find(u"<entitytable/>"), std::u16string::npos);
}

TEST_F(EntityTableXml, LoadTakesAnyElementNameAndEitherCase) {
  auto table = NewEntityTable();
  auto doc = zemo::testing_support::ParseXml(u"<r><entitytable><x class='2' type='21' data='0a0B0c0D'/><!-- c --><y class='0' type='21' mask='5' "
                   u"data='0A0B0C0D'/></entitytable></r>");
  ComPtr<IXMLDOMElement> root;
  ASSERT_EQ(S_OK, doc->get_documentElement(root.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, zemo::LoadObjectFromXml(table.Get(), doc.Get(), root.Get()));
  EXPECT_EQ(1u, Count(table.Get()));
  // No entitytable element: nothing happens.
  EXPECT_EQ(S_OK, Load(table.Get(), zemo::testing_support::ParseXml(u"<r/>").Get()));
}

TEST_F(EntityTableXml, ReadingStopsAtTheFirstBadEntity) {
  const char16_t* bad[] = {
      u"<entitytable><e class='2' type='21' data='01020304'/><e class='2' type='21' data='0102030'/></entitytable>",
      u"<entitytable><e class='2' type='21' data='01020304'/><e class='2' type='21' data='zz020304'/></entitytable>",
      u"<entitytable><e class='2' type='21' data='01020304'/><e class='2' type='21'/></entitytable>",
      u"<entitytable><e class='2' type='21' data='01020304'/><e type='21' data='01020305'/></entitytable>",
      u"<entitytable><e class='2' type='21' data='01020304'/><e class='2' data='01020305'/></entitytable>",
      u"<entitytable><e class='2' type='21' data='01020304'/><e class='2' type='7' data='01'/></entitytable>",
      u"<entitytable><e class='2' type='21' data='01020304'/><e class='2' type='21' data='"
      u"00000000000000000000000000000000000000000000000000'/></entitytable>",
  };
  for (const char16_t* text : bad) {
    auto table = NewEntityTable();
    EXPECT_EQ(E_FAIL, Load(table.Get(), zemo::testing_support::ParseXml(text).Get())) << zemo::ToUtf8(text);
    EXPECT_EQ(1u, Count(table.Get())) << zemo::ToUtf8(text);
  }
}

// ---- text export ----------------------------------------------------------

TEST(EntityTableExport, WritesEachSubTableAndProtocolsByPath) {
  FixedClock clock(5000);
  auto table = NewEntityTable();
  Add(table.Get(), Make(2, {0x7F}));
  Add(table.Get(), Protocol(proto::kTcp));
  Add(table.Get(), Protocol(0x00070000u | proto::kHttp));
  auto specs = zemo::MakeObject<zemo::ProtoSpecs, IProtoSpecs>();
  USHORT path[100];
  ULONG depth = 100;
  ASSERT_EQ(S_OK, specs->GetSpecPath(proto::kHttp, path, &depth));
  std::string httpPath;
  for (ULONG i = depth; i-- > 0;) httpPath += ":" + std::to_string(path[i]);

  std::string file = ::testing::TempDir() + "entities_" + std::to_string(getpid()) + ".TXT";
  ComPtr<IPersistFile> persist;
  ASSERT_EQ(S_OK, zemo::QueryTo(table.Get(), &persist));
  ASSERT_EQ(S_OK, persist->Save(zemo::FromUtf8(file).c_str(), FALSE));
  std::string text = zemo::testing_support::ReadFile(file);
  std::remove(file.c_str());
  std::string expected = "Table 0, 0 items, 2 bytes each\nTable 1, 1 items, 1 bytes each\n0l 5000 7F\n"
                         "Table 2, 0 items, 5 bytes each\nTable 3, 0 items, 1 bytes each\n"
                         "Table 4, 2 items, 4 bytes each\n0l 5000 :" + std::to_string(proto::kTcp) +
                         "1l 5000 " + httpPath + "Table 5, 0 items, 6 bytes each\n";
  EXPECT_EQ(expected, text.substr(0, expected.size()));
  EXPECT_NE(text.find("Table 22, 0 items, 2 bytes each\n"), std::string::npos);

  EXPECT_EQ(E_INVALIDARG, persist->Save(u"/tmp/entities.hash", FALSE));
  EXPECT_EQ(E_INVALIDARG, persist->Save(u"/tmp/entities.csv", FALSE));
  EXPECT_EQ(E_FAIL, persist->Save(u"/nonexistent-dir/x/entities.txt", FALSE));
  EXPECT_EQ(E_NOTIMPL, persist->Load(u"x.txt", 0));
  EXPECT_EQ(S_OK, persist->SaveCompleted(u"x.txt"));
}

}  // namespace
