#include "run/standstill.h"

#include <algorithm>

bool Standstill::judge(Duration elapsed, Duration lost) {
  could_run_ += std::max(elapsed - lost, Duration::zero());
  return ++in_a_row_ >= kMostInARow || could_run_ >= enough_;
}

bool Standstill::excuse() {
  could_run_ = Duration::zero();
  return ++in_a_row_ >= kMostInARow;
}

void Standstill::reset() {
  could_run_ = Duration::zero();
  in_a_row_ = 0;
}
