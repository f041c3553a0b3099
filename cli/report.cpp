#include "cli/report.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <memory>
#include <numeric>
#include <optional>

#include <nlohmann/json.hpp>

#include "cli/node_views.h"
#include "cli/summary_report.h"
#include "cli/wireless_node_views.h"
#include "cli/wireless_views.h"
#include "frame/persist_interfaces.h"
#include "network/dashboard_stats.h"
#include "network/history_stats.h"
#include "platform/clock.h"
#include "platform/strings.h"

namespace zemo::cli {
namespace {

using Json = nlohmann::ordered_json;

// The traffic section holds at most this many lines.
constexpr size_t kTrafficLines = 30;

struct Totals {
  uint64_t packets = 0, bytes = 0;
  ZemoTime start = 0, stop = 0;
  uint64_t duration = 0;  // nanoseconds
};

// A run's totals are its own: the whole bytes of frames beyond what the
// statistics hold, and the earliest and latest valid stamps where the
// context keeps the first and last in file order. A saved context has
// only its own.
Totals ReadTotals(const Analysis& analysis) {
  Totals t;
  if (!analysis.FromSaves()) {
    const RunFacts& f = analysis.Facts();
    t.packets = f.frames;
    t.bytes = f.bytes;
    t.start = f.earliest;
    t.stop = f.latest;
  } else if (IZemoStatsContext* c = analysis.Context()) {
    c->GetTotalPackets(&t.packets);
    c->GetTotalBytes(&t.bytes);
    // Without packets the context has no capture time of its own.
    if (t.packets) {
      c->GetStartDateTime(&t.start);
      c->GetStopDateTime(&t.stop);
    }
  }
  t.duration = t.stop > t.start ? t.stop - t.start : 0;
  return t;
}

// The summary shows in a section of its own, not as a table.
bool IsSummary(const StatisticEntry& s) { return s.selectName == "summarystats"; }

// The summary's snapshots as trees, the current one first; none when the
// context has no SummaryStats.
struct SummaryTrees {
  std::vector<std::vector<SummaryNode>> trees;
  std::vector<std::pair<std::string, GUID>> stored;  // name and id of each stored one
};

SummaryTrees ReadSummaries(const Analysis& analysis) {
  SummaryTrees out;
  ComPtr<ISummaryStats> summary = analysis.Summary();
  LONG count = 0;
  if (!summary || FAILED(summary->GetSnapshotCount(&count))) return out;
  for (LONG i = 0; i < count; ++i) {
    ComPtr<ISummaryStatsSnapshot> snapshot;
    if (FAILED(summary->GetSnapshot(i, snapshot.ReleaseAndGetAddressOf()))) continue;
    if (i > 0) {
      CBstr name;
      GUID id{};
      snapshot->GetName(name.Out());
      snapshot->GetID(&id);
      out.stored.emplace_back(name.Utf8(), id);
    }
    out.trees.push_back(ReadSummaryTree(snapshot.Get(), ReportStatMap()));
  }
  return out;
}

const StatisticEntry* Find(const Analysis& analysis, std::string_view name) {
  for (const StatisticEntry& s : analysis.Statistics())
    if (s.selectName == name) return &s;
  return nullptr;
}

// The dashboard's traffic series, since the dashboard offers no selection
// table: bytes per second in each span from the start. The spans end on
// whole seconds of packet time, so the first, from the first packet, is
// shorter than the others when that packet is not on a whole second. False
// when there is no dashboard or no rung is left.
struct Traffic {
  LONG interval = 0;
  ZemoTime start = 0;
  std::vector<double> samples;

