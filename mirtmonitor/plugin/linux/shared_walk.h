// Searches that run at the same time share a walk over /proc.
#ifndef SHARED_WALK_H
#define SHARED_WALK_H

#include <cstdint>

#include "command_lines.h"
#include "mirt_walk_group.h"

struct WalkRound;

// A walk starts again only if it has not passed more processes than this, about a millisecond's
// work.
constexpr unsigned int kEarlySteps = 128;

// The part of one search in the walks of this process. If no other walk runs, the search walks
// alone. Searches that start while a walk runs wait for its end. Then one of them reads all command
// lines once, and each searches these lines. So a search never uses what was read before it began,
// and the lines are freed after the last search.
//
// If a walk makes no progress for 100 ms, one of the waiting searches replaces it. If memory is
// short, each search walks alone.
//
// A host can make a group of calls: their searches use the lines that the first of them got.
class SharedWalk {
 public:
  SharedWalk();                                  // waits while a walk runs
  SharedWalk& operator=(SharedWalk&&) = delete;  // neither copied nor moved
  ~SharedWalk();

  // Returns true if this search has to read for others or for its group, too: call read_for_all()
  // next.
  bool serves_others() const {
    return part_ == Part::kWalks && (round_ != nullptr || group_ != nullptr);
  }

  // Returns the lines that were read for this search, or null if it has to walk itself.
  const CommandLines* lines() const;

  // Call this for every process during a walk. Returns false if other searches arrived so early
  // that the walk should start again for all: call gather() next.
  bool move_on() noexcept;

  // Waits until no search has arrived for one millisecond, three for a search of a group. The next
  // walk serves those that have.
  void gather() noexcept;

  // Reads all command lines for this search and those that it serves.
  void read_for_all();

 private:
  enum class Part { kUndecided, kWalks, kHasLines, kAlone };
  bool use_lines_of_group() noexcept;
  bool leave_lines_to_group() noexcept;
  void join();
  void wait_for_walk();
  void show_progress() noexcept;
  void begin_walk() noexcept;
  void serve_waiting() noexcept;
  void end_walk(uint32_t outcome) noexcept;
  void leave_round() noexcept;

  Part part_ = Part::kUndecided;
  MIRT_WALK_GROUP* const group_;  // of this call; null: it has none
  WalkRound* round_ = nullptr;    // one of its members is this search
  uint64_t number_ = 0;           // of this search's walk
  uint32_t steps_ = 0;
  uint32_t arrivals_seen_ = 0;
};

#endif
