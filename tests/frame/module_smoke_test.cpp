// Loads the built module by path, as a host would, and drives its entry
// points through the names it exports.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "engine/class_factory.h"
#include "engine/engine.h"
#include "engine/proto_specs.h"
#include "frame/clsids.h"
#include "platform/class_store.h"
#include "platform/interfaces.h"

namespace {

struct Module {
  void* handle = nullptr;
  template <class F>
  F Get(const char* name) {
    return reinterpret_cast<F>(dlsym(handle, name));
  }
  ~Module() {
    if (handle) dlclose(handle);
  }
};

using GetClassObjectFn = HRESULT (*)(REFCLSID, REFIID, void**);
using NoArgFn = HRESULT (*)();

TEST(SmokeModule, LoadsAndAnswersThroughItsEntryPoints) {
  Module m;
  m.handle = dlopen(ZEMO_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(nullptr, m.handle) << dlerror();

  auto getClassObject = m.Get<GetClassObjectFn>("DllGetClassObject");
  auto canUnload = m.Get<NoArgFn>("DllCanUnloadNow");
  auto reg = m.Get<NoArgFn>("DllRegisterServer");
  auto unreg = m.Get<NoArgFn>("DllUnregisterServer");
  ASSERT_TRUE(getClassObject && canUnload && reg && unreg);

  // The runtime functions a host needs are there by name too.
  for (const char* name : {"CoCreateInstance", "CLSIDFromProgID", "ProgIDFromCLSID", "StringFromGUID2",
                           "CLSIDFromString", "CoTaskMemAlloc", "CoTaskMemFree", "SysAllocString", "SysFreeString",
                           "VariantInit", "VariantClear"})
    EXPECT_NE(nullptr, dlsym(m.handle, name)) << name;
  // Internals stay hidden.
  EXPECT_EQ(nullptr, dlsym(m.handle, "_ZN4zemo10ClassStore9RunScriptESt17basic_string_viewIDsSt11char_traitsIDsEERKSt3mapINSt7__cxx1112basic_stringIDsS3_SaIDsEEES9_St4lessIS9_ESaISt4pairIKS9_S9_EEEb"));
  EXPECT_EQ(nullptr, dlsym(m.handle, "_ZN4zemo6ToUtf8ESt17basic_string_viewIDsSt11char_traitsIDsEE"));

  EXPECT_EQ(S_OK, reg());
  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE,
            getClassObject(MakeGuid("44444444-0000-0000-0000-000000000000"), IClassFactory::iid, &out));
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(E_POINTER, getClassObject(CLSID_StatsContext, IClassFactory::iid, nullptr));
  EXPECT_EQ(S_OK, canUnload());

  // A context's entity table asks for the host's protocol tree by program
  // identifier, so the host registers it in the module's class store.
  auto runScript = m.Get<HRESULT (*)(LPCOLESTR, BOOL)>("RegistrarRunScript");
  auto registerClass = m.Get<HRESULT (*)(REFCLSID, IUnknown*, DWORD, DWORD, DWORD*)>("CoRegisterClassObject");
  auto revokeClass = m.Get<HRESULT (*)(DWORD)>("CoRevokeClassObject");
  ASSERT_TRUE(runScript && registerClass && revokeClass);
  ASSERT_EQ(S_OK, runScript(u"HKCR { ZemoCore.ProtoSpecs = s 'ProtoSpecs Class' { CLSID = s "
                            u"'{A3CF6915-E06B-458C-A2E7-632623C13702}' } }",
                            TRUE));
  zemo::ComPtr<IClassFactory> protoSpecs;
  ASSERT_EQ(S_OK, zemo::HostClassFactory::CreateObject(IClassFactory::iid, protoSpecs.OutVoid(),
                                                       &zemo::CreateClass<zemo::ProtoSpecs>));
  DWORD cookie = 0;
  ASSERT_EQ(S_OK, registerClass(CLSID_ZemoProtoSpecs, protoSpecs.Get(), CLSCTX_INPROC_SERVER, 0, &cookie));

  // A served class: its factory keeps no lock on the module, an object does.
  IClassFactory* factory = nullptr;
  if (getClassObject(CLSID_StatsContext, IClassFactory::iid, reinterpret_cast<void**>(&factory)) == S_OK) {
    IUnknown* obj = nullptr;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IUnknown::iid, reinterpret_cast<void**>(&obj)));
    EXPECT_EQ(S_FALSE, canUnload());
    obj->Release();
    factory->Release();
    EXPECT_EQ(S_OK, canUnload());
  }
  EXPECT_EQ(S_OK, revokeClass(cookie));
  EXPECT_EQ(S_OK, unreg());
}

}  // namespace
