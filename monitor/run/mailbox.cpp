#include "run/mailbox.h"

#include <utility>

bool Mailbox::post(std::function<void()> request) {
  {
    const std::lock_guard lock(mutex_);
    if (closed_ || requests_.size() >= kMost) return false;
    requests_.push_back(std::move(request));
  }
  wake_.set();
  return true;
}

void Mailbox::close() {
  std::vector<std::function<void()>> dropped;
  const std::lock_guard lock(mutex_);
  closed_ = true;
  requests_.swap(dropped);
}

void Mailbox::run_all() {
  std::vector<std::function<void()>> requests;
  {
    const std::lock_guard lock(mutex_);
    requests.swap(requests_);
  }
  for (const std::function<void()>& request : requests) request();
}
