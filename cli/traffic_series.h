// TrafficSeries: packets and bytes over time in bins measured from the first
// packet, as tshark's io,stat counts them, so that the report's traffic
// lines add up to the capture and line up with tshark's intervals; and the
// busiest second on the same grid.
//
// The bins start one second wide and widen through a ladder of widths, each
// a multiple of the one before (1, 5, 10, 30, 60 s, ... a week), whenever a
// packet falls beyond kMaxBins of them, so a long live capture keeps at most
// kMaxBins bins. A packet stamped before the first one counts in the first bin.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/types.h"

namespace zemo::cli {

class TrafficSeries {
 public:
  struct Bin {
    uint64_t packets = 0;
    uint64_t bytes = 0;
  };
  struct Lines {
    ZemoTime origin = 0;         // the first packet's time
    uint64_t seconds = 0;        // width of each line
    std::vector<Bin> bins;       // from the origin on, every line up to the last packet's
  };

  static constexpr size_t kMaxBins = 4096;

  void Add(ZemoTime time, uint64_t bytes);

  bool Empty() const { return m_bins.empty(); }
  // The bins joined into lines of the narrowest width of the ladder that
  // gives at most maxLines lines.
  Lines ToLines(size_t maxLines) const;
  // The most packets and bytes in one second from the first packet on.
  Bin PeakSecond() const;

 private:
  void Widen(uint64_t offset);

  ZemoTime m_origin = 0;
  uint64_t m_width = 0;  // nanoseconds; 0 before the first packet
  std::vector<Bin> m_bins;
  // Once the bins are wider than a second, the busiest second is followed
  // as the packets come, from the second that the bins no longer tell.
  Bin m_peak;
  uint64_t m_second = 0, m_runningFrom = 0;
  Bin m_current;
};

}  // namespace zemo::cli
