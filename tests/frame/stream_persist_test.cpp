#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "frame/delta_save.h"
#include "frame/stream_persist.h"
#include "platform/object.h"

namespace {

using zemo::ComPtr;

// A memory stream whose Read and Write can fail or come up short, and which
// counts the calls it gets.
class ScriptedStream final : public zemo::Object<ScriptedStream, IStream> {
 public:
  HRESULT readStatus = S_OK, writeStatus = S_OK;
  ULONG readCap = ~0u, writeCap = ~0u;
  int reads = 0, writes = 0, seeks = 0;
  ComPtr<IStream> inner = zemo::CreateMemoryStream();

  HRESULT Read(void* b, ULONG n, ULONG* got) override {
    ++reads;
    if (FAILED(readStatus)) return readStatus;
    return inner->Read(b, std::min(n, readCap), got);
  }
  HRESULT Write(const void* b, ULONG n, ULONG* put) override {
    ++writes;
    if (FAILED(writeStatus)) return writeStatus;
    return inner->Write(b, std::min(n, writeCap), put);
  }
  HRESULT Seek(LARGE_INTEGER m, DWORD o, ULARGE_INTEGER* p) override {
    ++seeks;
    return inner->Seek(m, o, p);
  }
  HRESULT SetSize(ULARGE_INTEGER s) override { return inner->SetSize(s); }
  HRESULT CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override { return E_NOTIMPL; }
  HRESULT Commit(DWORD) override { return S_OK; }
  HRESULT Revert() override { return S_OK; }
  HRESULT LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
  HRESULT UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
  HRESULT Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }
  HRESULT Clone(IStream**) override { return E_NOTIMPL; }
};

uint64_t Position(IStream* s) {
  ULARGE_INTEGER p{};
  EXPECT_EQ(S_OK, s->Seek(LARGE_INTEGER{0}, STREAM_SEEK_CUR, &p));
  return p.QuadPart;
}

template <class T>
T At(const std::vector<uint8_t>& bytes, size_t offset) {
  T v;
  std::memcpy(&v, bytes.data() + offset, sizeof v);
  return v;
}

// The size and shape of a node table row: the bulk write is made for these.
struct Row112 {
  uint32_t index;
  uint8_t body[108];
};
static_assert(sizeof(Row112) == 112);

TEST(StreamPersist, TypedValuesAreRawLittleEndianAndFailuresKeepTheirStatus) {
  ComPtr<IStream> s = zemo::CreateMemoryStream();
  zemo::WriteValue(s.Get(), uint32_t{0x11223344});
  zemo::WriteValue(s.Get(), uint16_t{0xA1B2});
  zemo::WriteValue(s.Get(), uint64_t{0x0102030405060708});
  const std::vector<uint8_t> expected = {0x44, 0x33, 0x22, 0x11, 0xB2, 0xA1, 8, 7, 6, 5, 4, 3, 2, 1};
  EXPECT_EQ(expected, zemo::MemoryStreamBytes(s.Get()));

  zemo::StreamSeekTo(s.Get(), 0);
  EXPECT_EQ(0x11223344u, zemo::ReadValue<uint32_t>(s.Get()));
  EXPECT_EQ(0xA1B2u, zemo::ReadValue<uint16_t>(s.Get()));
  EXPECT_EQ(0x0102030405060708u, zemo::ReadValue<uint64_t>(s.Get()));
  EXPECT_EQ(14u, zemo::StreamPosition(s.Get()));

  // Nothing left: a short read.
  EXPECT_EQ(E_FAIL, zemo::Boundary([&] { zemo::ReadValue<uint8_t>(s.Get()); }));
  zemo::StreamSeekTo(s.Get(), 12);
  EXPECT_EQ(E_FAIL, zemo::Boundary([&] { zemo::ReadValue<uint32_t>(s.Get()); }));

  auto scripted = ScriptedStream::Create();
  scripted->readStatus = STG_E_ACCESSDENIED;
  scripted->writeStatus = STG_E_MEDIUMFULL;
  EXPECT_EQ(STG_E_ACCESSDENIED, zemo::Boundary([&] { zemo::ReadValue<uint32_t>(scripted.Get()); }));
  EXPECT_EQ(STG_E_MEDIUMFULL, zemo::Boundary([&] { zemo::WriteValue(scripted.Get(), 1u); }));
  // A write that takes fewer bytes with success is as much a failure.
  scripted->writeStatus = S_OK;
  scripted->writeCap = 3;
  EXPECT_EQ(E_FAIL, zemo::Boundary([&] { zemo::WriteValue(scripted.Get(), 1u); }));

  EXPECT_EQ(E_POINTER, zemo::Boundary([&] { zemo::WriteValue<uint32_t>(nullptr, 1u); }));
  EXPECT_EQ(E_POINTER, zemo::Boundary([&] { zemo::ReadValue<uint32_t>(nullptr); }));
}

