// One channel of one alert: its queue, and the thread that delivers messages.
#ifndef MONITOR_ALERT_CHANNEL_H
#define MONITOR_ALERT_CHANNEL_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "alert/alert_message.h"
#include "item/alert.h"
#include "proc/wake.h"

// A kind of channel: its name, whether an alert uses it, and one delivery attempt. The attempt ends
// soon after `stop` is set. It may throw.
struct AlertWay {
  const char* name;
  bool (*in_use)(const Alert& alert);
  Delivery (*deliver)(const Alert& alert, const AlertMessage& message, const Wake& stop,
                      const AlertLimits& limits);
};

// The thread is also an owner of the channel, so a thread that does not end keeps valid data.
class AlertChannel : public std::enable_shared_from_this<AlertChannel> {
 public:
  using Clock = std::chrono::steady_clock;

  // `stop` interrupts the attempts.
  AlertChannel(const AlertWay& way, std::string name, const AlertLimits& limits,
               std::shared_ptr<const Wake> stop);
  AlertChannel(const AlertChannel&) = delete;
  AlertChannel& operator=(const AlertChannel&) = delete;

  // Uses this record, which must have the channel's name, for all later deliveries. The first call
  // starts the thread. If that fails, logs it; all messages then fail.
  void serve(std::shared_ptr<const Alert> alert) noexcept;

  // These never wait for a delivery.
  void push(std::shared_ptr<const AlertMessage> message) noexcept;
  void count_dropped() noexcept;
  AlertStatus status() const;
  const std::string& name() const { return name_; }
  const AlertWay& way() const { return way_; }

  // Ends the thread after the current attempt. Waiting messages are dropped.
  void close() noexcept;
  // Waits until `deadline` for the thread to end. True if it has ended.
  bool ended_by(Clock::time_point deadline);
  // Detaches a thread that does not end.
  void abandon();

 private:
  using Lock = std::unique_lock<std::mutex>;
  struct Waiting {
    std::shared_ptr<const AlertMessage> message;
    Clock::time_point since;
  };

  void start() noexcept;
  void work() noexcept;
  void deliver_first(Lock& lock) noexcept;
  Delivery attempt(const Alert& alert, const AlertMessage& message) const noexcept;
  bool wait_for_retry(const Delivery& delivery, Clock::time_point since, Lock& lock) noexcept;
  Clock::duration pause() const noexcept;
  void note_sent(Lock& lock) noexcept;
  void note_failed(const Delivery& delivery, Lock& lock) noexcept;
  void keep_error(const std::string& error) noexcept;
  void drop_oldest() noexcept;
  void say_dropped(Lock& lock) noexcept;
  void drop_rest(Lock& lock) noexcept;
  using Parts = std::initializer_list<std::string_view>;
  void say(Lock& lock, const char* level, Parts text) const noexcept;
  void log(const char* level, Parts text) const noexcept;

  const AlertWay& way_;
  const std::string name_;
  const AlertLimits limits_;
  const std::shared_ptr<const Wake> stop_;
  std::thread thread_;
  mutable std::mutex mutex_;  // guards all members below
  std::condition_variable wake_, ended_;
  std::shared_ptr<const Alert> alert_;  // null until the first serve()
  std::deque<Waiting> queue_;           // without the message that is being delivered
  size_t queued_bytes_ = 0;
  AlertStatus status_;
  unsigned long unsaid_drops_ = 0;
  unsigned failures_in_a_row_ = 0;
  bool runs_ = false, is_busy_ = false, closing_ = false, has_changed_ = false;
};

#endif
