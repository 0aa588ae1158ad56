// Answers of the running monitor as text for people.
#ifndef MONITOR_STATUS_TEXT_H
#define MONITOR_STATUS_TEXT_H

#include <string>
#include <vector>

#include "text/json_text.h"

// How much a state asks for attention.
enum class Concern { kNone, kWarning, kUnknown, kCritical };

// Of a watch: the highest of its raised alarms that are not silenced and of its state, which is
// unknown if the watch has no result.
Concern concern_of(const Json& watch);

// What is wrong with the monitor itself: its schedule, its last reload, its alerts.
struct MonitorTrouble {
  Concern concern;
  std::string text;
};
std::vector<MonitorTrouble> troubles_of(const Json& status);

// "alarm 2, ok 10": the states that there are, from "counts" or "answers".
std::string counts_text(const Json& counts);

// The reason in words: "critical: above 90", "warning: equals 0, silenced", "no answer before ...".
std::string reason_of(const Json& watch);

// "24.00 %"; "-" without a value.
std::string value_of(const Json& watch);

// The lines of the whole state: what is wrong comes first.
std::vector<std::string> status_lines(const Json& status, bool colour);

// The lines of one watch, with the end of its history and its evidence.
std::vector<std::string> watch_lines(const Json& watch, bool colour);

#endif
