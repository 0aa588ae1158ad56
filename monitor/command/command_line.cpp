#include "command/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "command/commands.h"
#include "item/instance.h"
#include "status/http_listener.h"
#include "text/complaint.h"
#include "text/number_text.h"
#include "text/quantity.h"
#include "text/wording.h"

namespace {

constexpr char kFooter[] =
    R"(Run "mirt-monitor SUBCOMMAND --help" for the options of a subcommand.
Exit status 0: success; 1: the operation failed, nothing was found, or resources are missing;
2: wrong usage or configuration.)";

constexpr char kRunFooter[] =
    R"(Without --rounds, runs until SIGINT or SIGTERM. SIGHUP reloads the configuration. If its output pipe
is closed, it continues while alarms can be sent as alerts or logged, and otherwise exits with
status 1.
With --rounds, also exits after N calls of each instance, on SIGHUP (ignored under nohup) or when its
output pipe is closed. It does not wait for blind instances after all others have completed.
Exit status 0: ended in one of these ways; 1: every call of the rounds failed, output was lost or
could not be written, or resources are missing; 2: wrong usage or configuration, or the plug-in does
not export an item.)";

constexpr char kCheckFooter[] =
    R"(FILE is a regular file, /dev/stdin or /dev/fd/N. Prints mistakes as FILE:LINE: TEXT and warnings as
FILE:LINE: warning: TEXT. A warning is about a setting that works but probably not as intended.
With --expand, prints the configuration with [[instance]] tables instead of watches. This TOML gives
the same run.
Exit status 0: no mistakes; 2: mistakes.)";

constexpr char kMatchFooter[] =
    R"(Prints the processes that exact, prefix or match of a [[process]] finds now, except this command
itself: PID, memory, start time, and the command line as the plug-in compares it. The plug-in compares
only the beginning of a long command line; the output says so. Mode "exact" prints the first match.
Write -- before a TEXT that starts with -.
Exit status 0: found; 1: not found; 2: wrong usage.)";

constexpr char kInitFooter[] =
    R"(Prints a configuration: the machine, its file systems, and the ten largest processes as watches that
are commented out. For example:
  mirt-monitor init > /etc/mirt-monitor.toml
Exit status 0: printed; 1: /proc cannot be read; 2: wrong usage.)";

constexpr char kPsFooter[] =
    R"(Kernel threads have no command line and are not listed. If a PATTERN matches only this command
itself, a line on standard error says so.
Exit status 0: listed; 1: /proc cannot be read; 2: wrong usage.)";

constexpr char kFindFooter[] =
    R"(Mode "exact" prints the first process with exactly this command line. Modes "prefix" and "wildcard"
(* any text, ? any character) print all matches, except this command itself.
Write single spaces between the arguments in NAME. Write -- before a NAME that starts with -.
Exit status 0: found; 1: not found; 2: wrong usage.)";

constexpr char kKillFooter[] =
    R"(The short name is the kernel's name of the process, at most 15 bytes (/proc/PID/comm).
Write -- before a NAME that starts with -. If the process ends and another one gets its PID, no
signal is sent.
Exit status 0: signal sent; 1: no such process, another name, or not permitted; 2: wrong usage.)";

constexpr char kHeartbeatsFooter[] =
    R"(Prints one line for each module that has an entry: its process id, the current name of that process,
the heartbeat, whether it changed within one second, the flow id, and whether supervision is paused.
Does not create or change anything.
Exit status 0: printed; 1: there is no table, the table is not valid, or its owner is neither root nor
"daemon" nor the caller.
"heartbeats prepare" creates the table in advance, for the processes of a group.)";

constexpr char kPrepareFooter[] =
    R"(Needs root. Run it at each boot, before any process attaches. Creates /tmp/mirt_agent_lock and
/dev/shm/MIRT_AGENT_HEARTBEAT, or takes over existing files of root or "daemon". Sets owner root and
mode 0660, so that only root and processes of the group can attach and hold the lock. Can be
repeated, even while processes use the table.
Exit status 0: both files are ready; 1: a file is not usable (one line for each reason), or the caller
is not root; 2: wrong usage, or there is no such group.)";

constexpr char kOnceFooter[] =
    R"(NAME is one word. An argument without such a NAME, such as "/usr/bin/app --mode=fast", is a VALUE and
