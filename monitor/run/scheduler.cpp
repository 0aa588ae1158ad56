#include "run/scheduler.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "proc/descriptors.h"
#include "proc/lock_holder.h"
#include "proc/resident_memory.h"
#include "proc/spare_memory.h"
#include "run/memory.h"
#include "run/recovery_answer.h"
#include "run/start_time.h"
#include "run/stop_signal.h"
#include "run/views.h"
#include "text/complaint.h"
#include "text/end_text.h"
#include "text/log_lines.h"

namespace {

using Clock = std::chrono::steady_clock;

// The time after which a call that got no worker is tried again, unless another call returns first.
constexpr std::chrono::milliseconds kRetry{100};

// Work that was lost because there was not enough memory, but can be done later, is tried again
// after this time.
constexpr std::chrono::milliseconds kAfterLoss{20};

// The monitor ends after this time without any thread.
constexpr std::chrono::seconds kToGetAThread{10};

// If a call runs for longer than this, the scheduler finds out where it waits.
constexpr std::chrono::seconds kLongCall{1};

// Searches skip a process whose file has blocked a read for a second. The worker may have begun the
// read a little earlier than `started`, so that the scheduler must look a little earlier.
constexpr std::chrono::milliseconds kSkippedAfter{900};

// A gap of at least this length is reported, even if no heartbeat depends on it.
constexpr std::chrono::seconds kLongGap{1};

// The schedule counts as not kept for this time after a gap or a late call.
constexpr std::chrono::seconds kRecently{10};

// While more calls than this are running, the answers of one millisecond are handled together.
constexpr size_t kFewCalls = 8;
constexpr timespec kGatherAnswers{0, 1000000};

// The calls that sleep on one thread: each takes 600 bytes of its stack, or 2 KiB if the compiler
// does not optimize.
constexpr std::ptrdiff_t kMostAsleep = 64;

// So often the scheduler checks that groups of calls make progress.
constexpr std::chrono::milliseconds kGroupLook{50};

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

// True if the item sleeps between two samples.
bool sleeps(const Slot& slot) {
  return slot.instance.item->interval != Interval::kNone;
}

// True if the next call of this slot takes well under a millisecond, except for a search and a
// sleep: it only reads files of a process that was there at the previous call, or is likely to be
// there at the first one.
bool is_short(const Slot& slot) {
  const Subject subject = slot.instance.item->source.subject;
  if (!sleeps(slot) && slot.instance.params.size() > 1) return false;  // it has a pre-command
  if (subject != Subject::kProcess && subject != Subject::kExistence) return false;
  if (slot.calls == 0) return true;
  const bool was_there =
      slot.has_value && (slot.state == State::kOk || slot.state == State::kAlarm);
  return was_there && (subject == Subject::kProcess || slot.value != 0.0);
}

// The longest sleep with which the scheduler still notices in time that it did not run.
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

// True if the instance must be called as soon as its process ends.
bool depends_on_end(const Instance& instance) {
  const Subject subject = instance.item->source.subject;
  if (subject == Subject::kExistence || subject == Subject::kHeartbeat) return true;
  return std::any_of(instance.alarms.begin(), instance.alarms.end(), [](const AlarmRule& rule) {
    return std::find(rule.states.begin(), rule.states.end(), State::kAbsent) != rule.states.end();
  });
}

// The number of calls for which enough descriptors are free. With too few, an item would answer
// "nothing there" because another call holds the descriptors that it needs.
size_t most_at_once(size_t reserved) {
  constexpr size_t kEach = 4;
  const size_t free = free_descriptors();
  return std::max<size_t>(1, (free - std::min(free, reserved)) / kEach);
}

}  // namespace

Scheduler::Scheduler(const Schedule& schedule, const Plugin& plugin, const ProcessLibrary* library,
                     const Surface& surface)
    : schedule_(schedule),
      plugin_(plugin),
      surface_(surface),
      surroundings_{library, &stuck_, schedule.ignore_self},
      gaps_(Clock::now()),
      pulse_(kForever),
      pool_(surface.wake),
      next_look_(Clock::now() + kLongCall) {}

// The slots of a new plan, made before anything is changed, so that a plan for which there is no
// memory changes nothing.
struct Scheduler::Draft {
  // An instance with the reports of each of its alarms.
  struct Row {
    std::list<Slot>::iterator slot;
    bool is_kept;
    std::vector<std::vector<Slot*>> reports;
  };
  std::list<Slot> fresh, reports;
  std::vector<Row> rows;
};

