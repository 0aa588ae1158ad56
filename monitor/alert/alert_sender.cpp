#include "alert/alert_sender.h"

#include <algorithm>
#include <utility>

#include "alert/alert_command.h"
#include "alert/webhook.h"

namespace {

using Clock = AlertChannel::Clock;

bool has_command(const Alert& alert) {
  return !alert.command.empty();
}

bool has_webhook(const Alert& alert) {
  return !alert.webhook.empty();
}

constexpr AlertWay kWays[] = {
    {"command", has_command, run_alert_command},
    {"webhook", has_webhook, post_to_webhook},
};

// How long the destructor waits for threads.
constexpr std::chrono::milliseconds kToEnd{1000};

}  // namespace

AlertSender::AlertSender(const std::vector<Alert>& alerts, const AlertLimits& limits)
    : limits_(limits) {
  replace(alerts);
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

void AlertSender::replace(const std::vector<Alert>& alerts) {
  if (!alerts.empty() && !stop_) stop_ = std::make_shared<const Wake>();
  Channels channels;
  std::vector<std::shared_ptr<const Alert>> records;  // of these channels
  for (const Alert& alert : alerts) {
    for (const AlertWay& way : kWays) {
      if (!way.in_use(alert)) continue;
      channels.push_back(channel_of(alert, way));
      records.push_back(std::make_shared<const Alert>(alert));
    }
  }
  leaving_.reserve(leaving_.size() + channels_.size());
  // Nothing below throws.
  for (size_t i = 0; i < channels.size(); ++i) channels[i]->serve(std::move(records[i]));
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

// The existing channel, or a new one.
std::shared_ptr<AlertChannel> AlertSender::channel_of(const Alert& alert,
                                                      const AlertWay& way) const {
  for (const std::shared_ptr<AlertChannel>& channel : channels_) {
    if (channel->name() == alert.name && &channel->way() == &way) return channel;
  }
  return std::make_shared<AlertChannel>(way, alert.name, limits_, stop_);
}

std::vector<AlertStatus> AlertSender::statuses() const {
  const std::lock_guard lock(mutex_);
  std::vector<AlertStatus> statuses;
  for (const auto& channel : channels_) statuses.push_back(channel->status());
  return statuses;
}

bool AlertSender::stop(std::chrono::milliseconds limit) {
  const Clock::time_point deadline = Clock::now() + limit;
  stopped_ = true;
  Channels all = leaving_;
  all.insert(all.end(), channels_.begin(), channels_.end());
  // Closed first, so that no channel begins its next message after its attempt is interrupted.
  for (const auto& channel : all) channel->close();
  if (stop_) stop_->set();
  bool all_ended = true;
  for (const auto& channel : all) {
    if (channel->ended_by(deadline)) continue;
    channel->abandon();
    all_ended = false;
  }
  return all_ended;
}
