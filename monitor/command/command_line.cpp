#include "command/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "command/commands.h"
#include "item/instance.h"
#include "text/complaint.h"
#include "text/number_text.h"
#include "text/wording.h"

namespace {

constexpr char kFooter[] =
    R"("SUBCOMMAND --help" tells more. Exit code 0: fine; 1: what was asked for failed or is not there, or
resources are missing; 2: wrong usage or configuration.)";

constexpr char kRunFooter[] =
    R"(Ends after --rounds, on SIGINT, SIGTERM or SIGHUP (ignored under nohup), or when it writes and
nobody reads. Instances that are blind when all others have had their rounds are not waited for.
Exit code 0: ended so; 1: the output failed, or resources are missing; 2: wrong usage or
configuration, or an item is missing.)";

constexpr char kCheckFooter[] =
    R"(FILE is a regular file, /dev/stdin or /dev/fd/N. Exit code 0: no mistakes; 2: mistakes, each on a
line of its own as FILE:LINE: TEXT. Warnings, as FILE:LINE: warning: TEXT, are of what works but
hardly as it was meant.)";

constexpr char kPsFooter[] =
    R"(Kernel threads have no command line and are left out. Exit code 0: listed; 1: /proc cannot be read;
2: wrong usage.)";

constexpr char kFindFooter[] =
    R"(MODE "exact" gives the first process with just this command line, "prefix" and "wildcard" (* any
text, ? any character) give all, this very one left out. Arguments are separated by single spaces.
A NAME that begins with - has to stand behind a --.
Exit code 0: found; 1: none; 2: wrong usage.)";

constexpr char kKillFooter[] =
    R"(The short name is what the kernel calls the process, 15 bytes at most (/proc/PID/comm).
A NAME that begins with - has to stand behind a --. Exit code 0: the signal is sent, in the
background; 1: no such process, another name, or not permitted; 2: wrong usage.)";

constexpr char kHeartbeatsFooter[] =
    R"(One line for each module that has an entry: its process id, the name of that process now, the
heartbeat, whether it moved within a second, the flow id, and whether supervision is paused.
Nothing is created or changed. Exit code 0: shown; 1: there is no table, none that fits, or one of a
user who is neither root nor "daemon" nor the caller.
"heartbeats prepare" makes the table beforehand, for the processes of a group.)";

constexpr char kPrepareFooter[] =
    R"(For root, best at each start of the machine and before anything else attaches. Makes
/tmp/mirt_agent_lock and /dev/shm/MIRT_AGENT_HEARTBEAT, or takes over those of root and "daemon":
owner root, mode 0660, so that the processes of the group can attach and nobody else can hold the
lock. May be repeated, while processes beat as well.
Exit code 0: both are ready; 1: something else is in the way, each on a line of its own, or the
caller is not root; 2: wrong usage, or there is no such group.)";

constexpr char kOnceFooter[] =
    R"(NAME is one word. Anything else, such as "/usr/bin/app --mode=fast", is a bare VALUE and gets
the name that the item expects at its place; a value that looks like NAME=VALUE itself needs its
name: ProcessName=A=B, and one that begins with - has to stand behind a --.
Without --every there is one call, and it may take as long as it takes.
Exit code 0: each call gave a valid value; 1: one failed, or none ended; 2: wrong usage.)";

// The parsed command line: which command, and what it needs.
struct Arguments {
  RunOptions run;
  OnceOptions once;
  bool heartbeats_json = false;
  CheckOptions check;
  std::string prepared_group = "daemon";
  PsOptions ps;
  FindOptions find;
  KillOptions kill;
  int (*command)(const Arguments&) = nullptr;
};

// CLI11 takes a value in brackets for a list and drops them. No argument can hold a NUL, so one
// behind such a value keeps it whole until its option has it.
std::vector<std::string> shielded(int argc, char** argv) {
  std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
  for (std::string& text : arguments) {
    if (!text.empty() && text.front() == '[' && text.back() == ']') text += '\0';
  }
  return arguments;
}

std::string unshielded(std::string text) {
  if (!text.empty() && text.back() == '\0') text.pop_back();
  return text;
}

// An option or argument for text, one or several.
template <typename Text>
CLI::Option* add_text(CLI::App& command, const char* name, Text& text, const char* meaning,
                      const char* type) {
  const auto unshield = [](std::string& value) {
    value = unshielded(value);
    return std::string();
  };
  return command.add_option(name, text, meaning)
      ->transform(CLI::Validator(unshield, ""))
      ->type_name(type);
}

// Asks for a value that `fits`; what is expected else is said beside what was found.
template <typename Fits>
CLI::Validator expecting(const std::string& expected, const Fits& fits) {
  return CLI::Validator(
      [expected, fits](std::string& text) {
        return fits(text) ? "" : "found " + in_quotes(text) + ", expected " + expected;
      },
      "");
}