void Scheduler::apply(const Plan& plan) {
  Draft draft;
  draft.rows.reserve(plan.instances.size());
  for (const Instance& instance : plan.instances) draft_instance(instance, plan.alerts, draft);
  std::map<std::string, Alert> alerts;
  for (const Alert& alert : plan.alerts) alerts.emplace(alert.name, alert);
  auto recovery = std::make_shared<const Recovery>(plan.recovery);
  surface_.reporter.lay_out(plan.instances);
  surface_.sender.replace(plan.alerts);
  // Nothing below throws.
  surface_.desk.set_alerts(std::move(alerts));
  answer_redundancy(std::move(recovery));
  std::list<Slot> old;
  old.swap(slots_);
  pulse_ = kForever;
  tells_alarms_ = false;
  slots_.splice(slots_.end(), draft.reports);
  for (Draft::Row& row : draft.rows) {
    Slot& slot = *row.slot;
    slots_.splice(slots_.end(), row.is_kept ? old : draft.fresh, row.slot);
    if (is_heartbeat(slot.instance)) pulse_ = std::min(pulse_, pulse_of(slot.instance));
    for (size_t i = 0; i < slot.alarms.size(); ++i) {
      AlarmSlot& alarm = slot.alarms[i];
      alarm.reports = std::move(row.reports[i]);
      tells_alarms_ = tells_alarms_ || !alarm.reports.empty() || !alarm.rule.alerts.empty();
    }
  }
  dismiss(old);
  size_t most_calls = slots_.size();
  if (plan.workers > 0) most_calls = plan.workers;
  pool_.set_limit(std::min(most_calls, most_at_once(reserved_descriptors_)));
}

// An unchanged instance keeps its slot.
void Scheduler::draft_instance(const Instance& instance, const std::vector<Alert>& alerts,
                               Draft& draft) {
  auto slot = std::find_if(slots_.begin(), slots_.end(), [&](const Slot& each) {
    return !each.of_alarm && !each.gone && same_watch(each.instance, instance);
  });
  const bool is_kept = slot != slots_.end();
  if (!is_kept) {
    slot = draft.fresh.emplace(draft.fresh.end(), instance, *plugin_.item(*instance.item),
                               surroundings_, period_of(instance));
    slot->due = Clock::now();
    slot->state_since = std::chrono::system_clock::now();
  }
  std::vector<std::vector<Slot*>> reports;
  for (const AlarmSlot& alarm : slot->alarms) {
    std::vector<Slot*>& its_reports = reports.emplace_back();
    const auto add = [&](const AlarmReport& report) {
      draft_report(instance, report, draft);
      its_reports.push_back(&draft.reports.back());
    };
    if (alarm.rule.report) add(*alarm.rule.report);
    for (const Alert& alert : alerts) {
      const auto& names = alarm.rule.alerts;
      const bool is_told = std::find(names.begin(), names.end(), alert.name) != names.end();
      if (is_told && alert.report) add(*alert.report);
    }
  }
  draft.rows.push_back({slot, is_kept, std::move(reports)});
}

// Ends the instances that the new plan does not contain. Pending reports are still sent. A call
// that has not returned is abandoned; its slot is kept until the call returns.
void Scheduler::dismiss(std::list<Slot>& old) {
  for (Slot& slot : old) {
    slot.gone = true;
    ends_.leave(slot);
    if (!slot.of_alarm) at_most_lose(losses_, [&] { surface_.desk.leave(slot); });
    if (slot.phase == Phase::kRunning && !slot.of_alarm && pool_.abandon(*slot.call)) {
      slot.phase = Phase::kBlind;
    }
  }
  gone_ = old.size();
  slots_.splice(slots_.end(), old);
  remove_gone();
}

void Scheduler::remove_gone() {
  if (gone_ == 0) return;
  const size_t before = slots_.size();
  slots_.remove_if([](const Slot& slot) {
    return slot.gone && slot.phase == Phase::kIdle && !(slot.of_alarm && slot.order);
  });
  gone_ -= before - slots_.size();
}

// A report is called like any other item, under its instance's name.
void Scheduler::draft_report(const Instance& of, const AlarmReport& report, Draft& draft) const {
  Instance instance;
  instance.name = of.name;
  instance.item = report.item;
  instance.params = report.params;
  instance.deadline_s = of.deadline_s;
  draft.reports.emplace_back(instance, *plugin_.item(*report.item), surroundings_,
                             pulse_of(instance));
  draft.reports.back().of_alarm = true;
}

