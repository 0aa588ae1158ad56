// [instance.alarm]: when an instance's values are worth a report.
#include "config/config_parts.h"
#include "item/placeholders.h"
#include "item/value_check.h"

namespace {

using Presence = TomlFields::Presence;
using Condition = AlarmRule::Condition;

constexpr TomlFields::Range kBound{-1e30, 1e30, "a number"};
constexpr TomlFields::Range kCalls{1.0, 1e6, "a whole number"};

void read_condition(TomlFields& fields, AlarmRule& rule) {
  struct Row {
    const char* key;
    Condition condition;
  };
  constexpr Row kRows[] = {
      {"above", Condition::kAbove}, {"below", Condition::kBelow}, {"equals", Condition::kEquals}};
  std::string found;
  unsigned count = 0;
  for (const Row& row : kRows) {
    rule.bound = fields.number(row.key, Presence::kOptional, kBound).value_or(rule.bound);
    if (!fields.has(row.key)) continue;
    rule.condition = row.condition;
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
  read_condition(own, rule);
  rule.raise_after = own.whole_number("for", Presence::kOptional, kCalls).value_or(1);
  rule.clear_after = own.whole_number("clear_for", Presence::kOptional, kCalls).value_or(1);
  const toml::table* const report =
      own.table("report", "a table { item = \"...\", params = [...] }");
  if (report) rule.report = read_report(own.within(*report, "report"), item);
  own.refuse_other_keys();
  return rule;
}
