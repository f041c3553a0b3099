// TimeWindow: the part of a capture's packet time that a run analyzes,
// from --from and --to. Each bound is an ISO 8601 time
// ("2026-01-01T10:00:00Z", "2026-01-01 10:00:00.5+02:00"; without a zone,
// UTC) or seconds from the first packet ("90", "1.5").
#pragma once

#include <cstdint>
#include <string>

#include "platform/types.h"

namespace zemo::cli {

class TimeWindow {
 public:
  // False with a message naming the option when a bound does not read as
  // either form, or the window is empty.
  bool Parse(const std::string& from, const std::string& to, std::string* error);
  bool Any() const { return m_from.set || m_to.set; }

  // Whether a packet of this time is in the window; the first packet asked
  // about fixes the bounds given in seconds from it.
  bool Keeps(ZemoTime time) {
    if (!m_resolved) Resolve(time);
    return time >= m_fromTime && (!m_toTime || time <= m_toTime);
  }
  // The bounds as times, once the first packet came; 0 for an open one.
  ZemoTime From() const { return m_resolved && m_from.set ? m_fromTime : 0; }
  ZemoTime To() const { return m_resolved ? m_toTime : 0; }

 private:
  struct Bound {
    bool set = false;
    bool relative = false;  // seconds from the first packet
    ZemoTime time = 0;      // absolute, or nanoseconds from the first packet
  };
  static bool ParseBound(const std::string& text, Bound* bound);
  void Resolve(ZemoTime first);

  Bound m_from, m_to;
  bool m_resolved = false;
  ZemoTime m_fromTime = 0, m_toTime = 0;
};

}  // namespace zemo::cli
