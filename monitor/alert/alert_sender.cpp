#include "alert/alert_sender.h"

#include <algorithm>
#include <utility>

#include "alert/alert_command.h"
#include "alert/webhook.h"

namespace {

using Clock = AlertChannel::Clock;

constexpr AlertWay kWays[] = {
    {"command", [](const Alert& alert) { return !alert.command.empty(); }, run_alert_command},
    {"webhook", [](const Alert& alert) { return !alert.webhook.empty(); }, post_to_webhook},
};

// How long the destructor waits for threads.
constexpr std::chrono::milliseconds kToEnd{1000};

}  // namespace

AlertSender::AlertSender(std::vector<Alert> alerts, AlertLimits limits)
    : limits_(limits), stop_(std::make_shared<Wake>()) {
  replace(std::move(alerts));
}

AlertSender::~AlertSender() {
  if (!stopped_) stop(kToEnd);
}

void AlertSender::send(const std::string& alert, AlertMessage message) noexcept {
  std::shared_ptr<const AlertMessage> shared;
  try {
    shared = std::make_shared<const AlertMessage>(std::move(message));
  } catch (...) {  // out of memory: counted as dropped below
  }
  const std::lock_guard lock(mutex_);
  for (const std::shared_ptr<AlertChannel>& channel : channels_) {
    if (channel->name() != alert) continue;
    if (shared) {
      channel->push(shared);
    } else {
      channel->count_dropped();
    }
  }
}

void AlertSender::replace(std::vector<Alert> alerts) {
  Channels channels = channels_for(alerts);
  const std::lock_guard lock(mutex_);
  for (std::shared_ptr<AlertChannel>& channel : channels_) {
    if (std::find(channels.begin(), channels.end(), channel) != channels.end()) continue;
    channel->close();
    leaving_.push_back(std::move(channel));
  }
  channels_ = std::move(channels);
  const auto has_ended = [](const auto& channel) { return channel->ended_by(Clock::now()); };
  leaving_.erase(std::remove_if(leaving_.begin(), leaving_.end(), has_ended), leaving_.end());
}

// The existing channels and new ones.
AlertSender::Channels AlertSender::channels_for(const std::vector<Alert>& alerts) const {
  Channels channels;
  for (const Alert& alert : alerts) {
    for (const AlertWay& way : kWays) {
      if (!way.in_use(alert)) continue;
      const auto same = [&](const auto& channel) {
        return channel->name() == alert.name && &channel->way() == &way;
      };
      const auto old = std::find_if(channels_.begin(), channels_.end(), same);
      if (old != channels_.end()) {
        (*old)->set_alert(alert);
        channels.push_back(*old);
      } else {
        channels.push_back(std::make_shared<AlertChannel>(way, alert, limits_, stop_));
        channels.back()->start();
      }
    }
  }
  return channels;
}

std::vector<AlertStatus> AlertSender::statuses() const {
  const std::lock_guard lock(mutex_);
  std::vector<AlertStatus> statuses;
  for (const auto& channel : channels_) statuses.push_back(channel->status());
  return statuses;
}

bool AlertSender::stop(std::chrono::milliseconds limit) {
  const Clock::time_point deadline = Clock::now() + limit;
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  stop_->set();
  for (const Channels& list : {channels_, leaving_}) {
    for (const auto& channel : list) channel->close();
  }
  bool all_ended = true;
  for (const Channels& list : {channels_, leaving_}) {
    for (const auto& channel : list) {
      if (channel->ended_by(deadline)) continue;
      channel->abandon();
      all_ended = false;
    }
  }
  return all_ended;
}
