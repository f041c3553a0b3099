#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <string>
#include <tuple>

#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "platform/object.h"
#include "support/scratch_dir.h"
#include "support/xml_text.h"

namespace {

using namespace zemo;

constexpr CLSID CLSID_XmlThing = MakeGuid("7E57C1A5-0000-4000-8000-000000000001");
constexpr CLSID CLSID_NotRegistered = MakeGuid("7E57C1A5-0000-4000-8000-0000000000FF");

const char16_t kThingScript[] = uR"(HKCR
{
	Test.XmlThing.1 = s 'XmlThing Class'
	{
		CLSID = s '{7E57C1A5-0000-4000-8000-000000000001}'
	}
	NoRemove CLSID
	{
		ForceRemove {7E57C1A5-0000-4000-8000-000000000001} = s 'XmlThing Class'
		{
			ProgID = s 'Test.XmlThing.1'
		}
	}
})";

// A class that saves itself as the element of its class: a count attribute,
// a text child and, when it has one, a property list of its own.
class XmlThing final : public Object<XmlThing, IPersistXml, IPersist> {
 public:
  static constexpr bool kCountsInModule = false;
  uint32_t m_count = 0;
  std::u16string m_text;
  PropertyList m_props;

  HRESULT GetClassID(CLSID* out) override {
    return Unlocked([&] {
      CheckOut(out);
      *out = CLSID_XmlThing;
    });
  }
  HRESULT Load(IUnknown* document, IUnknown* node) override {
    return Locked([&] {
      XmlDocumentOf(document);
      auto element = SelectClassElement(XmlNodeOf(node).Get(), CLSID_XmlThing);
      if (!GetAttribute(element.Get(), u"count", m_count) || !GetChildText(element.Get(), u"text", m_text))
        AtlThrow(E_FAIL);
      if (auto props = SelectXmlNode(element.Get(), u"props")) LoadPropertyList(props.Get(), m_props);
    });
  }
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL) override {
    return Locked([&] {
      auto doc = XmlDocumentOf(document);
      auto element = CreateClassElement(doc.Get(), XmlNodeOf(node).Get(), CLSID_XmlThing);
      SetAttribute(element.Get(), u"count", m_count);
      SetChildText(doc.Get(), element.Get(), u"text", m_text);
      if (!m_props.IsEmpty()) {
        auto props = SavePropertyList(doc.Get(), m_props, nullptr, u"props");
        CheckHr(element->appendChild(props.Get(), nullptr));
      }
    });
  }
};

class XmlThingFactory final : public Object<XmlThingFactory, IClassFactory> {
 public:
  static constexpr bool kCountsInModule = false;
  HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (outer) return CLASS_E_NOAGGREGATION;
    return XmlThing::CreateObject(iid, out);
  }
  HRESULT LockServer(BOOL) override { return S_OK; }
};

// Anything that is no XML persister.
class Plain final : public Object<Plain, IPersist> {
 public:
  static constexpr bool kCountsInModule = false;
  HRESULT GetClassID(CLSID* out) override { return Unlocked([&] { *out = GUID_NULL; }); }
};

std::string TempPath(const char* name) {
  return ::testing::TempDir() + "xml_persist_" + std::to_string(getpid()) + "_" + name;
}

using zemo::testing_support::ReadFile;

