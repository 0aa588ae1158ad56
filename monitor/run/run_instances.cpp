#include "run/run_instances.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "proc/descendants.h"
#include "run/recovery_answer.h"
#include "run/stop_signal.h"
#include "text/complaint.h"
#include "text/log_lines.h"
#include "text/mistake.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t kStackBytes = size_t{4} << 20;  // sanitizers keep more of everything
#else
constexpr size_t kStackBytes = size_t{256} << 10;
#endif

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

// The item that an alarm's report calls, if it has one. False if the library lacks it.
bool resolve_report(const AlarmRule& rule, const Instance& instance, const Plugin& plugin,
                    const std::string& source, std::optional<Item>& item) {
  if (!rule.report) return true;
  item = resolve(*rule.report->item, instance, plugin, source);
  return item.has_value();
}

// The jobs in the instances' order; empty if the library lacks any item.
std::vector<Job> make_jobs(const std::vector<Instance>& instances, const Plugin& plugin,
                           const std::string& source) {
  std::vector<Job> jobs;
  bool complete = true;
  for (const Instance& instance : instances) {
    const std::optional<Item> item = resolve(*instance.item, instance, plugin, source);
    std::vector<std::optional<Item>> reports;
    for (const AlarmRule& rule : instance.alarms) {
      complete = resolve_report(rule, instance, plugin, source, reports.emplace_back()) && complete;
    }
    complete = complete && item;
    if (complete) jobs.push_back({instance, *item, std::move(reports)});
  }
  if (!complete) jobs.clear();
  return jobs;
}

std::unique_ptr<Reporter> make_reporter(LineQueue& out, const std::vector<Instance>& instances,
                                        bool json) {
  return json ? report_as_json(out) : report_to_people(out, instances, wants_colour());
}

// The exit code. Nothing may be thrown past the scheduler, whose threads have to be stopped first.
int run_to_the_end(Scheduler& scheduler, const RunRequest& request) try {
  if (!scheduler.run()) {
    log_line("error", "nobody can be told anything any more: the output is closed");
    return kExitFailed;
  }
  const bool worked = request.fail_unless_done ? scheduler.all_done()
                                               : !request.schedule.rounds || scheduler.any_worked();
  return worked ? kExitOk : kExitFailed;
} catch (const std::exception& error) {  // no memory, in all likelihood
  log_line("error", error.what());
  return kExitFailed;
}

// How long what is left to write may take at the end.
constexpr std::chrono::milliseconds kToWriteTheRest{1000};

// Writes out both queues. The exit code: a failure where lines were lost.
int finish_output(LineQueue& out, LineQueue& log, int code) {
  const unsigned long lost = out.finish(kToWriteTheRest);
  if (out.error() != 0) code = kExitFailed;
  if (lost > 0) {
    log_line("error", std::to_string(lost) + " lines lost: the output was not read");
    code = kExitFailed;
  }
  log_through(nullptr);
  log.finish(kToWriteTheRest);
  return code;
}

// Threads need little: what the kernel gives by default would count for hundreds of them.
void use_small_stacks() {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return;
  pthread_attr_setstacksize(&attributes, kStackBytes);
  pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
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
  use_small_stacks();
  const std::optional<ProcessLibrary> library = ProcessLibrary::of(*plugin);
  static const Wake wake;  // the signal handler uses it to the end
  ReportQueue reports(wake);
  const bool can_stop = wake.ready() && StopSignal::install(wake, request.hangup_ends);
  LineQueue log(STDERR_FILENO, log_loss_text, wake);
  LineQueue out(STDOUT_FILENO, request.json ? loss_as_json : loss_for_people, wake);
  const std::unique_ptr<Reporter> reporter = make_reporter(out, instances, request.json);
  Scheduler scheduler(jobs, request.schedule, {*reporter, reports, out, log, wake},
                      library ? &*library : nullptr);
  if (!can_stop || !out.ready() || !log.ready() || !answer_redundancy(request.recovery)) {
    complain(std::string("cannot start: ") + std::strerror(errno));
    return kExitFailed;
  }
  log_through(&log);
  reports.connect();
  int code = run_to_the_end(scheduler, request);
  const bool all_free = scheduler.stop();
  code = finish_output(out, log, code);
  // A thread that is still inside an item, or inside a write, goes on using the records and the
  // library until the very end, so nothing may be destroyed under it.
  if (!all_free || out.stuck() || log.stuck()) {
    kill_descendants();
    _exit(code);
  }
  return code;
}
