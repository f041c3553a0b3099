#include "identity/tuple_table.h"

#include <array>
#include <chrono>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "engine/proto_specs.h"
#include "frame/selection.h"
#include "frame/xml_persist.h"
#include "identity_test_support.h"
#include "support/xml_text.h"

namespace {

using namespace identity_test;
using zemo::specs::Make;
namespace proto = zemo::proto;

constexpr ULONG kAny = 0xFFFFFFFFu;

TupleRecord Tuple(ITupleTable* table, ULONG id) {
  TupleRecord r{};
  EXPECT_EQ(S_OK, table->GetTuple(id, &r)) << std::hex << id;
  return r;
}

std::string Triple(const TupleRecord& r) {
  char text[40];
  std::snprintf(text, sizeof text, "%x/%x/%x", unsigned(r.fSource), unsigned(r.fDestination), unsigned(r.fProtocol));
  return text;
}

// Every hit of a search, resuming behind each.
std::vector<ULONG> SearchAll(ITupleTable* table, ULONG s, ULONG d, ULONG p, LONG both = 0) {
  std::vector<ULONG> hits;
  ULONG at = kNoTupleId;
  for (;;) {
    ULONG id = 0;
    BOOL found = FALSE;
    EXPECT_EQ(S_OK, table->Search(s, d, p, both, at, &id, &found));
    if (!found) {
      EXPECT_EQ(kNoTupleId, id);
      return hits;
    }
    hits.push_back(id);
    at = id;
  }
}

// Entities of several types and the tables over them.
class TupleTableTest : public ::testing::Test {
 protected:
  ComPtr<IEntityTable> m_entities = NewEntityTable();
  ComPtr<ITupleTable> m_tuples = NewTupleTable(m_entities.Get());
  ULONG m_ipA = Add(m_entities.Get(), Ip(0x0A000001)), m_ipB = Add(m_entities.Get(), Ip(0x0A000002));
  ULONG m_ipC = Add(m_entities.Get(), Ip(0x0A000003));
  ULONG m_macA = Add(m_entities.Get(), Mac(1)), m_macB = Add(m_entities.Get(), Mac(2));
  ULONG m_v6 = Add(m_entities.Get(), zemo::specs::Make(24, {0xFE, 0x80}));
  ULONG m_http = Add(m_entities.Get(), zemo::specs::Protocol(proto::kHttp));
  ULONG m_tcp = Add(m_entities.Get(), zemo::specs::Protocol(proto::kTcp));
  ULONG m_udp = Add(m_entities.Get(), zemo::specs::Protocol(proto::kUdp));
  ULONG m_dns = Add(m_entities.Get(), zemo::specs::Protocol(proto::kDns));
};

// ---- identity ---------------------------------------------------------------

TEST_F(TupleTableTest, DirectionCountsAndSubTablesFollowTheSourceType) {
  ULONG ab = AddTuple(m_tuples.Get(), m_ipA, m_ipB, m_tcp);
  ULONG ba = AddTuple(m_tuples.Get(), m_ipB, m_ipA, m_tcp);
  EXPECT_EQ(0x20000000u, ab);  // IPv4 sources: sub-table 2
  EXPECT_EQ(0x20000001u, ba);
  EXPECT_EQ(ab, AddTuple(m_tuples.Get(), m_ipA, m_ipB, m_tcp));
  EXPECT_EQ(0x00000000u, AddTuple(m_tuples.Get(), m_macA, m_macB, m_tcp));
  EXPECT_EQ(0x40000000u, AddTuple(m_tuples.Get(), m_v6, m_v6, m_udp));
  EXPECT_EQ(4u, Count(m_tuples.Get()));
  EXPECT_EQ(2u, Count(m_tuples.Get(), 21));
  EXPECT_EQ(0u, Count(m_tuples.Get(), 25));
  ULONG n = 7;
  EXPECT_EQ(E_FAIL, m_tuples->GetCount(9, &n));
  ULONG id = 0;
  BOOL more = TRUE;
  EXPECT_EQ(S_OK, m_tuples->GetFirstId(9, &id, &more));
  EXPECT_EQ(kNoTupleId, id);
  EXPECT_FALSE(more);

  // The record comes back whole, link included; the caller's time and link don't count.
  TupleRecord r = Tuple(m_tuples.Get(), ba);
  EXPECT_EQ(m_ipB, r.fSource);
  EXPECT_EQ(m_ipA, r.fDestination);
  EXPECT_EQ(m_tcp, r.fProtocol);
  TupleRecord probe = r;
  probe.fTime = 1;
  probe.fNext = 77;
  EXPECT_EQ(S_OK, m_tuples->FindOrAdd(&probe, 0, &id));
  EXPECT_EQ(ba, id);
}

TEST_F(TupleTableTest, SourcesWithoutASubTableAndMissingTuplesFail) {
  ULONG id = 0;
  TupleRecord r{0, m_http, m_ipA, m_tcp, 0};  // a protocol as the source
  EXPECT_EQ(E_FAIL, m_tuples->FindOrAdd(&r, 1, &id));
  EXPECT_EQ(kNoTupleId, id);
  r.fSource = kNoEntityId;
  EXPECT_EQ(E_FAIL, m_tuples->FindOrAdd(&r, 1, &id));
  EXPECT_EQ(0u, Count(m_tuples.Get()));
  r.fSource = m_ipA;
  EXPECT_EQ(E_FAIL, m_tuples->FindOrAdd(&r, 0, &id));
  EXPECT_EQ(E_FAIL, m_tuples->FindOrAdd(&r, 2, &id));
  EXPECT_EQ(E_INVALIDARG, m_tuples->FindOrAdd(nullptr, 1, &id));
  EXPECT_EQ(E_POINTER, m_tuples->FindOrAdd(&r, 1, nullptr));
  TupleRecord out;
  EXPECT_EQ(E_INVALIDARG, m_tuples->GetTuple(kNoTupleId, &out));
  EXPECT_EQ(E_FAIL, m_tuples->GetTuple(0x90000000u, &out));
  EXPECT_EQ(E_FAIL, m_tuples->GetTuple(0x20000000u, &out));
  EXPECT_EQ(E_POINTER, m_tuples->GetTuple(0x20000000u, nullptr));
}

TEST_F(TupleTableTest, WithoutAnEntityTableEverythingGoesToSubTableZero) {
  auto bare = NewTupleTable(nullptr);
  ComPtr<IEntityTable> none;
  EXPECT_EQ(S_OK, bare->GetEntityTable(none.ReleaseAndGetAddressOf()));
  EXPECT_EQ(nullptr, none.Get());
  EXPECT_EQ(0x00000000u, AddTuple(bare.Get(), m_ipA, m_ipB, m_tcp));
  EXPECT_EQ(0x00000001u, AddTuple(bare.Get(), m_http, m_ipB, m_tcp));
  ULONG id = 0;
  BOOL found = TRUE;
  EXPECT_EQ(E_FAIL, bare->Search(kAny, kAny, kAny, 0, kNoTupleId, &id, &found));
  EXPECT_FALSE(found);

  // Setting the same table again keeps the one reference.
  ASSERT_EQ(S_OK, bare->SetEntityTable(m_entities.Get()));
  ULONG refs = m_entities->AddRef() - 1;
  m_entities->Release();
  ASSERT_EQ(S_OK, bare->SetEntityTable(m_entities.Get()));
  EXPECT_EQ(refs, m_entities->AddRef() - 1);
  m_entities->Release();
  ComPtr<IEntityTable> back;
  EXPECT_EQ(S_OK, bare->GetEntityTable(back.ReleaseAndGetAddressOf()));
  EXPECT_EQ(m_entities.Get(), back.Get());
}

TEST_F(TupleTableTest, BlockBoundariesAt256RecordsKeepEveryIdentifier) {
  std::vector<ULONG> ips;
  for (uint32_t i = 0; i < 40; ++i) ips.push_back(Add(m_entities.Get(), Ip(0xC0A80000 + i)));
  std::vector<ULONG> ids;
  for (uint32_t i = 0; i < 600; ++i) ids.push_back(AddTuple(m_tuples.Get(), ips[i % 40], ips[i / 40], m_tcp));
  for (uint32_t i = 0; i < 600; ++i) {
    ASSERT_EQ(0x20000000u + i, ids[i]);
    TupleRecord r = Tuple(m_tuples.Get(), ids[i]);
    EXPECT_EQ(ips[i % 40], r.fSource);
    EXPECT_EQ(ips[i / 40], r.fDestination);
  }
  for (uint32_t i : {0u, 255u, 256u, 257u, 511u, 512u, 599u})
    EXPECT_EQ(ids[i], AddTuple(m_tuples.Get(), ips[i % 40], ips[i / 40], m_tcp));
  EXPECT_EQ(600u, Count(m_tuples.Get(), 21));
  ULONG next = 0;
  BOOL more = TRUE;
  EXPECT_EQ(S_OK, m_tuples->GetNextId(ids[598], &next, &more));
  EXPECT_EQ(ids[599], next);
  EXPECT_TRUE(more);
  EXPECT_EQ(S_OK, m_tuples->GetNextId(ids[599], &next, &more));
  EXPECT_FALSE(more);
  EXPECT_EQ(kNoTupleId, next);

  EXPECT_EQ(S_OK, m_tuples->Reset());
  EXPECT_EQ(0u, Count(m_tuples.Get()));
  EXPECT_EQ(0x20000000u, AddTuple(m_tuples.Get(), ips[5], ips[6], m_tcp));
  ComPtr<IEntityTable> kept;
  EXPECT_EQ(S_OK, m_tuples->GetEntityTable(kept.ReleaseAndGetAddressOf()));
  EXPECT_EQ(m_entities.Get(), kept.Get());
}

// ---- search --------------------------------------------------------------------

TEST_F(TupleTableTest, SearchResumesBehindTheLastHitAndCrossesSubTablesOnlyWithBothEndsOpen) {
  ULONG t0 = AddTuple(m_tuples.Get(), m_ipA, m_ipB, m_tcp);
  ULONG t1 = AddTuple(m_tuples.Get(), m_ipB, m_ipC, m_udp);
  ULONG t2 = AddTuple(m_tuples.Get(), m_ipA, m_ipC, m_udp);
  ULONG m0 = AddTuple(m_tuples.Get(), m_macA, m_macB, m_tcp);
  ULONG m1 = AddTuple(m_tuples.Get(), m_macB, m_macA, m_udp);
  ULONG v0 = AddTuple(m_tuples.Get(), m_v6, m_v6, m_tcp);

  // Every tuple, in sub-table order: MAC (0), IPv4 (2), IPv6 (4).
  EXPECT_EQ((std::vector<ULONG>{m0, m1, t0, t1, t2, v0}), SearchAll(m_tuples.Get(), kAny, kAny, kAny));
  EXPECT_EQ((std::vector<ULONG>{m0, t0, v0}), SearchAll(m_tuples.Get(), kAny, kAny, m_tcp));
  EXPECT_EQ((std::vector<ULONG>{t0, t2}), SearchAll(m_tuples.Get(), m_ipA, kAny, kAny));
  EXPECT_EQ((std::vector<ULONG>{t1, t2}), SearchAll(m_tuples.Get(), kAny, m_ipC, kAny));
  EXPECT_EQ((std::vector<ULONG>{t2}), SearchAll(m_tuples.Get(), m_ipA, m_ipC, m_udp));
  EXPECT_EQ((std::vector<ULONG>{}), SearchAll(m_tuples.Get(), m_ipA, m_ipC, m_tcp));

  // A given end stays within its sub-table: a resumed search does not run on.
  ULONG id = 0;
  BOOL found = TRUE;
  EXPECT_EQ(S_OK, m_tuples->Search(m_ipA, kAny, kAny, 0, t2, &id, &found));
  EXPECT_FALSE(found);
  // A resumed search with both ends open goes on into the next sub-tables.
  EXPECT_EQ(S_OK, m_tuples->Search(kAny, kAny, kAny, 0, m1, &id, &found));
  EXPECT_TRUE(found);
  EXPECT_EQ(t0, id);
  EXPECT_EQ(S_OK, m_tuples->Search(kAny, kAny, kAny, 0, v0, &id, &found));
  EXPECT_FALSE(found);
  // The starting sub-table is the source's, else the destination's.
  EXPECT_EQ(S_OK, m_tuples->Search(kAny, m_macA, kAny, 0, kNoTupleId, &id, &found));
  EXPECT_EQ(m1, id);
  EXPECT_EQ(E_FAIL, m_tuples->Search(m_http, kAny, kAny, 0, kNoTupleId, &id, &found));
  EXPECT_EQ(E_INVALIDARG, m_tuples->Search(kAny, kAny, kAny, 0, 0xA0000000u, &id, &found));
  EXPECT_EQ(E_POINTER, m_tuples->Search(kAny, kAny, kAny, 0, kNoTupleId, nullptr, &found));
}

TEST_F(TupleTableTest, SearchInBothDirectionsFindsTheReverseTuple) {
  ULONG ab = AddTuple(m_tuples.Get(), m_ipA, m_ipB, m_tcp);
  ULONG cb = AddTuple(m_tuples.Get(), m_ipC, m_ipB, m_tcp);
  EXPECT_EQ((std::vector<ULONG>{}), SearchAll(m_tuples.Get(), m_ipB, m_ipA, kAny, 0));
  EXPECT_EQ((std::vector<ULONG>{ab}), SearchAll(m_tuples.Get(), m_ipB, m_ipA, kAny, 1));
  EXPECT_EQ((std::vector<ULONG>{ab, cb}), SearchAll(m_tuples.Get(), m_ipB, kAny, kAny, 1));
  EXPECT_EQ((std::vector<ULONG>{}), SearchAll(m_tuples.Get(), m_ipB, kAny, kAny, 2));  // exactly 1
}

TEST_F(TupleTableTest, SearchByProtocolFindsWhatLiesBelowIt) {
  ULONG web = AddTuple(m_tuples.Get(), m_ipA, m_ipB, m_http);
  ULONG plain = AddTuple(m_tuples.Get(), m_ipA, m_ipB, m_tcp);
  ULONG names = AddTuple(m_tuples.Get(), m_ipA, m_ipC, m_dns);
  ULONG odd = AddTuple(m_tuples.Get(), m_ipA, m_ipC, m_ipB);  // an address where a protocol belongs
  EXPECT_EQ((std::vector<ULONG>{web, plain}), SearchAll(m_tuples.Get(), m_ipA, kAny, m_tcp));
  EXPECT_EQ((std::vector<ULONG>{web}), SearchAll(m_tuples.Get(), kAny, kAny, m_http));
  EXPECT_EQ((std::vector<ULONG>{names}), SearchAll(m_tuples.Get(), kAny, kAny, m_udp));
  // A failing containment test is no match and doesn't end the search.
  EXPECT_EQ((std::vector<ULONG>{odd}), SearchAll(m_tuples.Get(), kAny, kAny, m_ipB));
}

// ---- binary stream ----------------------------------------------------------------

TEST_F(TupleTableTest, StreamLayoutAndTheOlderHeaderlessForm) {
  AddTuple(m_tuples.Get(), m_macA, m_macB, m_tcp);
  AddTuple(m_tuples.Get(), m_ipA, m_ipB, m_tcp);
  Bytes expected;
  expected.Raw({0x66, 0x69, 0x00, 0x02});
  expected.Put<ULONG>(1).Put(m_macA).Put(m_macB).Put(m_tcp).Put<ULONG>(0);
  expected.Put<ULONG>(1).Put(m_ipA).Put(m_ipB).Put(m_tcp);
  for (int i = 3; i < 9; ++i) expected.Put<ULONG>(0);
  EXPECT_EQ(expected.Get(), DeltaBytes(m_tuples.Get()));

  // Anything but the magic is the headerless form of seven sub-tables, from its first byte.
  Bytes old;
  old.Put<ULONG>(2).Put(m_macA).Put(m_macB).Put(m_udp).Put(m_macB).Put(m_macA).Put(m_udp);
  old.Put<ULONG>(0).Put<ULONG>(1).Put(m_ipC).Put(m_ipA).Put(m_dns);
  for (int i = 3; i < 7; ++i) old.Put<ULONG>(0);
  auto table = NewTupleTable(m_entities.Get());
  ASSERT_EQ(S_OK, LoadStreamBytes(table.Get(), old.Get()));
  EXPECT_EQ(3u, Count(table.Get()));
  EXPECT_EQ(m_udp, Tuple(table.Get(), 0x00000001).fProtocol);
  EXPECT_EQ(m_dns, Tuple(table.Get(), 0x20000000).fProtocol);

  EXPECT_EQ(E_FAIL, LoadStreamBytes(table.Get(), Bytes().Raw({0x66, 0x69, 0x00, 0x03}).Get()));
  EXPECT_EQ(E_FAIL, LoadStreamBytes(table.Get(), Bytes().Raw({0x66}).Get()));
}

TEST_F(TupleTableTest, StreamTriplesGoToTheSubTableBeingRead) {
  // The stream decides: an IPv4 triple stored under sub-table 0 stays there.
  Bytes b;
  b.Raw({0x66, 0x69, 0x00, 0x02}).Put<ULONG>(1).Put(m_ipA).Put(m_ipB).Put(m_tcp);
  for (int i = 1; i < 9; ++i) b.Put<ULONG>(0);
  auto table = NewTupleTable(m_entities.Get());
  ASSERT_EQ(S_OK, LoadStreamBytes(table.Get(), b.Get()));
  EXPECT_EQ(m_ipA, Tuple(table.Get(), 0x00000000).fSource);
  EXPECT_EQ(0u, Count(table.Get(), 21));
}

TEST_F(TupleTableTest, DeltaBehindEveryTupleHasNineEmptyCountsAndDeltasReplayInOrder) {
  FixedClock clock(1000);
  for (ULONG p : {m_tcp, m_udp, m_http}) AddTuple(m_tuples.Get(), m_ipA, m_ipB, p);
  AddTuple(m_tuples.Get(), m_macA, m_macB, m_tcp);
  auto full = DeltaBytes(m_tuples.Get());
  EXPECT_EQ(Bytes().Raw({0x66, 0x69, 0x00, 0x02}).Put<ULONG>(0).Put<ULONG>(0).Put<ULONG>(0).Put<ULONG>(0)
                .Put<ULONG>(0).Put<ULONG>(0).Put<ULONG>(0).Put<ULONG>(0).Put<ULONG>(0).Get(),
            DeltaBytes(m_tuples.Get(), 1001));
  clock.Set(2000);
  for (uint32_t i = 0; i < 300; ++i) AddTuple(m_tuples.Get(), m_ipB, Add(m_entities.Get(), Ip(0xAC100000 + i)), m_udp);
  AddTuple(m_tuples.Get(), m_ipA, m_ipB, m_tcp);  // a hit: not in the delta
  AddTuple(m_tuples.Get(), m_macB, m_macA, m_dns);
  auto delta = DeltaBytes(m_tuples.Get(), 2000);
  EXPECT_EQ(4u + 9 * 4 + 301 * 12, delta.size());

  // Entities first, then tuples: every identifier as it was.
  auto entities = NewEntityTable();
  ASSERT_EQ(S_OK, LoadStreamBytes(entities.Get(), DeltaBytes(m_entities.Get())));
  auto copy = NewTupleTable(entities.Get());
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), full));
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), delta));
  ASSERT_EQ(Count(m_tuples.Get()), Count(copy.Get()));
  for (ULONG type : {10u, 21u}) {
    ULONG id = 0;
    BOOL more = FALSE;
    ASSERT_EQ(S_OK, m_tuples->GetFirstId(type, &id, &more));
    while (more) {
      EXPECT_EQ(Triple(Tuple(m_tuples.Get(), id)), Triple(Tuple(copy.Get(), id)));
      ASSERT_EQ(S_OK, m_tuples->GetNextId(id, &id, &more));
    }
  }
}