void WriteFile(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

using zemo::testing_support::ParseXml;

ComPtr<IXMLDOMElement> Root(IXMLDOMDocument* doc) {
  ComPtr<IXMLDOMElement> root;
  EXPECT_EQ(S_OK, doc->get_documentElement(root.ReleaseAndGetAddressOf()));
  return root;
}

// Saves the document and gives the bytes of the file.
std::string SavedBytes(IXMLDOMDocument* doc) {
  std::string path = TempPath("saved.xml");
  EXPECT_EQ(S_OK, doc->save(CVariant::Str(FromUtf8(path))));
  std::string bytes = ReadFile(path);
  unlink(path.c_str());
  return bytes;
}

// A document saved to a file and loaded again.
ComPtr<IXMLDOMDocument> ThroughFile(IXMLDOMDocument* doc) {
  std::string path = TempPath("through.xml");
  EXPECT_EQ(S_OK, doc->save(CVariant::Str(FromUtf8(path))));
  ComPtr<IXMLDOMDocument> back = LoadXmlDocument(FromUtf8(path));
  unlink(path.c_str());
  return back;
}

std::u16string Str(const VARIANT& v) { return v.bstrVal ? std::u16string(v.bstrVal, SysStringLen(v.bstrVal)) : u""; }

class XmlPersist : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(S_OK, ClassStore::RunScript(kThingScript, {}, true));
    auto factory = MakeObject<XmlThingFactory, IClassFactory>();
    ASSERT_EQ(S_OK, CoRegisterClassObject(CLSID_XmlThing, factory.Get(), CLSCTX_INPROC_SERVER, 0, &m_cookie));
  }
  void TearDown() override {
    EXPECT_EQ(S_OK, CoRevokeClassObject(m_cookie));
    ClassStore::RunScript(kThingScript, {}, false);
  }
  DWORD m_cookie = 0;
};

// ---- documents, files, indenting --------------------------------------------

TEST_F(XmlPersist, IndentsNestedElementsAndKeepsTextElementsOnOneLine) {
  auto doc = CreateXmlDocument();
  auto root = CreateChildElement(doc.Get(), doc.Get(), u"root");
  SetChildText(doc.Get(), root.Get(), u"value", u"hello");
  CreateChildElement(doc.Get(), root.Get(), u"empty");
  auto nested = CreateChildElement(doc.Get(), root.Get(), u"nested");
  SetChildText(doc.Get(), nested.Get(), u"leaf", u"x");
  auto deeper = CreateChildElement(doc.Get(), nested.Get(), u"deeper");
  CreateChildElement(doc.Get(), deeper.Get(), u"x");
  // Text first: the element stays on one line, elements after the text too.
  auto mixed = CreateChildElement(doc.Get(), root.Get(), u"mixed");
  CheckHr(mixed->put_text(CBstr(u"t").Get()));
  CreateChildElement(doc.Get(), mixed.Get(), u"e");
  // Element first, text after it: a break before the element and before the end tag.
  auto trailing = CreateChildElement(doc.Get(), root.Get(), u"trailing");
  CreateChildElement(doc.Get(), trailing.Get(), u"e");
  ComPtr<IXMLDOMNode> text;
  CheckHr(doc->createNode(CVariant::I4(NODE_TEXT), nullptr, nullptr, text.ReleaseAndGetAddressOf()));
  CheckHr(text->put_text(CBstr(u"t").Get()));
  CheckHr(trailing->appendChild(text.Get(), nullptr));

  IndentXmlDocument(doc.Get());
  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
      "<root>\r\n"
      "\t<value>hello</value>\r\n"
      "\t<empty/>\r\n"
      "\t<nested>\r\n"
      "\t\t<leaf>x</leaf>\r\n"
      "\t\t<deeper>\r\n"
      "\t\t\t<x/>\r\n"
      "\t\t</deeper>\r\n"
      "\t</nested>\r\n"
      "\t<mixed>t<e/></mixed>\r\n"
      "\t<trailing>\r\n"
      "\t\t<e/>t\r\n"
      "\t</trailing>\r\n"
      "</root>\r\n",
      SavedBytes(doc.Get()));
}

TEST_F(XmlPersist, IndentingNeedsADocumentElement) {
  auto doc = CreateXmlDocument();
  EXPECT_EQ(E_FAIL, Boundary([&] { IndentXmlDocument(doc.Get()); }));
  // No file for an object without IPersistXml, nor for null arguments.
  auto thing = XmlThing::Create();
  auto plain = MakeObject<Plain, IPersist>();
  EXPECT_EQ(E_NOINTERFACE, SaveObjectToXmlFile(plain.Get(), u"/tmp/never.xml"));
  EXPECT_EQ(E_POINTER, SaveObjectToXmlFile(nullptr, u"/tmp/never.xml"));
  EXPECT_EQ(E_POINTER, SaveObjectToXmlFile(thing->GetUnknown(), nullptr));
  EXPECT_NE(0, access("/tmp/never.xml", F_OK));
}

