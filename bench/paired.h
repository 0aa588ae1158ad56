// Measures two functions alternately, so that a change of machine speed affects both equally.
#ifndef PAIRED_H
#define PAIRED_H

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace paired_detail {

// Processor time of this thread, without the time of other programs.
inline double now_s() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename Work>
double batch_s(Work& work, int calls) {
  const double start = now_s();
  for (int call = 0; call < calls; ++call) work();
  return now_s() - start;
}

// Returns the number of calls for a batch of about 2 ms, which is long compared with a context
// switch.
template <typename Work>
int calls_per_batch(Work& work) {
  constexpr double kBatch = 2e-3;
  constexpr int kMost = 1 << 24;
  int calls = 1;
  while (calls < kMost && batch_s(work, calls) < kBatch) calls *= 2;
  return calls;
}

// Returns the quantile for share; values are sorted.
inline double quantile(const std::vector<double>& values, double share) {
  return values[static_cast<size_t>(std::lround(share * static_cast<double>(values.size() - 1)))];
}

}  // namespace paired_detail

// Runs ours and floor in alternate batches, one pair of batches in each iteration of state. The
// row's time is one call of ours; its counters are `floor_us`, one bare call (median), and
// `ratio`, ours over floor within a pair: the median, the quartiles and the extremes of all pairs.
template <typename Ours, typename Floor>
void paired(benchmark::State& state, Ours ours, Floor floor) {
  using namespace paired_detail;
  const int ours_calls = calls_per_batch(ours), floor_calls = calls_per_batch(floor);
  std::vector<double> ratios, floors;
  for (auto _ : state) {
    // Symmetric order, so that a change of speed within the pair cancels out.
    double ours_s = batch_s(ours, ours_calls);
    double floor_s = batch_s(floor, floor_calls);
    floor_s += batch_s(floor, floor_calls);
    ours_s += batch_s(ours, ours_calls);
    ours_s /= 2.0 * ours_calls;
    floor_s /= 2.0 * floor_calls;
    state.SetIterationTime(ours_s);
    floors.push_back(floor_s);
    ratios.push_back(ours_s / floor_s);
  }
  if (ratios.empty()) return;
  std::sort(floors.begin(), floors.end());
  std::sort(ratios.begin(), ratios.end());
  state.counters["floor_us"] = quantile(floors, 0.5) * 1e6;
  state.counters["ratio"] = quantile(ratios, 0.5);
  state.counters["ratio_q1"] = quantile(ratios, 0.25);
  state.counters["ratio_q3"] = quantile(ratios, 0.75);
  state.counters["ratio_min"] = ratios.front();
  state.counters["ratio_max"] = ratios.back();
}

// Registers a function that calls paired().
#define PAIRED_ROW(function) \
  BENCHMARK(function)->Iterations(101)->UseManualTime()->Unit(benchmark::kMicrosecond)

#endif
