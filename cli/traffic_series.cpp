#include "cli/traffic_series.h"

#include <algorithm>
#include <iterator>

namespace zemo::cli {
namespace {

constexpr uint64_t kSecond = 1000000000ull;
constexpr uint64_t kWidths[] = {1, 5, 10, 30, 60, 300, 600, 1800, 3600, 7200, 21600, 86400, 604800};

void Join(TrafficSeries::Bin& into, const TrafficSeries::Bin& bin) {
  into.packets += bin.packets;
  into.bytes += bin.bytes;
}

TrafficSeries::Bin Busier(const TrafficSeries::Bin& a, const TrafficSeries::Bin& b) {
  return TrafficSeries::Bin{std::max(a.packets, b.packets), std::max(a.bytes, b.bytes)};
}

}  // namespace

void TrafficSeries::Add(ZemoTime time, uint64_t bytes) {
  if (m_width == 0) {
    m_origin = time;
    m_width = kSecond;
  }
  const uint64_t offset = time > m_origin ? time - m_origin : 0;
  if (offset / m_width >= kMaxBins) Widen(offset);
  const uint64_t index = offset / m_width;
  if (index >= m_bins.size()) m_bins.resize(index + 1);
  Join(m_bins[index], {1, bytes});

  if (m_width == kSecond) return;
  const uint64_t second = offset / kSecond;
  // A packet out of order into a second already passed is not followed.
  if (second < m_runningFrom || second < m_second) return;
  if (second != m_second) {
    m_peak = Busier(m_peak, m_current);
    m_current = {};
    m_second = second;
  }
  Join(m_current, {1, bytes});
}

void TrafficSeries::Widen(uint64_t offset) {
  if (m_width == kSecond) {
    for (const Bin& b : m_bins) m_peak = Busier(m_peak, b);
    m_runningFrom = m_second = m_bins.size();
  }
  uint64_t width = m_width;
  for (uint64_t w : kWidths)
    if (w * kSecond > width && offset / (w * kSecond) < kMaxBins) {
      width = w * kSecond;
      break;
    }
  // Beyond a week of bins: as wide as it takes.
  if (width == m_width) width = (offset / (kMaxBins - 1) / m_width + 1) * m_width;
  const uint64_t factor = width / m_width;
  std::vector<Bin> wide((m_bins.size() + factor - 1) / factor);
  for (size_t i = 0; i < m_bins.size(); ++i) Join(wide[i / factor], m_bins[i]);
  m_bins = std::move(wide);
  m_width = width;
}

TrafficSeries::Lines TrafficSeries::ToLines(size_t maxLines) const {
  Lines lines;
  if (m_bins.empty() || maxLines == 0) return lines;
  lines.origin = m_origin;
  uint64_t width = m_width;
  for (uint64_t w : kWidths) {
    if (w * kSecond < m_width || (w * kSecond) % m_width) continue;
    width = w * kSecond;
    if ((m_bins.size() * m_width + width - 1) / width <= maxLines) break;
  }
  const uint64_t factor = width / m_width;
  lines.seconds = width / kSecond;
  lines.bins.resize((m_bins.size() + factor - 1) / factor);
  for (size_t i = 0; i < m_bins.size(); ++i) Join(lines.bins[i / factor], m_bins[i]);
  return lines;
}

TrafficSeries::Bin TrafficSeries::PeakSecond() const {
  if (m_width == kSecond) {
    Bin peak;
    for (const Bin& b : m_bins) peak = Busier(peak, b);
    return peak;
  }
  return Busier(m_peak, m_current);
}

}  // namespace zemo::cli