TEST_F(XmlPersist, ObjectFileRoundTripWritesTheIndentedElementOfItsClass) {
  auto thing = XmlThing::Create();
  thing->m_count = 4000000000u;
  thing->m_text = u"Gr\u00FC\u00DFe \u65E5\u672C \U0001F600 <&>";
  std::string path = TempPath("thing.xml");
  ASSERT_EQ(S_OK, SaveObjectToXmlFile(thing->GetUnknown(), FromUtf8(path).c_str()));
  EXPECT_EQ(std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
                        "<Test.XmlThing.1 count=\"4000000000\">\r\n"
                        "\t<text>") +
                reinterpret_cast<const char*>(u8"Gr\u00FC\u00DFe \u65E5\u672C \U0001F600 &lt;&amp;&gt;") +
                "</text>\r\n"
                "</Test.XmlThing.1>\r\n",
            ReadFile(path));

  auto back = XmlThing::Create();
  ASSERT_EQ(S_OK, LoadObjectFromXmlFile(back->GetUnknown(), FromUtf8(path).c_str()));
  EXPECT_EQ(thing->m_count, back->m_count);
  EXPECT_EQ(thing->m_text, back->m_text);

  // A file without the class's element, a missing file, a malformed one.
  WriteFile(path, "<?xml version=\"1.0\"?><Other.Thing.1 count=\"1\"><text>x</text></Other.Thing.1>");
  EXPECT_EQ(E_FAIL, LoadObjectFromXmlFile(back->GetUnknown(), FromUtf8(path).c_str()));
  WriteFile(path, "<Test.XmlThing.1 count=\"1\"><text>x</text>");
  EXPECT_EQ(E_FAIL, LoadObjectFromXmlFile(back->GetUnknown(), FromUtf8(path).c_str()));
  unlink(path.c_str());
  EXPECT_EQ(E_FAIL, LoadObjectFromXmlFile(back->GetUnknown(), FromUtf8(path).c_str()));
  EXPECT_EQ(E_FAIL, Boundary([&] { LoadXmlDocument(FromUtf8(path)); }));
}

TEST_F(XmlPersist, NestedObjectHelpersCheckArgumentsAndInterfaces) {
  auto doc = CreateXmlDocument();
  auto thing = XmlThing::Create();
  auto plain = MakeObject<Plain, IUnknown>();
  EXPECT_EQ(E_POINTER, SaveObjectToXml(nullptr, doc.Get(), doc.Get(), FALSE));
  EXPECT_EQ(E_POINTER, SaveObjectToXml(thing->GetUnknown(), nullptr, doc.Get(), FALSE));
  EXPECT_EQ(E_POINTER, LoadObjectFromXml(thing->GetUnknown(), doc.Get(), nullptr));
  EXPECT_EQ(E_NOINTERFACE, SaveObjectToXml(plain.Get(), doc.Get(), doc.Get(), FALSE));
  EXPECT_EQ(E_NOINTERFACE, LoadObjectFromXml(plain.Get(), doc.Get(), doc.Get()));
  // A node argument that is no DOM node.
  EXPECT_EQ(E_NOINTERFACE, SaveObjectToXml(thing->GetUnknown(), doc.Get(), plain.Get(), FALSE));

  thing->m_count = 7;
  thing->m_text = u"seven";
  ASSERT_EQ(S_OK, SaveObjectToXml(thing->GetUnknown(), doc.Get(), doc.Get(), FALSE));
  EXPECT_EQ(u"Test.XmlThing.1", ClassElementName(CLSID_XmlThing));
  auto back = XmlThing::Create();
  ASSERT_EQ(S_OK, LoadObjectFromXml(back->GetUnknown(), doc.Get(), doc.Get()));
  EXPECT_EQ(7u, back->m_count);
  EXPECT_EQ(u"seven", back->m_text);
  // Under a node that lacks the element the load fails.
  auto other = ParseXml("<r/>");
  EXPECT_EQ(E_FAIL, LoadObjectFromXml(back->GetUnknown(), other.Get(), Root(other.Get()).Get()));
  EXPECT_EQ(REGDB_E_CLASSNOTREG, Boundary([&] { ClassElementName(CLSID_NotRegistered); }));
}

