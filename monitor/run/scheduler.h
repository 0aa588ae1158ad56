// Decides when each instance is called, and handles calls that do not return.
#ifndef MONITOR_SCHEDULER_H
#define MONITOR_SCHEDULER_H

#include <chrono>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "alert/state_store.h"
#include "item/plan.h"
#include "item/plugin.h"
#include "item/process_library.h"
#include "output/report_queue.h"
#include "output/reporter.h"
#include "proc/stuck_processes.h"
#include "proc/wait_place.h"
#include "proc/wake.h"
#include "run/alarm_desk.h"
#include "run/clock_watch.h"
#include "run/end_watch.h"
#include "run/gap_watch.h"
#include "run/losses.h"
#include "run/mailbox.h"
#include "run/reloader.h"
#include "run/slot.h"
#include "run/worker_pool.h"
#include "service/service_notice.h"
#include "state/publisher.h"

struct Schedule {
  std::optional<unsigned long> rounds;  // calls of each instance; none: until a stop signal
  bool ignore_self = false;             // a pattern that matches only this process finds nothing
};

// The outputs of the scheduler and the sources of its requests.
struct Surface {
  Reporter& reporter;
  ReportQueue& reports;  // filled by the items; the scheduler passes them to the reporter
  LineQueue& lines;      // the queue of the reporter
  LineQueue& log;
  AlarmDesk& desk;
  AlertSender& sender;
  Reloader* reloader;    // null: the configuration cannot be reloaded
  Mailbox& mailbox;      // requests of other threads
  Publisher& publisher;  // snapshots for other threads
  StateStore* store;     // keeps state over a restart; null: nothing is kept
  ServiceNotice& service;
  const Wake& wake;  // set by all of these and by signals
};

// Calls each instance at its period, on a worker pool. Everything except the items runs on the
// thread that calls run(), so no lock is needed here.
class Scheduler {
 public:
  // The plug-in, the library and the surface must outlive the scheduler.
  Scheduler(const Schedule& schedule, const Plugin& plugin, const ProcessLibrary* library,
            const Surface& surface);

  // Reserves this many descriptors, which calls must not use. Call it before the first apply().
  void reserve_descriptors(size_t count) { reserved_descriptors_ = count; }

  // Replaces the instances. Unchanged instances keep their context, alarms and start times. The
  // plug-in must export all items of the plan.
  void apply(const Plan& plan);

  // Runs until every instance has completed its rounds (it does not wait for blind instances), a
  // stop is requested, or neither output nor alerts reach anybody. False in this last case.
  bool run();

  // Call it after run(). False if an item has not returned: the process must then call _exit().
  bool stop();

  // True if there was at least one answer, and each call measured or did its action in time.
  bool all_done() const { return all_done_ && answers_ > 0; }

  // True if at least one call returned in time and did not fail.
  bool any_worked() const { return any_worked_; }

  // True if it was logged that the output is closed or has failed.
  bool lost_output_is_told() const { return lost_output_is_told_; }

  // Restores the state from before a restart. Call it after the first apply().
  void take_up(const SavedState& state);

 private:
  struct LostCall {
    std::unique_ptr<Call> call{};
    WallTime since{};
  };

  using Clock = std::chrono::steady_clock;
  using Phase = Slot::Phase;

  struct Draft;
  void draft_instance(const Instance& instance, const std::vector<Alert>& alerts, Draft& draft);
  void draft_report(const Instance& instance, const AlarmReport& report, Draft& draft) const;
  void dismiss(std::list<Slot>& old);
  void remove_gone();
  void start_due();
  void start_asleep(std::vector<Slot*>& slots);
  void start(const std::vector<Slot*>& slots);
  void note_start(Slot& slot) const;
  void look_at_groups(Clock::time_point now);
  void wait(bool has_lost);
  void collect();
  void take_back(Slot& slot);
  void plan_next(Slot& slot);
  Clock::time_point earliest_next(const Slot& slot) const;
  Finding finding_of(Slot& slot) const;
  Finding standstill_of(Slot& slot) const;
  Clock::duration missed_by(const Slot& slot) const;
  void count(const Slot& slot, const Answer& answer);
  void count_lateness(Clock::duration lateness);
  void tell(Slot& slot, Answer& answer);
  Cause note_return(Slot& slot, Answer& answer) const;
  void follow(Slot& slot);
  void look_at_ends();
  void pass_on_reports();
  void look_at_clocks();
  void notice_gap(Clock::duration gap);
  void expire();
  void go_blind(Slot& slot, Clock::time_point now);
  void count_blind_starts(Clock::time_point now);
  void look_at_waiting(Clock::time_point now);
  bool note_stuck(const std::optional<WaitPlace>& place, WallTime since, Clock::time_point now);
  void replace_call(Slot& slot, Clock::time_point now);
  void look_at_threads(Clock::time_point now);
  void tell_lock(Slot& slot);
  void tell_lost_output();
  void reload();
  void take_reading(const Reloader::Outcome& outcome);
  void publish();
  void tell_losses();
  void tell_service();
  std::string service_status() const;
  void save();
  bool all_called() const;
  const Slot* waits_for_worker(Clock::time_point now) const;
  Clock::duration recent_gaps(Clock::time_point now) const;
  std::string trouble(Clock::time_point now) const;
  bool goes_on() const;
  bool nobody_listens() const;
  bool finished() const;
  bool has_calls_left(const Slot& slot) const;
  Clock::time_point next_event() const;

  const Schedule schedule_;
  const Plugin& plugin_;
  const Surface surface_;
  StuckProcesses stuck_;
  const Surroundings surroundings_;
  GapWatch gaps_;
  ClockWatch clocks_;
  EndWatch ends_;
  Clock::duration pulse_;  // the longest sleep, so that gaps are noticed in time
  WorkerPool pool_;
  std::list<Slot> slots_;     // workers hold references: never moved
  size_t gone_ = 0;           // of these
  std::list<LostCall> lost_;  // calls that were replaced and have not returned
  Clock::time_point next_look_;
  Clock::time_point next_group_look_ = Clock::time_point::max();
  std::optional<Clock::time_point> no_threads_since_;
  unsigned hangups_seen_ = 0;
  Losses losses_;
  const WallTime started_ = std::chrono::system_clock::now();
  Clock::time_point next_publication_{};
  std::map<std::string, unsigned long> reports_sent_;  // by error code
  Durations lateness_s_;
  std::optional<Clock::time_point> latest_late_call_;  // began much later than it was due
  Clock::duration its_lateness_{};
  size_t reserved_descriptors_ = 0;
  unsigned long skipped_starts_ = 0;
  bool last_reload_ok_ = true;
  std::optional<WallTime> last_reload_;
  unsigned long answers_ = 0;
  bool all_done_ = true;
  bool any_worked_ = false;
  bool lost_output_is_told_ = false;
  bool tells_alarms_ = false;  // at least one alarm sends a report or an alert
};

#endif
