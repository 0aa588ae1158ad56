// Passes snapshots from the scheduler's thread to other threads.
#ifndef MONITOR_PUBLISHER_H
#define MONITOR_PUBLISHER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "proc/wake.h"
#include "state/snapshot.h"

// A snapshot is made only on request and at most once per kPause, so unused snapshots cost nothing.
class Publisher {
 public:
  static constexpr std::chrono::milliseconds kPause{100};
  // How long other threads wait for the scheduler's thread, which itself never waits for anything.
  static constexpr std::chrono::seconds kToAnswer{2};

  explicit Publisher(const Wake& wake) : wake_(wake) {}

  // On any thread: a snapshot made after this call; null if none is made within `limit`, because an
  // old state must not look like the present one.
  std::shared_ptr<const Snapshot> fresh(std::chrono::milliseconds limit);

  // On any thread: from now on nobody waits for a snapshot.
  void close();
  bool closed() const { return closed_; }

  // On the scheduler's thread.
  bool wanted() const { return wanted_; }
  void publish(std::shared_ptr<const Snapshot> snapshot);

 private:
  const Wake& wake_;
  std::atomic<bool> wanted_{false};
  std::mutex mutex_;
  std::condition_variable published_;
  std::shared_ptr<const Snapshot> latest_;
  unsigned long count_ = 0;
  std::atomic<bool> closed_{false};
};

#endif
