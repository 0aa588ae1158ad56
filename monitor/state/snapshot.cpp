#include "state/snapshot.h"

#include <algorithm>

void Durations::add(double seconds) {
  const auto* const bound = std::lower_bound(kBounds.begin(), kBounds.end(), seconds);
  ++counts[static_cast<size_t>(bound - kBounds.begin())];
  sum_s += seconds;
}
