// A configuration with every item.
#ifndef TESTS_EVERY_ITEM_H
#define TESTS_EVERY_ITEM_H

#include <string>

#include "item/item_table.h"
#include "monitor_fixture.h"

inline constexpr char kWatchedCommandLine[] = "watched by every item";

// A value with which the item works.
inline std::string working_value(const ParamRow& row) {
  using Value = ParamRow::Value;
  switch (row.value) {
    case Value::kShortName:
      return "cat";
    case Value::kModule:
      return "77";
    case Value::kDirectory:
      return "/";
    case Value::kSeconds:
    case Value::kThread:
      return "1";
    case Value::kCommand:
      return "echo ready";
    case Value::kKeyWords:
      return "ready";
    case Value::kAny:
      return row.name == std::string("ErrCode") ? "0xF0000203" : "5";
    default:
      return kWatchedCommandLine;
  }
}

// An instance of each item under the item's name.
inline std::string every_item(const std::string& times) {
  std::string text;
  for (const ItemRow& item : all_items()) {
    Params params;
    for (const ParamRow& row : *item.params) params.emplace_back(row.name, working_value(row));
    text += instance(item.name, item.name, params, times);
  }
  return text;
}

#endif
