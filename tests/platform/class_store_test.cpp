#include <gtest/gtest.h>

#include "frame/class_table.h"
#include "frame/module.h"
#include "platform/class_store.h"
#include "platform/object.h"

namespace {

using zemo::ClassStore;
using zemo::ComPtr;

const std::map<std::u16string, std::u16string> kRepl = {{u"MODULE", u"/opt/test/module.so"},
                                                          {u"APPID", u"{AAAAAAAA-0000-0000-0000-000000000001}"}};

const char16_t kScript[] = uR"(HKCR
{
	Test.Widget.1 = s 'Widget Class'
	{
		CLSID = s '{33333333-0000-0000-0000-000000000001}'
	}
	NoRemove CLSID
	{
		ForceRemove {33333333-0000-0000-0000-000000000001} = s 'Widget Class'
		{
			ProgID = s 'Test.Widget.1'
			InprocServer32 = s '%MODULE%'
			{
				val ThreadingModel = s 'Both'
			}
			val AppID = s '%APPID%'
			'TypeLib' = s '{AAAAAAAA-0000-0000-0000-000000000001}'
		}
	}
})";

TEST(ClassStore, RegistersAndUnregistersAScript) {
  ASSERT_EQ(S_OK, ClassStore::RunScript(kScript, kRepl, true));
  const std::u16string key = u"CLSID\\{33333333-0000-0000-0000-000000000001}";
  EXPECT_EQ(u"Widget Class", ClassStore::ReadDefault(key));
  EXPECT_EQ(u"/opt/test/module.so", ClassStore::ReadDefault(key + u"\\InprocServer32"));
  EXPECT_EQ(u"Both", ClassStore::ReadValue(key + u"\\InprocServer32", u"ThreadingModel"));
  EXPECT_EQ(u"{AAAAAAAA-0000-0000-0000-000000000001}", ClassStore::ReadValue(key, u"AppID"));
  EXPECT_EQ(u"{AAAAAAAA-0000-0000-0000-000000000001}", ClassStore::ReadDefault(key + u"\\TypeLib"));
  // Names are case-blind, as in the registry.
  EXPECT_EQ(u"Widget Class", ClassStore::ReadDefault(u"clsid\\{33333333-0000-0000-0000-000000000001}"));

  CLSID id;
  ASSERT_EQ(S_OK, CLSIDFromProgID(u"Test.Widget.1", &id));
  EXPECT_EQ(MakeGuid("33333333-0000-0000-0000-000000000001"), id);
  LPOLESTR prog = nullptr;
  ASSERT_EQ(S_OK, ProgIDFromCLSID(id, &prog));
  EXPECT_EQ(std::u16string(u"Test.Widget.1"), prog);
  CoTaskMemFree(prog);

  // ForceRemove replaces the key whole on a second registration.
  ClassStore::RunScript(u"HKCR { NoRemove CLSID { {33333333-0000-0000-0000-000000000001} { Stale = s 'x' } } }", kRepl,
                        true);
  EXPECT_TRUE(ClassStore::KeyExists(key + u"\\Stale"));
  ASSERT_EQ(S_OK, ClassStore::RunScript(kScript, kRepl, true));
  EXPECT_FALSE(ClassStore::KeyExists(key + u"\\Stale"));

  // Unregistering keeps NoRemove keys and drops the rest.
  ASSERT_EQ(S_OK, ClassStore::RunScript(kScript, kRepl, false));
  EXPECT_FALSE(ClassStore::KeyExists(key));
  EXPECT_FALSE(ClassStore::KeyExists(u"Test.Widget.1"));
  EXPECT_TRUE(ClassStore::KeyExists(u"CLSID"));
  EXPECT_EQ(CO_E_CLASSSTRING, CLSIDFromProgID(u"Test.Widget.1", &id));
  EXPECT_EQ(REGDB_E_CLASSNOTREG, ProgIDFromCLSID(MakeGuid("33333333-0000-0000-0000-000000000001"), &prog));
}

