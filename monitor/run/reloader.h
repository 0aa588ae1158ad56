// Reads the configuration again, away from the scheduler's thread: a file can take its time.
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
  // `read` gives the new plan, or nothing once it has said what is wrong; it runs on a thread of
  // its own. `wake` is set when it has returned.
  using Read = std::function<std::optional<Plan>()>;
  Reloader(Read read, const Wake& wake) : read_(std::move(read)), wake_(wake) {}
  ~Reloader();
  Reloader(const Reloader&) = delete;
  Reloader& operator=(const Reloader&) = delete;

  // Asks for a reading. Several requests during one reading make one more.
  void ask();

  // What has been read since the last time: a plan, or none because of mistakes.
  struct Outcome {
    std::optional<Plan> plan;
  };
  std::optional<Outcome> take();

  // Waits for a reading that is under way, for `limit` at most. False if it goes on: the process
  // must then end by _exit().
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
