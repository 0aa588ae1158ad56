#include <cstdio>

#include "command/commands.h"
#include "config/config.h"
#include "run/run_instances.h"
#include "text/complaint.h"
#include "text/terminal_text.h"

namespace {

void tell(const std::string& path, const Mistakes& mistakes) {
  for (const Mistake& mistake : mistakes) {
    std::fprintf(stderr, "%s\n", mistake_text(path, mistake).c_str());
  }
}

}  // namespace

int command_run(const RunOptions& options) {
  const ConfigReading reading = read_config(options.config);
  if (!reading.mistakes.empty()) {
    tell(options.config, reading.mistakes);
    return kExitUsage;
  }
  RunRequest request;
  request.plugin = options.plugin;
  request.source = options.config;
  request.schedule = {options.rounds, reading.config.workers};
  request.recovery = reading.config.recovery;
  request.json = options.json;
  return run_instances(reading.config.instances, request);
}

int command_check_config(const std::string& path) {
  const ConfigReading reading = read_config(path);
  if (!reading.mistakes.empty()) {
    tell(path, reading.mistakes);
    return kExitUsage;
  }
  const size_t count = reading.config.instances.size();
  std::printf("%s: %zu instance%s, no mistakes\n", printable(path).c_str(), count,
              count == 1 ? "" : "s");
  return kExitOk;
}
