#include "network/stat_rows.h"

#include <algorithm>
#include <limits>

#include "frame/selection.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"
#include "platform/object.h"

namespace zemo {

void HandOutContext(IZemoStatsContext* context, IZemoStatsContext** out) {
  CheckOut(out);
  if (context) context->AddRef();
  *out = context;
}

void CopyCounters(std::span<const uint64_t> counters, LONG capacity, ULONGLONG* out) {
  CheckOut(out);
  if (capacity < 0 || static_cast<size_t>(capacity) < counters.size()) AtlThrow(E_INVALIDARG);
  std::copy(counters.begin(), counters.end(), out);
}

void SaveStatElements(IUnknown* document, IUnknown* node, std::u16string_view name,
                      std::span<const uint64_t> counters) {
  ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
  ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
  ComPtr<IXMLDOMElement> element = CreateChildElement(doc.Get(), parent.Get(), name);
  for (size_t i = 0; i < counters.size(); ++i) {
    ComPtr<IXMLDOMElement> stat = CreateChildElement(doc.Get(), element.Get(), u"stat");
    SetAttribute(stat.Get(), u"index", static_cast<uint32_t>(i));
    SetAttribute(stat.Get(), u"value", counters[i]);
  }
}

void LoadStatElements(IUnknown* document, IUnknown* node, std::u16string_view name, std::span<uint64_t> counters) {
  XmlDocumentOf(document);
  ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
  ComPtr<IXMLDOMNode> element = SelectXmlNode(parent.Get(), name);
  if (!element) return;
  ComPtr<IXMLDOMNodeList> children;
  CheckHr(element->selectNodes(CBstr(u"*").Get(), children.ReleaseAndGetAddressOf()));
  LONG count = 0;
  CheckHr(children->get_length(&count));
  for (LONG i = 0; i < count; ++i) {
    ComPtr<IXMLDOMNode> child;
    CheckHr(children->get_item(i, child.ReleaseAndGetAddressOf()));
    ComPtr<IXMLDOMElement> stat = child.Query<IXMLDOMElement>();
    // Read as signed 64-bit, so that a negative index is refused rather than wrapped.
    int64_t index = 0;
    uint64_t value = 0;
    if (!GetAttribute(stat.Get(), u"index", index) || !GetAttribute(stat.Get(), u"value", value)) AtlThrow(E_FAIL);
    if (index < 0 || static_cast<uint64_t>(index) >= counters.size()) AtlThrow(E_FAIL);
    counters[static_cast<size_t>(index)] = value;
  }
}

HRESULT SaveCounterLines(LPCOLESTR fileName, std::span<const uint64_t> counters) {
  CheckExportExtension(fileName, kExportTxt);
  return WriteTextFile(fileName, FileOpenStyle::System, [&](TextWriter& out) {
    for (uint64_t n : counters) {
      out.U64(n);
      out.Char('\n');
    }
  });
}

void MakeStatTable(IDataTable** out, std::span<const std::u16string> labels, std::span<const uint64_t> values) {
  static constexpr TableColumn kColumns[] = {{u"Stat", VT_BSTR}, {u"Value", VT_UI8}};
  CheckOut(out);
  MakeTable(out, kColumns);
  TableRows rows(*out);
  for (size_t i = 0; i < labels.size() && i < values.size(); ++i)
    rows.Add({CVariant::Str(labels[i]), CVariant::UI8(values[i])});
}

// ---- SampleSpan ----------------------------------------------------------------

namespace {
constexpr ZemoTime kTimeMax = std::numeric_limits<ZemoTime>::max();

ZemoTime SaturatingAdd(ZemoTime a, ZemoTime b) noexcept { return a > kTimeMax - b ? kTimeMax : a + b; }

ZemoTime SaturatingMul(ZemoTime a, uint64_t b) noexcept {
  return b != 0 && a > kTimeMax / b ? kTimeMax : a * b;
}
}  // namespace

void SampleSpan::Start(ZemoTime now) noexcept {
  last = now;
  next = SaturatingAdd(now / kSecond * kSecond, Step());
}

uint64_t SampleSpan::Passed(ZemoTime now) const noexcept {
  if (now <= next) return 0;
  return (now - next - 1) / Step() + 1;
}

double SampleSpan::PerSecond(uint64_t amount) const noexcept {
  double seconds = static_cast<double>(next - last) / static_cast<double>(kSecond);
  return seconds > 0 ? static_cast<double>(amount) / seconds : 0.0;
}

void SampleSpan::Skip(uint64_t spans) noexcept {
  if (spans == 0) return;
  last = SaturatingAdd(next, SaturatingMul(Step(), spans - 1));
  next = SaturatingAdd(next, SaturatingMul(Step(), spans));
}

}  // namespace zemo
