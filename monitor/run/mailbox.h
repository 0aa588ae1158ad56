// Requests of other threads to the scheduler's thread, the only one that changes state.
#ifndef MONITOR_MAILBOX_H
#define MONITOR_MAILBOX_H

#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

#include "proc/wake.h"

class Mailbox {
 public:
  static constexpr size_t kMost = 100;

  explicit Mailbox(const Wake& wake) : wake_(wake) {}

  // On any thread. False if there are already kMost requests, or after close().
  bool post(std::function<void()> request);

  // Runs the requests, on the scheduler's thread. Requests must not throw.
  void run_all();

  // Drops the requests, and refuses later ones.
  void close();

 private:
  const Wake& wake_;
  std::mutex mutex_;
  std::vector<std::function<void()>> requests_;
  bool closed_ = false;
};

#endif