gets the parameter name that the item expects at its position. If a value itself looks like
NAME=VALUE, write its name: ProcessName=A=B. Write -- before a value that starts with -.
Without --every the item is called once, without a time limit.
A pattern that matches only this command itself counts as no match.
Exit status 0: every call measured a value or did its action; 1: a call did not, or no call ended;
2: wrong usage.)";

constexpr char kSilenceFooter[] =
    R"(Needs a running monitor with a status socket ([status] socket, or --socket of "run"). Silenced alarms
are raised, shown and counted, but no alert is sent.
Exit status 0: done; 1: no monitor answers, or it has too many silences; 2: wrong usage.)";

constexpr char kSilencesFooter[] =
    R"(Needs a running monitor with a status socket ([status] socket, or --socket of "run").
Exit status 0: listed; 1: no monitor answers; 2: wrong usage.)";

constexpr char kUnsilenceFooter[] =
    R"(Needs a running monitor with a status socket ([status] socket, or --socket of "run").
Exit status 0: done; 1: no monitor answers, or there is no such silence; 2: wrong usage.)";

constexpr char kStatusFooter[] =
    R"(Needs a running monitor with a status socket ([status] socket, or --socket of "run"). Problems come
first.
Exit status 0: shown; 1: no monitor answers, there is no such watch, or the output could not be
written; 2: wrong usage.
With --check: 0: OK; 1: WARNING, a warning is raised, an alert fails, or the last reload failed;
2: CRITICAL, a critical alarm is raised; 3: UNKNOWN, a watch is failed, blind or pending, the schedule
is not kept, there is no such watch, or no monitor answers. CRITICAL outranks UNKNOWN, which outranks
WARNING. Silenced alarms do not count.)";

// The parsed command line: which command, and what it needs.
struct Arguments {
  RunOptions run;
  OnceOptions once;
  bool heartbeats_json = false;
  StatusOptions status{"", kDefaultSocket};
  SilenceOptions silence{"", 0.0, "", kDefaultSocket};
  bool silences_json = false;
  CheckOptions check;
  std::string prepared_group = "daemon";
  PsOptions ps;
  MatchOptions match;
  std::string init_plugin;
  FindOptions find;
  KillOptions kill;
  int (*command)(const Arguments&) = nullptr;
};

// CLI11 reads a value in brackets as a list and drops the brackets. A NUL after the value, which no
// argument can contain, prevents this until the option has its value.
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

// Adds an option or argument for one or several texts.
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

// Returns a check whose message names the value found and the value expected.
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
                            text.front() != '0';  // CLI11 would read it as octal
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
  command.add_flag("--strict", strict, "Treat warnings about the configuration as mistakes");
}

void add_mode(CLI::App& command, std::string& mode) {
  command.add_option("mode", mode, "How to compare the command line")
      ->required()
      ->check(one_of({"exact", "prefix", "wildcard"}))
      ->type_name("exact|prefix|wildcard");
}

void add_allow_writable_flag(CLI::App& command, bool& allow) {
  command.add_flag("--allow-writable-config", allow,
                   "Accept a configuration that other users can write");
}

// Sets the command's action and the end of its help text.
void set_action(CLI::App& command, Arguments& arguments, const char* footer,
                int (*action)(const Arguments&)) {
  command.footer(footer);
  command.callback([&arguments, action] {
    // CLI11 calls the innermost command's callback first.
    if (arguments.command == nullptr) arguments.command = action;
  });
}

void add_socket_option(CLI::App& command, std::string& socket) {
  add_text(command, "--socket", socket, "The status socket of the monitor", "PATH");
}

void add_run(CLI::App& app, Arguments& arguments) {
  CLI::App* const run = app.add_subcommand("run", "Run the watches of a configuration");
  RunOptions& options = arguments.run;
  add_text(*run, "--config", options.config, "The configuration", "FILE")->required();
  run->add_option("--rounds", options.rounds, "Exit after N calls of each instance")
      ->check(whole_number_from_one(LONG_MAX))
      ->type_name("N");
  add_plugin_option(*run, options.plugin);
  add_json_flag(*run, options.json);
  add_strict_flag(*run, options.strict);
  add_allow_writable_flag(*run, options.allow_writable);
  add_socket_option(*run, options.socket);
  set_action(*run, arguments, kRunFooter,
             [](const Arguments& given) { return command_run(given.run); });
}

