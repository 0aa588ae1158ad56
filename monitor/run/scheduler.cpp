#include "run/scheduler.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <iterator>
#include <stdexcept>

#include "item/placeholders.h"
#include "proc/lock_holder.h"
#include "proc/wait_place.h"
#include "run/beat.h"
#include "run/stop_signal.h"
#include "text/complaint.h"
#include "text/log_lines.h"

namespace {

using Clock = std::chrono::steady_clock;

// How soon a call that found no worker is tried again, unless another call returns before.
constexpr std::chrono::milliseconds kRetry{100};

// A call that runs for longer than this is looked at: where does it wait?
constexpr std::chrono::seconds kLongCall{1};

constexpr Clock::duration kForever = std::chrono::hours(24);

constexpr char kHeartbeatLock[] = "/tmp/mirt_agent_lock";

Clock::duration duration_of(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

Clock::duration period_of(const Instance& instance) {
  return duration_of(instance.period_s);
}

double interval_of(const Instance& instance) {
  return interval_seconds(*instance.item, instance.params);
}

Clock::time_point deadline_of(const Instance& instance, Clock::time_point from) {
  const double seconds = instance.deadline_s + interval_of(instance);
  return std::isfinite(seconds) ? from + duration_of(seconds) : Clock::time_point::max();
}

bool is_heartbeat(const Instance& instance) {
  return instance.item->source.subject == Subject::kHeartbeat;
}

// How long the scheduler may sleep so that it notices when it is kept from running.
Clock::duration pulse_of(const Instance& instance) {
  return std::max(period_of(instance) / 4, GapWatch::kLeast);
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
  for (const Job& job : jobs) calls += 1 + job.reports.size();
  return calls;
}

PlaceholderTexts texts_of(const Instance& instance, const Answer* answer, State state) {
  PlaceholderTexts texts{state_name(state), "0", "0", instance.name};
  if (!answer) return texts;
  if (answer->has_value()) texts.value = value_text(answer->value);
  texts.pid = std::to_string(answer->result.pid);
  texts.flow_id = std::to_string(answer->result.hangflowid);
  return texts;
}

std::string seconds_text(Clock::duration duration) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", std::chrono::duration<double>(duration).count());
  return text;
}

}  // namespace

Scheduler::Scheduler(const std::vector<Job>& jobs, const Schedule& schedule, const Outputs& outputs,
                     const ProcessLibrary* library)
    : schedule_(schedule),
      outputs_(outputs),
      surroundings_{library, &stuck_, schedule.ignore_self},
      gaps_(Clock::now()),
      pulse_(kForever),
      pool_(schedule.workers > 0 ? schedule.workers : most_calls(jobs), outputs.wake),
      next_look_(Clock::now() + kLongCall),
      alarm_prefix_(std::to_string(std::time(nullptr)) + "-") {
  for (const Job& job : jobs) {
    Slot& slot = add_slot(job.instance, job.item);
    if (is_heartbeat(job.instance)) pulse_ = std::min(pulse_, pulse_of(job.instance));
    for (size_t i = 0; i < job.instance.alarms.size(); ++i) {
      const AlarmRule& rule = job.instance.alarms[i];
      AlarmSlot& alarm = slot.alarms.emplace_back(AlarmSlot{rule, Alarm(rule)});
      if (!job.reports[i]) continue;
      alarm.report = &add_report(job.instance, rule, *job.reports[i]);
      tells_alarms_ = true;
    }
  }
}

Scheduler::Slot& Scheduler::add_slot(const Instance& instance, const Item& item) {
  Slot& slot =
      slots_.emplace_back(Slot{instance,
                               Call{slots_.size(), item, to_records(instance.params),
                                    Examiner(*instance.item, instance.params, surroundings_)},
                               Standstill(period_of(instance))});
  slot.call.origin.instance = instance.name;
  slot.due = Clock::now();
  return slot;
}

// An alarm's report is called like any other item, under its instance's name.
Scheduler::Slot& Scheduler::add_report(const Instance& instance, const AlarmRule& rule,
                                       const Item& item) {
  Instance& report = report_instances_.emplace_back();
  report.name = instance.name;
  report.item = rule.report->item;
  report.deadline_s = instance.deadline_s;
  Slot& slot = add_slot(report, item);
  slot.of_alarm = true;
  return slot;
}

