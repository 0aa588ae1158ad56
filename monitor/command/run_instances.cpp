#include "command/run_instances.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <memory>

#include "proc/descendants.h"
#include "proc/resident_memory.h"
#include "run/recovery_answer.h"
#include "run/stop_signal.h"
#include "service/service_notice.h"
#include "status/metrics_file.h"
#include "status/status_server.h"
#include "text/complaint.h"
#include "text/log_lines.h"
#include "text/mistake.h"
#include "text/terminal_text.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t kStackBytes = size_t{4} << 20;  // sanitizers need larger stacks
#else
constexpr size_t kStackBytes = size_t{256} << 10;
#endif

// One mistake for each item of the plan that the library does not export.
std::vector<std::string> missing_items(const Plan& plan, const Plugin& plugin) {
  std::vector<std::string> mistakes;
  const auto look_for = [&](const ItemRow& row, const std::string& file, unsigned line) {
    if (plugin.item(row)) return;
    const std::string text = std::string("item ") + row.name + " is not in " + plugin.path() +
                             ", expected a library that exports it";
    mistakes.push_back(file.empty() ? "mirt-monitor: " + text : mistake_text(file, {line, text}));
  };
  for (const Instance& instance : plan.instances) {
    look_for(*instance.item, instance.file, instance.line);
    for (const AlarmRule& rule : instance.alarms) {
      if (rule.report) look_for(*rule.report->item, instance.file, instance.line);
    }
  }
  for (const Alert& alert : plan.alerts) {
    if (alert.report) look_for(*alert.report->item, alert.file, alert.line);
  }
  return mistakes;
}

// The plan that was read again, if the library exports all of its items.
std::optional<Plan> read_again(const Reloader::Read& read, const Plugin& plugin) {
  std::optional<Plan> plan = read();
  if (!plan) return std::nullopt;
  const std::vector<std::string> missing = missing_items(*plan, plugin);
  for (const std::string& text : missing) log_line("error", text);
  return missing.empty() ? std::move(plan) : std::nullopt;
}

std::unique_ptr<Reporter> make_reporter(LineQueue& out, bool json, Journal& journal) {
  auto reporter = json ? report_as_json(out) : report_to_people(out, wants_colour());
  return is_in_journal() ? report_to_journal(std::move(reporter), journal) : std::move(reporter);
}

// Returns the exit status. Must not throw, because the scheduler's threads must be stopped first.
int run_to_the_end(Scheduler& scheduler, const RunRequest& request) try {
  if (!scheduler.run()) {
    log_line("error", "the output is closed, and no alarm can be sent or logged");
    return kExitFailed;
  }
  const bool worked = request.fail_unless_done ? scheduler.all_done()
                                               : !request.schedule.rounds || scheduler.any_worked();
  return worked ? kExitOk : kExitFailed;
} catch (const std::exception& error) {  // probably out of memory
  log_parts("error", {error.what()});
  return kExitFailed;
}

// Makes the ids of alarms unique over restarts: the time of this start in milliseconds.
std::string alarm_prefix() {
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(since_epoch).count();
  return std::to_string(ms) + "-";
}

// The time for writing the remaining output at the end.
constexpr std::chrono::milliseconds kToWriteTheRest{1000};

// Writes the remaining lines of both queues. Returns `code`, or a failure if lines were lost. The
// output can also fail after the scheduler's end; the scheduler then has not reported it.
int finish_output(LineQueue& out, LineQueue& log, bool error_is_told, int code) {
  const unsigned long lost = out.finish(kToWriteTheRest);
  if (out.error() != 0) {
    if (!error_is_told) log_line("error", output_trouble(out.error()));
    code = kExitFailed;
  }
  if (lost > 0) {
    log_line("error", std::to_string(lost) + " lines lost: the output was not read");
    code = kExitFailed;
  }
  log_through(nullptr);
  log.finish(kToWriteTheRest);
  return code;
}

// The default stack size is too large for hundreds of threads, which need little.
void use_small_stacks() {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return;
  pthread_attr_setstacksize(&attributes, kStackBytes);
  pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
}