// A table that finds through its index gives each triple the identifier a
// walk of the chains alone would (the first sighting's) and keeps the chains
// that walk would have built: by lookups, by a load with a delta, and after
// a reset.
TEST_F(TupleTableTest, TheIndexAgreesWithAChainWalkThroughLoadsAndResets) {
  FixedClock clock(1000);
  std::vector<ULONG> hosts;
  for (uint32_t i = 0; i < 60; ++i) hosts.push_back(Add(m_entities.Get(), Ip(0xC0A80000 + i)));
  const ULONG protocols[] = {m_tcp, m_udp, m_dns};
  auto tripleOf = [&](uint32_t k) {
    return std::array<ULONG, 3>{hosts[k % 60], hosts[k / 60 % 60], protocols[k / 3600 % 3]};
  };
  auto check = [&](ITupleTable* table, const std::vector<uint32_t>& fed) {
    std::map<std::array<ULONG, 3>, uint32_t> firstSeen;
    for (uint32_t k : fed) {
      auto t = tripleOf(k);
      firstSeen.emplace(t, static_cast<uint32_t>(firstSeen.size()));
      TupleRecord r{};
      r.fSource = t[0];
      r.fDestination = t[1];
      r.fProtocol = t[2];
      ULONG id = 0;
      ASSERT_EQ(S_OK, table->FindOrAdd(&r, 0, &id));
      ASSERT_EQ(0x20000000u | firstSeen[t], id) << k;
    }
    const zemo::CChainTable& sub = static_cast<zemo::TupleTable*>(table)->SubTable(2);
    ExpectChainsInAddOrder(sub, [&](uint32_t i) {
      TupleRecord r;
      std::memcpy(&r, sub.Record(i), sizeof r);
      return zemo::TupleTable::Bucket(r.fSource, r.fDestination, r.fProtocol);
    });
  };
  auto feed = [&](ITupleTable* table, const std::vector<uint32_t>& keys) {
    for (uint32_t k : keys) {
      auto t = tripleOf(k);
      AddTuple(table, t[0], t[1], t[2]);
    }
  };

  std::vector<uint32_t> fed;
  for (uint32_t k = 0; k < 20000; ++k) fed.push_back(k * 13 % 7000);
  feed(m_tuples.Get(), fed);
  check(m_tuples.Get(), fed);
  auto full = DeltaBytes(m_tuples.Get());
  clock.Set(2000);
  std::vector<uint32_t> later;
  for (uint32_t k = 7000; k < 10800; ++k) later.push_back(k);
  feed(m_tuples.Get(), later);
  auto delta = DeltaBytes(m_tuples.Get(), 2000);

  auto copy = NewTupleTable(m_entities.Get());
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), full));
  ASSERT_EQ(S_OK, LoadStreamBytes(copy.Get(), delta));
  fed.insert(fed.end(), later.begin(), later.end());
  check(copy.Get(), fed);

  ASSERT_EQ(S_OK, m_tuples->Reset());
  std::vector<uint32_t> again(fed.rbegin(), fed.rend());
  feed(m_tuples.Get(), again);
  check(m_tuples.Get(), again);
}

