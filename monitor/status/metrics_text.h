// The state of the monitor for Prometheus.
#ifndef MONITOR_METRICS_TEXT_H
#define MONITOR_METRICS_TEXT_H

#include <string>

#include "state/snapshot.h"

constexpr char kMetricsType[] = "text/plain; version=0.0.4; charset=utf-8";

// The snapshot, and what this process uses, in the text format of Prometheus. docs/metrics.md lists
// all metrics.
std::string metrics_text(const Snapshot& snapshot);

// The same for the node exporter, without the metrics process_*: it has metrics of these names
// about itself, and would refuse ours.
std::string metrics_file_text(const Snapshot& snapshot);

#endif
