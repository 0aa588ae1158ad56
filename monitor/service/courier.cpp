#include "service/courier.h"

#include <exception>
#include <utility>

#include "proc/spare_memory.h"

Courier::~Courier() {
  if (thread_.joinable() && !finish(std::chrono::seconds(1))) thread_.detach();
}

void Courier::post(Job job) noexcept {
  const std::lock_guard lock(mutex_);
  try {
    if (jobs_.size() >= kMost) {
      ++lost_;
      return;
    }
    jobs_.push_back(std::move(job));
    if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
  } catch (...) {  // no memory or no thread: the job waits for the next one, or is lost
    ++lost_;
  }
  wake_.notify_one();
}

void Courier::count_lost() noexcept {
  const std::lock_guard lock(mutex_);
  ++lost_;
}

unsigned long Courier::take_lost() {
  const std::lock_guard lock(mutex_);
  return std::exchange(lost_, 0);
}

void Courier::run() {
  const SpareMemoryRight right(true);  // a journal is where alarms are told
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [&] { return finishing_ || !jobs_.empty(); });
    if (jobs_.empty()) break;
    const Job job = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    bool is_done = true;
    try {
      job();
    } catch (const std::exception&) {  // no memory
      is_done = false;
    }
    lock.lock();
    if (!is_done) ++lost_;
  }
  has_ended_ = true;
  ended_.notify_all();
}

bool Courier::finish(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  if (!thread_.joinable()) return true;
  finishing_ = true;
  wake_.notify_all();
  if (!ended_.wait_for(lock, limit, [&] { return has_ended_; })) jobs_.clear();
  const bool ended = has_ended_;
  lock.unlock();
  if (ended) thread_.join();
  return ended;
}