  ZemoTime From(size_t i) const {
    if (i == 0) return start;
    const ZemoTime second = 1000000000ull;
    return start / second * second + static_cast<ZemoTime>(i) * static_cast<ZemoTime>(interval) * second;
  }
  std::string TimeOf(size_t i) const { return IsoTime(From(i)); }
  // The bytes of span i: its rate over its true length.
  double BytesOf(size_t i) const { return samples[i] * static_cast<double>(From(i + 1) - From(i)) / 1e9; }
};

bool ReadTraffic(const Analysis& analysis, Traffic* traffic) {
  const StatisticEntry* s = Find(analysis, "dashboardstats");
  ComPtr<IDashboardStats> dashboard;
  ComPtr<IHistoryStats> history;
  if (!s || FAILED(s->stats.As(&dashboard)) || FAILED(dashboard->GetHistory(history.ReleaseAndGetAddressOf())))
    return false;
  double* samples = nullptr;
  LONG count = 0;
  if (FAILED(history->GetInterval(&traffic->interval)) || FAILED(history->GetStartTime(&traffic->start)) ||
      FAILED(history->GetSamples(&samples, &count)))
    return false;
  std::unique_ptr<double, decltype(&CoTaskMemFree)> owned(samples, &CoTaskMemFree);
  traffic->samples.assign(samples, samples + std::max<LONG>(count, 0));
  return true;
}

uint64_t CellU64(const VARIANT& cell) {
  switch (cell.vt) {
    case VT_UI8: return cell.ullVal;
    case VT_I8: return cell.llVal < 0 ? 0 : static_cast<uint64_t>(cell.llVal);
    case VT_UI4: case VT_UINT: return cell.ulVal;
    case VT_I4: case VT_INT: return cell.lVal < 0 ? 0 : static_cast<uint64_t>(cell.lVal);
    case VT_UI2: return cell.uiVal;
    case VT_UI1: return cell.bVal;
    case VT_R8: return cell.dblVal < 0 ? 0 : static_cast<uint64_t>(cell.dblVal);
    default: return 0;
  }
}

// Sum of the named columns of a row; absent columns count 0.
uint64_t RowWeight(std::span<const DataCellView> cells, const std::vector<int>& columns) {
  uint64_t sum = 0;
  for (int i : columns)
    if (i >= 0 && static_cast<size_t>(i) < cells.size()) sum += CellU64(cells[i].value);
  return sum;
}

std::vector<int> ColumnsOf(const TableReader& t, std::initializer_list<const char*> names) {
  std::vector<int> columns;
  for (const char* n : names) columns.push_back(t.Column(n));
  return columns;
}

// Six groups of two hexadecimal digits: a physical address as MediaUtils writes it.
bool IsPhysicalText(std::string_view s) {
  if (s.size() != 17) return false;
  for (size_t i = 0; i < s.size(); ++i)
    if (i % 3 == 2 ? s[i] != ':' : !std::isxdigit(static_cast<unsigned char>(s[i]))) return false;
  return true;
}

std::string Fixed(double v, int decimals) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
  return buf;
}

// A table printed in aligned columns: numbers to the right, text to the left.
void PrintTable(std::FILE* out, const std::vector<std::string>& heads, const std::vector<std::vector<std::string>>& rows,
                const std::vector<bool>& numeric) {
  std::vector<size_t> width(heads.size());
  for (size_t c = 0; c < heads.size(); ++c) width[c] = heads[c].size();
  for (const auto& row : rows)
    for (size_t c = 0; c < row.size() && c < width.size(); ++c) width[c] = std::max(width[c], row[c].size());
  auto line = [&](const std::vector<std::string>& cells) {
    std::string s = " ";
    for (size_t c = 0; c < heads.size(); ++c) {
      const std::string& v = c < cells.size() ? cells[c] : std::string();
      std::string pad(width[c] - std::min(width[c], v.size()), ' ');
      s += ' ';
      s += numeric[c] ? pad + v : v + pad;
      s += ' ';
    }
    while (!s.empty() && s.back() == ' ') s.pop_back();
    std::fprintf(out, "%s\n", s.c_str());
  };
  line(heads);
  for (const auto& row : rows) line(row);
}

bool IsNumber(VARTYPE vt) {
  switch (vt) {
    case VT_I2: case VT_I4: case VT_R4: case VT_R8: case VT_I1: case VT_UI1: case VT_UI2: case VT_UI4:
    case VT_I8: case VT_UI8: case VT_INT: case VT_UINT: return true;
    default: return false;
  }
}

using RowTest = bool (*)(const TableReader&, std::span<const DataCellView>);

// The rows of a table ordered by weight, heaviest first, at most top of them.
std::vector<size_t> Heaviest(const TableReader& t, std::initializer_list<const char*> weight, size_t top,
                             RowTest keep = nullptr) {
  // Each weight once, then only the top of the order: a table of a large
  // capture has hundreds of thousands of rows. Equal weights keep row order.
  const std::vector<int> columns = ColumnsOf(t, weight);
  std::vector<std::pair<uint64_t, size_t>> weighed;
  t.ForEachRow([&](size_t row, std::span<const DataCellView> cells) {
    if (!keep || keep(t, cells)) weighed.emplace_back(RowWeight(cells, columns), row);
  });
  auto heavier = [](const auto& a, const auto& b) { return a.first != b.first ? a.first > b.first : a.second < b.second; };
  const size_t n = std::min(top, weighed.size());
  std::partial_sort(weighed.begin(), weighed.begin() + static_cast<std::ptrdiff_t>(n), weighed.end(), heavier);
  std::vector<size_t> order;
  for (size_t i = 0; i < n; ++i) order.push_back(weighed[i].second);
  return order;
}

// Prints chosen columns of chosen rows.
void PrintRows(std::FILE* out, const TableReader& t, const std::vector<size_t>& rows,
               const std::vector<std::pair<const char*, const char*>>& columns) {
  std::vector<std::string> heads;
  std::vector<int> index;
  std::vector<bool> numeric;
  for (const auto& [name, head] : columns) {
    int i = t.Column(name);
    if (i < 0) continue;
    index.push_back(i);
    heads.push_back(head);
    numeric.push_back(false);
  }
  std::vector<std::vector<std::string>> cells;
  for (size_t r : rows) {
    std::vector<std::string> line(index.size());
    t.ViewRow(r, [&](size_t, std::span<const DataCellView> row) {
      for (size_t c = 0; c < index.size(); ++c) {
        const DataCellView& v = row[index[c]];
        line[c] = CellText(v);
        if (IsNumber(v.value.vt)) numeric[c] = true;
      }
    });
    cells.push_back(std::move(line));
  }
  PrintTable(out, heads, cells, numeric);
}

std::vector<size_t> AllRows(const TableReader& t) {
  std::vector<size_t> rows(t.RowCount());
  std::iota(rows.begin(), rows.end(), 0);
  return rows;
}

// A table of other statistics: whole when it is short, else its first rows.
void PrintGeneric(std::FILE* out, const TableReader& t, size_t top) {
  constexpr size_t kShort = 50;
  if (t.RowCount() <= kShort) top = kShort;
  std::vector<size_t> rows = AllRows(t);
  rows.resize(std::min(top, rows.size()));
  std::vector<std::pair<const char*, const char*>> columns;
  for (const std::string& c : t.Columns()) columns.emplace_back(c.c_str(), c.c_str());
  PrintRows(out, t, rows, columns);
  if (t.RowCount() > top) {
    size_t more = t.RowCount() - top;
    std::fprintf(out, "  ... %zu more row%s\n", more, more == 1 ? "" : "s");
  }
}

bool IsPhysicalRow(const TableReader& t, std::span<const DataCellView> cells) {
  int i = t.Column("Node");
  return i >= 0 && static_cast<size_t>(i) < cells.size() && IsPhysicalText(CellText(cells[i]));
}
bool IsLogicalRow(const TableReader& t, std::span<const DataCellView> cells) { return !IsPhysicalRow(t, cells); }

void PrintCapture(std::FILE* out, const Analysis& analysis, const CaptureInfo& info) {
  Totals t = ReadTotals(analysis);
  const RunFacts& f = analysis.Facts();
  auto row = [&](const char* name, const std::string& value) { std::fprintf(out, "  %-14s %s\n", name, value.c_str()); };
  std::fprintf(out, "Capture\n");
  if (analysis.FromSaves()) {
    // A long series in two lines: the full save and the last delta.
    const std::vector<std::string>& files = info.savedFiles;
    if (!files.empty()) row("Saved", files.front());
    if (files.size() == 2) row("", files.back());
    if (files.size() > 2) row("", "and " + std::to_string(files.size() - 1) + " deltas, the last " + files.back());
  } else {
    row(info.live ? "Interface" : "File", info.file == "-" ? "standard input" : info.file);
    row("Link type", info.linkTypeName + " (" + std::to_string(info.linkType) + ")" +
                         (analysis.Decoder().Known() ? "" : ", not decoded"));
  }
  row("Medium", MediumName(analysis.Medium()));
  row("Packets", std::to_string(t.packets));
  row("Bytes", std::to_string(t.bytes));
  if (t.start) {
    row("Start", IsoTime(t.start));
    row("Stop", IsoTime(t.stop));
    row("Duration", Fixed(t.duration / 1e9, 3) + " s");
    if (!analysis.FromSaves() && f.outOfOrder) row("Time order", "out of order (Start and Stop: earliest and latest)");
    double seconds = t.duration / 1e9;
    if (seconds > 0)
      row("Average rate", Fixed(t.packets / seconds, 1) + " packets/s, " + BitRate(t.bytes * 8.0 / seconds));
  }
  if (t.packets && !analysis.FromSaves()) {
    TrafficSeries::Bin peak = analysis.Traffic().PeakSecond();
    row("Peak rate", std::to_string(peak.packets) + " packets/s, " + BitRate(peak.bytes * 8.0) + " (busiest second)");
  }
  if (analysis.FromSaves()) std::fprintf(out, "  (a saved context keeps neither the link type nor the peak rate)\n");
}

}  // namespace

