#include "cli/analysis.h"

#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cli/node_views.h"
#include "cli/saving.h"
#include "engine/engine.h"
#include "frame/class_table.h"
#include "frame/clsids.h"
#include "frame/module.h"
#include "frame/persist_interfaces.h"
#include "platform/class_store.h"
#include "platform/strings.h"
#include "tables/rolling_node_stats.h"

namespace zemo::cli {
namespace {

constexpr uint64_t kSecond = 1000000000ull;
// A longer silence than this in packet time (or a broken time stamp) gets
// one tick instead of one for each second.
constexpr uint64_t kMaxTicksPerGap = 3600;

std::string Lower(std::u16string_view text) {
  std::string s = ToUtf8(text);
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

}  // namespace

std::string HrText(HRESULT hr) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(hr));
  return buf;
}

uint64_t MonotonicNs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return uint64_t(ts.tv_sec) * kSecond + uint64_t(ts.tv_nsec);
}

CLSID ClassOfStatistic(IUnknown* stats) {
  CLSID clsid = GUID_NULL;
  ComPtr<IPersistStream> stream;
  ComPtr<IPersistXml> xml;
  ComPtr<IPersist> persist;
  if (SUCCEEDED(stats->QueryInterface(IPersistStream::iid, stream.OutVoid())))
    stream->GetClassID(&clsid);
  else if (SUCCEEDED(stats->QueryInterface(IPersistXml::iid, xml.OutVoid())))
    xml->GetClassID(&clsid);
  else if (SUCCEEDED(stats->QueryInterface(IPersist::iid, persist.OutVoid())))
    persist->GetClassID(&clsid);
  return clsid;
}

std::u16string ClassNameOf(REFCLSID clsid) {
  if (const ClassInfo* row = FindClass(clsid)) return row->name;
  OLECHAR text[39];
  StringFromGUID2(clsid, text, 39);
  return text;
}

