// The parts of the configuration file, each read from the table that it stands in.
#ifndef MONITOR_CONFIG_PARTS_H
#define MONITOR_CONFIG_PARTS_H

#include <optional>
#include <vector>

#include "config/toml_fields.h"
#include "item/alarm_rule.h"
#include "item/item_table.h"
#include "item/params.h"
#include "item/recovery.h"

// The item that the key "item" names; null, with a mistake, if there is none such.
const ItemRow* read_item(TomlFields& fields);

// A duration, such as a period.
std::optional<double> read_seconds(TomlFields& fields, std::string_view key,
                                   TomlFields::Presence presence);

struct ParamsReading {
  std::vector<Param> params;
  std::vector<unsigned> lines;  // of the parameters, in their order
};

// The array "params", checked against the item, unless that is null.
ParamsReading read_params(TomlFields& fields, const ItemRow* item);

// [recovery]
Recovery read_recovery(TomlFields& fields);

// [instance.alarm], or several [[instance.alarm]], of an instance that calls `item`, which is null
// if it is a mistake itself.
std::vector<AlarmRule> read_alarms(TomlFields& fields, const ItemRow* item);

#endif