bool TableReader::Open(IZemoStats* stats) {
  ComPtr<ISelectableObject> selectable;
  if (!stats || FAILED(stats->QueryInterface(ISelectableObject::iid, selectable.OutVoid()))) return false;
  ComPtr<IDataColumns> columns;
  if (FAILED(selectable->GetTable(m_table.ReleaseAndGetAddressOf())) || !m_table ||
      FAILED(m_table->GetColumns(columns.ReleaseAndGetAddressOf())) ||
      FAILED(m_table->GetRows(m_rows.ReleaseAndGetAddressOf())))
    return false;
  LONG columnCount = 0, rowCount = 0;
  if (FAILED(columns->GetCount(&columnCount)) || FAILED(m_rows->GetCount(&rowCount))) return false;
  m_columns.clear();
  for (LONG c = 0; c < columnCount; ++c) {
    CBstr name;
    columns->GetName(c, name.Out());
    m_columns.push_back(name.Utf8());
  }
  m_rowCount = static_cast<size_t>(std::max<LONG>(rowCount, 0));
  const auto* own = dynamic_cast<const DataTable*>(m_table.Get());
  m_direct = own ? &own->Rows() : nullptr;
  return true;
}

int TableReader::Column(std::string_view name) const {
  for (size_t i = 0; i < m_columns.size(); ++i)
    if (m_columns[i] == name) return static_cast<int>(i);
  return -1;
}

bool TableReader::ViewThroughInterfaces(size_t row, std::vector<CVariant>& cells,
                                        std::vector<DataCellView>& views) const {
  // GetValues writes over what it is given, so what was there goes first.
  cells.clear();
  cells.resize(m_columns.size());
  ComPtr<IDataRow> r;
  if (FAILED(m_rows->GetRow(static_cast<LONG>(row), r.ReleaseAndGetAddressOf())) ||
      (!cells.empty() && FAILED(r->GetValues(static_cast<LONG>(cells.size()), cells.data()))))
    return false;
  views.assign(cells.size(), DataCellView{});
  for (size_t i = 0; i < cells.size(); ++i) {
    std::memcpy(&views[i].value, &cells[i], sizeof(VARIANT));
    if (cells[i].vt == VT_BSTR && cells[i].bstrVal)
      views[i].text = std::u16string_view(cells[i].bstrVal, SysStringLen(cells[i].bstrVal));
  }
  return true;
}

std::string BitRate(double bitsPerSecond) {
  if (bitsPerSecond >= 1e9) return Fixed(bitsPerSecond / 1e9, 2) + " Gbit/s";
  if (bitsPerSecond >= 1e6) return Fixed(bitsPerSecond / 1e6, 2) + " Mbit/s";
  if (bitsPerSecond >= 1e3) return Fixed(bitsPerSecond / 1e3, 2) + " kbit/s";
  return Fixed(bitsPerSecond, 0) + " bit/s";
}

std::string CellText(const DataCellView& cell) {
  return cell.value.vt == VT_BSTR ? ToUtf8(cell.text) : CellText(cell.value);
}

std::string CellText(const VARIANT& cell) {
  switch (cell.vt) {
    case VT_BSTR: return cell.bstrVal ? ToUtf8(std::u16string_view(cell.bstrVal, SysStringLen(cell.bstrVal))) : "";
    case VT_BOOL: return cell.boolVal ? "true" : "false";
    case VT_R4: return Fixed(cell.fltVal, 3);
    case VT_R8: return Fixed(cell.dblVal, 3);
    case VT_I1: return std::to_string(cell.cVal);
    case VT_I2: return std::to_string(cell.iVal);
    case VT_I4: case VT_INT: return std::to_string(cell.lVal);
    case VT_I8: return std::to_string(cell.llVal);
    case VT_UI1: return std::to_string(cell.bVal);
    case VT_UI2: return std::to_string(cell.uiVal);
    case VT_UI4: case VT_UINT: return std::to_string(cell.ulVal);
    case VT_UI8: return std::to_string(cell.ullVal);
    default: return "";
  }
}

namespace {

template <class T>
void AppendNumber(std::string& out, T value) {
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  out.append(buf, end);
}

// Shortest text that reads back the same double; a whole number keeps a
// decimal point, so that it stays a float to a reader, and what JSON cannot
// hold is null.
void AppendDouble(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out += "null";
    return;
  }
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  std::string_view text(buf, static_cast<size_t>(end - buf));
  out += text;
  if (text.find_first_of(".eE") == std::string_view::npos) out += ".0";
}

// One ASCII character of a JSON string at p, escaped where JSON wants it
// (six bytes at most); the end.
char* JsonAscii(char* p, char c) noexcept {
  static constexpr char kHex[] = "0123456789abcdef";
  const auto u = static_cast<unsigned char>(c);
  if (c == '"' || c == '\\') {
    *p++ = '\\';
  } else if (u < 0x20) {
    *p++ = '\\';
    switch (c) {
      case '\b': *p++ = 'b'; return p;
      case '\f': *p++ = 'f'; return p;
      case '\n': *p++ = 'n'; return p;
      case '\r': *p++ = 'r'; return p;
      case '\t': *p++ = 't'; return p;
      default:
        for (char d : {'u', '0', '0', kHex[u >> 4], kHex[u & 15]}) *p++ = d;
        return p;
    }
  }
  *p++ = c;
  return p;
}

// Text as a JSON string, written straight into out: UTF-8 but for what JSON
// escapes. Each unit takes at most six bytes.
template <class Unit, class Step>
void AppendJsonText(std::string& out, std::basic_string_view<Unit> text, Step&& step) {
  const size_t at = out.size();
  out.resize(at + text.size() * 6 + 2);
  char* p = out.data() + at;
  *p++ = '"';
  for (size_t i = 0; i < text.size();) p = step(p, text, i);
  *p++ = '"';
  out.resize(static_cast<size_t>(p - out.data()));
}

void AppendJsonString(std::string& out, std::u16string_view text) {
  AppendJsonText(out, text, [](char* p, std::u16string_view t, size_t& i) {
    return t[i] < 0x80 ? JsonAscii(p, static_cast<char>(t[i++])) : EncodeUtf8(p, NextCodePoint(t, i));
  });
}

void AppendJsonString(std::string& out, std::string_view utf8) {
  AppendJsonText(out, utf8, [](char* p, std::string_view t, size_t& i) {
    const char c = t[i++];
    if (static_cast<unsigned char>(c) >= 0x80) {
      *p = c;
      return p + 1;
    }
    return JsonAscii(p, c);
  });
}

}  // namespace