TEST(ClassStore, MalformedScriptsChangeNothing) {
  const char16_t* bad[] = {
      u"HKCR { Test.Bad = s 'unterminated }",
      u"HKCR { Test.Bad = s 'x' { }",         // unbalanced
      u"HKCR { Test.Bad = q 'x' }",           // unknown value type
      u"HKXX { Test.Bad = s 'x' }",           // unknown root
      u"HKCR { Test.Bad = s '%NOSUCH%' }",    // unknown replacement
      u"HKCR { val = s 'x' }",
      u"HKCR { Test.Bad { val N = d 'ten' } }",  // a number that is none
  };
  for (const char16_t* script : bad) {
    EXPECT_EQ(E_FAIL, ClassStore::RunScript(script, kRepl, true)) << zemo::ToUtf8(script);
    EXPECT_FALSE(ClassStore::KeyExists(u"Test.Bad"));
  }
  // A quote doubled inside a text is one quote; %% is a percent sign.
  ASSERT_EQ(S_OK, ClassStore::RunScript(u"HKCR { Test.Quoted = s 'it''s 100%%' }", kRepl, true));
  EXPECT_EQ(u"it's 100%", ClassStore::ReadDefault(u"Test.Quoted"));
  ClassStore::RunScript(u"HKCR { Test.Quoted = s 'x' }", kRepl, false);
  // A d value is a number, in decimal or hexadecimal.
  ASSERT_EQ(S_OK, ClassStore::RunScript(u"HKCR { Test.Number { val N = d '0x10' val M = d '42' } }", kRepl, true));
  zemo::RegistryValue n, m;
  ASSERT_EQ(S_OK, ClassStore::QueryValue(u"HKCR\\Test.Number", u"N", n));
  ASSERT_EQ(S_OK, ClassStore::QueryValue(u"HKEY_CLASSES_ROOT\\Test.Number", u"M", m));
  EXPECT_EQ(16u, n.AsNumber());
  EXPECT_EQ(42u, m.AsNumber());
  EXPECT_EQ(std::nullopt, ClassStore::ReadValue(u"Test.Number", u"N"));  // no text
  ClassStore::RunScript(u"HKCR { Test.Number { } }", kRepl, false);
  EXPECT_FALSE(ClassStore::KeyExists(u"Test.Number"));
}

struct IWidget : IUnknown {
  static constexpr IID iid = MakeGuid("33333333-0000-0000-0000-0000000000F1");
};
class Widget final : public zemo::Object<Widget, IWidget> {};

const zemo::ClassInfo kWidgetRow{u"Widget", MakeGuid("33333333-0000-0000-0000-000000000002"), false,
                                 &zemo::CreateClass<Widget>, {&IWidget::iid}};

HRESULT WidgetModuleEntry(REFCLSID clsid, REFIID iid, void** out) {
  if (!(clsid == kWidgetRow.clsid)) return CLASS_E_CLASSNOTAVAILABLE;
  return zemo::GetClassObjectFor(kWidgetRow, iid, out);
}

TEST(ClassStore, CreatesThroughAModuleFoundByItsPath) {
  const char16_t script[] =
      u"HKCR { NoRemove CLSID { ForceRemove {33333333-0000-0000-0000-000000000002} = s 'Widget Class' { "
      u"InprocServer32 = s '/virtual/widget.so' } } }";
  ASSERT_EQ(S_OK, ClassStore::RunScript(script, kRepl, true));
  ComPtr<IWidget> w;
  // Registered but the module is neither present nor loadable.
  EXPECT_EQ(HRESULT_FROM_WIN32(126), CoCreateInstance(kWidgetRow.clsid, nullptr, CLSCTX_ALL, IWidget::iid, w.OutVoid()));
  ClassStore::RegisterModule(u"/virtual/widget.so", &WidgetModuleEntry);
  EXPECT_EQ(S_OK, CoCreateInstance(kWidgetRow.clsid, nullptr, CLSCTX_ALL, IWidget::iid, w.OutVoid()));
  EXPECT_NE(nullptr, w.Get());
  // Only in-process servers exist here.
  ComPtr<IWidget> remote;
  EXPECT_EQ(REGDB_E_CLASSNOTREG,
            CoCreateInstance(kWidgetRow.clsid, nullptr, CLSCTX_LOCAL_SERVER, IWidget::iid, remote.OutVoid()));
  ClassStore::UnregisterModule(u"/virtual/widget.so");
  ClassStore::RunScript(script, kRepl, false);
  EXPECT_EQ(REGDB_E_CLASSNOTREG, CoCreateInstance(kWidgetRow.clsid, nullptr, CLSCTX_ALL, IWidget::iid, w.OutVoid()));
  EXPECT_EQ(nullptr, w.Get());
}

