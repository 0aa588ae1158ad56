// The program's subcommands. Each returns the exit code.
#ifndef MONITOR_COMMANDS_H
#define MONITOR_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;  // an item failed, or the system gave no resources
constexpr int kExitUsage = 2;   // the command line or the configuration is at fault

struct RunOptions {
  std::string config;
  std::string plugin;  // empty: the one beside the program
  std::optional<unsigned long> rounds;
  bool json = false;
};
int command_run(const RunOptions& options);

struct OnceOptions {
  std::string item;
  std::vector<std::string> params;  // NAME=VALUE or VALUE
  std::string plugin;
  std::optional<unsigned long> rounds;  // none: one, or without end if there is a period
  std::optional<double> every_s;
  bool json = false;
};
int command_once(const OnceOptions& options);

int command_items();

int command_check_config(const std::string& path);

#endif
