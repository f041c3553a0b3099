#include "frame/name_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "engine/address_book.h"
#include "engine/class_factory.h"
#include "engine/engine.h"
#include "engine/spec_values.h"
#include "platform/class_store.h"

namespace {

using zemo::ComPtr;
namespace specs = zemo::specs;

// A book without a change stamp, whose lookups fail.
class BrokenBook final : public zemo::Object<BrokenBook, INameTable> {
 public:
  HRESULT Lookup(const MediaSpec*, ZemoNameTableEntry*, BOOL*) override { return E_FAIL; }
};

// The host's text of every address: longer than a name buffer.
class LongTexts final : public zemo::Object<LongTexts, IMediaUtils> {
 public:
  HRESULT SpecToString(const MediaSpec*, BSTR* text) override {
    *text = zemo::AllocBstr(std::u16string(100, u'x'));
    return S_OK;
  }
};

// A class object in place of the engine's ZemoCore.MediaUtils while it
// lives: registered before the engine's, it is the one the store finds.
class MediaUtilsStandIn {
 public:
  explicit MediaUtilsStandIn(zemo::CreatorFn create) {
    EXPECT_EQ(S_OK, zemo::UnregisterEngineClasses());
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(S_OK, zemo::HostClassFactory::CreateObject(IClassFactory::iid, factory.OutVoid(), create));
    EXPECT_EQ(S_OK, CoRegisterClassObject(CLSID_ZemoMediaUtils, factory.Get(), CLSCTX_INPROC_SERVER, 0, &m_cookie));
    EXPECT_EQ(S_OK, zemo::RegisterEngineClasses());
  }
  ~MediaUtilsStandIn() { CoRevokeClassObject(m_cookie); }

 private:
  DWORD m_cookie = 0;
};

HRESULT CreateRefused(IUnknown*, REFIID, void** out) {
  *out = nullptr;
  return E_OUTOFMEMORY;
}

std::u16string Text(const WCHAR* name) { return std::u16string(name, std::char_traits<char16_t>::length(name)); }

TEST(NameTable, NamesComeFromTheBookElseFromTheHostsText) {
  auto book = zemo::AddressBook::Create();
  const MediaSpec router = specs::Ipv4(10, 0, 0, 1), stranger = specs::Ipv4(10, 0, 0, 2);
  ZemoNameTableEntry stored{};
  stored.Spec = router;
  const std::u16string full(64, u'r');  // a name that fills the buffer has no terminating zero
  std::memcpy(stored.Name, full.data(), sizeof stored.Name);
  stored.HostByte1 = 1;
  stored.HostValue1 = 0xA1A1A1A1;
  stored.HostValue2 = 0xB2B2B2B2;
  stored.HostValue3 = 0xC3C3C3C3;
  stored.HostByte2 = 5;
  stored.Kind = 0x60;
  stored.Trust = 7;
  ASSERT_EQ(S_OK, book->Add(stored));
  COMGlue::NameTable names(book.Get());

  WCHAR name[COMGlue::kNameChars + 1] = {};
  ULONG value = 0;
  BYTE byte = 0, kind = 0;
  EXPECT_TRUE(names.GetName(&router, name, &value, &byte, &kind));
  EXPECT_EQ(full, std::u16string(name, COMGlue::kNameChars));
  EXPECT_EQ(0xC3C3C3C3u, value);
  EXPECT_EQ(5, byte);
  EXPECT_EQ(0x60, kind);
  ZemoNameEntry entry;
  ASSERT_TRUE(names.GetEntry(&router, &entry));
  EXPECT_EQ(0, std::memcmp(&router, &entry.Spec, sizeof router));
  EXPECT_EQ(full, std::u16string(entry.Name, COMGlue::kNameChars));
  EXPECT_EQ(0xC3C3C3C3u, entry.HostValue3);
  EXPECT_EQ(0xA1A1A1A1u, entry.HostValue1);
  EXPECT_EQ(0xB2B2B2B2u, entry.HostValue2);
  EXPECT_EQ(5, entry.HostByte2);
  EXPECT_EQ(0x60, entry.Kind);
  EXPECT_EQ(1, entry.HostByte1);
  EXPECT_EQ(7, entry.Trust);
  EXPECT_TRUE(names.GetName(&router, nullptr, nullptr, nullptr, nullptr));

  // No entry, a failing book or no book at all: the host's text, and zeros.
  auto broken = BrokenBook::Create();
  COMGlue::NameTable failing(broken.Get()), none(nullptr);
  for (auto [table, spec] : {std::pair{&names, &stranger}, {&failing, &router}, {&none, &router}}) {
    std::memset(&entry, 0x55, sizeof entry);
    EXPECT_FALSE(table->GetEntry(spec, &entry));
    EXPECT_EQ(0, entry.Name[0]);
    EXPECT_EQ(0, entry.Trust);
    EXPECT_FALSE(table->GetName(spec, name, &value, &byte, &kind));
    EXPECT_EQ(spec == &router ? u"10.0.0.1" : u"10.0.0.2", Text(name));
    EXPECT_EQ(0u, value);
    EXPECT_EQ(0, kind);
  }

  // The stamp moves with the book; a book without one, or none, raises.
  ULONG stamp = names.GetTableStamp();
  ASSERT_EQ(S_OK, book->AddName(stranger, u"stranger"));
  EXPECT_NE(stamp, names.GetTableStamp());
  EXPECT_EQ(E_NOINTERFACE, zemo::Boundary([&] { failing.GetTableStamp(); }));
  EXPECT_EQ(E_NOINTERFACE, zemo::Boundary([&] { none.GetTableStamp(); }));
  EXPECT_EQ(E_POINTER, zemo::Boundary([&] { names.GetName(nullptr, name, nullptr, nullptr, nullptr); }));
}

TEST(NameTable, TheHostsTextIsCutToTheBufferAndItsAbsenceRaised) {
  {
    MediaUtilsStandIn longTexts(&zemo::CreateClass<LongTexts>);
    COMGlue::NameTable names(nullptr);
    WCHAR name[COMGlue::kNameChars];
    const MediaSpec any = specs::Ipv4(10, 0, 0, 1);
    EXPECT_FALSE(names.GetName(&any, name, nullptr, nullptr, nullptr));
    EXPECT_EQ(std::u16string(COMGlue::kNameChars - 1, u'x'), Text(name));
  }
  MediaUtilsStandIn refused(&CreateRefused);
  EXPECT_EQ(E_OUTOFMEMORY, zemo::Boundary([] { COMGlue::NameTable names(nullptr); }));
}

}  // namespace