TEST(ClassStore, HostClassObjectsComeFirstAndCanBeRevoked) {
  const CLSID id = MakeGuid("33333333-0000-0000-0000-000000000003");
  ComPtr<IClassFactory> factory;
  ASSERT_EQ(S_OK, zemo::GetClassObjectFor(kWidgetRow, IClassFactory::iid, factory.OutVoid()));
  DWORD cookie = 0;
  ASSERT_EQ(S_OK, CoRegisterClassObject(id, factory.Get(), CLSCTX_INPROC_SERVER, 0, &cookie));
  ComPtr<IWidget> w;
  EXPECT_EQ(S_OK, CoCreateInstance(id, nullptr, 0x17, IWidget::iid, w.OutVoid()));
  EXPECT_EQ(S_OK, CoRevokeClassObject(cookie));
  EXPECT_EQ(E_INVALIDARG, CoRevokeClassObject(cookie));
  EXPECT_EQ(REGDB_E_CLASSNOTREG, CoCreateInstance(id, nullptr, 0x17, IWidget::iid, w.OutVoid()));
}

TEST(Module, RegistersItsApplicationIdentifier) {
  const std::u16string appKey = u"AppID\\{753D40EA-DFDE-47E0-A993-D5314BEA8535}";
  ASSERT_EQ(S_OK, DllRegisterServer());
  EXPECT_EQ(u"ZemoStats", ClassStore::ReadDefault(appKey));
  EXPECT_EQ(u"{753D40EA-DFDE-47E0-A993-D5314BEA8535}", ClassStore::ReadValue(u"AppID\\ZemoStats.DLL", u"AppID"));
  // Every served class gets its keys; classes not yet served get none.
  for (const zemo::ClassInfo& row : zemo::ClassTable()) {
    OLECHAR text[39];
    StringFromGUID2(row.clsid, text, 39);
    std::u16string key = u"CLSID\\" + std::u16string(text);
    EXPECT_EQ(row.create != nullptr, ClassStore::KeyExists(key)) << zemo::ToUtf8(row.name);
    if (!row.create) continue;
    EXPECT_EQ(row.Description(), ClassStore::ReadDefault(key));
    EXPECT_EQ(row.ProgId(), ClassStore::ReadDefault(key + u"\\ProgID"));
    EXPECT_EQ(row.VersionIndependentProgId(), ClassStore::ReadDefault(key + u"\\VersionIndependentProgID"));
    EXPECT_EQ(u"Both", ClassStore::ReadValue(key + u"\\InprocServer32", u"ThreadingModel"));
    EXPECT_EQ(row.ProgId(), ClassStore::ReadDefault(row.VersionIndependentProgId() + u"\\CurVer"));
    CLSID back;
    ASSERT_EQ(S_OK, CLSIDFromProgID(row.VersionIndependentProgId().c_str(), &back));
    EXPECT_EQ(row.clsid, back);
    ComPtr<IUnknown> obj;
    EXPECT_EQ(S_OK, CoCreateInstance(row.clsid, nullptr, 0x17, IUnknown::iid, obj.OutVoid()));
  }
  ASSERT_EQ(S_OK, DllUnregisterServer());
  EXPECT_FALSE(ClassStore::KeyExists(appKey));
  EXPECT_FALSE(ClassStore::KeyExists(u"AppID\\ZemoStats.DLL"));
  EXPECT_TRUE(ClassStore::KeyExists(u"AppID"));  // NoRemove
}

TEST(Module, DllGetClassObjectServesOnlyBuiltClasses) {
  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE,
            DllGetClassObject(MakeGuid("44444444-0000-0000-0000-000000000000"), IClassFactory::iid, &out));
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(E_POINTER, DllGetClassObject(kWidgetRow.clsid, IClassFactory::iid, nullptr));
  for (const zemo::ClassInfo& row : zemo::ClassTable()) {
    ComPtr<IClassFactory> f1, f2;
    HRESULT hr = DllGetClassObject(row.clsid, IClassFactory::iid, f1.OutVoid());
    if (!row.create) {
      EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, hr) << zemo::ToUtf8(row.name);
      continue;
    }
    ASSERT_EQ(S_OK, hr);
    ASSERT_EQ(S_OK, DllGetClassObject(row.clsid, IClassFactory::iid, f2.OutVoid()));
    EXPECT_EQ(f1.Get(), f2.Get());
  }
}

}  // namespace
