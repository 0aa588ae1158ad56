// What a call does when memory or descriptors run out. The program that links this has its heap
// watched: malloc(), calloc() and realloc() can be told to refuse.
#ifndef ALLOCATION_FAILURE_H
#define ALLOCATION_FAILURE_H

#include <cstddef>
#include <cstdint>
#include <string>

// One call under test. Each run of it has a child process of its own, so that it can crash, and
// finds every static as it was at start-up.
struct Scenario {
  const char* name;
  void (*call)(char* outcome);  // all that is watched; prints what it returned and wrote
  void (*prepare)();            // what the call needs; null: nothing
  void (*release)();            // gives back what the caller owns afterwards; null: nothing
  size_t kept;                  // blocks at most that the library keeps for good
};
constexpr size_t kOutcomeSize = 256;

// What is refused: the allocations number first up to the one before end, from 0.
struct Refusal {
  size_t first, end;
};
constexpr Refusal kNone{0, 0}, kAll{0, SIZE_MAX};

struct Observed {
  size_t allocations = 0;  // that were asked for
  std::string outcome;
  std::string again;   // the outcome of the same call just after, with nothing refused
  std::string faults;  // a crash, blocks or descriptors left over, a zombie; empty when all is well
};

Observed run_refusing(const Scenario& scenario, Refusal refusal);
Observed run_without_descriptors(const Scenario& scenario);

// While it lives, nothing is counted and nothing refused: for hooks that a call runs into.
class MemoryGranted {
 public:
  MemoryGranted();
  MemoryGranted(const MemoryGranted&) = delete;
  MemoryGranted& operator=(const MemoryGranted&) = delete;
  ~MemoryGranted();

 private:
  bool counted_before_;
};

#endif
