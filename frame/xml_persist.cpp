#include "frame/xml_persist.h"

#include <vector>

#include "platform/class_store.h"
#include "platform/object.h"

namespace zemo {
namespace {

DOMNodeType NodeType(IXMLDOMNode* node) {
  DOMNodeType type = 0;
  CheckHr(node->get_nodeType(&type));
  return type;
}

ComPtr<IXMLDOMNode> FirstChild(IXMLDOMNode* node) {
  ComPtr<IXMLDOMNode> child;
  CheckHr(node->get_firstChild(child.ReleaseAndGetAddressOf()));
  return child;
}

ComPtr<IXMLDOMNode> NextSibling(IXMLDOMNode* node) {
  ComPtr<IXMLDOMNode> next;
  CheckHr(node->get_nextSibling(next.ReleaseAndGetAddressOf()));
  return next;
}

ComPtr<IXMLDOMNode> CreateTextNode(IXMLDOMDocument* document, std::u16string_view text) {
  CVariant type = CVariant::I4(NODE_TEXT);
  ComPtr<IXMLDOMNode> node;
  CheckHr(document->createNode(type, nullptr, nullptr, node.ReleaseAndGetAddressOf()));
  CheckHr(node->put_text(CBstr(text).Get()));
  return node;
}

// The attribute as text, or false when absent.
bool AttributeText(IXMLDOMElement* element, std::u16string_view name, std::u16string& text) {
  CVariant value;
  if (CheckHr(element->getAttribute(CBstr(name).Get(), value.Out())) == S_FALSE) return false;
  text = XmlText(value);
  return true;
}

std::u16string RequiredAttribute(IXMLDOMElement* element, std::u16string_view name) {
  std::u16string text;
  if (!AttributeText(element, name, text)) AtlThrow(E_FAIL);
  return text;
}

// The text of a node; S_FALSE means there is none, which raises E_FAIL.
std::u16string NodeText(IXMLDOMNode* node) {
  CBstr text;
  if (CheckHr(node->get_text(text.Out())) == S_FALSE) AtlThrow(E_FAIL);
  return std::u16string(text.View());
}

// _wtol's reading of a flag: leading blanks, a sign, then digits.
bool NonZeroNumber(std::u16string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == u' ' || (text[i] >= u'\t' && text[i] <= u'\r'))) ++i;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) ++i;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i)
    if (text[i] != u'0') return true;
  return false;
}

std::u16string ClsidText(REFCLSID clsid) {
  OLECHAR buf[39];
  StringFromGUID2(clsid, buf, 39);
  return buf;
}

// The class of an object stored in a property list: by IPersist, or by
// IPersistXml for a class that lists only its derived persistence interfaces.
CLSID ClassOf(IUnknown* object) {
  CLSID clsid = GUID_NULL;
  ComPtr<IPersist> persist;
  if (SUCCEEDED(QueryTo(object, &persist))) {
    CheckHr(persist->GetClassID(&clsid));
    return clsid;
  }
  ComPtr<IPersistXml> xml;
  CheckHr(QueryTo(object, &xml));
  CheckHr(xml->GetClassID(&clsid));
  return clsid;
}

// The document an element belongs to, for the Load of a nested object.
ComPtr<IXMLDOMDocument> OwnerOf(IXMLDOMNode* node) {
  ComPtr<IXMLDOMDocument> document;
  if (SUCCEEDED(QueryTo(node, &document))) return document;
  CheckHr(node->get_ownerDocument(document.ReleaseAndGetAddressOf()));
  if (!document) AtlThrow(E_FAIL);
  return document;
}

void SaveEntry(IXMLDOMDocument* document, IXMLDOMNode* parent, std::u16string_view name, const VARIANT& value) {
  if (value.vt & VT_ARRAY) AtlThrow(E_NOTIMPL);
  if (value.vt == VT_UNKNOWN || value.vt == VT_DISPATCH) {
    ComPtr<IXMLDOMElement> obj = CreateXmlElement(document, u"obj");
    SetAttribute(obj.Get(), u"name", name);
    IUnknown* object = value.punkVal;
    if (!object) {
      SetAttribute(obj.Get(), u"null", u"1");
      AppendXmlChild(parent, obj.Get());
      return;
    }
    SetAttribute(obj.Get(), u"clsid", ClsidText(ClassOf(object)));
    AppendXmlChild(parent, obj.Get());
    ComPtr<IPersistXml> persist;
    CheckHr(QueryTo(object, &persist));
    CheckHr(persist->Save(document, obj.Get(), FALSE));
    return;
  }
  std::u16string text = XmlText(value);  // before anything is written: a value without text form fails clean
  ComPtr<IXMLDOMElement> prop = CreateXmlElement(document, u"prop");
  SetAttribute(prop.Get(), u"name", name);
  SetAttribute(prop.Get(), u"type", static_cast<uint32_t>(value.vt));
  AppendXmlChild(prop.Get(), CreateTextNode(document, text).Get());
  AppendXmlChild(parent, prop.Get());
}

