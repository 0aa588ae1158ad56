// The metrics of the single watches.
#ifndef MONITOR_WATCH_METRICS_H
#define MONITOR_WATCH_METRICS_H

#include <prometheus/metric_family.h>

#include <vector>

#include "state/snapshot.h"

// Adds the metrics of all watches of the snapshot to `all`.
void add_watch_metrics(const Snapshot& snapshot, std::vector<prometheus::MetricFamily>& all);

#endif