bool Scheduler::run() {
  for (;;) {
    outputs_.wake.clear();
    collect();
    expire();
    start_due();
    tell_lost_output();
    if (!goes_on()) return !nobody_listens();
    wait();
  }
}

void Scheduler::tell_lost_output() {
  if (lost_output_is_told_ || !outputs_.lines.closed()) return;
  lost_output_is_told_ = true;
  const int error = outputs_.lines.error();
  log_line("error", error != 0 ? output_trouble(error) : "standard output is closed");
}

bool Scheduler::goes_on() const {
  const bool reader_of_rounds_has_gone = schedule_.rounds && outputs_.lines.closed();
  return !StopSignal::asked() && !finished() && !reader_of_rounds_has_gone && !nobody_listens();
}

// With the output gone alarms can still be told by the reports that they send, which the log shows.
bool Scheduler::nobody_listens() const {
  if (schedule_.rounds || !outputs_.lines.closed()) return false;
  return !tells_alarms_ || outputs_.log.closed();
}

// Hands due instances to the pool, the one that has waited longest first.
void Scheduler::start_due() {
  const Clock::time_point now = Clock::now();
  std::vector<Slot*> due;
  for (Slot& slot : slots_) {
    if (slot.phase == Phase::kIdle && has_calls_left(slot) && slot.due <= now) {
      due.push_back(&slot);
    }
  }
  std::stable_sort(due.begin(), due.end(),
                   [](const Slot* a, const Slot* b) { return a->due < b->due; });
  for (Slot* slot : due) start(*slot);
}

void Scheduler::start(Slot& slot) {
  if (slot.order) {
    slot.call.params = slot.order->params;
    slot.call.origin.alarm = slot.order->alarm;
  }
  slot.refused = !pool_.start(slot.call);
  if (slot.refused) return;
  slot.order.reset();
  slot.phase = Phase::kRunning;
  slot.lock_is_told = false;
  slot.called = std::chrono::system_clock::now();
  slot.started = Clock::now();
  slot.deadline = deadline_of(slot.instance, slot.started);
  ++slot.calls;
}

void Scheduler::collect() {
  const std::vector<Call*> finished = pool_.take_finished();
  pass_on_reports();  // what those calls have sent is there by now
  for (const Call* call : finished) take_back(slots_[call->owner]);
}

void Scheduler::take_back(Slot& slot) {
  const Call& call = slot.call;
  Answer answer{slot.instance, call.value,        call.result,     call.answered,
                std::nullopt,  call.thread_owner, finding_of(slot)};
  answer.of_alarm = slot.of_alarm;
  if (slot.phase == Phase::kBlind) answer.called_since = slot.called;
  slot.phase = Phase::kIdle;
  plan_next(slot);
  slot.previous_end = call.ended;
  count(slot, answer);
  // That an alarm's report was sent shows in the report itself.
  if (slot.of_alarm && answer.finding.measured() && !answer.called_since) return;
  settle(slot, answer);
}

// What the examiner found, unless a heartbeat's standstill says nothing about its process.
Finding Scheduler::finding_of(Slot& slot) const {
  const Finding& found = slot.call.finding;
  const bool stands_still =
      is_heartbeat(slot.instance) && found.measured() && slot.call.value == 0.0;
  if (stands_still) return standstill_of(slot);
  slot.standstill.reset();
  return found;
}

Finding Scheduler::standstill_of(Slot& slot) const {
  const OwnerLook& owner = slot.call.examiner.owner_look();
  if (owner.has_moved) {
    if (slot.standstill.excuse()) return slot.call.finding;
    return {State::kUnjudged, "its owner or flow id is another one than at the call before"};
  }
  const Clock::duration missed = missed_by(slot);
  const Clock::duration lost = std::max<Clock::duration>(missed, owner.waited);
  if (slot.standstill.judge(slot.call.began - slot.previous_end, lost)) return slot.call.finding;
  return {State::kUnjudged,
          missed >= owner.waited
              ? "the monitor did not run for " + seconds_text(missed) + " since the call before"
              : "its owner waited for a processor for " + seconds_text(owner.waited) +
                    " since the call before"};
}

// For how long the monitor, or this call, was kept from running since the call before.
Scheduler::Clock::duration Scheduler::missed_by(const Slot& slot) const {
  const Call& call = slot.call;
  return std::max(
      {gaps_.total_since(slot.previous_end), call.began - slot.started, call.ended - call.began});
}

