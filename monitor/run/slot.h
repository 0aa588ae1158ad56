// One instance at run time.
#ifndef MONITOR_SLOT_H
#define MONITOR_SLOT_H

#include <array>
#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "item/instance.h"
#include "item/state.h"
#include "run/alarm.h"
#include "run/standstill.h"
#include "run/worker_pool.h"
#include "state/snapshot.h"
#include "text/clock_text.h"

struct Slot;

// One alarm of an instance.
struct AlarmSlot {
  explicit AlarmSlot(const AlarmRule& its_rule) : rule(its_rule), alarm(its_rule) {}

  const AlarmRule& rule;
  Alarm alarm;
  std::vector<Slot*> reports{};  // its own report, and those of its alerts
  std::string id{};              // valid while it is raised
  WallTime since{};              // when it was raised
  std::chrono::steady_clock::time_point reminded{};
  unsigned long silenced = 0;  // messages that were not sent because of a silence
};

// A report that an alarm orders.
struct Order {
  std::vector<FI_PARAM_S> params;
  std::string alarm;
};

struct Slot {
  using Clock = std::chrono::steady_clock;
  enum class Phase { kIdle, kRunning, kBlind };

  // Copies the instance, because a reload can remove the configuration while a call runs.
  Slot(const Instance& its_instance, const Item& item, const Surroundings& around,
       Clock::duration period)
      : instance(its_instance), call(new_call(item, around)), standstill(period) {
    for (const AlarmRule& rule : instance.alarms) alarms.emplace_back(rule);
  }
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;

  // A call of this instance without a context.
  std::unique_ptr<Call> new_call(const Item& item, const Surroundings& around) {
    std::unique_ptr<Call> made(new Call{this, item, to_records(instance.params),
                                        Examiner(*instance.item, instance.params, around)});
    made->origin.instance = instance.name;
    return made;
  }

  // Its process has ended: the instance is called at once.
  void note_end(int process, std::string text) {
    ended_pid = process;
    ended_at = Clock::now();
    ended = std::move(text);
    call_at_once = true;
    if (phase == Phase::kIdle) due = ended_at;
  }

  const Instance instance;
  std::unique_ptr<Call> call;
  Standstill standstill;  // of a heartbeat
  std::deque<AlarmSlot> alarms{};
  bool of_alarm = false;  // a report: called for each order, not periodically
  bool gone = false;      // a reload removed it while a call was running
  std::optional<Order> order{};
  Phase phase = Phase::kIdle;
  State state = State::kPending;
  WallTime state_since{};
  int followed = 0;              // the followed process; 0: none
  int ended_pid = 0;             // the process that ended last
  Clock::time_point ended_at{};  // when that was noticed
  std::string ended{};           // how the process ended; empty once another one runs
  unsigned restarts = 0;         // how often another process replaced an ended one
  bool call_at_once = false;     // its process has ended: do not wait for the next start time
  bool alone = false;            // withdrawn from a group: the next call gets its own thread
  bool refused = false;          // due, but there was no worker for it
  bool lock_is_told = false;     // it is logged that it waits for the lock of the heartbeat table
  unsigned long calls = 0;
  Clock::time_point due{};
  Clock::time_point deadline{};
  Clock::time_point started{};
  Clock::time_point previous_end{};  // of the previous call
  WallTime called{};

  // The data for snapshots.
  std::string detail{}, note{};
  bool has_value = false;
  double value = 0.0;
  int pid = 0;            // the process that the last answer was about
  std::string cmdline{};  // of the process of a thread that hangs
  std::optional<unsigned> flow_id{};
  std::optional<WallTime> answered{};
  std::array<unsigned long, 7> outcomes{};       // by State
  std::array<unsigned long, 2> alarms_raised{};  // by Severity
  Durations call_s{};
  Json evidence{};
  History history{};
  std::shared_ptr<const WatchView> view{};  // null: the data above has changed
};

#endif