bool Scheduler::run() {
  for (;;) {
    bool has_lost = false;
    const auto step = [&](auto work) { has_lost = !at_most_lose(losses_, work) || has_lost; };
    surface_.wake.clear();
    step([&] { collect(); });
    step([&] { expire(); });
    step([&] { reload(); });
    step([&] { start_due(); });
    step([&] { surface_.desk.send_due(slots_, Clock::now()); });
    step([&] { surface_.mailbox.run_all(); });
    step([&] { save(); });
    step([&] { publish(); });
    step([&] { tell_lost_output(); });
    step([&] { tell_losses(); });
    if (!goes_on()) break;
    step([&] { tell_service(); });
    step([&] { wait(has_lost); });
  }
  at_most_lose(losses_, [&] { surface_.service.stopping(); });
  return !nobody_listens();
}

void Scheduler::take_up(const SavedState& state) {
  remember(state, slots_, surface_.desk);
}

void Scheduler::save() {
  if (!surface_.desk.has_changed()) return;
  if (surface_.store) surface_.store->save(memory_of(slots_, surface_.desk.silences()));
  surface_.desk.forget_change();
}

void Scheduler::publish() {
  const Clock::time_point now = Clock::now();
  if (!surface_.publisher.wanted() || now < next_publication_) return;
  next_publication_ = now + Publisher::kPause;
  const SpareMemoryRight none(false);  // the alarms need it more
  auto snapshot = std::make_shared<Snapshot>();
  snapshot->taken = std::chrono::system_clock::now();
  snapshot->taken_steady = now;
  snapshot->started = started_;
  for (Slot& slot : slots_) {
    if (slot.of_alarm || slot.gone) continue;
    snapshot->watches.push_back(view_of(slot, surface_.desk.silences()));
  }
  for (const Silence& silence : surface_.desk.silences().list()) {
    if (silence.until <= snapshot->taken) continue;
    snapshot->silences.push_back({silence.pattern, silence.reason, silence.since, silence.until});
  }
  for (const AlertStatus& alert : surface_.sender.statuses()) {
    snapshot->alerts.push_back({alert.name, alert.way, alert.last_error, alert.sent, alert.failed,
                                alert.dropped, alert.queued, alert.failing});
  }
  snapshot->reports = reports_sent_;
  snapshot->recovery_decisions = recovery_decisions();
  snapshot->lateness_s = lateness_s_;
  snapshot->skipped_starts = skipped_starts_;
  snapshot->last_reload_ok = last_reload_ok_;
  snapshot->last_reload = last_reload_;
  snapshot->trouble = trouble(now);
  surface_.publisher.publish(std::move(snapshot));
}

// Reports readiness after each watch was called. Sends signs of life only while the monitor itself
// works: without them the manager restarts it.
void Scheduler::tell_service() {
  ServiceNotice& service = surface_.service;
  if (!service.listens()) return;
  const Clock::time_point now = Clock::now();
  if (!service.is_ready() && all_called()) service.ready();
  service.status([this] { return service_status(); }, now);
  // Calls that wait because "workers" allows no more at one time do not count as a fault of the
  // monitor.
  const bool lacks_workers = pool_.thread_error() != 0 && waits_for_worker(now) != nullptr;
  service.watchdog(!lacks_workers && recent_gaps(now) < kLongGap, now);
}

bool Scheduler::all_called() const {
  return std::all_of(slots_.begin(), slots_.end(),
                     [](const Slot& slot) { return slot.of_alarm || slot.calls > 0; });
}

// "12 watches: 10 ok, 1 alarm, 1 absent"
std::string Scheduler::service_status() const {
  std::map<State, size_t> counts;
  size_t watches = 0;
  for (const Slot& slot : slots_) {
    if (slot.of_alarm || slot.gone) continue;
    ++watches;
    ++counts[slot.state];
  }
  std::string text = std::to_string(watches) + (watches == 1 ? " watch" : " watches");
  const char* separator = ": ";
  for (const auto& [state, count] : counts) {
    text += separator + std::to_string(count) + ' ' + state_name(state);
    separator = ", ";
  }
  if (!last_reload_ok_) text += "; the last reload was refused";
  return text;
}

