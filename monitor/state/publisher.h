// Where the scheduler's thread leaves its snapshots, and others find them.
#ifndef MONITOR_PUBLISHER_H
#define MONITOR_PUBLISHER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "proc/wake.h"
#include "state/snapshot.h"

// A snapshot is made only when somebody asks, and not more often than every kPause: a monitor that
// nobody looks at pays nothing.
class Publisher {
 public:
  static constexpr std::chrono::milliseconds kPause{100};

  explicit Publisher(const Wake& wake) : wake_(wake) {}

  // On any thread: a snapshot made after this call, or, if none comes within `limit`, the last one
  // (null if there is none at all).
  std::shared_ptr<const Snapshot> fresh(std::chrono::milliseconds limit);

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
};

#endif
