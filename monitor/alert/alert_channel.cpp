#include "alert/alert_channel.h"

#include <sched.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <utility>

#include "proc/spare_memory.h"
#include "text/log_lines.h"

namespace {

// Files that a command creates are not readable by everybody.
constexpr mode_t kUmask = 027;

// Gives this thread, and the programs that it starts, their own umask, and blocks SIGPIPE for
// writes to a program that does not read. False, with errno set, if the umask cannot be separated
// from that of the process.
bool prepare_thread() {
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
  if (unshare(CLONE_FS) != 0) return false;
  umask(kUmask);
  return true;
}

size_t size_of(const AlertMessage& message) {
  size_t size = message.json.size();
  for (const auto& [name, value] : message.variables) size += name.size() + value.size();
  return size;
}

}  // namespace

AlertChannel::AlertChannel(const AlertWay& way, std::string name, const AlertLimits& limits,
                           std::shared_ptr<const Wake> stop)
    : way_(way), name_(std::move(name)), limits_(limits), stop_(std::move(stop)) {
  status_.name = name_;
  status_.way = way.name;
}

void AlertChannel::serve(std::shared_ptr<const Alert> alert) noexcept {
  const std::lock_guard lock(mutex_);
  const bool is_first = !alert_;
  has_changed_ = has_changed_ || (!is_first && alert->webhook != alert_->webhook);
  alert_ = std::move(alert);
  if (is_first) start();
  wake_.notify_one();
}

void AlertChannel::start() noexcept {
  runs_ = true;
  try {
    thread_ = std::thread([self = shared_from_this()] { self->work(); });
  } catch (const std::exception& error) {  // no thread, or no memory for one
    runs_ = false;
    keep_error("cannot start a thread");
    log("error", {status_.last_error, ": ", error.what()});
  }
}

void AlertChannel::push(std::shared_ptr<const AlertMessage> message) noexcept {
  const size_t size = size_of(*message);
  const std::lock_guard lock(mutex_);
  if (!runs_) {
    ++status_.failed;
    return;
  }
  try {
    queue_.push_back({std::move(message), Clock::now()});
  } catch (...) {  // no memory
    ++status_.dropped;
    ++unsaid_drops_;
    return;
  }
  queued_bytes_ += size;
  const auto too_many = [&] {
    return queue_.size() > limits_.most_queued || queued_bytes_ > limits_.most_queued_bytes;
  };
  while (queue_.size() > 1 && too_many()) drop_oldest();
  wake_.notify_one();
}

void AlertChannel::drop_oldest() noexcept {
  queued_bytes_ -= size_of(*queue_.front().message);
  queue_.pop_front();
  ++status_.dropped;
  ++unsaid_drops_;
}

void AlertChannel::count_dropped() noexcept {
  const std::lock_guard lock(mutex_);
  ++status_.dropped;
  ++unsaid_drops_;
}

AlertStatus AlertChannel::status() const {
  const std::lock_guard lock(mutex_);
  AlertStatus status = status_;
  status.queued = queue_.size() + (is_busy_ ? 1 : 0);
  return status;
}

void AlertChannel::close() noexcept {
  const std::lock_guard lock(mutex_);
  closing_ = true;
  wake_.notify_one();
}

bool AlertChannel::ended_by(Clock::time_point deadline) {
  {
    Lock lock(mutex_);
    if (!ended_.wait_until(lock, deadline, [&] { return !runs_; })) return false;
  }
  if (thread_.joinable()) thread_.join();
  return true;
}

void AlertChannel::abandon() {
  if (thread_.joinable()) thread_.detach();
}

// If memory is short, only the current message fails.
void AlertChannel::work() noexcept {
  const SpareMemoryRight right(true);
  if (!prepare_thread()) {
    log("warning", {"commands use the umask of the monitor: ", std::strerror(errno)});
  }
  Lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [&] { return closing_ || !queue_.empty(); });
    if (closing_) break;
    is_busy_ = true;
    deliver_first(lock);
    is_busy_ = false;
    say_dropped(lock);
  }
  drop_rest(lock);
  runs_ = false;
  ended_.notify_all();
}

