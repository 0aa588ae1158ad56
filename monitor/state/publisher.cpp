#include "state/publisher.h"

#include <utility>

std::shared_ptr<const Snapshot> Publisher::fresh(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  const unsigned long before = count_;
  wanted_ = true;
  wake_.set();
  published_.wait_for(lock, limit, [&] { return closed_ || count_ != before; });
  return count_ != before ? latest_ : nullptr;
}

void Publisher::close() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  published_.notify_all();
}

void Publisher::publish(std::shared_ptr<const Snapshot> snapshot) {
  {
    const std::lock_guard lock(mutex_);
    wanted_ = false;
    latest_ = std::move(snapshot);
    ++count_;
  }
  published_.notify_all();
}
