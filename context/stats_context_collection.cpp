#include "context/stats_context_collection.h"

#include <vector>

#include "frame/clsids.h"
#include "frame/xml_persist.h"
#include "platform/class_store.h"

namespace zemo {

namespace {
constexpr char16_t kListElement[] = u"stats-contexts";
constexpr char16_t kContextElement[] = u"context";
}  // namespace

HRESULT ZemoStatsContextCollection::GetContextCount(LONG* count) {
  return Locked([&]() -> HRESULT {
    if (!count) return E_INVALIDARG;
    *count = m_contexts.GetCount();
    return S_OK;
  });
}

HRESULT ZemoStatsContextCollection::GetContextAt(LONG index, IZemoStatsContext** context) {
  return Locked([&]() -> HRESULT {
    if (!context) return E_INVALIDARG;
    *context = nullptr;
    return m_contexts.CopyTo(index, context) ? S_OK : E_INVALIDARG;
  });
}

HRESULT ZemoStatsContextCollection::AddContext(IZemoStatsContext* context) {
  return Locked([&]() -> HRESULT {
    if (!context) return E_INVALIDARG;
    m_contexts.Add(context);
    return S_OK;
  });
}

HRESULT ZemoStatsContextCollection::RemoveAllContexts() {
  return Locked([&] { m_contexts.RemoveAll(); });
}

HRESULT ZemoStatsContextCollection::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_ZemoStatsContextCollection;
  });
}

HRESULT ZemoStatsContextCollection::Save(IUnknown* document, IUnknown* node, BOOL) {
  if (!document || !node) return E_INVALIDARG;
  return Locked([&] {
    auto doc = XmlDocumentOf(document);
    // The list joins the document only once every context has written itself.
    auto list = CreateXmlElement(doc.Get(), kListElement);
    for (IZemoStatsContext* context : m_contexts) {
      auto element = CreateXmlElement(doc.Get(), kContextElement);
      ComPtr<IPersistXml> persist;
      if (FAILED(QueryTo(context, &persist))) AtlThrow(E_FAIL);
      CheckHr(persist->Save(document, element.Get(), TRUE));
      AppendXmlChild(list.Get(), element.Get());
    }
    AppendXmlChild(XmlNodeOf(node).Get(), list.Get());
  });
}

HRESULT ZemoStatsContextCollection::Load(IUnknown* document, IUnknown* node) {
  if (!document || !node) return E_INVALIDARG;
  return Locked([&]() -> HRESULT {
    auto list = SelectXmlNode(XmlNodeOf(node).Get(), kListElement);
    if (!list) return E_FAIL;
    std::vector<ComPtr<IXMLDOMElement>> elements;
    ForEachChildElement(list.Get(), [&](IXMLDOMElement* element) {
      if (XmlElementName(element) == kContextElement) elements.emplace_back(element);
    });
    m_contexts.RemoveAll();
    for (const ComPtr<IXMLDOMElement>& element : elements) {
      ComPtr<IUnknown> created;
      CheckHr(CoCreateInstance(CLSID_StatsContext, nullptr, CLSCTX_ALL, IUnknown::iid, created.OutVoid()));
      ComPtr<IPersistXml> persist;
      ComPtr<IZemoStatsContext> context;
      if (FAILED(QueryTo(created.Get(), &persist)) || FAILED(QueryTo(created.Get(), &context))) continue;
      CheckHr(persist->Load(document, element.Get()));
      m_contexts.Add(context.Get());
    }
    return S_OK;
  });
}

}  // namespace zemo
