#include "status/watch_metrics.h"

#include <set>
#include <string>
#include <string_view>

#include "status/evidence_text.h"
#include "status/metric_family.h"
#include "status/value_metric.h"

namespace {

constexpr Severity kSeverities[] = {Severity::kWarning, Severity::kCritical};

// Fewer than are counted: each bucket is one more series for each watch of each machine.
const std::vector<double> kCallBounds{0.01, 0.1, 1.0, 5.0};

bool measures_folder(const WatchView& watch) {
  return watch.item->source.subject == Subject::kFileSystem;
}

class WatchMetrics {
 public:
  WatchMetrics() {
    for (const ValueMetric& metric : kValueMetrics) values_.emplace_back(metric.name, metric.help);
  }

  void add(const WatchView& watch) {
    const std::string name = label_text(watch.name);
    add_value(watch, name);
    add_state(watch, name);
    for (const Severity severity : kSeverities) add_alarms(watch, name, severity);
  }

  void move_to(std::vector<prometheus::MetricFamily>& all) {
    for (MetricFamily& family : values_) family.move_to(all);
    for (MetricFamily* const family : {&flow_ids_, &pids_, &states_, &answered_, &call_s_, &calls_,
                                       &active_, &raised_, &evidence_}) {
      family->move_to(all);
    }
  }

 private:
  using Type = MetricFamily::Type;

  void add_value(const WatchView& watch, const std::string& name);
  void add_state(const WatchView& watch, const std::string& name);
  void add_alarms(const WatchView& watch, const std::string& name, Severity severity);

  std::vector<MetricFamily> values_;  // as in kValueMetrics
  MetricFamily flow_ids_{"mirt_heartbeat_flow_id",
                         "Flow id of a process whose heartbeat has stopped."};
  MetricFamily pids_{"mirt_process_pid", "Process id that belongs to the value."};
  MetricFamily states_{"mirt_watch_state", "1 for the current state of the watch, 0 for others."};
  MetricFamily answered_{"mirt_watch_last_answer_timestamp_seconds",
                         "Time of the last answer of the item."};
  MetricFamily call_s_{"mirt_watch_call_seconds", "Duration of the calls that returned.",
                       Type::Histogram};
  MetricFamily calls_{"mirt_watch_calls_total", "Calls by the state that followed.", Type::Counter};
  MetricFamily active_{"mirt_alarm_active", "1 while an alarm of this severity is raised, else 0."};
  MetricFamily raised_{"mirt_alarms_raised_total", "Alarms that were raised.", Type::Counter};
  MetricFamily evidence_{
      "mirt_alarm_info",
      "1 while the alarm is raised; the labels have the condition and the evidence."};
};

void WatchMetrics::add_value(const WatchView& watch, const std::string& name) {
  const size_t metric = value_metric_of(*watch.item);
  if (!watch.has_value || metric == kValueMetricCount) return;
  const double value = metric_value(*watch.item, watch.value);
  if (measures_folder(watch)) {
    values_[metric].add({{"watch", name}, {"mountpoint", label_text(watch.parameter)}}, value);
  } else {
    values_[metric].add({{"watch", name}}, value);
  }
  if (watch.pid > 0) pids_.add({{"watch", name}}, watch.pid);
  if (watch.flow_id) flow_ids_.add({{"watch", name}}, *watch.flow_id);
}

void WatchMetrics::add_state(const WatchView& watch, const std::string& name) {
  for (const State state : kAllStates) {
    const std::string_view word = state_name(state);
    states_.add({{"watch", name}, {"state", word}}, watch.state == state ? 1.0 : 0.0);
    const unsigned long calls = watch.outcomes[static_cast<size_t>(state)];
    if (calls == 0 && state != State::kOk) continue;  // five series less for an ordinary watch
    calls_.add({{"watch", name}, {"outcome", word}}, static_cast<double>(calls));
  }
  call_s_.add({{"watch", name}}, watch.call_s, kCallBounds);
  if (watch.answered) answered_.add({{"watch", name}}, unix_seconds(*watch.answered));
}

void WatchMetrics::add_alarms(const WatchView& watch, const std::string& name, Severity severity) {
  const auto index = static_cast<size_t>(severity);
  if (!watch.has_alarm[index]) return;
  const std::string_view word = severity_name(severity);
  const unsigned long raised =
      severity == Severity::kWarning ? watch.alarms_raised_warning : watch.alarms_raised_critical;
  std::set<std::string> conditions;  // two alarms can differ in how long theirs must last
  for (const AlarmView& alarm : watch.alarms) {
    if (alarm.severity == severity) conditions.insert(label_text(alarm.condition));
  }
  active_.add({{"watch", name}, {"severity", word}}, conditions.empty() ? 0.0 : 1.0);
  raised_.add({{"watch", name}, {"severity", word}}, static_cast<double>(raised));
  for (const std::string& condition : conditions) {
    evidence_.add({{"watch", name},
                   {"severity", word},
                   {"condition", condition},
                   {"evidence", label_text(evidence_text(watch))}},
                  1.0);
  }
}

}  // namespace

void add_watch_metrics(const Snapshot& snapshot, std::vector<prometheus::MetricFamily>& all) {
  WatchMetrics metrics;
  for (const auto& watch : snapshot.watches) metrics.add(*watch);
  metrics.move_to(all);
}
