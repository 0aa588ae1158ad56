// The series of one metric.
#ifndef MONITOR_METRIC_FAMILY_H
#define MONITOR_METRIC_FAMILY_H

#include <prometheus/metric_family.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "state/snapshot.h"

class MetricFamily {
 public:
  using Labels = std::initializer_list<std::pair<const char*, std::string_view>>;
  using Type = prometheus::MetricType;

  MetricFamily(const char* name, const char* help, Type type = Type::Gauge);

  // Adds a series. The values of its labels must be valid UTF-8: see label_text().
  void add(Labels labels, double value);
  // The same for a histogram, with buckets at some or all of the bounds that were counted.
  void add(Labels labels, const Durations& durations, const std::vector<double>& bounds);

  // Moves the series to `all`. Without any, the metric is left out.
  void move_to(std::vector<prometheus::MetricFamily>& all);

 private:
  prometheus::ClientMetric& add_series(Labels labels);

  prometheus::MetricFamily family_;
};

// The text as the value of a label: each byte that is not valid UTF-8 becomes U+FFFD.
std::string label_text(const std::string& text);

// Seconds since 1970, the form of all times in metrics.
double unix_seconds(WallTime time);

#endif
