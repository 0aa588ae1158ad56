// Tells alerts: runs their commands and posts to their webhooks, without holding up anybody.
#ifndef MONITOR_ALERT_SENDER_H
#define MONITOR_ALERT_SENDER_H

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "alert/alert_channel.h"
#include "item/alert.h"

// Each alert has up to two ways, its command and its webhook. Each way has a bounded queue and a
// thread of its own, which delivers one message at a time: neither another alert nor the other way
// of the same alert is ever late because of it. Reports are not sent from here.
//
// send(), replace() and stop() belong to one thread; statuses() may be called on any. Of what goes
// wrong the log is told, under the name of the alert.
class AlertSender {
 public:
  // Starts the threads. Where the system gives none, the messages of that way count as failed.
  explicit AlertSender(std::vector<Alert> alerts, AlertLimits limits = {});
  // Calls stop() if nobody has; a thread that cannot be ended then goes on, on its own.
  ~AlertSender();
  AlertSender(const AlertSender&) = delete;
  AlertSender& operator=(const AlertSender&) = delete;

  // Queues the message for each way of the alert of this name. Never waits. Where the queue is
  // full, the message that has waited longest is dropped: what is told last is then what is true.
  void send(const std::string& alert, AlertMessage message) noexcept;

  // From now on these are the alerts. An alert of a name that was there before keeps its queue and
  // its counts, and what is under way goes on; if its record differs, everything that is delivered
  // from now on, further attempts included, is delivered as the new record says. The messages that
  // wait for an alert that is gone are dropped, which is said in the log.
  void replace(std::vector<Alert> alerts);

  // One for each way of each alert, in the order of the alerts.
  std::vector<AlertStatus> statuses() const;

  // Drops what waits, kills what runs with all that it has started, and ends the threads. False if
  // a thread did not end within the limit (it may wait for a file system or for a name server): the
  // process then has to end by _exit(). To be called once; send nothing afterwards.
  bool stop(std::chrono::milliseconds limit);

 private:
  using Channels = std::vector<std::shared_ptr<AlertChannel>>;

  Channels channels_for(const std::vector<Alert>& alerts) const;

  const AlertLimits limits_;
  const std::shared_ptr<const Wake> stop_;
  mutable std::mutex mutex_;  // guards the lists below, not what they list
  Channels channels_;
  Channels leaving_;  // gone from the configuration, but not ended yet
  bool stopped_ = false;
};

#endif
