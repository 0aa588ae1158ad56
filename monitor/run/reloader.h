// Reads the configuration again on its own thread, because reading a file can take long.
#ifndef MONITOR_RELOADER_H
#define MONITOR_RELOADER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "item/plan.h"
#include "proc/wake.h"

class Reloader {
 public:
  // `read` returns the new plan, or nothing after it has reported the mistakes. It runs on the
  // reloader's thread. `wake` is set when it has returned.
  using Read = std::function<std::optional<Plan>()>;
  Reloader(Read read, const Wake& wake) : read_(std::move(read)), wake_(wake) {}
  ~Reloader();
  Reloader(const Reloader&) = delete;
  Reloader& operator=(const Reloader&) = delete;

  // Starts a reading. Several requests during a reading cause one more reading.
  void ask();

  // The result of a reading: a plan, or no plan because of mistakes.
  struct Outcome {
    std::optional<Plan> plan;
  };
  // The latest result since the previous call; nothing if there is none.
  std::optional<Outcome> take();

  // Waits at most `limit` for a running reading. False if it has not ended: the process must then
  // call _exit().
  bool finish(std::chrono::milliseconds limit);

 private:
  void read_all();

  const Read read_;
  const Wake& wake_;
  std::condition_variable ended_;
  std::mutex mutex_;  // guards all below
  bool reading_ = false, asked_again_ = false;
  std::optional<Outcome> outcome_;
  std::thread thread_;
};

#endif
