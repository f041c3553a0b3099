#include "cli/alarm_watch.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <pugixml.hpp>
#include <sstream>

#include "alarms/node_stats_tracker.h"
#include "alarms/protocol_stats_tracker.h"
#include "cli/analysis.h"
#include "cli/report.h"
#include "engine/media_utils.h"
#include "engine/proto_specs.h"
#include "engine/spec_values.h"
#include "frame/clsids.h"
#include "frame/stream_persist.h"
#include "frame/xml_persist.h"
#include "platform/class_store.h"
#include "platform/stream.h"
#include "platform/strings.h"
#include "wireless/channel_naming.h"
#include "wireless/wireless_channel_stats_tracker.h"

namespace zemo::cli {
namespace {

constexpr ZemoTime kSecond = 1000000000ull;

// The sink of one alarm: each change of state goes to the watch, which asks
// the alarm for its new state on the same thread.
class AlarmEventSink final : public Object<AlarmEventSink, INotify> {
 public:
  AlarmEventSink(AlarmWatch* watch, size_t index) : m_watch(watch), m_index(index) {}
  HRESULT Notify(const GUID&, const GUID&, ULONG, ZemoTime time, LONG severity, LPCOLESTR message,
                 LPCOLESTR) override {
    return Boundary([&] { m_watch->Record(m_index, time, severity, message); });
  }

