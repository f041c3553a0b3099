#include "network/error_stats.h"

#include <algorithm>
#include <string>

#include "frame/clsids.h"
#include "frame/packet.h"
#include "frame/stream_persist.h"

namespace zemo {
namespace {

// Status bits of the causes, in counter order from counter 1.
constexpr ULONG kEthernetCauses[] = {kPacketStatusCrc, kPacketStatusFrame, kPacketStatusRunt, kPacketStatusOversize};
constexpr ULONG kCrcOnly[] = {kPacketStatusCrc};
constexpr ULONG kCrcAndFrame[] = {kPacketStatusCrc, kPacketStatusFrame};

// The routing-information bit of TestStatus on media type 1.
constexpr ULONG kStatusRouted = 0x08;

constexpr size_t kMacHeaderEnd = 14;

// How many counters a medium has; 0 for a medium without a table, which
// then keeps the count it had.
ULONG CounterCountFor(ULONG type, ULONG subType) {
  switch (type) {
    case 0: return subType == 0 ? 5 : subType <= 3 ? 2 : 0;
    case 1: return 13;
    case 3:
    case 12: return 3;
    default: return 0;
  }
}

// The rows the table shows by medium; media type 1 shows none.
std::span<const std::u16string> LabelsFor(ULONG type, ULONG subType) {
  static const std::u16string kEthernet[] = {u"Total", u"CRC", u"Frame", u"Runt", u"Oversize"};
  static const std::u16string kShort[] = {u"Total", u"CRC"};
  static const std::u16string kThree[] = {u"Total", u"CRC", u"Frame"};
  if (type == 0 && subType == 0) return kEthernet;
  if (type == 0 && subType >= 1 && subType <= 3) return kShort;
  if (type == 3 || type == 12) return kThree;
  return {};
}

uint16_t ReadU16(const BYTE* p) noexcept { return static_cast<uint16_t>(p[0] | p[1] << 8); }

}  // namespace

bool IsErrorMonitorFrame(const BYTE* data, size_t captureLength) noexcept {
  static constexpr BYTE kMonitor[] = {0xC0, 0x00, 0x00, 0x00, 0x00, 0x08};
  return data && captureLength > kMacHeaderEnd && std::equal(std::begin(kMonitor), std::end(kMonitor), data + 2);
}

void ReadErrorReport(const BYTE* data, size_t captureLength, bool routed, ErrorCounts& counts) noexcept {
  if (!IsErrorMonitorFrame(data, captureLength)) return;
  size_t p = kMacHeaderEnd;
  if (routed) p += data[kMacHeaderEnd] & 0x1F;
  if (p + 5 > captureLength || (data[p + 3] != 0x29 && data[p + 3] != 0x28)) return;
  auto add = [&](size_t counter, uint64_t amount) {
    counts[counter] += amount;
    counts[0] += amount;
  };
  for (size_t q = p + 4; q + 4 <= captureLength;) {
    size_t length = data[q];
    BYTE id = data[q + 1];
    size_t value = q + 2;
    if (length == 0xFF) {
      length = ReadU16(data + q + 2);
      value = q + 4;
    }
    if (length == 0 || q + length > captureLength) break;
    // The value must lie inside its subvector, which lies inside the capture.
    auto fits = [&](size_t bytes) { return value + bytes <= q + length; };
    switch (id) {
      case 0x2D:
        if (fits(4))
          for (size_t i = 0; i < 4; ++i) add(1 + i, data[value + i]);
        break;
      case 0x2E:
        if (fits(5))
          for (size_t i = 0; i < 5; ++i) add(5 + i, data[value + i]);
        break;
      case 0x30:
        if (fits(2)) {
          uint16_t code = ReadU16(data + value);
          if (code == 0x0100) add(10, 1);
          else if (code == 0x0200) add(11, 1);
          else if (code == 0x0300) add(12, 1);
        }
        break;
      default: break;
    }
    q += length;
  }
}

// --- IErrorStats ---

HRESULT ErrorStats::GetCounterCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<LONG>(m_count);
  });
}

HRESULT ErrorStats::GetCounters(LONG capacity, ULONGLONG* counters) {
  return Locked([&] { CopyCounters(Counts(), capacity, counters); });
}

HRESULT ErrorStats::GetErrorRate(double* rate) {
  return Locked([&] {
    CheckOut(rate);
    *rate = m_errorRate;
  });
}

// --- IZemoStats ---

HRESULT ErrorStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] { HandOutContext(m_context, context); });
}

HRESULT ErrorStats::SetContext(IZemoStatsContext* context) {
  return Locked([&] { m_context = context; });
}

// The medium is read before this object's lock is taken: the context's lock
// comes first (a reset through the context holds it already).
HRESULT ErrorStats::Reset() {
  IZemoStatsContext* context = nullptr;
  Locked([&] { context = m_context; });
  ULONG type = 0, subType = 0;
  if (!context || FAILED(context->GetMediaType(&type)) || FAILED(context->GetMediaSubType(&subType))) return E_FAIL;
  return Locked([&] {
    m_mediaType = type;
    m_mediaSubType = subType;
    if (ULONG count = CounterCountFor(type, subType)) m_count = count;
    m_counters.fill(0);
    m_flags.fill(0);
    std::fill_n(m_flags.begin(), m_count, BYTE{1});
    m_errorRate = 0;
    m_span.Clear();
    m_errorsInSpan = 0;
  });
}

// --- packets and time ---