void AppendJsonCell(std::string& out, const DataCellView& cell) {
  if (cell.value.vt == VT_BSTR)
    AppendJsonString(out, cell.text);
  else
    AppendJsonCell(out, cell.value);
}

void AppendJsonCell(std::string& out, const VARIANT& cell) {
  switch (cell.vt) {
    case VT_BOOL: out += cell.boolVal != 0 ? "true" : "false"; return;
    case VT_R4: return AppendDouble(out, cell.fltVal);
    case VT_R8: return AppendDouble(out, cell.dblVal);
    case VT_I1: return AppendNumber(out, int{cell.cVal});
    case VT_I2: return AppendNumber(out, cell.iVal);
    case VT_I4: case VT_INT: return AppendNumber(out, cell.lVal);
    case VT_I8: return AppendNumber(out, cell.llVal);
    case VT_UI1: return AppendNumber(out, unsigned{cell.bVal});
    case VT_UI2: return AppendNumber(out, cell.uiVal);
    case VT_UI4: case VT_UINT: return AppendNumber(out, cell.ulVal);
    case VT_UI8: return AppendNumber(out, cell.ullVal);
    case VT_BSTR:
      return AppendJsonString(out, cell.bstrVal ? std::u16string_view(cell.bstrVal, SysStringLen(cell.bstrVal))
                                                : std::u16string_view());
    default: out += "null";
  }
}

std::string IsoTime(ZemoTime time) {
  if (time < kUnixEpochAsZemoTime) return "";
  uint64_t ns = time - kUnixEpochAsZemoTime;
  time_t seconds = static_cast<time_t>(ns / 1000000000ull);
  std::tm tm{};
  gmtime_r(&seconds, &tm);
  char buf[64];
  size_t n = std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &tm);
  std::snprintf(buf + n, sizeof buf - n, ".%09lluZ", static_cast<unsigned long long>(ns % 1000000000ull));
  return buf;
}

std::string MediumName(const LinkMedium& medium) {
  std::string numbers = "media type " + std::to_string(medium.type) + ", subtype " + std::to_string(medium.subType);
  if (medium.type == 0 && medium.subType == 0) return "802.3 (" + numbers + ")";
  if (medium.type == 0 && medium.subType == 3) return "802.11 (" + numbers + ")";
  return numbers;
}

namespace {

// Text that goes to a file in pieces of about kFlush bytes.
class JsonOut {
 public:
  explicit JsonOut(std::FILE* out) : m_out(out) {}
  ~JsonOut() { Flush(); }
  std::string& Text() { return m_text; }
  void MaybeFlush() {
    if (m_text.size() >= kFlush) Flush();
  }
  void Flush() {
    std::fwrite(m_text.data(), 1, m_text.size(), m_out);
    m_text.clear();
  }

 private:
  static constexpr size_t kFlush = 1 << 16;
  std::FILE* m_out;
  std::string m_text;
};

// A small value as its indented text, starting at the given depth.
std::string Indented(const Json& value, int depth) {
  std::string text = value.dump(2);
  std::string pad(static_cast<size_t>(depth) * 2, ' ');
  std::string out;
  for (char c : text) {
    out += c;
    if (c == '\n') out += pad;
  }
  return out;
}

// "columns" and "rows" of a table, each row on a line of its own:
// rows(row) calls row(cells) for each row, and cells(text) writes its cells.
template <class RowsFn>
void WriteRows(JsonOut& out, const std::vector<std::string>& columns, RowsFn&& rows) {
  std::string& t = out.Text();
  t += "      \"columns\": [";
  for (size_t c = 0; c < columns.size(); ++c) {
    if (c) t += ", ";
    AppendJsonString(t, columns[c]);
  }
  t += "],\n      \"rows\": [";
  bool first = true;
  rows([&](auto&& cells) {
    t += first ? "\n        [" : ",\n        [";
    first = false;
    cells(t);
    t += ']';
    out.MaybeFlush();
  });
  t += first ? "]" : "\n      ]";
}

// The window's rows, in the columns of its result table, from its records
// as they stand, so that a loaded save is not rebuilt away.
void WriteWindowJson(JsonOut& out, const Analysis& analysis) {
  WindowView view;
  ReadWindow(analysis, &view);
  AddressNames names(view.entities.Get());
  out.Text() += "      \"window_seconds\": " + std::to_string(view.seconds) + ",\n      \"bucket_count\": " +
                std::to_string(view.buckets) + ",\n      \"bucket_seconds\": " + std::to_string(view.bucketSeconds) +
                ",\n";
  WriteRows(out,
            {"Node", "PacketsReceived", "PacketsSent", "BytesReceived", "BytesSent", "MulticastPackets",
             "MulticastBytes", "BroadcastPackets", "BroadcastBytes", "EntityIndex"},
            [&](auto&& row) {
              for (const WindowNode& n : view.nodes)
                row([&](std::string& text) {
                  const ZemoNodeStat& s = n.stat;
                  AppendJsonString(text, names.Of(n.entity));
                  for (uint64_t v : {s.PacketsReceived, s.PacketsSent, s.BytesReceived, s.BytesSent, s.MulticastPackets,
                                     s.MulticastBytes, s.BroadcastPackets, s.BroadcastBytes, uint64_t{n.entity}}) {
                    text += ", ";
                    AppendNumber(text, v);
                  }
                });
            });
}

// "hosts_behind_addresses": each physical address that carried logical
// ones, with them, and the logical addresses seen behind several.
void WriteHostsJson(JsonOut& out, const Analysis& analysis) {
  HostsBehind hosts;
  if (!ReadHostsBehind(analysis, &hosts)) return;
  AddressNames names(hosts.entities.Get());
  std::string& t = out.Text();
  t += "  \"hosts_behind_addresses\": {\n    \"physical\": [";
  bool first = true;
  for (const HostsBehind::Physical& p : hosts.physical) {
    if (!p.pairCount) continue;
    t += first ? "\n      {\"address\": " : ",\n      {\"address\": ";
    first = false;
    AppendJsonString(t, names.Of(p.entity));
    t += p.group ? ", \"group\": true, \"packets\": " : ", \"group\": false, \"packets\": ";
    AppendNumber(t, p.packets);
    t += ", \"bytes\": ";
    AppendNumber(t, p.bytes);
    t += ", \"logical\": [";
    for (size_t i = 0; i < p.pairCount; ++i) {
      if (i) t += ", ";
      AppendJsonString(t, names.Of(hosts.pairs[p.firstPair + i].logical));
    }
    t += "]}";
    out.MaybeFlush();
  }
  t += first ? "],\n" : "\n    ],\n";
  t += "    \"logical_behind_several\": [";
  first = true;
  for (const HostsBehind::Shared& s : hosts.shared) {
    t += first ? "\n      {\"address\": " : ",\n      {\"address\": ";
    first = false;
    AppendJsonString(t, names.Of(s.logical));
    t += ", \"physical\": [";
    for (size_t i = 0; i < s.physical.size(); ++i) {
      if (i) t += ", ";
      AppendJsonString(t, names.Of(s.physical[i]));
    }
    t += "]}";
    out.MaybeFlush();
  }
  t += first ? "]\n  },\n" : "\n    ]\n  },\n";
}

}  // namespace

