// Readers for the parts of the configuration.
#ifndef MONITOR_CONFIG_PARTS_H
#define MONITOR_CONFIG_PARTS_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "config/toml_fields.h"
#include "item/alarm_rule.h"
#include "item/alert.h"
#include "item/instance.h"
#include "item/item_table.h"
#include "item/params.h"
#include "item/plan.h"
#include "item/recovery.h"

// The names of instances and watches with their places.
class NameRegister {
 public:
  // The mistake if the name is already used.
  std::optional<std::string> claim(const std::string& name, const std::string& file, unsigned line);

 private:
  struct Place {
    std::string file;
    unsigned line;
  };
  std::map<std::string, Place> places_;
};

// The settings that apply to all tables of one file.
struct FileScope {
  std::string file;
  double every_s = 5.0;  // the period of watches
  double deadline_s = Instance().deadline_s;
  bool command_recovers = false;           // [recovery] runs a command
  std::vector<std::string> alert_names{};  // of all files
  bool knows_all_alerts = true;            // false if a file could not be read
};

// The settings that apply to all alarms of one watch.
struct AlarmDefaults {
  Severity severity = Severity::kCritical;
  std::vector<std::string> alerts{};
};

// The item that the key "item" names; null, with a mistake, if there is no such item.
const ItemRow* read_item(TomlFields& fields);

// A duration, such as a period.
std::optional<double> read_seconds(TomlFields& fields, std::string_view key,
                                   TomlFields::Presence presence);

struct ParamsReading {
  std::vector<Param> params;
  std::vector<unsigned> lines;  // of the parameters, in their order
};

// The array "params", checked against the item unless `item` is null.
ParamsReading read_params(TomlFields& fields, const ItemRow* item);

// [recovery]
Recovery read_recovery(TomlFields& fields);

// Reads the keys of an alarm except its condition: for, clear_for, severity, alert, report.
void read_alarm_keys(TomlFields& fields, const ItemRow* item, const FileScope& scope,
                     const AlarmDefaults& defaults, AlarmRule& rule);

// Reads all keys of an alarm.
AlarmRule read_alarm(TomlFields& fields, const ItemRow* item, const FileScope& scope,
                     const AlarmDefaults& defaults);

// The states of the key "on".
void read_states(TomlFields& fields, AlarmRule& rule);

// "severity" and "alert" as defaults for several alarms.
AlarmDefaults read_alarm_defaults(TomlFields& fields, const FileScope& scope,
                                  const AlarmDefaults& defaults);

// The table "report". Its placeholders are checked for the item `alarmed`, or for any item if
// `alarmed` is null.
std::optional<AlarmReport> read_report(TomlFields& fields, const ItemRow* alarmed);
// [status]: the path of the socket; empty if there is none.
std::string read_status_socket(TomlFields& fields);

// [http]; nothing without one.
std::optional<HttpPlan> read_http(TomlFields& fields);

// [metrics], if there is one.
std::optional<MetricsFilePlan> read_metrics(TomlFields& fields);

// [instance.alarm] or [[instance.alarm]] of an instance of `item`, which is null if the item is not
// valid.
std::vector<AlarmRule> read_alarms(TomlFields& fields, const ItemRow* item, const FileScope& scope);

// The names of the tables [alert.NAME], even if their content is not valid.
std::vector<std::string> names_of_alerts(const toml::table& file);

// The tables [alert.NAME].
std::vector<Alert> read_alerts(TomlFields& file);

// Adds warnings about times that do not fit together; `key` is the key of the period.
void check_times(TomlFields& fields, std::string_view key, const Instance& instance,
                 const FileScope& scope);

// Every [[instance]].
void read_instances(TomlFields& file, const FileScope& scope, NameRegister& names,
                    std::vector<Instance>& instances);

// The instances of every [[process]], [[heartbeat]] and [machine].
void read_watches(TomlFields& file, const FileScope& scope, NameRegister& names,
                  std::vector<Instance>& instances);

#endif