void AlertChannel::deliver_first(Lock& lock) noexcept {
  const Waiting waiting = std::move(queue_.front());
  queue_.pop_front();
  queued_bytes_ -= size_of(*waiting.message);
  for (;;) {
    has_changed_ = false;
    const std::shared_ptr<const Alert> alert = alert_;
    lock.unlock();
    Delivery delivery = attempt(*alert, *waiting.message);
    lock.lock();
    if (delivery.result == Delivery::Result::kSent) return note_sent(lock);
    ++failures_in_a_row_;
    keep_error(delivery.error);
    if (!wait_for_retry(delivery, waiting.since, lock)) return note_failed(delivery, lock);
  }
}

Delivery AlertChannel::attempt(const Alert& alert, const AlertMessage& message) const noexcept try {
  return way_.deliver(alert, message, *stop_, limits_);
} catch (const std::exception&) {
  return {Delivery::Result::kFailed, "out of memory"};  // short: allocates nothing
}

// Waits until the time of the next attempt. False if there must be no further attempt.
bool AlertChannel::wait_for_retry(const Delivery& delivery, Clock::time_point since,
                                  Lock& lock) noexcept {
  const Clock::time_point next = Clock::now() + pause();
  if (delivery.result != Delivery::Result::kRetry || next > since + limits_.give_up) return false;
  if (failures_in_a_row_ == 1) say(lock, "warning", {"failed, will retry: ", delivery.error});
  wake_.wait_until(lock, next, [&] { return closing_ || has_changed_; });
  return !closing_;
}

AlertChannel::Clock::duration AlertChannel::pause() const noexcept {
  const unsigned doublings = std::min(failures_in_a_row_ - 1, 30U);
  return std::min<Clock::duration>(limits_.first_pause * (1L << doublings), limits_.longest_pause);
}

void AlertChannel::note_sent(Lock& lock) noexcept {
  ++status_.sent;
  status_.failing = false;
  const unsigned failures = std::exchange(failures_in_a_row_, 0);
  if (failures > 0) {
    say(lock, "event", {"works again, failures before: ", std::to_string(failures)});
  }
}

void AlertChannel::note_failed(const Delivery& delivery, Lock& lock) noexcept {
  ++status_.failed;
  say(lock, "error", {"message not sent: ", delivery.error});
}

void AlertChannel::keep_error(const std::string& error) noexcept {
  status_.failing = true;
  try {
    status_.last_error = error;
  } catch (const std::exception&) {
    status_.last_error.clear();
  }
}

void AlertChannel::say_dropped(Lock& lock) noexcept {
  const unsigned long drops = std::exchange(unsaid_drops_, 0);
  if (drops == 0) return;
  say(lock, "error", {"too many messages waiting, dropped: ", std::to_string(drops)});
}

void AlertChannel::drop_rest(Lock& lock) noexcept {
  const size_t rest = queue_.size();
  while (!queue_.empty()) drop_oldest();
  unsaid_drops_ -= rest;
  say_dropped(lock);
  if (rest == 0) return;
  say(lock, "error", {"ended, waiting messages dropped: ", std::to_string(rest)});
}

// The caller of send() must not wait for the reader of the log.
void AlertChannel::say(Lock& lock, const char* level, Parts text) const noexcept {
  lock.unlock();
  log(level, text);
  lock.lock();
}

void AlertChannel::log(const char* level, Parts text) const noexcept {
  std::string all;
  try {
    for (const std::string_view part : text) all += part;
  } catch (const std::exception&) {  // out of memory: the line is short then
  }
  log_parts(level, {"alert ", name_, " (", way_.name, "): ", all});
}
