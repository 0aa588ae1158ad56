// Where the outcomes of calls go.
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
  std::optional<WallTime> called_since;  // when it was called, if it has been reported as blind
  const std::optional<ThreadOwner>& thread_owner;
  const std::optional<ThreadEvidence>& evidence;  // of a thread that hangs
  double standing_s;                              // for how long it has stood still
  Finding finding;
  State state = State::kOk;           // what the instance is in after this answer
  bool state_is_new = false;          // it was in another one before
  bool of_alarm = false;              // it is the report that the instance's alarm sends
  std::vector<std::string> alarms{};  // the ids of the alarms that are raised
  std::string note{};  // what else is known: "process 77 was killed by signal 9 after 3 h"

  bool valid() const { return result.result == 0; }
  // True if the value is to be shown: the item measured it, or says that all is well.
  bool has_value() const;
  // The process or thread that the value belongs to, if the item names one; 0 means none matched.
  std::optional<int> pid() const;
  // The thread, if `pid` is one.
  std::optional<int> thread() const;
  // The flow id that a process left whose heartbeat has stopped.
  std::optional<unsigned> flow_id() const;
};

// One call that is past its deadline.
struct Blindness {
  const Instance& instance;
  WallTime time;
  WallTime since;      // when the call began
  std::string detail;  // where it waits, if that can be told
};

// An alarm raised or cleared, by an answer or, while there is none, by the time that has passed.
struct AlarmChange {
  const Instance& instance;
  const AlarmRule& rule;
  WallTime time;
  const Answer* answer;  // null: the instance is blind
  State state;
  bool raised;
  std::string id;     // the same when it is raised, in its report, and when it is cleared
  std::string cause;  // why, if something is known beside the answer
};

// The evidence as JSON: name, state, wchan, stack, switches, ...
Json evidence_json(const Answer& answer);

// Called by one thread at a time.
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
  // Something that concerns several instances: "the monitor did not run for 3.2 s".
  virtual void happened(const std::string& text) = 0;
  // From now on the lines are of these instances.
  virtual void lay_out(const std::vector<Instance>& instances) = 0;
};

// "raised: above 90 for 3 calls"
std::string change_text(const AlarmChange& change);

// Aligned lines; failures in red where `colour` is set. Names and units set the columns' widths.
std::unique_ptr<Reporter> report_to_people(LineQueue& out, bool colour);
std::string loss_for_people(const LineQueue::Loss& loss);

// One JSON object per line.
std::unique_ptr<Reporter> report_as_json(LineQueue& out);
std::string loss_as_json(const LineQueue::Loss& loss);

// Records in the system's journal of alarms, changes of state, reports and events, beside the lines
// of another reporter. The journal must outlive it.
std::unique_ptr<Reporter> report_to_journal(std::unique_ptr<Reporter> beside, Journal& journal);

#endif
