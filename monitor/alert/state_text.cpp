#include <utility>

#include "alert/silences.h"
#include "alert/state_store.h"
#include "text/json_text.h"

namespace {

constexpr int kVersion = 1;

Json json_of(const SavedAlarm& alarm) {
  Json json{{"instance", alarm.instance},
            {"condition", alarm.condition},
            {"severity", severity_name(alarm.severity)},
            {"id", alarm.id},
            {"since", iso8601(alarm.since)}};
  if (alarm.told) json["told"] = iso8601(*alarm.told);
  return json;
}

std::optional<Severity> severity_in(const Json& json) {
  const auto name = text_in(json, "severity");
  for (const Severity severity : {Severity::kWarning, Severity::kCritical}) {
    if (name == severity_name(severity)) return severity;
  }
  return std::nullopt;
}

std::optional<SavedAlarm> alarm_of(const Json& json) {
  const auto instance = text_in(json, "instance");
  const auto condition = text_in(json, "condition");
  const auto severity = severity_in(json);
  const auto id = text_in(json, "id");
  const auto since = time_in(json, "since");
  const auto told = time_in(json, "told");
  if (!instance || !condition || !severity || !id || !since) return std::nullopt;
  if (value_in(json, "told") && !told) return std::nullopt;
  return SavedAlarm{*instance, *condition, *severity, *id, *since, told};
}

std::optional<WallTime> time_of(const Json& json) {
  return json.is_string() ? read_iso8601(json.get<std::string>()) : std::nullopt;
}

// Reads the array of this key with `read` for each element. False if an element is not valid.
template <typename Value>
bool read_list(const Json& json, const char* key, std::optional<Value> (*read)(const Json&),
               std::vector<Value>& values) {
  const Json* const list = value_in(json, key);
  if (!list || !list->is_array()) return false;
  for (const Json& element : *list) {
    std::optional<Value> value = read(element);
    if (!value) return false;
    values.push_back(std::move(*value));
  }
  return true;
}

bool read_counters(const Json& json, std::map<std::string, uint64_t>& counters) {
  const Json* const object = value_in(json, "counters");
  if (!object || !object->is_object()) return false;
  for (const auto& [name, count] : object->items()) {
    if (!count.is_number_unsigned()) return false;
    counters[name] = count.get<uint64_t>();
  }
  return true;
}

}  // namespace

std::string state_text(const SavedState& state) {
  Json json{{"version", kVersion},
            {"alarms", Json::array()},
            {"silences", Json::array()},
            {"counters", Json::object()},
            {"recoveries", Json::array()}};
  for (const SavedAlarm& alarm : state.alarms) json["alarms"].push_back(json_of(alarm));
  for (const Silence& silence : state.silences) json["silences"].push_back(json_of(silence));
  for (const auto& [name, count] : state.counters) json["counters"][name] = count;
  for (const WallTime time : state.recoveries) json["recoveries"].push_back(iso8601(time));
  return json_text(json);
}

std::optional<SavedState> read_state(const std::string& text, std::string& error) {
  const Json json = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object()) {
    error = "it is not a JSON object";
    return std::nullopt;
  }
  const Json* const version = value_in(json, "version");
  if (!version || *version != kVersion) {
    error = "its version is " + (version ? json_text(*version) : "missing") + ", expected " +
            std::to_string(kVersion);
    return std::nullopt;
  }
  SavedState state;
  const char* wrong = nullptr;
  if (!read_list(json, "alarms", alarm_of, state.alarms)) wrong = "alarms";
  if (!read_list(json, "silences", silence_of, state.silences)) wrong = "silences";
  if (!read_counters(json, state.counters)) wrong = "counters";
  if (!read_list(json, "recoveries", time_of, state.recoveries)) wrong = "recoveries";
  if (!wrong) return state;
  error = std::string("its ") + wrong + " are not valid";
  return std::nullopt;
}