namespace {

// A count that is a whole number goes out as an integer.
void AppendCount(std::string& out, double value) {
  if (value >= 0 && value < 9.007199254740992e15 && value == std::floor(value))
    AppendNumber(out, static_cast<uint64_t>(value));
  else
    AppendDouble(out, value);
}

// "alarms", "events" and "tracks" of the JSON document; the series a row
// of time, packets and bytes per line, as a plotting tool takes it.
void WriteWatchJson(JsonOut& out, const AlarmWatch* watchOrNull, const WirelessWatch* wireless) {
  std::string& t = out.Text();
  const std::vector<WirelessWatch::Roam> noRoams;
  const std::vector<WirelessWatch::Roam>& roams = wireless ? wireless->Roams() : noRoams;
  if (!watchOrNull || !watchOrNull->HasAlarms()) {
    // Without alarms the events are the roams, if any.
    if (!roams.empty()) {
      t += "  \"events\": [";
      for (size_t i = 0; i < roams.size(); ++i) t += (i ? ",\n    " : "\n    ") + RoamJson(roams[i]).dump();
      t += "\n  ],\n";
    }
    if (!watchOrNull) return;
  }
  const AlarmWatch& watch = *watchOrNull;
  if (watch.HasAlarms()) {
    Json alarms = Json::array();
    for (const AlarmWatch::AlarmOutcome& o : watch.Outcomes()) {
      Json a = {{"name", o.name}, {"id", o.id}, {"state", o.state}, {"severity", o.severity},
                {"evaluated", o.evaluated}};
      if (!o.note.empty()) a["note"] = o.note;
      alarms.push_back(std::move(a));
    }
    t += "  \"alarms\": " + Indented(Json{{"file", watch.AlarmsFile()}, {"alarms", std::move(alarms)}}, 1) +
         ",\n  \"events\": [";
    bool first = true;
    for (const AlarmWatch::Event& e : watch.Events()) {
      t += first ? "\n    " : ",\n    ";
      first = false;
      t += Json{{"time", IsoTime(e.time)}, {"alarm", e.alarm}, {"state", e.state}, {"severity", e.severity},
                {"message", e.message}}
               .dump();
    }
    for (const WirelessWatch::Roam& r : roams) {
      t += first ? "\n    " : ",\n    ";
      first = false;
      t += RoamJson(r).dump();
    }
    t += first ? "],\n" : "\n  ],\n";
  }
  if (watch.Tracks().empty()) return;
  t += "  \"tracks\": [";
  bool firstTrack = true;
  for (const AlarmWatch::Track& track : watch.Tracks()) {
    t += firstTrack ? "\n    {" : ",\n    {";
    firstTrack = false;
    t += "\"kind\": " + Json(track.kind).dump() + ", \"name\": " + Json(track.name).dump() +
         ", \"text\": " + Json(track.text).dump() + ", \"appears\": " + (track.seen ? "true" : "false") +
         ",\n      \"series\": [";
    bool first = true;
    for (const AlarmWatch::Sample& sample : track.series) {
      t += first ? "\n        {\"time\": " : ",\n        {\"time\": ";
      first = false;
      AppendJsonString(t, IsoTime(sample.time));
      t += ", \"packets\": ";
      AppendCount(t, sample.packets);
      t += ", \"bytes\": ";
      AppendCount(t, sample.bytes);
      t += '}';
      out.MaybeFlush();
    }
    t += first ? "]}" : "\n      ]}";
  }
  t += "\n  ],\n";
}

}  // namespace

void WriteJson(std::FILE* file, const Analysis& analysis, const CaptureInfo& info, const AlarmWatch* watch) {
  Totals t = ReadTotals(analysis);
  const RunFacts& f = analysis.Facts();
  Json capture;
  // Only a run knows its source, link type and peak rates.
  if (analysis.FromSaves()) {
    capture["saved"] = info.savedFiles;
  } else {
    capture["file"] = info.file;
    capture["live"] = info.live;
    capture["link_type"] = info.linkTypeName;
    capture["link_type_number"] = info.linkType;
    capture["decoded"] = analysis.Decoder().Known();
  }
  capture["media_type"] = analysis.Medium().type;
  capture["media_subtype"] = analysis.Medium().subType;
  capture["packets"] = t.packets;
  capture["bytes"] = t.bytes;
  capture["start"] = t.start ? Json(IsoTime(t.start)) : Json(nullptr);
  capture["stop"] = t.start ? Json(IsoTime(t.stop)) : Json(nullptr);
  capture["duration_ns"] = t.duration;
  double seconds = t.duration / 1e9;
  capture["average_packets_per_second"] = seconds > 0 ? t.packets / seconds : 0.0;
  capture["average_bits_per_second"] = seconds > 0 ? t.bytes * 8.0 / seconds : 0.0;
  if (!analysis.FromSaves()) {
    TrafficSeries::Bin peak = analysis.Traffic().PeakSecond();
    capture["time_ordered"] = f.outOfOrder == 0;
    capture["peak_packets_per_second"] = peak.packets;
    capture["peak_bits_per_second"] = peak.bytes * 8;
    TrafficSeries::Lines lines = analysis.Traffic().ToLines(kTrafficLines);
    Json rows = Json::array();
    for (size_t i = 0; i < lines.bins.size(); ++i)
      rows.push_back({IsoTime(lines.origin + i * lines.seconds * 1000000000ull), lines.bins[i].packets,
                      lines.bins[i].bytes});
    capture["traffic"] = {{"interval_seconds", lines.seconds}, {"columns", {"From", "Packets", "Bytes"}},
                          {"rows", rows}};
  }

  JsonOut out(file);
  out.Text() = "{\n  \"capture\": " + Indented(capture, 1) + ",\n";
  SummaryTrees summaries = ReadSummaries(analysis);
  if (!summaries.trees.empty()) {
    Json series = Json::array();
    for (size_t i = 0; i < summaries.stored.size(); ++i) {
      OLECHAR id[39];
      StringFromGUID2(summaries.stored[i].second, id, 39);
      series.push_back({{"name", summaries.stored[i].first},
                        {"id", ToUtf8(std::u16string_view(id, 38))},
                        {"summary", SummaryJson(summaries.trees[i + 1])}});
    }
    out.Text() += "  \"summary\": " + Indented(SummaryJson(summaries.trees[0]), 1) + ",\n";
    out.Text() += "  \"summary_series\": " + Indented(series, 1) + ",\n";
  }
  out.Text() += "  \"statistics\": {";
  bool first = true;
  auto open = [&](const std::string& name) {
    out.Text() += first ? "\n    " : ",\n    ";
    out.Text() += Json(name).dump() + ": {\n";
    first = false;
  };
  for (const StatisticEntry& s : analysis.Statistics()) {
    if (s.selectName == "rollingnodestats") {
      open(s.selectName);
      WriteWindowJson(out, analysis);
      out.Text() += "\n    }";
      continue;
    }
    TableReader table;
    if (!s.selectable || IsSummary(s) || !table.Open(s.stats.Get())) continue;
    open(s.selectName);
    WriteRows(out, table.Columns(), [&](auto&& row) {
      table.ForEachRow([&](size_t, std::span<const DataCellView> cells) {
        row([&](std::string& text) {
          for (size_t c = 0; c < cells.size(); ++c) {
            if (c) text += ", ";
            AppendJsonCell(text, cells[c]);
          }
        });
      });
    });
    out.Text() += "\n    }";
  }
  Traffic traffic;
  if (ReadTraffic(analysis, &traffic)) {
    open("dashboardstats");
    out.Text() += "      \"interval_seconds\": " + std::to_string(traffic.interval) + ",\n";
    WriteRows(out, {"Time", "BytesPerSecond"}, [&](auto&& row) {
      for (size_t i = 0; i < traffic.samples.size(); ++i)
        row([&](std::string& text) {
          AppendJsonString(text, traffic.TimeOf(i));
          text += ", ";
          AppendDouble(text, traffic.samples[i]);
        });
    });
    out.Text() += "\n    }";
  }
  out.Text() += first ? "},\n" : "\n  },\n";
  WriteHostsJson(out, analysis);
  WirelessView wireless;
  if (ReadWireless(analysis, &wireless))
    out.Text() += "  \"channels\": " + Indented(ChannelJson(wireless), 1) + ",\n  \"data_rates\": " +
                  Indented(DataRateJson(wireless), 1) + ",\n";
  WirelessNodesView nodes;
  if (ReadWirelessNodes(analysis, analysis.Wireless(), &nodes))
    out.Text() += "  \"access_points\": " + Indented(AccessPointJson(nodes), 1) + ",\n  \"stations\": " +
                  Indented(StationJson(nodes), 1) + ",\n  \"networks\": " + Indented(NetworkJson(nodes), 1) + ",\n";
  WriteWatchJson(out, watch, analysis.Wireless());
  out.Text() += "  \"warnings\": " + Indented(Json(info.warnings), 1) + "\n}\n";
}

