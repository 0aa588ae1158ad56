// Whether a hung data plane may be recovered: the answer to the plug-in's question.
#ifndef MONITOR_RECOVERY_H
#define MONITOR_RECOVERY_H

#include <string>

struct Recovery {
  enum class Redundancy { kDeny, kAllow, kCommand };

  Redundancy redundancy = Redundancy::kDeny;
  std::string command;  // with kCommand: exit code 0 allows
};

// Has the host library answer the plug-in's question as `recovery` says, which must outlive every
// item call. False if it takes no further handler.
bool answer_redundancy(const Recovery& recovery);

#endif
