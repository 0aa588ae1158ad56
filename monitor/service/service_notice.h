// Tells the service manager (systemd) about this process.
#ifndef MONITOR_SERVICE_NOTICE_H
#define MONITOR_SERVICE_NOTICE_H

#include <chrono>
#include <functional>
#include <string>

#include "service/courier.h"

// Used by one thread. Another thread sends the notices, so that a stuck manager delays nobody.
// Without a manager (NOTIFY_SOCKET is not set) nothing happens.
class ServiceNotice {
 public:
  using Clock = std::chrono::steady_clock;

  ServiceNotice();

  // True if a manager listens.
  bool listens() const { return listens_; }

  // READY=1.
  void ready();
  bool is_ready() const { return ready_; }

  // RELOADING=1 with the time, as the manager expects it, and READY=1 at its end. A reload before
  // the first ready() is part of the start.
  void reloading();
  void reloaded();

  // STOPPING=1.
  void stopping();

  // STATUS=, if it is another text than before. Asks for the text at most once a second.
  void status(const std::function<std::string()>& text, Clock::time_point now);

  // WATCHDOG=1, four times in the manager's limit, if `well`.
  void watchdog(bool well, Clock::time_point now);

  // When to call status() or watchdog() again at the latest.
  Clock::time_point next_due() const;

  // Sends what is left, for at most `limit`. False if the manager does not take it: the process
  // must then call _exit().
  bool finish(std::chrono::milliseconds limit) { return courier_.finish(limit); }

 private:
  void send(std::string text);

  bool listens_ = false, ready_ = false;
  std::string status_;                                        // as it was sent
  bool status_waits_ = false;                                 // it may have changed since
  Clock::time_point next_status_{};                           // not before
  Clock::duration watchdog_pause_ = Clock::duration::zero();  // zero: the manager expects none
  Clock::time_point next_watchdog_ = Clock::time_point::max();
  Courier courier_;
};

#endif