namespace {

// One line of the traffic section: its start, length, packets (unknown for
// a saved context's series) and bytes.
struct TrafficLine {
  ZemoTime from;
  double seconds;
  std::optional<uint64_t> packets;
  double bytes;
};

// A run's lines: from the first packet on, as tshark's io,stat counts.
std::vector<TrafficLine> RunTraffic(const Analysis& analysis, uint64_t* width) {
  TrafficSeries::Lines series = analysis.Traffic().ToLines(kTrafficLines);
  *width = series.seconds;
  std::vector<TrafficLine> lines;
  for (size_t i = 0; i < series.bins.size(); ++i)
    lines.push_back({series.origin + i * series.seconds * 1000000000ull, double(series.seconds),
                     series.bins[i].packets, double(series.bins[i].bytes)});
  return lines;
}

// A saved context's lines: the dashboard's closed spans, in groups.
std::vector<TrafficLine> SavedTraffic(const Analysis& analysis, uint64_t* width) {
  Traffic t;
  std::vector<TrafficLine> lines;
  if (!ReadTraffic(analysis, &t) || t.samples.empty()) return lines;
  const size_t group = (t.samples.size() + kTrafficLines - 1) / kTrafficLines;
  *width = uint64_t(t.interval) * group;
  for (size_t i = 0; i < t.samples.size(); i += group) {
    size_t end = std::min(t.samples.size(), i + group);
    TrafficLine line{t.From(i), double(t.From(end) - t.From(i)) / 1e9, std::nullopt, 0};
    for (size_t k = i; k < end; ++k) line.bytes += t.BytesOf(k);
    lines.push_back(line);
  }
  return lines;
}

void PrintTraffic(std::FILE* out, const Analysis& analysis) {
  uint64_t width = 0;
  std::vector<TrafficLine> lines = analysis.FromSaves() ? SavedTraffic(analysis, &width) : RunTraffic(analysis, &width);
  if (lines.empty()) return;
  double peak = 0;
  for (const TrafficLine& l : lines) peak = std::max(peak, l.bytes / l.seconds);
  std::fprintf(out, "\nTraffic (%llu s per line%s)\n", static_cast<unsigned long long>(width),
               analysis.FromSaves() ? ", as the saved dashboard has it" : ", from the first packet");
  const bool packets = lines.front().packets.has_value();
  std::vector<std::vector<std::string>> rows;
  for (const TrafficLine& l : lines) {
    double rate = l.bytes / l.seconds;
    std::vector<std::string> row = {IsoTime(l.from)};
    if (packets) row.push_back(std::to_string(*l.packets));
    row.push_back(Fixed(l.bytes, 0));
    row.push_back(Fixed(rate * 8 / 1000, 2));
    row.push_back(std::string(peak > 0 ? static_cast<size_t>(rate / peak * 40 + 0.5) : 0, '#'));
    rows.push_back(std::move(row));
  }
  if (packets)
    PrintTable(out, {"From", "Packets", "Bytes", "kbit/s", ""}, rows, {false, true, true, true, false});
  else
    PrintTable(out, {"From", "Bytes", "kbit/s", ""}, rows, {false, true, true, false});
}

// The heaviest nodes of the window, physical and logical apart, with their
// rate over the part of the window the capture covered.
void PrintWindow(std::FILE* out, const Analysis& analysis, size_t top) {
  WindowView view;
  if (!ReadWindow(analysis, &view)) return;
  Totals t = ReadTotals(analysis);
  double covered = view.seconds;
  if (t.duration) covered = std::min(covered, std::max(1.0, t.duration / 1e9));
  AddressNames names(view.entities.Get());
  for (bool logical : {false, true}) {
    std::vector<const WindowNode*> nodes;
    for (const WindowNode& n : view.nodes)
      if (IsLogicalEntity(view.entities.Get(), n.entity) == logical) nodes.push_back(&n);
    const size_t n = std::min(top, nodes.size());
    std::partial_sort(nodes.begin(), nodes.begin() + static_cast<std::ptrdiff_t>(n), nodes.end(),
                      [](const WindowNode* a, const WindowNode* b) { return a->Bytes() > b->Bytes(); });
    std::fprintf(out, "\nTop %zu %s nodes of the last %u s (%ld buckets of %ld s)\n", top,
                 logical ? "logical" : "physical", view.seconds, static_cast<long>(view.buckets),
                 static_cast<long>(view.bucketSeconds));
    if (!n) {
      std::fprintf(out, "  (none in the window)\n");
      continue;
    }
    std::vector<std::vector<std::string>> rows;
    for (size_t i = 0; i < n; ++i) {
      const ZemoNodeStat& s = nodes[i]->stat;
      rows.push_back({names.Of(nodes[i]->entity), std::to_string(s.PacketsSent), std::to_string(s.PacketsReceived),
                      std::to_string(s.BytesSent), std::to_string(s.BytesReceived),
                      BitRate(nodes[i]->Bytes() * 8.0 / covered)});
    }
    PrintTable(out, {"Node", "Packets sent", "Packets received", "Bytes sent", "Bytes received", "Rate"}, rows,
               {false, true, true, true, true, true});
  }
}

// Logical addresses listed after a physical one: the first few, then how
// many more.
std::string LogicalList(const HostsBehind& hosts, const HostsBehind::Physical& p, AddressNames& names) {
  constexpr size_t kShown = 4;
  std::vector<const HostPair*> pairs;
  for (size_t i = 0; i < p.pairCount; ++i) pairs.push_back(&hosts.pairs[p.firstPair + i]);
  const size_t n = std::min(kShown, pairs.size());
  std::partial_sort(pairs.begin(), pairs.begin() + static_cast<std::ptrdiff_t>(n), pairs.end(),
                    [](const HostPair* a, const HostPair* b) { return a->bytes > b->bytes; });
  std::string text;
  for (size_t i = 0; i < n; ++i) text += (i ? ", " : "") + names.Of(pairs[i]->logical);
  if (pairs.size() > n) text += ", and " + std::to_string(pairs.size() - n) + " more";
  return text;
}

// Which logical addresses each physical address carried, busiest carriers
// first, and the logical addresses seen behind more than one.
void PrintHostsBehind(std::FILE* out, const Analysis& analysis, size_t top) {
  HostsBehind hosts;
  if (!ReadHostsBehind(analysis, &hosts)) return;
  AddressNames names(hosts.entities.Get());
  std::vector<const HostsBehind::Physical*> carriers;
  for (const HostsBehind::Physical& p : hosts.physical)
    if (p.pairCount && !p.group) carriers.push_back(&p);
  const size_t n = std::min(top, carriers.size());
  std::partial_sort(carriers.begin(), carriers.begin() + static_cast<std::ptrdiff_t>(n), carriers.end(),
                    [](const HostsBehind::Physical* a, const HostsBehind::Physical* b) {
                      return a->pairCount != b->pairCount ? a->pairCount > b->pairCount : a->bytes > b->bytes;
                    });
  std::fprintf(out, "\nHosts behind addresses (%zu unicast physical addresses carried logical ones)\n",
               carriers.size());
  if (!n) {
    std::fprintf(out, "  (no logical address was seen behind a physical one)\n");
  } else {
    std::vector<std::vector<std::string>> rows;
    for (size_t i = 0; i < n; ++i)
      rows.push_back({names.Of(carriers[i]->entity), std::to_string(carriers[i]->pairCount),
                      std::to_string(carriers[i]->bytes), LogicalList(hosts, *carriers[i], names)});
    PrintTable(out, {"Physical address", "Logical", "Bytes", "Behind it"}, rows, {false, true, true, false});
  }
  std::fprintf(out, "\nLogical addresses behind several physical ones (a router, a proxy ARP or a spoof)\n");
  if (hosts.shared.empty()) {
    std::fprintf(out, "  (none: each logical address was seen behind one physical address)\n");
    return;
  }
  std::vector<const HostsBehind::Shared*> shared;
  for (const HostsBehind::Shared& s : hosts.shared) shared.push_back(&s);
  const size_t m = std::min(top, shared.size());
  std::partial_sort(shared.begin(), shared.begin() + static_cast<std::ptrdiff_t>(m), shared.end(),
                    [](const HostsBehind::Shared* a, const HostsBehind::Shared* b) {
                      return a->physical.size() > b->physical.size();
                    });
  std::vector<std::vector<std::string>> rows;
  for (size_t i = 0; i < m; ++i) {
    std::string behind;
    for (size_t k = 0; k < shared[i]->physical.size() && k < 4; ++k) behind += (k ? ", " : "") + names.Of(shared[i]->physical[k]);
    if (shared[i]->physical.size() > 4) behind += ", and " + std::to_string(shared[i]->physical.size() - 4) + " more";
    rows.push_back({names.Of(shared[i]->logical), std::to_string(shared[i]->physical.size()), behind});
  }
  PrintTable(out, {"Logical address", "Physical", "Seen behind"}, rows, {false, true, false});
  if (hosts.shared.size() > m) std::fprintf(out, "  ... %zu more\n", hosts.shared.size() - m);
}

}  // namespace