// The reason why calls cannot start on time; empty if they can.
std::string Scheduler::trouble(Clock::time_point now) const {
  if (const Slot* const slot = waits_for_worker(now)) {
    return slot->instance.name + " is due, but there is no thread to call it";
  }
  const Clock::duration gap = recent_gaps(now);
  if (gap >= kLongGap) return "the monitor did not run for " + seconds_text(gap);
  const bool was_late = latest_late_call_ && now - *latest_late_call_ < kRecently;
  return was_late ? "a call began " + seconds_text(its_lateness_) + " late" : "";
}

// A slot that has been due for long without a worker; null if there is none.
const Slot* Scheduler::waits_for_worker(Clock::time_point now) const {
  const auto found = std::find_if(slots_.begin(), slots_.end(), [now](const Slot& slot) {
    return slot.refused && now - slot.due > kLongCall;
  });
  return found == slots_.end() ? nullptr : &*found;
}

Scheduler::Clock::duration Scheduler::recent_gaps(Clock::time_point now) const {
  return gaps_.total_since(now - kRecently);
}

void Scheduler::reload() {
  if (!surface_.reloader) return;
  const unsigned hangups = StopSignal::hangups();
  if (hangups != hangups_seen_) {
    surface_.service.reloading();
    surface_.reloader->ask();
  }
  hangups_seen_ = hangups;
  const std::optional<Reloader::Outcome> outcome = surface_.reloader->take();
  if (!outcome) return;
  take_reading(*outcome);
}

void Scheduler::take_reading(const Reloader::Outcome& outcome) {
  last_reload_ok_ = outcome.plan.has_value();
  last_reload_ = std::chrono::system_clock::now();
  const std::optional<Plan>& plan = outcome.plan;
  try {
    if (plan) apply(*plan);
  } catch (const std::bad_alloc&) {
    last_reload_ok_ = false;
    surface_.service.reloaded();
    return log_line("error", "out of memory: not reloaded, the old configuration stays in force");
  }
  surface_.service.reloaded();
  if (!plan) return;
  surface_.reporter.happened("configuration reloaded: " + std::to_string(plan->instances.size()) +
                             " instances");
  return_unused_memory();
}

void Scheduler::tell_lost_output() {
  if (lost_output_is_told_ || !surface_.lines.closed()) return;
  lost_output_is_told_ = true;
  const int error = surface_.lines.error();
  log_line("error", error != 0 ? output_trouble(error) : "standard output is closed");
}

// Reports losses as soon as there is memory again.
void Scheduler::tell_losses() {
  if (!losses_.any() || memory_is_short()) return;
  const unsigned long lost = losses_.take();
  try {
    log_line("error", "out of memory: " + std::to_string(lost) +
                          " answers, reports or other pieces of work were lost");
  } catch (const std::bad_alloc&) {
    losses_.put_back(lost);
  }
}

bool Scheduler::goes_on() const {
  const bool reader_of_rounds_has_gone = schedule_.rounds && surface_.lines.closed();
  return !StopSignal::asked() && !finished() && !reader_of_rounds_has_gone && !nobody_listens();
}

// When the output is closed, alarms can still be sent as alerts, or as reports, which are logged.
bool Scheduler::nobody_listens() const {
  if (schedule_.rounds || !surface_.lines.closed()) return false;
  return !tells_alarms_ || surface_.log.closed();
}

// Hands due instances to the pool, the one that has waited longest first.
void Scheduler::start_due() {
  const Clock::time_point now = Clock::now();
  std::vector<Slot*> due;
  for (Slot& slot : slots_) {
    if (slot.phase == Phase::kIdle && has_calls_left(slot) && slot.due <= now) {
      due.push_back(&slot);
      slot.refused = true;  // until it has a worker, so that lack of memory causes no busy loop
    }
  }
  std::stable_sort(due.begin(), due.end(),
                   [](const Slot* a, const Slot* b) { return a->due < b->due; });
  // The groups are started first: the walk of a group also serves searches that come within a
  // millisecond.
  std::vector<Slot*> by_name, by_search, asleep, alone;
  for (Slot* const slot : due) {
    const bool is_alone = slot->call_at_once || slot->alone || !is_short(*slot);
    const bool is_named = slot->instance.item->source.match == Match::kExact;
    (is_alone ? alone : sleeps(*slot) ? asleep : is_named ? by_name : by_search).push_back(slot);
  }
  at_most_lose(losses_, [&] { start(by_search); });
  start_asleep(asleep);
  at_most_lose(losses_, [&] { start(by_name); });
  for (Slot* const slot : alone) at_most_lose(losses_, [&] { start({slot}); });
}

