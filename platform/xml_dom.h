// The platform's XML document object model: the few operations of the
// IXMLDOMNode family that persistence uses, with the platform's identifiers.
//
// Operations keep the platform's relative order. Text is UTF-16 (BSTR) here
// and UTF-8 in files. An operation that finds nothing (no first child, no
// next sibling, no match, no attribute) answers S_FALSE with a null or
// VT_NULL result, as the platform does.
#pragma once

#include "platform/unknown.h"
#include "platform/variant.h"

using DOMNodeType = int32_t;
inline constexpr DOMNodeType NODE_ELEMENT = 1;
inline constexpr DOMNodeType NODE_TEXT = 3;
inline constexpr DOMNodeType NODE_CDATA_SECTION = 4;
inline constexpr DOMNodeType NODE_PROCESSING_INSTRUCTION = 7;
inline constexpr DOMNodeType NODE_COMMENT = 8;
inline constexpr DOMNodeType NODE_DOCUMENT = 9;

// The platform's document class ("Msxml2.DOMDocument").
inline constexpr CLSID CLSID_DOMDocument = MakeGuid("F6D90F11-9C73-11D3-B32E-00C04F990BB4");

struct IXMLDOMDocument;
struct IXMLDOMElement;
struct IXMLDOMNodeList;

struct IXMLDOMNode : IUnknown {
  static constexpr IID iid = MakeGuid("2933BF80-7B36-11D2-B20E-00C04F983E60");
  // The tag of an element, the target of a processing instruction, or
  // "#text", "#cdata-section", "#comment", "#document".
  virtual HRESULT get_nodeName(BSTR* name) = 0;
  virtual HRESULT get_nodeType(DOMNodeType* type) = 0;
  virtual HRESULT get_firstChild(IXMLDOMNode** child) = 0;
  virtual HRESULT get_nextSibling(IXMLDOMNode** sibling) = 0;
  // Moves newChild before refChild (a node in a VT_UNKNOWN or VT_DISPATCH),
  // or to the end when refChild is VT_EMPTY or VT_NULL. out may be null.
  virtual HRESULT insertBefore(IXMLDOMNode* newChild, VARIANT refChild, IXMLDOMNode** out) = 0;
  virtual HRESULT appendChild(IXMLDOMNode* newChild, IXMLDOMNode** out) = 0;
  virtual HRESULT get_ownerDocument(IXMLDOMDocument** document) = 0;
  // All text below the node, in document order.
  virtual HRESULT get_text(BSTR* text) = 0;
  // On an element, replaces its children by one text node.
  virtual HRESULT put_text(BSTR text) = 0;
  // The node and everything below it as markup; a document as save writes it.
  virtual HRESULT get_xml(BSTR* xml) = 0;
  // Relative paths of element steps: "name", "a/b", "*", ".".
  virtual HRESULT selectNodes(BSTR query, IXMLDOMNodeList** result) = 0;
  virtual HRESULT selectSingleNode(BSTR query, IXMLDOMNode** result) = 0;
};

struct IXMLDOMNodeList : IUnknown {
  static constexpr IID iid = MakeGuid("2933BF82-7B36-11D2-B20E-00C04F983E60");
  // Out of range: S_FALSE and null.
  virtual HRESULT get_item(LONG index, IXMLDOMNode** node) = 0;
  virtual HRESULT get_length(LONG* length) = 0;
};

struct IXMLDOMDocument : IXMLDOMNode {
  static constexpr IID iid = MakeGuid("2933BF81-7B36-11D2-B20E-00C04F983E60");
  virtual HRESULT get_documentElement(IXMLDOMElement** element) = 0;
  // New nodes belong to the document but to no parent until appended.
  virtual HRESULT createElement(BSTR tagName, IXMLDOMElement** element) = 0;
  virtual HRESULT createProcessingInstruction(BSTR target, BSTR data, IXMLDOMNode** node) = 0;
  // type: NODE_ELEMENT, NODE_TEXT or NODE_PROCESSING_INSTRUCTION, as a number.
  virtual HRESULT createNode(VARIANT type, BSTR name, BSTR namespaceUri, IXMLDOMNode** node) = 0;
  // source: a path in a VT_BSTR. A file or parse failure is S_FALSE with
  // VARIANT_FALSE and leaves the document empty.
  virtual HRESULT load(VARIANT source, VARIANT_BOOL* success) = 0;
  virtual HRESULT put_async(VARIANT_BOOL async) = 0;
  // The same as load, from text.
  virtual HRESULT loadXML(BSTR xml, VARIANT_BOOL* success) = 0;
  // destination: a path in a VT_BSTR; the file is written as UTF-8.
  virtual HRESULT save(VARIANT destination) = 0;
};

struct IXMLDOMElement : IXMLDOMNode {
  static constexpr IID iid = MakeGuid("2933BF86-7B36-11D2-B20E-00C04F983E60");
  virtual HRESULT get_tagName(BSTR* tagName) = 0;
  // Absent: S_FALSE and VT_NULL.
  virtual HRESULT getAttribute(BSTR name, VARIANT* value) = 0;
  // Any value that converts to text.
  virtual HRESULT setAttribute(BSTR name, VARIANT value) = 0;
};