namespace {

std::string CountText(double v) {
  return v >= 0 && v == std::floor(v) ? std::to_string(static_cast<uint64_t>(v)) : Fixed(v, 3);
}

// The alarms at the end, then every change of state in time order.
void PrintAlarms(std::FILE* out, const AlarmWatch& watch) {
  std::fprintf(out, "\nAlarms (%s)\n", watch.AlarmsFile().c_str());
  std::vector<std::vector<std::string>> rows;
  for (const AlarmWatch::AlarmOutcome& o : watch.Outcomes())
    rows.push_back({o.name, o.state, std::to_string(o.severity), o.note});
  PrintTable(out, {"Alarm", "State at the end", "Severity", ""}, rows, {false, false, true, false});
  if (watch.Events().empty()) {
    std::fprintf(out, "\n  No alarm changed state.\n");
    return;
  }
  std::fprintf(out, "\n");
  rows.clear();
  for (const AlarmWatch::Event& e : watch.Events())
    rows.push_back({IsoTime(e.time), e.alarm, e.state, std::to_string(e.severity), e.message});
  PrintTable(out, {"Time", "Alarm", "State", "Severity", "Message"}, rows, {false, false, false, true, false});
}

void PrintTracks(std::FILE* out, const AlarmWatch& watch) {
  for (const AlarmWatch::Track& t : watch.Tracks()) {
    std::fprintf(out, "\nTrack of %s %s, per second\n", t.kind.c_str(), t.text.c_str());
    if (!t.seen) {
      std::fprintf(out, "  (it never appears in the capture)\n");
      continue;
    }
    double peak = 0;
    for (const AlarmWatch::Sample& s : t.series) peak = std::max(peak, s.bytes);
    std::vector<std::vector<std::string>> rows;
    for (const AlarmWatch::Sample& s : t.series)
      rows.push_back({IsoTime(s.time), CountText(s.packets), CountText(s.bytes),
                      std::string(peak > 0 ? static_cast<size_t>(s.bytes / peak * 40 + 0.5) : 0, '#')});
    PrintTable(out, {"From", "Packets", "Bytes", ""}, rows, {false, true, true, false});
  }
}

}  // namespace