// The next beat that is far enough from this call. Beats that passed are skipped, not made up for.
// A report is called whenever it is ordered.
void Scheduler::plan_next(Slot& slot) const {
  if (slot.of_alarm) {
    slot.due = Clock::now();
    return;
  }
  slot.due = next_beat(std::max(Clock::now(), earliest_next(slot)), period_of(slot.instance));
}

// Nine tenths of the period after this call's start: when its thread began it, which can be long
// after it was due. A heartbeat is compared with that of the call before, so there the moment
// counts at which the call was done with it.
Scheduler::Clock::time_point Scheduler::earliest_next(const Slot& slot) const {
  const Call& call = slot.call;
  const Clock::time_point from = is_heartbeat(slot.instance) ? call.ended : call.began;
  return from + period_of(slot.instance) / 10 * 9;
}

void Scheduler::count(const Slot& slot, const Answer& answer) {
  if (slot.of_alarm) return;
  ++answers_;
  all_done_ = all_done_ && answer.finding.measured();
  any_worked_ = any_worked_ || (answer.finding.state != State::kFailed && !answer.called_since);
}

// The state after this answer, and what it means for the alarms; then the lines that tell of it.
void Scheduler::settle(Slot& slot, Answer& answer) {
  struct Changed {
    AlarmSlot* alarm;
    Alarm::Change change;
  };
  std::vector<Changed> changes;
  for (AlarmSlot& alarm : slot.alarms) {
    changes.push_back({&alarm, alarm.alarm.judge(answer.finding.state, answer.value)});
    if (changes.back().change == Alarm::Change::kRaised) {
      alarm.id = alarm_prefix_ + std::to_string(++alarms_raised_);
    }
    if (alarm.alarm.raised()) answer.alarms.push_back(alarm.id);
  }
  answer.state =
      answer.finding.measured() && !answer.alarms.empty() ? State::kAlarm : answer.finding.state;
  answer.state_is_new = slot.state != answer.state;
  slot.state = answer.state;
  outputs_.reporter.answered(answer);
  for (const Changed& changed : changes) {
    if (changed.change == Alarm::Change::kNone) continue;
    judge(slot, *changed.alarm, &answer, answer.state);
  }
}

// Tells that an alarm was raised or cleared, and orders its report.
void Scheduler::judge(Slot& slot, AlarmSlot& alarm, const Answer* answer, State state) {
  const bool raised = alarm.alarm.raised();
  const WallTime time = answer ? answer->time : std::chrono::system_clock::now();
  outputs_.reporter.alarm_changed(
      {slot.instance, alarm.rule, time, answer, state, raised, alarm.id});
  if (raised && alarm.report) order_report(slot, alarm, answer, state);
  if (!raised) alarm.id.clear();
}

void Scheduler::order_report(const Slot& slot, const AlarmSlot& alarm, const Answer* answer,
                             State state) {
  std::vector<Param> params = alarm.rule.report->params;
  const PlaceholderTexts texts = texts_of(slot.instance, answer, state);
  for (Param& param : params) param.value = fill_placeholders(param.value, texts);
  if (alarm.report->order) {
    log_line("warning", slot.instance.name + ": the report of alarm " + alarm.report->order->alarm +
                            " was never sent: no call of it was possible");
  }
  alarm.report->order = Order{to_records(params), alarm.id};
  alarm.report->due = Clock::now();
}

void Scheduler::pass_on_reports() {
  for (const Report& report : outputs_.reports.take()) outputs_.reporter.reported(report);
}

bool Scheduler::stop() {
  const bool all_free = pool_.stop();
  pass_on_reports();
  return all_free;
}

// While the monitor did not run no call could get on: its deadline moves by as much.
void Scheduler::notice_gap(Clock::duration gap) {
  if (gap == Clock::duration::zero()) return;
  for (Slot& slot : slots_) {
    if (slot.phase == Phase::kRunning && slot.deadline != Clock::time_point::max()) {
      slot.deadline += gap;
    }
  }
}

void Scheduler::expire() {
  const Clock::time_point now = Clock::now();
  notice_gap(gaps_.after_wait(now));
  for (Slot& slot : slots_) {
    if (slot.phase == Phase::kRunning && slot.deadline <= now) go_blind(slot, now);
  }
  count_blind_beats(now);
  if (now >= next_look_) look_at_waiting(now);
}

