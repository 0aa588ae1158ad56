#include "command/status_text.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "command/monitor_client.h"
#include "text/end_text.h"
#include "text/terminal_text.h"

namespace {

bool is_true(const Json& object, const char* key) {
  return member(object, key) == Json(true);
}

// A number without quotes, text cleaned for a terminal; "-" for null.
std::string cell(const Json& value) {
  if (value.is_null()) return "-";
  return value.is_string() ? printable(value.get<std::string>()) : json_text(value);
}

// The duration since the time of this key; "-" if that is unknown.
std::string duration_since(const Json& object, const char* key, WallTime now) {
  const std::optional<WallTime> since = time_in(object, key);
  if (!since) return "-";
  return duration_text(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::max(now - *since, {})));
}

std::string moment(const Json& object, const char* key) {
  const std::optional<WallTime> time = time_in(object, key);
  return time ? for_people(*time) : "-";
}

// "critical: above 90, silenced"
std::string alarm_text(const Json& alarm) {
  return shown(alarm, "severity") + ": " + shown(alarm, "condition") +
         (is_true(alarm, "silenced") ? ", silenced" : "");
}

Concern concern_of_alarm(const Json& alarm) {
  if (is_true(alarm, "silenced")) return Concern::kNone;
  return shown(alarm, "severity") == "critical" ? Concern::kCritical : Concern::kWarning;
}

bool is_unknown(const std::string& state) {
  return state == "failed" || state == "blind" || state == "pending";
}

std::vector<const Json*> by_concern(const Json& watches) {
  std::vector<const Json*> sorted;
  for (const Json& watch : watches) sorted.push_back(&watch);
  const auto weight = [](const Json& watch) {
    const bool is_ok = shown(watch, "state") == "ok";
    return static_cast<int>(concern_of(watch)) * 2 + (is_ok ? 0 : 1);
  };
  std::stable_sort(sorted.begin(), sorted.end(),
                   [&](const Json* a, const Json* b) { return weight(*a) > weight(*b); });
  return sorted;
}

// A table of watches.
class WatchTable {
 public:
  explicit WatchTable(const std::vector<const Json*>& watches) : watches_(watches) {
    for (const Json* const watch : watches) {
      name_width_ = std::max(name_width_, width_of(shown(*watch, "name")));
      value_width_ = std::max(value_width_, width_of(value_of(*watch)));
    }
  }

  std::vector<std::string> lines(WallTime now, bool colour) const {
    std::vector<std::string> lines{row("STATE", "WATCH", "VALUE", "FOR", "")};
    for (const Json* const watch : watches_) {
      const std::string line = row(shown(*watch, "state"), shown(*watch, "name"), value_of(*watch),
                                   duration_since(*watch, "since", now), reason_of(*watch));
      lines.push_back(red(line, colour && concern_of(*watch) != Concern::kNone));
    }
    return lines;
  }

 private:
  std::string row(const std::string& state, const std::string& name, const std::string& value,
                  const std::string& duration, const std::string& reason) const {
    return joined_cells({left(state, 8), left(name, name_width_), right(value, value_width_),
                         left(duration, 13), reason});
  }

  const std::vector<const Json*>& watches_;
  size_t name_width_ = 5, value_width_ = 5;
};

std::string silence_text(const Json& silence) {
  const std::string reason = shown(silence, "reason");
  return "silenced until " + moment(silence, "until") + ": " + shown(silence, "pattern") +
         (reason.empty() ? "" : " (" + reason + ")");
}

std::string labelled(const char* label, const std::string& text) {
  return joined_cells({left(label, 10), text});
}

void add_evidence(const Json& evidence, std::vector<std::string>& lines) {
  if (evidence.is_null()) return;
  lines.push_back(
      labelled("thread", cell(member(evidence, "tid")) + " \"" + shown(evidence, "name") + "\", " +
                             shown(evidence, "state") + ", in " + cell(member(evidence, "wchan"))));
  const double standing_s = evidence.value("standing_seconds", 0.0);
  lines.push_back(labelled("", "has not run for " +
                                   seconds_text(std::chrono::duration<double>(standing_s)) +
                                   "; threads of its process with this stack: " +
                                   cell(member(evidence, "threads_with_this_stack"))));
  std::istringstream stack(text_in(evidence, "stack").value_or("not readable"));
  const char* label = "stack";
  for (std::string line; std::getline(stack, line); label = "") {
    lines.push_back(labelled(label, printable(line)));
  }
}

