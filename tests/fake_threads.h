// Threads in a private /proc, and an instance of a hung-thread item that examines them.
#ifndef FAKE_THREADS_H
#define FAKE_THREADS_H

#include <cstdlib>

#include "common_plugin.h"
#include "item_call.h"
#include "proc_fixture.h"

inline std::string thread_dir(int pid, int tid) {
  return std::to_string(pid) + "/task/" + std::to_string(tid);
}

// A thread's status file, shortened; in D state by default.
inline void put_thread(int pid, int tid, unsigned long voluntary = 5,
                       unsigned long nonvoluntary = 1, char state = 'D') {
  ProcFixture::put(thread_dir(pid, tid) + "/status",
                   "Name:\tapp\nUmask:\t0022\nState:\t" + std::string(1, state) +
                       " (some sleep)\nvoluntary_ctxt_switches:\t" + std::to_string(voluntary) +
                       "\nnonvoluntary_ctxt_switches:\t" + std::to_string(nonvoluntary) + "\n");
}

// One configured instance. The plug-in never frees its table; here the test frees it.
struct HungCall : ItemCall {
  explicit HungCall(const std::string& pattern) : ItemCall({parameter("any name", pattern)}) {}
  HungCall(const HungCall&) = delete;
  ~HungCall() { free(table()); }

  thread_info_set_t* table() const { return overlay<process_status_context_t>().pthreadinfoset; }
};

#endif
