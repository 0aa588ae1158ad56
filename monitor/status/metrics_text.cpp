#include "status/metrics_text.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <streambuf>
#include <utility>
#include <vector>

#include "proc/own_process.h"
#include "status/metric_family.h"
#include "status/watch_metrics.h"

namespace {

using Families = std::vector<prometheus::MetricFamily>;
using Type = MetricFamily::Type;

// A stream into a string. The text comes in very many small pieces: std::ostringstream takes a
// fifth longer for all of them.
class TextBuffer final : public std::streambuf {
 public:
  explicit TextBuffer(size_t size) { text_.reserve(size); }

  std::string take() { return std::move(text_); }

 protected:
  std::streamsize xsputn(const char* piece, std::streamsize size) override {
    text_.append(piece, static_cast<size_t>(size));
    return size;
  }
  int_type overflow(int_type letter) override {
    text_ += traits_type::to_char_type(letter);
    return letter;
  }

 private:
  std::string text_;
};

size_t likely_size(const Families& families) {
  constexpr size_t kLine = 100;
  size_t lines = 0;
  for (const prometheus::MetricFamily& family : families) {
    const size_t buckets = family.metric.front().histogram.bucket.size();
    lines += 2 + family.metric.size() * (buckets == 0 ? 1 : buckets + 2);
  }
  return lines * kLine;
}

double number(size_t count) {
  return static_cast<double>(count);
}

void add_gauge(const char* name, const char* help, double value, Families& all) {
  MetricFamily family(name, help);
  family.add({}, value);
  family.move_to(all);
}

// The channels of one alert are counted together.
void add_alerts(const std::vector<AlertView>& alerts, Families& all) {
  std::map<std::string, std::map<std::string_view, unsigned long>> counts;
  for (const AlertView& alert : alerts) {
    auto& outcomes = counts[label_text(alert.name)];
    outcomes["sent"] += alert.sent;
    outcomes["failed"] += alert.failed;
    outcomes["dropped"] += alert.dropped;
  }
  MetricFamily sent("mirt_alerts_sent_total", "Messages of alerts by their outcome.",
                    Type::Counter);
  for (const auto& [alert, outcomes] : counts) {
    for (const auto& [outcome, count] : outcomes) {
      sent.add({{"alert", alert}, {"outcome", outcome}}, number(count));
    }
  }
  sent.move_to(all);
}

void add_counts(const Snapshot& snapshot, Families& all) {
  MetricFamily reports("mirt_reports_total", "Error reports that were sent.", Type::Counter);
  for (const auto& [code, count] : snapshot.reports) {
    reports.add({{"error_code", code}}, number(count));
  }
  reports.move_to(all);
  MetricFamily decisions("mirt_recovery_decisions_total", "Decisions about recovery.",
                         Type::Counter);
  for (const auto& [words, count] : snapshot.recovery_decisions) {
    std::string decision = words;
    std::replace(decision.begin(), decision.end(), ' ', '_');
    decisions.add({{"decision", decision}}, number(count));
  }
  decisions.move_to(all);
}

void add_schedule(const Snapshot& snapshot, Families& all) {
  MetricFamily lateness("mirt_schedule_lateness_seconds",
                        "Delay between the due time and the start of calls.", Type::Histogram);
  lateness.add({}, snapshot.lateness_s, {Durations::kBounds.begin(), Durations::kBounds.end()});
  lateness.move_to(all);
  add_gauge("mirt_config_last_reload_success",
            "1 if the configuration was valid when it was last read, else 0.",
            snapshot.last_reload_ok ? 1.0 : 0.0, all);
  add_gauge("mirt_config_last_reload_timestamp_seconds", "When the configuration was last read.",
            unix_seconds(snapshot.last_reload.value_or(snapshot.started)), all);
  MetricFamily build("mirt_build_info", "The version of the monitor.");
  build.add({{"version", MIRT_VERSION}}, 1.0);
  build.move_to(all);
}

void add_process(const Snapshot& snapshot, Families& all) {
  const OwnProcess own = own_process();
  MetricFamily cpu("process_cpu_seconds_total", "Processor time that the monitor has used.",
                   Type::Counter);
  cpu.add({}, own.cpu_s);
  cpu.move_to(all);
  add_gauge("process_resident_memory_bytes", "Resident memory of the monitor.",
            number(own.resident_bytes), all);
  add_gauge("process_virtual_memory_bytes", "Virtual memory of the monitor.",
            number(own.virtual_bytes), all);
  add_gauge("process_open_fds", "Open files of the monitor.", number(own.open_files), all);
  add_gauge("process_max_fds", "Limit of open files of the monitor.", number(own.most_files), all);
  add_gauge("process_threads", "Threads of the monitor.", number(own.threads), all);
  add_gauge("process_start_time_seconds", "When the monitor started.",
            unix_seconds(snapshot.started), all);
}

Families families_of(const Snapshot& snapshot) {
  Families all;
  add_watch_metrics(snapshot, all);
  add_alerts(snapshot.alerts, all);
  add_counts(snapshot, all);
  add_schedule(snapshot, all);
  return all;
}

std::string text_of(const Families& all) {
  TextBuffer text(likely_size(all));
  std::ostream out(&text);
  prometheus::TextSerializer().Serialize(out, all);
  return text.take();
}

}  // namespace

std::string metrics_text(const Snapshot& snapshot) {
  Families all = families_of(snapshot);
  add_process(snapshot, all);
  return text_of(all);
}

std::string metrics_file_text(const Snapshot& snapshot) {
  return text_of(families_of(snapshot));
}
