// Analysis: one capture's run through the engine. It registers the module
// and the engine classes, makes a StatsContext in the capture's medium,
// adds every statistic the module serves, then decodes each frame into one
// reused Packet and hands it to the context, ticking the context once for
// each whole second of packet time that passes and once at the end.
//
// Beside the module's statistics the context holds the expert statistic,
// which counts the decoder's faults, and has a site that tells the summary
// what the host knows of the capture.
//
// An Analysis can instead hold a context loaded from saved files, which the
// report reads the same way; only the facts of a run (link type, peak
// rates, timing) are then unknown.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cli/capture_source.h"
#include "engine/capture_facts.h"
#include "engine/expert_stats.h"
#include "cli/traffic_series.h"
#include "cli/wireless_watch.h"
#include "engine/frame_decoder.h"
#include "engine/site.h"
#include "frame/stats_interfaces.h"
#include "summary/summary_interfaces.h"

namespace zemo::cli {

// A frame read and decoded, ready for the engine: its packet refers to the
// entry's own copy of the frame's bytes, so it outlives the source's buffer.
struct DecodedFrame {
  CaptureFrame frame{};  // data points into bytes
  std::vector<uint8_t> bytes;
  ComPtr<Packet> packet;
  uint32_t faults = 0;  // FrameFault bits
};

// One statistic in the context.
struct StatisticEntry {
  std::u16string className;   // "NodeStats"
  std::string selectName;     // "nodestats"; the lower-cased class name without ISelectableObject
  ComPtr<IZemoStats> stats;
  bool selectable = false;
};

// What the run measured itself, beside the context's own totals: the
// capture as the file has it, where the statistics cannot hold it all.
struct RunFacts {
  uint64_t frames = 0;       // read from the source
  uint64_t bytes = 0;        // their whole wire lengths
  uint64_t undecoded = 0;    // frames of a link type without an analyzer
  uint64_t shortened = 0;    // frames longer than the packet interface's 65535 bytes
  uint64_t truncated = 0;    // frames captured shorter than they were on the wire
  // Each: how many, and the number of the first, counted from 1.
  uint64_t foreign = 0, firstForeign = 0;          // not of the link type's protocol
  uint64_t outOfOrder = 0, firstOutOfOrder = 0;    // earlier than the packet before
  uint64_t invalidTimes = 0, firstInvalidTime = 0; // a stamp's fraction beyond its second
  ZemoTime earliest = 0, latest = 0;               // of the valid stamps
  // Where the time went, in nanoseconds, when timing was asked for.
  uint64_t readNs = 0, decodeNs = 0, engineNs = 0;
};

class Analysis {
 public:
  Analysis() = default;
  Analysis(const Analysis&) = delete;
  Analysis& operator=(const Analysis&) = delete;

  // Makes the context for a capture of this link type; linkSpeed in bits
  // per second, 0 when unknown. False with a message on failure.
  bool Start(uint32_t linkType, uint64_t linkSpeed, std::string* error);
  // Makes the context from saved files instead: a whole save, then its
  // deltas in order (LoadContextFiles). False with a message on failure.
  bool StartFromSaves(const std::vector<std::string>& paths, std::string* error);
  bool FromSaves() const { return m_fromSaves; }
  // What the host follows of an 802.11 capture; null on any other medium and from saves.
  const WirelessWatch* Wireless() const { return m_wireless.get(); }

  // The length in seconds of the moving window of RollingNodeStats, before
  // Start; the ring's default when not set.
  void SetWindow(uint32_t seconds) { m_window = seconds; }

  // Adds a hook called after the context's tick of each new second (the
  // last second of a gap), never on the packet path; hooks run in the
  // order they were added.
  void OnTick(std::function<void(ZemoTime)> hook) { m_onTick.push_back(std::move(hook)); }
  // Called for every second that comes, after the context's tick and before
  // the packets of that second (once, with jumped set, after a jump too long
  // to tick through), and at the end once more for the second of the last
  // packet; never on the packet path.
  void OnSecond(std::function<void(ZemoTime, bool jumped)> hook) { m_onSecond = std::move(hook); }

  // Stores a copy of the summary in SummaryStats at the first tick and then
  // once every `seconds` of packet time (0: never), named by the tick's time.
  void StoreSummaryEvery(uint32_t seconds) { m_summaryEvery = seconds; }

