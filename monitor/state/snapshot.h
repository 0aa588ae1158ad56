// The whole state of the monitor at one moment. The scheduler's thread makes it, and it never
// changes afterwards, so a slow reader delays nothing.
#ifndef MONITOR_SNAPSHOT_H
#define MONITOR_SNAPSHOT_H

#include <array>
#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "item/alarm_rule.h"
#include "item/item_table.h"
#include "item/state.h"
#include "state/history.h"
#include "text/clock_text.h"
#include "text/json_text.h"

// Counts of durations by size.
struct Durations {
  static constexpr std::array<double, 11> kBounds{0.0005, 0.001, 0.005, 0.01, 0.02, 0.05,
                                                  0.1,    0.5,   1.0,   5.0,  30.0};
  std::array<unsigned long, kBounds.size() + 1> counts{};  // up to each bound, and above the last
  double sum_s = 0.0;

  void add(double seconds);
};

struct AlarmView {
  std::string id;
  std::string condition;
  Severity severity;
  WallTime since;
  bool silenced;
};

// One instance.
struct WatchView {
  std::string name;
  const ItemRow* item;
  std::string parameter;  // first parameter: a command line, a folder, a process name
  std::string unit;
  double period_s;
  State state;
  WallTime state_since;
  std::string detail;  // the reason for the state
  std::string note;
  bool has_value;
  double value;
  int pid;                           // the process it is about; 0: none
  std::optional<unsigned> flow_id;   // of a heartbeat that has stopped
  std::optional<WallTime> answered;  // the last time
  std::vector<AlarmView> alarms;     // raised ones
  std::array<bool, 2> has_alarm;     // by Severity: one with it is configured
  unsigned long alarms_raised_warning, alarms_raised_critical;
  std::array<unsigned long, 7> outcomes;  // answers by State, blind ones included
  Durations call_s;
  Json evidence;        // of a hung thread; null if there is none
  std::string cmdline;  // of the process of a hung thread
  History history;
};

struct SilenceView {
  std::string pattern, reason;
  WallTime since, until;
};

struct AlertView {
  std::string name, way, last_error;
  unsigned long sent, failed, dropped;
  size_t queued;
  bool failing;
};

struct Snapshot {
  WallTime taken;
  std::chrono::steady_clock::time_point taken_steady;
  WallTime started;
  std::vector<std::shared_ptr<const WatchView>> watches;  // in the order of the configuration
  std::vector<SilenceView> silences;
  std::vector<AlertView> alerts;
  std::map<std::string, unsigned long> reports;             // sent, by error code "0xF000020F"
  std::map<std::string, unsigned long> recovery_decisions;  // "allowed", "denied", ...
  Durations lateness_s;                                     // of calls that started by the schedule
  unsigned long skipped_starts;  // start times that passed during a call or before a late one
  bool last_reload_ok;
  std::optional<WallTime> last_reload;
  std::string trouble;  // why calls cannot start on time; empty if they can
};

#endif
