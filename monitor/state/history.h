// The latest values of one instance.
#ifndef MONITOR_HISTORY_H
#define MONITOR_HISTORY_H

#include <array>
#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

#include "item/state.h"
#include "text/clock_text.h"

struct Sample {
  WallTime time;
  float value;  // NaN if there is none
  State state;
};

// The last 600 samples or a few more, about 10 KiB per instance. A copy shares all but the newest
// samples and so costs only about twelve pointers, so that each snapshot can have one.
class History {
 public:
  static constexpr size_t kChunk = 60, kChunks = 10, kLeastKept = kChunk * kChunks;

  void add(const Sample& sample);

  // Oldest first.
  std::vector<Sample> samples() const;

 private:
  using Chunk = std::array<Sample, kChunk>;

  std::deque<std::shared_ptr<const Chunk>> full_;
  std::vector<Sample> newest_;
};

#endif