bool EnsureDirectory(const std::string& directory, std::string* error) {
  if (mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST) {
    *error = directory + ": " + std::strerror(errno);
    return false;
  }
  struct stat st {};
  if (stat(directory.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    *error = directory + ": not a directory";
    return false;
  }
  return true;
}

bool Analysis::CreateContext(std::string* error) {
  // The module and the engine objects it creates by program identifier are
  // both in this program; registering again only repairs keys.
  HRESULT hr = DllRegisterServer();
  if (SUCCEEDED(hr)) hr = RegisterEngineClasses();
  if (FAILED(hr)) {
    *error = "cannot register the statistics module: " + HrText(hr);
    return false;
  }
  hr = CoCreateInstance(CLSID_StatsContext, nullptr, CLSCTX_INPROC_SERVER, IZemoStatsContext::iid,
                        m_context.OutVoid());
  if (FAILED(hr)) {
    *error = "cannot create the statistics context: " + HrText(hr);
    return false;
  }
  return true;
}

void Analysis::CollectStatistics() {
  m_statistics.clear();
  ULONG count = 0;
  m_context->GetStatsCount(&count);
  for (ULONG i = 0; i < count; ++i) {
    ComPtr<IZemoStats> stats;
    if (FAILED(m_context->GetStatsAt(i, stats.ReleaseAndGetAddressOf())) || !stats) continue;
    std::u16string name = ClassNameOf(ClassOfStatistic(stats.Get()));
    StatisticEntry entry{name, Lower(name), stats};
    ComPtr<ISelectableObject> selectable;
    CBstr selectName;
    if (SUCCEEDED(stats.As(&selectable)) && SUCCEEDED(selectable->GetSelectName(selectName.Out())) &&
        selectName.Length()) {
      entry.selectName = selectName.Utf8();
      entry.selectable = true;
    }
    m_statistics.push_back(std::move(entry));
  }
}

bool Analysis::Start(uint32_t linkType, uint64_t linkSpeed, std::string* error) {
  if (!CreateContext(error)) return false;
  m_decoder = FrameDecoder(linkType);
  m_medium = MediumOfLinkType(linkType);
  // The medium first: a statistic configures itself from it when added.
  m_context->SetMediaType(m_medium.type);
  m_context->SetMediaSubType(m_medium.subType);
  m_context->SetLinkSpeed(linkSpeed);

  // Every class the module serves and that is a statistic of the medium
  // joins the context, under its class identifier. Classes not built yet
  // fail creation and are passed over, and so are the classes that are no
  // statistics.
  // The rolling window is made in the shape asked for, which its
  // interfaces cannot change.
  // The statistics of radio channels join 802.11 captures only.
  const bool wireless = m_medium.subType == MediumOfLinkType(link::kIeee80211).subType;
  for (const ClassInfo& row : ClassTable()) {
    if (row.clsid == CLSID_StatsContext) continue;
    if (!wireless && (row.clsid == CLSID_WirelessChannelStats || row.clsid == CLSID_WirelessChannelStats2)) continue;
    ComPtr<IZemoStats> stats;
    HRESULT hr;
    if (row.clsid == CLSID_RollingNodeStats && m_window) {
      WindowShape shape = WindowShapeFor(m_window);
      hr = RollingNodeStats::CreateObject(IZemoStats::iid, stats.OutVoid(), shape.buckets, shape.bucketSeconds);
    } else {
      hr = CoCreateInstance(row.clsid, nullptr, CLSCTX_INPROC_SERVER, IZemoStats::iid, stats.OutVoid());
    }
    if (FAILED(hr)) continue;
    m_context->AddStats(row.clsid, stats.Get());
  }
  CollectStatistics();
  CheckHr(m_context.As(&m_process));
  CheckHr(m_context.As(&m_time));
  m_context.As(&m_events);
  return true;
}

bool Analysis::StartFromSaves(const std::vector<std::string>& paths, std::string* error) {
  if (!CreateContext(error) || !LoadContextFiles(m_context.Get(), paths, error)) return false;
  m_fromSaves = true;
  ULONG type = 0, subType = 0;
  m_context->GetMediaType(&type);
  m_context->GetMediaSubType(&subType);
  m_medium = LinkMedium{type, subType};
  CollectStatistics();
  return true;
}

void Analysis::TickTo(uint64_t second) {
  const bool jumped = second - m_second > kMaxTicksPerGap;
  uint64_t from = jumped ? second : m_second + 1;
  for (uint64_t s = from; s <= second; ++s) {
    m_time->ProcessTime(s * kSecond);
    if (m_onSecond) m_onSecond(s * kSecond, jumped);
  }
  for (const auto& hook : m_onTick) hook(second * kSecond);
}

void Analysis::Decode(const CaptureFrame& frame, DecodedFrame& out) const {
  out.bytes.assign(frame.data, frame.data + frame.captureLength);
  out.frame = frame;
  out.frame.data = out.bytes.data();
  m_decoder.Decode(*out.packet, out.frame.data, frame.captureLength, frame.wireLength, frame.time);
}

void Analysis::Process(const DecodedFrame& decoded) {
  const CaptureFrame& frame = decoded.frame;
  ++m_facts.frames;
  m_lastTime = frame.time;
  uint64_t second = frame.time / kSecond;
  if (second > m_second) {
    m_facts.peakPackets = std::max(m_facts.peakPackets, m_secondPackets);
    m_facts.peakBytes = std::max(m_facts.peakBytes, m_secondBytes);
    m_secondPackets = m_secondBytes = 0;
    if (m_second)
      TickTo(second);
    else
      if (m_events) m_events->OnStartProcessing(frame.time);
    m_second = second;
  }
  ++m_secondPackets;
  m_secondBytes += frame.wireLength;
  if (!m_decoder.Known()) ++m_facts.undecoded;

  if (!m_timing) {
    m_process->ProcessPacket(decoded.packet.Get());
    return;
  }
  uint64_t t0 = MonotonicNs();
  m_process->ProcessPacket(decoded.packet.Get());
  m_facts.engineNs += MonotonicNs() - t0;
}

void Analysis::Idle(ZemoTime now) {
  uint64_t second = now / kSecond;
  if (m_second && second > m_second) {
    m_facts.peakPackets = std::max(m_facts.peakPackets, m_secondPackets);
    m_facts.peakBytes = std::max(m_facts.peakBytes, m_secondBytes);
    m_secondPackets = m_secondBytes = 0;
    TickTo(second);
    m_second = second;
  }
}

void Analysis::Finish() {
  m_facts.peakPackets = std::max(m_facts.peakPackets, m_secondPackets);
  m_facts.peakBytes = std::max(m_facts.peakBytes, m_secondBytes);
  if (m_facts.frames && m_time) m_time->ProcessTime(m_lastTime);
  if (m_events) m_events->OnStopProcessing(m_lastTime);
  // The packets of the last second are sampled when it ends.
  if (m_second && m_onSecond) m_onSecond((m_second + 1) * kSecond, false);
}

}  // namespace zemo::cli
