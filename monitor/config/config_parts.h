// The parts of the configuration, each read from the table that it stands in.
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
#include "item/recovery.h"

// The names of instances and watches, and where each of them is.
class NameRegister {
 public:
  // The mistake, if the name is that of something else already.
  std::optional<std::string> claim(const std::string& name, const std::string& file, unsigned line);

 private:
  struct Place {
    std::string file;
    unsigned line;
  };
  std::map<std::string, Place> places_;
};

// What the tables of one file have in common.
struct FileScope {
  std::string file;
  double every_s = 5.0;  // the period of watches
  double deadline_s = Instance().deadline_s;
  bool command_recovers = false;           // [recovery] asks a command
  std::vector<std::string> alert_names{};  // of all files
  bool knows_all_alerts = true;            // no file was unreadable
};

// What alarms of one watch have in common.
struct AlarmDefaults {
  Severity severity = Severity::kCritical;
  std::vector<std::string> alerts{};
};

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

// The keys of an alarm whose condition is known: for, clear_for, severity, alert, report.
void read_alarm_keys(TomlFields& fields, const ItemRow* item, const FileScope& scope,
                     const AlarmDefaults& defaults, AlarmRule& rule);

// The same, and the condition, its bounds and the states.
AlarmRule read_alarm(TomlFields& fields, const ItemRow* item, const FileScope& scope,
                     const AlarmDefaults& defaults);

// The states of the key "on".
void read_states(TomlFields& fields, AlarmRule& rule);

// "severity" and "alert" where they stand for several alarms.
AlarmDefaults read_alarm_defaults(TomlFields& fields, const FileScope& scope,
                                  const AlarmDefaults& defaults);

// The table "report", whose placeholders are of calls of `alarmed`, or of any item if that is null.
std::optional<AlarmReport> read_report(TomlFields& fields, const ItemRow* alarmed);
// [status]: the path of the socket, empty without one.
std::string read_status_socket(TomlFields& fields);

// [instance.alarm], or several [[instance.alarm]], of an instance that calls `item`, which is null
// if it is a mistake itself.
std::vector<AlarmRule> read_alarms(TomlFields& fields, const ItemRow* item, const FileScope& scope);

// The names of the tables [alert.NAME], whatever is in them.
std::vector<std::string> names_of_alerts(const toml::table& file);

// The tables [alert.NAME].
std::vector<Alert> read_alerts(TomlFields& file);

// Warnings about times that do not go together; `key` is where the period stands.
void check_times(TomlFields& fields, std::string_view key, const Instance& instance,
                 const FileScope& scope);

// Every [[instance]].
void read_instances(TomlFields& file, const FileScope& scope, NameRegister& names,
                    std::vector<Instance>& instances);

// Every [[process]] and [[heartbeat]], and [machine], as the instances that they stand for.
void read_watches(TomlFields& file, const FileScope& scope, NameRegister& names,
                  std::vector<Instance>& instances);

#endif
