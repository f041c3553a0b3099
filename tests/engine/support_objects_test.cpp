#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "context/stats_context.h"
#include "engine/adapter_info.h"
#include "engine/address_book.h"
#include "engine/engine.h"
#include "engine/media_utils.h"
#include "engine/notify_sink.h"
#include "engine/proto_specs.h"
#include "engine/site.h"
#include "engine/spec_values.h"
#include "platform/class_store.h"
#include "platform/strings.h"

namespace {

using zemo::ComPtr;
namespace specs = zemo::specs;

TEST(EngineAdapterInfo, ArraysAreFreshTaskMemoryCopies) {
  auto info = zemo::AdapterInfo::Create();
  info->SetMediaType(1);
  info->SetMediaSubType(6);
  info->SetLinkSpeed(54000000);
  const ULONG numbers[] = {1, 2, 4};
  const SWirelessChannel channels[] = {{1, 2412, 1}, {36, 5180, 2}};
  const ULONG rates[] = {2, 4, 11, 22};
  info->SetChannelNumbers(numbers);
  info->SetWirelessChannels(channels);
  info->SetDataRates(rates);

  ULONG u32 = 0;
  ULONGLONG speed = 0;
  ASSERT_EQ(S_OK, info->GetMediaType(&u32));
  EXPECT_EQ(1u, u32);
  ASSERT_EQ(S_OK, info->GetMediaSubType(&u32));
  EXPECT_EQ(6u, u32);
  ASSERT_EQ(S_OK, info->GetLinkSpeed(&speed));
  EXPECT_EQ(54000000u, speed);

  ULONG count = 0;
  ULONG* got = nullptr;
  ASSERT_EQ(S_OK, info->GetChannelNumbers(&count, &got));
  ASSERT_EQ(3u, count);
  EXPECT_EQ(0, std::memcmp(numbers, got, sizeof numbers));
  got[0] = 99;  // the caller's copy: the adapter keeps its own
  CoTaskMemFree(got);
  ASSERT_EQ(S_OK, info->GetChannelNumbers(&count, &got));
  EXPECT_EQ(1u, got[0]);
  CoTaskMemFree(got);

  SWirelessChannel* gotChannels = nullptr;
  ASSERT_EQ(S_OK, info->GetWirelessChannels(&gotChannels, &count));
  ASSERT_EQ(2u, count);
  EXPECT_TRUE(gotChannels[1] == channels[1]);
  CoTaskMemFree(gotChannels);
  ASSERT_EQ(S_OK, info->GetDataRates(&got, &count));
  ASSERT_EQ(4u, count);
  EXPECT_EQ(22u, got[3]);
  CoTaskMemFree(got);

  info->SetDataRates({});
  got = reinterpret_cast<ULONG*>(&count);
  ASSERT_EQ(S_OK, info->GetDataRates(&got, &count));
  EXPECT_EQ(nullptr, got);
  EXPECT_EQ(0u, count);
  EXPECT_EQ(E_POINTER, info->GetDataRates(nullptr, &count));
  EXPECT_EQ(E_POINTER, info->GetChannelNumbers(nullptr, &got));
}

TEST(EngineNotifySink, RecordsEveryArgumentInOrder) {
  auto sink = zemo::NotifySink::Create();
  const GUID context = MakeGuid("11111111-2222-3333-4444-555555555555");
  const GUID source = MakeGuid("66666666-7777-8888-9999-AAAAAAAAAAAA");
  ASSERT_EQ(S_OK, sink->Notify(context, source, 7, 1000, 2, u"short", u"long text"));
  ASSERT_EQ(S_OK, sink->Notify(source, context, 8, 2000, -1, nullptr, nullptr));
  ASSERT_EQ(2u, sink->Count());
  zemo::Notification first = sink->At(0), second = sink->At(1);
  EXPECT_EQ(context, first.context);
  EXPECT_EQ(source, first.source);
  EXPECT_EQ(7u, first.value);
  EXPECT_EQ(1000u, first.time);
  EXPECT_EQ(2, first.severity);
  EXPECT_EQ(u"short", first.shortMessage);
  EXPECT_EQ(u"long text", first.longMessage);
  EXPECT_EQ(source, second.context);
  EXPECT_EQ(8u, second.value);
  EXPECT_EQ(-1, second.severity);
  EXPECT_EQ(u"", second.shortMessage);
  EXPECT_THROW(sink->At(2), CAtlException);

  sink->SetResult(E_FAIL);
  EXPECT_EQ(E_FAIL, sink->Notify(context, source, 9, 3000, 0, u"x", u"y"));
  EXPECT_EQ(3u, sink->All().size());  // a failing sink still records
  sink->Clear();
  EXPECT_EQ(0u, sink->Count());
}

TEST(EngineNotifySink, ConcurrentNotificationsAreAllKept) {
  auto sink = zemo::NotifySink::Create();
  std::vector<std::thread> threads;
  for (ULONG t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (ULONG i = 0; i < 500; ++i) sink->Notify(GUID{}, GUID{}, t * 1000 + i, i, 0, u"m", u"m");
    });
  for (auto& t : threads) t.join();
  ASSERT_EQ(2000u, sink->Count());
  // Each thread's notifications keep their own order.
  ULONG next[4] = {};
  for (const auto& n : sink->All()) {
    ULONG t = n.value / 1000;
    EXPECT_EQ(next[t]++, n.value % 1000);
  }
}

