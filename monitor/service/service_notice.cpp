#include "service/service_notice.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace {

using Clock = ServiceNotice::Clock;

constexpr std::chrono::seconds kStatusPause{1};

// How soon to look again after a watchdog message was held back.
constexpr std::chrono::seconds kLookAgain{1};

// What the manager compares with its own clock.
std::string monotonic_us() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::to_string(static_cast<uint64_t>(now.tv_sec) * 1000000U +
                        static_cast<uint64_t>(now.tv_nsec) / 1000U);
}

Clock::duration pause_between_watchdog_messages() {
  uint64_t limit_us = 0;
  if (sd_watchdog_enabled(0, &limit_us) <= 0) return Clock::duration::zero();
  return std::chrono::microseconds(limit_us / 4);
}

}  // namespace

ServiceNotice::ServiceNotice() : listens_(std::getenv("NOTIFY_SOCKET") != nullptr) {
  if (!listens_) return;
  watchdog_pause_ = pause_between_watchdog_messages();
  if (watchdog_pause_ > Clock::duration::zero()) next_watchdog_ = Clock::now();
}

void ServiceNotice::send(std::string text) {
  if (!listens_) return;
  courier_.post([moved = std::move(text)] { sd_notify(0, moved.c_str()); });
}

void ServiceNotice::ready() {
  ready_ = true;
  send("READY=1");
}

void ServiceNotice::reloading() {
  if (ready_) send("RELOADING=1\nMONOTONIC_USEC=" + monotonic_us());
}

void ServiceNotice::reloaded() {
  if (ready_) send("READY=1");
}

void ServiceNotice::stopping() {
  send("STOPPING=1");
}

void ServiceNotice::status(const std::function<std::string()>& text, Clock::time_point now) {
  status_waits_ = listens_ && now < next_status_;
  if (!listens_ || status_waits_) return;
  next_status_ = now + kStatusPause;
  std::string fresh = text();
  if (fresh == status_) return;
  send("STATUS=" + fresh);
  status_ = std::move(fresh);
}

void ServiceNotice::watchdog(bool well, Clock::time_point now) {
  if (now < next_watchdog_) return;
  if (well) send("WATCHDOG=1");
  next_watchdog_ =
      now + (well ? watchdog_pause_ : std::min<Clock::duration>(watchdog_pause_, kLookAgain));
}

Clock::time_point ServiceNotice::next_due() const {
  return status_waits_ ? std::min(next_watchdog_, next_status_) : next_watchdog_;
}
