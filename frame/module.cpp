#include "frame/module.h"

#include <array>
#include <map>
#include <mutex>

#include "frame/class_table.h"
#include "perfcounters/perf_module.h"
#include "platform/class_store.h"
#include "platform/object.h"

namespace zemo {
namespace {

// One factory per class, made on first demand and cached for the module's
// life. A cached factory does not keep the module loaded.
class ClassFactory final : public Object<ClassFactory, IClassFactory> {
 public:
  static constexpr bool kCountsInModule = false;
  explicit ClassFactory(CreatorFn create) : m_create(create) {}

  HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** out) override { return m_create(outer, iid, out); }
  HRESULT LockServer(BOOL lock) override {
    if (lock)
      ModuleCount::Lock();
    else
      ModuleCount::Unlock();
    return S_OK;
  }

 private:
  CreatorFn m_create;
};

// The factory cache; its destruction at unload releases the factories.
struct FactoryCache {
  std::mutex lock;
  std::map<const ClassInfo*, IClassFactory*> factories;
  void ReleaseAll() {
    std::lock_guard<std::mutex> hold(lock);
    for (auto& [row, factory] : factories) factory->Release();
    factories.clear();
  }
  ~FactoryCache() { ReleaseAll(); }
};
FactoryCache g_cache;

std::u16string ClsidText(REFCLSID clsid) {
  OLECHAR buf[39];
  StringFromGUID2(clsid, buf, 39);
  return buf;
}

std::map<std::u16string, std::u16string> Replacements() {
  std::u16string self = ModulePathOf(reinterpret_cast<const void*>(&DllGetClassObject));
  return {{u"MODULE", self}, {u"APPID", ClsidText(kModuleAppId)}};
}

// The scripts in registration order: the application identifier, then each
// served class in table order.
std::vector<const char16_t*> Scripts() {
  std::vector<const char16_t*> scripts;
  if (const char16_t* s = RegistrationScript(u"AppID")) scripts.push_back(s);
  for (const ClassInfo& c : ClassTable())
    if (c.create)
      if (const char16_t* s = RegistrationScript(c.name)) scripts.push_back(s);
  return scripts;
}

}  // namespace

HRESULT GetClassObjectFor(const ClassInfo& row, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  IClassFactory* factory = nullptr;
  {
    std::lock_guard<std::mutex> hold(g_cache.lock);
    auto it = g_cache.factories.find(&row);
    if (it == g_cache.factories.end()) {
      HRESULT hr = ClassFactory::CreateObject(IClassFactory::iid, reinterpret_cast<void**>(&factory), row.create);
      if (FAILED(hr)) return hr;
      g_cache.factories.emplace(&row, factory);  // the cache keeps this reference
    } else {
      factory = it->second;
    }
    factory->AddRef();
  }
  HRESULT hr = factory->QueryInterface(iid, out);
  factory->Release();
  return hr;
}

void ReleaseClassFactories() { g_cache.ReleaseAll(); }

HRESULT CreateModuleInstance(REFCLSID clsid, REFIID iid, void** out) {
  HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, out);
  if (hr != REGDB_E_CLASSNOTREG) return hr;
  const ClassInfo* row = FindClass(clsid);
  if (!row || !row->create) return CLASS_E_CLASSNOTAVAILABLE;
  ComPtr<IClassFactory> factory;
  hr = GetClassObjectFor(*row, IClassFactory::iid, factory.OutVoid());
  return SUCCEEDED(hr) ? factory->CreateInstance(nullptr, iid, out) : hr;
}

}  // namespace zemo

using namespace zemo;

extern "C" {

HRESULT DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  // No interface proxies are generated in this module (there are no
  // apartments to marshal between), so the class table is all there is.
  const ClassInfo* row = FindClass(clsid);
  if (!row || !row->create) return CLASS_E_CLASSNOTAVAILABLE;
  return GetClassObjectFor(*row, iid, out);
}

HRESULT DllCanUnloadNow() { return ModuleCount::Get() > 0 ? S_FALSE : S_OK; }

HRESULT DllRegisterServer() {
  auto repl = Replacements();
  for (const char16_t* script : Scripts()) {
    HRESULT hr = ClassStore::RunScript(script, repl, true);
    if (FAILED(hr)) return hr;
  }
  // The store finds this module in process by the path its keys name.
  ClassStore::RegisterModule(repl[u"MODULE"], &DllGetClassObject);
  // Then the performance counters; there are no interface proxies to register.
  return RegisterProviders(PerfProviderTable(), repl[u"MODULE"]);
}

HRESULT DllUnregisterServer() {
  if (HRESULT hr = UnregisterProviders(PerfProviderTable()); FAILED(hr)) return hr;
  auto repl = Replacements();
  auto scripts = Scripts();
  for (auto it = scripts.rbegin(); it != scripts.rend(); ++it) {
    HRESULT hr = ClassStore::RunScript(*it, repl, false);
    if (FAILED(hr)) return hr;
  }
  ClassStore::UnregisterModule(repl[u"MODULE"]);
  return S_OK;
}

}  // extern "C"