TEST(EngineAddressBook, LookupMatchesTheWholeSpec) {
  auto book = zemo::AddressBook::Create();
  const uint8_t mac[6] = {0, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
  MediaSpec router = specs::Ethernet(mac);
  ASSERT_EQ(S_OK, book->AddName(router, u"router", 0x20, 2));
  ComPtr<INameTable> table(book.Get());

  ZemoNameTableEntry entry;
  BOOL found = FALSE;
  ASSERT_EQ(S_OK, table->Lookup(&router, &entry, &found));
  EXPECT_EQ(TRUE, found);
  EXPECT_EQ(u"router", std::u16string(entry.Name));
  EXPECT_EQ(0x20, entry.Kind);
  EXPECT_EQ(2, entry.Trust);
  EXPECT_EQ(0, std::memcmp(&router, &entry.Spec, sizeof router));

  // Bytes beyond the value's length do not take part; the mask and the type do.
  MediaSpec same = router;
  same.fData[10] = 0x77;
  ASSERT_EQ(S_OK, table->Lookup(&same, &entry, &found));
  EXPECT_EQ(TRUE, found);
  MediaSpec prefix = router;
  prefix.fMask = 0xE0000000;
  std::memset(&entry, 0x55, sizeof entry);
  ASSERT_EQ(S_OK, table->Lookup(&prefix, &entry, &found));
  EXPECT_EQ(FALSE, found);
  EXPECT_EQ(0, entry.Name[0]);
  EXPECT_EQ(0, entry.Trust);
  MediaSpec other = specs::Make(13, mac, 6);
  table->Lookup(&other, &entry, &found);
  EXPECT_EQ(FALSE, found);
  EXPECT_EQ(E_POINTER, table->Lookup(nullptr, &entry, &found));
  EXPECT_EQ(E_POINTER, table->Lookup(&router, nullptr, &found));
}

TEST(EngineAddressBook, ChangesMoveTheStamp) {
  auto book = zemo::AddressBook::Create();
  MediaSpec host = specs::Ipv4(10, 0, 0, 1);
  ULONG stamp = book->GetStamp();
  ASSERT_EQ(S_OK, book->AddName(host, u"first"));
  EXPECT_NE(stamp, book->GetStamp());
  stamp = book->GetStamp();
  ASSERT_EQ(S_OK, book->AddName(host, u"second"));  // replaces
  EXPECT_NE(stamp, book->GetStamp());
  EXPECT_EQ(1u, book->Count());
  ZemoNameTableEntry entry;
  BOOL found;
  book->Lookup(&host, &entry, &found);
  EXPECT_EQ(u"second", std::u16string(entry.Name));

  std::u16string longest(64, u'n');
  EXPECT_EQ(S_OK, book->AddName(specs::Ipv4(10, 0, 0, 2), longest));
  EXPECT_EQ(E_INVALIDARG, book->AddName(specs::Ipv4(10, 0, 0, 3), longest + u"n"));
  EXPECT_EQ(E_INVALIDARG, book->AddName(specs::Ipv4(10, 0, 0, 3), u""));
  ZemoNameTableEntry empty{};
  empty.Spec = host;
  EXPECT_EQ(E_INVALIDARG, book->Add(empty));

  stamp = book->GetStamp();
  EXPECT_EQ(S_OK, book->Remove(host));
  EXPECT_NE(stamp, book->GetStamp());
  stamp = book->GetStamp();
  EXPECT_EQ(S_FALSE, book->Remove(host));
  EXPECT_EQ(stamp, book->GetStamp());
  EXPECT_EQ(1u, book->Count());
}

TEST(EngineSite, AnswersRegisteredServices) {
  auto site = zemo::Site::Create();
  auto book = zemo::AddressBook::Create();
  site->SetService(kServiceNameTable, static_cast<INameTable*>(book.Get()));
  ComPtr<IServiceProvider> provider(site.Get());

  ComPtr<INameTable> table;
  ASSERT_EQ(S_OK, provider->QueryService(kServiceNameTable, INameTable::iid, table.OutVoid()));
  EXPECT_EQ(static_cast<INameTable*>(book.Get()), table.Get());
  ComPtr<IUnknown> none;
  EXPECT_EQ(E_NOINTERFACE, provider->QueryService(kServiceNameTable, IMediaUtils::iid, none.OutVoid()));
  EXPECT_EQ(E_NOINTERFACE, provider->QueryService(kServiceUpdateSummaryStats, IUnknown::iid, none.OutVoid()));
  EXPECT_FALSE(none);
  EXPECT_EQ(E_POINTER, provider->QueryService(kServiceNameTable, INameTable::iid, nullptr));

  // Replacing and revoking.
  auto utils = zemo::MediaUtils::Create();
  site->SetService(kServiceNameTable, static_cast<IMediaUtils*>(utils.Get()));
  EXPECT_EQ(E_NOINTERFACE, provider->QueryService(kServiceNameTable, INameTable::iid, table.OutVoid()));
  EXPECT_EQ(S_OK, provider->QueryService(kServiceNameTable, IMediaUtils::iid, none.OutVoid()));
  site->SetService(kServiceNameTable, nullptr);
  EXPECT_EQ(E_NOINTERFACE, provider->QueryService(kServiceNameTable, IMediaUtils::iid, none.OutVoid()));
}

TEST(EngineSite, AnswersPropertiesThroughTheContextInTheTypeAsked) {
  auto site = zemo::Site::Create();
  ASSERT_EQ(S_OK, site->SetProperty(u"PacketsDropped", zemo::CVariant::UI4(12)));
  ASSERT_EQ(S_OK, site->SetProperty(u"Duration", zemo::CVariant::Str(u"long")));
  auto context = zemo::StatsContext::Create();
  ComPtr<IObjectWithSite> withSite;
  ASSERT_EQ(S_OK, context->GetUnknown()->QueryInterface(IObjectWithSite::iid, withSite.OutVoid()));
  ASSERT_EQ(S_OK, withSite->SetSite(static_cast<IServiceProvider*>(site.Get())));
  ComPtr<ISiteProperties> properties;
  ASSERT_EQ(S_OK, withSite->GetSite(ISiteProperties::iid, properties.OutVoid()));

  const ZemoSiteProperty asked[] = {
      {u"Duration", VT_I8}, {u"TriggerCount", VT_UI4}, {u"TriggerDuration", VT_I8}, {u"PacketsDropped", VT_UI8}};
  zemo::CVariant values[4];
  // A value that doesn't convert, and those not set, stay empty.
  EXPECT_EQ(DISP_E_TYPEMISMATCH, properties->ReadProperties(4, asked, values));
  EXPECT_EQ(VT_EMPTY, values[0].vt);
  EXPECT_EQ(VT_EMPTY, values[1].vt);
  EXPECT_EQ(VT_EMPTY, values[2].vt);
  ASSERT_EQ(VT_UI8, values[3].vt);
  EXPECT_EQ(12u, values[3].ullVal);

  ASSERT_EQ(S_OK, site->SetProperty(u"Duration", zemo::CVariant::I8(5000000000)));
  ASSERT_EQ(S_OK, site->SetProperty(u"PacketsDropped", VARIANT{}));
  for (auto& v : values) v.Out();
  EXPECT_EQ(S_FALSE, properties->ReadProperties(4, asked, values));
  ASSERT_EQ(VT_I8, values[0].vt);
  EXPECT_EQ(5000000000, values[0].llVal);
  EXPECT_EQ(VT_EMPTY, values[3].vt);
  EXPECT_EQ(E_POINTER, properties->ReadProperties(1, asked, nullptr));
  EXPECT_EQ(S_OK, properties->ReadProperties(0, nullptr, nullptr));
}

}  // namespace
