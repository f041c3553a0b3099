#include "network/size_stats.h"

#include <string>
#include <vector>

#include "frame/clsids.h"
#include "frame/stream_persist.h"
#include "network/stat_rows.h"

namespace zemo {
namespace {

// The last bound of every set is 65535, so the walk always ends in a bucket.
constexpr USHORT kSet1[] = {64, 127, 255, 511, 1023, 1517, 65535};
constexpr USHORT kSet2[] = {63, 127, 255, 511, 1023, 2047, 4095, 8191, 17999, 65535};
constexpr USHORT kSet3[] = {63, 127, 255, 511, 1023, 2047, 2346, 65535};
constexpr USHORT kSet4[] = {64, 127, 255, 511, 1023, 1518, 2047, 4095, 8191, 9017, 9022, 65535};
// The same bounds as set 1, kept as a set of its own: its number is visible.
constexpr USHORT kSet5[] = {64, 127, 255, 511, 1023, 1517, 65535};

constexpr ULONGLONG kFastLinkAbove = 100000000;

std::u16string Label(std::span<const USHORT> bounds, size_t i) {
  auto text = [](unsigned n) {
    std::string s = std::to_string(n);
    return std::u16string(s.begin(), s.end());
  };
  if (i == 0) return u"<=" + text(bounds[0]);
  if (i + 1 == bounds.size()) return u">=" + text(bounds[i - 1] + 1u);
  return text(bounds[i - 1] + 1u) + u"-" + text(bounds[i]);
}

}  // namespace

std::span<const USHORT> SizeSetBounds(ULONG set) noexcept {
  switch (set) {
    case 1: return kSet1;
    case 2: return kSet2;
    case 3: return kSet3;
    case 4: return kSet4;
    case 5: return kSet5;
    default: return {};
  }
}

ULONG ChooseSizeSet(ULONG mediaType, ULONG mediaSubType, ULONGLONG linkSpeed) noexcept {
  switch (mediaType) {
    case 0:
      if (mediaSubType == 0) return linkSpeed > kFastLinkAbove ? 4 : 1;
      return mediaSubType <= 3 ? 3 : 0;
    case 1: return 2;
    case 3:
    case 12: return 5;
    default: return 0;
  }
}

// --- ISizeStats ---

HRESULT SizeStats::GetBucketCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<LONG>(m_bucketCount);
  });
}

HRESULT SizeStats::GetBuckets(LONG capacity, ULONGLONG* buckets) {
  return Locked([&] { CopyCounters(Counts(), capacity, buckets); });
}

HRESULT SizeStats::GetSizeSet(ULONG* set) {
  return Locked([&] {
    CheckOut(set);
    *set = m_sizeSet;
  });
}

// --- IZemoStats ---

HRESULT SizeStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] { HandOutContext(m_context, context); });
}

HRESULT SizeStats::SetContext(IZemoStatsContext* context) {
  return Locked([&] { m_context = context; });
}

// The medium is read before this object's lock is taken: the context's lock
// comes first (a reset through the context holds it already). All three
// reads come first, so that a failure changes nothing.
HRESULT SizeStats::Reset() {
  IZemoStatsContext* context = nullptr;
  Locked([&] { context = m_context; });
  ULONG type = 0, subType = 0;
  ULONGLONG speed = 0;
  if (!context || FAILED(context->GetMediaType(&type)) || FAILED(context->GetMediaSubType(&subType)) ||
      FAILED(context->GetLinkSpeed(&speed)))
    return E_FAIL;
  return Locked([&] {
    m_mediaType = type;
    m_mediaSubType = subType;
    m_sizeSet = ChooseSizeSet(type, subType, speed);
    m_bucketCount = static_cast<ULONG>(SizeSetBounds(m_sizeSet).size());
    m_buckets.fill(0);
  });
}

// --- IProcessPacket ---

HRESULT SizeStats::ProcessPacket(IPacket* packet) {
  return Locked([&] {
    if (!packet) AtlThrow(E_INVALIDARG);
    std::span<const USHORT> bounds = SizeSetBounds(m_sizeSet);
    if (bounds.empty()) AtlThrow(E_FAIL);
    USHORT length = 0;
    CheckHr(packet->GetPacketLength(&length));
    size_t i = 0;
    while (bounds[i] < length) ++i;  // the last bound, 65535, stops every walk
    ++m_buckets[i];
  });
}

// --- persistence ---

HRESULT SizeStats::GetClassID(CLSID* out) {
  if (!out) return E_POINTER;
  *out = CLSID_SizeStats;
  return S_OK;
}

// The stream names no set: its values go into the buckets from the first,
// whatever the present set, so a loaded statistic must have been reset in
// the medium it was saved in. A row longer than the array is refused whole.
HRESULT SizeStats::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    ULONG n = ReadValue<ULONG>(stream);
    if (n > kMaxSizeBuckets) AtlThrow(E_FAIL);
    std::array<uint64_t, kMaxSizeBuckets> values{};
    ReadRecords(stream, std::span<uint64_t>(values.data(), n));
    std::copy_n(values.begin(), n, m_buckets.begin());
  });
}

HRESULT SizeStats::Save(IStream* stream, BOOL) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    WriteValue(stream, m_bucketCount);
    WriteRecords(stream, Counts());
  });
}

HRESULT SizeStats::GetSizeMax(ULARGE_INTEGER* size) {
  return Locked([&] {
    CheckOut(size);
    size->QuadPart = 8ull * m_bucketCount + 4;
  });
}

HRESULT SizeStats::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] { LoadStatElements(document, node, u"sizestats", {m_buckets.data(), m_bucketCount}); });
}

HRESULT SizeStats::Save(IUnknown* document, IUnknown* node, BOOL) {
  return Locked([&] { SaveStatElements(document, node, u"sizestats", Counts()); });
}

HRESULT SizeStats::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&] { return SaveCounterLines(fileName, Counts()); });
}

// --- ISelectableObject ---

HRESULT SizeStats::GetTable(IDataTable** table) {
  return Locked([&] {
    std::span<const USHORT> bounds = SizeSetBounds(m_sizeSet);
    std::vector<std::u16string> labels;
    for (size_t i = 0; i < bounds.size(); ++i) labels.push_back(Label(bounds, i));
    MakeStatTable(table, labels, Counts());
  });
}

}  // namespace zemo