 private:
  AlarmWatch* m_watch;  // outlives the alarms' use of the sink
  size_t m_index;
};

// What a load status of an alarm element means to the one who wrote it.
std::string LoadFailure(HRESULT hr) {
  std::string why;
  switch (hr) {
    case E_FAIL: why = "an element or attribute it needs is missing or malformed"; break;
    case CO_E_CLASSSTRING: why = "a clsid is not an identifier in braces"; break;
    case CLASS_E_CLASSNOTAVAILABLE:
    case REGDB_E_CLASSNOTREG: why = "a clsid names no class this module serves"; break;
    case E_NOINTERFACE: why = "a clsid names a class that is no alarm or no tracker"; break;
    case E_INVALIDARG: why = "a value is out of range (a tracker's history is 0 to 86400 seconds)"; break;
    case DISP_E_TYPEMISMATCH:
    case DISP_E_OVERFLOW: why = "an attribute does not hold a value of its kind (a number, an identifier)"; break;
    default: why = "it does not load"; break;
  }
  return why + " (" + HrText(hr) + ")";
}

size_t LineOf(const std::string& text, ptrdiff_t offset) {
  if (offset < 0) return 0;
  const auto end = text.begin() + std::min<ptrdiff_t>(offset, static_cast<ptrdiff_t>(text.size()));
  return 1 + static_cast<size_t>(std::count(text.begin(), end, '\n'));
}

// The numbers a tracker can follow, for a message that says which are there.
std::string StatChoices(IZemoStatsTracker* tracker) {
  std::string list;
  LONG count = 0;
  tracker->GetStatCount(&count);
  for (LONG i = 0; i < count; ++i) {
    CVariant id;
    CBstr name;
    if (FAILED(tracker->GetStatID(i, &id)) || FAILED(tracker->GetStatName(id, name.Out()))) continue;
    id.ChangeTo(VT_I4);
    list += (list.empty() ? "" : ", ") + std::to_string(id.lVal) + " " + name.Utf8();
  }
  return list;
}

// What keeps a loaded alarm from running, or empty.
std::string Unrunnable(IAlarm* alarm) {
  AlarmTrackType trackType{};
  CheckHr(alarm->GetTrackType(&trackType));
  if (trackType < kAlarmTrackValue || trackType > kAlarmTrackRate)
    return "tracktype " + std::to_string(trackType) +
           " is none of 1 (the value), 2 (its change since the last round), 3 (its rate)";
  ComPtr<IZemoStatsTracker> tracker;
  CheckHr(alarm->GetStatsTracker(tracker.ReleaseAndGetAddressOf()));
  if (!tracker) return "it has no <stattracker>: there is nothing to evaluate";
  CVariant stat;
  CBstr name;
  CheckHr(tracker->GetStat(&stat));
  if (FAILED(tracker->GetStatName(stat, name.Out())))
    return "its tracker's stattype " + std::to_string(stat.lVal) + " is not one it can follow; it follows " +
           StatChoices(tracker.Get());
  LONG history = 0;
  CheckHr(tracker->GetHistory(&history));
  if (history < 2 && trackType != kAlarmTrackValue)
    return "its tracker keeps " + std::to_string(history) +
           " seconds; a rate or a change needs at least 2";
  bool any = false;
  for (AlarmConditionKind kind : {kAlarmResolve, kAlarmSuspect, kAlarmProblem}) {
    LONG enabled = 0, duration = 0, severity = 0;
    AlarmComparison comparison{};
    double threshold = 0;
    CheckHr(alarm->GetConditionEnabled(kind, &enabled));
    CheckHr(alarm->GetCondition(kind, &duration, &comparison, &threshold, &severity));
    if (!enabled) continue;
    any = true;
    const std::string which = std::string("its ") + StateWord(kind) + " condition";
    if (comparison < kAlarmLess || comparison > kAlarmNotEqual)
      return which + " has comparison " + std::to_string(comparison) +
             ", none of 1 (<), 2 (<=), 3 (>), 4 (>=), 5 (=), 6 (differs)";
    if (duration < 0) return which + " has a negative duration";
  }
  if (!any) return "no condition is enabled";
  return {};
}

ComPtr<IAlarmCollection> NewCollection() {
  ComPtr<IAlarmCollection> collection;
  CheckHr(CoCreateInstance(CLSID_AlarmCollection, nullptr, CLSCTX_INPROC_SERVER, IAlarmCollection::iid,
                           collection.OutVoid()));
  return collection;
}

}  // namespace

const char* StateWord(LONG state) {
  switch (state) {
    case kAlarmSuspect: return "suspect";
    case kAlarmProblem: return "problem";
    case kAlarmResolve: return "resolved";
    default: return "unknown";
  }
}

bool ParseAddress(const std::string& text, MediaSpec* spec) {
  uint8_t bytes[16];
  if (inet_pton(AF_INET, text.c_str(), bytes) == 1) {
    *spec = specs::Ipv4(bytes);
    return true;
  }
  if (inet_pton(AF_INET6, text.c_str(), bytes) == 1) {
    *spec = specs::Ipv6(bytes);
    return true;
  }
  // aa:bb:cc:dd:ee:ff or aa-bb-cc-dd-ee-ff, digits of either case.
  if (text.size() != 17) return false;
  for (size_t i = 0; i < 6; ++i) {
    if (i && text[3 * i - 1] != text[2]) return false;
    int hi = HexDigitValue(static_cast<char16_t>(text[3 * i])), lo = HexDigitValue(static_cast<char16_t>(text[3 * i + 1]));
    if (hi < 0 || lo < 0) return false;
    bytes[i] = static_cast<uint8_t>(hi * 16 + lo);
  }
  if (text[2] != ':' && text[2] != '-') return false;
  *spec = specs::Ethernet(bytes);
  return true;
}

bool ParseProtocol(const std::string& name, MediaSpec* spec) {
  const uint16_t id = proto::ByName(FromUtf8(name));
  if (id == proto::kNone) return false;
  *spec = specs::Protocol(id);
  return true;
}

bool ParseChannelLabel(const std::string& label, SWirelessChannel* channel) {
  // The number, " - " and the frequency's digits: what a label reads back by.
  size_t at = 0;
  auto digits = [&] {
    const size_t from = at;
    while (at < label.size() && std::isdigit(static_cast<unsigned char>(label[at]))) ++at;
    return at > from;
  };
  if (at < label.size() && label[at] == '-') ++at;
  if (!digits() || label.compare(at, 3, " - ") != 0) return false;
  at += 3;
  if (!digits()) return false;
  *channel = ParseChannel(FromUtf8(label));
  return true;
}

AlarmWatch::AlarmWatch() = default;

AlarmWatch::~AlarmWatch() {
  // The server goes first: the alarms' sinks point back at this watch.
  m_tick = nullptr;
  m_server = nullptr;
  for (ComPtr<IAlarm>& alarm : m_alarms) alarm->SetNotifySink(nullptr);
}

bool AlarmWatch::LoadAlarms(const std::string& path, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = path + ": cannot be read: " + std::strerror(errno);
    return false;
  }
  std::stringstream content;
  content << in.rdbuf();
  const std::string text = content.str();

