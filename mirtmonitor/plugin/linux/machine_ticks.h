// The machine's CPU time.
#ifndef MACHINE_TICKS_H
#define MACHINE_TICKS_H

// Ticks of all processors since the machine started. total is the sum of the first seven counters
// of /proc/stat.
struct MachineTicks {
  unsigned long long user = 0, idle = 0, total = 0;
};

// Returns false if /proc/stat cannot be opened.
bool read_machine_ticks(MachineTicks& ticks);

#endif
