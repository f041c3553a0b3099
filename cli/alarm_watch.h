// AlarmWatch: the alarms of a collection file and the nodes and protocols a
// user asked to track, run on a statistics server beside the analysis's
// context and ticked once a second of packet time (of the clock, live). It
// keeps every change of state the alarms report, and the per-second series
// of what was tracked.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "alarms/alarm_interfaces.h"
#include "identity/media_specs.h"
#include "platform/object.h"
#include "wireless/wireless_channel.h"

namespace zemo::cli {

// What the options ask to watch.
struct WatchOptions {
  std::string alarms;                  // --alarms: a collection file; empty: none
  std::vector<std::string> nodes;      // --track: addresses
  std::vector<std::string> protocols;  // --track-protocol: protocol names
  std::vector<std::string> channels;   // --track-channel: channel labels
  bool Any() const { return !alarms.empty() || !nodes.empty() || !protocols.empty() || !channels.empty(); }
};

// An address as a user writes it (IPv4, IPv6, or a MAC address with ':' or
// '-'), or a protocol of the engine's tree by name; false if it is none.
bool ParseAddress(const std::string& text, MediaSpec* spec);
bool ParseProtocol(const std::string& name, MediaSpec* spec);
// A radio channel's label as the report writes it: "6 - 2437 MHz (bg)".
// False unless it starts with a number, " - " and a frequency.
bool ParseChannelLabel(const std::string& label, SWirelessChannel* channel);

class AlarmWatch {
 public:
  // A change of state, as the alarm's notification reported it.
  struct Event {
    ZemoTime time;
    std::string alarm;
    std::string state;  // "suspect", "problem", "resolved"
    LONG severity;
    std::string message;
  };
  // An alarm at the end of the run.
  struct AlarmOutcome {
    std::string name;
    std::string id;
    std::string state;
    LONG severity = 0;
    bool evaluated = false;
    std::string note;  // why it was never evaluated
  };
  // One second of a tracked node or protocol: what it carried in the second
  // that starts at time.
  struct Sample {
    ZemoTime time;
    double packets;
    double bytes;
  };
  struct Track {
    std::string kind;  // "node", "protocol" or "channel"
    std::string name;  // as the user gave it
    std::string text;  // as the engine shows it
    bool seen = false;
    std::vector<Sample> series;
    MediaSpec key{};
    SWirelessChannel channel{0, 0, 0};
    ComPtr<IZemoStatsTracker> packets, bytes;
  };

  AlarmWatch();
  ~AlarmWatch();
  AlarmWatch(const AlarmWatch&) = delete;
  AlarmWatch& operator=(const AlarmWatch&) = delete;

  // Loads and checks the collection file; false with one message that names
  // the file and what is wrong. Needs the module registered.
  bool LoadAlarms(const std::string& path, std::string* error);
  // kind: "node" (an address) or "protocol"; name as the user gave it.
  void AddTrack(std::string kind, const std::string& name, const MediaSpec& key);
  void AddChannelTrack(const std::string& label, const SWirelessChannel& channel);

  // The server beside the context, with the alarms and the trackers.
  bool Start(IZemoStatsContext* context, std::string* error);
  // A second of packet time has come; jumped: after a jump too long to tick
  // through, which the alarms cannot replay.
  void Tick(ZemoTime now, bool jumped);
  // Settles the outcome of each alarm and track.
  void Finish();

  bool HasAlarms() const { return !m_alarmsFile.empty(); }
  const std::string& AlarmsFile() const { return m_alarmsFile; }
  const std::vector<Event>& Events() const { return m_events; }
  const std::vector<AlarmOutcome>& Outcomes() const { return m_outcomes; }
  const std::vector<Track>& Tracks() const { return m_tracks; }
  const std::vector<std::string>& Warnings() const { return m_warnings; }

  // Called by the notification sink of alarm `index`.
  void Record(size_t index, ZemoTime time, LONG severity, const char16_t* message);

 private:
  // Whether the thing a tracker follows ever appeared in its statistic.
  bool Appeared(IZemoStatsTracker* tracker, std::string* text);

  std::string m_alarmsFile;
  std::vector<ComPtr<IAlarm>> m_alarms;
  std::vector<std::string> m_alarmNames;
  std::vector<Track> m_tracks;
  ComPtr<IZemoStatsServer> m_server;
  ComPtr<IProcessTime> m_tick;
  IZemoStatsContext* m_context = nullptr;  // the analysis's, which outlives the watch's use
  std::vector<Event> m_events;
  std::vector<AlarmOutcome> m_outcomes;
  std::vector<std::string> m_warnings;
  HRESULT m_lastFailure = S_OK;
};

// "suspect", "problem" or "resolved".
const char* StateWord(LONG state);

}  // namespace zemo::cli
