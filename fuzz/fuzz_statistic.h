// The loaders of one statistic class under arbitrary input. A load must end
// in a status (never an exception of no known kind), and whatever loaded must
// save and load again to the same bytes or markup.
#pragma once

#include <cstdlib>
#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "frame/module.h"
#include "frame/stream_persist.h"
#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "platform/object.h"
#include "platform/stream.h"

namespace zemo::fuzz {

inline void Require(bool condition) {
  if (!condition) std::abort();
}

inline ComPtr<IUnknown> NewObject(REFCLSID clsid) {
  static const bool registered = DllRegisterServer() == S_OK;  // XML names elements by program identifier
  Require(registered);
  ComPtr<IUnknown> object;
  Require(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IUnknown::iid, object.OutVoid()) == S_OK);
  return object;
}

// The bytes as the UTF-8 text of a document; null when it does not parse.
inline ComPtr<IXMLDOMDocument> ParsedDocument(const uint8_t* data, size_t size) {
  std::u16string text = FromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
  ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
  VARIANT_BOOL loaded = VARIANT_FALSE;
  if (document->loadXML(CBstr(text).Get(), &loaded) != S_OK) return nullptr;
  return document;
}

inline std::vector<uint8_t> SavedBytes(IUnknown* object) {
  auto stream = CreateMemoryStream();
  Require(SaveObjectToStream(object, stream.Get(), TRUE) == S_OK);
  return MemoryStreamBytes(stream.Get());
}

inline void FuzzStreamLoad(REFCLSID clsid, const uint8_t* data, size_t size) {
  ComPtr<IUnknown> object = NewObject(clsid);
  HRESULT hr = LoadObjectFromStream(object.Get(), CreateReadOnlyStream(data, size).Get());
  Require(hr == S_OK || hr == E_FAIL);
  if (FAILED(hr)) return;
  std::vector<uint8_t> saved = SavedBytes(object.Get());
  Require(saved.size() <= size);  // a load reads what it keeps, and no more
  Require(std::equal(saved.begin(), saved.end(), data));
  ComPtr<IUnknown> again = NewObject(clsid);
  Require(LoadObjectFromStream(again.Get(), CreateReadOnlyStream(saved.data(), saved.size()).Get()) == S_OK);
  Require(SavedBytes(again.Get()) == saved);
}

// The stream of a table statistic, whose rows may repeat a key: what loaded
// is checked as a fixed point. It saves to no more bytes than came in, keeps
// the reset count, and loads and saves again to the same bytes.
inline void FuzzTableStreamLoad(REFCLSID clsid, const uint8_t* data, size_t size) {
  ComPtr<IUnknown> object = NewObject(clsid);
  HRESULT hr = LoadObjectFromStream(object.Get(), CreateReadOnlyStream(data, size).Get());
  Require(hr == S_OK || hr == E_FAIL);
  if (FAILED(hr)) return;
  std::vector<uint8_t> saved = SavedBytes(object.Get());
  Require(saved.size() <= size);
  Require(std::equal(saved.begin(), saved.begin() + 4, data));
  ComPtr<IUnknown> again = NewObject(clsid);
  Require(LoadObjectFromStream(again.Get(), CreateReadOnlyStream(saved.data(), saved.size()).Get()) == S_OK);
  Require(SavedBytes(again.Get()) == saved);
}

inline CBstr SavedXml(IUnknown* object) {
  ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
  Require(SaveObjectToXml(object, document.Get(), document.Get(), FALSE) == S_OK);
  CBstr xml;
  Require(document->get_xml(xml.Out()) == S_OK);
  return xml;
}

// The XML form of a class: whatever loads saves, and what it saves loads
// into a fresh object that saves the same markup. The two objects, or null
// when the input does not load.
inline std::pair<ComPtr<IUnknown>, ComPtr<IUnknown>> FuzzXmlRoundTrip(REFCLSID clsid, const uint8_t* data,
                                                                      size_t size) {
  ComPtr<IXMLDOMDocument> document = ParsedDocument(data, size);
  if (!document) return {};
  VARIANT_BOOL loaded = VARIANT_FALSE;
  ComPtr<IUnknown> object = NewObject(clsid);
  HRESULT hr = LoadObjectFromXml(object.Get(), document.Get(), document.Get());
  Require(hr != E_UNEXPECTED && hr != E_OUTOFMEMORY);
  if (FAILED(hr)) return {};
  CBstr xml = SavedXml(object.Get());
  Require(document->loadXML(xml.Get(), &loaded) == S_OK);
  ComPtr<IUnknown> again = NewObject(clsid);
  Require(LoadObjectFromXml(again.Get(), document.Get(), document.Get()) == S_OK);
  Require(SavedXml(again.Get()).View() == xml.View());
  return {object, again};
}

// The same for a class with a stream form too, which must agree as well.
inline void FuzzXmlLoad(REFCLSID clsid, const uint8_t* data, size_t size) {
  auto [object, again] = FuzzXmlRoundTrip(clsid, data, size);
  if (object) Require(SavedBytes(again.Get()) == SavedBytes(object.Get()));
}

}  // namespace zemo::fuzz
