#include "status/metric_family.h"

#include <limits>

#include "text/json_text.h"
#include "text/terminal_text.h"

MetricFamily::MetricFamily(const char* name, const char* help, Type type) {
  family_.name = name;
  family_.help = help;
  family_.type = type;
}

prometheus::ClientMetric& MetricFamily::add_series(Labels labels) {
  prometheus::ClientMetric& series = family_.metric.emplace_back();
  series.label.reserve(labels.size());
  for (const auto& [name, value] : labels) series.label.push_back({name, std::string(value)});
  return series;
}

void MetricFamily::add(Labels labels, double value) {
  prometheus::ClientMetric& series = add_series(labels);
  series.gauge.value = value;  // the type says which of them counts
  series.counter.value = value;
}

void MetricFamily::add(Labels labels, const Durations& durations,
                       const std::vector<double>& bounds) {
  auto& histogram = add_series(labels).histogram;
  histogram.sample_sum = durations.sum_s;
  for (size_t i = 0, next = 0; i < durations.counts.size(); ++i) {
    histogram.sample_count += durations.counts[i];
    const bool is_bucket = next < bounds.size() && Durations::kBounds[i] == bounds[next];
    if (!is_bucket) continue;
    histogram.bucket.push_back({histogram.sample_count, bounds[next++]});
  }
  histogram.bucket.push_back({histogram.sample_count, std::numeric_limits<double>::infinity()});
}

void MetricFamily::move_to(std::vector<prometheus::MetricFamily>& all) {
  if (!family_.metric.empty()) all.push_back(std::move(family_));
}

std::string label_text(const std::string& text) {
  if (first_malformed(text) == std::string::npos) return text;
  return Json::parse(json_text(text)).get<std::string>();
}

double unix_seconds(WallTime time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}
