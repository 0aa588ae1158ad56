// When each instance runs, and what becomes of those that do not come back.
#ifndef MONITOR_SCHEDULER_H
#define MONITOR_SCHEDULER_H

#include <chrono>
#include <deque>
#include <optional>
#include <vector>

#include "item/instance.h"
#include "item/plugin.h"
#include "output/report_queue.h"
#include "output/reporter.h"
#include "run/alarm.h"
#include "run/worker_pool.h"
#include "text/line_writer.h"

struct Schedule {
  std::optional<unsigned long> rounds;  // calls of each instance; none: until told to stop
  unsigned workers = 0;                 // the most calls at one time; 0: as many as there can be
};

// An instance with its items, ready to be called.
struct Job {
  const Instance& instance;
  Item item;
  std::optional<Item> report;  // what its alarm sends
};

// Where everything goes that is to be told.
struct Outputs {
  Reporter& reporter;
  ReportQueue& reports;    // filled by the items, handed on to the reporter
  const LineWriter& line;  // the reporter's
};

// Runs instances on a worker pool, each one at its own period. All but the items themselves happens
// on the thread that calls run(), so that nothing here needs a lock.
class Scheduler {
 public:
  // The instances and the outputs must outlive the scheduler.
  Scheduler(const std::vector<Job>& jobs, const Schedule& schedule, const Outputs& outputs);

  // False if no descriptor was left.
  bool ready() const { return pool_.ready(); }

  // Until every instance has had its rounds (one that is blind by then is not waited for), or
  // `stop_fd` becomes readable, or the output is closed.
  void run(int stop_fd);

  // Call after run(). False if an item has not returned: the process must then end by _exit().
  bool stop();

  // True if there was at least one answer and each call gave a valid value in time.
  bool all_valid() const { return all_valid_ && answers_ > 0; }

 private:
  using Clock = std::chrono::steady_clock;
  enum class State { kIdle, kRunning, kBlind };

  struct Slot {
    const Instance& instance;
    Call call;
    std::optional<Alarm> alarm{};
    Slot* report = nullptr;  // what the alarm sends
    bool of_alarm = false;   // this is such a report: called for each order, not by period
    std::optional<std::vector<FI_PARAM_S>> order{};
    State state = State::kIdle;
    bool refused = false;  // due, but no worker was to be had
    unsigned long calls = 0;
    Clock::time_point due{};
    Clock::time_point deadline{};
    WallTime called{};
  };

  Slot& add_slot(const Instance& instance, const Item& item);
  Slot& add_report(const Job& job);
  void start_due();
  void start(Slot& slot);
  bool wait(int stop_fd);
  void collect();
  void take_back(Slot& slot);
  void judge(Slot& slot, const Answer& answer);
  void pass_on_reports();
  void expire();
  bool finished() const;
  bool has_calls_left(const Slot& slot) const;
  Clock::time_point next_event() const;

  const Schedule schedule_;
  const Outputs outputs_;
  WorkerPool pool_;
  std::deque<Instance> report_instances_;
  std::deque<Slot> slots_;  // workers hold references: never moved
  unsigned long answers_ = 0;
  bool all_valid_ = true;
};

#endif