  pugi::xml_document document;
  pugi::xml_parse_result parsed = document.load_buffer(text.data(), text.size());
  if (!parsed) {
    *error = path + ": line " + std::to_string(LineOf(text, parsed.offset)) + ": not well-formed XML (" +
             parsed.description() + ")";
    return false;
  }
  pugi::xml_node root = document.document_element();
  if (std::string_view(root.name()) != "Alarms") {
    *error = path + ": the document element is <" + root.name() +
             ">; an alarm collection file holds <Alarms> with an <Alarmobj> for each alarm";
    return false;
  }

  // Each alarm alone, through the collection's own loader, so that a fault
  // is told with its place; then what would keep it from running.
  struct Seen {
    GUID id;
    std::string name;
    size_t line;
  };
  std::vector<Seen> seen;
  try {
    size_t index = 0;
    for (pugi::xml_node element : root.children()) {
      if (element.type() != pugi::node_element) continue;
      ++index;
      const size_t line = LineOf(text, element.offset_debug());
      const std::string where = path + ": line " + std::to_string(line) + ": alarm " + std::to_string(index);
      std::ostringstream alone;
      alone << "<Alarms>";
      element.print(alone, "", pugi::format_raw);
      alone << "</Alarms>";
      const std::string markup = alone.str();
      ComPtr<IAlarmCollection> single = NewCollection();
      HRESULT hr = LoadObjectFromStream(single.Get(), CreateReadOnlyStream(markup.data(), markup.size()).Get());
      if (FAILED(hr)) {
        *error = where + " cannot be loaded: " + LoadFailure(hr);
        return false;
      }
      ComPtr<IAlarm> alarm;
      CheckHr(single->GetAlarm(0, alarm.ReleaseAndGetAddressOf()));
      CBstr name;
      GUID id{};
      CheckHr(alarm->GetName(name.Out()));
      CheckHr(alarm->GetID(&id));
      const std::string problem = Unrunnable(alarm.Get());
      if (!problem.empty()) {
        *error = where + " (\"" + name.Utf8() + "\"): " + problem;
        return false;
      }
      for (const Seen& s : seen)
        if (s.id == id)
          m_warnings.push_back(where + " (\"" + name.Utf8() + "\") has the id of the alarm \"" + s.name + "\" of line " +
                               std::to_string(s.line) + ", and replaces it");
      seen.push_back({id, name.Utf8(), line});
    }
    if (seen.empty()) {
      *error = path + ": <Alarms> holds no alarm";
      return false;
    }

    // The whole file, as the collection's file form.
    ComPtr<IAlarmCollection> collection = NewCollection();
    HRESULT hr = collection.Query<IPersistFile>()->Load(FromUtf8(path).c_str(), 0);
    if (FAILED(hr)) {
      *error = path + ": cannot be loaded: " + LoadFailure(hr);
      return false;
    }
    LONG count = 0;
    CheckHr(collection->GetCount(&count));
    for (LONG i = 0; i < count; ++i) {
      ComPtr<IAlarm> alarm;
      CBstr name;
      CheckHr(collection->GetAlarm(i, alarm.ReleaseAndGetAddressOf()));
      CheckHr(alarm->GetName(name.Out()));
      m_alarms.push_back(alarm);
      m_alarmNames.push_back(name.Utf8());
    }
  } catch (const CAtlException& e) {
    *error = path + ": cannot be read as alarms: " + HrText(e.Status());
    return false;
  }
  m_alarmsFile = path;
  return true;
}

void AlarmWatch::AddTrack(std::string kind, const std::string& name, const MediaSpec& key) {
  Track t;
  t.kind = std::move(kind);
  t.name = name;
  t.text = ToUtf8(SpecText(key));
  t.key = key;
  m_tracks.push_back(std::move(t));
}

void AlarmWatch::AddChannelTrack(const std::string& label, const SWirelessChannel& channel) {
  Track t;
  t.kind = "channel";
  t.name = label;
  t.text = ToUtf8(FormatChannel(channel));
  t.channel = channel;
  m_tracks.push_back(std::move(t));
}

