// Whole statistics contexts in files: one save in the binary stream form or
// in XML, the numbered series of a full save and its deltas that a long
// capture writes as it goes, and the load of saved files into a context.
//
// zemostats adds each statistic under its class identifier, and relies on
// that key when it takes a statistic out of a context for an XML save.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/stats_interfaces.h"

namespace zemo::cli {

// True when the name ends in ".xml", in any case: such a save is XML.
bool IsXmlName(const std::string& path);

// Saves the whole context to path, in XML when IsXmlName, else in the
// stream form. The file is written beside its place and renamed into it, so
// that a failed save leaves an earlier file of that name as it was.
// Statistics without an XML form are taken out of the context for an XML
// save and put back with their state after it; their class names go to
// *leftOut (the stream form leaves nothing out).
bool SaveContextFile(IZemoStatsContext* context, const std::string& path, std::vector<std::string>* leftOut,
                     std::string* error);

// Whether a save to path can be made at all (its folder is there), asked
// before a run so that a long capture doesn't end in a save that fails.
bool CheckSaveTarget(const std::string& path, std::string* error);
// The same for any file the run writes at its end; the message starts with
// failure ("cannot write the page to").
bool CheckFileTarget(const std::string& path, const std::string& failure, std::string* error);

// Whether the files can make one saved context, before any is loaded: no
// capture file among them, and more than one only as a series that
// DeltaSeries wrote: its full save first, then its deltas from the same
// folder in order, each holding at least the packets of the one before.
// False with a message that names the file at fault.
bool CheckSavedSeries(const std::vector<std::string>& paths, std::string* error);

// Loads saved files, stream or XML as their content says, into the context
// in the order given: the first is a whole save, each later one a delta of
// the same capture on what is loaded. A file of another capture, a damaged
// file or bytes after the end of a saved stream end the load with a message
// that names the file.
bool LoadContextFiles(IZemoStatsContext* context, const std::vector<std::string>& paths, std::string* error);

// The saves of a running capture into a folder: at the first tick a full
// save, DIR/context-000000.full; then, once every `every` seconds of capture
// time have passed at a tick, a delta of what changed since the save before,
// DIR/context-000001.delta, DIR/context-000002.delta, ...; at the end one
// last delta (or the full save, if no tick came). The names sort in the
// order in which `zemostats show` takes them.
class DeltaSeries {
 public:
  DeltaSeries(std::string directory, uint32_t everySeconds);

  static std::string FileName(const std::string& directory, uint32_t index);

  // Makes the folder if it is missing. A folder that already holds the
  // start of a series is refused, so that no stale delta of an older run
  // can follow the new ones.
  bool Open(std::string* error);
  // At the tick of a second; off the packet path. After a failure the
  // series stops, since a delta after a missing one would be wrong.
  bool AtTick(IZemoStatsContext* context, ZemoTime tick, std::string* error);
  // At the end of the run.
  bool Finish(IZemoStatsContext* context, std::string* error);

  uint32_t Written() const { return m_next; }

 private:
  bool SaveNext(IZemoStatsContext* context, std::string* error);

  std::string m_directory;
  uint64_t m_every;       // seconds
  uint32_t m_next = 0;    // index of the next file; 0: the full save is still to come
  ZemoTime m_cookie = 0;  // what the last save covered, for the next delta
  uint64_t m_due = 0;     // the second of capture time at which the next delta is due
  bool m_stopped = false;
};

}  // namespace zemo::cli
