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
  std::vector<Slot*> reports{};  // what it sends: its own report, and those of its alerts
  std::string id{};              // while it is raised
  WallTime since{};              // it was raised
  std::chrono::steady_clock::time_point reminded{};
  unsigned long silenced = 0;  // messages that a silence kept back
};

// A report that an alarm orders.
struct Order {
  std::vector<FI_PARAM_S> params;
  std::string alarm;
};

struct Slot {
  using Clock = std::chrono::steady_clock;
  enum class Phase { kIdle, kRunning, kBlind };

  // The instance is copied: a reload may take the configuration away while a call still runs.
  Slot(const Instance& its_instance, const Item& item, const Surroundings& around,
       Clock::duration period)
      : instance(its_instance),
        call{this, item, to_records(instance.params),
             Examiner(*instance.item, instance.params, around)},
        standstill(period) {
    for (const AlarmRule& rule : instance.alarms) alarms.emplace_back(rule);
    call.origin.instance = instance.name;
  }
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;

  const Instance instance;
  Call call;
  Standstill standstill;  // of a heartbeat
  std::deque<AlarmSlot> alarms{};
  bool of_alarm = false;  // a report: called for each order, not by period
  bool gone = false;      // a reload took it away while a call was running
  std::optional<Order> order{};
  Phase phase = Phase::kIdle;
  State state = State::kPending;
  WallTime state_since{};
  int followed = 0;           // the process whose end is watched
  int ended_pid = 0;          // a process that ended before it could be followed
  std::string ended{};        // how that one ended, until there is another
  unsigned restarts = 0;      // how often there was another
  bool call_at_once = false;  // its process has ended: out of its beat
  bool refused = false;       // due, but no worker was to be had
  bool lock_is_told = false;  // that it waits for the lock of the heartbeat table
  unsigned long calls = 0;
  Clock::time_point due{};
  Clock::time_point deadline{};
  Clock::time_point started{};
  Clock::time_point previous_end{};  // of the call before
  WallTime called{};

  // What is known of it, for whoever looks from outside.
  std::string detail{}, note{};
  bool has_value = false;
  double value = 0.0;
  std::optional<unsigned> flow_id{};
  std::optional<WallTime> answered{};
  std::array<unsigned long, 7> outcomes{};       // by State
  std::array<unsigned long, 2> alarms_raised{};  // by Severity
  Durations call_s{};
  Json evidence{};
  History history{};
  std::shared_ptr<const WatchView> view{};  // null: something has changed since
};

#endif
