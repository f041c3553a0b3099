#include "network/dashboard_stats.h"

#include <vector>

#include "frame/clsids.h"
#include "frame/module.h"
#include "frame/stream_persist.h"
#include "platform/class_store.h"

namespace zemo {
namespace {

// Span and interval in seconds, finest first; the sample limit is their quotient.
constexpr DashboardRung kLadder[] = {
    {120, 1},
    {600, 5},
    {1800, 10},
    {3600, 30},
    {7200, 60},
    {21600, 120},
    {43200, 300},
    {86400, 600},
    {604800, 3600},
    {2678400, 21600},
    {0xFFFFFFFF, 86400},
};

// The input of a history without a reference: the rung's reference to the
// same object keeps it valid.
template <class I>
I* InputOf(IHistoryStats* history) {
  ComPtr<I> input;
  CheckHr(QueryTo(history, &input));
  return input.Get();
}

}  // namespace

std::span<const DashboardRung> DashboardLadder() noexcept { return kLadder; }

ULONG DashboardSampleLimit(ULONG interval) noexcept {
  if (interval == 0) return 0;
  for (const DashboardRung& rung : kLadder)
    if (rung.interval == interval) return rung.SampleLimit();
  return kLadder[std::size(kLadder) - 1].span / interval;
}

// By class identifier, so that a host may stand in a class object of its
// own; a module that is not registered still serves its own class.
ComPtr<IHistoryStats> DashboardStats::CreateHistory() {
  ComPtr<IHistoryStats> history;
  HRESULT hr = CreateModuleInstance(CLSID_HistoryStats, IHistoryStats::iid, history.OutVoid());
  CheckHr(hr);
  return history;
}

void DashboardStats::AddRung(ComPtr<IHistoryStats> history, ULONG sampleLimit) {
  Rung rung{nullptr, InputOf<IProcessPacket>(history.Get()), InputOf<IProcessTime>(history.Get()), sampleLimit};
  rung.history = std::move(history);
  m_rungs.push_back(std::move(rung));
}

void DashboardStats::Rebuild() {
  m_rungs.clear();
  m_rungs.reserve(std::size(kLadder));
  for (const DashboardRung& row : kLadder) {
    ComPtr<IHistoryStats> history = CreateHistory();
    CheckHr(history->SetInterval(static_cast<LONG>(row.interval)));
    AddRung(std::move(history), row.SampleLimit());
  }
}

// From the last rung to the first, so that removing one moves only rungs
// already looked at. A history takes sample k when time passes the whole
// second (start second + interval * (k + 1)), whether it was running all
// along or resumes a loaded series, so the time that fills a rung follows
// from its start, its interval and its limit.
void DashboardStats::Trim() {
  for (size_t i = m_rungs.size(); i-- > 0;) {
    Rung& rung = m_rungs[i];
    LONG count = 0, interval = 0;
    ZemoTime start = 0;
    if (SUCCEEDED(rung.history->GetSampleCount(&count)) && static_cast<ULONG>(count) >= rung.sampleLimit) {
      m_rungs.erase(m_rungs.begin() + static_cast<ptrdiff_t>(i));
      continue;
    }
    rung.fullAfter = kNever;
    if (SUCCEEDED(rung.history->GetStartTime(&start)) && start && SUCCEEDED(rung.history->GetInterval(&interval)) &&
        interval > 0) {
      const unsigned __int128 lastEnd =
          (static_cast<unsigned __int128>(start / SampleSpan::kSecond) + uint64_t(interval) * rung.sampleLimit) *
          SampleSpan::kSecond;
      if (lastEnd < kNever) rung.fullAfter = static_cast<ZemoTime>(lastEnd);
    }
  }
}

// Samples come only on whole seconds, so the rungs are looked at once a
// second of packet time at most. A rung that this time would fill is dropped
// before it gets the packet, since the trim would drop it after: a packet
// years after the last must not fill the fine rungs with empty samples only
// to throw them away.
template <class Give>
void DashboardStats::Pass(ZemoTime now, Give&& give) {
  const bool secondPassed = now > m_quietUntil;
  if (secondPassed)
    std::erase_if(m_rungs, [&](const Rung& rung) { return now > rung.fullAfter; });
  for (Rung& rung : m_rungs) give(rung);
  if (!secondPassed) return;
  Trim();
  const ZemoTime whole = now / SampleSpan::kSecond * SampleSpan::kSecond;
  m_quietUntil = whole == now ? now : (whole + SampleSpan::kSecond < whole ? kNever : whole + SampleSpan::kSecond);
}

HRESULT DashboardStats::FinalConstruct() {
  return Locked([&] { Rebuild(); });
}

size_t DashboardStats::RungCount() const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  return m_rungs.size();
}