// Groups whose items sleep for the same time.
void Scheduler::start_asleep(std::vector<Slot*>& slots) {
  const auto interval = [](const Slot* slot) { return interval_of(slot->instance); };
  std::stable_sort(slots.begin(), slots.end(),
                   [&](const Slot* a, const Slot* b) { return interval(a) < interval(b); });
  for (auto first = slots.cbegin(); first != slots.cend();) {
    const auto most = first + std::min(kMostAsleep, slots.cend() - first);
    const auto end = std::find_if(
        first, most, [&](const Slot* slot) { return interval(slot) != interval(*first); });
    at_most_lose(losses_, [&] { start({first, end}); });
    first = end;
  }
}

// Several slots are a group.
void Scheduler::start(const std::vector<Slot*>& slots) {
  if (slots.empty()) return;
  std::vector<Call*> calls;
  for (Slot* const slot : slots) {
    if (slot->order) {
      slot->call->params = slot->order->params;
      slot->call->origin.alarm = slot->order->alarm;
    }
    slot->call->end_is_known = slot->call_at_once;
    calls.push_back(slot->call.get());
  }
  if (!pool_.start(calls)) return;
  for (Slot* const slot : slots) note_start(*slot);
  if (slots.size() > 1) next_group_look_ = std::min(next_group_look_, Clock::now() + kGroupLook);
}

void Scheduler::note_start(Slot& slot) const {
  slot.refused = false;
  slot.order.reset();
  slot.call_at_once = false;
  slot.phase = Phase::kRunning;
  slot.lock_is_told = false;
  slot.called = std::chrono::system_clock::now();
  slot.started = Clock::now();
  slot.deadline = deadline_of(slot.instance, slot.started);
  ++slot.calls;
}

// Calls behind one that takes long are started again, each on its own thread.
void Scheduler::look_at_groups(Clock::time_point now) {
  if (now >= next_group_look_) {
    pool_.look_at_groups();
    next_group_look_ = pool_.any_waiting() ? now + kGroupLook : Clock::time_point::max();
  }
  const std::vector<Call*>& withdrawn = pool_.take_withdrawn();
  for (const Call* const call : withdrawn) {
    call->slot->phase = Phase::kIdle;
    call->slot->alone = true;
    --call->slot->calls;
  }
  if (!withdrawn.empty()) remove_gone();
}

void Scheduler::collect() {
  const std::vector<Call*>& finished = pool_.take_finished();
  // After that, so that an answer does not hide how the process of the previous call ended.
  at_most_lose(losses_, [&] { look_at_ends(); });
  at_most_lose(losses_, [&] { pass_on_reports(); });  // those of these calls are in the queue
  const bool may_have_skipped = std::any_of(finished.begin(), finished.end(), [](const Call* call) {
    return call->examiner.found_nothing();
  });
  if (may_have_skipped) at_most_lose(losses_, [&] { look_at_waiting(Clock::now()); });
  for (const Call* call : finished) {
    if (call->slot) {
      at_most_lose(losses_, [&] { take_back(*call->slot); });
    } else {
      lost_.remove_if([&](const LostCall& lost) { return lost.call.get() == call; });
    }
  }
  if (!finished.empty()) remove_gone();
}

void Scheduler::take_back(Slot& slot) {
  const Call& call = *slot.call;
  const bool was_blind = slot.phase == Phase::kBlind;
  slot.phase = Phase::kIdle;
  slot.alone = false;
  if (slot.gone && !slot.of_alarm) return;
  const Clock::time_point due = slot.due;
  plan_next(slot);  // first, so that it is called on time even if its answer is lost
  Answer answer{slot.instance,   call.value,
                call.result,     call.answered,
                std::nullopt,    call.thread_owner,
                call.evidence,   call.evidence ? call.examiner.standing_s() : 0.0,
                finding_of(slot)};
  answer.of_alarm = slot.of_alarm;
  if (was_blind) answer.called_since = slot.called;
  slot.previous_end = call.ended;
  if (!slot.of_alarm) count_lateness(call.began - due);
  count(slot, answer);
  // A report that was sent is shown as a report, so its call needs no line.
  if (slot.of_alarm && answer.finding.measured() && !answer.called_since) return;
  tell(slot, answer);
}

void Scheduler::tell(Slot& slot, Answer& answer) {
  const Cause cause = note_return(slot, answer);
  surface_.desk.settle(slot, answer, cause, Clock::now());
  keep_answer(slot, answer);
  follow(slot);
}