void LoadProp(IXMLDOMElement* prop, PropertyList& list) {
  std::u16string name = RequiredAttribute(prop, u"name");
  auto vt = FromXmlText(RequiredAttribute(prop, u"type"), VT_UI2).uiVal;
  list.SetAt(name, FromXmlText(NodeText(prop), vt));
}

void LoadObj(IXMLDOMDocument* document, IXMLDOMElement* obj, PropertyList& list) {
  std::u16string name = RequiredAttribute(obj, u"name");
  std::u16string flag;
  if (AttributeText(obj, u"null", flag) && NonZeroNumber(flag)) {
    list.SetAt(name, CVariant::Unknown(nullptr));
    return;
  }
  CLSID clsid;
  CheckHr(CLSIDFromString(RequiredAttribute(obj, u"clsid").c_str(), &clsid));
  ComPtr<IUnknown> object;
  HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IUnknown::iid, object.OutVoid());
  if (hr == REGDB_E_CLASSNOTREG) {
    list.SetAt(name, CVariant::Unknown(nullptr));
    return;
  }
  CheckHr(hr);
  ComPtr<IPersistXml> persist;
  CheckHr(QueryTo(object.Get(), &persist));
  CheckHr(persist->Load(document, obj));
  list.SetAt(name, CVariant::Unknown(object.Get()));
}

}  // namespace

// ---- arguments ---------------------------------------------------------------

ComPtr<IXMLDOMDocument> XmlDocumentOf(IUnknown* document) {
  ComPtr<IXMLDOMDocument> out;
  CheckHr(QueryTo(document, &out));
  return out;
}

ComPtr<IXMLDOMNode> XmlNodeOf(IUnknown* node) {
  ComPtr<IXMLDOMNode> out;
  CheckHr(QueryTo(node, &out));
  return out;
}

ComPtr<IXMLDOMElement> XmlElementOf(IUnknown* node) {
  ComPtr<IXMLDOMElement> out;
  CheckHr(QueryTo(node, &out));
  return out;
}

// ---- nested objects ----------------------------------------------------------

HRESULT LoadObjectFromXml(IUnknown* object, IUnknown* document, IUnknown* node) {
  if (!object || !document || !node) return E_POINTER;
  ComPtr<IPersistXml> persist;
  HRESULT hr = QueryTo(object, &persist);
  if (FAILED(hr)) return hr;
  return persist->Load(document, node);
}

HRESULT SaveObjectToXml(IUnknown* object, IUnknown* document, IUnknown* node, BOOL flag) {
  if (!object || !document || !node) return E_POINTER;
  ComPtr<IPersistXml> persist;
  HRESULT hr = QueryTo(object, &persist);
  if (FAILED(hr)) return hr;
  return persist->Save(document, node, flag);
}

// ---- documents and files -----------------------------------------------------

ComPtr<IXMLDOMDocument> CreateXmlDocument() {
  ComPtr<IXMLDOMDocument> document;
  CheckHr(CoCreateInstance(CLSID_DOMDocument, nullptr, CLSCTX_ALL, IXMLDOMDocument::iid, document.OutVoid()));
  CheckHr(document->put_async(VARIANT_FALSE));
  ComPtr<IXMLDOMNode> pi;
  CheckHr(document->createProcessingInstruction(CBstr(u"xml").Get(), CBstr(u"version=\"1.0\" encoding=\"utf-8\"").Get(),
                                                pi.ReleaseAndGetAddressOf()));
  AppendXmlChild(document.Get(), pi.Get());
  return document;
}

ComPtr<IXMLDOMDocument> LoadXmlDocument(std::u16string_view path) {
  ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
  VARIANT_BOOL loaded = VARIANT_FALSE;
  if (document->load(CVariant::Str(path), &loaded) != S_OK || loaded != VARIANT_TRUE) AtlThrow(E_FAIL);
  return document;
}

