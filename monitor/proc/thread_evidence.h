// What the kernel tells of a thread that hangs.
#ifndef MONITOR_THREAD_EVIDENCE_H
#define MONITOR_THREAD_EVIDENCE_H

#include <optional>
#include <string>

struct ThreadEvidence {
  int tid = 0;
  std::string name;   // of the thread
  std::string state;  // "D (disk sleep)"
  std::string wchan;  // the kernel function in which it sleeps; empty if the kernel does not tell
  std::string stack;  // one kernel function a line; empty without the right to read it
  unsigned long voluntary_switches = 0, involuntary_switches = 0;
  unsigned same_stack = 1;  // threads of the process that sleep in D state with this very stack
  // "frozen" (its control group is, or its stack shows a freezer) or "killable" (a signal can end
  // the wait, by its stack); empty: a hang, as far as can be told.
  std::string suspected;
};

// From /proc/<tid>/{comm,status,wchan,stack}; nothing if there is no such thread. Waits for as long
// as the kernel keeps these files from being read: not for the main thread.
std::optional<ThreadEvidence> evidence_of(int tid);

// What a stack suspects: see above.
std::string suspicion(const std::string& stack);

#endif
