#include "engine/engine.h"

#include <mutex>
#include <string>
#include <vector>

#include "engine/adapter_info.h"
#include "engine/address_book.h"
#include "engine/class_factory.h"
#include "engine/data_table.h"
#include "engine/id_list.h"
#include "engine/expert_stats.h"
#include "engine/media_utils.h"
#include "engine/notify_sink.h"
#include "engine/proto_specs.h"
#include "engine/select_params.h"
#include "engine/simple_prop_bag.h"
#include "engine/site.h"
#include "frame/engine_interfaces.h"
#include "platform/class_store.h"

namespace zemo {
namespace {

const EngineClass kEngineClasses[] = {
    {kProgIdSelectParams, u"SelectParams", CLSID_ZemoSelectParams, &CreateClass<SelectParams>},
    {kProgIdSimplePropBag, u"SimplePropBag", CLSID_ZemoSimplePropBag, &CreateClass<SimplePropBag>},
    {kProgIdDataTable, u"DataTable", CLSID_ZemoDataTable, &CreateClass<DataTable>},
    {kProgIdProtoSpecs, u"ProtoSpecs", CLSID_ZemoProtoSpecs, &CreateClass<ProtoSpecs>},
    {kProgIdMediaUtils, u"MediaUtils", CLSID_ZemoMediaUtils, &CreateClass<MediaUtils>},
    {kProgIdAdapterInfo, u"AdapterInfo", CLSID_ZemoAdapterInfo, &CreateClass<AdapterInfo>},
    {kProgIdNotifySink, u"NotifySink", CLSID_ZemoNotifySink, &CreateClass<NotifySink>},
    {kProgIdSite, u"Site", CLSID_ZemoSite, &CreateClass<Site>},
    {kProgIdAddressBook, u"AddressBook", CLSID_ZemoAddressBook, &CreateClass<AddressBook>},
    {kProgIdIdList, u"IdList", CLSID_ZemoIdList, &CreateClass<IdList>},
    {kProgIdExpertStats, u"ExpertStats", CLSID_KorvantExpertStats, &CreateClass<ExpertStats>},
};

constexpr size_t kCount = std::size(kEngineClasses);

// Cookies of the class objects registered in the class store, by table row;
// 0: none.
struct Registration {
  std::mutex lock;
  DWORD cookies[kCount] = {};
};

Registration& TheRegistration() {
  static Registration r;
  return r;
}

std::u16string Script(const EngineClass& c) {
  OLECHAR buf[39];
  StringFromGUID2(c.clsid, buf, 39);
  std::u16string id(buf), progId(c.progId), description = std::u16string(c.name) + u" Class";
  return u"HKCR\n{\n  " + progId + u" = s '" + description + u"'\n  {\n    CLSID = s '" + id +
         u"'\n  }\n  NoRemove CLSID\n  {\n    ForceRemove " + id + u" = s '" + description +
         u"'\n    {\n      ProgID = s '" + progId + u"'\n    }\n  }\n}\n";
}

}  // namespace

std::span<const EngineClass> EngineClasses() { return kEngineClasses; }

HRESULT RegisterEngineClasses() {
  auto& reg = TheRegistration();
  std::lock_guard<std::mutex> hold(reg.lock);
  for (size_t i = 0; i < kCount; ++i) {
    const EngineClass& c = kEngineClasses[i];
    // The keys are written every time: the store may have been emptied meanwhile.
    HRESULT hr = Boundary([&] { return ClassStore::RunScript(Script(c), {}, true); });
    if (FAILED(hr)) return hr;
    if (reg.cookies[i]) continue;
    ComPtr<IClassFactory> factory;
    hr = HostClassFactory::CreateObject(IClassFactory::iid, factory.OutVoid(), c.create);
    if (SUCCEEDED(hr)) hr = CoRegisterClassObject(c.clsid, factory.Get(), CLSCTX_INPROC_SERVER, 0, &reg.cookies[i]);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

HRESULT UnregisterEngineClasses() {
  auto& reg = TheRegistration();
  std::lock_guard<std::mutex> hold(reg.lock);
  HRESULT result = S_OK;
  for (size_t i = 0; i < kCount; ++i) {
    const EngineClass& c = kEngineClasses[i];
    if (reg.cookies[i]) {
      HRESULT hr = CoRevokeClassObject(std::exchange(reg.cookies[i], 0));
      if (FAILED(hr) && SUCCEEDED(result)) result = hr;
    }
    HRESULT hr = Boundary([&] { return ClassStore::RunScript(Script(c), {}, false); });
    if (FAILED(hr) && SUCCEEDED(result)) result = hr;
  }
  return result;
}

}  // namespace zemo