// ---- typed access -----------------------------------------------------------

// One value of each type, at its limits; doubles that print without an
// exponent, or only as a long fraction, must still come back exactly.
const auto kTypedValues = std::make_tuple(
    true, false, int8_t{-128}, uint8_t{255}, int16_t{-32768}, uint16_t{65535}, std::numeric_limits<int32_t>::min(),
    std::numeric_limits<uint32_t>::max(), std::numeric_limits<int64_t>::min(), std::numeric_limits<uint64_t>::max(),
    0.1 + 0.2, std::numeric_limits<double>::denorm_min(), 1e20, 1.0f / 3.0f,
    std::u16string(u"t\u00E9xt \U0001F600 <a&b> \"q\""), MakeGuid("01234567-89AB-CDEF-0123-456789ABCDEF"));

std::u16string ValueName(int i) { return u"v" + std::u16string(1, static_cast<char16_t>(u'a' + i)); }

template <class T>
void ExpectChild(IXMLDOMNode* e, const std::u16string& name, const T& want) {
  T got{};
  ASSERT_TRUE(GetChildText(e, name, got)) << ToUtf8(name);
  EXPECT_EQ(want, got) << ToUtf8(name);
}

template <class T>
void ExpectAttribute(IXMLDOMElement* e, const std::u16string& name, const T& want) {
  T got{};
  ASSERT_TRUE(GetAttribute(e, name, got)) << ToUtf8(name);
  EXPECT_EQ(want, got) << ToUtf8(name);
}

std::u16string ChildText(IXMLDOMNode* e, const char16_t* name) {
  CBstr raw;
  EXPECT_EQ(S_OK, SelectXmlNode(e, name)->get_text(raw.Out()));
  return std::u16string(raw.View());
}

TEST_F(XmlPersist, ChildTextOfEveryValueTypeRoundTripsThroughAFile) {
  auto doc = CreateXmlDocument();
  auto r = CreateChildElement(doc.Get(), doc.Get(), u"r");
  int i = 0;
  std::apply([&](const auto&... v) { (SetChildText(doc.Get(), r.Get(), ValueName(i++), v), ...); }, kTypedValues);
  SetChildText(doc.Get(), r.Get(), u"bstr", CBstr(u"owned"));
  SetChildText(doc.Get(), r.Get(), u"none", VARIANT{});
  // Numbers are decimal text, a bool 1 or 0.
  EXPECT_EQ(u"1", ChildText(r.Get(), u"va"));
  EXPECT_EQ(u"-128", ChildText(r.Get(), u"vc"));
  EXPECT_EQ(u"18446744073709551615", ChildText(r.Get(), u"vj"));

  auto e = Root(ThroughFile(doc.Get()).Get());
  i = 0;
  std::apply([&](const auto&... v) { (ExpectChild(e.Get(), ValueName(i++), v), ...); }, kTypedValues);
  CBstr bstr;
  ASSERT_TRUE(GetChildText(e.Get(), u"bstr", bstr));
  EXPECT_EQ(u"owned", bstr.View());

  // VT_EMPTY gives an element without text, whose reading fails; a missing
  // child is false and leaves the value alone; text that doesn't convert raises.
  std::u16string none = u"kept";
  EXPECT_EQ(E_FAIL, Boundary([&] { GetChildText(e.Get(), u"none", none); }));
  EXPECT_EQ(u"kept", none);
  uint32_t untouched = 99;
  EXPECT_FALSE(GetChildText(e.Get(), u"absent", untouched));
  EXPECT_EQ(99u, untouched);
  int64_t i64 = 0;
  EXPECT_EQ(DISP_E_TYPEMISMATCH, Boundary([&] { GetChildText(e.Get(), u"vo", untouched); }));
  EXPECT_EQ(DISP_E_OVERFLOW, Boundary([&] { GetChildText(e.Get(), u"vg", untouched); }));
  EXPECT_EQ(E_INVALIDARG, Boundary([&] { GetChildText(e.Get(), u"vj", i64); }));
}

