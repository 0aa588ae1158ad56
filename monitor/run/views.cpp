#include "run/views.h"

namespace {

std::vector<AlarmView> alarms_of(const Slot& slot, const Silences& silences, WallTime now) {
  std::vector<AlarmView> alarms;
  for (const AlarmSlot& alarm : slot.alarms) {
    if (!alarm.alarm.raised()) continue;
    alarms.push_back({alarm.id, condition_text(alarm.rule), alarm.rule.severity, alarm.since,
                      silences.matches(slot.instance.name, now)});
  }
  return alarms;
}

void keep_sample(Slot& slot, WallTime time, State state) {
  const double value = slot.has_value ? slot.value : std::nan("");
  slot.history.add({time, static_cast<float>(value), state});
  ++slot.outcomes[static_cast<size_t>(state)];
  slot.view.reset();
}

}  // namespace

void keep_answer(Slot& slot, const Answer& answer) {
  slot.detail = answer.valid() ? "" : answer.result.reason;
  if (!answer.finding.detail.empty()) {
    slot.detail += (slot.detail.empty() ? "" : " ") + answer.finding.detail;
  }
  slot.note = answer.note;
  slot.has_value = answer.has_value();
  slot.value = answer.value;
  slot.flow_id = answer.flow_id();
  slot.answered = answer.time;
  slot.pid = answer.thread_owner ? answer.thread_owner->pid : slot.call->examiner.pid();
  slot.cmdline = answer.thread_owner ? answer.thread_owner->command_line : "";
  slot.evidence = answer.evidence ? evidence_json(answer) : Json();
  slot.call_s.add(std::chrono::duration<double>(slot.call->took).count());
  keep_sample(slot, answer.time, answer.state);
}

void keep_blindness(Slot& slot, const std::string& detail, WallTime time) {
  slot.detail = "no answer before the deadline" + (detail.empty() ? "" : ", waits " + detail);
  slot.note.clear();
  slot.cmdline.clear();
  slot.has_value = false;
  slot.flow_id.reset();
  slot.evidence = Json();
  keep_sample(slot, time, State::kBlind);
}

std::shared_ptr<const WatchView> view_of(Slot& slot, const Silences& silences) {
  if (slot.view && slot.view->alarms.empty()) return slot.view;  // silences of alarms can change
  const Instance& instance = slot.instance;
  auto view = std::make_shared<WatchView>();
  view->name = instance.name;
  view->item = instance.item;
  view->parameter = instance.params.empty() ? "" : instance.params.front().value;
  view->unit = instance.unit;
  view->period_s = instance.period_s;
  view->state = slot.state;
  view->state_since = slot.state_since;
  view->detail = slot.detail;
  view->note = slot.note;
  view->has_value = slot.has_value;
  view->value = slot.value;
  view->pid = slot.pid;
  view->flow_id = slot.flow_id;
  view->answered = slot.answered;
  view->alarms = alarms_of(slot, silences, std::chrono::system_clock::now());
  view->has_alarm = {};
  for (const AlarmRule& rule : instance.alarms) {
    view->has_alarm[static_cast<size_t>(rule.severity)] = true;
  }
  view->alarms_raised_warning = slot.alarms_raised[static_cast<size_t>(Severity::kWarning)];
  view->alarms_raised_critical = slot.alarms_raised[static_cast<size_t>(Severity::kCritical)];
  view->outcomes = slot.outcomes;
  view->call_s = slot.call_s;
  view->evidence = slot.evidence;
  view->cmdline = slot.cmdline;
  view->history = slot.history;
  slot.view = std::move(view);
  return slot.view;
}
