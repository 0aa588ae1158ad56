// [instance.alarm]: when an instance's values are worth a report.
#include <algorithm>
#include <iterator>

#include "config/config_parts.h"
#include "item/placeholders.h"
#include "item/value_check.h"
#include "item/value_range.h"
#include "text/wording.h"

namespace {

using Presence = TomlFields::Presence;
using Condition = AlarmRule::Condition;

constexpr TomlFields::Range kBound{-1e30, 1e30, "a number"};
constexpr TomlFields::Range kCalls{1.0, 1e6, "a whole number"};

// In the unit of the item's values where that has several.
std::optional<double> read_bound(TomlFields& fields, const char* key, const ItemRow* item) {
  const std::string_view unit = item ? item->unit : "";
  if (unit == "MiB") {
    return fields.quantity(key, Presence::kOptional, size_in_mib(), kBound.least, kBound.most);
  }
  if (unit == "%" || unit == "% core") {
    return fields.quantity(key, Presence::kOptional, percentage(), kBound.least, kBound.most);
  }
  return fields.number(key, Presence::kOptional, kBound);
}

void check_bound(TomlFields& fields, const char* key, const AlarmRule& rule, const ItemRow& item) {
  const std::optional<BoundFault> fault = check_bound(item, rule.condition, rule.bound);
  if (!fault) return;
  const std::string text = std::string(key) + ' ' + fault->text;
  if (fault->is_mistake) {
    fields.mistake(fields.line(key), text);
  } else {
    fields.warning(fields.line(key), text);
  }
}

void read_condition(TomlFields& fields, const ItemRow* item, AlarmRule& rule) {
  struct Row {
    const char* key;
    Condition condition;
  };
  constexpr Row kRows[] = {
      {"above", Condition::kAbove}, {"below", Condition::kBelow}, {"equals", Condition::kEquals}};
  std::string found;
  unsigned count = 0;
  for (const Row& row : kRows) {
    const std::optional<double> bound = read_bound(fields, row.key, item);
    if (!fields.has(row.key)) continue;
    rule.condition = row.condition;
    rule.bound = bound.value_or(rule.bound);
    if (bound && item) check_bound(fields, row.key, rule, *item);
    found += (count++ == 0 ? "" : " and ") + std::string(row.key);
  }
  if (count == 1 || (count == 0 && fields.has("on"))) return;
  fields.mistake(fields.line(""), (count == 0 ? "no condition" : found) + std::string(" in ") +
                                      "[instance.alarm], expected one of above, below, equals" +
                                      std::string(count == 0 ? ", or on" : ""));
}

constexpr char kStatesForm[] = "an array of \"failed\", \"blind\", \"unjudged\", \"absent\"";

// A state that an alarm can be raised for; nothing, with a mistake, if it is none.
std::optional<State> read_state(TomlFields& fields, const toml::node& node) {
  constexpr State kAllowed[] = {State::kFailed, State::kBlind, State::kUnjudged, State::kAbsent};
  if (!node.is_string()) {
    fields.mistake(line_of(node), "on has " + type_of(node) + ", expected " + kStatesForm);
    return std::nullopt;
  }
  const std::string& name = node.as_string()->get();
  const std::optional<State> state = find_state(name);
  if (state && std::count(std::begin(kAllowed), std::end(kAllowed), *state) != 0) return state;
  fields.mistake(line_of(node), "on has " + in_quotes(name) + ", expected " + kStatesForm);
  return std::nullopt;
}

void read_states(TomlFields& fields, AlarmRule& rule) {
  const toml::array* const states = fields.array("on", kStatesForm);
  if (!states) return;
  if (states->empty()) {
    fields.mistake(line_of(*states), std::string("on is empty, expected ") + kStatesForm);
  }
  for (const toml::node& node : *states) {
    const std::optional<State> state = read_state(fields, node);
    if (state) rule.states.push_back(*state);
  }
}

AlarmReport read_report(TomlFields fields, const ItemRow* alarmed) {
  AlarmReport report;
  report.item = read_item(fields);
  if (report.item && !sends_report(*report.item)) {
    fields.mistake(fields.line("item"), std::string("item ") + report.item->name +
                                            " sends no report, expected SendErrRpt or "
                                            "SendErrRptExtend");
    report.item = nullptr;
  }
  ParamsReading reading = read_params(fields, report.item);
  for (size_t i = 0; i < reading.params.size(); ++i) {
    for (std::string& text : check_placeholders(reading.params[i].value, alarmed)) {
      fields.mistake(reading.lines[i], std::move(text));
    }
  }
  report.params = std::move(reading.params);
  fields.refuse_other_keys();
  return report;
}

AlarmRule read_alarm(TomlFields fields, const ItemRow* item) {
  AlarmRule rule;
  read_condition(fields, item, rule);
  read_states(fields, rule);
  rule.raise_after.calls = fields.whole_number("for", Presence::kOptional, kCalls).value_or(1);
  rule.clear_after.calls =
      fields.whole_number("clear_for", Presence::kOptional, kCalls).value_or(1);
  const toml::table* const report =
      fields.table("report", "a table { item = \"...\", params = [...] }");
  if (report) rule.report = read_report(fields.within(*report, "report"), item);
  fields.refuse_other_keys();
  return rule;
}

}  // namespace

std::vector<AlarmRule> read_alarms(TomlFields& fields, const ItemRow* item) {
  constexpr char kName[] = "[instance.alarm]";
  std::vector<AlarmRule> rules;
  const toml::node* const node = fields.any("alarm");
  if (!node) return rules;
  if (node->is_table()) return {read_alarm(fields.within(*node->as_table(), kName), item)};
  if (!node->is_array_of_tables()) {
    fields.mistake(line_of(*node), "alarm is " + type_of(*node) + ", expected a table " + kName);
    return rules;
  }
  for (const toml::node& each : *node->as_array()) {
    rules.push_back(read_alarm(fields.within(*each.as_table(), kName), item));
  }
  return rules;
}