void add_once(CLI::App& app, Arguments& arguments) {
  CLI::App* const once = app.add_subcommand("once", "Call one item");
  OnceOptions& options = arguments.once;
  add_text(*once, "item", options.item, "An item name; \"items\" lists them", "ITEM")->required();
  add_text(*once, "params", options.params, "The parameters of the item, in their order",
           "NAME=VALUE|VALUE");
  CLI::Option* const every =
      once->add_option("--every", options.every_s,
                       "Repeat the call with one context, without end unless --rounds is given")
          ->check(seconds())
          ->type_name("SECONDS");
  once->add_option("--rounds", options.rounds, "Exit after N calls")
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
      "prepare", "Create lock file and table in advance, for the processes of a group");
  prepare->excludes(heartbeats->get_option("--json"));
  add_text(*prepare, "--group", arguments.prepared_group, "The group; default: daemon", "NAME");
  set_action(*prepare, arguments, kPrepareFooter, [](const Arguments& given) {
    return command_heartbeats_prepare(given.prepared_group);
  });
  set_action(*heartbeats, arguments, kHeartbeatsFooter,
             [](const Arguments& given) { return command_heartbeats(given.heartbeats_json); });
}

CLI::Validator duration() {
  return CLI::Validator(
      [](std::string& text) {
        const std::optional<double> seconds = read_quantity(text, duration_in_seconds());
        if (!seconds || *seconds <= 0.0 || *seconds > kMostSeconds) {
          return "found " + in_quotes(text) + ", expected a time such as 30m, 2h or 7d";
        }
        text = number_text(*seconds);
        return std::string();
      },
      "");
}

void add_status(CLI::App& app, Arguments& arguments) {
  CLI::App* const status = app.add_subcommand("status", "Show what the running monitor sees");
  StatusOptions& options = arguments.status;
  add_text(*status, "name", options.name, "One watch, with its history", "NAME");
  add_json_flag(*status, options.json);
  status->add_flag("--watch", options.watch, "Show it again every second");
  status
      ->add_flag("--check", options.check,
                 "Print one line with performance data, for monitoring systems")
      ->excludes("--json")
      ->excludes("--watch");
  add_socket_option(*status, options.socket);
  set_action(*status, arguments, kStatusFooter,
             [](const Arguments& given) { return command_status(given.status); });
}

void add_silence_commands(CLI::App& app, Arguments& arguments) {
  SilenceOptions& options = arguments.silence;
  CLI::App* const silence =
      app.add_subcommand("silence", "Stop the alerts of some watches for a time");
  add_text(*silence, "name", options.pattern, "The name of a watch, or a pattern with * and ?",
           "NAME|PATTERN")
      ->required();
  silence->add_option("--for", options.for_s, "The duration, such as 30m, 2h or 7d")
      ->required()
      ->transform(duration())
      ->type_name("TIME");
  add_text(*silence, "--reason", options.reason, "The reason, shown by \"silences\"", "TEXT");
  add_socket_option(*silence, options.socket);
  set_action(*silence, arguments, kSilenceFooter,
             [](const Arguments& given) { return command_silence(given.silence); });
  CLI::App* const silences = app.add_subcommand("silences", "List the silences");
  add_socket_option(*silences, options.socket);
  add_json_flag(*silences, arguments.silences_json);
  set_action(*silences, arguments, kSilencesFooter, [](const Arguments& given) {
    return command_silences(given.silence.socket, given.silences_json);
  });
  CLI::App* const unsilence = app.add_subcommand("unsilence", "End a silence");
  add_text(*unsilence, "name", options.pattern, "The same text as for \"silence\"", "NAME|PATTERN")
      ->required();
  add_socket_option(*unsilence, options.socket);
  set_action(*unsilence, arguments, kUnsilenceFooter, [](const Arguments& given) {
    return command_unsilence(given.silence.pattern, given.silence.socket);
  });
}

void add_check_config(CLI::App& app, Arguments& arguments) {
  CLI::App* const check =
      app.add_subcommand("check-config", "Check a configuration without running it");
  CheckOptions& options = arguments.check;
  add_text(*check, "file", options.config, "The configuration", "FILE")->required();
  check->add_flag("--expand", options.expand, "Print instances instead of watches");
  add_strict_flag(*check, options.strict);
  add_allow_writable_flag(*check, options.allow_writable);
  set_action(*check, arguments, kCheckFooter,
             [](const Arguments& given) { return command_check_config(given.check); });
}