CLI::Validator seconds() {
  const std::string range = number_text(kLeastSeconds) + " to " + number_text(kMostSeconds);
  return expecting("a number of seconds from " + range, [](const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0' && value >= kLeastSeconds && value <= kMostSeconds;
  });
}

CLI::Validator whole_number_from_one(long most) {
  return expecting("a whole number from 1 to " + std::to_string(most),
                   [most](const std::string& text) {
                     long value = 0;
                     const char* const end = text.data() + text.size();
                     const auto [stop, error] = std::from_chars(text.data(), end, value);
                     return error == std::errc() && stop == end && value >= 1 && value <= most &&
                            text.front() != '0';  // which CLI11 would take for octal
                   });
}

CLI::Validator one_of(const std::vector<std::string_view>& words) {
  return expecting("one of " + joined(words), [words](const std::string& text) {
    return std::find(words.begin(), words.end(), text) != words.end();
  });
}

void add_plugin_option(CLI::App& command, std::string& plugin) {
  add_text(command, "--plugin", plugin, "The plug-in to load", "FILE");
}

void add_json_flag(CLI::App& command, bool& json) {
  command.add_flag("--json", json, "One JSON object per line");
}

void add_strict_flag(CLI::App& command, bool& strict) {
  command.add_flag("--strict", strict, "Take the configuration's warnings for mistakes");
}

// What the command does when it is asked for, and what its help ends with.
void set_action(CLI::App& command, Arguments& arguments, const char* footer,
                int (*action)(const Arguments&)) {
  command.footer(footer);
  command.callback([&arguments, action] {
    // The innermost command is the first to be called back.
    if (arguments.command == nullptr) arguments.command = action;
  });
}

void add_run(CLI::App& app, Arguments& arguments) {
  CLI::App* const run = app.add_subcommand("run", "Run the items of a configuration");
  RunOptions& options = arguments.run;
  add_text(*run, "--config", options.config, "The configuration", "FILE")->required();
  run->add_option("--rounds", options.rounds, "Call each instance N times, then end")
      ->check(whole_number_from_one(LONG_MAX))
      ->type_name("N");
  add_plugin_option(*run, options.plugin);
  add_json_flag(*run, options.json);
  add_strict_flag(*run, options.strict);
  set_action(*run, arguments, kRunFooter,
             [](const Arguments& given) { return command_run(given.run); });
}

void add_once(CLI::App& app, Arguments& arguments) {
  CLI::App* const once = app.add_subcommand("once", "Call one item");
  OnceOptions& options = arguments.once;
  add_text(*once, "item", options.item, "The item, as \"items\" lists it", "ITEM")->required();
  add_text(*once, "params", options.params, "The item's parameters, in their order",
           "NAME=VALUE|VALUE");
  CLI::Option* const every =
      once->add_option("--every", options.every_s,
                       "Call it again and again with one context, without --rounds for ever")
          ->check(seconds())
          ->type_name("SECONDS");
  once->add_option("--rounds", options.rounds, "End after N calls")
      ->check(whole_number_from_one(LONG_MAX))
      ->needs(every)
      ->type_name("N");
  add_plugin_option(*once, options.plugin);
  add_json_flag(*once, options.json);
  set_action(*once, arguments, kOnceFooter,
             [](const Arguments& given) { return command_once(given.once); });
}

void add_items(CLI::App& app, Arguments& arguments) {
  set_action(*app.add_subcommand("items", "List every item with its parameters"), arguments, "",
             [](const Arguments&) { return command_items(); });
}

void add_heartbeats(CLI::App& app, Arguments& arguments) {
  CLI::App* const heartbeats = app.add_subcommand("heartbeats", "Show the heartbeat table");
  add_json_flag(*heartbeats, arguments.heartbeats_json);
  CLI::App* const prepare = heartbeats->add_subcommand(
      "prepare", "Make lock file and table beforehand, with a group that may attach");
  prepare->excludes(heartbeats->get_option("--json"));
  add_text(*prepare, "--group", arguments.prepared_group, "The group, else that of \"daemon\"",
           "NAME");
  set_action(*prepare, arguments, kPrepareFooter, [](const Arguments& given) {
    return command_heartbeats_prepare(given.prepared_group);
  });
  set_action(*heartbeats, arguments, kHeartbeatsFooter,
             [](const Arguments& given) { return command_heartbeats(given.heartbeats_json); });
}

void add_check_config(CLI::App& app, Arguments& arguments) {
  CLI::App* const check =
      app.add_subcommand("check-config", "Check a configuration and start nothing");
  add_text(*check, "file", arguments.check.config, "The configuration", "FILE")->required();
  add_strict_flag(*check, arguments.check.strict);
  set_action(*check, arguments, kCheckFooter,
             [](const Arguments& given) { return command_check_config(given.check); });
}