bool AlarmWatch::Start(IZemoStatsContext* context, std::string* error) {
  m_context = context;
  HRESULT hr = Boundary([&] {
    CheckHr(CoCreateInstance(CLSID_StatsServer, nullptr, CLSCTX_INPROC_SERVER, IZemoStatsServer::iid,
                             m_server.OutVoid()));
    m_tick = m_server.Query<IProcessTime>();
    CheckHr(m_server->SetContext(context));
    for (size_t i = 0; i < m_alarms.size(); ++i) {
      ComPtr<INotify> sink;
      CheckHr(AlarmEventSink::CreateObject(INotify::iid, sink.OutVoid(), this, i));
      CheckHr(m_alarms[i]->SetNotifySink(sink.Get()));
      CheckHr(m_server->AddAlarm(m_alarms[i].Get()));
    }
    // Trackers of a node or protocol come from the statistic that knows it,
    // as a host asks for them.
    for (Track& t : m_tracks) {
      const bool node = t.kind == "node", channel = t.kind == "channel";
      ComPtr<IZemoStatsTrackerFactory> factory;
      const HRESULT found = context->GetStats(
          node ? CLSID_NodeStats : channel ? CLSID_WirelessChannelStats : CLSID_ProtocolStatsByID,
          IZemoStatsTrackerFactory::iid, factory.OutVoid());
      // A capture of another medium has no channels: the channel never appears.
      if (channel && FAILED(found)) continue;
      CheckHr(found);
      // A channel's tracker is described by its label, the others by an
      // element naming the address or protocol.
      CVariant description = CVariant::Str(FromUtf8(t.text));
      if (!channel) {
        ComPtr<IXMLDOMDocument> document = CreateXmlDocument();
        ComPtr<IXMLDOMElement> element = CreateXmlElement(document.Get(), node ? u"node" : u"protocol");
        SaveSpecAttributes(element.Get(), t.key);
        AppendXmlChild(document.Get(), element.Get());
        description = CVariant::Unknown(document.Get());
      }
      const LONG packets = node      ? LONG{kNodeTotalPackets}
                           : channel ? WirelessChannelStatsTracker::kTotalPackets
                                     : LONG{ProtocolStatsTracker::kTotalPackets};
      const LONG bytes = node      ? LONG{kNodeTotalBytes}
                         : channel ? WirelessChannelStatsTracker::kTotalBytes
                                   : LONG{ProtocolStatsTracker::kTotalBytes};
      for (auto [tracker, stat] : {std::pair{&t.packets, packets}, std::pair{&t.bytes, bytes}}) {
        CheckHr(factory->CreateTracker(description, tracker->ReleaseAndGetAddressOf()));
        CheckHr((*tracker)->SetStat(CVariant::I4(stat)));
        CheckHr(m_server->AddTracker(tracker->Get()));
      }
    }
  });
  if (FAILED(hr)) *error = "cannot start the statistics server for the alarms and tracks: " + HrText(hr);
  return SUCCEEDED(hr);
}

void AlarmWatch::Record(size_t index, ZemoTime time, LONG severity, const char16_t* message) {
  AlarmConditionKind state{};
  LONG ignored = 0;
  m_alarms[index]->GetAlarmState(&state, &ignored);
  m_events.push_back({time, m_alarmNames[index], StateWord(state), severity, ToUtf8(message ? message : u"")});
}

void AlarmWatch::Tick(ZemoTime now, bool jumped) {
  if (!m_tick) return;
  if (jumped) {
    // An alarm replays the seconds since its last round, and those beyond
    // its tracker's reach fail for good: it starts again instead.
    for (ComPtr<IAlarm>& alarm : m_alarms) alarm->ResetState();
    m_warnings.push_back("packet time jumps to " + IsoTime(now) +
                         ", too far to follow second by second: the tracked series count the jump in its second" +
                         (m_alarms.empty() ? "" : ", and the alarms start again from resolved there"));
  }
  HRESULT hr = m_tick->ProcessTime(now);
  if (FAILED(hr) && hr != m_lastFailure)
    m_warnings.push_back("at " + IsoTime(now) + " an alarm failed its evaluation (" + HrText(hr) +
                         "); the alarms after it waited for the next second");
  m_lastFailure = hr;
  for (Track& t : m_tracks) {
    ZemoTime last = 0;
    double packets = 0, bytes = 0;
    // A tracker that did not sample this second follows what has not appeared yet.
    if (t.bytes && SUCCEEDED(t.bytes->GetLastTime(&last)) && last == now / kSecond * kSecond &&
        SUCCEEDED(t.packets->GetValueRate(now, &packets)) && SUCCEEDED(t.bytes->GetValueRate(now, &bytes)))
      t.seen = true;
    else
      packets = bytes = 0;
    t.series.push_back({now - kSecond, packets, bytes});
  }
}

