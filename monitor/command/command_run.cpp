#include <cstdio>
#include <optional>
#include <utility>

#include "command/commands.h"
#include "config/config.h"
#include "config/config_text.h"
#include "run/run_instances.h"
#include "text/complaint.h"
#include "text/terminal_text.h"

namespace {

// Returns the configuration unless it has mistakes. Prints mistakes and warnings.
template <typename Options>
std::optional<Config> read_and_tell(const Options& options, size_t& warnings) {
  const std::string& path = options.config;
  ConfigReading reading =
      read_config(path, options.strict ? Warnings::kAreMistakes : Warnings::kAllowed,
                  options.allow_writable ? Trust::kEverything : Trust::kChecked);
  const Findings& findings = reading.findings;
  warnings = findings.warnings.size();
  for (const std::string& line : findings_text(path, findings)) {
    std::fprintf(stderr, "%s\n", line.c_str());
  }
  if (!findings.mistakes.empty()) return std::nullopt;
  return std::move(reading.config);
}

std::string counted(size_t count, const std::string& what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

}  // namespace

int command_run(const RunOptions& options) {
  size_t warnings = 0;
  const std::optional<Config> config = read_and_tell(options, warnings);
  if (!config) return kExitUsage;
  RunRequest request;
  request.plugin = options.plugin;
  request.source = options.config;
  request.schedule = {options.rounds, config->workers, false};
  request.recovery = config->recovery;
  request.json = options.json;
  request.hangup_ends = options.rounds.has_value();
  return run_instances(config->instances, request);
}

int command_check_config(const CheckOptions& options) {
  size_t warnings = 0;
  const std::optional<Config> config = read_and_tell(options, warnings);
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
