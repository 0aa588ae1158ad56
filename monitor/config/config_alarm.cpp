// [instance.alarm]: when an instance's values are worth a report.
#include "config/config_parts.h"
#include "item/placeholders.h"
#include "item/value_check.h"
#include "item/value_range.h"

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
  if (count == 1) return;
  fields.mistake(fields.line(""), (count == 0 ? "no condition" : found) + std::string(" in ") +
                                      "[instance.alarm], expected one of above, below, equals");
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

}  // namespace

std::optional<AlarmRule> read_alarm(TomlFields& fields, const ItemRow* item) {
  const toml::table* const table = fields.table("alarm", "a table [instance.alarm]");
  if (!table) return std::nullopt;
  TomlFields own = fields.within(*table, "[instance.alarm]");
  AlarmRule rule;
  read_condition(own, item, rule);
  rule.raise_after = own.whole_number("for", Presence::kOptional, kCalls).value_or(1);
  rule.clear_after = own.whole_number("clear_for", Presence::kOptional, kCalls).value_or(1);
  const toml::table* const report =
      own.table("report", "a table { item = \"...\", params = [...] }");
  if (report) rule.report = read_report(own.within(*report, "report"), item);
  own.refuse_other_keys();
  return rule;
}
