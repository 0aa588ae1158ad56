#include "run/clock_watch.h"

#include <chrono>
#include <cstdlib>
#include <ctime>

#include "text/end_text.h"

namespace {

constexpr int64_t kLeastMs = 1000;  // smaller changes are normal corrections of a time server

int64_t now_ms(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

std::string length_text(int64_t ms) {
  return seconds_text(std::chrono::milliseconds(std::llabs(ms)));
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
    events.push_back("the machine was suspended for " + length_text(suspended));
  if (std::llabs(set) >= kLeastMs) {
    events.push_back(std::string("the clock was set ") + (set > 0 ? "forward" : "back") + " by " +
                     length_text(set));
  }
  return events;
}
