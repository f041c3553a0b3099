// The summary's loaders under arbitrary input: a snapshot or a SummaryStats
// from a stream or from XML. A load ends in a status, never an exception of
// no known kind, and whatever loaded saves to a form that loads again to
// the same form. A stream that repeats an item's id loads it as one, so the
// check is that a save is a fixed point; XML reads raw line ends of a label
// as one line feed, so there the second save is.
#pragma once

#include "fuzz_statistic.h"
#include "summary/summary_stats.h"
#include "summary/summary_stats_snapshot.h"

namespace zemo::fuzz {

// The node a class loads from a document: a snapshot loads the element
// itself, SummaryStats finds its element under the node given.
template <class T>
IUnknown* LoadNode(IXMLDOMDocument* document) {
  if constexpr (std::is_same_v<T, SummaryStatsSnapshot>) {
    static thread_local ComPtr<IXMLDOMElement> root;
    document->get_documentElement(root.ReleaseAndGetAddressOf());
    return root.Get();
  } else {
    return document;
  }
}

// The bytes loaded into a new object and saved again.
template <class T>
std::vector<uint8_t> Reloaded(const std::vector<uint8_t>& bytes) {
  ComPtr<T> again = T::Create();
  Require(LoadObjectFromStream(again->GetUnknown(), CreateReadOnlyStream(bytes.data(), bytes.size()).Get()) == S_OK);
  return SavedBytes(again->GetUnknown());
}

template <class T>
void FuzzSummaryStream(const uint8_t* data, size_t size) {
  static const bool registered = DllRegisterServer() == S_OK;
  Require(registered);
  ComPtr<T> object = T::Create();
  HRESULT hr = LoadObjectFromStream(object->GetUnknown(), CreateReadOnlyStream(data, size).Get());
  Require(hr != E_UNEXPECTED);
  if (FAILED(hr)) return;
  std::vector<uint8_t> saved = SavedBytes(object->GetUnknown());
  // A snapshot saves no more than it read. SummaryStats keeps its current
  // snapshot when the stream loads none into it, and saves that too; and
  // two stored snapshots that came in with one id load as one from their
  // save, so its fixed point is one load later.
  if constexpr (std::is_same_v<T, SummaryStatsSnapshot>)
    Require(saved.size() <= size);
  else
    saved = Reloaded<T>(saved);
  Require(Reloaded<T>(saved) == saved);
}

template <class T>
CBstr ReloadedXml(const CBstr& xml) {
  ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
  VARIANT_BOOL loaded = VARIANT_FALSE;
  Require(document->loadXML(xml.Get(), &loaded) == S_OK);
  ComPtr<T> object = T::Create();
  Require(LoadObjectFromXml(object->GetUnknown(), document.Get(), LoadNode<T>(document.Get())) == S_OK);
  return SavedXml(object->GetUnknown());
}

template <class T>
void FuzzSummaryXml(const uint8_t* data, size_t size) {
  static const bool registered = DllRegisterServer() == S_OK;
  Require(registered);
  ComPtr<IXMLDOMDocument> document = ParsedDocument(data, size);
  if (!document) return;
  ComPtr<T> object = T::Create();
  HRESULT hr = LoadObjectFromXml(object->GetUnknown(), document.Get(), LoadNode<T>(document.Get()));
  Require(hr != E_UNEXPECTED && hr != E_OUTOFMEMORY);
  if (FAILED(hr)) return;
  const CBstr once = ReloadedXml<T>(SavedXml(object->GetUnknown()));
  const CBstr twice = ReloadedXml<T>(once);
  Require(once.View() == twice.View());
}

}  // namespace zemo::fuzz