void IndentXmlDocument(IXMLDOMDocument* document) {
  if (!document) AtlThrow(E_POINTER);
  ComPtr<IXMLDOMElement> root;
  CheckHr(document->get_documentElement(root.ReleaseAndGetAddressOf()));
  if (!root) AtlThrow(E_FAIL);

  // The walk of Indent(node, prefix) over the tree, with an explicit stack:
  // before each element that doesn't follow a text node, a line break and
  // the prefix; after the last child, a line break and the parent's prefix,
  // unless the first child was text (then the element stays on one line).
  struct Level {
    ComPtr<IXMLDOMNode> node;
    size_t depth;  // tabs in the prefix of its children
    ComPtr<IXMLDOMNode> next;
    bool firstIsText;
    bool lastWasText;
  };
  std::vector<Level> stack;
  auto open = [&](ComPtr<IXMLDOMNode> node, size_t depth) {
    ComPtr<IXMLDOMNode> first = FirstChild(node.Get());
    if (!first) return;
    bool text = NodeType(first.Get()) == NODE_TEXT;
    stack.push_back({std::move(node), depth, std::move(first), text, false});
  };
  auto lineBreak = [](size_t tabs) { return u"\r\n" + std::u16string(tabs, u'\t'); };

  open(root.Query<IXMLDOMNode>(), 1);
  while (!stack.empty()) {
    Level& level = stack.back();
    if (!level.next) {
      if (!level.firstIsText)
        AppendXmlChild(level.node.Get(), CreateTextNode(document, lineBreak(level.depth - 1)).Get());
      stack.pop_back();
      continue;
    }
    ComPtr<IXMLDOMNode> child = std::move(level.next);
    level.next = NextSibling(child.Get());
    DOMNodeType type = NodeType(child.Get());
    if (type == NODE_ELEMENT && !level.lastWasText) {
      ComPtr<IXMLDOMNode> indent = CreateTextNode(document, lineBreak(level.depth));
      CheckHr(level.node->insertBefore(indent.Get(), CVariant::Unknown(child.Get()), nullptr));
    }
    level.lastWasText = type == NODE_TEXT;
    size_t depth = level.depth;
    if (type == NODE_ELEMENT) open(std::move(child), depth + 1);  // may move the stack: level is not used after
  }
}

HRESULT SaveObjectToXmlFile(IUnknown* object, LPCOLESTR path) {
  if (!object || !path) return E_POINTER;
  return Boundary([&] {
    ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
    ComPtr<IPersistXml> persist;
    CheckHr(QueryTo(object, &persist));
    CheckHr(persist->Save(document.Get(), document.Get(), TRUE));
    IndentXmlDocument(document.Get());
    CheckHr(document->save(CVariant::Str(path)));
  });
}

HRESULT LoadObjectFromXmlFile(IUnknown* object, LPCOLESTR path) {
  if (!object || !path) return E_POINTER;
  return Boundary([&] {
    ComPtr<IXMLDOMDocument> document = LoadXmlDocument(path);
    ComPtr<IPersistXml> persist;
    CheckHr(QueryTo(object, &persist));
    return persist->Load(document.Get(), document.Get());
  });
}

// ---- elements ----------------------------------------------------------------

ComPtr<IXMLDOMNode> SelectXmlNode(IXMLDOMNode* node, std::u16string_view path) {
  if (!node) AtlThrow(E_POINTER);
  ComPtr<IXMLDOMNode> found;
  CheckHr(node->selectSingleNode(CBstr(path).Get(), found.ReleaseAndGetAddressOf()));
  return found;
}

ComPtr<IXMLDOMElement> SelectXmlElement(IXMLDOMNode* node, std::u16string_view path) {
  ComPtr<IXMLDOMNode> found = SelectXmlNode(node, path);
  return found ? found.Query<IXMLDOMElement>() : nullptr;
}

ComPtr<IXMLDOMElement> CreateXmlElement(IXMLDOMDocument* document, std::u16string_view name) {
  if (!document) AtlThrow(E_POINTER);
  ComPtr<IXMLDOMElement> element;
  CheckHr(document->createElement(CBstr(name).Get(), element.ReleaseAndGetAddressOf()));
  return element;
}

void AppendXmlChild(IXMLDOMNode* parent, IXMLDOMNode* child) {
  if (!parent || !child) AtlThrow(E_POINTER);
  CheckHr(parent->appendChild(child, nullptr));
}

std::u16string XmlElementName(IXMLDOMElement* element) {
  if (!element) AtlThrow(E_POINTER);
  CBstr tag;
  CheckHr(element->get_tagName(tag.Out()));
  return std::u16string(tag.View());
}

ComPtr<IXMLDOMElement> CreateChildElement(IXMLDOMDocument* document, IXMLDOMNode* parent, std::u16string_view name) {
  if (!document || !parent) AtlThrow(E_POINTER);
  ComPtr<IXMLDOMElement> element = CreateXmlElement(document, name);
  AppendXmlChild(parent, element.Get());
  return element;
}

