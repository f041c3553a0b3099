// The persistence paths that large tables take: a million 112-byte records
// through the stream helpers, and a hundred thousand rows of 17 properties
// through the property-list XML path, each written and read back.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "frame/stream_persist.h"
#include "frame/xml_persist.h"
#include "platform/stream.h"
#include "platform/strings.h"

namespace {

using namespace zemo;

// The size of the largest table record.
struct Record112 {
  uint8_t bytes[112];
};
static_assert(sizeof(Record112) == 112);

constexpr ULONG kRecords = 1000000;
constexpr int kRows = 100000;

std::vector<Record112> MakeRecords() {
  std::vector<Record112> records(kRecords);
  for (ULONG i = 0; i < kRecords; ++i) std::memset(records[i].bytes, static_cast<int>(i), sizeof(Record112));
  return records;
}

void SetBytes(benchmark::State& state, uint64_t perIteration) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * perIteration));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kRecords);
}

// A table writes its rows one call each behind a count that it fixes up.
void BM_StreamWriteRowByRow(benchmark::State& state) {
  auto records = MakeRecords();
  for (auto _ : state) {
    auto stream = CreateMemoryStream();
    WriteCounted<ULONG>(stream.Get(), kRecords + 1, [&](CountFixup<ULONG>& rows) {
      for (const Record112& r : records) {
        WriteValue(stream.Get(), r);
        rows.Add();
      }
    });
    benchmark::DoNotOptimize(StreamPosition(stream.Get()));
  }
  SetBytes(state, uint64_t{kRecords} * sizeof(Record112));
}
BENCHMARK(BM_StreamWriteRowByRow)->Unit(benchmark::kMillisecond);

void BM_StreamWriteOneRun(benchmark::State& state) {
  auto records = MakeRecords();
  for (auto _ : state) {
    auto stream = CreateMemoryStream();
    WriteValue(stream.Get(), kRecords);
    WriteRecords<Record112>(stream.Get(), records);
    benchmark::DoNotOptimize(StreamPosition(stream.Get()));
  }
  SetBytes(state, uint64_t{kRecords} * sizeof(Record112));
}
BENCHMARK(BM_StreamWriteOneRun)->Unit(benchmark::kMillisecond);

std::vector<uint8_t> SavedRecords() {
  auto stream = CreateMemoryStream();
  WriteValue(stream.Get(), kRecords);
  WriteRecords<Record112>(stream.Get(), MakeRecords());
  return MemoryStreamBytes(stream.Get());
}

// Reads the saved table back, row by row or as one run.
void BM_StreamRead(benchmark::State& state) {
  const bool rowByRow = state.range(0) != 0;
  auto saved = SavedRecords();
  std::vector<Record112> records(kRecords);
  for (auto _ : state) {
    auto stream = CreateReadOnlyStream(saved.data(), saved.size());
    ULONG count = ReadValue<ULONG>(stream.Get());
    if (rowByRow)
      for (ULONG i = 0; i < count; ++i) ReadValue(stream.Get(), records[i]);
    else
      ReadRecords<Record112>(stream.Get(), std::span(records).first(count));
    benchmark::DoNotOptimize(records.back().bytes[0]);
  }
  SetBytes(state, saved.size());
}
BENCHMARK(BM_StreamRead)->ArgName("rowByRow")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

// A row as a table statistic describes one record: 17 properties of the
// kinds that occur (counters, times, a name, an identifier, a flag).
void FillRow(PropertyList& row, int i) {
  SetProperty(row, u"id", static_cast<uint32_t>(i));
  SetProperty(row, u"name", std::u16string(u"node-") + FromUtf8(std::to_string(i)));
  SetProperty(row, u"clsid", MakeGuid("0C0FFEE0-1234-4321-ABCD-000000000001"));
  SetProperty(row, u"active", (i & 1) != 0);
  SetProperty(row, u"rate", i * 0.125);
  for (int k = 0; k < 12; ++k) {
    std::u16string name = u"counter";
    name += static_cast<char16_t>(u'a' + k);
    SetProperty(row, name, static_cast<uint64_t>(i) * 1000003u + static_cast<uint64_t>(k));
  }
}

// The maps are neither copied nor moved, so they are built in place.
std::deque<PropertyList> MakeRows() {
  std::deque<PropertyList> rows;
  for (int i = 0; i < kRows; ++i) FillRow(rows.emplace_back(), i);
  return rows;
}

std::string TempPath(const char* name) {
  return "/tmp/zemo_bench_" + std::to_string(getpid()) + "_" + name + ".xml";
}

void WriteRowsFile(const std::deque<PropertyList>& rows, const std::string& path) {
  auto document = CreateXmlDocument();
  auto root = CreateChildElement(document.Get(), document.Get(), u"rows");
  for (const PropertyList& row : rows) {
    auto element = CreateChildElement(document.Get(), root.Get(), u"row");
    SavePropertyList(document.Get(), row, element.Get(), u"row");
  }
  IndentXmlDocument(document.Get());
  CVariant destination = CVariant::Str(FromUtf8(path));
  if (FAILED(document->save(destination))) std::abort();
}

void BM_XmlWritePropertyRows(benchmark::State& state) {
  auto rows = MakeRows();
  std::string path = TempPath("write");
  for (auto _ : state) WriteRowsFile(rows, path);
  unlink(path.c_str());
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kRows);
}
BENCHMARK(BM_XmlWritePropertyRows)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_XmlReadPropertyRows(benchmark::State& state) {
  std::string path = TempPath("read");
  WriteRowsFile(MakeRows(), path);
  for (auto _ : state) {
    auto document = LoadXmlDocument(FromUtf8(path));
    auto root = SelectXmlNode(document.Get(), u"rows");
    ComPtr<IXMLDOMNodeList> list;
    CBstr query(u"row");
    if (!root || FAILED(root->selectNodes(query.Get(), list.ReleaseAndGetAddressOf()))) std::abort();
    LONG length = 0;
    list->get_length(&length);
    size_t properties = 0;
    for (LONG i = 0; i < length; ++i) {
      ComPtr<IXMLDOMNode> node;
      list->get_item(i, node.ReleaseAndGetAddressOf());
      PropertyList row;
      LoadPropertyList(node.Get(), row);
      properties += row.GetCount();
    }
    if (length != kRows || properties != size_t{kRows} * 17) std::abort();
  }
  unlink(path.c_str());
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kRows);
}
BENCHMARK(BM_XmlReadPropertyRows)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
