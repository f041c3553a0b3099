#include "tables/stats_limit.h"

#include "frame/stream_persist.h"
#include "frame/xml_persist.h"
#include "platform/clock.h"

namespace zemo {

namespace {

std::u16string LimitMessage(const char16_t* name, bool reset) {
  return u"The " + std::u16string(name) + (reset ? u" limit was reached and reset." : u" limit was reached.");
}

constexpr char16_t kResetCountAttribute[] = u"resetcount";

}  // namespace

HRESULT StatsLimit::GetSettings(IZemoStatsLimitSettings** settings) {
  if (!settings) return E_POINTER;
  std::lock_guard hold(m_limitLock);  // a ComPtr copy races a SetSettings without it
  m_settings.CopyTo(settings);
  return S_OK;
}

HRESULT StatsLimit::SetSettings(IZemoStatsLimitSettings* settings) {
  if (!settings) return E_POINTER;
  std::lock_guard statistic(StatisticLock());
  std::lock_guard hold(m_limitLock);
  m_settings = settings;
  return S_OK;
}

HRESULT StatsLimit::GetContextId(GUID* id) {
  if (!id) return E_POINTER;
  std::lock_guard hold(m_limitLock);
  *id = m_contextId;
  return S_OK;
}

HRESULT StatsLimit::SetContextId(REFGUID id) {
  std::lock_guard statistic(StatisticLock());
  std::lock_guard hold(m_limitLock);
  m_contextId = id;
  return S_OK;
}

HRESULT StatsLimit::GetNotifySink(INotify** sink) {
  if (!sink) return E_POINTER;
  std::lock_guard hold(m_limitLock);
  m_sink.CopyTo(sink);
  return S_OK;
}

HRESULT StatsLimit::SetNotifySink(INotify* sink) {
  std::lock_guard statistic(StatisticLock());
  std::lock_guard hold(m_limitLock);
  m_sink = sink;
  return S_OK;
}

HRESULT StatsLimit::GetResetCount(ULONG* count) {
  if (!count) return E_POINTER;
  std::lock_guard hold(m_limitLock);
  *count = m_resetCount.load();
  return S_OK;
}

HRESULT StatsLimit::AddLinkedStatistic(IUnknown* stats) {
  if (!stats) return E_POINTER;
  std::lock_guard statistic(StatisticLock());
  return Boundary([&] { m_linked.push_back(stats); });
}

HRESULT StatsLimit::Pause() {
  m_paused.store(1);
  return S_OK;
}

HRESULT StatsLimit::Reset() {
  ResetLimitState();
  return S_OK;
}

void StatsLimit::ResetLimitState() noexcept {
  m_resetCount.fetch_add(1);
  m_paused.store(0);
  m_reachedTime = kNotReached;
}

HRESULT StatsLimit::CheckLimit(ULONG count) noexcept {
  if (IsPaused() || !m_settings) return S_OK;
  return Boundary([&]() -> HRESULT {
    ULONG limit = 0;
    CheckHr(m_settings->GetLimit(&limit));
    // Reached before and not reset since: no test until a reset.
    if (m_reachedTime != kNotReached) return S_OK;
    if (limit > count) return S_OK;

    // Wall-clock time, and set before anything can fail, so that a failing
    // sink does not make every later packet run the check again.
    m_reachedTime = Now();
    LONG notify = 0, severity = 0, enabled = 0, reset = 0;
    CheckHr(m_settings->GetNotify(&notify, &severity));
    CheckHr(m_settings->GetEnabled(&enabled));
    CheckHr(m_settings->GetReset(&reset));
    if (notify && m_sink) {
      std::u16string message = LimitMessage(m_statisticName, reset != 0);
      CheckHr(m_sink->Notify(m_contextId, GUID_NULL, 0, 0, severity, message.c_str(), nullptr));
    }
    if (!enabled) return S_OK;
    return Enforce(reset != 0);
  });
}

HRESULT StatsLimit::Enforce(bool reset) {
  if (reset)
    ResetStatistic();
  else
    m_paused.store(1);
  for (IUnknown* linked : m_linked) {
    if (reset) {
      ComPtr<IZemoStats> stats;
      if (SUCCEEDED(QueryTo(linked, &stats))) CheckHr(stats->Reset());
    } else {
      ComPtr<IZemoStatsLimit> limit;
      if (SUCCEEDED(QueryTo(linked, &limit))) CheckHr(limit->Pause());
    }
  }
  return S_OK;
}

void StatsLimit::ResetStatistic() {
  ComPtr<IZemoStats> self;
  CheckHr(QueryTo(static_cast<IZemoStatsLimit*>(this), &self));
  CheckHr(self->Reset());
}

void StatsLimit::ApplyLoadedResetCount(ULONG loaded) {
  if (loaded == m_resetCount.load()) return;
  ResetStatistic();
  m_resetCount.store(loaded);
}

void StatsLimit::SaveStreamDeltas(IStream* stream, const ZemoTime* since) {
  if (!stream || !since) AtlThrow(E_POINTER);
  std::lock_guard hold(m_limitLock);
  WriteValue(stream, m_resetCount.load());
}

void StatsLimit::LoadStream(IStream* stream) {
  if (!stream) AtlThrow(E_POINTER);
  std::lock_guard hold(m_limitLock);
  ApplyLoadedResetCount(ReadValue<ULONG>(stream));
}

void StatsLimit::SaveXmlDeltas(IXMLDOMElement* element, const ZemoTime* since) {
  if (!element || !since) AtlThrow(E_POINTER);
  std::lock_guard hold(m_limitLock);
  SetAttribute(element, kResetCountAttribute, m_resetCount.load());
}

void StatsLimit::LoadXml(IXMLDOMElement* element) {
  if (!element) AtlThrow(E_POINTER);
  std::lock_guard hold(m_limitLock);
  ULONG loaded = 0;
  if (GetAttribute(element, kResetCountAttribute, loaded)) ApplyLoadedResetCount(loaded);
}

}  // namespace zemo
