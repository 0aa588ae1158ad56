#include "run/clock_watch.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

constexpr int64_t kLeastMs = 1000;  // what time servers correct bit by bit is no jump

int64_t now_ms(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

std::string seconds(int64_t ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(std::llabs(ms)) / 1000.0);
  return text;
}

}  // namespace

ClockWatch::Times ClockWatch::read() {
  return {now_ms(CLOCK_MONOTONIC), now_ms(CLOCK_BOOTTIME), now_ms(CLOCK_REALTIME)};
}

std::vector<std::string> ClockWatch::look() {
  const Times now = read();
  const int64_t passed = now.boot_ms - last_.boot_ms;
  const int64_t suspended = passed - (now.monotonic_ms - last_.monotonic_ms);
  const int64_t set = now.wall_ms - last_.wall_ms - passed;
  last_ = now;
  std::vector<std::string> events;
  if (suspended >= kLeastMs)
    events.push_back("the machine was suspended for " + seconds(suspended));
  if (std::llabs(set) >= kLeastMs) {
    events.push_back(std::string("the clock was set ") + (set > 0 ? "forward" : "back") + " by " +
                     seconds(set));
  }
  return events;
}
