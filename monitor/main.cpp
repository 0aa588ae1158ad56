// mirt-monitor: loads the inspection plug-in and runs its items.
#include <fcntl.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>

#include "commands.h"
#include "config.h"

namespace {

constexpr char kFooter[] =
    R"("SUBCOMMAND --help" tells more. Exit code 0: fine; 1: the item called by "once" failed, "find"
or "kill" found no such process, there is no heartbeat table, or resources are missing; 2: wrong
usage or configuration.)";

constexpr char kHeartbeatsFooter[] =
    R"(One line for each module that has an entry: its process id, the name of that process now, the
heartbeat, whether it moved within a second, the flow id, and whether supervision is paused.
Nothing is created or changed. Exit code 0: shown; 1: there is no table, or none that fits.)";

constexpr char kOnceFooter[] =
    R"(NAME is one word. Anything else, such as "/usr/bin/app --mode=fast", is a bare VALUE and gets
the name that the item expects at its place; a value that looks like NAME=VALUE itself needs its
name: ProcessName=A=B. Without --every there is one call, and it may take as long as it takes.
Exit code 0: each call gave a valid value; 1: one failed, or none ended; 2: wrong usage.)";

// The parsed command line: which command, and what it needs.
struct Arguments {
  RunOptions run;
  OnceOptions once;
  bool heartbeats_json = false;
  std::string checked_config;
  PsOptions ps;
  FindOptions find;
  KillOptions kill;
  int (*command)(const Arguments&) = nullptr;
};

CLI::Validator seconds() {
  CLI::Range range(kLeastSeconds, kMostSeconds);
  range.description("");  // else the help shows the bounds beside the option
  return range;
}

CLI::Validator at_least_one() {
  return CLI::Validator(
      [](std::string& text) { return text == "0" ? "0, expected 1 or more" : ""; }, "");
}

void add_run(CLI::App& app, Arguments& arguments) {
  CLI::App* const run = app.add_subcommand("run", "Run the items of a configuration");
  RunOptions& options = arguments.run;
  run->add_option("--config", options.config, "The configuration")->required()->type_name("FILE");
  run->add_option("--rounds", options.rounds, "Call each instance N times, then end")
      ->check(at_least_one())
      ->type_name("N");
  run->add_option("--plugin", options.plugin, "The plug-in to load")->type_name("FILE");
  run->add_flag("--json", options.json, "One JSON object per line");
  run->callback([&arguments] {
    arguments.command = [](const Arguments& given) { return command_run(given.run); };
  });
}

void add_once(CLI::App& app, Arguments& arguments) {
  CLI::App* const once = app.add_subcommand("once", "Call one item");
  OnceOptions& options = arguments.once;
  once->add_option("item", options.item, "The item, as \"items\" lists it")
      ->required()
      ->type_name("ITEM");
  once->add_option("params", options.params, "The item's parameters, in their order")
      ->type_name("NAME=VALUE|VALUE");
  CLI::Option* const every =
      once->add_option("--every", options.every_s,
                       "Call it again and again with one context, without --rounds for ever")
          ->check(seconds())
          ->type_name("SECONDS");
  once->add_option("--rounds", options.rounds, "End after N calls")
      ->check(at_least_one())
      ->needs(every)
      ->type_name("N");
  once->add_option("--plugin", options.plugin, "The plug-in to load")->type_name("FILE");
  once->add_flag("--json", options.json, "One JSON object per line");
  once->footer(kOnceFooter);
  once->callback([&arguments] {
    arguments.command = [](const Arguments& given) { return command_once(given.once); };
  });
}

void add_items(CLI::App& app, Arguments& arguments) {
  app.add_subcommand("items", "List every item with its parameters")->callback([&arguments] {
    arguments.command = [](const Arguments&) { return command_items(); };
  });
}

