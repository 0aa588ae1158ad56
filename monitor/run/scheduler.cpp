#include "run/scheduler.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <iterator>

#include "item/placeholders.h"

namespace {

using Clock = std::chrono::steady_clock;

// How soon a call that found no worker is tried again, unless another call returns before.
constexpr std::chrono::milliseconds kRetry{100};

Clock::duration duration_of(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

Clock::time_point deadline_of(const Instance& instance, Clock::time_point from) {
  const double seconds = instance.deadline_s + interval_seconds(*instance.item, instance.params);
  return std::isfinite(seconds) ? from + duration_of(seconds) : Clock::time_point::max();
}

timespec remaining(Clock::time_point until) {
  const auto left = std::clamp(until - Clock::now(), Clock::duration::zero(),
                               Clock::duration(std::chrono::hours(1)));
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  timespec time{};
  time.tv_sec = seconds.count();
  time.tv_nsec = std::chrono::nanoseconds(left - seconds).count();
  return time;
}

size_t most_calls(const std::vector<Job>& jobs) {
  size_t calls = 0;
  for (const Job& job : jobs) calls += job.report ? 2 : 1;
  return calls;
}

PlaceholderTexts texts_of(const Answer& answer) {
  return {value_text(answer.value), std::to_string(answer.result.pid),
          std::to_string(answer.result.hangflowid), answer.instance.name};
}

}  // namespace

Scheduler::Scheduler(const std::vector<Job>& jobs, const Schedule& schedule, const Outputs& outputs)
    : schedule_(schedule),
      outputs_(outputs),
      pool_(schedule.workers > 0 ? schedule.workers : most_calls(jobs)) {
  for (const Job& job : jobs) {
    Slot& slot = add_slot(job.instance, job.item);
    if (!job.instance.alarm) continue;
    slot.alarm.emplace(*job.instance.alarm);
    if (job.report) slot.report = &add_report(job);
  }
}

Scheduler::Slot& Scheduler::add_slot(const Instance& instance, const Item& item) {
  Slot& slot =
      slots_.emplace_back(Slot{instance, Call{slots_.size(), item, to_records(instance.params)}});
  slot.due = Clock::now();
  return slot;
}

// An alarm's report is called like any other item, under its instance's name.
Scheduler::Slot& Scheduler::add_report(const Job& job) {
  Instance& instance = report_instances_.emplace_back();
  instance.name = job.instance.name;
  instance.item = job.instance.alarm->report->item;
  instance.deadline_s = job.instance.deadline_s;
  Slot& slot = add_slot(instance, *job.report);
  slot.of_alarm = true;
  return slot;
}

void Scheduler::run(int stop_fd) {
  do {
    collect();
    expire();
    start_due();
  } while (!finished() && !outputs_.line.closed() && wait(stop_fd));
}

// Hands due instances to the pool, the one that has waited longest first.
void Scheduler::start_due() {
  const Clock::time_point now = Clock::now();
  std::vector<Slot*> due;
  for (Slot& slot : slots_) {
    if (slot.state == State::kIdle && has_calls_left(slot) && slot.due <= now) {
      due.push_back(&slot);
    }
  }
  std::stable_sort(due.begin(), due.end(),
                   [](const Slot* a, const Slot* b) { return a->due < b->due; });
  for (Slot* slot : due) start(*slot);
}

void Scheduler::start(Slot& slot) {
  if (slot.order) slot.call.params = *slot.order;
  slot.refused = !pool_.start(slot.call);
  if (slot.refused) return;
  slot.order.reset();
  slot.state = State::kRunning;
  slot.called = std::chrono::system_clock::now();
  slot.deadline = deadline_of(slot.instance, Clock::now());
  ++slot.calls;
}

void Scheduler::collect() {
  const std::vector<Call*> finished = pool_.take_finished();
  pass_on_reports();  // what those calls have sent is there by now
  for (const Call* call : finished) take_back(slots_[call->owner]);
}

void Scheduler::take_back(Slot& slot) {
  const Call& call = slot.call;
  Answer answer{slot.instance, call.value,        call.result,  call.ended,
                std::nullopt,  call.thread_owner, slot.of_alarm};
  if (slot.state == State::kBlind) answer.called_since = slot.called;
  slot.state = State::kIdle;
  // Beats that passed during the call are skipped, not made up for.
  slot.due = std::max(slot.due + duration_of(slot.instance.period_s), Clock::now());
  ++answers_;
  all_valid_ = all_valid_ && answer.valid();
  // That an alarm's report was sent shows in the report itself.
  if (slot.of_alarm && answer.valid() && !answer.called_since) return;
  outputs_.reporter.answered(answer);
  judge(slot, answer);
}

void Scheduler::judge(Slot& slot, const Answer& answer) {
  if (!slot.alarm || !answer.valid()) return;
  const Alarm::Change change = slot.alarm->judge(answer.value);
  if (change == Alarm::Change::kNone) return;
  const bool raised = change == Alarm::Change::kRaised;
  outputs_.reporter.alarm_changed({answer, raised});
  if (!raised || !slot.report) return;
  std::vector<Param> params = slot.instance.alarm->report->params;
  for (Param& param : params) param.value = fill_placeholders(param.value, texts_of(answer));
  slot.report->order = to_records(params);
  slot.report->due = Clock::now();
}

void Scheduler::pass_on_reports() {
  for (const Report& report : outputs_.reports.take()) outputs_.reporter.reported(report);
}

bool Scheduler::stop() {
  const bool all_free = pool_.stop();
  pass_on_reports();
  return all_free;
}

void Scheduler::expire() {
  const Clock::time_point now = Clock::now();
  for (Slot& slot : slots_) {
    if (slot.state != State::kRunning || slot.deadline > now) continue;
    if (!pool_.abandon(slot.call)) {
      slot.deadline = now + kRetry;
      continue;
    }
    slot.state = State::kBlind;
    all_valid_ = false;
    outputs_.reporter.went_blind({slot.instance, std::chrono::system_clock::now(), slot.called});
  }
}

bool Scheduler::has_calls_left(const Slot& slot) const {
  if (slot.of_alarm) return slot.order.has_value();
  return !schedule_.rounds || slot.calls < *schedule_.rounds;
}

bool Scheduler::finished() const {
  return schedule_.rounds && std::all_of(slots_.begin(), slots_.end(), [&](const Slot& slot) {
           return slot.state == State::kBlind ||
                  (slot.state == State::kIdle && !has_calls_left(slot));
         });
}

Scheduler::Clock::time_point Scheduler::next_event() const {
  Clock::time_point next = Clock::time_point::max();
  for (const Slot& slot : slots_) {
    if (slot.state == State::kRunning) next = std::min(next, slot.deadline);
    if (slot.state != State::kIdle || !has_calls_left(slot)) continue;
    next = std::min(next, slot.refused ? Clock::now() + kRetry : slot.due);
  }
  return next;
}

// False when told to stop.
bool Scheduler::wait(int stop_fd) {
  pollfd fds[] = {
      {stop_fd, POLLIN, 0}, {pool_.fd(), POLLIN, 0}, {outputs_.reports.fd(), POLLIN, 0}};
  const timespec timeout = remaining(next_event());
  if (ppoll(fds, std::size(fds), &timeout, nullptr) < 0 && errno != EINTR) return false;
  return fds[0].revents == 0;
}
