// The state of the running monitor as a plug-in of a monitoring system gives it.
#ifndef MONITOR_STATUS_CHECK_H
#define MONITOR_STATUS_CHECK_H

#include <string>

#include "text/json_text.h"

// The exit statuses of the convention.
constexpr int kCheckOk = 0, kCheckWarning = 1, kCheckCritical = 2, kCheckUnknown = 3;

// One line, with performance data behind a vertical bar, and its exit status.
struct CheckResult {
  std::string line;
  int exit_status;
};

// Of the whole state. Critical outranks unknown, which outranks a warning: what is not known can be
// critical.
CheckResult check_status(const Json& status);

// Of one watch.
CheckResult check_watch(const Json& watch);

CheckResult check_failed(const std::string& reason);

#endif
