// The configuration of the recovery of a hung data plane.
#ifndef MONITOR_RECOVERY_H
#define MONITOR_RECOVERY_H

#include <string>
#include <vector>

// How long the plug-in waits for the answer.
constexpr double kRecoverySeconds = 30.0;

struct Recovery {
  enum class Redundancy { kDeny, kAllow, kCommand };

  Redundancy redundancy = Redundancy::kDeny;
  std::string command;   // with kCommand: exit status 0 allows
  unsigned at_most = 1;  // number of recoveries allowed within per_s
  double per_s = 600.0;
  std::vector<std::string> spare{"frozen", "killable"};  // the kinds of threads that get no signal
};

#endif
