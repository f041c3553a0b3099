// CSampleSeries: the samples of a history, oldest first. A capture that
// pauses for months has a sample of 0.0 for every second of the pause; such
// a run is kept as its length, so that memory follows the packets and not
// the time between them. Every other sample is a double in one array.
#pragma once

#include <cstdint>
#include <vector>

namespace zemo {

class CSampleSeries {
 public:
  // Runs of empty samples at least this long are kept as a count.
  static constexpr uint64_t kLongRun = 64;

  uint64_t Size() const noexcept { return m_size; }
  bool Empty() const noexcept { return m_size == 0; }

  // One more sample; then `zeros` samples of 0.0. Raises as the array's
  // growth does, with the series as it was.
  void Append(double value, uint64_t zeros);
  // A series read from a stream, as it stands.
  void Assign(std::vector<double> values);
  void Clear() noexcept;

  // Each sample in order, zeros of long runs included.
  template <class Fn>
  void ForEach(Fn&& fn) const {
    ForEachRun([&](const double* values, uint64_t count, uint64_t zeros) {
      for (uint64_t i = 0; i < count; ++i) fn(values[i]);
      for (uint64_t i = 0; i < zeros; ++i) fn(0.0);
    });
  }
  // The series in pieces: fn(values, count, zeros) for each stretch of
  // stored samples and the long run of zeros behind it.
  template <class Fn>
  void ForEachRun(Fn&& fn) const {
    uint64_t from = 0;
    for (const Run& run : m_runs) {
      fn(m_values.data() + from, run.at - from, run.zeros);
      from = run.at;
    }
    fn(m_values.data() + from, m_values.size() - from, uint64_t{0});
  }
  void CopyTo(double* out) const;

 private:
  // `zeros` samples of 0.0 stand behind the first `at` stored values.
  struct Run {
    uint64_t at;
    uint64_t zeros;
  };

  std::vector<double> m_values;
  std::vector<Run> m_runs;
  uint64_t m_size = 0;
};

}  // namespace zemo