void ErrorStats::Advance(ZemoTime now) {
  if (m_count == 0) AtlThrow(E_FAIL);
  if (!m_span.Started()) m_span.Start(now);
  uint64_t spans = m_span.Passed(now);
  if (spans == 0) return;
  // Only the first span that closes can hold errors: after a gap of several
  // spans the rate is 0, without a step for each missed span.
  m_errorRate = spans == 1 && m_errorsInSpan ? m_span.PerSecond(m_errorsInSpan) : 0.0;
  m_errorsInSpan = 0;
  m_span.Skip(spans);
}

void ErrorStats::CountDamaged(IPacket* packet, std::span<const ULONG> causes) {
  BOOL damaged = FALSE;
  CheckHr(packet->IsError(&damaged));
  if (!damaged) return;
  ++m_errorsInSpan;
  Add(0, 1);
  for (size_t i = 0; i < causes.size(); ++i) {
    BOOL set = FALSE;
    CheckHr(packet->TestStatus(causes[i], &set));
    if (set) Add(i + 1, 1);
  }
}

void ErrorStats::CountReport(IPacket* packet) {
  const BYTE* data = nullptr;
  USHORT length = 0;
  CheckHr(packet->GetPacketData(&data));
  CheckHr(packet->GetCaptureLength(&length));
  if (!IsErrorMonitorFrame(data, length)) return;
  BOOL routed = FALSE;
  CheckHr(packet->TestStatus(kStatusRouted, &routed));
  ErrorCounts report{};
  ReadErrorReport(data, length, routed != FALSE, report);
  m_errorsInSpan += report[0];
  for (size_t i = 0; i < report.size(); ++i) Add(i, report[i]);
}

HRESULT ErrorStats::ProcessPacket(IPacket* packet) {
  return Locked([&] {
    if (!packet) AtlThrow(E_INVALIDARG);
    if (m_count == 0) AtlThrow(E_FAIL);
    ZemoTime stamp = 0;
    CheckHr(packet->GetTimeStamp(&stamp));
    Advance(stamp);
    switch (m_mediaType) {
      case 0:
        if (m_mediaSubType == 0) CountDamaged(packet, kEthernetCauses);
        else if (m_mediaSubType <= 3) CountDamaged(packet, kCrcOnly);
        break;
      case 1: CountReport(packet); break;
      case 3:
      case 12: CountDamaged(packet, kCrcAndFrame); break;
      default: break;
    }
  });
}

HRESULT ErrorStats::ProcessTime(ZemoTime now) {
  return Locked([&] { Advance(now); });
}

// --- persistence ---

HRESULT ErrorStats::GetClassID(CLSID* out) {
  if (!out) return E_POINTER;
  *out = CLSID_ErrorStats;
  return S_OK;
}

HRESULT ErrorStats::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    uint16_t tag = ReadValue<uint16_t>(stream);
    uint16_t version = kOldVersion;
    if (tag == kStreamTag) {
      version = ReadValue<uint16_t>(stream);
      if (version != kVersion && version != kOldVersion) AtlThrow(E_FAIL);
    } else {
      StreamSeekTo(stream, StreamPosition(stream) - sizeof(tag));
    }
    if (version == kOldVersion) {
      // The old form: an unused word, then the counters of the present count.
      ReadValue<ULONG>(stream);
      ErrorCounts counters = m_counters;
      ReadRecords(stream, std::span<uint64_t>(counters.data(), m_count));
      m_counters = counters;
      return;
    }
    // Everything is read before anything is replaced.
    ULONG type = ReadValue<ULONG>(stream);
    ULONG subType = ReadValue<ULONG>(stream);
    ULONG count = ReadValue<ULONG>(stream);
    if (count > kMaxErrorCounters) AtlThrow(E_FAIL);
    ErrorCounts counters{};
    std::array<BYTE, kMaxErrorCounters> flags{};
    ReadRecords(stream, std::span<uint64_t>(counters.data(), count));
    ReadRecords(stream, std::span<BYTE>(flags.data(), count));
    double rate = ReadValue<double>(stream);
    m_mediaType = type;
    m_mediaSubType = subType;
    m_count = count;
    m_counters = counters;
    m_flags = flags;
    m_errorRate = rate;
    m_span.Clear();
    m_errorsInSpan = 0;
  });
}

HRESULT ErrorStats::Save(IStream* stream, BOOL) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    WriteValue(stream, kStreamTag);
    WriteValue(stream, kVersion);
    WriteValue(stream, m_mediaType);
    WriteValue(stream, m_mediaSubType);
    WriteValue(stream, m_count);
    WriteRecords(stream, Counts());
    WriteRecords(stream, std::span<const BYTE>(m_flags.data(), m_count));
    WriteValue(stream, m_errorRate);
  });
}

HRESULT ErrorStats::GetSizeMax(ULARGE_INTEGER* size) {
  return Locked([&] {
    CheckOut(size);
    size->QuadPart = 9ull * m_count + 24;
  });
}

HRESULT ErrorStats::Load(IUnknown* document, IUnknown* node) {
  return Locked([&] { LoadStatElements(document, node, u"errorstats", {m_counters.data(), m_count}); });
}

HRESULT ErrorStats::Save(IUnknown* document, IUnknown* node, BOOL) {
  return Locked([&] { SaveStatElements(document, node, u"errorstats", Counts()); });
}

HRESULT ErrorStats::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&] { return SaveCounterLines(fileName, Counts()); });
}

// --- ISelectableObject ---

HRESULT ErrorStats::GetTable(IDataTable** table) {
  return Locked([&] {
    std::span<const std::u16string> labels = LabelsFor(m_mediaType, m_mediaSubType);
    MakeStatTable(table, labels.first(std::min<size_t>(labels.size(), m_count)), Counts());
  });
}

}  // namespace zemo