bool AlarmWatch::Appeared(IZemoStatsTracker* tracker, std::string* text) {
  const ComPtr<IZemoStatsTracker> t(tracker);
  MediaSpec key{};
  ComPtr<IEntityTable> entities;
  ULONG entity = kNoEntityId, row = 0;
  ComPtr<INodeStatsTracker> node;
  if (SUCCEEDED(t.As(&node)) && SUCCEEDED(node->GetKey(&key))) {
    *text = "node " + ToUtf8(SpecText(key));
    ComPtr<INodeStats> stats;
    BOOL found = FALSE;
    return SUCCEEDED(m_context->GetStats(CLSID_NodeStats, INodeStats::iid, stats.OutVoid())) &&
           SUCCEEDED(stats->GetEntityTable(entities.ReleaseAndGetAddressOf())) && entities &&
           SUCCEEDED(entities->FindOrAdd(&key, 0, &entity)) && SUCCEEDED(stats->GetNodeIndex(entity, &row, &found)) &&
           found;
  }
  ComPtr<IProtocolStatsTracker> protocol;
  if (SUCCEEDED(t.As(&protocol)) && SUCCEEDED(protocol->GetKey(&key))) {
    *text = "protocol " + ToUtf8(SpecText(key));
    ComPtr<IProtocolStats> stats;
    return SUCCEEDED(m_context->GetStats(CLSID_ProtocolStatsByID, IProtocolStats::iid, stats.OutVoid())) &&
           SUCCEEDED(stats->GetEntityTable(entities.ReleaseAndGetAddressOf())) && entities &&
           SUCCEEDED(entities->FindOrAdd(&key, 0, &entity)) && stats->GetProtocolIndex(entity, &row) == S_OK;
  }
  ComPtr<IWirelessChannelStatsTracker> channel;
  SWirelessChannel tracked{0, 0, 0};
  if (SUCCEEDED(t.As(&channel)) && SUCCEEDED(channel->GetChannel(&tracked))) {
    *text = "channel " + ToUtf8(FormatChannel(tracked));
    ComPtr<IWirelessChannelStats> stats;
    ULONG count = 0;
    if (FAILED(m_context->GetStats(CLSID_WirelessChannelStats, IWirelessChannelStats::iid, stats.OutVoid())) ||
        FAILED(stats->GetChannelCount(&count)))
      return false;
    ZemoWirelessChannelStat stat{};
    for (ULONG i = 0; i < count; ++i)
      if (SUCCEEDED(stats->GetChannelStat(i, &stat)) && stat.Channel == tracked) return true;
    return false;
  }
  *text = "what its tracker follows";
  return true;
}

void AlarmWatch::Finish() {
  std::stable_sort(m_events.begin(), m_events.end(), [](const Event& a, const Event& b) { return a.time < b.time; });
  m_outcomes.clear();
  for (size_t i = 0; i < m_alarms.size(); ++i) {
    IAlarm* alarm = m_alarms[i].Get();
    AlarmOutcome o;
    o.name = m_alarmNames[i];
    GUID id{};
    AlarmConditionKind state{};
    alarm->GetID(&id);
    alarm->GetAlarmState(&state, &o.severity);
    o.id = ToUtf8(GuidText(id));
    o.state = StateWord(state);
    ComPtr<IZemoStatsTracker> tracker;
    ZemoTime first = 0, last = 0;
    if (SUCCEEDED(alarm->GetStatsTracker(tracker.ReleaseAndGetAddressOf())) && tracker &&
        SUCCEEDED(tracker->GetTimeRange(&first, &last)))
      o.evaluated = first != last;
    if (!o.evaluated && tracker) {
      std::string what;
      o.note = Appeared(tracker.Get(), &what)
                   ? "its tracker could not sample " + what + ": the alarm was never evaluated"
                   : what + " never appears in the capture: the alarm was never evaluated";
    }
    m_outcomes.push_back(std::move(o));
  }
  for (const Track& t : m_tracks)
    if (!t.seen) m_warnings.push_back("the tracked " + t.kind + " " + t.name + " never appears in the capture");
}

}  // namespace zemo::cli
