// Detects jumps of the clocks: the machine was suspended, or the time was set.
#ifndef MONITOR_CLOCK_WATCH_H
#define MONITOR_CLOCK_WATCH_H

#include <cstdint>
#include <string>
#include <vector>

class ClockWatch {
 public:
  ClockWatch() : last_(read()) {}

  // The jumps since the previous call: "the machine was suspended for 3600.0 s", "the clock was set
  // forward by 7200.0 s".
  std::vector<std::string> look();

 private:
  struct Times {
    int64_t monotonic_ms, boot_ms, wall_ms;
  };

  static Times read();

  Times last_;
};

#endif
