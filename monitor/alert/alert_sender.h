// Delivers alerts: runs their commands and posts to their webhooks, without blocking the caller.
#ifndef MONITOR_ALERT_SENDER_H
#define MONITOR_ALERT_SENDER_H

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "alert/alert_channel.h"
#include "item/alert.h"

// Each alert has up to two channels, its command and its webhook. Each channel has its own bounded
// queue and its own thread, which delivers one message at a time. So a slow channel never delays
// another one. Reports are not sent here.
//
// Call send(), replace() and stop() on one thread; statuses() may be called on any thread. Failures
// are logged with the name of the alert.
class AlertSender {
 public:
  // Starts the threads. If a thread cannot be started, the messages of its channel count as failed.
  explicit AlertSender(const std::vector<Alert>& alerts, const AlertLimits& limits = {});
  // Calls stop() if it has not been called. A thread that does not end then continues detached.
  ~AlertSender();
  AlertSender(const AlertSender&) = delete;
  AlertSender& operator=(const AlertSender&) = delete;

  // Queues the message for each channel of the alert with this name. Never waits. If a queue is
  // full, its oldest message is dropped, so that the last message is always the current state.
  void send(const std::string& alert, AlertMessage message) noexcept;

  // Replaces the alerts. An alert whose name existed before keeps its queue and counts, and a
  // running attempt continues; all later attempts use the new record. Waiting messages of removed
  // alerts are dropped, which is logged. If memory is short, it throws and changes nothing.
  void replace(const std::vector<Alert>& alerts);

  // One status for each channel of each alert, in the order of the alerts.
  std::vector<AlertStatus> statuses() const;

  // Drops waiting messages, kills running commands with all processes that they started, and ends
  // the threads. False if a thread did not end within the limit (it may wait for a file system or a
  // name server): the process must then call _exit(). Call it once; do not send afterwards.
  bool stop(std::chrono::milliseconds limit);

 private:
  using Channels = std::vector<std::shared_ptr<AlertChannel>>;

  std::shared_ptr<AlertChannel> channel_of(const Alert& alert, const AlertWay& way) const;

  const AlertLimits limits_;
  std::shared_ptr<const Wake> stop_;  // null until there is an alert: it takes a descriptor
  mutable std::mutex mutex_;          // guards the lists below, not their elements
  Channels channels_;
  Channels leaving_;  // removed from the configuration, but not ended yet
  bool stopped_ = false;
};

#endif
