#include "network/history_stats.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "frame/clsids.h"
#include "frame/packet.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"
#include "platform/strings.h"

namespace zemo {

// --- IHistoryStats ---

HRESULT HistoryStats::GetInterval(LONG* seconds) {
  return Locked([&] {
    CheckOut(seconds);
    *seconds = static_cast<LONG>(m_span.interval);
  });
}

HRESULT HistoryStats::SetInterval(LONG seconds) {
  return Locked([&] {
    // A span of no length could never close.
    if (seconds < 1) AtlThrow(E_INVALIDARG);
    CheckHr(static_cast<IResetProcessing*>(this)->Reset());
    m_span.interval = static_cast<ULONG>(seconds);
  });
}

HRESULT HistoryStats::GetStartTime(ZemoTime* time) {
  return Locked([&] {
    CheckOut(time);
    *time = m_startTime;
  });
}

HRESULT HistoryStats::GetSampleCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<LONG>(Count());
  });
}

HRESULT HistoryStats::GetSamples(double** samples, LONG* count) {
  return Locked([&] {
    if (!samples || !count) AtlThrow(E_POINTER);
    *samples = nullptr;
    *count = 0;
    if (m_samples.Empty()) return;
    void* copy = CoTaskMemAlloc(Count() * sizeof(double));
    if (!copy) AtlThrow(E_OUTOFMEMORY);
    m_samples.CopyTo(static_cast<double*>(copy));
    *samples = static_cast<double*>(copy);
    *count = static_cast<LONG>(Count());
  });
}

// --- IZemoStats ---

HRESULT HistoryStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] { HandOutContext(m_context, context); });
}

HRESULT HistoryStats::SetContext(IZemoStatsContext* context) {
  return Locked([&] { m_context = context; });
}

HRESULT HistoryStats::Reset() {
  return Locked([&] {
    m_startTime = 0;
    m_span.Clear();
    m_bytesInSpan = 0;
    m_samples.Clear();
  });
}

// --- sampling ---

void HistoryStats::Append(double closed, uint64_t zeros) {
  if (zeros >= kMaxSamples - m_samples.Size()) AtlThrow(E_OUTOFMEMORY);
  try {
    m_samples.Append(closed, zeros);
  } catch (const std::bad_alloc&) {
    AtlThrow(E_OUTOFMEMORY);
  }
}

void HistoryStats::Advance(ZemoTime now) {
  if (m_startTime == 0) {
    m_startTime = now;
    m_span.Start(now);
  } else if (!m_span.Started()) {
    // A loaded series: it resumes at the end of its last sample, found from
    // its start and its length, so a later packet or tick appends after the
    // loaded samples (with a 0.0 for each interval that really passed)
    // instead of walking from time zero or dropping them.
    m_span.Start(m_startTime);
    m_span.Skip(m_samples.Size());
  }
  uint64_t spans = m_span.Passed(now);
  if (spans == 0) return;
  Append(m_bytesInSpan ? m_span.PerSecond(m_bytesInSpan) : 0.0, spans - 1);
  m_bytesInSpan = 0;
  m_span.Skip(spans);
}

HRESULT HistoryStats::ProcessPacket(IPacket* packet) {
  return Locked([&] {
    if (!packet) AtlThrow(E_INVALIDARG);
    ZemoTime stamp = 0;
    USHORT length = 0;
    CheckHr(packet->GetTimeStamp(&stamp));
    CheckHr(packet->GetPacketLength(&length));
    Advance(stamp);
    m_bytesInSpan += length;
  });
}

HRESULT HistoryStats::ProcessTime(ZemoTime now) {
  return Locked([&] { Advance(now); });
}

// --- persistence ---

HRESULT HistoryStats::GetClassID(CLSID* out) {
  if (!out) return E_POINTER;
  *out = CLSID_HistoryStats;
  return S_OK;
}

HRESULT HistoryStats::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    if (ReadValue<ULONG>(stream) != kStreamVersion) AtlThrow(E_FAIL);
    ULONG interval = ReadValue<ULONG>(stream);
    ZemoTime start = ReadValue<ZemoTime>(stream);
    ULONG count = ReadValue<ULONG>(stream);
    // A zero interval could not step, and samples without a start time
    // could not be placed in time.
    if (interval == 0 || interval > 0x7FFFFFFF || count > kMaxSamples || (start == 0 && count != 0))
      AtlThrow(E_FAIL);
    // Read in pieces, so that memory follows the bytes that really arrive
    // rather than the count the stream claims.
    std::vector<double> samples;
    constexpr size_t kPiece = 4096;
    for (size_t done = 0; done < count;) {
      size_t piece = std::min<size_t>(kPiece, count - done);
      samples.resize(done + piece);
      ReadRecords(stream, std::span<double>(samples.data() + done, piece));
      done += piece;
    }
    m_samples.Assign(std::move(samples));
    m_span.interval = interval;
    m_startTime = start;
    m_span.Clear();
    m_bytesInSpan = 0;
  });
}

HRESULT HistoryStats::Save(IStream* stream, BOOL) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    WriteValue(stream, kStreamVersion);
    WriteValue(stream, m_span.interval);
    WriteValue(stream, m_startTime);
    WriteValue(stream, static_cast<ULONG>(Count()));
    static constexpr double kZeros[512] = {};
    m_samples.ForEachRun([&](const double* values, uint64_t count, uint64_t zeros) {
      WriteRecords(stream, std::span<const double>(values, count));
      for (uint64_t left = zeros; left;) {
        const uint64_t piece = std::min<uint64_t>(left, std::size(kZeros));
        WriteRecords(stream, std::span<const double>(kZeros, piece));
        left -= piece;
      }
    });
  });
}

HRESULT HistoryStats::GetSizeMax(ULARGE_INTEGER* size) {
  return Unlocked([&] {
    CheckOut(size);
    size->QuadPart = 0;
  });
}

HRESULT HistoryStats::Load(IUnknown* document, IUnknown* node) {
  return Unlocked([&] {
    XmlDocumentOf(document);
    XmlNodeOf(node);
  });
}

HRESULT HistoryStats::Save(IUnknown* document, IUnknown* node, BOOL) {
  return Unlocked([&] {
    XmlDocumentOf(document);
    XmlNodeOf(node);
  });
}

// Any extension: the history has one form of text.
HRESULT HistoryStats::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&] {
    if (!fileName) AtlThrow(E_POINTER);
    return WriteTextFile(fileName, FileOpenStyle::System, [&](TextWriter& out) {
      m_samples.ForEach([&](double sample) { out.Printf("%f\n", sample); });
    });
  });
}

}  // namespace zemo
