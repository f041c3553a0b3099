// XML persistence shared by every class: nested objects, documents and their
// files with the indenting, the element of a class, typed child text and
// attributes, and the property list of `prop` and `obj` elements.
//
// Helpers that give no HRESULT raise failures as CAtlException, for the
// caller's interface boundary; what they already wrote to a document stays.
// Values go to XML as text by ChangeType: integers in decimal, doubles in a
// form that reads back to the same value, identifiers in braces.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "frame/change_type.h"
#include "frame/hash_map.h"
#include "frame/persist_interfaces.h"
#include "platform/xml_dom.h"

namespace zemo {

// ---- arguments ---------------------------------------------------------------

// Document and node arrive as IUnknown. Null raises E_POINTER, a missing
// interface E_NOINTERFACE.
ComPtr<IXMLDOMDocument> XmlDocumentOf(IUnknown* document);
ComPtr<IXMLDOMNode> XmlNodeOf(IUnknown* node);
ComPtr<IXMLDOMElement> XmlElementOf(IUnknown* node);

// ---- nested objects ----------------------------------------------------------

// The object's IPersistXml Load or Save. Null arguments give E_POINTER; an
// object without IPersistXml gives the QueryInterface status.
HRESULT LoadObjectFromXml(IUnknown* object, IUnknown* document, IUnknown* node);
HRESULT SaveObjectToXml(IUnknown* object, IUnknown* document, IUnknown* node, BOOL flag);

// ---- documents and files -----------------------------------------------------

// A new platform document, synchronous, holding the processing instruction
// xml with version="1.0" encoding="utf-8".
ComPtr<IXMLDOMDocument> CreateXmlDocument();
// A document loaded from a file; any failure to load raises E_FAIL.
ComPtr<IXMLDOMDocument> LoadXmlDocument(std::u16string_view path);

// Puts each element on a line of its own, one tab deeper than its parent;
// an element holding only text stays on one line. No document element
// raises E_FAIL.
void IndentXmlDocument(IXMLDOMDocument* document);

// A new document that the object saves itself into (its IPersistXml Save
// with the document as the node), indented and written to path.
HRESULT SaveObjectToXmlFile(IUnknown* object, LPCOLESTR path);
// The object's IPersistXml Load from the document of a file.
HRESULT LoadObjectFromXmlFile(IUnknown* object, LPCOLESTR path);

// ---- elements ----------------------------------------------------------------

// The first match of a relative path ("name", "a/b"), or null.
ComPtr<IXMLDOMNode> SelectXmlNode(IXMLDOMNode* node, std::u16string_view path);
ComPtr<IXMLDOMElement> SelectXmlElement(IXMLDOMNode* node, std::u16string_view path);

// Calls fn with each child of node that is an element, in document order,
// whatever its name.
void ForEachChildElement(IXMLDOMNode* node, const std::function<void(IXMLDOMElement*)>& fn);

// A new element that is not yet part of the tree, and the appending of a child.
ComPtr<IXMLDOMElement> CreateXmlElement(IXMLDOMDocument* document, std::u16string_view name);
void AppendXmlChild(IXMLDOMNode* parent, IXMLDOMNode* child);
// The tag name of an element.
std::u16string XmlElementName(IXMLDOMElement* element);

// A new element, appended to parent.
ComPtr<IXMLDOMElement> CreateChildElement(IXMLDOMDocument* document, IXMLDOMNode* parent, std::u16string_view name);

// The element a class names by its program identifier ("ZemoStats.<Class>.1").
std::u16string ClassElementName(REFCLSID clsid);
ComPtr<IXMLDOMElement> CreateClassElement(IXMLDOMDocument* document, IXMLDOMNode* parent, REFCLSID clsid);
// The class's element under node; absent raises E_FAIL.
ComPtr<IXMLDOMElement> SelectClassElement(IXMLDOMNode* node, REFCLSID clsid);

// ---- values ------------------------------------------------------------------

// The text of a value (ChangeType to VT_BSTR), and a value from text.
std::u16string XmlText(const VARIANT& value);
CVariant FromXmlText(std::u16string_view text, VARTYPE vt);
// An identifier as its text in braces.
std::u16string GuidText(REFGUID guid);

// How a C++ type travels as a VARIANT: its VARTYPE, the two directions, and
// the value that typed XML access writes (To, but for bool, which goes to
// child text and attributes as 1 or 0 and reads back from any number or from
// true and false).
template <class T>
struct VariantValue;

template <class T, VARTYPE VT, class Member, Member VARIANT::*Field>
struct ScalarVariantValue {
  static constexpr VARTYPE kType = VT;
  static CVariant To(T v) {
    CVariant out;
    out.*Field = static_cast<Member>(v);
    out.vt = VT;
    return out;
  }
  static T From(const VARIANT& v) { return static_cast<T>(v.*Field); }
  static CVariant ToXml(T v) { return To(v); }
};

template <>
struct VariantValue<int8_t> : ScalarVariantValue<int8_t, VT_I1, int8_t, &VARIANT::cVal> {};
template <>
struct VariantValue<uint8_t> : ScalarVariantValue<uint8_t, VT_UI1, BYTE, &VARIANT::bVal> {};
template <>
struct VariantValue<int16_t> : ScalarVariantValue<int16_t, VT_I2, SHORT, &VARIANT::iVal> {};
template <>
struct VariantValue<uint16_t> : ScalarVariantValue<uint16_t, VT_UI2, USHORT, &VARIANT::uiVal> {};
template <>
struct VariantValue<int32_t> : ScalarVariantValue<int32_t, VT_I4, LONG, &VARIANT::lVal> {};
template <>
struct VariantValue<uint32_t> : ScalarVariantValue<uint32_t, VT_UI4, ULONG, &VARIANT::ulVal> {};
template <>
struct VariantValue<int64_t> : ScalarVariantValue<int64_t, VT_I8, LONGLONG, &VARIANT::llVal> {};
template <>
struct VariantValue<uint64_t> : ScalarVariantValue<uint64_t, VT_UI8, ULONGLONG, &VARIANT::ullVal> {};
template <>
struct VariantValue<float> : ScalarVariantValue<float, VT_R4, float, &VARIANT::fltVal> {};
template <>
struct VariantValue<double> : ScalarVariantValue<double, VT_R8, double, &VARIANT::dblVal> {};

template <>
struct VariantValue<bool> {
  static constexpr VARTYPE kType = VT_BOOL;
  static CVariant To(bool v) { return CVariant::Bool(v); }
  static bool From(const VARIANT& v) { return v.boolVal != VARIANT_FALSE; }
  static CVariant ToXml(bool v) { return CVariant::I4(v ? 1 : 0); }
};

template <>
struct VariantValue<std::u16string> {
  static constexpr VARTYPE kType = VT_BSTR;
  static CVariant To(std::u16string_view v) { return CVariant::Str(v); }
  static std::u16string From(const VARIANT& v) {
    return v.bstrVal ? std::u16string(v.bstrVal, SysStringLen(v.bstrVal)) : std::u16string();
  }
  static CVariant ToXml(std::u16string_view v) { return To(v); }
};

template <>
struct VariantValue<CBstr> {
  static constexpr VARTYPE kType = VT_BSTR;
  static CVariant To(const CBstr& v) { return CVariant::Str(v.View()); }
  static CBstr From(const VARIANT& v) { return CBstr(VariantValue<std::u16string>::From(v)); }
  static CVariant ToXml(const CBstr& v) { return To(v); }
};

template <>
struct VariantValue<GUID> {
  static constexpr VARTYPE kType = VT_CLSID;
  static CVariant To(const GUID& v) { return CVariant::Clsid(v); }
  static GUID From(const VARIANT& v) { return v.puuid ? *v.puuid : GUID_NULL; }
  static CVariant ToXml(const GUID& v) { return To(v); }
};

template <class T>
concept XmlValueType = requires { VariantValue<T>::kType; };

// ---- typed child text --------------------------------------------------------

// The text of the child element `name` converted to vt; false when there is
// no such child. A get_text of S_FALSE raises E_FAIL.
bool GetChildVariant(IXMLDOMNode* node, std::u16string_view name, VARTYPE vt, CVariant& value);

template <XmlValueType T>
bool GetChildText(IXMLDOMNode* node, std::u16string_view name, T& value) {
  CVariant v;
  if (!GetChildVariant(node, name, VariantValue<T>::kType, v)) return false;
  value = VariantValue<T>::From(v);
  return true;
}

// A new child element `name` holding the value as text (no text for
// VT_EMPTY), appended to parent.
void SetChildText(IXMLDOMDocument* document, IXMLDOMNode* parent, std::u16string_view name, const VARIANT& value);
inline void SetChildText(IXMLDOMDocument* document, IXMLDOMNode* parent, std::u16string_view name,
                         std::u16string_view text) {
  SetChildText(document, parent, name, static_cast<const VARIANT&>(CVariant::Str(text)));
}

template <XmlValueType T>
void SetChildText(IXMLDOMDocument* document, IXMLDOMNode* parent, std::u16string_view name, const T& value) {
  SetChildText(document, parent, name, static_cast<const VARIANT&>(VariantValue<T>::ToXml(value)));
}

// ---- typed attributes --------------------------------------------------------

// The attribute converted to vt; false when it is absent.
bool GetAttributeVariant(IXMLDOMElement* element, std::u16string_view name, VARTYPE vt, CVariant& value);

template <XmlValueType T>
bool GetAttribute(IXMLDOMElement* element, std::u16string_view name, T& value) {
  CVariant v;
  if (!GetAttributeVariant(element, name, VariantValue<T>::kType, v)) return false;
  value = VariantValue<T>::From(v);
  return true;
}

// Text goes in as it is; any other value is converted first.
void SetAttribute(IXMLDOMElement* element, std::u16string_view name, const VARIANT& value);
inline void SetAttribute(IXMLDOMElement* element, std::u16string_view name, std::u16string_view text) {
  SetAttribute(element, name, static_cast<const VARIANT&>(CVariant::Str(text)));
}

template <XmlValueType T>
void SetAttribute(IXMLDOMElement* element, std::u16string_view name, const T& value) {
  SetAttribute(element, name, static_cast<const VARIANT&>(VariantValue<T>::ToXml(value)));
}

// ---- the property list -------------------------------------------------------

// Names to values; the letter case of a name does not matter.
using PropertyList = CHashMap<std::u16string, CVariant>;

// Writes each entry, in the map's walk order, into parent: an object
// (VT_UNKNOWN, VT_DISPATCH) as an `obj` element that the object's IPersistXml
// fills, anything else as a `prop` element with its VARTYPE and its text. An
// array raises E_NOTIMPL. Without a parent, a new element `name` (not
// appended anywhere) takes the entries. Gives the element written into.
ComPtr<IXMLDOMNode> SavePropertyList(IXMLDOMDocument* document, const PropertyList& list, IXMLDOMNode* parent,
                                     std::u16string_view name);

// Reads the `prop` and `obj` children of element into list (names compared
// case-blind, other elements skipped). A missing mandatory attribute or text
// raises E_FAIL. An object whose class is not registered is read as null.
void LoadPropertyList(IXMLDOMNode* element, PropertyList& list);

// A value of the list converted to T; false when the name is not there, and
// the caller keeps its default. A failed conversion raises.
template <XmlValueType T>
bool GetProperty(const PropertyList& list, std::u16string_view name, T& value) {
  const CVariant* v = list.Lookup(name);
  if (!v) return false;
  CVariant converted;
  ChangeTypeOrThrow(&converted, v, VariantValue<T>::kType);
  value = VariantValue<T>::From(converted);
  return true;
}

template <XmlValueType T>
void SetProperty(PropertyList& list, std::u16string_view name, const T& value) {
  list.SetAt(name, VariantValue<T>::To(value));
}

}  // namespace zemo
