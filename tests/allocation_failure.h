// Tests a call when memory or descriptors run out. Replaces malloc(), calloc() and realloc() of the
// program that links this; they can refuse on request.
#ifndef ALLOCATION_FAILURE_H
#define ALLOCATION_FAILURE_H

#include <cstddef>
#include <cstdint>

// One call under test. Each run has its own child process, so that it can crash and starts with
// initial static variables.
struct Scenario {
  const char* name;
  void (*call)(char* outcome);  // the call; prints its results
  void (*prepare)();            // prepares the call; null: nothing
  void (*release)();            // frees what the caller owns afterwards; null: nothing
  size_t kept;                  // maximum number of blocks that the library never frees
};
constexpr size_t kOutcomeSize = 256;

// The refused allocations: numbers first to end - 1, from 0.
struct Refusal {
  size_t first, end;
};
constexpr Refusal kNone{0, 0}, kAll{0, SIZE_MAX};

struct Observed {
  size_t allocations;  // number of requests
  // The outcome; that of the next call, with nothing refused; and a crash, leaked blocks or
  // descriptors, or a zombie; empty if none.
  char outcome[kOutcomeSize], again[kOutcomeSize], faults[kOutcomeSize];
};

Observed run_in_child(const Scenario& scenario, Refusal refusal, bool descriptors = true);

// While this is off, nothing is counted or refused: for hooks that a call reaches. Returns what it
// was before.
bool set_counting(bool on);

#endif