// --- IDashboardStats ---

HRESULT DashboardStats::GetHistory(IHistoryStats** history) {
  return Locked([&] {
    CheckOut(history);
    if (m_rungs.empty()) AtlThrow(E_INVALIDARG);
    m_rungs.front().history.CopyTo(history);
  });
}

// --- IZemoStats ---

HRESULT DashboardStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] { HandOutContext(m_context, context); });
}

HRESULT DashboardStats::SetContext(IZemoStatsContext* context) {
  return Locked([&] { m_context = context; });
}

HRESULT DashboardStats::Reset() {
  return Locked([&] {
    Rebuild();
    m_quietUntil = 0;
  });
}

// --- packets and time ---

HRESULT DashboardStats::ProcessPacket(IPacket* packet) {
  return Locked([&] {
    if (!packet) AtlThrow(E_INVALIDARG);
    ZemoTime now = 0;
    auto give = [&](Rung& rung) { rung.packetInput->ProcessPacket(packet); };
    // A packet without a time still reaches the rungs, which take nothing from it.
    if (FAILED(packet->GetTimeStamp(&now)))
      for (Rung& rung : m_rungs) give(rung);
    else
      Pass(now, give);
  });
}

HRESULT DashboardStats::ProcessTime(ZemoTime now) {
  return Locked([&] { Pass(now, [&](Rung& rung) { rung.timeInput->ProcessTime(now); }); });
}

// --- IPersistStream ---

HRESULT DashboardStats::GetClassID(CLSID* out) {
  if (!out) return E_POINTER;
  *out = CLSID_DashboardStats;
  return S_OK;
}

// The stream holds no sample limits. A loaded rung takes the limit of the
// ladder's row with its interval (or, for an interval the ladder lacks, what
// the last rung's span holds at that interval), so a loaded dashboard that
// goes on receiving packets drops its rungs where a running one would. The
// histories themselves resume at the end of their loaded series.
HRESULT DashboardStats::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    if (ReadValue<ULONG>(stream) != kStreamVersion) AtlThrow(E_FAIL);
    ULONG count = ReadValue<ULONG>(stream);
    m_rungs.clear();
    m_quietUntil = 0;
    // The count is not trusted for a reservation: each rung is read before
    // the next is made, and a short stream ends the loop.
    for (ULONG i = 0; i < count; ++i) {
      ComPtr<IHistoryStats> history = CreateHistory();
      CheckHr(LoadObjectFromStream(history.Get(), stream));
      LONG interval = 0;
      CheckHr(history->GetInterval(&interval));
      AddRung(std::move(history), DashboardSampleLimit(static_cast<ULONG>(interval)));
    }
  });
}

HRESULT DashboardStats::Save(IStream* stream, BOOL clearDirty) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    WriteValue(stream, kStreamVersion);
    WriteValue(stream, static_cast<ULONG>(m_rungs.size()));
    for (Rung& rung : m_rungs) CheckHr(SaveObjectToStream(rung.history.Get(), stream, clearDirty));
  });
}

HRESULT DashboardStats::GetSizeMax(ULARGE_INTEGER* size) {
  return Unlocked([&] {
    CheckOut(size);
    size->QuadPart = 0;
  });
}

}  // namespace zemo
