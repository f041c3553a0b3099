// Analysis: one capture's run through the engine. It registers the module
// and the engine classes, makes a StatsContext in the capture's medium,
// adds every statistic the module serves, then decodes each frame into one
// reused Packet and hands it to the context, ticking the context once for
// each whole second of packet time that passes and once at the end.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/capture_source.h"
#include "engine/frame_decoder.h"
#include "frame/stats_interfaces.h"

namespace zemo::cli {

// One statistic in the context.
struct StatisticEntry {
  std::u16string className;   // "NodeStats"
  std::string selectName;     // "nodestats"; the lower-cased class name without ISelectableObject
  ComPtr<IZemoStats> stats;
  bool selectable = false;
};

// What the run measured itself, beside the context's own totals.
struct RunFacts {
  uint64_t frames = 0;       // read from the source
  uint64_t undecoded = 0;    // frames of a link type without an analyzer
  uint64_t peakPackets = 0;  // most packets in one second of packet time
  uint64_t peakBytes = 0;
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

  // Decodes one frame and hands it to the context.
  void Feed(const CaptureFrame& frame);
  // Ticks for the seconds up to now, without a packet (a quiet live capture).
  void Idle(ZemoTime now);
  // The last tick.
  void Finish();

  void EnableTiming(bool on) { m_timing = on; }
  void AddReadTime(uint64_t ns) { m_facts.readNs += ns; }
  bool Timing() const { return m_timing; }

  IZemoStatsContext* Context() const { return m_context.Get(); }
  const std::vector<StatisticEntry>& Statistics() const { return m_statistics; }
  const RunFacts& Facts() const { return m_facts; }
  const FrameDecoder& Decoder() const { return m_decoder; }
  LinkMedium Medium() const { return m_medium; }

 private:
  void TickTo(uint64_t second);

  FrameDecoder m_decoder{0};
  LinkMedium m_medium{0, 0};
  ComPtr<IZemoStatsContext> m_context;
  ComPtr<IProcessPacket> m_process;
  ComPtr<IProcessTime> m_time;
  ComPtr<Packet> m_packet;
  std::vector<StatisticEntry> m_statistics;
  RunFacts m_facts;
  ZemoTime m_lastTime = 0;
  uint64_t m_second = 0;  // the whole second of the last packet, 0 before the first
  uint64_t m_secondPackets = 0, m_secondBytes = 0;
  bool m_timing = false;
};

// A status as people quote it: 0x80004005.
std::string HrText(HRESULT hr);

// A monotonic clock in nanoseconds, for the timing breakdown.
uint64_t MonotonicNs();

}  // namespace zemo::cli
