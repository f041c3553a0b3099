#include "engine/engine.h"

#include <gtest/gtest.h>

#include "engine/adapter_info.h"
#include "engine/address_book.h"
#include "engine/expert_stats.h"
#include "engine/id_list.h"
#include "engine/media_utils.h"
#include "engine/notify_sink.h"
#include "engine/proto_specs.h"
#include "engine/site.h"
#include "frame/engine_interfaces.h"
#include "platform/class_store.h"
#include "platform/object.h"
#include "platform/strings.h"

namespace {

using zemo::ComPtr;

struct Expected {
  const char16_t* progId;
  CLSID clsid;
  IID iid;
};
const Expected kClasses[] = {
    {u"ZemoUtil.SelectParams", CLSID_ZemoSelectParams, ISelectParams::iid},
    {u"ZemoUtil.SimplePropBag", CLSID_ZemoSimplePropBag, IPropertyBag::iid},
    {u"ZemoUtil.DataTable", CLSID_ZemoDataTable, IDataTable::iid},
    {u"korvant.ExpertStats", CLSID_KorvantExpertStats, IUpdateSummaryStats::iid},
    {u"ZemoCore.ProtoSpecs", CLSID_ZemoProtoSpecs, IProtoSpecs::iid},
    {u"ZemoCore.MediaUtils", CLSID_ZemoMediaUtils, IMediaUtils::iid},
    {u"ZemoEngine.AdapterInfo", CLSID_ZemoAdapterInfo, IAdapterInfo::iid},
    {u"ZemoEngine.NotifySink", CLSID_ZemoNotifySink, INotify::iid},
    {u"ZemoEngine.Site", CLSID_ZemoSite, IServiceProvider::iid},
    {u"ZemoEngine.AddressBook", CLSID_ZemoAddressBook, INameTable::iid},
    {u"ZemoEngine.IdList", CLSID_ZemoIdList, IIdList::iid},
};

// Creation as the statistics do it: program identifier, then the class.
HRESULT CreateByProgId(const char16_t* progId, REFIID iid, ComPtr<IUnknown>* out) {
  CLSID clsid;
  HRESULT hr = CLSIDFromProgID(progId, &clsid);
  if (FAILED(hr)) return hr;
  return CoCreateInstance(clsid, nullptr, 0x17, iid, out->OutVoid());
}

TEST(EngineRegistration, ClassesAreCreatableByProgIdUntilUnregistered) {
  LONG live = zemo::ModuleCount::Get();
  ASSERT_EQ(S_OK, zemo::RegisterEngineClasses());
  ASSERT_EQ(S_OK, zemo::RegisterEngineClasses());  // a second call must not register a second class object
  // Class objects held by the store do not keep a module loaded.
  EXPECT_EQ(live, zemo::ModuleCount::Get());

  for (const Expected& c : kClasses) {
    SCOPED_TRACE(zemo::ToUtf8(c.progId));
    CLSID clsid;
    ASSERT_EQ(S_OK, CLSIDFromProgID(c.progId, &clsid));
    EXPECT_EQ(c.clsid, clsid);
    LPOLESTR progId = nullptr;
    ASSERT_EQ(S_OK, ProgIDFromCLSID(clsid, &progId));
    EXPECT_EQ(std::u16string(c.progId), progId);
    CoTaskMemFree(progId);

    ComPtr<IUnknown> obj;
    EXPECT_EQ(S_OK, CreateByProgId(c.progId, c.iid, &obj));
    EXPECT_TRUE(obj);
    ComPtr<IUnknown> aggregated;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, CoCreateInstance(clsid, obj.Get(), 0x17, IUnknown::iid, aggregated.OutVoid()));
  }

  ASSERT_EQ(S_OK, zemo::UnregisterEngineClasses());
  for (const Expected& c : kClasses) {
    ComPtr<IUnknown> obj;
    EXPECT_EQ(CO_E_CLASSSTRING, CreateByProgId(c.progId, c.iid, &obj));
    EXPECT_EQ(REGDB_E_CLASSNOTREG, CoCreateInstance(c.clsid, nullptr, 0x17, c.iid, obj.OutVoid()));
    EXPECT_FALSE(obj);
  }
  // The shared class key stays for the module's classes.
  EXPECT_TRUE(zemo::ClassStore::KeyExists(u"CLSID"));
  EXPECT_EQ(S_OK, zemo::UnregisterEngineClasses());
}

TEST(EngineRegistration, RegisteringAgainRestoresLostKeys) {
  ASSERT_EQ(S_OK, zemo::RegisterEngineClasses());
  ASSERT_EQ(S_OK, zemo::ClassStore::RunScript(u"HKCR { ZemoUtil.DataTable }", {}, false));
  ComPtr<IUnknown> table;
  ASSERT_EQ(CO_E_CLASSSTRING, CreateByProgId(u"ZemoUtil.DataTable", IDataTable::iid, &table));
  ASSERT_EQ(S_OK, zemo::RegisterEngineClasses());
  EXPECT_EQ(S_OK, CreateByProgId(u"ZemoUtil.DataTable", IDataTable::iid, &table));
  EXPECT_EQ(S_OK, zemo::UnregisterEngineClasses());
}

}  // namespace
