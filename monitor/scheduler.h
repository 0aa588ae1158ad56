// When each instance runs, and what becomes of those that do not come back.
#ifndef MONITOR_SCHEDULER_H
#define MONITOR_SCHEDULER_H

#include <chrono>
#include <deque>
#include <optional>
#include <vector>

#include "config.h"
#include "line_writer.h"
#include "plugin.h"
#include "reporter.h"
#include "worker_pool.h"

struct Schedule {
  std::optional<unsigned long> rounds;  // calls of each instance; none: until told to stop
  unsigned workers = 0;                 // the most calls at one time; 0: one per instance
};

// Runs instances on a worker pool, each one at its own period. All but the items themselves happens
// on the thread that calls run(), so that nothing here needs a lock.
class Scheduler {
 public:
  // `items` belong to the instances in the same order. Everything must outlive the scheduler.
  Scheduler(const std::vector<Instance>& instances, const std::vector<Item>& items,
            const Schedule& schedule, Reporter& reporter, const LineWriter& out);

  // False if no descriptor was left.
  bool ready() const { return pool_.ready(); }

  // Until every instance has had its rounds (one that is blind by then is not waited for), or
  // `stop_fd` becomes readable, or the output is closed.
  void run(int stop_fd);

  // Call after run(). False if an item has not returned: the process must then end by _exit().
  bool stop() { return pool_.stop(); }

  // True if there was at least one answer and each call gave a valid value in time.
  bool all_valid() const { return all_valid_ && answers_ > 0; }

 private:
  using Clock = std::chrono::steady_clock;
  enum class State { kIdle, kRunning, kBlind };

  struct Slot {
    const Instance& instance;
    Call call;
    State state = State::kIdle;
    bool refused = false;  // due, but no worker was to be had
    unsigned long calls = 0;
    Clock::time_point due{};
    Clock::time_point deadline{};
    WallTime called{};
  };

  void start_due();
  void start(Slot& slot);
  bool wait(int stop_fd);
  void collect();
  void expire();
  bool finished() const;
  bool has_rounds_left(const Slot& slot) const;
  Clock::time_point next_event() const;

  const Schedule schedule_;
  Reporter& reporter_;
  const LineWriter& out_;
  WorkerPool pool_;
  std::deque<Slot> slots_;  // workers hold references: never moved
  unsigned long answers_ = 0;
  bool all_valid_ = true;
};

#endif