// Adds to the answer how the process ended, or that another process runs now.
Cause Scheduler::note_return(Slot& slot, Answer& answer) const {
  const int pid = slot.call->examiner.pid();
  // The call found the process before its end, and its answer arrives after the end was noticed.
  // The next call, which is due at once, shows whether another process runs.
  if (pid == slot.ended_pid && slot.call->began <= slot.ended_at) return {};
  const bool is_there = pid > 0 && answer.finding.measured();
  Cause cause;
  if (!slot.ended.empty() && !is_there) {
    cause = {slot.ended, slot.ended};
  } else if (!slot.ended.empty()) {
    ++slot.restarts;
    cause.text = "process " + std::to_string(pid) + " runs in its place, restart " +
                 std::to_string(slot.restarts);
    slot.ended.clear();
  }
  answer.note = cause.text;
  return cause;
}

void Scheduler::follow(Slot& slot) {
  if (slot.of_alarm || !depends_on_end(slot.instance)) return;
  const int pid = slot.call->examiner.pid();
  if (ends_.follow(slot, pid, slot.call->ended) || pid == slot.ended_pid) return;
  // The process ended after the call. One extra call is enough: the item may name it again.
  slot.note_end(pid, "process " + std::to_string(pid) + " has ended");
}

// Calls the instances of an ended process at once. The item decides what the end means.
void Scheduler::look_at_ends() {
  for (const EndWatch::Ended& ended : ends_.take_ended()) {
    for (Slot* const slot : ended.slots) {
      slot->note_end(ended.pid, ended.text);
    }
  }
}

// Returns the examiner's finding, except if an unchanged heartbeat does not prove a hang.
Finding Scheduler::finding_of(Slot& slot) const {
  const Finding& found = slot.call->finding;
  if (slot.call->examiner.found_nothing()) {  // perhaps because it skipped a process
    const std::string stuck = stuck_.text(slot.call->began);
    if (!stuck.empty()) return {State::kUnjudged, stuck};
  }
  const bool stands_still =
      is_heartbeat(slot.instance) && found.measured() && slot.call->value == 0.0;
  if (stands_still) return standstill_of(slot);
  slot.standstill.reset();
  return found;
}

Finding Scheduler::standstill_of(Slot& slot) const {
  const OwnerLook& owner = slot.call->examiner.owner_look();
  if (owner.has_moved || owner.has_beaten) {
    if (slot.standstill.excuse()) return slot.call->finding;
    return {State::kUnjudged, owner.has_beaten
                                  ? "it moved just after this call"
                                  : "its owner or flow id changed since the previous call"};
  }
  const Clock::duration missed = missed_by(slot);
  const Clock::duration lost = std::max<Clock::duration>(missed, owner.waited);
  if (slot.standstill.judge(slot.call->began - slot.previous_end, lost)) return slot.call->finding;
  return {State::kUnjudged,
          missed >= owner.waited
              ? "the monitor did not run for " + seconds_text(missed) + " since the previous call"
              : "its owner waited for a processor for " + seconds_text(owner.waited) +
                    " since the previous call"};
}

// The time for which the monitor, or this call, could not run since the previous call.
Scheduler::Clock::duration Scheduler::missed_by(const Slot& slot) const {
  const Call& call = *slot.call;
  return std::max(
      {gaps_.total_since(slot.previous_end), call.began - slot.started, call.ended - call.began});
}

// Sets the next start time that is late enough after this call. Earlier start times are skipped.
// A report is called when it is ordered.
void Scheduler::plan_next(Slot& slot) {
  if (slot.of_alarm || slot.call_at_once) {  // call_at_once: its process ended during this call
    slot.due = Clock::now();
    return;
  }
  const Clock::duration period = period_of(slot.instance);
  const Clock::time_point first = slot.due + std::chrono::nanoseconds(1);
  slot.due = next_start(std::max(Clock::now(), earliest_next(slot)), period);
  const auto skipped = (slot.due - next_start(first, period)) / period;
  if (slot.calls > 1 && skipped > 0) skipped_starts_ += static_cast<unsigned long>(skipped);
}

// Nine tenths of the period after the thread began this call, which can be long after it was due.
// A heartbeat is compared with that of the previous call, so for heartbeats the end of the call
// counts.
Scheduler::Clock::time_point Scheduler::earliest_next(const Slot& slot) const {
  const Call& call = *slot.call;
  const Clock::time_point from = is_heartbeat(slot.instance) ? call.ended : call.began;
  return from + period_of(slot.instance) / 10 * 9;
}