void PrintReport(std::FILE* out, const Analysis& analysis, const CaptureInfo& info, size_t top,
                 const AlarmWatch* watch) {
  PrintCapture(out, analysis, info);
  SummaryTrees summaries = ReadSummaries(analysis);
  if (!summaries.trees.empty()) PrintSummary(out, summaries.trees[0]);
  WirelessView wireless;
  if (ReadWireless(analysis, &wireless) && !wireless.channels.empty()) {
    auto print = [&](const char* title, const TextTable& table) {
      std::fprintf(out, "\n%s\n", title);
      PrintTable(out, table.heads, table.rows, table.numeric);
    };
    print("Channels", ChannelTable(wireless));
    print("Data rates", DataRateTable(wireless));
  }
  WirelessNodesView nodes;
  if (ReadWirelessNodes(analysis, analysis.Wireless(), &nodes) && (!nodes.accessPoints.empty() || !nodes.stations.empty())) {
    auto print = [&](const char* title, const TextTable& table) {
      if (table.rows.empty()) return;
      std::fprintf(out, "\n%s\n", title);
      PrintTable(out, table.heads, table.rows, table.numeric);
    };
    print("Access points", AccessPointTable(nodes));
    print("Stations", StationTable(nodes));
    print("Networks", NetworkTable(nodes));
  }
  std::vector<std::string> shown;
  auto section = [&](const char* name, const std::string& title, auto&& body) {
    const StatisticEntry* s = Find(analysis, name);
    TableReader t;
    if (!s || !t.Open(s->stats.Get())) return;
    shown.push_back(name);
    std::fprintf(out, "\n%s\n", title.c_str());
    body(t);
  };
  std::string n = std::to_string(top);

  section("sizestats", "Size distribution", [&](const TableReader& t) {
    const std::vector<int> value = ColumnsOf(t, {"Value"});
    const int label = t.Column("Stat");
    std::vector<std::pair<std::string, uint64_t>> buckets;
    uint64_t all = 0;
    t.ForEachRow([&](size_t, std::span<const DataCellView> cells) {
      uint64_t v = RowWeight(cells, value);
      buckets.emplace_back(label >= 0 && size_t(label) < cells.size() ? CellText(cells[label]) : "", v);
      all += v;
    });
    std::vector<std::vector<std::string>> rows;
    for (const auto& [name, v] : buckets) {
      double share = all ? 100.0 * v / all : 0;
      rows.push_back({name, std::to_string(v), Fixed(share, 1) + "%",
                      std::string(static_cast<size_t>(share / 2.5 + 0.5), '#')});
    }
    PrintTable(out, {"Size", "Packets", "Share", ""}, rows, {false, true, true, false});
  });
  section("errorstats", "Errors", [&](const TableReader& t) {
    if (t.RowCount() == 0)
      std::fprintf(out, "  (no error counters on this medium)\n");
    else
      PrintRows(out, t, AllRows(t), {{"Stat", "Kind"}, {"Value", "Packets"}});
  });
  PrintTraffic(out, analysis);
  const std::vector<std::pair<const char*, const char*>> nodeColumns = {
      {"Node", "Node"},           {"PacketsSent", "Packets sent"}, {"PacketsReceived", "Packets received"},
      {"BytesSent", "Bytes sent"}, {"BytesReceived", "Bytes received"}};
  section("nodestats", "Top " + n + " physical nodes", [&](const TableReader& t) {
    PrintRows(out, t, Heaviest(t, {"BytesSent", "BytesReceived"}, top, IsPhysicalRow), nodeColumns);
    std::fprintf(out, "\nTop %s logical nodes\n", n.c_str());
    PrintRows(out, t, Heaviest(t, {"BytesSent", "BytesReceived"}, top, IsLogicalRow), nodeColumns);
  });
  section("protocolstats", "Top " + n + " protocols", [&](const TableReader& t) {
    PrintRows(out, t, Heaviest(t, {"Bytes"}, top), {{"Protocol", "Protocol"}, {"Packets", "Packets"}, {"Bytes", "Bytes"}});
  });
  section("conversationstats", "Top " + n + " conversations", [&](const TableReader& t) {
    PrintRows(out, t, Heaviest(t, {"Bytes"}, top),
              {{"Source", "Source"}, {"Dest", "Destination"}, {"Protocol", "Protocol"}, {"Packets", "Packets"},
               {"Bytes", "Bytes"}});
  });
  // The two node tables that look past single addresses have sections of
  // their own, read from their records.
  PrintWindow(out, analysis, top);
  PrintHostsBehind(out, analysis, top);
  shown.push_back("rollingnodestats");
  shown.push_back("nodestatshierarchy");
  // Every other statistic with a table, as it gives it.
  for (const StatisticEntry& s : analysis.Statistics()) {
    if (!s.selectable || IsSummary(s) || std::find(shown.begin(), shown.end(), s.selectName) != shown.end()) continue;
    TableReader t;
    if (!t.Open(s.stats.Get())) continue;
    std::fprintf(out, "\n%s (%s)\n", ToUtf8(s.className).c_str(), s.selectName.c_str());
    PrintGeneric(out, t, top);
  }
  if (analysis.Statistics().empty()) std::fprintf(out, "\n(this build of the module serves no statistics yet)\n");
  if (watch && watch->HasAlarms()) PrintAlarms(out, *watch);
  if (watch) PrintTracks(out, *watch);
  if (!info.warnings.empty()) {
    std::fprintf(out, "\nWarnings\n");
    for (const std::string& w : info.warnings) std::fprintf(out, "  %s\n", w.c_str());
  }
}

bool ExportAll(const Analysis& analysis, const std::string& directory, std::string* error) {
  if (!EnsureDirectory(directory, error)) return false;
  std::vector<std::string> written;
  for (const StatisticEntry& s : analysis.Statistics()) {
    ComPtr<IPersistFile> file;
    if (FAILED(s.stats.As(&file))) continue;
    std::string path = directory + "/" + s.selectName + ".txt";
    HRESULT hr = file->Save(FromUtf8(path).c_str(), FALSE);
    if (FAILED(hr)) {
      *error = path + ": the export failed (" + HrReason(hr) + ")";
      for (const std::string& w : written) unlink(w.c_str());
      return false;
    }
    written.push_back(path);
  }
  return true;
}

}  // namespace zemo::cli