void add_ps(CLI::App& app, Arguments& arguments) {
  CLI::App* const ps = app.add_subcommand("ps", "List all user processes");
  PsOptions& options = arguments.ps;
  ps->add_flag("--cpu", options.cpu, "Include CPU usage in percent of one core; takes 60 seconds");
  ps->add_option("--sort", options.sort,
                 "Sort by PID (default), or largest first by rss or cpu; cpu needs --cpu")
      ->check(one_of({"pid", "rss", "cpu"}))
      ->type_name("pid|rss|cpu");
  add_text(*ps, "--match", options.pattern,
           "List only matching command lines; * any text, ? any character", "PATTERN");
  add_json_flag(*ps, options.json);
  add_plugin_option(*ps, options.plugin);
  set_action(*ps, arguments, kPsFooter,
             [](const Arguments& given) { return command_ps(given.ps); });
}

void add_match(CLI::App& app, Arguments& arguments) {
  CLI::App* const match =
      app.add_subcommand("match", "Print the processes that a watch would find");
  MatchOptions& options = arguments.match;
  add_mode(*match, options.mode);
  add_text(*match, "text", options.text, "The command line, its beginning, or a pattern", "TEXT")
      ->required();
  add_json_flag(*match, options.json);
  add_plugin_option(*match, options.plugin);
  set_action(*match, arguments, kMatchFooter,
             [](const Arguments& given) { return command_match(given.match); });
}

void add_init(CLI::App& app, Arguments& arguments) {
  CLI::App* const init = app.add_subcommand("init", "Print a configuration for this machine");
  add_plugin_option(*init, arguments.init_plugin);
  set_action(*init, arguments, kInitFooter,
             [](const Arguments& given) { return command_init(given.init_plugin); });
}

void add_find(CLI::App& app, Arguments& arguments) {
  CLI::App* const find =
      app.add_subcommand("find", "Find processes by command line and print their PIDs");
  FindOptions& options = arguments.find;
  add_mode(*find, options.mode);
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
  add_text(*kill, "name", options.name, "The name of the process", "NAME")->required();
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

// Returns the requested command, or the program itself if there is none.
const CLI::App& command_of(const CLI::App& app) {
  const std::vector<CLI::App*> commands = app.get_subcommands();
  return commands.empty() ? app : command_of(*commands.front());
}

// Returns the words that select the command, each after a space: " heartbeats prepare".
std::string words_of(const CLI::App& command) {
  const CLI::App* const parent = command.get_parent();
  return parent == nullptr ? "" : words_of(*parent) + " " + command.get_name();
}

// Describes the mistake. An unused word comes first, because it often causes the other mistakes.
std::string parse_mistake(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = command_of(app);
  const std::vector<std::string_view> commands = names_of_commands(command);
  const std::vector<std::string> extras = app.remaining(true), options = names_of_options(command);
  const bool has_command = &command != &app;
  if (extras.empty() && has_command) return error.what();
  if (extras.empty()) return "missing command, expected one of " + joined(commands);
  const std::string word = unshielded(extras.front());
  if (std::find(options.begin(), options.end(), word) != options.end()) {
    return "option " + in_quotes(word) + " must follow the command";
  }
  if (word.rfind('-', 0) == 0) {
    return "unknown option " + in_quotes(word) +
           expected_one_of(word, {options.begin(), options.end()});
  }
  if (commands.empty()) return "unexpected argument " + in_quotes(word);
  return "unknown command " + in_quotes(word) + expected_one_of(word, commands);
}

// Prints help or the mistake, and returns the exit status.
int explain(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) {
    std::ostringstream text;
    const int code = app.exit(error, text, text);
    std::fputs(text.str().c_str(), stdout);  // a stream would hide why a write fails
    return code;
  }
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
  add_status(app, arguments);
  add_silence_commands(app, arguments);
  add_check_config(app, arguments);
  add_init(app, arguments);
  add_match(app, arguments);
  add_ps(app, arguments);
  add_find(app, arguments);
  add_kill(app, arguments);
  try {
    std::vector<std::string> words = shielded(argc, argv);
    std::reverse(words.begin(), words.end());  // CLI11 expects reverse order
    app.parse(words);
  } catch (const CLI::ParseError& error) {
    return explain(app, error);
  }
  return arguments.command(arguments);
}