void Scheduler::count_lateness(Clock::duration lateness) {
  lateness_s_.add(std::max(0.0, std::chrono::duration<double>(lateness).count()));
  if (lateness < kLongCall) return;
  latest_late_call_ = Clock::now();
  its_lateness_ = lateness;
}

void Scheduler::count(const Slot& slot, const Answer& answer) {
  if (slot.of_alarm) return;
  ++answers_;
  all_done_ = all_done_ && answer.finding.measured();
  any_worked_ = any_worked_ || (answer.finding.state != State::kFailed && !answer.called_since);
}

void Scheduler::pass_on_reports() {
  for (const Report& report : surface_.reports.take()) {
    at_most_lose(losses_, [&] {
      surface_.reporter.reported(report);
      ++reports_sent_[err_code_text(report)];
    });
  }
}

bool Scheduler::stop() {
  const bool all_free = pool_.stop();
  at_most_lose(losses_, [&] { pass_on_reports(); });
  tell_losses();
  return all_free;
}

// Calls could not continue during the gap, so their deadlines move by its length.
void Scheduler::notice_gap(Clock::duration gap) {
  if (gap == Clock::duration::zero()) return;
  if (gap >= kLongGap) {
    surface_.reporter.happened("the monitor did not run for " + seconds_text(gap) +
                               ": this time does not count for heartbeats");
  }
  for (Slot& slot : slots_) {
    if (slot.phase == Phase::kRunning && slot.deadline != Clock::time_point::max()) {
      slot.deadline += gap;
    }
  }
}

void Scheduler::look_at_clocks() {
  for (const std::string& event : clocks_.look()) surface_.reporter.happened(event);
}

void Scheduler::expire() {
  const Clock::time_point now = Clock::now();
  notice_gap(gaps_.after_wait(now));
  look_at_clocks();
  for (Slot& slot : slots_) {
    if (slot.phase == Phase::kRunning && slot.deadline <= now) go_blind(slot, now);
  }
  count_blind_starts(now);
  look_at_groups(now);
  look_at_threads(now);
  if (now >= next_look_) look_at_waiting(now);
}

void Scheduler::go_blind(Slot& slot, Clock::time_point now) {
  const int thread = pool_.thread_of(*slot.call);
  if (!pool_.abandon(*slot.call)) {
    slot.deadline = now + kRetry;
    return;
  }
  slot.phase = Phase::kBlind;
  slot.state = State::kBlind;
  slot.state_since = std::chrono::system_clock::now();
  slot.due = now;
  all_done_ = false;
  const std::optional<WaitPlace> place = wait_place_of(thread);
  const Blindness blindness{slot.instance, slot.state_since, slot.called,
                            place ? place->text() : ""};
  surface_.reporter.went_blind(blindness);
  keep_blindness(slot, blindness.detail, blindness.time);
}

// Each start time that passes without an answer counts like a call with the state "blind".
void Scheduler::count_blind_starts(Clock::time_point now) {
  for (Slot& slot : slots_) {
    if (slot.phase != Phase::kBlind || slot.gone || slot.alarms.empty()) continue;
    if (slot.due > now) continue;
    slot.due = next_start(now + std::chrono::nanoseconds(1), period_of(slot.instance));
    surface_.desk.settle_blind(slot, now);
  }
}

// Once per second, and when a search found nothing: finds the processes whose files block calls,
// and the process that holds the lock of the heartbeat table.
void Scheduler::look_at_waiting(Clock::time_point now) {
  next_look_ = now + kLongCall;
  for (const LostCall& lost : lost_)
    note_stuck(wait_place_of(pool_.thread_of(*lost.call)), lost.since, now);
  for (Slot& slot : slots_) {
    if (slot.phase == Phase::kIdle || now - slot.started < kSkippedAfter) continue;
    const std::optional<WaitPlace> place = wait_place_of(pool_.thread_of(*slot.call));
    if (place && place->path == kHeartbeatLock && !slot.lock_is_told) tell_lock(slot);
    if (note_stuck(place, slot.called, now)) replace_call(slot, now);
  }
}

