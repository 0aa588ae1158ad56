// Reads [alert.NAME]: the receivers of alarms.
#include <cerrno>
#include <cstring>

#include "config/config_parts.h"
#include "item/web_address.h"
#include "proc/program_path.h"
#include "text/wording.h"

namespace {

using Presence = TomlFields::Presence;

constexpr char kCommandForm[] = "an array of text: the program and its arguments";

void check_program(TomlFields& fields, const std::string& program) {
  const unsigned line = fields.line("command");
  const std::string found = "command begins with " + in_quotes(program);
  if (program.empty() || (program[0] != '/' && program.find('/') != std::string::npos)) {
    fields.mistake(
        line,
        found + ", expected an absolute path, or the name of a program in one of " + kProgramPath);
  } else if (find_program(program).empty()) {
    const std::string where =
        program[0] == '/' ? "" : std::string(", which is searched in ") + kProgramPath;
    fields.warning(line, found + where + ": " + std::strerror(errno) +
                             ", expected a program that can be started");
  }
}

std::vector<std::string> read_command(TomlFields& fields) {
  std::vector<std::string> command;
  const toml::array* const array = fields.array("command", kCommandForm);
  if (!array) return command;
  const size_t mistakes_before = fields.mistake_count();
  command = fields.texts("command", kCommandForm);
  if (fields.mistake_count() != mistakes_before) return command;
  if (command.empty()) {
    fields.mistake(fields.line("command"),
                   std::string("command is empty, expected ") + kCommandForm);
  } else {
    check_program(fields, command.front());
  }
  return command;
}

std::string read_webhook(TomlFields& fields) {
  const std::optional<std::string> address = fields.text("webhook", Presence::kOptional);
  if (!address) return "";
  if (!read_web_address(*address)) {
    fields.mistake(fields.line("webhook"), "webhook is " + in_quotes(*address) +
                                               ", expected http://HOST[:PORT][/PATH] without a "
                                               "user and without blanks");
  }
  return *address;
}

Alert read_alert(TomlFields fields, const std::string& name) {
  Alert alert;
  alert.name = name;
  alert.line = fields.line("");
  if (name.empty() || name.find('\0') != std::string::npos) {
    fields.mistake(alert.line, "name of " + fields.where() +
                                   " is empty or contains a NUL character, "
                                   "expected a name");
  }
  alert.command = read_command(fields);
  alert.webhook = read_webhook(fields);
  alert.report = read_report(fields, nullptr);
  alert.timeout_s = read_seconds(fields, "timeout", Presence::kOptional).value_or(alert.timeout_s);
  alert.repeat_s = read_seconds(fields, "repeat", Presence::kOptional).value_or(alert.repeat_s);
  if (!fields.has("command") && !fields.has("webhook") && !fields.has("report")) {
    fields.mistake(alert.line, "nothing to do in " + fields.where() +
                                   ", expected at least one of command, webhook, report");
  }
  fields.refuse_other_keys();
  return alert;
}

}  // namespace

std::vector<std::string> names_of_alerts(const toml::table& file) {
  std::vector<std::string> names;
  const toml::table* const alerts = file["alert"].as_table();
  if (!alerts) return names;
  for (const auto& [key, node] : *alerts) names.emplace_back(key.str());
  return names;
}

std::vector<Alert> read_alerts(TomlFields& file) {
  std::vector<Alert> alerts;
  const toml::table* const tables = file.table("alert", "tables [alert.NAME]");
  if (!tables) return alerts;
  for (const auto& [key, node] : *tables) {
    const std::string name(key.str()), where = "[alert." + name + "]";
    if (node.is_table()) {
      alerts.push_back(read_alert(file.within(*node.as_table(), where), name));
    } else {
      std::string text = "alert." + name + " is " + type_of(node);
      file.mistake(line_of(node), text.append(", expected a table ").append(where));
    }
  }
  return alerts;
}
