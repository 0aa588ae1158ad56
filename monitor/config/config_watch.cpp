// Watches: [[process]], [[heartbeat]] and [machine]. Each is read as one or several instances.
#include <string_view>

#include "config/config_parts.h"
#include "item/value_check.h"
#include "text/wording.h"

namespace {

using Presence = TomlFields::Presence;
using Condition = AlarmRule::Condition;

constexpr size_t kLongestText = FI_PARAM_VALUE_LEN - 1;
constexpr TomlFields::Range kModules{0.0, 65534.0, "a whole number"};

// How a watch identifies its process.
struct Target {
  Match match = Match::kNone;  // kNone: a mistake
  const char* key = "";
  std::string text;
};

struct TargetRow {
  const char* key;
  Match match;
  ParamRow::Value value;
};
constexpr TargetRow kTargets[] = {{"exact", Match::kExact, ParamRow::Value::kExact},
                                  {"prefix", Match::kPrefix, ParamRow::Value::kPrefix},
                                  {"match", Match::kWildcard, ParamRow::Value::kPattern}};

// A measure of a process, and the item for each way to find it.
struct ProcessMeasure {
  const char* key;
  const char* exact;
  const char* prefix;
  const char* wildcard;
};
// No item tells whether a process that matches a pattern runs. But if none runs, the item for the
// memory of the largest one reports "absent".
constexpr ProcessMeasure kRunning{"running", "IsExistProcess", "IsExistProcessExtern",
                                  "GetProcessMemoryFuzzyMatch"};
constexpr ProcessMeasure kMemory{"memory", "GetProcessMemory", "GetProcessMemoryExtern",
                                 "GetProcessMemoryFuzzyMatch"};
constexpr ProcessMeasure kMachineCpu{"cpu", "GetProcessSysCPU", "GetProcessSysCPUExtern",
                                     "GetProcessSysCPUFuzzyMatch"};
constexpr ProcessMeasure kCoreCpu{"cpu", "GetProcessCoreCPU", "GetProcessCoreCPUExtern",
                                  "GetProcessCoreCPUFuzzyMatch"};
constexpr ProcessMeasure kHandles{"handles", "GetProcessHandle", "GetProcessHandleExtern",
                                  "GetProcessHandleFuzzyMatch"};
constexpr char kHungItem[] = "CheckProcessStatusIsD";
constexpr char kProcessKeys[] = "running, memory, cpu, handles, hung";

struct MachineMeasure {
  const char* key;
  const char* item;
};
constexpr MachineMeasure kMachineMeasures[] = {{"cpu", "GetSysCPU"},
                                               {"user_cpu", "GetSysUsrCPU"},
                                               {"memory", "GetSysMemory"},
                                               {"free_memory", "GetSysFreeMemory"}};
constexpr char kMachineKeys[] = "cpu, user_cpu, memory, free_memory, disk";

constexpr char kMeasureForm[] = "true, a table such as { above = ... }, or several of them in [ ]";
constexpr char kFlagForm[] = "true or a table such as { for = ... }";

// An alarm is raised after this many consecutive calls that could not check the process.
constexpr unsigned kBlindCalls = 3;

const ItemRow& item_for(const ProcessMeasure& measure, Match match) {
  return *find_item(match == Match::kExact    ? measure.exact
                    : match == Match::kPrefix ? measure.prefix
                                              : measure.wildcard);
}

bool is_true(const toml::node& node) {
  return node.is_boolean() && node.as_boolean()->get();
}

// "memory is false", "memory is a string": for messages.
std::string found_text(std::string_view key, const toml::node& node) {
  return std::string(key) + " is " + (node.is_boolean() ? "false" : type_of(node));
}

std::string place_in(std::string_view key, const TomlFields& fields) {
  return std::string(key) + " of " + fields.where();
}

// Why the name is too long for the item; empty if it is not.
std::string length_fault(std::string_view text, size_t most) {
  if (text.size() <= most) return "";
  return "has " + std::to_string(text.size()) + " bytes, expected at most " + std::to_string(most);
}

class WatchReader {
 public:
  WatchReader(const FileScope& scope, NameRegister& names, std::vector<Instance>& instances)
      : scope_(scope), names_(names), instances_(instances) {}

  void read_process(TomlFields fields);
  void read_heartbeat(TomlFields fields);
  void read_machine(TomlFields fields);

 private:
  // The settings of all instances of one watch.
  struct Common {
    std::string name;
    double every_s;
    double deadline_s;
    AlarmDefaults alarms;
    bool claims_names = true;  // false: the watch's name is used twice, which is already reported
  };
  using Rules = std::vector<AlarmRule>;

  std::optional<std::string> read_name(TomlFields& fields);
  Common read_common(TomlFields& fields, std::string name);
  Target read_target(TomlFields& fields);
  void check_target(TomlFields& fields, const Target& target, ParamRow::Value value);