TEST(StreamPersist, AMillionRecordsGoOutInOneWriteCall) {
  std::vector<Row112> rows(1000000);
  for (uint32_t i = 0; i < rows.size(); ++i) {
    rows[i].index = i;
    std::memset(rows[i].body, static_cast<int>(i % 251), sizeof rows[i].body);
  }
  auto s = ScriptedStream::Create();
  zemo::WriteRecords(s.Get(), std::span<const Row112>(rows));
  EXPECT_EQ(1, s->writes);
  std::vector<uint8_t> bytes = zemo::MemoryStreamBytes(s->inner.Get());
  ASSERT_EQ(rows.size() * 112, bytes.size());
  EXPECT_EQ(0, std::memcmp(bytes.data(), rows.data(), bytes.size()));

  std::vector<Row112> back(rows.size());
  zemo::StreamSeekTo(s.Get(), 0);
  zemo::ReadRecords(s.Get(), std::span<Row112>(back));
  EXPECT_EQ(1, s->reads);
  EXPECT_EQ(0, std::memcmp(back.data(), rows.data(), bytes.size()));
}

class NotPersisted final : public zemo::Object<NotPersisted, IPersist> {
 public:
  HRESULT GetClassID(CLSID*) override { return E_NOTIMPL; }
};

TEST(CountFixup, AFilteredListCarriesTheCountItWroteAndEndsBehindIt) {
  auto s = ScriptedStream::Create();
  zemo::WriteValue(s.Get(), uint16_t{0xBEEF});  // a header before the list
  const uint32_t entries[] = {10, 11, 12, 13, 14};
  ULONG written = zemo::WriteCounted<ULONG>(s.Get(), 5, [&](auto& list) {
    for (uint32_t e : entries)
      if (e == 11 || e == 14) {
        zemo::WriteValue(s.Get(), e);
        list.Add();
      }
  });
  EXPECT_EQ(2u, written);
  EXPECT_EQ(2u + 4 + 8, Position(s.Get()));
  zemo::WriteValue(s.Get(), uint8_t{0x5A});  // what follows the list lands behind it

  std::vector<uint8_t> bytes = zemo::MemoryStreamBytes(s->inner.Get());
  ASSERT_EQ(15u, bytes.size());
  EXPECT_EQ(0xBEEF, At<uint16_t>(bytes, 0));
  EXPECT_EQ(2u, At<uint32_t>(bytes, 2));
  EXPECT_EQ(11u, At<uint32_t>(bytes, 6));
  EXPECT_EQ(14u, At<uint32_t>(bytes, 10));
  EXPECT_EQ(0x5A, bytes[14]);
}

TEST(CountFixup, AListThatIsWholeNeedsNoSeekBackAndAnEmptyOneCountsZero) {
  auto s = ScriptedStream::Create();
  zemo::CountFixup<ULONG> all(s.Get(), 3);
  for (uint32_t i = 0; i < 3; ++i) {
    zemo::WriteValue(s.Get(), i);
    all.Add();
  }
  int seeksBefore = s->seeks;
  all.Finish();
  EXPECT_EQ(seeksBefore, s->seeks);
  EXPECT_EQ(3u, At<uint32_t>(zemo::MemoryStreamBytes(s->inner.Get()), 0));

  ComPtr<IStream> t = zemo::CreateMemoryStream();
  zemo::CountFixup<uint16_t> none(t.Get(), 9);
  none.Finish();
  EXPECT_EQ((std::vector<uint8_t>{0, 0}), zemo::MemoryStreamBytes(t.Get()));
  EXPECT_EQ(2u, Position(t.Get()));

  // An unseekable position is the stream's failure, raised as it is.
  auto broken = ScriptedStream::Create();
  broken->writeStatus = STG_E_MEDIUMFULL;
  EXPECT_EQ(STG_E_MEDIUMFULL, zemo::Boundary([&] { zemo::CountFixup<ULONG> f(broken.Get(), 1); }));
}