void add_ps(CLI::App& app, Arguments& arguments) {
  CLI::App* const ps = app.add_subcommand("ps", "List all user processes");
  PsOptions& options = arguments.ps;
  ps->add_flag("--cpu", options.cpu, "With CPU usage in percent of one core; takes a minute");
  ps->add_option("--sort", options.sort, "Largest first, or by PID (the default); cpu needs --cpu")
      ->check(one_of({"pid", "rss", "cpu"}))
      ->type_name("pid|rss|cpu");
  add_text(*ps, "--match", options.pattern,
           "Only command lines that match, as for FuzzyMatch items", "PATTERN");
  add_json_flag(*ps, options.json);
  add_plugin_option(*ps, options.plugin);
  set_action(*ps, arguments, kPsFooter,
             [](const Arguments& given) { return command_ps(given.ps); });
}

void add_find(CLI::App& app, Arguments& arguments) {
  CLI::App* const find = app.add_subcommand("find", "Print the PIDs of processes by command line");
  FindOptions& options = arguments.find;
  find->add_option("mode", options.mode, "How the command line is compared")
      ->required()
      ->check(one_of({"exact", "prefix", "wildcard"}))
      ->type_name("exact|prefix|wildcard");
  add_text(*find, "name", options.name, "The command line, its beginning, or a pattern", "NAME")
      ->required();
  add_plugin_option(*find, options.plugin);
  set_action(*find, arguments, kFindFooter,
             [](const Arguments& given) { return command_find(given.find); });
}

void add_kill(CLI::App& app, Arguments& arguments) {
  CLI::App* const kill =
      app.add_subcommand("kill", "Send SIGKILL to a process if NAME begins with its short name");
  KillOptions& options = arguments.kill;
  add_text(*kill, "name", options.name, "What the process is called", "NAME")->required();
  kill->add_option("pid", options.pid, "The process")
      ->required()
      ->check(whole_number_from_one(INT_MAX))
      ->type_name("PID");
  add_plugin_option(*kill, options.plugin);
  set_action(*kill, arguments, kKillFooter,
             [](const Arguments& given) { return command_kill(given.kill); });
}

std::vector<std::string_view> names_of_commands(const CLI::App& app) {
  std::vector<std::string_view> names;
  for (const CLI::App* const command : app.get_subcommands({})) {
    names.emplace_back(command->get_name());
  }
  return names;
}

std::vector<std::string> names_of_options(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* const option : command.get_options()) {
    if (!option->get_positional()) names.push_back(option->get_name());
  }
  return names;
}

// The command that was asked for, the program itself if none was.
const CLI::App& command_of(const CLI::App& app) {
  const std::vector<CLI::App*> commands = app.get_subcommands();
  return commands.empty() ? app : command_of(*commands.front());
}

// The words behind the program's name that ask for the command, each with a blank before it.
std::string words_of(const CLI::App& command) {
  const CLI::App* const parent = command.get_parent();
  return parent == nullptr ? "" : words_of(*parent) + " " + command.get_name();
}

// What is wrong. A word that nothing took comes first: often it is what something else now lacks.
std::string parse_mistake(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = command_of(app);
  const std::vector<std::string_view> commands = names_of_commands(command);
  const std::vector<std::string> extras = app.remaining(true), options = names_of_options(command);
  const bool has_command = &command != &app;
  if (extras.empty() && has_command) return error.what();
  if (extras.empty()) return "no command, expected one of " + joined(commands);
  const std::string word = unshielded(extras.front());
  if (std::find(options.begin(), options.end(), word) != options.end()) {
    return "option " + in_quotes(word) + " before the command, expected it behind";
  }
  if (word.rfind('-', 0) == 0) {
    return "unknown option " + in_quotes(word) +
           expected_one_of(word, {options.begin(), options.end()});
  }
  if (commands.empty()) return "superfluous argument " + in_quotes(word);
  return "unknown command " + in_quotes(word) + expected_one_of(word, commands);
}

// The exit code for a command line that asks for help, or cannot be understood.
int explain(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) return app.exit(error);
  complain(parse_mistake(app, error));
  std::fprintf(stderr, "Run \"mirt-monitor%s --help\" for more.\n",
               words_of(command_of(app)).c_str());
  return kExitUsage;
}

}  // namespace

int run_command_line(int argc, char** argv) {
  CLI::App app("Runs the inspection items of the plug-in on this machine.", "mirt-monitor");
  Arguments arguments;
  app.set_version_flag("--version", "mirt-monitor " MIRT_VERSION);
  app.require_subcommand(1);
  app.footer(kFooter);
  add_run(app, arguments);
  add_once(app, arguments);
  add_items(app, arguments);
  add_heartbeats(app, arguments);
  add_check_config(app, arguments);
  add_ps(app, arguments);
  add_find(app, arguments);
  add_kill(app, arguments);
  try {
    std::vector<std::string> words = shielded(argc, argv);
    std::reverse(words.begin(), words.end());  // as CLI11 wants them
    app.parse(words);
  } catch (const CLI::ParseError& error) {
    return explain(app, error);
  }
  return arguments.command(arguments);
}
