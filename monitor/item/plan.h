// The complete input of a run. A reload replaces it.
#ifndef MONITOR_PLAN_H
#define MONITOR_PLAN_H

#include <optional>
#include <string>
#include <vector>

#include "item/alert.h"
#include "item/http_address.h"
#include "item/instance.h"
#include "item/recovery.h"

// Answers over TCP.
struct HttpPlan {
  HttpAddress address;
  bool exposes_page = false;  // other machines can read everything
};

// The file that has the metrics.
struct MetricsFilePlan {
  std::string path;
  double every_s = 15.0;
};

struct Plan {
  std::vector<Instance> instances;
  std::vector<Alert> alerts;
  Recovery recovery;
  std::string state_file;     // keeps state over a restart; empty: nothing is kept
  std::string status_socket;  // where the monitor answers; empty: nowhere
  std::optional<HttpPlan> http;
  std::optional<MetricsFilePlan> metrics_file;
  unsigned workers = 0;  // the most calls at one time; 0: one for each instance and report
};

// True if both differ at most in the place of their configuration, so that the context and the
// alarms of one are valid for the other.
bool same_watch(const Instance& a, const Instance& b);

#endif