  Rules measured_rules(TomlFields& fields, std::string_view key, const ItemRow& item,
                       const Common& common);
  AlarmRule flag_rule(TomlFields& fields, const char* key, const ItemRow& item, AlarmRule rule,
                      const Common& common);
  Rules running_rules(TomlFields& fields, const ItemRow& item, const Common& common);
  bool counts_one_core(TomlFields& fields);

  void add_process_measures(TomlFields& fields, const Target& target, const Common& common);
  void add_hung(TomlFields& fields, const Target& target, const Common& common);
  void add_disks(TomlFields& fields, const Common& common);
  void add(TomlFields& fields, std::string_view key, const Common& common, std::string name,
           const ItemRow& item, std::vector<Param> params, Rules rules);

  const FileScope& scope_;
  NameRegister& names_;
  std::vector<Instance>& instances_;
};

// Nothing, with a mistake, if the name cannot be used.
std::optional<std::string> WatchReader::read_name(TomlFields& fields) {
  std::optional<std::string> name = fields.text("name", Presence::kRequired);
  if (!name) return std::nullopt;
  const unsigned line = fields.line("name");
  const std::optional<std::string> taken =
      name->empty() ? "name is empty, expected a name" : names_.claim(*name, scope_.file, line);
  if (!taken) return name;
  fields.mistake(line, *taken);
  return std::nullopt;
}

WatchReader::Common WatchReader::read_common(TomlFields& fields, std::string name) {
  Common common{std::move(name), scope_.every_s, scope_.deadline_s, {}};
  common.every_s = read_seconds(fields, "every", Presence::kOptional).value_or(common.every_s);
  common.deadline_s =
      read_seconds(fields, "deadline", Presence::kOptional).value_or(common.deadline_s);
  return common;
}

void WatchReader::check_target(TomlFields& fields, const Target& target, ParamRow::Value value) {
  const unsigned line = fields.line(target.key);
  const std::string key = std::string(target.key) + ' ';
  const std::string length = length_fault(target.text, kLongestText);
  if (!length.empty()) fields.mistake(line, key + length);
  if (target.match != Match::kWildcard && target.text.find('*') != std::string::npos) {
    fields.warning(line, key + "has a *, which is compared literally, expected match = " +
                             in_quotes(target.text) + " for a pattern");
    return;
  }
  const std::optional<ValueFault> fault = check_value(value, target.text);
  if (!fault) return;
  if (fault->is_warning) {
    fields.warning(line, key + fault->text);
  } else {
    fields.mistake(line, key + fault->text);
  }
}

Target WatchReader::read_target(TomlFields& fields) {
  Target target;
  std::string found;
  for (const TargetRow& row : kTargets) {
    const std::optional<std::string> text = fields.text(row.key, Presence::kOptional);
    if (!fields.has(row.key)) continue;
    found += (found.empty() ? "" : " and ") + std::string(row.key);
    if (!text) continue;
    target = {row.match, row.key, *text};
    check_target(fields, target, row.value);
  }
  if (found.find(' ') == std::string::npos && !found.empty()) return target;
  fields.mistake(fields.line(""), (found.empty() ? "no process" : found) + " in " + fields.where() +
                                      ", expected one of exact, prefix, match");
  return {};
}

// The alarms of a measure with bounds; none if it is only measured.
WatchReader::Rules WatchReader::measured_rules(TomlFields& fields, std::string_view key,
                                               const ItemRow& item, const Common& common) {
  const toml::node& node = *fields.any(key);
  Rules rules;
  const auto read_one = [&](const toml::node& table) {
    TomlFields own = fields.within(*table.as_table(), place_in(key, fields));
    if (key == kMachineCpu.key && item.source.subject == Subject::kProcess) own.any("of");
    rules.push_back(read_alarm(own, &item, scope_, common.alarms));
    own.refuse_other_keys();
  };
  if (node.is_table()) {
    read_one(node);
  } else if (node.is_array_of_tables()) {
    for (const toml::node& each : *node.as_array()) read_one(each);
  } else if (!is_true(node)) {
    fields.mistake(line_of(node), found_text(key, node) + ", expected " + kMeasureForm);
  }
  return rules;
}

// The alarm of a measure with a fixed bad value: the rule with the keys of the configuration.
AlarmRule WatchReader::flag_rule(TomlFields& fields, const char* key, const ItemRow& item,
                                 AlarmRule rule, const Common& common) {
  const toml::node& node = *fields.any(key);
  rule.severity = common.alarms.severity;
  rule.alerts = common.alarms.alerts;
  if (node.is_table()) {
    TomlFields own = fields.within(*node.as_table(), place_in(key, fields));
    read_alarm_keys(own, &item, scope_, common.alarms, rule);
    own.refuse_other_keys();
  } else if (!is_true(node)) {
    fields.mistake(line_of(node), found_text(key, node) + ", expected " + kFlagForm);
  }
  return rule;
}

WatchReader::Rules WatchReader::running_rules(TomlFields& fields, const ItemRow& item,
                                              const Common& common) {
  AlarmRule none;
  if (item.source.subject == Subject::kExistence) {
    none.condition = Condition::kEquals;
  } else {
    none.states = {State::kAbsent};
  }
  none = flag_rule(fields, kRunning.key, item, none, common);
  // If the monitor cannot check the process, an alarm must show this.
  AlarmRule unseen;
  unseen.states = {State::kFailed, State::kBlind, State::kUnjudged};
  unseen.raise_after.calls = kBlindCalls;
  unseen.severity = none.severity;
  unseen.alerts = none.alerts;
  return {none, unseen};
}

// True if "of" is "core". With several tables, all must have the same "of".
bool WatchReader::counts_one_core(TomlFields& fields) {
  const toml::node& node = *fields.any(kMachineCpu.key);
  std::optional<std::string> agreed;
  const auto read_one = [&](const toml::node& table) {
    TomlFields own = fields.within(*table.as_table(), place_in(kMachineCpu.key, fields));
    const std::optional<std::string> of = own.text("of", Presence::kOptional);
    if (!of) return;
    if (*of != "machine" && *of != "core") {
      own.mistake(own.line("of"), "of is " + in_quotes(*of) + ", expected \"machine\" or \"core\"");
    } else if (agreed.value_or(*of) != *of) {
      own.mistake(own.line("of"), "of is " + in_quotes(*of) + ", expected " + in_quotes(*agreed) +
                                      " as in the table before it");
    } else {
      agreed = of;
    }
  };
  if (node.is_table()) read_one(node);
  if (node.is_array_of_tables()) {
    for (const toml::node& each : *node.as_array()) read_one(each);
  }
  return agreed == "core";
}

void WatchReader::add_process_measures(TomlFields& fields, const Target& target,
                                       const Common& common) {
  const auto add_measure = [&](const ProcessMeasure& measure, auto read_rules) {
    if (!fields.any(measure.key)) return;
    const ItemRow& item = item_for(measure, target.match);
    const Param param{name_at(item, 0), target.text};
    add(fields, measure.key, common, common.name + '.' + measure.key, item, {param},
        read_rules(item, measure.key));
  };
  const auto measured = [&](const ItemRow& item, const char* key) {
    return measured_rules(fields, key, item, common);
  };
  const auto running = [&](const ItemRow& item, const char* /*key*/) {
    return running_rules(fields, item, common);
  };
  add_measure(kRunning, running);
  add_measure(kMemory, measured);
  if (fields.any(kMachineCpu.key)) {
    add_measure(counts_one_core(fields) ? kCoreCpu : kMachineCpu, measured);
  }
  add_measure(kHandles, measured);
}

// The item accepts only patterns.
void WatchReader::add_hung(TomlFields& fields, const Target& target, const Common& common) {
  static constexpr char kKey[] = "hung";  // static: the fields keep a view of it
  if (!fields.any(kKey)) return;
  const ItemRow& item = *find_item(kHungItem);
  const bool is_prefix = target.match == Match::kPrefix;
  const std::string pattern = target.text + (is_prefix ? "*" : "");
  const size_t wild = target.text.find_first_of("*?");
  if (target.match != Match::kWildcard && wild != std::string::npos) {
    fields.warning(fields.line(kKey), "hung uses " + std::string(target.key) +
                                          " as a pattern, in which " + target.text.substr(wild, 1) +
                                          " matches any text, expected " + target.key +
                                          " without * and ?");
  }
  const std::string length = length_fault(pattern, kLongestText);
  if (!length.empty() && target.text.size() <= kLongestText) {
    fields.mistake(fields.line(target.key),
                   std::string(target.key) + " with a * for hung " + length);
  }
  AlarmRule rule;
  rule.condition = Condition::kEquals;
  rule.bound = 1.0;
  rule = flag_rule(fields, kKey, item, rule, common);
  add(fields, kKey, common, common.name + '.' + kKey, item, {{name_at(item, 0), pattern}}, {rule});
}

void WatchReader::add(TomlFields& fields, std::string_view key, const Common& common,
                      std::string name, const ItemRow& item, std::vector<Param> params,
                      Rules rules) {
  Instance instance;
  instance.name = std::move(name);
  instance.item = &item;
  instance.params = std::move(params);
  instance.period_s = common.every_s;
  instance.deadline_s = common.deadline_s;
  instance.unit = item.unit;
  instance.alarms = std::move(rules);
  instance.file = scope_.file;
  instance.line = fields.line(key);
  check_times(fields, "every", instance, scope_);
  if (common.claims_names && instance.name != common.name) {
    const std::optional<std::string> taken =
        names_.claim(instance.name, scope_.file, instance.line);
    if (taken) fields.mistake(instance.line, *taken);
  }
  instances_.push_back(std::move(instance));
}

void WatchReader::read_process(TomlFields fields) {
  const std::optional<std::string> name = read_name(fields);
  Common common = read_common(fields, name.value_or(""));
  common.claims_names = name.has_value();
  common.alarms = read_alarm_defaults(fields, scope_, {});
  const Target target = read_target(fields);
  const size_t before = instances_.size();
  add_process_measures(fields, target, common);
  add_hung(fields, target, common);
  if (instances_.size() == before) {
    fields.mistake(fields.line(""), "nothing to watch in " + fields.where() +
                                        ", expected at least one of " + kProcessKeys);
  }
  fields.refuse_other_keys();
}

void WatchReader::read_heartbeat(TomlFields fields) {
  const ItemRow& item = *find_item("ProcessHeartBeat");
  const Common common = read_common(fields, read_name(fields).value_or(""));
  const std::string process = fields.text("process", Presence::kRequired).value_or("-");
  const std::optional<ValueFault> fault = check_value(ParamRow::Value::kShortName, process);
  if (fault) fields.mistake(fields.line("process"), "process " + fault->text);
  const unsigned module = fields.whole_number("module", Presence::kRequired, kModules).value_or(0);
  AlarmRule stopped;
  stopped.condition = Condition::kEquals;
  read_states(fields, stopped);
  read_alarm_keys(fields, &item, scope_, {}, stopped);
  add(fields, "name", common, common.name, item,
      {{name_at(item, 0), process}, {name_at(item, 1), std::to_string(module)}}, {stopped});
  fields.refuse_other_keys();
}

void WatchReader::read_machine(TomlFields fields) {
  Common common = read_common(fields, "machine");
  common.alarms = read_alarm_defaults(fields, scope_, {});
  const size_t before = instances_.size();
  for (const MachineMeasure& measure : kMachineMeasures) {
    if (!fields.any(measure.key)) continue;
    const ItemRow& item = *find_item(measure.item);
    add(fields, measure.key, common, common.name + '.' + measure.key, item, {},
        measured_rules(fields, measure.key, item, common));
  }
  add_disks(fields, common);
  if (instances_.size() == before && !fields.has("disk")) {
    fields.mistake(fields.line(""), "nothing to watch in " + fields.where() +
                                        ", expected at least one of " + kMachineKeys);
  }
  fields.refuse_other_keys();
}

void WatchReader::add_disks(TomlFields& fields, const Common& common) {
  const toml::table* const table = fields.table("disk", "a table { \"/\" = ... } of directories");
  if (!table) return;
  const ItemRow& item = *find_item("GetDiskUsage");
  TomlFields disks = fields.within(*table, place_in("disk", fields));
  if (table->empty()) {
    disks.mistake(disks.line(""), "no directory in disk, expected at least one such as \"/\"");
  }
  for (const auto& [key, node] : *table) {
    const std::string directory(key.str());
    const unsigned line = line_of(node);
    const std::string length = length_fault(directory, kLongestText);
    if (!length.empty()) disks.mistake(line, "disk " + length);
    if (directory.empty() || directory[0] != '/' || directory.find('\0') != std::string::npos) {
      disks.mistake(line, "disk is of " + in_quotes(directory) + ", expected an absolute path");
    }
    add(disks, key.str(), common, common.name + ".disk:" + directory, item,
        {{name_at(item, 0), directory}}, measured_rules(disks, key.str(), item, common));
  }
}

// Every table of an array such as [[process]].
template <typename Read>
void read_tables(TomlFields& file, const char* key, Read read) {
  const std::string form = "[[" + std::string(key) + "]]";
  const toml::array* const tables = file.array(key, ("tables " + form).c_str());
  if (!tables) return;
  for (const toml::node& node : *tables) {
    if (node.is_table()) {
      read(file.within(*node.as_table(), form));
    } else {
      file.mistake(line_of(node),
                   std::string(key) + " is " + type_of(node) + ", expected a table " + form);
    }
  }
}

}  // namespace

void read_watches(TomlFields& file, const FileScope& scope, NameRegister& names,
                  std::vector<Instance>& instances) {
  WatchReader reader(scope, names, instances);
  read_tables(file, "process", [&](TomlFields fields) { reader.read_process(std::move(fields)); });
  read_tables(file, "heartbeat",
              [&](TomlFields fields) { reader.read_heartbeat(std::move(fields)); });
  const toml::table* const machine = file.table("machine", "a table [machine]");
  if (machine) reader.read_machine(file.within(*machine, "[machine]"));
}
