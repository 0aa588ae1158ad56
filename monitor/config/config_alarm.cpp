// Reads alarms: their conditions, and the alerts and reports that they send.
#include <algorithm>
#include <iterator>

#include "config/config_parts.h"
#include "item/placeholders.h"
#include "item/value_check.h"
#include "item/value_range.h"
#include "text/number_text.h"
#include "text/wording.h"

namespace {

using Presence = TomlFields::Presence;
using Condition = AlarmRule::Condition;

constexpr TomlFields::Range kBound{-1e30, 1e30, "a number"};
constexpr TomlFields::Range kCalls{1.0, 1e6, "a whole number"};

// A bound in the unit of the item, or text with one of its units.
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

// True if there is exactly one condition and its bound is valid.
bool read_condition(TomlFields& fields, const ItemRow* item, AlarmRule& rule) {
  struct Row {
    const char* key;
    Condition condition;
  };
  constexpr Row kRows[] = {
      {"above", Condition::kAbove}, {"below", Condition::kBelow}, {"equals", Condition::kEquals}};
  std::string found;
  unsigned count = 0, readable = 0;
  for (const Row& row : kRows) {
    const std::optional<double> bound = read_bound(fields, row.key, item);
    if (!fields.has(row.key)) continue;
    rule.condition = row.condition;
    rule.bound = bound.value_or(rule.bound);
    if (bound && item) check_bound(fields, row.key, rule, *item);
    found += (count++ == 0 ? "" : " and ") + std::string(row.key);
    if (bound) ++readable;
  }
  if (count == 1) return readable == 1;
  if (count == 0 && fields.has("on")) return false;
  fields.mistake(fields.line(""), (count == 0 ? "no condition" : found) + " in " + fields.where() +
                                      ", expected one of above, below, equals" +
                                      std::string(count == 0 ? ", or on" : ""));
  return false;
}

// Why an alarm with this bound could never be cleared; empty if it can.
std::string clear_fault(const AlarmRule& rule, double clear, const ItemRow* item) {
  const double bound = rule.bound;
  const bool is_above = rule.condition == Condition::kAbove;
  if (is_above ? clear > bound : clear < bound) {
    return "is " + number_text(clear) + ", expected at " + (is_above ? "most" : "least") + " the " +
           number_text(bound) + " of " + (is_above ? "above" : "below");
  }
  const std::optional<BoundFault> fault =
      item ? check_bound(*item, rule.condition, clear) : std::nullopt;
  if (!fault || !fault->holds_always) return "";
  return fault->text + ": the alarm would never be cleared";
}

void read_clear(TomlFields& fields, const ItemRow* item, bool has_bound, AlarmRule& rule) {
  const std::optional<double> clear = read_bound(fields, "clear", item);
  if (!fields.has("clear")) return;
  const bool has_side = fields.has("above") || fields.has("below");
  if (!has_side) {
    fields.mistake(fields.line("clear"),
                   "clear without above or below, expected it only beside one of them");
  }
  if (!clear || !has_bound || !has_side) return;
  const std::string fault = clear_fault(rule, *clear, item);
  if (!fault.empty()) fields.mistake(fields.line("clear"), "clear " + fault);
  rule.clear_bound = clear;
}

// A number of calls, or a duration.
Hold read_hold(TomlFields& fields, const char* key) {
  Hold hold;
  const toml::node* const node = fields.any(key);
  if (!node) return hold;
  if (node->is_integer()) {
    hold.calls = fields.whole_number(key, Presence::kOptional, kCalls).value_or(1);
  } else if (node->is_string()) {
    hold.seconds = read_seconds(fields, key, Presence::kOptional).value_or(0.0);
  } else {
    fields.mistake(line_of(*node), std::string(key) + " is " + type_of(*node) +
                                       ", expected a number of calls, or text with ms, s, m, h or "
                                       "d");
  }
  return hold;
}

Severity read_severity(TomlFields& fields, Severity otherwise) {
  const std::optional<std::string> word = fields.text("severity", Presence::kOptional);
  if (!word) return otherwise;
  for (const Severity severity : {Severity::kWarning, Severity::kCritical}) {
    if (*word == severity_name(severity)) return severity;
  }
  fields.mistake(fields.line("severity"),
                 "severity is " + in_quotes(*word) + ", expected \"warning\" or \"critical\"");
  return otherwise;
}

void check_alert_name(TomlFields& fields, const std::string& name, const FileScope& scope) {
  if (!scope.knows_all_alerts) return;
  const std::vector<std::string_view> known(scope.alert_names.begin(), scope.alert_names.end());
  if (std::find(known.begin(), known.end(), name) != known.end()) return;
  const std::string text = "unknown alert " + in_quotes(name);
  fields.mistake(fields.line("alert"),
                 text + (known.empty() ? ", expected the name of a table [alert.NAME]"
                                       : expected_one_of(name, known)));
}

std::vector<std::string> read_alert_names(TomlFields& fields, const FileScope& scope,
                                          const std::vector<std::string>& otherwise) {
  std::vector<std::string> names = fields.texts("alert", "the names of tables [alert.NAME]");
  for (const std::string& name : names) check_alert_name(fields, name, scope);
  return fields.has("alert") ? names : otherwise;
}

constexpr char kStatesForm[] = "an array of \"failed\", \"blind\", \"unjudged\", \"absent\"";

// A state that can raise an alarm; nothing, with a mistake, for other text.
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

AlarmReport report_in(TomlFields fields, const ItemRow* alarmed) {
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

}  // namespace

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

std::optional<AlarmReport> read_report(TomlFields& fields, const ItemRow* alarmed) {
  const toml::table* const report =
      fields.table("report", "a table { item = \"...\", params = [...] }");
  if (!report) return std::nullopt;
  return report_in(fields.within(*report, "report"), alarmed);
}

AlarmDefaults read_alarm_defaults(TomlFields& fields, const FileScope& scope,
                                  const AlarmDefaults& defaults) {
  return {read_severity(fields, defaults.severity),
          read_alert_names(fields, scope, defaults.alerts)};
}

void read_alarm_keys(TomlFields& fields, const ItemRow* item, const FileScope& scope,
                     const AlarmDefaults& defaults, AlarmRule& rule) {
  rule.raise_after = read_hold(fields, "for");
  rule.clear_after = read_hold(fields, "clear_for");
  const AlarmDefaults own = read_alarm_defaults(fields, scope, defaults);
  rule.severity = own.severity;
  rule.alerts = own.alerts;
  rule.report = read_report(fields, item);
}

AlarmRule read_alarm(TomlFields& fields, const ItemRow* item, const FileScope& scope,
                     const AlarmDefaults& defaults) {
  AlarmRule rule;
  const bool has_bound = read_condition(fields, item, rule);
  read_clear(fields, item, has_bound, rule);
  read_states(fields, rule);
  read_alarm_keys(fields, item, scope, defaults, rule);
  return rule;
}

std::vector<AlarmRule> read_alarms(TomlFields& fields, const ItemRow* item,
                                   const FileScope& scope) {
  constexpr char kName[] = "[instance.alarm]";
  std::vector<AlarmRule> rules;
  const toml::node* const node = fields.any("alarm");
  if (!node) return rules;
  const auto read_one = [&](const toml::node& table) {
    TomlFields own = fields.within(*table.as_table(), kName);
    rules.push_back(read_alarm(own, item, scope, {}));
    own.refuse_other_keys();
  };
  if (node->is_table()) {
    read_one(*node);
  } else if (node->is_array_of_tables()) {
    for (const toml::node& each : *node->as_array()) read_one(each);
  } else {
    fields.mistake(line_of(*node), "alarm is " + type_of(*node) + ", expected a table " + kName);
  }
  return rules;
}
