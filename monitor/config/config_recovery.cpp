// Reads [recovery]: whether the data plane may be recovered.
#include "config/config_parts.h"
#include "text/wording.h"

namespace {

using Presence = TomlFields::Presence;
using Redundancy = Recovery::Redundancy;

constexpr TomlFields::Range kAtMost{1.0, 1000.0, "a whole number"};

constexpr char kWords[] = R"("allow", "deny" or "command")";

std::optional<Redundancy> read_redundancy(TomlFields& fields) {
  const std::optional<std::string> word = fields.text("redundancy", Presence::kRequired);
  if (!word) return std::nullopt;
  if (*word == "allow") return Redundancy::kAllow;
  if (*word == "deny") return Redundancy::kDeny;
  if (*word == "command") return Redundancy::kCommand;
  fields.mistake(fields.line("redundancy"), "redundancy is \"" + *word + "\", expected " + kWords);
  return std::nullopt;
}

void check_command(TomlFields& fields, Redundancy redundancy, const std::string& command) {
  const unsigned line = fields.line("command");
  if (redundancy != Redundancy::kCommand) {
    fields.mistake(line, "command without redundancy = \"command\", expected it only there");
  } else if (command.empty()) {
    fields.mistake(line, "command is empty, expected a shell command");
  }
}

constexpr char kSpareForm[] = R"(an array of "frozen", "killable")";

void read_spare(TomlFields& fields, Recovery& recovery) {
  const toml::array* const words = fields.array("spare", kSpareForm);
  if (!words) return;
  recovery.spare.clear();
  for (const toml::node& node : *words) {
    const std::string word = node.value_or(std::string());
    if (word == "frozen" || word == "killable") {
      recovery.spare.push_back(word);
      continue;
    }
    const std::string found = node.is_string() ? in_quotes(word) : type_of(node);
    fields.mistake(line_of(node), "spare has " + found + ", expected " + kSpareForm);
  }
}

}  // namespace

Recovery read_recovery(TomlFields& fields) {
  Recovery recovery;
  const toml::table* const table = fields.table("recovery", "a table [recovery]");
  if (!table) return recovery;
  TomlFields own = fields.within(*table, "[recovery]");
  const std::optional<Redundancy> redundancy = read_redundancy(own);
  recovery.redundancy = redundancy.value_or(Redundancy::kDeny);
  const bool needed = redundancy == Redundancy::kCommand;
  const std::optional<std::string> command =
      own.text("command", needed ? Presence::kRequired : Presence::kOptional);
  if (command) recovery.command = *command;
  if (command && redundancy) check_command(own, *redundancy, *command);
  recovery.at_most =
      own.whole_number("at_most", Presence::kOptional, kAtMost).value_or(recovery.at_most);
  recovery.per_s = read_seconds(own, "per", Presence::kOptional).value_or(recovery.per_s);
  read_spare(own, recovery);
  own.refuse_other_keys();
  return recovery;
}
