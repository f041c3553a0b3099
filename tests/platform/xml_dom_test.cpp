#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "platform/class_store.h"
#include "platform/xml_dom.h"
#include "support/scratch_dir.h"

namespace {

using zemo::CBstr;
using zemo::ComPtr;
using zemo::CVariant;

std::string U8(const char8_t* text) { return reinterpret_cast<const char*>(text); }

std::string TempPath(const char* name) {
  return ::testing::TempDir() + "xml_dom_" + std::to_string(getpid()) + "_" + name;
}

using zemo::testing_support::ReadFile;

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

CVariant PathVariant(const std::string& path) { return CVariant::Str(zemo::FromUtf8(path)); }

ComPtr<IXMLDOMDocument> NewDocument() {
  ComPtr<IXMLDOMDocument> doc;
  EXPECT_EQ(S_OK, CoCreateInstance(CLSID_DOMDocument, nullptr, CLSCTX_ALL, IXMLDOMDocument::iid, doc.OutVoid()));
  return doc;
}

ComPtr<IXMLDOMElement> NewElement(IXMLDOMDocument* doc, const char16_t* name) {
  ComPtr<IXMLDOMElement> e;
  EXPECT_EQ(S_OK, doc->createElement(CBstr(name).Get(), e.ReleaseAndGetAddressOf()));
  return e;
}

ComPtr<IXMLDOMNode> NewText(IXMLDOMDocument* doc, const std::u16string& text) {
  ComPtr<IXMLDOMNode> n;
  EXPECT_EQ(S_OK, doc->createNode(CVariant::I4(NODE_TEXT), nullptr, nullptr, n.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_OK, n->put_text(CBstr(text).Get()));
  return n;
}

template <class P, class C>
void Append(const P& parent, const C& child) {
  ASSERT_EQ(S_OK, parent->appendChild(child.Get(), nullptr));
}

std::u16string Text(IXMLDOMNode* n) {
  CBstr t;
  EXPECT_TRUE(SUCCEEDED(n->get_text(t.Out())));
  return std::u16string(t.View());
}

std::u16string Name(IXMLDOMNode* n) {
  CBstr t;
  EXPECT_EQ(S_OK, n->get_nodeName(t.Out()));
  return std::u16string(t.View());
}

DOMNodeType Type(IXMLDOMNode* n) {
  DOMNodeType t = 0;
  EXPECT_EQ(S_OK, n->get_nodeType(&t));
  return t;
}

ComPtr<IXMLDOMNode> First(IXMLDOMNode* n) {
  ComPtr<IXMLDOMNode> c;
  EXPECT_TRUE(SUCCEEDED(n->get_firstChild(c.ReleaseAndGetAddressOf())));
  return c;
}

ComPtr<IXMLDOMNode> Next(IXMLDOMNode* n) {
  ComPtr<IXMLDOMNode> c;
  EXPECT_TRUE(SUCCEEDED(n->get_nextSibling(c.ReleaseAndGetAddressOf())));
  return c;
}

// Loads UTF-8 text; S_OK and true, or S_FALSE and false.
bool LoadText(IXMLDOMDocument* doc, const std::string& utf8) {
  VARIANT_BOOL ok = VARIANT_TRUE;
  HRESULT hr = doc->loadXML(CBstr(zemo::FromUtf8(utf8)).Get(), &ok);
  EXPECT_EQ(hr == S_OK, ok == VARIANT_TRUE);
  EXPECT_TRUE(hr == S_OK || hr == S_FALSE) << std::hex << hr;
  return hr == S_OK;
}

ComPtr<IXMLDOMElement> Root(IXMLDOMDocument* doc) {
  ComPtr<IXMLDOMElement> r;
  EXPECT_EQ(S_OK, doc->get_documentElement(r.ReleaseAndGetAddressOf()));
  return r;
}

ComPtr<IXMLDOMNode> SelectOne(IXMLDOMNode* n, const char16_t* path, HRESULT expect = S_OK) {
  ComPtr<IXMLDOMNode> found;
  EXPECT_EQ(expect, n->selectSingleNode(CBstr(path).Get(), found.ReleaseAndGetAddressOf())) << zemo::ToUtf8(path);
  return found;
}

std::vector<std::u16string> SelectTexts(IXMLDOMNode* n, const char16_t* path) {
  ComPtr<IXMLDOMNodeList> list;
  EXPECT_EQ(S_OK, n->selectNodes(CBstr(path).Get(), list.ReleaseAndGetAddressOf()));
  std::vector<std::u16string> out;
  if (!list) return out;
  LONG count = -1;
  EXPECT_EQ(S_OK, list->get_length(&count));
  for (LONG i = 0; i < count; ++i) {
    ComPtr<IXMLDOMNode> item;
    EXPECT_EQ(S_OK, list->get_item(i, item.ReleaseAndGetAddressOf()));
    out.push_back(Name(item.Get()) + u"=" + Text(item.Get()));
  }
  ComPtr<IXMLDOMNode> past;
  EXPECT_EQ(S_FALSE, list->get_item(count, past.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_FALSE, list->get_item(-1, past.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(past);
  return out;
}

TEST(XmlDom, IsCreatedThroughTheClassStoreWithoutRegistration) {
  CLSID clsid{};
  ASSERT_EQ(S_OK, CLSIDFromProgID(u"Msxml2.DOMDocument", &clsid));
  EXPECT_EQ(CLSID_DOMDocument, clsid);

  ComPtr<IUnknown> unk;
  ASSERT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IUnknown::iid, unk.OutVoid()));
  ComPtr<IXMLDOMNode> asNode;
  EXPECT_EQ(S_OK, unk.As(&asNode));
  ComPtr<IXMLDOMElement> asElement;
  EXPECT_EQ(E_NOINTERFACE, unk.As(&asElement));
  EXPECT_EQ(NODE_DOCUMENT, Type(asNode.Get()));

  ComPtr<IXMLDOMDocument> aggregated;
  EXPECT_EQ(CLASS_E_NOAGGREGATION,
            CoCreateInstance(clsid, unk.Get(), CLSCTX_ALL, IXMLDOMDocument::iid, aggregated.OutVoid()));

  // An element answers as a node and as an element, a text node only as a node.
  auto doc = NewDocument();
  auto e = NewElement(doc.Get(), u"e");
  EXPECT_EQ(S_OK, e.As(&asNode));
  EXPECT_EQ(NODE_ELEMENT, Type(asNode.Get()));
  auto t = NewText(doc.Get(), u"x");
  EXPECT_EQ(E_NOINTERFACE, t.As(&asElement));
  ComPtr<IXMLDOMDocument> owner;
  ASSERT_EQ(S_OK, t->get_ownerDocument(owner.ReleaseAndGetAddressOf()));
  EXPECT_EQ(doc.Get(), owner.Get());
}

TEST(XmlDom, SavesTopLevelNodesOnLinesOfTheirOwnWithMarkupEscaped) {
  auto doc = NewDocument();
  ComPtr<IXMLDOMNode> pi;
  ASSERT_EQ(S_OK, doc->createProcessingInstruction(CBstr(u"xml").Get(), CBstr(u"version=\"1.0\"").Get(),
                                                   pi.ReleaseAndGetAddressOf()));
  Append(doc, pi);
  auto root = NewElement(doc.Get(), u"root");
  ASSERT_EQ(S_OK, root->setAttribute(CBstr(u"a").Get(), CVariant::Str(u"1&<\"")));
  Append(doc, root);
  auto b = NewElement(doc.Get(), u"b");
  Append(b, NewText(doc.Get(), u"t&<x"));
  Append(root, b);
  Append(root, NewElement(doc.Get(), u"c"));

  std::string path = TempPath("escaped.xml");
  ASSERT_EQ(S_OK, doc->save(PathVariant(path)));
  const std::string expected =
      "<?xml version=\"1.0\"?>\r\n<root a=\"1&amp;&lt;&quot;\"><b>t&amp;&lt;x</b><c/></root>\r\n";
  EXPECT_EQ(expected, ReadFile(path));
  // The markup of a node is what the file holds of it.
  CBstr markup;
  ASSERT_EQ(S_OK, doc->get_xml(markup.Out()));
  EXPECT_EQ(expected, markup.Utf8());
  ASSERT_EQ(S_OK, b->get_xml(markup.Out()));
  EXPECT_EQ("<b>t&amp;&lt;x</b>", markup.Utf8());
  unlink(path.c_str());
}

TEST(XmlDom, NonAsciiTextSurvivesAFileRoundTripAsUtf8) {
  const std::u16string text = u"Gr\u00FC\u00DFe \u2013 \u65E5\u672C \U0001F600";
  const std::string utf8 = U8(u8"Gr\u00FC\u00DFe \u2013 \u65E5\u672C \U0001F600");
  auto doc = NewDocument();
  auto root = NewElement(doc.Get(), u"r");
  ASSERT_EQ(S_OK, root->setAttribute(CBstr(u"label").Get(), CVariant::Str(text)));
  Append(root, NewText(doc.Get(), text));
  Append(doc, root);
  std::string path = TempPath("utf8.xml");
  ASSERT_EQ(S_OK, doc->save(PathVariant(path)));
  std::string bytes = ReadFile(path);
  EXPECT_EQ("<r label=\"" + utf8 + "\">" + utf8 + "</r>\r\n", bytes);

  auto back = NewDocument();
  VARIANT_BOOL ok = VARIANT_FALSE;
  ASSERT_EQ(S_OK, back->load(PathVariant(path), &ok));
  EXPECT_EQ(VARIANT_TRUE, ok);
  auto r = Root(back.Get());
  EXPECT_EQ(text, Text(r.Get()));
  CVariant label;
  ASSERT_EQ(S_OK, r->getAttribute(CBstr(u"label").Get(), label.Out()));
  ASSERT_EQ(VT_BSTR, label.vt);
  EXPECT_EQ(text, std::u16string(label.bstrVal, SysStringLen(label.bstrVal)));

  // A UTF-16 file with its byte order mark reads the same.
  std::u16string wide = u"<r>" + text + u"</r>";
  std::string utf16 = "\xFF\xFE";
  for (char16_t c : wide) utf16 += std::string{static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  WriteFile(path, utf16);
  ASSERT_EQ(S_OK, back->load(PathVariant(path), &ok));
  EXPECT_EQ(text, Text(Root(back.Get()).Get()));
  unlink(path.c_str());
}

TEST(XmlDom, AttributeValuesWithMarkupQuotesAndLineBreaksRoundTrip) {
  const std::u16string value = u"a\"b<c>&d'\r\n\te  f";
  auto doc = NewDocument();
  auto root = NewElement(doc.Get(), u"r");
  ASSERT_EQ(S_OK, root->setAttribute(CBstr(u"v").Get(), CVariant::Str(value)));
  Append(doc, root);
  std::string path = TempPath("attr.xml");
  ASSERT_EQ(S_OK, doc->save(PathVariant(path)));
  VARIANT_BOOL ok;
  ASSERT_EQ(S_OK, doc->load(PathVariant(path), &ok));
  CVariant v;
  ASSERT_EQ(S_OK, Root(doc.Get())->getAttribute(CBstr(u"v").Get(), v.Out()));
  EXPECT_EQ(value, std::u16string(v.bstrVal, SysStringLen(v.bstrVal)));
  unlink(path.c_str());
}

TEST(XmlDom, WalksChildrenInOrderAndHidesNodesNotYetAppended) {
  auto doc = NewDocument();
  ASSERT_TRUE(LoadText(doc.Get(), "<?xml version='1.0'?><r>t1<a>x</a><?p d?><b/>t2</r>"));
  // The declaration comes first, then the document element.
  auto first = First(doc.Get());
  ASSERT_TRUE(first);
  EXPECT_EQ(NODE_PROCESSING_INSTRUCTION, Type(first.Get()));
  EXPECT_EQ(u"xml", Name(first.Get()));
  EXPECT_EQ(u"version=\"1.0\"", Text(first.Get()));
  auto root = Next(first.Get());
  ASSERT_TRUE(root);
  EXPECT_EQ(u"r", Name(root.Get()));
  ComPtr<IXMLDOMNode> none;
  EXPECT_EQ(S_FALSE, root->get_nextSibling(none.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_FALSE, doc->get_nextSibling(none.ReleaseAndGetAddressOf()));

  std::vector<std::pair<DOMNodeType, std::u16string>> seen;
  for (auto c = First(root.Get()); c; c = Next(c.Get())) seen.emplace_back(Type(c.Get()), Name(c.Get()));
  std::vector<std::pair<DOMNodeType, std::u16string>> expected = {{NODE_TEXT, u"#text"},
                                                                    {NODE_ELEMENT, u"a"},
                                                                    {NODE_PROCESSING_INSTRUCTION, u"p"},
                                                                    {NODE_ELEMENT, u"b"},
                                                                    {NODE_TEXT, u"#text"}};
  EXPECT_EQ(expected, seen);
  // The text of an element is all text below it, not that of instructions.
  EXPECT_EQ(u"t1xt2", Text(root.Get()));
  EXPECT_EQ(u"t1xt2", Text(doc.Get()));

  // Created nodes belong to no parent: no siblings, and not in the document.
  auto x = NewElement(doc.Get(), u"x");
  auto y = NewElement(doc.Get(), u"y");
  EXPECT_EQ(S_FALSE, x->get_nextSibling(none.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(SelectOne(doc.Get(), u"*/x", S_FALSE));
  EXPECT_EQ(u"r", Name(SelectOne(doc.Get(), u"*").Get()));
}

TEST(XmlDom, DocumentHoldsOneElementAndNoText) {
  auto doc = NewDocument();
  ComPtr<IXMLDOMElement> none;
  EXPECT_EQ(S_FALSE, doc->get_documentElement(none.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(none);
  auto a = NewElement(doc.Get(), u"a");
  Append(doc, a);
  EXPECT_EQ(S_OK, doc->appendChild(a.Get(), nullptr));  // moving the one element is no second one
  auto b = NewElement(doc.Get(), u"b");
  EXPECT_EQ(E_FAIL, doc->appendChild(b.Get(), nullptr));
  EXPECT_EQ(E_FAIL, doc->appendChild(NewText(doc.Get(), u"t").Get(), nullptr));
  EXPECT_EQ(u"a", Name(Root(doc.Get()).Get()));
  EXPECT_EQ(E_FAIL, doc->put_text(CBstr(u"x").Get()));
  // A text node has no children.
  auto t = NewText(doc.Get(), u"t");
  EXPECT_EQ(E_FAIL, t->appendChild(b.Get(), nullptr));
}

TEST(XmlDom, InsertsBeforeAReferenceAndMovesNodesWithoutCopying) {
  auto doc = NewDocument();
  auto r = NewElement(doc.Get(), u"r");
  Append(doc, r);
  auto a = NewElement(doc.Get(), u"a");
  auto b = NewElement(doc.Get(), u"b");
  auto c = NewElement(doc.Get(), u"c");
  Append(r, c);
  ComPtr<IXMLDOMNode> out;
  ASSERT_EQ(S_OK, r->insertBefore(a.Get(), CVariant::Unknown(c.Get()), out.ReleaseAndGetAddressOf()));
  EXPECT_TRUE(out);
  ASSERT_EQ(S_OK, r->insertBefore(b.Get(), CVariant(), nullptr));  // no reference: at the end
  EXPECT_EQ(3u, SelectTexts(r.Get(), u"*").size());
  std::u16string order;
  for (auto n = First(r.Get()); n; n = Next(n.Get())) order += Name(n.Get());
  EXPECT_EQ(u"acb", order);

  // Appending a child again moves it to the end.
  Append(r, a);
  order.clear();
  for (auto n = First(r.Get()); n; n = Next(n.Get())) order += Name(n.Get());
  EXPECT_EQ(u"cba", order);

  // A reference that is not a child, a node under its own subtree, a node of
  // another document: refused, nothing moves.
  auto loose = NewElement(doc.Get(), u"loose");
  EXPECT_EQ(E_INVALIDARG, r->insertBefore(b.Get(), CVariant::Unknown(loose.Get()), nullptr));
  Append(a, loose);
  EXPECT_EQ(E_FAIL, loose->appendChild(r.Get(), nullptr));
  EXPECT_EQ(E_FAIL, a->appendChild(a.Get(), nullptr));
  auto other = NewDocument();
  auto stranger = NewElement(other.Get(), u"s");
  EXPECT_EQ(E_INVALIDARG, r->appendChild(stranger.Get(), nullptr));
  EXPECT_EQ(E_INVALIDARG, r->appendChild(doc.Get(), nullptr));
  EXPECT_EQ(E_POINTER, r->appendChild(nullptr, nullptr));
  EXPECT_EQ(u"loose", Name(SelectOne(doc.Get(), u"r/a/loose").Get()));
}

TEST(XmlDom, SelectsRelativeElementPathsInDocumentOrder) {
  auto doc = NewDocument();
  ASSERT_TRUE(LoadText(doc.Get(), "<r><a><b>1</b><x/><b>2</b></a>t<a><b>3</b></a><c>4</c></r>"));
  auto r = Root(doc.Get());
  EXPECT_EQ(u"1", Text(SelectOne(r.Get(), u"a/b").Get()));
  EXPECT_EQ(u"4", Text(SelectOne(doc.Get(), u"r/c").Get()));
  EXPECT_EQ((std::vector<std::u16string>{u"b=1", u"b=2", u"b=3"}), SelectTexts(r.Get(), u"a/b"));
  EXPECT_EQ((std::vector<std::u16string>{u"a=12", u"a=3", u"c=4"}), SelectTexts(r.Get(), u"*"));
  EXPECT_EQ((std::vector<std::u16string>{u"b=1", u"x=", u"b=2", u"b=3"}), SelectTexts(r.Get(), u"*/*"));
  EXPECT_EQ((std::vector<std::u16string>{u"r=12t34"}), SelectTexts(r.Get(), u"."));
  EXPECT_EQ((std::vector<std::u16string>{u"c=4"}), SelectTexts(r.Get(), u"./c"));
  EXPECT_TRUE(SelectTexts(r.Get(), u"a/c").empty());

  ComPtr<IXMLDOMNode> found;
  EXPECT_EQ(S_FALSE, r->selectSingleNode(CBstr(u"nothing").Get(), found.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(found);
  // Names are matched exactly: XML is case-sensitive.
  EXPECT_EQ(S_FALSE, r->selectSingleNode(CBstr(u"A").Get(), found.ReleaseAndGetAddressOf()));
  for (const char16_t* bad : {u"", u"/r", u"a//b", u"a/", u"a[1]", u"@x", u"text()", u"..", u"a b"})
    EXPECT_EQ(E_FAIL, r->selectSingleNode(CBstr(bad).Get(), found.ReleaseAndGetAddressOf())) << zemo::ToUtf8(bad);
}

TEST(XmlDom, DeepDocumentsAndLongPathsStayOffTheStack) {
  constexpr int kDepth = 100000;
  std::string xml;
  xml.reserve(kDepth * 8);
  for (int i = 0; i < kDepth; ++i) xml += "<n>";
  xml += "deep";
  for (int i = 0; i < kDepth; ++i) xml += "</n>";
  auto doc = NewDocument();
  ASSERT_TRUE(LoadText(doc.Get(), xml));
  EXPECT_EQ(u"deep", Text(doc.Get()));

  std::u16string path = u"n";
  for (int i = 1; i < kDepth; ++i) path += u"/n";
  auto deepest = SelectOne(doc.Get(), path.c_str());
  ASSERT_TRUE(deepest);
  EXPECT_EQ(NODE_TEXT, Type(First(deepest.Get()).Get()));
  SelectOne(doc.Get(), (path + u"/n").c_str(), S_FALSE);
  std::u16string dots = u"n";
  for (int i = 0; i < kDepth; ++i) dots += u"/.";
  EXPECT_EQ(u"n", Name(SelectOne(doc.Get(), dots.c_str()).Get()));

  // Saving writes it all back, without recursion either.
  std::string file = TempPath("deep.xml");
  ASSERT_EQ(S_OK, doc->save(PathVariant(file)));
  EXPECT_EQ(xml + "\r\n", ReadFile(file));
  unlink(file.c_str());
}

TEST(XmlDom, PutTextReplacesChildrenAndTheirObjectsStayUsable) {
  auto doc = NewDocument();
  ASSERT_TRUE(LoadText(doc.Get(), "<r><a>1</a><b><c/></b></r>"));
  auto r = Root(doc.Get());
  auto b = SelectOne(r.Get(), u"b");
  auto c = SelectOne(r.Get(), u"b/c");
  ASSERT_EQ(S_OK, r->put_text(CBstr(u"plain").Get()));
  EXPECT_EQ(u"plain", Text(r.Get()));
  auto only = First(r.Get());
  EXPECT_EQ(NODE_TEXT, Type(only.Get()));
  EXPECT_FALSE(Next(only.Get()));
  // The removed nodes are detached, not freed: their objects still answer,
  // and they can be put back.
  EXPECT_EQ(u"b", Name(b.Get()));
  EXPECT_EQ(u"c", Name(First(b.Get()).Get()));
  ComPtr<IXMLDOMNode> none;
  EXPECT_EQ(S_FALSE, b->get_nextSibling(none.ReleaseAndGetAddressOf()));
  Append(r, b);
  EXPECT_EQ(u"c", Name(SelectOne(r.Get(), u"b/c").Get()));

  // An element without text says so.
  ASSERT_EQ(S_OK, r->put_text(CBstr(u"").Get()));
  EXPECT_FALSE(First(r.Get()));
  CBstr empty;
  EXPECT_EQ(S_FALSE, r->get_text(empty.Out()));
  EXPECT_EQ(0u, empty.Length());
  ASSERT_EQ(S_OK, only->put_text(CBstr(u"changed").Get()));
  EXPECT_EQ(u"changed", Text(only.Get()));
}

TEST(XmlDom, FailedLoadsLeaveAnEmptyDocumentAndOldNodesAlive) {
  auto doc = NewDocument();
  ASSERT_TRUE(LoadText(doc.Get(), "<r><a>1</a></r>"));
  auto oldRoot = Root(doc.Get());
  auto oldA = SelectOne(oldRoot.Get(), u"a");

  ASSERT_FALSE(LoadText(doc.Get(), "<r><a>1</r>"));
  ComPtr<IXMLDOMElement> none;
  EXPECT_EQ(S_FALSE, doc->get_documentElement(none.ReleaseAndGetAddressOf()));
  EXPECT_FALSE(First(doc.Get()));
  // Nodes of the replaced tree still answer, but don't mix with the new one.
  EXPECT_EQ(u"1", Text(oldA.Get()));
  EXPECT_EQ(E_INVALIDARG, doc->appendChild(oldRoot.Get(), nullptr));

  VARIANT_BOOL ok = VARIANT_TRUE;
  std::string missing = TempPath("missing.xml");
  EXPECT_EQ(S_FALSE, doc->load(PathVariant(missing), &ok));
  EXPECT_EQ(VARIANT_FALSE, ok);
  ok = VARIANT_TRUE;
  EXPECT_EQ(S_FALSE, doc->load(PathVariant(::testing::TempDir()), &ok));  // a directory
  EXPECT_EQ(VARIANT_FALSE, ok);
  EXPECT_EQ(E_INVALIDARG, doc->load(CVariant::I4(1), &ok));
  EXPECT_EQ(E_POINTER, doc->load(PathVariant(missing), nullptr));
}

TEST(XmlDom, HostileDocumentsFailCleanly) {
  auto doc = NewDocument();
  const char* malformed[] = {
      "",          "<",          "<a",           "<a b='",         "<a></b>",     "<a><b></a></b>",
      "</a>",      "<a/><b/>",   "text only",    "<a x='1' x='2'", "<a><!--</a>", "<a><![CDATA[x</a>",
      "<?xml ?>",  "<a>&#xZZ;",  "\xFF\xFE<\0a",
  };
  for (const char* text : malformed) EXPECT_FALSE(LoadText(doc.Get(), text)) << text;

  // Entities are not expanded: no billion laughs.
  std::string laughs = "<!DOCTYPE l [<!ENTITY a 'aaaaaaaaaa'>";
  for (char c = 'b'; c <= 'j'; ++c) {
    laughs += std::string("<!ENTITY ") + c + " '";
    for (int i = 0; i < 10; ++i) laughs += std::string("&") + char(c - 1) + ";";
    laughs += "'>";
  }
  laughs += "]><l>&j;</l>";
  if (LoadText(doc.Get(), laughs)) {
    EXPECT_GT(1000u, Text(doc.Get()).size());
  }

  // A 4 MB attribute and 200000 children load and answer.
  std::string big(4 << 20, 'v');
  ASSERT_TRUE(LoadText(doc.Get(), "<r big='" + big + "'/>"));
  CVariant value;
  ASSERT_EQ(S_OK, Root(doc.Get())->getAttribute(CBstr(u"big").Get(), value.Out()));
  EXPECT_EQ(big.size(), SysStringLen(value.bstrVal));
  std::string wide = "<r>";
  for (int i = 0; i < 200000; ++i) wide += "<e/>";
  ASSERT_TRUE(LoadText(doc.Get(), wide + "</r>"));
  ComPtr<IXMLDOMNodeList> all;
  ASSERT_EQ(S_OK, Root(doc.Get())->selectNodes(CBstr(u"e").Get(), all.ReleaseAndGetAddressOf()));
  LONG n = 0;
  ASSERT_EQ(S_OK, all->get_length(&n));
  EXPECT_EQ(200000, n);
}

TEST(XmlDom, AttributesAndNamesFollowThePlatform) {
  auto doc = NewDocument();
  auto e = NewElement(doc.Get(), u"e");
  CVariant v = CVariant::I4(7);
  EXPECT_EQ(S_FALSE, e->getAttribute(CBstr(u"missing").Get(), v.Out()));
  EXPECT_EQ(VT_NULL, v.vt);
  ASSERT_EQ(S_OK, e->setAttribute(CBstr(u"n").Get(), CVariant::I4(-42)));
  ASSERT_EQ(S_OK, e->setAttribute(CBstr(u"n").Get(), CVariant::UI8(18446744073709551615ull)));
  ASSERT_EQ(S_OK, e->getAttribute(CBstr(u"n").Get(), v.Out()));
  EXPECT_EQ(u"18446744073709551615", std::u16string(v.bstrVal, SysStringLen(v.bstrVal)));
  CBstr tag;
  ASSERT_EQ(S_OK, e->get_tagName(tag.Out()));
  EXPECT_EQ(u"e", tag.View());

  ComPtr<IXMLDOMElement> bad;
  for (const char16_t* name : {u"", u"a b", u"1a", u"<x>", u"a/b", u"-a"}) {
    EXPECT_EQ(E_FAIL, doc->createElement(CBstr(name).Get(), bad.ReleaseAndGetAddressOf())) << zemo::ToUtf8(name);
    EXPECT_EQ(E_FAIL, e->setAttribute(CBstr(name).Get(), CVariant::I4(1))) << zemo::ToUtf8(name);
  }
  EXPECT_EQ(S_OK, doc->createElement(CBstr(u"ZemoStats.NodeStats.1").Get(), bad.ReleaseAndGetAddressOf()));
  EXPECT_EQ(S_OK, doc->createElement(CBstr(u"\u00E9t\u00E9").Get(), bad.ReleaseAndGetAddressOf()));

  ComPtr<IXMLDOMNode> node;
  ASSERT_EQ(S_OK, doc->createNode(CVariant::I4(NODE_ELEMENT), CBstr(u"made").Get(), nullptr,
                                  node.ReleaseAndGetAddressOf()));
  EXPECT_EQ(u"made", Name(node.Get()));
  EXPECT_EQ(E_INVALIDARG, doc->createNode(CVariant::I4(NODE_COMMENT), nullptr, nullptr, node.ReleaseAndGetAddressOf()));
}

TEST(XmlDom, SaveReportsFileErrorsAsStatus) {
  auto doc = NewDocument();
  Append(doc, NewElement(doc.Get(), u"r"));
  EXPECT_EQ(HresultFromErrno(ENOENT), doc->save(PathVariant(TempPath("no/such/dir.xml"))));
  EXPECT_EQ(HresultFromErrno(EISDIR), doc->save(PathVariant(::testing::TempDir())));
  EXPECT_EQ(E_INVALIDARG, doc->save(CVariant::I4(0)));
}

}  // namespace
