// The counter statistics (errors, sizes) under arbitrary input: their tables
// depend on the medium, so the first input byte picks one and the statistic
// is added to a context on it before its loader meets the rest.
#pragma once

#include <iterator>
#include <span>
#include <string_view>
#include <vector>

#include "context/stats_context.h"
#include "engine/engine.h"
#include "frame/stream_persist.h"
#include "fuzz_statistic.h"

namespace zemo::fuzz {

// A context on one of the media the counter statistics know, or on one
// they don't. Made once for each medium: a context is dear to create.
inline StatsContext* MediumContext(uint8_t pick) {
  struct Medium {
    ULONG type, subType;
    ULONGLONG speed;
  };
  static constexpr Medium kMedia[] = {{0, 0, 100000000}, {0, 0, 1000000000}, {0, 2, 0}, {1, 0, 0},
                                      {3, 0, 0},         {12, 0, 0},         {0, 4, 0}, {7, 0, 0}};
  static ComPtr<StatsContext> contexts[std::size(kMedia)];
  const size_t i = pick % std::size(kMedia);
  if (!contexts[i]) {
    // The context's tables are made by identifier and look up engine classes.
    static const bool registered = DllRegisterServer() == S_OK && RegisterEngineClasses() == S_OK;
    Require(registered);
    contexts[i] = StatsContext::Create();
    const Medium& m = kMedia[i];
    Require(contexts[i]->SetMediaType(m.type) == S_OK && contexts[i]->SetMediaSubType(m.subType) == S_OK &&
            contexts[i]->SetLinkSpeed(m.speed) == S_OK);
  }
  return contexts[i].Get();
}

// A new statistic of the class, set up from the context as AddStats does.
template <class T>
ComPtr<T> AddedTo(StatsContext* context) {
  auto stats = T::Create();
  Require(stats->SetContext(context) == S_OK && stats->Reset() == S_OK);
  return stats;
}

template <class T>
HRESULT LoadStream(T* stats, std::span<const uint8_t> bytes) {
  return LoadObjectFromStream(stats->GetUnknown(), CreateReadOnlyStream(bytes.data(), bytes.size()).Get());
}

template <class T>
CBstr CounterMarkup(T* stats) {
  ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
  Require(stats->Save(document.Get(), document.Get(), FALSE) == S_OK);
  CBstr xml;
  Require(document->get_xml(xml.Out()) == S_OK);
  return xml;
}

// The bytes after the first as the UTF-8 text of a document whose element
// the statistic loads. A load ends in a status; whatever loaded saves and
// loads into a statistic of the same medium to the same counts and markup.
template <class T>
void FuzzCounterXml(const uint8_t* data, size_t size) {
  if (size < 1) return;
  ComPtr<IXMLDOMDocument> document = ParsedDocument(data + 1, size - 1);
  if (!document) return;
  VARIANT_BOOL loaded = VARIANT_FALSE;
  StatsContext* context = MediumContext(data[0]);
  auto stats = AddedTo<T>(context);
  HRESULT hr = stats->Load(document.Get(), document.Get());
  Require(hr != E_UNEXPECTED && hr != E_OUTOFMEMORY);
  if (FAILED(hr)) return;
  CBstr xml = CounterMarkup(stats.Get());
  Require(document->loadXML(xml.Get(), &loaded) == S_OK);
  auto again = AddedTo<T>(context);
  Require(again->Load(document.Get(), document.Get()) == S_OK);
  Require(CounterMarkup(again.Get()).View() == xml.View());
  Require(SavedBytes(again->GetUnknown()) == SavedBytes(stats->GetUnknown()));
}

}  // namespace zemo::fuzz