TEST_F(TupleTableTest, HostileCountsEndAtTheEndOfTheBytes) {
  auto start = std::chrono::steady_clock::now();
  auto table = NewTupleTable(m_entities.Get());
  Bytes ten;
  ten.Raw({0x66, 0x69, 0x00, 0x02}).Put<ULONG>(0xFFFFFFFFu).Raw({1, 2});
  ASSERT_EQ(10u, ten.Get().size());
  EXPECT_EQ(E_FAIL, LoadStreamBytes(table.Get(), ten.Get()));
  Bytes headless;
  headless.Put<ULONG>(0xFFFFFFFFu).Put(m_ipA).Put(m_ipB).Put(m_tcp).Raw({0, 0});
  EXPECT_EQ(E_FAIL, LoadStreamBytes(table.Get(), headless.Get()));
  EXPECT_EQ(1u, Count(table.Get()));  // what was read stays
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

// ---- XML ----------------------------------------------------------------------------

TEST_F(TupleTableTest, XmlWritesLowerCaseHexAndReadsItBack) {
  auto doc = zemo::CreateXmlDocument();
  ZemoTime since = 0;
  ComPtr<IPersistXmlDeltas> xml;
  ASSERT_EQ(S_OK, zemo::QueryTo(m_tuples.Get(), &xml));
  ASSERT_EQ(S_OK, xml->SaveDeltas(doc.Get(), doc.Get(), &since));
  zemo::CBstr text;
  ASSERT_EQ(S_OK, doc->get_xml(text.Out()));
  EXPECT_NE(text.View().find(u"<tupletable/>"), std::u16string_view::npos);

  AddTuple(m_tuples.Get(), m_ipA, m_ipB, m_tcp);
  AddTuple(m_tuples.Get(), m_macB, m_macA, m_udp);
  doc = zemo::CreateXmlDocument();
  ASSERT_EQ(S_OK, zemo::SaveObjectToXml(m_tuples.Get(), doc.Get(), doc.Get(), FALSE));
  ASSERT_EQ(S_OK, doc->get_xml(text.Out()));
  char expected[200];
  std::snprintf(expected, sizeof expected, "<tupletable><tuple src=\"%x\" dest=\"%x\" proto=\"%x\"/>",
                unsigned(m_macB), unsigned(m_macA), unsigned(m_udp));
  EXPECT_NE(text.Utf8().find(expected), std::string::npos) << text.Utf8();

  auto copy = NewTupleTable(m_entities.Get());
  ASSERT_EQ(S_OK, zemo::LoadObjectFromXml(copy.Get(), doc.Get(), doc.Get()));
  EXPECT_EQ(Triple(Tuple(m_tuples.Get(), 0x20000000)), Triple(Tuple(copy.Get(), 0x20000000)));
  EXPECT_EQ(Triple(Tuple(m_tuples.Get(), 0x00000000)), Triple(Tuple(copy.Get(), 0x00000000)));
}

TEST_F(TupleTableTest, XmlReadingStopsAtTheFirstBadTuple) {
  auto parse = [](const std::u16string& body) {
    auto doc = zemo::testing_support::ParseXml(u"<r>" + body + u"</r>");
    ComPtr<IXMLDOMElement> root;
    EXPECT_EQ(S_OK, doc->get_documentElement(root.ReleaseAndGetAddressOf()));
    return std::pair{doc, root};
  };
  char good[80];
  std::snprintf(good, sizeof good, "<t src='%X' dest='%x' proto='%x'/>", unsigned(m_ipA), unsigned(m_ipB),
                unsigned(m_tcp));
  std::u16string first = zemo::FromUtf8(good);
  for (const char16_t* bad : {u"<t dest='1' proto='2'/>", u"<t src='6000000' proto='2'/>", u"<t src='6000000' dest='1'/>",
                              u"<t src='0x6000000' dest='1' proto='2'/>", u"<t src='g' dest='1' proto='2'/>",
                              u"<t src='' dest='1' proto='2'/>", u"<t src='123456789' dest='1' proto='2'/>",
                              u"<t src='4000000' dest='1' proto='2'/>"}) {
    auto table = NewTupleTable(m_entities.Get());
    auto [doc, root] = parse(u"<tupletable>" + first + bad + u"</tupletable>");
    EXPECT_EQ(E_FAIL, zemo::LoadObjectFromXml(table.Get(), doc.Get(), root.Get())) << zemo::ToUtf8(bad);
    EXPECT_EQ(1u, Count(table.Get())) << zemo::ToUtf8(bad);
  }
  auto table = NewTupleTable(m_entities.Get());
  auto [doc, root] = parse(u"<other/>");
  EXPECT_EQ(S_OK, zemo::LoadObjectFromXml(table.Get(), doc.Get(), root.Get()));
}

}  // namespace
