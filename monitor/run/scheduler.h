// When each instance runs, and what becomes of those that do not come back.
#ifndef MONITOR_SCHEDULER_H
#define MONITOR_SCHEDULER_H

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "item/instance.h"
#include "item/plugin.h"
#include "item/process_library.h"
#include "item/state.h"
#include "output/report_queue.h"
#include "output/reporter.h"
#include "proc/stuck_processes.h"
#include "proc/wake.h"
#include "run/alarm.h"
#include "run/gap_watch.h"
#include "run/standstill.h"
#include "run/worker_pool.h"

struct Schedule {
  std::optional<unsigned long> rounds;  // calls of each instance; none: until told to stop
  unsigned workers = 0;                 // the most calls at one time; 0: as many as there can be
  bool ignore_self = false;             // patterns that match this very process find nothing
};

// An instance with its items, ready to be called.
struct Job {
  const Instance& instance;
  Item item;
  std::vector<std::optional<Item>> reports;  // what each of its alarms sends
};

// Where everything goes that is to be told.
struct Outputs {
  Reporter& reporter;
  ReportQueue& reports;  // filled by the items, handed on to the reporter
  LineQueue& lines;      // the reporter's
  LineQueue& log;
  const Wake& wake;  // set by all of them, and by a signal to stop
};

// Runs instances on a worker pool, each at its own period. All but the items themselves happens on
// the thread that calls run(), so that nothing here needs a lock.
class Scheduler {
 public:
  // The instances, the library and the outputs must outlive the scheduler.
  Scheduler(const std::vector<Job>& jobs, const Schedule& schedule, const Outputs& outputs,
            const ProcessLibrary* library);

  // Until every instance has had its rounds (one that is blind by then is not waited for), or a
  // stop is asked for, or nobody can be told anything any more. False in that last case.
  bool run();

  // Call after run(). False if an item has not returned: the process must then end by _exit().
  bool stop();

  // True if there was at least one answer and each call did in time what the item is for.
  bool all_done() const { return all_done_ && answers_ > 0; }

  // True if at least one call came back in time and did not fail.
  bool any_worked() const { return any_worked_; }

 private:
  using Clock = std::chrono::steady_clock;
  enum class Phase { kIdle, kRunning, kBlind };

  struct Slot;
  struct AlarmSlot {
    const AlarmRule& rule;
    Alarm alarm;
    Slot* report = nullptr;  // what it sends
    std::string id{};        // while it is raised
  };
  struct Order {
    std::vector<FI_PARAM_S> params;
    std::string alarm;
  };
  struct Slot {
    const Instance& instance;
    Call call;
    Standstill standstill;  // of a heartbeat
    std::deque<AlarmSlot> alarms{};
    bool of_alarm = false;  // a report: called for each order, not by period
    std::optional<Order> order{};
    Phase phase = Phase::kIdle;
    State state = State::kPending;
    bool refused = false;       // due, but no worker was to be had
    bool lock_is_told = false;  // that it waits for the lock of the heartbeat table
    unsigned long calls = 0;
    Clock::time_point due{};
    Clock::time_point deadline{};
    Clock::time_point started{};
    Clock::time_point previous_end{};  // of the call before
    WallTime called{};
  };

  Slot& add_slot(const Instance& instance, const Item& item);
  Slot& add_report(const Instance& instance, const AlarmRule& rule, const Item& item);
  void start_due();
  void start(Slot& slot);
  void wait();
  void collect();
  void take_back(Slot& slot);
  void plan_next(Slot& slot) const;
  Clock::time_point earliest_next(const Slot& slot) const;
  Finding finding_of(Slot& slot) const;
  Finding standstill_of(Slot& slot) const;
  Clock::duration missed_by(const Slot& slot) const;
  void settle(Slot& slot, Answer& answer);
  void count(const Slot& slot, const Answer& answer);
  void judge(Slot& slot, AlarmSlot& alarm, const Answer* answer, State state);
  void order_report(const Slot& slot, const AlarmSlot& alarm, const Answer* answer, State state);
  void pass_on_reports();
  void notice_gap(Clock::duration gap);
  void expire();
  void go_blind(Slot& slot, Clock::time_point now);
  void count_blind_beats(Clock::time_point now);
  void look_at_waiting(Clock::time_point now);
  void tell_lock(Slot& slot);
  void tell_lost_output();
  bool goes_on() const;
  bool nobody_listens() const;
  bool finished() const;
  bool has_calls_left(const Slot& slot) const;
  Clock::time_point next_event() const;

  const Schedule schedule_;
  const Outputs outputs_;
  StuckProcesses stuck_;
  const Surroundings surroundings_;
  GapWatch gaps_;
  Clock::duration pulse_;  // the longest sleep, so that gaps show in time
  WorkerPool pool_;
  std::deque<Instance> report_instances_;
  std::deque<Slot> slots_;  // workers hold references: never moved
  Clock::time_point next_look_;
  std::string alarm_prefix_;
  unsigned long alarms_raised_ = 0;
  unsigned long answers_ = 0;
  bool all_done_ = true;
  bool any_worked_ = false;
  bool lost_output_is_told_ = false;
  bool tells_alarms_ = false;  // some alarm sends a report
};

#endif
