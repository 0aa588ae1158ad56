#include "run/alarm_desk.h"

#include <algorithm>
#include <utility>

#include "item/placeholders.h"
#include "proc/own_process.h"
#include "text/log_lines.h"

namespace {

PlaceholderTexts texts_of(const Instance& instance, const Answer* answer, State state) {
  PlaceholderTexts texts{state_name(state), "0", "0", instance.name};
  if (!answer) return texts;
  if (answer->has_value()) texts.value = value_text(answer->value);
  texts.pid = std::to_string(answer->result.pid);
  texts.flow_id = std::to_string(answer->result.hangflowid);
  return texts;
}

// "MIRT_ALARM" for "alarm": the variable in the environment of an alert's command.
std::string variable_name(const std::string& key) {
  std::string name = "MIRT_" + key;
  std::transform(name.begin() + 5, name.end(), name.begin() + 5,
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return name;
}

AlertMessage message_of(const Json& body) {
  AlertMessage message;
  message.json = json_text(body);
  for (const auto& [key, value] : body.items()) {
    if (value.is_null() || value.is_structured()) continue;
    const std::string text = value.is_string() ? value.get<std::string>() : json_text(value);
    message.variables.emplace_back(variable_name(key), text.substr(0, text.find('\0')));
  }
  return message;
}

void add_answer(Json& body, const Answer* answer) {
  if (!answer) return;
  body["value"] = answer->has_value() ? Json(answer->value) : Json();
  body["unit"] = answer->instance.unit;
  if (answer->pid()) body["pid"] = *answer->pid();
  if (answer->flow_id()) body["hangflowid"] = *answer->flow_id();
  if (!answer->valid()) body["reason"] = answer->result.reason;
  if (!answer->finding.detail.empty()) body["detail"] = answer->finding.detail;
  if (answer->thread() && answer->thread_owner) {
    body["tid"] = *answer->thread();
    body["process"] = answer->thread_owner->pid;
    body["cmdline"] = answer->thread_owner->command_line;
    if (answer->evidence) body["evidence"] = evidence_json(*answer);
  }
}

}  // namespace

void AlarmDesk::settle(Slot& slot, Answer& answer, const Cause& cause, Clock::time_point now) {
  std::vector<Change> changes;
  for (AlarmSlot& alarm : slot.alarms) {
    Alarm next = alarm.alarm;
    const Alarm::Change change = next.judge(answer.finding.state, answer.value, now);
    if (change == Alarm::Change::kNone) {
      alarm.alarm = next;
    } else {
      changes.push_back({&alarm, next});
    }
    if (change == Alarm::Change::kRaised) name(alarm, answer.time);
    if (next.raised()) answer.alarms.push_back(alarm.id);
  }
  const bool is_alarm = answer.finding.measured() && !answer.alarms.empty();
  answer.state = is_alarm ? State::kAlarm : answer.finding.state;
  answer.state_is_new = slot.state != answer.state;
  if (answer.state_is_new) slot.state_since = answer.time;
  slot.state = answer.state;
  reporter_.answered(answer);
  for (const Change& each : changes) change(slot, each, &answer, answer.state, cause, now);
}

void AlarmDesk::name(AlarmSlot& alarm, WallTime since) {
  alarm.id = prefix_ + std::to_string(++raised_);
  alarm.since = since;
}

void AlarmDesk::settle_blind(Slot& slot, Clock::time_point now) {
  for (AlarmSlot& alarm : slot.alarms) {
    Alarm next = alarm.alarm;
    if (next.judge(State::kBlind, 0.0, now) != Alarm::Change::kRaised) {
      alarm.alarm = next;
      continue;
    }
    name(alarm, std::chrono::system_clock::now());
    change(slot, {&alarm, next}, nullptr, State::kBlind, {}, now);
  }
}

// Reports that an alarm was raised or cleared, and orders its reports.
void AlarmDesk::change(Slot& slot, const Change& change, const Answer* answer, State state,
                       const Cause& cause, Clock::time_point now) {
  AlarmSlot& alarm = *change.slot;
  const bool raised = change.alarm.raised();
  const WallTime time = answer ? answer->time : std::chrono::system_clock::now();
  reporter_.alarm_changed(
      {slot.instance, alarm.rule, time, answer, state, raised, alarm.id, cause.text});
  alarm.alarm = change.alarm;
  alarm.reminded = now;
  changed_ = true;
  if (raised) ++slot.alarms_raised[static_cast<size_t>(alarm.rule.severity)];
  slot.view.reset();
  tell(raised ? "raised" : "cleared", slot, alarm, answer, state, cause, now);
  if (raised) order_reports(slot, alarm, answer, state);
  if (!raised) alarm.id.clear();
}

void AlarmDesk::leave(Slot& slot) {
  changed_ = true;
  const Cause cause{"reload", "it is no longer configured"};
  for (AlarmSlot& alarm : slot.alarms) {
    if (!alarm.alarm.raised()) continue;
    reporter_.alarm_changed({slot.instance, alarm.rule, std::chrono::system_clock::now(), nullptr,
                             slot.state, false, alarm.id, cause.text});
    tell("cleared", slot, alarm, nullptr, slot.state, cause, Clock::now());
  }
}

void AlarmDesk::restore(Slot& slot, AlarmSlot& alarm, std::string id, WallTime since) {
  alarm.alarm.restore();
  alarm.id = std::move(id);
  alarm.since = since;
  alarm.reminded = Clock::now();
  slot.state_since = since;
}

void AlarmDesk::order_reports(const Slot& slot, AlarmSlot& alarm, const Answer* answer,
                              State state) {
  const PlaceholderTexts texts = texts_of(slot.instance, answer, state);
  for (Slot* const report : alarm.reports) {
    std::vector<Param> params = report->instance.params;
    for (Param& param : params) param.value = fill_placeholders(param.value, texts);
    if (report->order) {
      log_line("warning", slot.instance.name + ": the report of alarm " + report->order->alarm +
                              " was not sent, because it could not be called in time");
    }
    report->order = Order{to_records(params), alarm.id};
    report->due = Clock::now();
  }
}

// Gathers a message for each alert of the alarm, unless it is silenced.
void AlarmDesk::tell(const char* event, const Slot& slot, AlarmSlot& alarm, const Answer* answer,
                     State state, const Cause& cause, Clock::time_point now) {
  const WallTime time = std::chrono::system_clock::now();
  if (alarm.rule.alerts.empty()) return;
  if (silences_.matches(slot.instance.name, time)) {
    ++alarm.silenced;
    log_line("event", slot.instance.name + ": alarm " + event + ", silenced");
    return;
  }
  Json body = Json::object();
  body["time"] = iso8601(time);
  body["event"] = event;
  body["alarm"] = alarm.id;
  body["severity"] = severity_name(alarm.rule.severity);
  body["instance"] = slot.instance.name;
  body["item"] = slot.instance.item->name;
  body["state"] = state_name(state);
  body["condition"] = condition_text(alarm.rule);
  body["since"] = iso8601(alarm.since);
  body["host"] = host_name();
  add_answer(body, answer);
  if (!cause.text.empty()) body["cause"] = cause.text;
  for (const std::string& alert : alarm.rule.alerts) {
    const auto same_cause = [&](const Message& message) {
      return !cause.key.empty() && message.cause.key == cause.key && message.alert == alert &&
             message.body["event"] == event;
    };
    const auto found = std::find_if(gathered_.begin(), gathered_.end(), same_cause);
    if (found != gathered_.end()) {
      found->instances.push_back(slot.instance.name);
      continue;
    }
    const Clock::time_point due = cause.key.empty() ? now : now + kGather;
    gathered_.push_back({alert, cause, due, {slot.instance.name}, body});
    next_due_ = std::min(next_due_, due);
  }
}

double AlarmDesk::repeat_of(const AlarmRule& rule) const {
  double least = 0.0;
  for (const std::string& name : rule.alerts) {
    const auto alert = alerts_.find(name);
    if (alert == alerts_.end() || alert->second.repeat_s <= 0.0) continue;
    least = least == 0.0 ? alert->second.repeat_s : std::min(least, alert->second.repeat_s);
  }
  return least;
}

void AlarmDesk::remind(const Slot& slot, AlarmSlot& alarm, Clock::time_point now) {
  const double repeat = alarm.alarm.raised() ? repeat_of(alarm.rule) : 0.0;
  if (repeat <= 0.0) return;
  const auto pause =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(repeat));
  if (now >= alarm.reminded + pause) {
    alarm.reminded = now;
    tell("reminder", slot, alarm, nullptr, slot.state, {}, now);
  }
  next_due_ = std::min(next_due_, alarm.reminded + pause);
}

void AlarmDesk::send_due(std::list<Slot>& slots, Clock::time_point now) {
  next_due_ = Clock::time_point::max();
  for (Slot& slot : slots) {
    for (AlarmSlot& alarm : slot.alarms) remind(slot, alarm, now);
  }
  for (auto message = gathered_.begin(); message != gathered_.end();) {
    if (message->due > now) {
      next_due_ = std::min(next_due_, message->due);
      ++message;
      continue;
    }
    Message due = std::move(*message);
    message = gathered_.erase(message);
    send(due);
  }
}

void AlarmDesk::send_all() {
  for (Message& message : gathered_) send(message);
  gathered_.clear();
}

void AlarmDesk::send(Message& message) {
  message.body["instances"] = message.instances;
  if (message.instances.size() > 1) {
    std::string names;
    for (const std::string& name : message.instances) names += (names.empty() ? "" : ", ") + name;
    log_line("event", std::to_string(message.instances.size()) +
                          " instances, one cause: " + message.cause.text + ": " + names);
  }
  sender_.send(message.alert, message_of(message.body));
}
