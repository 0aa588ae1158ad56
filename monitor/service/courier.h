// Carries messages to a receiver that may be slow or stuck, such as the journal.
#ifndef MONITOR_COURIER_H
#define MONITOR_COURIER_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

// Runs jobs in their order on a thread of its own. The thread starts with the first job.
class Courier {
 public:
  using Job = std::function<void()>;

  // At most this many jobs wait. Further ones are lost.
  static constexpr size_t kMost = 1000;

  Courier() = default;
  // Ends the thread, within a second. If it is stuck in a job, the process must have called _exit()
  // before.
  ~Courier();
  Courier(const Courier&) = delete;
  Courier& operator=(const Courier&) = delete;

  // On any thread. Never waits for a job.
  void post(Job job) noexcept;

  // For a job for which there was no memory.
  void count_lost() noexcept;

  // The number of jobs that were lost since the last call.
  unsigned long take_lost();

  // Runs the jobs that are left, for at most `limit`, and ends the thread. False if it is stuck in
  // a job. Do not post afterwards.
  bool finish(std::chrono::milliseconds limit);

 private:
  void run();

  std::mutex mutex_;  // guards all below
  std::condition_variable wake_, ended_;
  std::deque<Job> jobs_;
  unsigned long lost_ = 0;
  bool finishing_ = false, has_ended_ = false;
  std::thread thread_;
};

#endif