// If no further thread can be started, the calls share the existing ones. Without any thread the
// monitor ends.
void Scheduler::look_at_threads(Clock::time_point now) {
  if (pool_.thread_error() == 0) return no_threads_since_.reset();
  const std::string reason =
      std::string("cannot start a thread: ") + std::strerror(pool_.thread_error());
  if (!no_threads_since_) {
    no_threads_since_ = now;
    log_line("error",
             reason + "; calls wait for one of " + std::to_string(pool_.usable()) + " threads");
  }
  if (pool_.usable() == 0 && now - *no_threads_since_ > kToGetAThread)
    throw std::runtime_error(reason);
}

bool Scheduler::note_stuck(const std::optional<WaitPlace>& place, WallTime since,
                           Clock::time_point now) {
  if (!place || !place->pid) return false;
  stuck_.note({*place->pid, place->text(), since, now});
  return true;
}

// The thread of this call is stuck in the file of a process, perhaps for ever. Searches skip this
// process now, so the next call of this instance, on another thread, is not blocked.
void Scheduler::replace_call(Slot& slot, Clock::time_point now) {
  constexpr size_t kMostLost = 8;
  if (slot.of_alarm || slot.gone || lost_.size() == kMostLost) return;
  std::unique_ptr<Call> next = slot.new_call(slot.call->item, surroundings_);
  LostCall& lost = lost_.emplace_back();  // from here on nothing is allocated
  if (slot.phase == Phase::kRunning && !pool_.abandon(*slot.call)) return lost_.pop_back();
  slot.call->slot = nullptr;
  lost.since = slot.called;
  lost.call = std::move(slot.call);
  slot.call = std::move(next);
  slot.phase = Phase::kIdle;
  if (slot.calls > 0) --slot.calls;
  const Clock::duration period = period_of(slot.instance);
  slot.due = next_start(std::max(now, slot.started + period / 10 * 9), period);
}

void Scheduler::tell_lock(Slot& slot) {
  const std::optional<LockHolder> holder = holder_of_lock(kHeartbeatLock);
  const std::string by =
      holder ? "process " + std::to_string(holder->pid) + " (\"" + holder->name + "\") holds"
             : "a process outside this PID namespace holds";
  log_line("warning",
           slot.instance.name + ": waits for the lock on " + kHeartbeatLock + ", which " + by);
  slot.lock_is_told = true;
}

bool Scheduler::has_calls_left(const Slot& slot) const {
  if (slot.of_alarm) return slot.order.has_value();
  if (slot.gone) return false;
  return !schedule_.rounds || slot.calls < *schedule_.rounds;
}

bool Scheduler::finished() const {
  return schedule_.rounds && std::all_of(slots_.begin(), slots_.end(), [&](const Slot& slot) {
           return slot.phase == Phase::kBlind ||
                  (slot.phase == Phase::kIdle && !has_calls_left(slot));
         });
}

Scheduler::Clock::time_point Scheduler::next_event() const {
  Clock::time_point next = next_group_look_;
  bool any_running = !lost_.empty();
  for (const Slot& slot : slots_) {
    if (slot.phase == Phase::kRunning) next = std::min(next, slot.deadline);
    if (slot.phase == Phase::kBlind && !slot.alarms.empty()) next = std::min(next, slot.due);
    any_running = any_running || slot.phase != Phase::kIdle;
    if (slot.phase != Phase::kIdle || !has_calls_left(slot)) continue;
    next = std::min(next, slot.refused ? Clock::now() + kRetry : slot.due);
  }
  return any_running ? std::min(next, next_look_) : next;
}

void Scheduler::wait(bool has_lost) {
  std::array<pollfd, 2> fds{{{surface_.wake.fd(), POLLIN, 0}, {ends_.fd(), POLLIN, 0}}};
  const Clock::time_point now = Clock::now();
  Clock::time_point until =
      std::min({next_event(), surface_.desk.next_due(), surface_.service.next_due(), now + pulse_});
  if (surface_.publisher.wanted()) until = std::min(until, next_publication_);
  if (has_lost) until = now + kAfterLoss;
  notice_gap(gaps_.before_wait(now, until));
  const timespec timeout = remaining(until);
  if (ppoll(fds.data(), fds.size(), &timeout, nullptr) < 0 && errno != EINTR) {
    throw std::runtime_error(std::string("cannot wait: ") + std::strerror(errno));
  }
  if (fds[0].revents != 0 && fds[1].revents == 0 && !StopSignal::asked() &&
      pool_.under_way() > kFewCalls) {
    nanosleep(&kGatherAnswers, nullptr);
  }
  notice_gap(gaps_.after_wait(Clock::now()));
}