void add_heartbeats(CLI::App& app, Arguments& arguments) {
  CLI::App* const heartbeats = app.add_subcommand("heartbeats", "Show the heartbeat table");
  heartbeats->add_flag("--json", arguments.heartbeats_json, "One JSON object per line");
  heartbeats->footer(kHeartbeatsFooter);
  heartbeats->callback([&arguments] {
    arguments.command = [](const Arguments& given) {
      return command_heartbeats(given.heartbeats_json);
    };
  });
}

void add_check_config(CLI::App& app, Arguments& arguments) {
  CLI::App* const check =
      app.add_subcommand("check-config", "Check a configuration and start nothing");
  check->add_option("file", arguments.checked_config, "The configuration")
      ->required()
      ->type_name("FILE");
  check->callback([&arguments] {
    arguments.command = [](const Arguments& given) {
      return command_check_config(given.checked_config);
    };
  });
}

void add_plugin_option(CLI::App& command, std::string& plugin) {
  command.add_option("--plugin", plugin, "The plug-in to load")->type_name("FILE");
}

void add_ps(CLI::App& app, Arguments& arguments) {
  CLI::App* const ps = app.add_subcommand("ps", "List all user processes");
  PsOptions& options = arguments.ps;
  ps->add_flag("--cpu", options.cpu, "With CPU usage in percent of one core; takes a minute");
  ps->add_option("--sort", options.sort, "Largest first, or by PID (the default)")
      ->check(CLI::IsMember({"pid", "rss", "cpu"}));
  ps->add_option("--match", options.pattern,
                 "Only command lines that match, as for FuzzyMatch items")
      ->type_name("PATTERN");
  ps->add_flag("--json", options.json, "One JSON object per line");
  add_plugin_option(*ps, options.plugin);
  ps->callback([&arguments] {
    arguments.command = [](const Arguments& given) { return command_ps(given.ps); };
  });
}

void add_find(CLI::App& app, Arguments& arguments) {
  CLI::App* const find = app.add_subcommand(
      "find", "Print the PIDs of processes by command line; exit code 1 if none");
  FindOptions& options = arguments.find;
  find->add_option("mode", options.mode, "How the command line is compared")
      ->required()
      ->check(CLI::IsMember({"exact", "prefix", "wildcard"}))
      ->type_name("MODE");
  find->add_option("name", options.name, "The command line, its beginning, or a pattern")
      ->required()
      ->type_name("NAME");
  add_plugin_option(*find, options.plugin);
  find->callback([&arguments] {
    arguments.command = [](const Arguments& given) { return command_find(given.find); };
  });
}

void add_kill(CLI::App& app, Arguments& arguments) {
  CLI::App* const kill = app.add_subcommand(
      "kill",
      "Send SIGKILL to a process if NAME begins with its short name; exit code 1 if it does not");
  KillOptions& options = arguments.kill;
  kill->add_option("name", options.name, "What the process is called")
      ->required()
      ->type_name("NAME");
  kill->add_option("pid", options.pid, "The process")
      ->required()
      ->check(CLI::PositiveNumber)
      ->type_name("PID");
  add_plugin_option(*kill, options.plugin);
  kill->callback([&arguments] {
    arguments.command = [](const Arguments& given) { return command_kill(given.kill); };
  });
}

// Started without one of the three, the next file opened would take its number, and output meant
// for people would go there.
void fill_standard_descriptors() {
  int fd;
  do fd = open("/dev/null", O_RDWR);  // NOLINT(android-cloexec-open): pre-commands need them too
  while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
}

int parse_and_run(int argc, char** argv) {
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
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitOk : kExitUsage;
  }
  return arguments.command(arguments);
}

}  // namespace

int main(int argc, char** argv) {
  fill_standard_descriptors();
  // What we were started with is not for the commands that items start.
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  std::signal(SIGCHLD, SIG_DFL);  // inherited as ignored, it would take our children's exit codes
  try {
    return parse_and_run(argc, argv);
  } catch (const std::exception& error) {  // no memory, in all likelihood
    std::fprintf(stderr, "mirt-monitor: %s\n", error.what());
    return kExitFailed;
  }
}
