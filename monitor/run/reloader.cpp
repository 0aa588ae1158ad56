#include "run/reloader.h"

#include <exception>
#include <new>
#include <utility>

#include "proc/join_or_detach.h"
#include "proc/spare_memory.h"
#include "text/log_lines.h"

namespace {

// Probably out of memory, or no thread.
void tell_failure(const std::exception& error) noexcept {
  const bool no_memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
  log_parts("error", {"the configuration cannot be read again: ",
                      no_memory ? "out of memory" : error.what()});
}

}  // namespace

Reloader::~Reloader() {
  if (thread_.joinable()) thread_.join();
}

void Reloader::ask() {
  {
    const std::lock_guard lock(mutex_);
    asked_again_ = reading_;
    if (reading_) return;
    reading_ = true;
  }
  if (thread_.joinable()) thread_.join();
  try {
    thread_ = std::thread([this] { read_all(); });
  } catch (const std::exception& error) {
    tell_failure(error);
    const std::lock_guard lock(mutex_);
    outcome_ = Outcome{};
    reading_ = false;
  }
}

void Reloader::read_all() {
  const SpareMemoryRight right(true);  // without memory the reader of TOML ends the program
  for (bool again = true; again;) {
    std::optional<Plan> plan;
    try {
      plan = read_();
    } catch (const std::exception& error) {
      tell_failure(error);
    }
    const std::lock_guard lock(mutex_);
    outcome_ = Outcome{std::move(plan)};
    again = std::exchange(asked_again_, false);
    reading_ = again;
    ended_.notify_all();
  }
  wake_.set();
}

std::optional<Reloader::Outcome> Reloader::take() {
  std::unique_lock lock(mutex_);
  std::optional<Outcome> outcome = std::exchange(outcome_, std::nullopt);
  const bool has_ended = !reading_;
  lock.unlock();
  if (has_ended && thread_.joinable()) thread_.join();
  return outcome;
}

bool Reloader::finish(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  const bool has_ended = ended_.wait_for(lock, limit, [&] { return !reading_; });
  lock.unlock();
  if (!thread_.joinable()) return true;
  join_or_detach(thread_, has_ended);
  return has_ended;
}
