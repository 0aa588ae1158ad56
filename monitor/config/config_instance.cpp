// Reads [[instance]]: one item with its parameters.
#include "config/config_parts.h"
#include "item/value_check.h"
#include "text/number_text.h"
#include "text/wording.h"

namespace {

using Presence = TomlFields::Presence;

class InstanceReader {
 public:
  InstanceReader(const FileScope& scope, NameRegister& names) : scope_(scope), names_(names) {}

  Instance read(TomlFields fields);

 private:
  void read_name(TomlFields& fields, Instance& instance);

  const FileScope& scope_;
  NameRegister& names_;
};

Instance InstanceReader::read(TomlFields fields) {
  Instance instance;
  instance.file = scope_.file;
  instance.line = fields.line("");
  read_name(fields, instance);
  instance.item = read_item(fields);
  if (instance.item) instance.unit = instance.item->unit;
  const std::optional<double> period = read_seconds(fields, "period", Presence::kRequired);
  instance.period_s = period.value_or(instance.period_s);
  instance.deadline_s =
      read_seconds(fields, "deadline", Presence::kOptional).value_or(scope_.deadline_s);
  const std::optional<std::string> unit = fields.text("unit", Presence::kOptional);
  if (unit) instance.unit = *unit;
  instance.params = read_params(fields, instance.item).params;
  if (instance.item && period) check_times(fields, "period", instance, scope_);
  instance.alarms = read_alarms(fields, instance.item, scope_);
  fields.refuse_other_keys();
  return instance;
}

void InstanceReader::read_name(TomlFields& fields, Instance& instance) {
  const std::optional<std::string> name = fields.text("name", Presence::kRequired);
  if (!name) return;
  instance.name = *name;
  const unsigned line = fields.line("name");
  if (name->empty()) {
    fields.mistake(line, "name is empty, expected a name");
    return;
  }
  const std::optional<std::string> taken = names_.claim(*name, scope_.file, line);
  if (taken) fields.mistake(line, *taken);
}

}  // namespace

std::optional<std::string> NameRegister::claim(const std::string& name, const std::string& file,
                                               unsigned line) {
  const auto [first, is_new] = places_.emplace(name, Place{file, line});
  if (is_new) return std::nullopt;
  const Place& place = first->second;
  const std::string there = place.file == file
                                ? "in line " + std::to_string(place.line)
                                : "at " + place.file + ':' + std::to_string(place.line);
  return "name " + in_quotes(name) + " is already used " + there + ", expected another name";
}

void check_times(TomlFields& fields, std::string_view key, const Instance& instance,
                 const FileScope& scope) {
  const std::optional<std::string> often =
      check_period(*instance.item, instance.params, instance.period_s);
  if (often) fields.warning(fields.line(key), std::string(key) + ' ' + *often);
  const bool waits_for_command = scope.command_recovers && asks_for_recovery(*instance.item);
  if (!waits_for_command || instance.deadline_s > kRecoverySeconds) return;
  fields.warning(fields.line("deadline"),
                 "deadline is " + number_text(instance.deadline_s) + ", expected more than " +
                     number_text(kRecoverySeconds) +
                     " s: the item waits that long for the command of [recovery]");
}

void read_instances(TomlFields& file, const FileScope& scope, NameRegister& names,
                    std::vector<Instance>& instances) {
  const toml::array* const tables = file.array("instance", "tables [[instance]]");
  if (!tables) return;
  InstanceReader reader(scope, names);
  for (const toml::node& node : *tables) {
    if (node.is_table()) {
      instances.push_back(reader.read(file.within(*node.as_table(), "[[instance]]")));
    } else {
      file.mistake(line_of(node),
                   "instance is " + type_of(node) + ", expected a table [[instance]]");
    }
  }
}
