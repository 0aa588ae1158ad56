#include "run/memory.h"

#include "run/recovery_answer.h"
#include "text/log_lines.h"

namespace {

constexpr char kRestarts[] = "restarts ";
constexpr char kRaised[] = "raised ";

std::string raised_key(Severity severity, const std::string& instance) {
  return std::string(kRaised) + severity_name(severity) + " " + instance;
}

void collect(const Slot& slot, SavedState& state) {
  const std::string& name = slot.instance.name;
  for (const AlarmSlot& alarm : slot.alarms) {
    if (!alarm.alarm.raised()) continue;
    SavedAlarm saved;
    saved.instance = name;
    saved.condition = condition_text(alarm.rule);
    saved.severity = alarm.rule.severity;
    saved.id = alarm.id;
    saved.since = alarm.since;
    state.alarms.push_back(std::move(saved));
  }
  if (slot.restarts > 0) state.counters[kRestarts + name] = slot.restarts;
  for (const Severity severity : {Severity::kWarning, Severity::kCritical}) {
    const unsigned long raised = slot.alarms_raised[static_cast<size_t>(severity)];
    if (raised > 0) state.counters[raised_key(severity, name)] = raised;
  }
}

uint64_t counter(const SavedState& state, const std::string& key) {
  const auto found = state.counters.find(key);
  return found == state.counters.end() ? 0 : found->second;
}

// False if this alarm is no longer configured.
bool take_up(const SavedAlarm& saved, std::list<Slot>& slots, AlarmDesk& desk) {
  for (Slot& slot : slots) {
    if (slot.of_alarm || slot.instance.name != saved.instance) continue;
    for (AlarmSlot& alarm : slot.alarms) {
      if (condition_text(alarm.rule) != saved.condition || alarm.rule.severity != saved.severity) {
        continue;
      }
      desk.restore(slot, alarm, saved.id, saved.since);
      return true;
    }
  }
  return false;
}

}  // namespace

SavedState memory_of(const std::list<Slot>& slots, const Silences& silences) {
  SavedState state;
  for (const Slot& slot : slots) {
    if (!slot.of_alarm && !slot.gone) collect(slot, state);
  }
  state.silences = silences.list();
  state.recoveries = recoveries_taken();
  return state;
}

void remember(const SavedState& state, std::list<Slot>& slots, AlarmDesk& desk) {
  for (const SavedAlarm& saved : state.alarms) {
    if (take_up(saved, slots, desk)) continue;
    log_line("event", saved.instance + ": alarm " + saved.id + " (" + saved.condition +
                          ") was raised before the restart and is no longer configured");
  }
  for (Slot& slot : slots) {
    if (slot.of_alarm) continue;
    const std::string& name = slot.instance.name;
    slot.restarts = static_cast<unsigned>(counter(state, kRestarts + name));
    for (const Severity severity : {Severity::kWarning, Severity::kCritical}) {
      slot.alarms_raised[static_cast<size_t>(severity)] =
          counter(state, raised_key(severity, name));
    }
  }
  restore_recoveries(state.recoveries);
}
