#include "run/run_instances.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "run/descendants.h"
#include "run/recovery_answer.h"
#include "run/stop_signal.h"
#include "text/complaint.h"
#include "text/log_lines.h"
#include "text/mistake.h"

namespace {

// Colour is for a person at a terminal who has not said no (https://no-color.org).
bool wants_colour() {
  const char* const no_color = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) != 0 && !(no_color && *no_color) &&
         !(terminal && std::strcmp(terminal, "dumb") == 0);
}

// The item, which is named if the library lacks it.
std::optional<Item> resolve(const ItemRow& row, const Instance& instance, const Plugin& plugin,
                            const std::string& source) {
  const std::optional<Item> item = plugin.item(row);
  if (item) return item;
  const std::string text = std::string("item ") + row.name + " is not in " + plugin.path() +
                           ", expected a library that exports it";
  if (source.empty()) {
    complain(text);
  } else {
    std::fprintf(stderr, "%s\n", mistake_text(source, {instance.line, text}).c_str());
  }
  return std::nullopt;
}

// The jobs in the instances' order; empty if the library lacks any item.
std::vector<Job> make_jobs(const std::vector<Instance>& instances, const Plugin& plugin,
                           const std::string& source) {
  std::vector<Job> jobs;
  bool complete = true;
  for (const Instance& instance : instances) {
    const std::optional<Item> item = resolve(*instance.item, instance, plugin, source);
    std::optional<Item> report;
    if (instance.alarm && instance.alarm->report) {
      report = resolve(*instance.alarm->report->item, instance, plugin, source);
      complete = complete && report;
    }
    complete = complete && item;
    if (complete) jobs.push_back({instance, *item, report});
  }
  if (!complete) jobs.clear();
  return jobs;
}

std::unique_ptr<Reporter> make_reporter(LineWriter& out, const std::vector<Instance>& instances,
                                        bool json) {
  return json ? report_as_json(out) : report_to_people(out, instances, wants_colour());
}

// False, with the reason said, when it could not go on. Nothing may be thrown past the scheduler,
// whose threads have to be stopped first.
bool run_to_the_end(Scheduler& scheduler) try {
  scheduler.run(StopSignal::fd());
  return true;
} catch (const std::exception& error) {  // no memory, in all likelihood
  std::fprintf(stderr, "mirt-monitor: %s\n", error.what());
  return false;
}

}  // namespace

int run_instances(const std::vector<Instance>& instances, const RunRequest& request) {
  std::string error;
  const std::optional<Plugin> plugin = Plugin::load(request.plugin, error);
  if (!plugin) {
    complain(error);
    return kExitUsage;
  }
  const std::vector<Job> jobs = make_jobs(instances, *plugin, request.source);
  if (jobs.empty()) return kExitUsage;

  log_as_lines();
  ReportQueue reports;
  const bool can_stop = StopSignal::install();
  LineWriter out(STDOUT_FILENO, StopSignal::fd());
  const std::unique_ptr<Reporter> reporter = make_reporter(out, instances, request.json);
  Scheduler scheduler(jobs, request.schedule, {*reporter, reports, out});
  if (!can_stop || !reports.ready() || !scheduler.ready() || !answer_redundancy(request.recovery)) {
    complain(std::string("cannot start: ") + std::strerror(errno));
    return kExitFailed;
  }
  reports.connect();
  int code = kExitFailed;
  if (run_to_the_end(scheduler)) {
    if (out.error() != 0) complain_of_output(out.error());
    const bool failed = out.error() != 0 || (request.fail_on_invalid && !scheduler.all_valid());
    code = failed ? kExitFailed : kExitOk;
  }
  // A thread that is still inside an item goes on using the records and the library until the very
  // end, so nothing may be destroyed under it. All output is out: it was never buffered.
  if (!scheduler.stop()) {
    kill_descendants();
    _exit(code);
  }
  return code;
}