void add_history(const Json& history, const std::string& unit, std::vector<std::string>& lines) {
  constexpr size_t kMostShown = 20;
  const size_t first = history.size() - std::min(history.size(), kMostShown);
  for (size_t i = first; i < history.size(); ++i) {
    Json sample = history[i];
    sample["unit"] = unit;
    lines.push_back(labelled(i == first ? "history" : "",
                             joined_cells({moment(sample, "time"), right(value_of(sample), 14),
                                           shown(sample, "state")})));
  }
}

}  // namespace

Concern concern_of(const Json& watch) {
  const Json& alarms = member(watch, "alarms");
  Concern most = Concern::kNone;
  for (const Json& alarm : alarms) most = std::max(most, concern_of_alarm(alarm));
  // Somebody who has silenced all of its alarms knows about the state.
  const bool is_silenced = !alarms.empty() && most == Concern::kNone;
  if (is_silenced || !is_unknown(shown(watch, "state"))) return most;
  return std::max(most, Concern::kUnknown);
}

std::vector<MonitorTrouble> troubles_of(const Json& status) {
  std::vector<MonitorTrouble> troubles;
  const Json& schedule = member(status, "schedule");
  if (!is_true(schedule, "kept")) {
    troubles.push_back(
        {Concern::kUnknown, "the schedule is not kept: " + shown(schedule, "trouble")});
  }
  const Json& reload = member(status, "reload");
  if (!is_true(reload, "ok")) {
    troubles.push_back(
        {Concern::kWarning, "the last reload was refused at " + moment(reload, "time")});
  }
  for (const Json& alert : member(status, "alerts")) {
    if (!is_true(alert, "failing")) continue;
    troubles.push_back({Concern::kWarning, "alert " + shown(alert, "name") + " (" +
                                               shown(alert, "way") +
                                               ") fails: " + shown(alert, "last_error")});
  }
  return troubles;
}

std::string counts_text(const Json& counts) {
  std::string text;
  for (const auto& [state, count] : counts.items()) {
    if (count == Json(0)) continue;
    text += (text.empty() ? "" : ", ") + printable(state) + " " + cell(count);
  }
  return text.empty() ? "no watches" : text;
}

std::string reason_of(const Json& watch) {
  std::string text;
  const auto add = [&text](const std::string& part) {
    if (!part.empty()) text += (text.empty() ? "" : "; ") + part;
  };
  for (const Json& alarm : member(watch, "alarms")) add(alarm_text(alarm));
  add(shown(watch, "detail"));
  add(shown(watch, "note"));
  return text;
}

std::string value_of(const Json& watch) {
  const Json& value = member(watch, "value");
  if (!value.is_number()) return "-";
  char text[64];
  std::snprintf(text, sizeof text, "%.2f", value.get<double>());
  const std::string unit = shown(watch, "unit");
  return unit.empty() ? text : text + (" " + unit);
}

std::vector<std::string> status_lines(const Json& status, bool colour) {
  const WallTime now = time_in(status, "time").value_or(std::chrono::system_clock::now());
  std::vector<std::string> lines{
      shown(status, "host") + ": mirt-monitor " + shown(status, "version") + ", running for " +
      duration_since(status, "started", now) + "; " + counts_text(member(status, "counts"))};
  for (const MonitorTrouble& trouble : troubles_of(status)) {
    lines.push_back(red(trouble.text, colour));
  }
  for (const Json& silence : member(status, "silences")) lines.push_back(silence_text(silence));
  const std::vector<const Json*> watches = by_concern(member(status, "watches"));
  for (std::string& line : WatchTable(watches).lines(now, colour)) {
    lines.push_back(std::move(line));
  }
  return lines;
}

std::vector<std::string> watch_lines(const Json& watch, bool colour) {
  std::vector<std::string> lines;
  const auto add = [&lines](const char* label, const std::string& text) {
    if (!text.empty()) lines.push_back(labelled(label, text));
  };
  add("watch", shown(watch, "name"));
  add("item", joined_cells({shown(watch, "item"), shown(watch, "parameter")}));
  add("state", red(shown(watch, "state"), colour && concern_of(watch) != Concern::kNone) +
                   " since " + moment(watch, "since"));
  add("value", value_of(watch));
  if (!member(watch, "pid").is_null()) add("process", cell(member(watch, "pid")));
  add("command", shown(watch, "cmdline"));
  if (!member(watch, "flow_id").is_null()) add("flow", cell(member(watch, "flow_id")));
  add("detail", shown(watch, "detail"));
  add("note", shown(watch, "note"));
  for (const Json& alarm : member(watch, "alarms")) {
    add("alarm", alarm_text(alarm) + ", since " + moment(alarm, "since"));
  }
  add("answered", moment(watch, "answered"));
  add("answers", counts_text(member(watch, "answers")));
  add_evidence(member(watch, "evidence"), lines);
  add_history(member(watch, "history"), shown(watch, "unit"), lines);
  return lines;
}