TEST_F(XmlPersist, AttributesOfEveryValueTypeRoundTrip) {
  auto doc = CreateXmlDocument();
  auto r = CreateChildElement(doc.Get(), doc.Get(), u"r");
  int i = 0;
  std::apply([&](const auto&... v) { (SetAttribute(r.Get(), ValueName(i++), v), ...); }, kTypedValues);
  CVariant raw;
  ASSERT_EQ(S_OK, r->getAttribute(CBstr(u"vp").Get(), raw.Out()));
  EXPECT_EQ(u"{01234567-89AB-CDEF-0123-456789ABCDEF}", Str(raw));

  auto e = Root(ThroughFile(doc.Get()).Get());
  i = 0;
  std::apply([&](const auto&... v) { (ExpectAttribute(e.Get(), ValueName(i++), v), ...); }, kTypedValues);
  uint32_t untouched = 5;
  EXPECT_FALSE(GetAttribute(e.Get(), u"absent", untouched));
  EXPECT_EQ(5u, untouched);
  // Booleans read back from the words too.
  SetAttribute(r.Get(), u"word", u"true");
  bool flag = false;
  ASSERT_TRUE(GetAttribute(r.Get(), u"word", flag));
  EXPECT_TRUE(flag);
}

// ---- the property list ------------------------------------------------------

TEST_F(XmlPersist, PropertyListEntriesHaveTheirElementForm) {
  auto doc = CreateXmlDocument();
  auto r = CreateChildElement(doc.Get(), doc.Get(), u"r");
  PropertyList list;
  SetProperty(list, u"Count", uint32_t{42});
  auto written = SavePropertyList(doc.Get(), list, r.Get(), u"ignored with a parent");
  EXPECT_EQ(static_cast<IXMLDOMNode*>(r.Get()), written.Get());
  PropertyList nulls;
  nulls.SetAt(u"Nothing", CVariant::Unknown(nullptr));
  SavePropertyList(doc.Get(), nulls, r.Get(), u"");
  EXPECT_EQ(
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
      "<r><prop name=\"Count\" type=\"19\">42</prop><obj name=\"Nothing\" null=\"1\"/></r>\r\n",
      SavedBytes(doc.Get()));

  // Without a parent, the named element is made and handed back, unattached.
  auto made = SavePropertyList(doc.Get(), list, nullptr, u"props");
  CBstr name;
  ASSERT_EQ(S_OK, made->get_nodeName(name.Out()));
  EXPECT_EQ(u"props", name.View());
  EXPECT_FALSE(SelectXmlNode(r.Get(), u"props"));
  EXPECT_EQ(E_POINTER, Boundary([&] { SavePropertyList(doc.Get(), list, nullptr, u""); }));

  // Arrays have no XML form.
  PropertyList arrays;
  CVariant array;
  array.vt = VT_ARRAY | VT_I4;
  arrays.SetAt(u"Array", std::move(array));
  EXPECT_EQ(E_NOTIMPL, Boundary([&] { SavePropertyList(doc.Get(), arrays, r.Get(), u""); }));
}

