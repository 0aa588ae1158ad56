// The state of an instance, always exactly one of these.
#ifndef MONITOR_STATE_H
#define MONITOR_STATE_H

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class State {
  kOk,        // measured, no alarm
  kAlarm,     // measured; an alarm is raised
  kAbsent,    // no matching process, so nothing to measure
  kUnjudged,  // the item reported no problem, but could not check
  kFailed,    // the item reported a failure
  kBlind,     // the call is past its deadline
  kPending    // no answer yet
};

constexpr std::array<State, 7> kAllStates{State::kOk,       State::kAlarm,  State::kAbsent,
                                          State::kUnjudged, State::kFailed, State::kBlind,
                                          State::kPending};

// "ok", "alarm", ...: the name in lines, JSON and configurations.
const char* state_name(State state);

// The state with that name, or nothing.
std::optional<State> find_state(std::string_view name);

// The state after one answer, before alarms are evaluated.
struct Finding {
  State state = State::kOk;  // kOk, kAbsent, kUnjudged or kFailed
  std::string detail;        // the reason; empty for kOk

  bool measured() const { return state == State::kOk; }
};

#endif
