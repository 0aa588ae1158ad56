// The end of a thread that may never return from a system call.
#ifndef MONITOR_JOIN_OR_DETACH_H
#define MONITOR_JOIN_OR_DETACH_H

#include <thread>

// Joins a thread that has ended, or is about to. Detaches any other: then the process must call
// _exit() and must not destroy anything that the thread uses.
inline void join_or_detach(std::thread& thread, bool has_ended) {
  if (has_ended) {
    thread.join();
  } else {
    thread.detach();
  }
}

#endif
