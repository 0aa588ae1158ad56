// What is known of an instance: it is in exactly one of these states.
#ifndef MONITOR_STATE_H
#define MONITOR_STATE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class State {
  kOk,        // measured, no alarm
  kAlarm,     // measured, and an alarm is raised
  kAbsent,    // no matching process: there is nothing to measure
  kUnjudged,  // the item's answer is "fine", but nothing was judged
  kFailed,    // the item reported a failure
  kBlind,     // the call is past its deadline
  kPending    // no answer yet
};

// "ok", "alarm", ...: the name that lines, JSON and configurations use.
const char* state_name(State state);

// The state of that name, or nothing.
std::optional<State> find_state(std::string_view name);

// What one answer is worth, before any alarm is considered.
struct Finding {
  State state = State::kOk;  // kOk, kAbsent, kUnjudged or kFailed
  std::string detail;        // why, in words; empty for kOk

  bool measured() const { return state == State::kOk; }
};

#endif