// A delta-capable table in the form of the table statistics: a u32 header,
// then the rows whose time is at or after `since`, through the count fix-up.
// Its full saves exist only through the shared adapters.
class DeltaTable final
    : public zemo::Object<DeltaTable, zemo::PersistStreamByDeltas<DeltaTable>, ISaveStreamDeltas,
                          zemo::PersistXmlByDeltas<DeltaTable>, IPersistXmlDeltas> {
 public:
  struct Entry {
    uint32_t id;
    uint64_t time;
  };
  std::vector<Entry> entries;
  // What the XML delta save was last called with.
  IUnknown* seenDocument = nullptr;
  IUnknown* seenNode = nullptr;
  ZemoTime seenSince = ~0ull;
  ZemoTime* seenSincePointer = nullptr;

  HRESULT GetClassID(CLSID*) override { return E_NOTIMPL; }
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream*) override { return E_NOTIMPL; }
  HRESULT GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }
  HRESULT Load(IUnknown*, IUnknown*) override { return E_NOTIMPL; }

  HRESULT SaveDeltas(IStream* stream, ZemoTime* since) override {
    return Locked([&] {
      if (!stream || !since) AtlThrow(E_POINTER);
      zemo::WriteValue(stream, uint32_t{0xC0DE});
      zemo::WriteCounted<ULONG>(stream, static_cast<ULONG>(entries.size()), [&](auto& list) {
        for (const Entry& e : entries)
          if (e.time >= *since) {
            zemo::WriteValue(stream, e.id);
            zemo::WriteValue(stream, e.time);
            list.Add();
          }
      });
    });
  }
  HRESULT SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) override {
    return Locked([&] {
      seenDocument = document;
      seenNode = node;
      seenSincePointer = since;
      seenSince = since ? *since : ~0ull;
    });
  }
};

std::vector<uint8_t> Saved(const std::function<HRESULT(IStream*)>& save) {
  ComPtr<IStream> s = zemo::CreateMemoryStream();
  EXPECT_EQ(S_OK, save(s.Get()));
  return zemo::MemoryStreamBytes(s.Get());
}

TEST(DeltaSave, AFullSaveIsTheDeltaFromZeroByteForByte) {
  auto table = DeltaTable::Create();
  table->entries = {{1, 5}, {2, 10}, {3, 0}, {4, 20}, {5, 7}};
  auto persist = ComPtr<DeltaTable>(table).Query<IPersistStream>();
  auto deltas = ComPtr<DeltaTable>(table).Query<ISaveStreamDeltas>();

  std::vector<uint8_t> full = Saved([&](IStream* s) { return persist->Save(s, TRUE); });
  ZemoTime zero = 0;
  EXPECT_EQ(full, Saved([&](IStream* s) { return deltas->SaveDeltas(s, &zero); }));
  ASSERT_EQ(4u + 4 + 5 * 12, full.size());
  EXPECT_EQ(5u, At<uint32_t>(full, 4));
  EXPECT_EQ(3u, At<uint32_t>(full, 8 + 2 * 12));  // the entry with time 0 is in a full save

  // A delta of 2 of the 5 entries: the count field says 2, the stream
  // ends behind them, and since stays as the caller set it.
  ZemoTime since = 8;
  std::vector<uint8_t> delta = Saved([&](IStream* s) { return deltas->SaveDeltas(s, &since); });
  EXPECT_EQ(8u, since);
  ASSERT_EQ(4u + 4 + 2 * 12, delta.size());
  EXPECT_EQ(2u, At<uint32_t>(delta, 4));
  EXPECT_EQ(2u, At<uint32_t>(delta, 8));
  EXPECT_EQ(20u, At<uint64_t>(delta, 8 + 12 + 4));

  // A nested object saved by its owner goes the same way.
  EXPECT_EQ(full, Saved([&](IStream* s) { return zemo::SaveObjectToStream(table->GetUnknown(), s, TRUE); }));
  auto plain = NotPersisted::Create();
  EXPECT_EQ(E_NOINTERFACE, zemo::SaveObjectToStream(plain->GetUnknown(), zemo::CreateMemoryStream().Get(), TRUE));
  EXPECT_EQ(E_NOINTERFACE, zemo::LoadObjectFromStream(plain->GetUnknown(), zemo::CreateMemoryStream().Get()));
  EXPECT_EQ(E_POINTER, zemo::LoadObjectFromStream(table->GetUnknown(), nullptr));
  EXPECT_EQ(E_NOTIMPL, zemo::LoadObjectFromStream(table->GetUnknown(), zemo::CreateMemoryStream().Get()));

  // A stream save's failure is the delta save's.
  auto broken = ScriptedStream::Create();
  broken->writeStatus = STG_E_MEDIUMFULL;
  EXPECT_EQ(STG_E_MEDIUMFULL, persist->Save(broken.Get(), TRUE));
  EXPECT_EQ(E_POINTER, persist->Save(nullptr, TRUE));
}

TEST(DeltaSave, AnXmlSaveIsTheXmlDeltaFromZeroWithTheSameDocumentAndNode) {
  auto table = DeltaTable::Create();
  auto xml = ComPtr<DeltaTable>(table).Query<IPersistXml>();
  auto doc = NotPersisted::Create();
  auto node = NotPersisted::Create();
  EXPECT_EQ(S_OK, xml->Save(doc->GetUnknown(), node->GetUnknown(), TRUE));
  EXPECT_EQ(doc->GetUnknown(), table->seenDocument);
  EXPECT_EQ(node->GetUnknown(), table->seenNode);
  ASSERT_NE(nullptr, table->seenSincePointer);
  EXPECT_EQ(0u, table->seenSince);
}

}  // namespace