  // What the host knows of the capture, for the summary: its source, link
  // type and speed, the file's size. A live capture's duration is the time
  // it ran since its first description; a file's is its span of packet time.
  void DescribeSource(const CaptureFactsData& facts, bool live);
  // The packets the capture dropped, as the site tells the summary.
  void SetPacketsDropped(uint64_t dropped);
  // Brings the current summary up to date; the updater's status.
  HRESULT UpdateSummary();
  // The context's SummaryStats, null when it holds none (an older save).
  ComPtr<ISummaryStats> Summary() const;

  // Copies the frame and decodes it into out, on whatever thread reads the
  // capture; touches nothing of the analysis but the decoder, which only
  // reads.
  void Decode(const CaptureFrame& frame, DecodedFrame& out) const;
  // Hands a decoded frame to the context, after the ticks of the seconds
  // its time stamp passed; frames must come in the capture's order.
  void Process(const DecodedFrame& decoded);
  // Ticks for the seconds up to now, without a packet (a quiet live capture).
  void Idle(ZemoTime now);
  // The last tick, then the end of processing, which rebuilds the window.
  void Finish();

  void EnableTiming(bool on) { m_timing = on; }
  // The reading side's share of the timing, added once it is done.
  void AddReadTimes(uint64_t readNs, uint64_t decodeNs) {
    m_facts.readNs += readNs;
    m_facts.decodeNs += decodeNs;
  }
  bool Timing() const { return m_timing; }

  IZemoStatsContext* Context() const { return m_context.Get(); }
  const std::vector<StatisticEntry>& Statistics() const { return m_statistics; }
  const RunFacts& Facts() const { return m_facts; }
  const TrafficSeries& Traffic() const { return m_traffic; }
  // What the run found wrong with the capture, in words; linkTypeName names
  // the link type in them.
  std::vector<std::string> Warnings(const std::string& linkTypeName) const;
  const FrameDecoder& Decoder() const { return m_decoder; }
  LinkMedium Medium() const { return m_medium; }

 private:
  bool CreateContext(std::string* error);
  // The expert statistic and the site, for a run.
  void AddHostParts();
  // The site's duration of the capture, as it stands.
  void RefreshDuration();
  void StoreSummary(ZemoTime tick);
  // The statistics of the context, in its slot order.
  void CollectStatistics();
  void TickTo(uint64_t second);

  FrameDecoder m_decoder{0};
  LinkMedium m_medium{0, 0};
  ComPtr<IZemoStatsContext> m_context;
  ComPtr<IProcessPacket> m_process;
  ComPtr<IProcessTime> m_time;
  ComPtr<IPacketProcessorEvents> m_events;  // null from saves
  std::vector<StatisticEntry> m_statistics;
  RunFacts m_facts;
  TrafficSeries m_traffic;
  ZemoTime m_lastTime = 0;
  ZemoTime m_lastValidTime = 0;
  uint64_t m_second = 0;  // the whole second of the last packet, 0 before the first
  bool m_timing = false;
  bool m_fromSaves = false;
  uint32_t m_window = 0;  // 0: the ring's own shape
  std::vector<std::function<void(ZemoTime)>> m_onTick;
  std::function<void(ZemoTime, bool)> m_onSecond;
  ComPtr<ExpertStats> m_expert;
  std::unique_ptr<WirelessWatch> m_wireless;  // on 802.11 captures
  ComPtr<Site> m_site;
  ComPtr<CaptureFacts> m_captureFacts;
  uint64_t m_liveSince = 0;  // MonotonicNs at the start of a live capture; 0 for a file
  uint32_t m_summaryEvery = 0;
  uint64_t m_summaryDue = 0;  // the second of packet time of the next stored summary; 0: the first tick
};

// The class of a statistic, by GetClassID of whichever persistence
// interface it offers; GUID_NULL when it offers none.
CLSID ClassOfStatistic(IUnknown* stats);
// The class's name in the module's class table ("NodeStats"), else its
// identifier in braces.
std::u16string ClassNameOf(REFCLSID clsid);

// A status as people quote it: 0x80004005.
std::string HrText(HRESULT hr);
// A status in words where it has some, then as quoted: "permission denied, 0x80070005".
std::string HrReason(HRESULT hr);

// A monotonic clock in nanoseconds, for the timing breakdown.
uint64_t MonotonicNs();

// Makes the folder and those above it if they are missing; false with a
// message that names it and says why when it cannot be made, is no folder
// or cannot be written in.
bool EnsureDirectory(const std::string& directory, std::string* error);
// Whether a file can be made in the folder; false with the reason.
bool CanWriteIn(const std::string& directory, std::string* error);

}  // namespace zemo::cli