int cannot_start(int error) {
  complain(std::string("cannot start: ") + std::strerror(error));
  return kExitFailed;
}

}  // namespace

int run_instances(const Plan& plan, const RunRequest& request) {
  std::string error;
  const std::optional<Plugin> plugin = Plugin::load(request.plugin, error);
  if (!plugin) {
    complain(error);
    return kExitUsage;
  }
  const std::vector<std::string> missing = missing_items(plan, *plugin);
  for (const std::string& text : missing) complain_plainly(text);
  if (!missing.empty()) return kExitUsage;

  log_as_lines();
  use_small_stacks();
  use_one_heap();
  static const Wake wake;  // the signal handler uses it until the process ends
  if (!wake.ready() || !StopSignal::install(wake, request.hangup_ends)) {
    return cannot_start(wake.ready() ? errno : wake.error());
  }
  const std::optional<ProcessLibrary> library = ProcessLibrary::of(*plugin);
  ReportQueue reports(wake);
  LineQueue log(STDERR_FILENO, log_loss_text, wake);
  LineQueue out(STDOUT_FILENO, request.json ? loss_as_json : loss_for_people, wake);
  Journal journal;
  ServiceNotice service;
  const std::unique_ptr<Reporter> reporter = make_reporter(out, request.json, journal);
  AlertSender sender(plan.alerts);
  std::optional<StateStore> store;
  StateReading memory;
  if (!plan.state_file.empty()) {
    memory = StateStore::load(plan.state_file);
    store.emplace(plan.state_file);
  }
  Silences silences(memory.state.silences);
  Mailbox mailbox(wake);
  Publisher publisher(wake);
  AlarmDesk desk(*reporter, sender, silences, alarm_prefix());
  std::optional<Reloader> reloader;
  if (request.reload) {
    reloader.emplace([&] { return read_again(request.reload, *plugin); }, wake);
  }
  Scheduler scheduler(request.schedule, *plugin, library ? &*library : nullptr,
                      {*reporter, reports, out, log, desk, sender, reloader ? &*reloader : nullptr,
                       mailbox, publisher, store ? &*store : nullptr, service, wake});
  if (!out.ready() || !log.ready()) return cannot_start(EAGAIN);
  if (!answer_redundancy(std::make_shared<const Recovery>(plan.recovery)))
    return cannot_start(errno);
  std::optional<StatusServer> status;
  if (!plan.status_socket.empty() || plan.http) {
    status.emplace(publisher, mailbox);
    const bool answers = status->start(
        plan, silences, [&] { desk.note_change(); }, error);
    StopSignal::catch_pipe();  // the HTTP library ignores it, which commands would inherit
    if (!answers) {
      complain("cannot answer at " + error);
      return kExitFailed;
    }
    scheduler.reserve_descriptors(status->most_descriptors());
  }
  log_through(&log);
  std::optional<MetricsFile> metrics;
  if (plan.metrics_file) metrics.emplace(*plan.metrics_file, publisher);
  reports.connect();
  scheduler.apply(plan);
  scheduler.take_up(memory.state);
  return_unused_memory();
  int code = run_to_the_end(scheduler, request);
  publisher.close();
  status.reset();
  const bool all_free = scheduler.stop();
  desk.send_all();
  const bool alerts_ended = sender.stop(kToWriteTheRest);
  if (store && !store->finish(kToWriteTheRest)) {
    log_line("error", plan.state_file + ": the state could not be written");
    code = kExitFailed;
  }
  const bool metrics_ended = !metrics || metrics->finish(kToWriteTheRest);
  const bool reading_ended = !reloader || reloader->finish(kToWriteTheRest);
  code = finish_output(out, log, scheduler.lost_output_is_told(), code);
  const bool system_ended = journal.finish(kToWriteTheRest) && service.finish(kToWriteTheRest);
  // A thread that is still inside an item or a write uses the records and the library until the
  // process ends, so nothing may be destroyed.
  if (!all_free || !alerts_ended || !metrics_ended || !reading_ended || !system_ended ||
      out.stuck() || log.stuck() || (store && store->stuck())) {
    kill_descendants();
    _exit(code);
  }
  return code;
}