void Scheduler::go_blind(Slot& slot, Clock::time_point now) {
  const int thread = pool_.thread_of(slot.call);
  if (!pool_.abandon(slot.call)) {
    slot.deadline = now + kRetry;
    return;
  }
  slot.phase = Phase::kBlind;
  slot.state = State::kBlind;
  slot.due = now;
  all_done_ = false;
  const std::optional<WaitPlace> place = wait_place_of(thread);
  outputs_.reporter.went_blind(
      {slot.instance, std::chrono::system_clock::now(), slot.called, place ? place->text() : ""});
}

// Each beat that passes without an answer counts like a call whose state is "blind".
void Scheduler::count_blind_beats(Clock::time_point now) {
  for (Slot& slot : slots_) {
    if (slot.phase != Phase::kBlind || slot.alarms.empty() || slot.due > now) continue;
    slot.due = next_beat(now + std::chrono::nanoseconds(1), period_of(slot.instance));
    for (AlarmSlot& alarm : slot.alarms) {
      const Alarm::Change change = alarm.alarm.judge(State::kBlind, 0.0);
      if (change == Alarm::Change::kNone) continue;
      alarm.id = alarm_prefix_ + std::to_string(++alarms_raised_);
      judge(slot, alarm, nullptr, State::kBlind);
    }
  }
}

// Once a second: in which process's files do calls hang, and who keeps the heartbeat table locked?
void Scheduler::look_at_waiting(Clock::time_point now) {
  next_look_ = now + kLongCall;
  std::vector<StuckProcess> stuck;
  for (Slot& slot : slots_) {
    if (slot.phase == Phase::kIdle || now - slot.started < kLongCall) continue;
    const std::optional<WaitPlace> place = wait_place_of(pool_.thread_of(slot.call));
    if (place && place->pid) stuck.push_back({*place->pid, place->text(), slot.called});
    if (place && place->path == kHeartbeatLock && !slot.lock_is_told) tell_lock(slot);
  }
  stuck_.set(std::move(stuck));
}

void Scheduler::tell_lock(Slot& slot) {
  const std::optional<LockHolder> holder = holder_of_lock(kHeartbeatLock);
  const std::string by =
      holder ? "process " + std::to_string(holder->pid) + " (\"" + holder->name + "\") holds"
             : "somebody outside this PID namespace holds";
  log_line("warning",
           slot.instance.name + ": waits for the lock on " + kHeartbeatLock + ", which " + by);
  slot.lock_is_told = true;
}

bool Scheduler::has_calls_left(const Slot& slot) const {
  if (slot.of_alarm) return slot.order.has_value();
  return !schedule_.rounds || slot.calls < *schedule_.rounds;
}

bool Scheduler::finished() const {
  return schedule_.rounds && std::all_of(slots_.begin(), slots_.end(), [&](const Slot& slot) {
           return slot.phase == Phase::kBlind ||
                  (slot.phase == Phase::kIdle && !has_calls_left(slot));
         });
}

Scheduler::Clock::time_point Scheduler::next_event() const {
  Clock::time_point next = Clock::time_point::max();
  bool any_running = false;
  for (const Slot& slot : slots_) {
    if (slot.phase == Phase::kRunning) next = std::min(next, slot.deadline);
    if (slot.phase == Phase::kBlind && !slot.alarms.empty()) next = std::min(next, slot.due);
    any_running = any_running || slot.phase != Phase::kIdle;
    if (slot.phase != Phase::kIdle || !has_calls_left(slot)) continue;
    next = std::min(next, slot.refused ? Clock::now() + kRetry : slot.due);
  }
  return any_running ? std::min(next, next_look_) : next;
}

void Scheduler::wait() {
  const Clock::time_point now = Clock::now();
  const Clock::time_point until = std::min(next_event(), now + pulse_);
  notice_gap(gaps_.before_wait(now, until));
  pollfd wake{outputs_.wake.fd(), POLLIN, 0};
  const timespec timeout = remaining(until);
  if (ppoll(&wake, 1, &timeout, nullptr) < 0 && errno != EINTR) {
    throw std::runtime_error(std::string("cannot wait: ") + std::strerror(errno));
  }
  notice_gap(gaps_.after_wait(Clock::now()));
}
