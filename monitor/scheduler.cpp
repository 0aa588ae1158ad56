#include "scheduler.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>

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

}  // namespace

Scheduler::Scheduler(const std::vector<Instance>& instances, const std::vector<Item>& items,
                     const Schedule& schedule, Reporter& reporter, const LineWriter& out)
    : schedule_(schedule),
      reporter_(reporter),
      out_(out),
      pool_(schedule.workers > 0 ? schedule.workers : instances.size()) {
  const Clock::time_point now = Clock::now();
  for (size_t i = 0; i < instances.size(); ++i) {
    Slot& slot =
        slots_.emplace_back(Slot{instances[i], Call{i, items[i], to_records(instances[i].params)}});
    slot.due = now;
  }
}

void Scheduler::run(int stop_fd) {
  do {
    collect();
    expire();
    start_due();
  } while (!finished() && !out_.closed() && wait(stop_fd));
}

// Hands due instances to the pool, the one that has waited longest first.
void Scheduler::start_due() {
  const Clock::time_point now = Clock::now();
  std::vector<Slot*> due;
  for (Slot& slot : slots_) {
    if (slot.state == State::kIdle && has_rounds_left(slot) && slot.due <= now) {
      due.push_back(&slot);
    }
  }
  std::stable_sort(due.begin(), due.end(),
                   [](const Slot* a, const Slot* b) { return a->due < b->due; });
  for (Slot* slot : due) start(*slot);
}

void Scheduler::start(Slot& slot) {
  slot.refused = !pool_.start(slot.call);
  if (slot.refused) return;
  slot.state = State::kRunning;
  slot.called = std::chrono::system_clock::now();
  slot.deadline = deadline_of(slot.instance, Clock::now());
  ++slot.calls;
}

void Scheduler::collect() {
  for (const Call* call : pool_.take_finished()) {
    Slot& slot = slots_[call->owner];
    Answer answer{slot.instance, call->value, call->result, call->ended, std::nullopt};
    if (slot.state == State::kBlind) answer.called_since = slot.called;
    slot.state = State::kIdle;
    // Beats that passed during the call are skipped, not made up for.
    slot.due = std::max(slot.due + duration_of(slot.instance.period_s), Clock::now());
    ++answers_;
    all_valid_ = all_valid_ && answer.valid();
    reporter_.answered(answer);
  }
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
    reporter_.went_blind({slot.instance, std::chrono::system_clock::now(), slot.called});
  }
}

bool Scheduler::has_rounds_left(const Slot& slot) const {
  return !schedule_.rounds || slot.calls < *schedule_.rounds;
}

bool Scheduler::finished() const {
  return schedule_.rounds && std::all_of(slots_.begin(), slots_.end(), [&](const Slot& slot) {
           return slot.state == State::kBlind ||
                  (slot.state == State::kIdle && !has_rounds_left(slot));
         });
}

Scheduler::Clock::time_point Scheduler::next_event() const {
  Clock::time_point next = Clock::time_point::max();
  for (const Slot& slot : slots_) {
    if (slot.state == State::kRunning) next = std::min(next, slot.deadline);
    if (slot.state != State::kIdle || !has_rounds_left(slot)) continue;
    next = std::min(next, slot.refused ? Clock::now() + kRetry : slot.due);
  }
  return next;
}

// False when told to stop.
bool Scheduler::wait(int stop_fd) {
  pollfd fds[] = {{stop_fd, POLLIN, 0}, {pool_.fd(), POLLIN, 0}};
  const timespec timeout = remaining(next_event());
  if (ppoll(fds, 2, &timeout, nullptr) < 0 && errno != EINTR) return false;
  return fds[0].revents == 0;
}
