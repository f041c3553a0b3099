// Arbitrary bytes as the UTF-8 text of an XML document, its document element
// read as a property list. Loading must succeed or fail with a status (never
// an exception of no known kind), and whatever loaded must save and load
// again to the same names, types and texts (up to line ends: a carriage
// return that came in as "&#13;" is written raw, and XML reads raw line ends
// as one line feed, on the platform as here). A value whose text is empty
// (one of type VT_EMPTY, say) saves as a prop without text, which no load
// takes: a list with one ends after the save.
#include <cstdlib>
#include <string_view>

#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "platform/object.h"

namespace {

using zemo::CBstr;
using zemo::ComPtr;
using zemo::PropertyList;

void Require(bool condition) {
  if (!condition) std::abort();
}

std::u16string LineEndsAsFeeds(std::u16string text) {
  std::u16string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != u'\r') {
      out += text[i];
    } else {
      out += u'\n';
      if (i + 1 < text.size() && text[i + 1] == u'\n') ++i;
    }
  }
  return out;
}

// Reads the list under the document element; the status of the load.
HRESULT Load(IXMLDOMDocument* document, PropertyList& list) {
  ComPtr<IXMLDOMElement> root;
  if (document->get_documentElement(root.ReleaseAndGetAddressOf()) != S_OK) return E_FAIL;
  return zemo::Boundary([&] { zemo::LoadPropertyList(root.Get(), list); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::u16string text = zemo::FromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
  ComPtr<IXMLDOMDocument> document;
  Require(CoCreateInstance(CLSID_DOMDocument, nullptr, CLSCTX_ALL, IXMLDOMDocument::iid, document.OutVoid()) == S_OK);
  VARIANT_BOOL loaded = VARIANT_FALSE;
  HRESULT hr = document->loadXML(CBstr(text).Get(), &loaded);
  Require((hr == S_OK && loaded == VARIANT_TRUE) || (hr == S_FALSE && loaded == VARIANT_FALSE));
  if (hr != S_OK) return 0;

  PropertyList list;
  hr = Load(document.Get(), list);
  Require(hr != E_UNEXPECTED);
  if (FAILED(hr)) return 0;

  // Save what was read into a fresh document, as markup, and read it back.
  CBstr markup;
  hr = zemo::Boundary([&] {
    ComPtr<IXMLDOMDocument> copy = zemo::CreateXmlDocument();
    auto props = zemo::SavePropertyList(copy.Get(), list, nullptr, u"props");
    CheckHr(copy->appendChild(props.Get(), nullptr));
    zemo::IndentXmlDocument(copy.Get());
    CheckHr(copy->get_xml(markup.Out()));
  });
  Require(hr == S_OK);
  for (const auto& entry : list)
    if (entry.m_value.vt != VT_UNKNOWN && entry.m_value.vt != VT_DISPATCH && zemo::XmlText(entry.m_value).empty())
      return 0;
  Require(document->loadXML(markup.Get(), &loaded) == S_OK);
  PropertyList again;
  Require(Load(document.Get(), again) == S_OK);
  Require(again.GetCount() == list.GetCount());
  for (const auto& entry : list) {
    const zemo::CVariant* other = again.Lookup(entry.m_key);
    Require(other && other->vt == entry.m_value.vt);
    if (entry.m_value.vt == VT_UNKNOWN || entry.m_value.vt == VT_DISPATCH) continue;
    Require(zemo::XmlText(*other) == LineEndsAsFeeds(zemo::XmlText(entry.m_value)));
  }
  return 0;
}
