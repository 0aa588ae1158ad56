// The program's subcommands. Each returns the exit status.
#ifndef MONITOR_COMMANDS_H
#define MONITOR_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

struct RunOptions {
  std::string config;
  std::string plugin;  // empty: the default plug-in
  std::optional<unsigned long> rounds;
  bool json = false;
  bool strict = false;          // warnings are mistakes
  bool allow_writable = false;  // others may be able to write the configuration
  std::string socket;           // the status socket; empty: as configured
};
int command_run(const RunOptions& options);

struct OnceOptions {
  std::string item;
  std::vector<std::string> params;  // NAME=VALUE or VALUE
  std::string plugin;
  std::optional<unsigned long> rounds;  // none: one call, or no limit if there is a period
  std::optional<double> every_s;
  bool json = false;
};
int command_once(const OnceOptions& options);

int command_items();

// Shows the heartbeat table, read twice, one second apart.
int command_heartbeats(bool json);

// Creates lock file and table, or takes them over, for root and this group.
int command_heartbeats_prepare(const std::string& group);

struct StatusOptions {
  std::string name;  // of one watch; empty: all of them
  std::string socket;
  bool json = false;
  bool watch = false;  // again and again
  bool check = false;  // one line for a monitoring system
};
int command_status(const StatusOptions& options);

struct SilenceOptions {
  std::string pattern;  // of names of instances
  double for_s = 0.0;
  std::string reason;
  std::string socket;
};
int command_silence(const SilenceOptions& options);
int command_silences(const std::string& socket, bool json);
int command_unsilence(const std::string& pattern, const std::string& socket);

struct CheckOptions {
  std::string config;
  bool strict = false;
  bool allow_writable = false;
  bool expand = false;  // print the configuration in full
};
int command_check_config(const CheckOptions& options);

struct PsOptions {
  std::string plugin;
  std::string sort = "pid";            // or "rss", "cpu"
  std::optional<std::string> pattern;  // for command lines
  bool cpu = false;                    // takes 60 seconds
  bool json = false;
};
int command_ps(const PsOptions& options);

struct MatchOptions {
  std::string plugin;
  std::string mode;  // "exact", "prefix" or "wildcard"
  std::string text;
  bool json = false;
};
int command_match(const MatchOptions& options);

// Prints a first configuration for this machine.
int command_init(const std::string& plugin);

struct FindOptions {
  std::string plugin;
  std::string mode;  // "exact", "prefix" or "wildcard"
  std::string name;
};
int command_find(const FindOptions& options);

struct KillOptions {
  std::string plugin;
  std::string name;
  int pid = 0;
};
int command_kill(const KillOptions& options);

#endif
