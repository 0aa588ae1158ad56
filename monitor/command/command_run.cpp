#include <sys/stat.h>

#include <cstdio>
#include <optional>
#include <utility>

#include "command/commands.h"
#include "command/run_instances.h"
#include "config/config.h"
#include "config/config_text.h"
#include "text/complaint.h"
#include "text/log_lines.h"
#include "text/terminal_text.h"

namespace {

void write_to_log(const std::string& line) {
  log_line("error", line);
}

// Returns the configuration unless it has mistakes. Mistakes and warnings go to `say`.
template <typename Options>
std::optional<Plan> read_and_tell(const Options& options, size_t& warnings,
                                  void (*say)(const std::string&) = complain_plainly) {
  const std::string& path = options.config;
  ConfigReading reading =
      read_config(path, options.strict ? Warnings::kAreMistakes : Warnings::kAllowed,
                  options.allow_writable ? Trust::kEverything : Trust::kChecked);
  const Findings& findings = reading.findings;
  warnings = findings.warnings.size();
  for (const std::string& line : findings_text(path, findings)) say(line);
  if (!findings.mistakes.empty()) return std::nullopt;
  return std::move(reading.config);
}

std::string counted(size_t count, const std::string& what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

// For SIGHUP. If the file has mistakes, the current configuration stays in force.
std::optional<Plan> read_again(const RunOptions& options) {
  size_t warnings = 0;
  std::optional<Plan> plan = read_and_tell(options, warnings, write_to_log);
  if (plan) return plan;
  log_line("error", options.config + ": not reloaded, the old configuration stays in force");
  return std::nullopt;
}

}  // namespace

int command_run(const RunOptions& options) {
  umask(027);  // other users cannot read the files that the run and its commands create
  size_t warnings = 0;
  std::optional<Plan> plan = read_and_tell(options, warnings);
  if (!plan) return kExitUsage;
  RunRequest request;
  request.plugin = options.plugin;
  request.schedule.rounds = options.rounds;
  request.json = options.json;
  request.hangup_ends = options.rounds.has_value();
  if (!request.hangup_ends) request.reload = [&] { return read_again(options); };
  if (!options.socket.empty()) plan->status_socket = options.socket;
  return run_instances(*plan, request);
}

int command_check_config(const CheckOptions& options) {
  size_t warnings = 0;
  const std::optional<Plan> config = read_and_tell(options, warnings);
  if (!config) return kExitUsage;
  if (options.expand) {
    std::printf("%s", config_text(*config).c_str());
    return kExitOk;
  }
  const std::string found = warnings == 0 ? "" : ", " + counted(warnings, "warning");
  std::printf("%s: %s, no mistakes%s\n", printable(options.config).c_str(),
              counted(config->instances.size(), "instance").c_str(), found.c_str());
  return kExitOk;
}