std::u16string ClassElementName(REFCLSID clsid) {
  LPOLESTR progId = nullptr;
  CheckHr(ProgIDFromCLSID(clsid, &progId));
  std::u16string name(progId);
  CoTaskMemFree(progId);
  return name;
}

ComPtr<IXMLDOMElement> CreateClassElement(IXMLDOMDocument* document, IXMLDOMNode* parent, REFCLSID clsid) {
  return CreateChildElement(document, parent, ClassElementName(clsid));
}

ComPtr<IXMLDOMElement> SelectClassElement(IXMLDOMNode* node, REFCLSID clsid) {
  ComPtr<IXMLDOMElement> element = SelectXmlElement(node, ClassElementName(clsid));
  if (!element) AtlThrow(E_FAIL);
  return element;
}

// ---- values ------------------------------------------------------------------

std::u16string XmlText(const VARIANT& value) {
  if (value.vt == VT_BSTR) return VariantValue<std::u16string>::From(value);
  CVariant text;
  ChangeTypeOrThrow(&text, &value, VT_BSTR);
  return VariantValue<std::u16string>::From(text);
}

std::u16string GuidText(REFGUID guid) { return XmlText(CVariant::Clsid(guid)); }

CVariant FromXmlText(std::u16string_view text, VARTYPE vt) {
  CVariant value = CVariant::Str(text);
  if (vt != VT_BSTR) ChangeTypeOrThrow(&value, &value, vt);
  return value;
}

bool GetChildVariant(IXMLDOMNode* node, std::u16string_view name, VARTYPE vt, CVariant& value) {
  ComPtr<IXMLDOMNode> child = SelectXmlNode(node, name);
  if (!child) return false;
  value = FromXmlText(NodeText(child.Get()), vt);
  return true;
}

void SetChildText(IXMLDOMDocument* document, IXMLDOMNode* parent, std::u16string_view name, const VARIANT& value) {
  if (!document || !parent) AtlThrow(E_POINTER);
  ComPtr<IXMLDOMElement> element = CreateXmlElement(document, name);
  if (value.vt != VT_EMPTY) CheckHr(element->put_text(CBstr(XmlText(value)).Get()));
  AppendXmlChild(parent, element.Get());
}

bool GetAttributeVariant(IXMLDOMElement* element, std::u16string_view name, VARTYPE vt, CVariant& value) {
  if (!element) AtlThrow(E_POINTER);
  std::u16string text;
  if (!AttributeText(element, name, text)) return false;
  value = FromXmlText(text, vt);
  return true;
}

void SetAttribute(IXMLDOMElement* element, std::u16string_view name, const VARIANT& value) {
  if (!element) AtlThrow(E_POINTER);
  CVariant text = value.vt == VT_BSTR ? CVariant(value) : CVariant::Str(XmlText(value));
  CheckHr(element->setAttribute(CBstr(name).Get(), text));
}

// ---- the property list -------------------------------------------------------

ComPtr<IXMLDOMNode> SavePropertyList(IXMLDOMDocument* document, const PropertyList& list, IXMLDOMNode* parent,
                                     std::u16string_view name) {
  if (!document) AtlThrow(E_POINTER);
  ComPtr<IXMLDOMNode> target = parent;
  if (!target) {
    if (name.empty()) AtlThrow(E_POINTER);
    target = CreateXmlElement(document, name);
  }
  for (const auto& entry : list) SaveEntry(document, target.Get(), entry.m_key, entry.m_value);
  return target;
}

void ForEachChildElement(IXMLDOMNode* node, const std::function<void(IXMLDOMElement*)>& fn) {
  if (!node) AtlThrow(E_POINTER);
  for (ComPtr<IXMLDOMNode> child = FirstChild(node); child; child = NextSibling(child.Get()))
    if (NodeType(child.Get()) == NODE_ELEMENT) fn(child.Query<IXMLDOMElement>().Get());
}

void LoadPropertyList(IXMLDOMNode* element, PropertyList& list) {
  if (!element) AtlThrow(E_POINTER);
  ComPtr<IXMLDOMDocument> document;
  for (ComPtr<IXMLDOMNode> child = FirstChild(element); child; child = NextSibling(child.Get())) {
    if (NodeType(child.Get()) != NODE_ELEMENT) continue;
    auto item = child.Query<IXMLDOMElement>();
    std::u16string tag = XmlElementName(item.Get());
    if (WideCompareNoCase(tag, u"prop") == 0) {
      LoadProp(item.Get(), list);
    } else if (WideCompareNoCase(tag, u"obj") == 0) {
      if (!document) document = OwnerOf(element);
      LoadObj(document.Get(), item.Get(), list);
    }
  }
}

}  // namespace zemo
