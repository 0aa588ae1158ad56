// Writes the results of calls.
#ifndef MONITOR_REPORTER_H
#define MONITOR_REPORTER_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "item/instance.h"
#include "item/state.h"
#include "mirt_interface.h"
#include "output/report_queue.h"
#include "proc/thread_evidence.h"
#include "proc/thread_owner.h"
#include "service/journal.h"
#include "text/clock_text.h"
#include "text/json_text.h"
#include "text/line_queue.h"

// One call that has returned.
struct Answer {
  const Instance& instance;
  double value;  // as the item returned it
  const FI_RESULT_S& result;
  WallTime time;                         // when it returned
  std::optional<WallTime> called_since;  // when the call began, if it was reported as blind
  const std::optional<ThreadOwner>& thread_owner;
  const std::optional<ThreadEvidence>& evidence;  // of a hung thread
  double standing_s;                              // for how long this thread has hung
  Finding finding;
  State state = State::kOk;           // of the instance after this answer
  bool state_is_new = false;          // the state before was another one
  bool of_alarm = false;              // the call sent the report of an alarm
  std::vector<std::string> alarms{};  // ids of the raised alarms
  std::string note{};  // about the process: "process 77 killed by signal 9 after 3 h 12 min"

  bool valid() const { return result.result == 0; }
  // True if the value is meaningful: the item measured it, or reported no problem.
  bool has_value() const;
  // The process or thread of the value, if the item names one; 0 means that none matched.
  std::optional<int> pid() const;
  // The thread, if pid() is a thread.
  std::optional<int> thread() const;
  // The flow id of a process whose heartbeat has stopped.
  std::optional<unsigned> flow_id() const;
};

// A call that has exceeded its deadline.
struct Blindness {
  const Instance& instance;
  WallTime time;
  WallTime since;      // when the call began
  std::string detail;  // where it waits; empty if unknown
};

// An alarm that was raised or cleared, by an answer or, while the instance is blind, without one.
struct AlarmChange {
  const Instance& instance;
  const AlarmRule& rule;
  WallTime time;
  const Answer* answer;  // null: the instance is blind
  State state;
  bool raised;
  std::string id;     // the same when raised, in the report, and when cleared
  std::string cause;  // additional reason; empty if there is none
};

// The evidence as JSON: name, state, wchan, stack, switches, ...
Json evidence_json(const Answer& answer);

// Use it on one thread at a time.
class Reporter {
 public:
  Reporter() = default;
  virtual ~Reporter() = default;
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;

  virtual void answered(const Answer& answer) = 0;
  virtual void went_blind(const Blindness& blindness) = 0;
  virtual void alarm_changed(const AlarmChange& change) = 0;
  virtual void reported(const Report& report) = 0;
  // An event that concerns several instances: "the monitor did not run for 3.2 s".
  virtual void happened(const std::string& text) = 0;
  // Sets the instances of the following lines.
  virtual void lay_out(const std::vector<Instance>& instances) = 0;
};

// "raised: above 90 for 3 calls"
std::string change_text(const AlarmChange& change);

// Aligned lines, with failures in red if `colour` is set. The longest name and unit set the widths.
std::unique_ptr<Reporter> report_to_people(LineQueue& out, bool colour);
std::string loss_for_people(const LineQueue::Loss& loss);

// One JSON object per line.
std::unique_ptr<Reporter> report_as_json(LineQueue& out);
std::string loss_as_json(const LineQueue::Loss& loss);

// Records in the system's journal of alarms, changes of state, reports and events, beside the lines
// of another reporter. The journal must outlive it.
std::unique_ptr<Reporter> report_to_journal(std::unique_ptr<Reporter> beside, Journal& journal);

#endif