TEST_F(XmlPersist, PropertyListOfEveryValueTypeRoundTripsThroughAFile) {
  auto inner = XmlThing::Create();
  inner->m_count = 3;
  inner->m_text = u"inner";
  auto outer = XmlThing::Create();
  outer->m_count = 2;
  outer->m_text = u"outer";
  outer->m_props.SetAt(u"Inner", CVariant::Unknown(inner->GetUnknown()));

  auto make = [](VARTYPE vt, auto set) {
    CVariant v;
    v.vt = vt;
    set(v);
    return v;
  };
  // Values without text (VT_EMPTY, "") are left out: a prop without text
  // doesn't load.
  PropertyList list;
  list.SetAt(u"I1", make(VT_I1, [](VARIANT& v) { v.cVal = -100; }));
  list.SetAt(u"UI1", CVariant::UI1(200));
  list.SetAt(u"I2", make(VT_I2, [](VARIANT& v) { v.iVal = -30000; }));
  list.SetAt(u"UI2", CVariant::UI2(60000));
  list.SetAt(u"I4", CVariant::I4(std::numeric_limits<int32_t>::min()));
  list.SetAt(u"UI4", CVariant::UI4(std::numeric_limits<uint32_t>::max()));
  list.SetAt(u"I8", CVariant::I8(std::numeric_limits<int64_t>::min()));
  list.SetAt(u"UI8", CVariant::UI8(std::numeric_limits<uint64_t>::max()));
  list.SetAt(u"INT", make(VT_INT, [](VARIANT& v) { v.intVal = -7; }));
  list.SetAt(u"UINT", make(VT_UINT, [](VARIANT& v) { v.uintVal = 7; }));
  list.SetAt(u"R4", make(VT_R4, [](VARIANT& v) { v.fltVal = 3.4028235e38f; }));
  list.SetAt(u"R8", CVariant::R8(0.1 + 0.2));
  list.SetAt(u"R8Max", CVariant::R8(std::numeric_limits<double>::max()));
  list.SetAt(u"R8Small", CVariant::R8(-std::numeric_limits<double>::denorm_min()));
  list.SetAt(u"R8Wide", CVariant::R8(-18446744073709551616.0));  // its shortest text has no exponent
  list.SetAt(u"True", CVariant::Bool(true));
  list.SetAt(u"False", CVariant::Bool(false));
  list.SetAt(u"Text", CVariant::Str(u"\u00E4\u00F6\u00FC <&> \"\U0001F600\""));
  list.SetAt(u"Spaces", CVariant::Str(u"  "));
  list.SetAt(u"Clsid", CVariant::Clsid(CLSID_XmlThing));
  list.SetAt(u"Object", CVariant::Unknown(outer->GetUnknown()));
  list.SetAt(u"NullObject", CVariant::Unknown(nullptr));

  auto doc = CreateXmlDocument();
  auto props = SavePropertyList(doc.Get(), list, nullptr, u"props");
  CheckHr(doc->appendChild(props.Get(), nullptr));
  IndentXmlDocument(doc.Get());
  auto back = ThroughFile(doc.Get());

  PropertyList loaded;
  LoadPropertyList(Root(back.Get()).Get(), loaded);
  EXPECT_EQ(list.GetCount(), loaded.GetCount());
  for (const auto& entry : list) {
    const CVariant* got = loaded.Lookup(entry.m_key);
    ASSERT_TRUE(got) << ToUtf8(entry.m_key);
    const VARIANT& want = entry.m_value;
    ASSERT_EQ(want.vt, got->vt) << ToUtf8(entry.m_key);
    switch (want.vt) {
      case VT_BSTR: EXPECT_EQ(Str(want), Str(*got)) << ToUtf8(entry.m_key); break;
      case VT_CLSID: EXPECT_EQ(*want.puuid, *got->puuid); break;
      case VT_R4: EXPECT_EQ(want.fltVal, got->fltVal); break;
      case VT_R8: EXPECT_EQ(want.dblVal, got->dblVal) << ToUtf8(entry.m_key); break;
      case VT_BOOL: EXPECT_EQ(want.boolVal, got->boolVal) << ToUtf8(entry.m_key); break;
      case VT_UNKNOWN:
        if (!want.punkVal) {
          EXPECT_EQ(nullptr, got->punkVal);
        } else {
          ASSERT_NE(nullptr, got->punkVal);
          EXPECT_NE(want.punkVal, got->punkVal);  // a new object of the class
        }
        break;
      default: EXPECT_EQ(want.ullVal, got->ullVal) << ToUtf8(entry.m_key); break;
    }
  }

  // The object and the object inside its own list came back whole.
  ComPtr<IPersistXml> persist;
  ASSERT_EQ(S_OK, QueryTo(loaded.Lookup(u"Object")->punkVal, &persist));
  auto* outerBack = static_cast<XmlThing*>(persist.Get());
  EXPECT_EQ(2u, outerBack->m_count);
  EXPECT_EQ(u"outer", outerBack->m_text);
  const CVariant* innerVar = outerBack->m_props.Lookup(u"Inner");
  ASSERT_TRUE(innerVar && innerVar->vt == VT_UNKNOWN && innerVar->punkVal);
  ASSERT_EQ(S_OK, QueryTo(innerVar->punkVal, &persist));
  EXPECT_EQ(u"inner", static_cast<XmlThing*>(persist.Get())->m_text);

  // Names are found whatever their case.
  uint64_t u64 = 0;
  ASSERT_TRUE(GetProperty(loaded, u"ui8", u64));
  EXPECT_EQ(std::numeric_limits<uint64_t>::max(), u64);
  int32_t keep = 12;
  EXPECT_FALSE(GetProperty(loaded, u"NoSuchName", keep));
  EXPECT_EQ(12, keep);
}

