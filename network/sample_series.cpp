#include "network/sample_series.h"

#include <algorithm>

namespace zemo {

namespace {
// The array grows by this many samples at a time at least.
constexpr size_t kGrowth = 128;
}  // namespace

void CSampleSeries::Append(double value, uint64_t zeros) {
  const bool longRun = zeros >= kLongRun;
  const size_t need = m_values.size() + 1 + (longRun ? 0 : static_cast<size_t>(zeros));
  if (need > m_values.capacity()) m_values.reserve(std::max(m_values.capacity() + kGrowth, need));
  if (longRun) {
    if (m_runs.size() == m_runs.capacity()) m_runs.reserve(m_runs.size() + 16);
    m_values.push_back(value);
    m_runs.push_back(Run{m_values.size(), zeros});
  } else {
    m_values.push_back(value);
    m_values.resize(need, 0.0);
  }
  m_size += 1 + zeros;
}

void CSampleSeries::Assign(std::vector<double> values) {
  m_values = std::move(values);
  m_runs.clear();
  m_size = m_values.size();
}

void CSampleSeries::Clear() noexcept {
  std::vector<double>().swap(m_values);
  std::vector<Run>().swap(m_runs);
  m_size = 0;
}

void CSampleSeries::CopyTo(double* out) const {
  ForEachRun([&](const double* values, uint64_t count, uint64_t zeros) {
    out = std::copy_n(values, count, out);
    out = std::fill_n(out, zeros, 0.0);
  });
}

}  // namespace zemo
