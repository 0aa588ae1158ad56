#include "status/api.h"

#include <algorithm>
#include <array>
#include <utility>

#include "proc/own_process.h"

namespace {

Json text_or_null(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

Json time_or_null(const std::optional<WallTime>& time) {
  return time ? Json(iso8601(*time)) : Json();
}

Json mean_or_null(const Durations& durations) {
  unsigned long count = 0;
  for (const unsigned long each : durations.counts) count += each;
  if (count == 0) return nullptr;
  return json_number(durations.sum_s / static_cast<double>(count));
}

Json alarm_json(const AlarmView& alarm) {
  return {{"alarm", alarm.id},
          {"severity", severity_name(alarm.severity)},
          {"condition", alarm.condition},
          {"since", iso8601(alarm.since)},
          {"silenced", alarm.silenced}};
}

// What the watch says of itself now: in its own entry and in those of its alarms.
void add_present(Json& json, const WatchView& watch) {
  json["state"] = state_name(watch.state);
  json["value"] = watch.has_value ? json_number(watch.value) : Json();
  json["unit"] = watch.unit;
  json["pid"] = watch.pid > 0 ? Json(watch.pid) : Json();
  json["flow_id"] = watch.flow_id ? Json(*watch.flow_id) : Json();
  json["detail"] = text_or_null(watch.detail);
  json["note"] = text_or_null(watch.note);
}

Json answers_json(const WatchView& watch) {
  Json answers = Json::object();
  for (const State state : kAllStates) {
    if (state == State::kPending) continue;
    answers[state_name(state)] = watch.outcomes[static_cast<size_t>(state)];
  }
  return answers;
}

// All but the history.
Json brief_json(const WatchView& watch) {
  Json json = Json::object();
  json["name"] = watch.name;
  json["item"] = watch.item->name;
  json["parameter"] = text_or_null(watch.parameter);
  json["period_seconds"] = watch.period_s;
  add_present(json, watch);
  json["since"] = iso8601(watch.state_since);
  json["answered"] = time_or_null(watch.answered);
  json["alarms"] = Json::array();
  for (const AlarmView& alarm : watch.alarms) json["alarms"].push_back(alarm_json(alarm));
  json["alarms_raised"] = {{"warning", watch.alarms_raised_warning},
                           {"critical", watch.alarms_raised_critical}};
  json["answers"] = answers_json(watch);
  json["mean_call_seconds"] = mean_or_null(watch.call_s);
  json["cmdline"] = text_or_null(watch.cmdline);
  json["evidence"] = watch.evidence;
  return json;
}

Json recent_json(const History& history, size_t count) {
  const std::vector<Sample> samples = history.samples();
  Json values = Json::array();
  for (size_t i = samples.size() - std::min(count, samples.size()); i < samples.size(); ++i) {
    values.push_back(json_number(static_cast<double>(samples[i].value)));
  }
  return values;
}

Json watches_json(const Snapshot& snapshot, size_t recent) {
  Json watches = Json::array();
  for (const auto& watch : snapshot.watches) {
    Json json = brief_json(*watch);
    if (recent > 0) json["recent"] = recent_json(watch->history, recent);
    watches.push_back(std::move(json));
  }
  return watches;
}

Json counts_json(const Snapshot& snapshot) {
  std::array<size_t, kAllStates.size()> counts{};
  for (const auto& watch : snapshot.watches) ++counts[static_cast<size_t>(watch->state)];
  Json json = Json::object();
  for (const State state : kAllStates) json[state_name(state)] = counts[static_cast<size_t>(state)];
  return json;
}

Json schedule_json(const Snapshot& snapshot) {
  return {{"kept", snapshot.trouble.empty()},
          {"trouble", text_or_null(snapshot.trouble)},
          {"mean_lateness_seconds", mean_or_null(snapshot.lateness_s)},
          {"skipped_starts", snapshot.skipped_starts}};
}

Json silences_json(const Snapshot& snapshot) {
  Json silences = Json::array();
  for (const SilenceView& silence : snapshot.silences) {
    silences.push_back({{"pattern", silence.pattern},
                        {"reason", silence.reason},
                        {"since", iso8601(silence.since)},
                        {"until", iso8601(silence.until)}});
  }
  return silences;
}

Json alerts_json(const Snapshot& snapshot) {
  Json alerts = Json::array();
  for (const AlertView& alert : snapshot.alerts) {
    alerts.push_back({{"name", alert.name},
                      {"way", alert.way},
                      {"failing", alert.failing},
                      {"last_error", text_or_null(alert.last_error)},
                      {"sent", alert.sent},
                      {"failed", alert.failed},
                      {"dropped", alert.dropped},
                      {"queued", alert.queued}});
  }
  return alerts;
}

// All alarms with their watches.
struct Raised {
  const WatchView* watch;
  const AlarmView* alarm;
};

std::vector<Raised> raised_in(const Snapshot& snapshot) {
  std::vector<Raised> all;
  for (const auto& watch : snapshot.watches) {
    for (const AlarmView& alarm : watch->alarms) all.push_back({watch.get(), &alarm});
  }
  std::stable_sort(all.begin(), all.end(), [](const Raised& a, const Raised& b) {
    if (a.alarm->severity != b.alarm->severity) return a.alarm->severity > b.alarm->severity;
    return a.alarm->since < b.alarm->since;
  });
  return all;
}

Json beginning(const Snapshot& snapshot) {
  Json json = Json::object();
  json["time"] = iso8601(snapshot.taken);
  json["host"] = host_name();
  return json;
}

}  // namespace

Json status_json(const Snapshot& snapshot, size_t recent) {
  Json json = beginning(snapshot);
  json["version"] = MIRT_VERSION;
  json["started"] = iso8601(snapshot.started);
  json["schedule"] = schedule_json(snapshot);
  json["reload"] = {{"ok", snapshot.last_reload_ok}, {"time", time_or_null(snapshot.last_reload)}};
  json["counts"] = counts_json(snapshot);
  json["watches"] = watches_json(snapshot, recent);
  json["silences"] = silences_json(snapshot);
  json["alerts"] = alerts_json(snapshot);
  json["reports"] = snapshot.reports.empty() ? Json::object() : Json(snapshot.reports);
  json["recovery_decisions"] =
      snapshot.recovery_decisions.empty() ? Json::object() : Json(snapshot.recovery_decisions);
  return json;
}

Json watch_json(const WatchView& watch) {
  Json json = brief_json(watch);
  json["history"] = Json::array();
  for (const Sample& sample : watch.history.samples()) {
    json["history"].push_back({{"time", iso8601(sample.time)},
                               {"value", json_number(static_cast<double>(sample.value))},
                               {"state", state_name(sample.state)}});
  }
  return json;
}

const WatchView* find_watch(const Snapshot& snapshot, const std::string& name) {
  const auto& watches = snapshot.watches;
  const auto found = std::find_if(watches.begin(), watches.end(),
                                  [&](const auto& watch) { return watch->name == name; });
  return found == watches.end() ? nullptr : found->get();
}

Json alarms_json(const Snapshot& snapshot) {
  Json json = beginning(snapshot);
  json["alarms"] = Json::array();
  for (const Raised& raised : raised_in(snapshot)) {
    Json alarm{{"watch", raised.watch->name}};
    alarm.update(alarm_json(*raised.alarm));
    add_present(alarm, *raised.watch);
    json["alarms"].push_back(std::move(alarm));
  }
  return json;
}

Json hung_json(const Snapshot& snapshot) {
  Json json = beginning(snapshot);
  json["threads"] = Json::array();
  for (const auto& watch : snapshot.watches) {
    if (watch->evidence.is_null()) continue;
    Json thread{{"watch", watch->name}, {"state", state_name(watch->state)}};
    thread["process"] = watch->pid > 0 ? Json(watch->pid) : Json();
    thread["cmdline"] = text_or_null(watch->cmdline);
    thread["evidence"] = watch->evidence;
    json["threads"].push_back(std::move(thread));
  }
  return json;
}