TEST_F(XmlPersist, LoadingAPropertyListChecksMandatoryItems) {
  auto load = [](const std::string& body) {
    auto doc = ParseXml("<props>" + body + "</props>");
    PropertyList list;
    return Boundary([&] { LoadPropertyList(Root(doc.Get()).Get(), list); });
  };
  EXPECT_EQ(S_OK, load("<prop name='a' type='3'>1</prop>"));
  EXPECT_EQ(E_FAIL, load("<prop name='a'>1</prop>"));
  EXPECT_EQ(E_FAIL, load("<prop type='3'>1</prop>"));
  EXPECT_EQ(E_FAIL, load("<prop name='a' type='8'/>"));
  EXPECT_EQ(E_FAIL, load("<obj clsid='{7E57C1A5-0000-4000-8000-000000000001}'/>"));
  EXPECT_EQ(E_FAIL, load("<obj name='o'/>"));
  EXPECT_EQ(E_FAIL, load("<obj name='o' null='0'/>"));
  EXPECT_EQ(CO_E_CLASSSTRING, load("<obj name='o' clsid='not a clsid'/>"));
  EXPECT_EQ(DISP_E_TYPEMISMATCH, load("<prop name='a' type='3'>one</prop>"));
  EXPECT_EQ(DISP_E_TYPEMISMATCH, load("<prop name='a' type='x'>1</prop>"));
  EXPECT_EQ(DISP_E_BADVARTYPE, load("<prop name='a' type='8195'>1</prop>"));  // VT_ARRAY | VT_I4
  EXPECT_EQ(DISP_E_TYPEMISMATCH, load("<prop name='a' type='13'>1</prop>"));  // text is no object
  EXPECT_EQ(E_INVALIDARG, load("<prop name='a' type='20'>9223372036854775808</prop>"));
  // A registered class whose element is not there fails its own Load.
  EXPECT_EQ(E_FAIL, load("<obj name='o' clsid='{7E57C1A5-0000-4000-8000-000000000001}'/>"));
}

TEST_F(XmlPersist, LoadingAPropertyListToleratesWhatItDoesNotKnow) {
  auto doc = ParseXml(
      "<props>"
      "<PROP Name='ignored' name='Count' type='19'>5</PROP>"
      "<Obj name='Gone' clsid='{7E57C1A5-0000-4000-8000-0000000000FF}'/>"
      "<obj name='Null' null='1' clsid='{7E57C1A5-0000-4000-8000-000000000001}'/>"
      "<obj name='NullNoClass' null=' +7'/>"
      "<other name='x' type='3'>1</other>"
      "<!-- a comment --><?pi data?>text"
      "<prop name='count' type='19'>6</prop>"
      "</props>");
  PropertyList list;
  LoadPropertyList(Root(doc.Get()).Get(), list);
  EXPECT_EQ(4u, list.GetCount());
  // The later entry of the same name, in another case, replaced the first.
  uint32_t count = 0;
  ASSERT_TRUE(GetProperty(list, u"COUNT", count));
  EXPECT_EQ(6u, count);
  for (const char16_t* name : {u"Gone", u"Null", u"NullNoClass"}) {
    const CVariant* v = list.Lookup(name);
    ASSERT_TRUE(v) << ToUtf8(name);
    EXPECT_EQ(VT_UNKNOWN, v->vt);
    EXPECT_EQ(nullptr, v->punkVal);
  }
  EXPECT_FALSE(list.Contains(u"x"));
}

}  // namespace
