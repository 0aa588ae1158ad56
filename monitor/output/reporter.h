// Where the outcomes of calls go.
#ifndef MONITOR_REPORTER_H
#define MONITOR_REPORTER_H

#include <memory>
#include <optional>
#include <vector>

#include "item/instance.h"
#include "mirt_interface.h"
#include "output/report_queue.h"
#include "proc/thread_owner.h"
#include "text/clock_text.h"
#include "text/line_writer.h"

// One call that has returned.
struct Answer {
  const Instance& instance;
  double value;
  const FI_RESULT_S& result;
  WallTime time;                         // when it returned
  std::optional<WallTime> called_since;  // when it was called, if it has been reported as blind
  const std::optional<ThreadOwner>& thread_owner;
  bool of_alarm = false;  // it is the report that the instance's alarm sends

  bool valid() const { return result.result == 0; }
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
  WallTime since;  // when the call began
};

// An alarm raised or cleared by a call.
struct AlarmChange {
  const Answer& answer;
  bool raised;
};

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
};

// Aligned lines; failures in red where `colour` is set. Names and units set the columns' widths.
std::unique_ptr<Reporter> report_to_people(LineWriter& out, const std::vector<Instance>& instances,
                                           bool colour);

// One JSON object per line.
std::unique_ptr<Reporter> report_as_json(LineWriter& out);

#endif
