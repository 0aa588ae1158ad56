// Collects what the kernel shows of a hung thread.
#ifndef MONITOR_THREAD_EVIDENCE_H
#define MONITOR_THREAD_EVIDENCE_H

#include <optional>
#include <string>

struct ThreadEvidence {
  int tid = 0;
  std::string name;   // of the thread
  std::string state;  // "D (disk sleep)"
  std::string wchan;  // the kernel function in which it sleeps; empty if unknown
  std::string stack;  // one kernel function per line; empty without the right to read it
  unsigned long voluntary_switches = 0, involuntary_switches = 0;
  unsigned same_stack = 1;  // threads of the process in D state with the same stack
  // "frozen": its control group is frozen, or its stack shows a freezer. "killable": its stack
  // shows a wait that a signal can end. Empty: probably a hang.
  std::string suspected;
};

// From /proc/<tid>/{comm,status,wchan,stack}; nothing if there is no such thread. Waits while the
// kernel blocks reads of these files, so do not call it on the main thread.
std::optional<ThreadEvidence> evidence_of(int tid);

// "frozen", "killable" or empty, by the kernel stack: see ThreadEvidence.
std::string suspicion(const std::string& stack);

#endif
