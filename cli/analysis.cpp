#include "cli/analysis.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cli/node_views.h"
#include "cli/report.h"
#include "cli/saving.h"
#include "engine/engine.h"
#include "frame/class_table.h"
#include "frame/cloneable.h"
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
  for (const EngineClass& c : EngineClasses())
    if (c.clsid == clsid) return c.name;
  OLECHAR text[39];
  StringFromGUID2(clsid, text, 39);
  return text;
}

bool EnsureDirectory(const std::string& directory, std::string* error) {
  // Each missing folder on the way, as mkdir -p makes them.
  for (size_t at = directory.find('/', 1); at != std::string::npos; at = directory.find('/', at + 1))
    mkdir(directory.substr(0, at).c_str(), 0777);
  if (mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST) {
    *error = directory + ": cannot make the folder: " + std::strerror(errno);
    return false;
  }
  struct stat st {};
  if (stat(directory.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    *error = directory + ": not a folder";
    return false;
  }
  return CanWriteIn(directory, error);
}

bool CanWriteIn(const std::string& directory, std::string* error) {
  // A file made and removed, since permissions alone do not tell (a
  // read-only file system, a root user).
  std::string probe = directory + "/.zemostats-" + std::to_string(getpid());
  int fd = open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
  if (fd < 0) {
    *error = "cannot write in " + directory + ": " + std::strerror(errno);
    return false;
  }
  close(fd);
  unlink(probe.c_str());
  return true;
}

std::string HrReason(HRESULT hr) {
  const char* words = nullptr;
  switch (static_cast<uint32_t>(hr)) {
    case 0x80070002: words = "file not found"; break;
    case 0x80070003: words = "no such folder"; break;
    case 0x80070005: words = "permission denied"; break;
    case 0x80070008: case 0x8007000E: words = "out of memory"; break;
    case 0x80070013: words = "read-only file system"; break;
    case 0x80070070: case 0x80030070: words = "no space left on the device"; break;
    case 0x800700CE: words = "the name is too long"; break;
    default: break;
  }
  return words ? std::string(words) + ", " + HrText(hr) : HrText(hr);
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
  // The statistics of radio channels and nodes join 802.11 captures only.
  const bool wireless = m_medium.subType == MediumOfLinkType(link::kIeee80211).subType;
  const auto radioOnly = [](REFCLSID clsid) {
    for (const CLSID* c : {&CLSID_WirelessChannelStats, &CLSID_WirelessChannelStats2, &CLSID_WirelessNodeStats,
                           &CLSID_WirelessNodeStats2})
      if (clsid == *c) return true;
    return false;
  };
  for (const ClassInfo& row : ClassTable()) {
    if (row.clsid == CLSID_StatsContext) continue;
    if (!wireless && radioOnly(row.clsid)) continue;
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
  if (wireless) m_wireless = std::make_unique<WirelessWatch>();
  AddHostParts();
  CollectStatistics();
  CheckHr(m_context.As(&m_process));
  CheckHr(m_context.As(&m_time));
  m_context.As(&m_events);
  return true;
}

void Analysis::AddHostParts() {
  m_expert = ExpertStats::Create();
  CheckHr(m_context->AddStats(CLSID_KorvantExpertStats, m_expert.Get()));
  m_captureFacts = CaptureFacts::Create();
  m_site = Site::Create();
  m_site->SetService(kServiceUpdateSummaryStats, m_captureFacts->GetUnknown());
  CheckHr(m_context.Query<IObjectWithSite>()->SetSite(static_cast<IServiceProvider*>(m_site.Get())));
}

void Analysis::DescribeSource(const CaptureFactsData& facts, bool live) {
  if (m_captureFacts) m_captureFacts->Set(facts);
  // A live capture's clock starts at its first description.
  if (!live)
    m_liveSince = 0;
  else if (!m_liveSince)
    m_liveSince = MonotonicNs();
}

void Analysis::SetPacketsDropped(uint64_t dropped) {
  if (m_site) CheckHr(m_site->SetProperty(u"PacketsDropped", CVariant::UI8(dropped)));
}

void Analysis::RefreshDuration() {
  if (!m_site) return;
  ULONGLONG duration = 0;
  if (m_liveSince)
    duration = MonotonicNs() - m_liveSince;
  else if (m_facts.frames)
    m_context->GetDuration(&duration);
  CheckHr(m_site->SetProperty(u"Duration", CVariant::I8(static_cast<int64_t>(duration))));
}

HRESULT Analysis::UpdateSummary() {
  if (!m_context) return E_FAIL;
  RefreshDuration();
  return m_context->UpdateStats();
}

ComPtr<ISummaryStats> Analysis::Summary() const {
  ComPtr<ISummaryStats> summary;
  if (m_context) m_context->GetStats(CLSID_SummaryStats, ISummaryStats::iid, summary.OutVoid());
  return summary;
}

// A copy of the summary as it stands at a tick, kept in SummaryStats beside
// the current one. Off the packet path, like every tick's work.
void Analysis::StoreSummary(ZemoTime tick) {
  const uint64_t second = tick / kSecond;
  if (!m_summaryEvery || (m_summaryDue && second < m_summaryDue)) return;
  m_summaryDue = second + m_summaryEvery;
  ComPtr<ISummaryStats> summary = Summary();
  ComPtr<ISummaryStatsSnapshot> current;
  if (!summary || FAILED(summary->GetSnapshot(0, current.ReleaseAndGetAddressOf()))) return;
  UpdateSummary();
  ComPtr<IUnknown> copy;
  CheckHr(current.Query<ICloneable>()->Clone(copy.ReleaseAndGetAddressOf()));
  ComPtr<ISummaryStatsSnapshot> stored = copy.Query<ISummaryStatsSnapshot>();
  // A copy has its source's id; a stored one gets its own, so that saves
  // and loads tell them apart.
  GUID id{};
  CheckHr(CoCreateGuid(&id));
  CheckHr(stored->SetID(id));
  CheckHr(stored->SetName(CBstr(FromUtf8(IsoTime(tick))).Get()));
  CheckHr(summary->AddSnapshot(stored.Get()));
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
  // What the site says of the capture's duration, for a summary written now.
  RefreshDuration();
  // Before the hooks, so that a save at this tick holds the summary stored here.
  StoreSummary(second * kSecond);
  for (const auto& hook : m_onTick) hook(second * kSecond);
}

void Analysis::Decode(const CaptureFrame& frame, DecodedFrame& out) const {
  out.bytes.assign(frame.data, frame.data + frame.captureLength);
  out.frame = frame;
  out.frame.data = out.bytes.data();
  out.faults = m_decoder.Decode(*out.packet, out.frame.data, frame.captureLength, frame.wireLength, frame.time);
}

void Analysis::Process(const DecodedFrame& decoded) {
  const CaptureFrame& frame = decoded.frame;
  RunFacts& f = m_facts;
  const uint64_t number = ++f.frames;
  f.bytes += frame.wireLength;
  if (frame.wireLength > 0xFFFF) ++f.shortened;
  if (frame.captureLength < frame.wireLength) ++f.truncated;
  if ((decoded.faults & kFaultForeign) && !f.foreign++) f.firstForeign = number;
  if (!frame.validTime) {
    if (!f.invalidTimes++) f.firstInvalidTime = number;
  } else {
    if (m_lastValidTime && frame.time < m_lastValidTime && !f.outOfOrder++) f.firstOutOfOrder = number;
    if (!f.earliest || frame.time < f.earliest) f.earliest = frame.time;
    f.latest = std::max(f.latest, frame.time);
    m_lastValidTime = frame.time;
  }
  m_traffic.Add(frame.time, frame.wireLength);
  m_lastTime = frame.time;
  uint64_t second = frame.time / kSecond;
  if (second > m_second) {
    if (m_second)
      TickTo(second);
    else if (m_events)
      m_events->OnStartProcessing(frame.time);
    m_second = second;
  }
  if (!m_decoder.Known()) ++f.undecoded;
  if (decoded.faults) m_expert->Count(decoded.faults);

  if (m_wireless) m_wireless->Observe(decoded.packet.Get());
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
    TickTo(second);
    m_second = second;
  }
}

void Analysis::Finish() {
  if (m_facts.frames && m_time) m_time->ProcessTime(m_lastTime);
  if (m_events) m_events->OnStopProcessing(m_lastTime);
  // The packets of the last second are sampled when it ends.
  if (m_second && m_onSecond) m_onSecond((m_second + 1) * kSecond, false);
}

std::vector<std::string> Analysis::Warnings(const std::string& linkTypeName) const {
  const RunFacts& f = m_facts;
  std::vector<std::string> out;
  auto packets = [](uint64_t n) { return std::to_string(n) + (n == 1 ? " packet" : " packets"); };
  auto verb = [](uint64_t n, const char* one, const char* more) { return std::string(n == 1 ? one : more); };
  if (f.foreign)
    out.push_back(packets(f.foreign) + " (the first: packet " + std::to_string(f.firstForeign) +
                  ") " + verb(f.foreign, "does", "do") + " not hold the protocol that link type " + linkTypeName +
                  " carries; " + verb(f.foreign, "it counts", "they count") +
                  " without addresses or protocols, as a frame error");
  if (f.outOfOrder)
    out.push_back("the packets are not in time order: " + packets(f.outOfOrder) + " " +
                  verb(f.outOfOrder, "comes", "come") + " earlier than the one before (the first: packet " +
                  std::to_string(f.firstOutOfOrder) +
                  "); Start and Stop are the earliest and latest times");
  if (f.invalidTimes == 1)
    out.push_back("packet " + std::to_string(f.firstInvalidTime) +
                  " has an invalid time stamp (its fraction is a second or more); it counts at the time of the "
                  "packet before it and is left out of Start, Stop and the rates");
  else if (f.invalidTimes)
    out.push_back(packets(f.invalidTimes) + " have invalid time stamps (their fraction is a second or more; the "
                  "first: packet " + std::to_string(f.firstInvalidTime) +
                  "); each counts at the time of the packet before it and is left out of Start, Stop and the rates");
  if (f.shortened)
    out.push_back(packets(f.shortened) + " longer than 65535 bytes " + verb(f.shortened, "counts", "count") +
                  " as 65535 bytes in the statistics, whose packet lengths are 16-bit; the capture's packets and "
                  "bytes are whole");
  return out;
}

}  // namespace zemo::cli
