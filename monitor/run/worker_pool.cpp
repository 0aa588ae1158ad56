#include "run/worker_pool.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iterator>
#include <new>
#include <system_error>

#include "item/sleep_work.h"
#include "proc/spare_memory.h"
#include "run/recovery_answer.h"

namespace {

using Clock = Call::Clock;

// A worker without a call for this time is not needed.
constexpr time_t kNeededSeconds = 10;

// So many workers stay, for times in which no thread can be started.
constexpr size_t kStaying = 4;

double call_item(Call& call) {
  return call.item.call(static_cast<int>(call.params.size()), call.params.data(), &call.context,
                        &call.result);
}

void examine_and_call(Call& call, WalkGroup* group, Clock::time_point group_began) {
  const WalkGroup::Member member(group);
  call.finding = Finding{};
  call.examiner.before(call.context, call.end_is_known);
  set_report_origin(&call.origin);
  set_asking_result(&call.result);
  const Clock::time_point began = Clock::now();
  call.began = group ? group_began : began;
  call.value = call_item(call);
  call.ended = Clock::now();
  call.took = call.ended - began;
  set_report_origin(nullptr);
  set_asking_result(nullptr);
  call.finding = call.examiner.after(call.context, call.result, call.value);
  const bool names_thread = call.item.row().reports == Reports::kValueAndThread &&
                            call.result.result == 0 && call.result.pid > 0;
  call.thread_owner = names_thread ? owner_of_thread(call.result.pid) : std::nullopt;
  call.evidence = names_thread ? evidence_of(call.result.pid) : std::nullopt;
}

// If an allocation fails, this call has no answer that can be trusted.
void run(Call& call, WalkGroup* group, Clock::time_point group_began) noexcept {
  call.began = call.ended = Clock::now();
  call.took = Clock::duration::zero();
  call.result = FI_RESULT_S{};
  call.value = -1.0;
  try {
    examine_and_call(call, group, group_began);
  } catch (const std::bad_alloc&) {
    set_report_origin(nullptr);
    set_asking_result(nullptr);
    call.thread_owner.reset();
    call.evidence.reset();
    call.finding = Finding{};
    call.finding.state = State::kUnjudged;
    call.finding.detail = "out of memory";  // short: needs no allocation
  }
  call.answered = std::chrono::system_clock::now();
}

}  // namespace

WorkerPool::Worker::Worker() {
  sem_init(&handed, 0, 0);
}

WorkerPool::Worker::~Worker() {
  sem_destroy(&handed);
}

bool WorkerPool::Worker::is_inside(const Call& call) const {
  return std::find(inside.begin(), inside.end(), &call) != inside.end();
}

bool WorkerPool::Worker::wait_for_call() {
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  end.tv_sec += kNeededSeconds;
  int result;
  do result = sem_clockwait(&handed, CLOCK_MONOTONIC, &end);
  while (result != 0 && errno == EINTR);
  return result == 0;
}

bool WorkerPool::start(const std::vector<Call*>& calls) {
  Worker* worker = nullptr;
  {
    const std::lock_guard lock(mutex_);
    join_ended();
    if (idle_.empty() && (usable_ >= limit_ || !start_worker())) return false;
    worker = idle_.back();
    // So that neither the workers nor what takes or withdraws their calls needs memory.
    finished_.reserve(finished_.size() + under_way_ + calls.size());
    withdrawn_.reserve(withdrawn_.size() + under_way_ + calls.size());
    taken_.reserve(finished_.capacity());
    taken_withdrawn_.reserve(withdrawn_.capacity());
    worker->inside.reserve(calls.size());
    worker->waiting.assign(calls.rbegin(), std::prev(calls.rend()));
    idle_.pop_back();
    worker->inside.assign(1, calls.front());
    if (calls.size() > 1) worker->group.emplace();
    worker->steps = 0;
    worker->call_at_look = nullptr;
    worker->phase = Phase::kHanded;
    under_way_ += calls.size();
  }
  sem_post(&worker->handed);
  return true;
}

bool WorkerPool::start_worker() {
  idle_.reserve(workers_.size() + 1);
  Worker& worker = workers_.emplace_back();
  try {
    worker.thread = std::thread([this, &worker] { work(worker); });
  } catch (const std::system_error& error) {
    workers_.pop_back();
    thread_error_ = error.code().value();
    return false;
  } catch (const std::bad_alloc&) {
    workers_.pop_back();
    thread_error_ = ENOMEM;
    return false;
  }
  thread_error_ = 0;
  ++usable_;
  idle_.push_back(&worker);
  return true;
}

void WorkerPool::work(Worker& worker) {
  const SpareMemoryRight right(true);  // an item's reports must arrive
  worker.tid = gettid();
  for (bool goes_on = true; goes_on;) {
    while (!worker.wait_for_call()) {
      if (retires(worker)) return;
    }
    Phase handed = Phase::kHanded;
    if (!worker.phase.compare_exchange_strong(handed, Phase::kInside)) break;  // stop()
    const Clock::time_point began = Clock::now();
    const auto next = [&] { work_while_asleep(worker, began); };
    const SleepWork in_sleep(std::ref(next));  // std::ref: needs no memory
    goes_on = make_calls(worker, began) == After::kIdle;
  }
}

// Makes the call that has begun, and those that wait behind it.
WorkerPool::After WorkerPool::make_calls(Worker& worker, Clock::time_point began) {
  After after;
  do {
    run(*worker.inside.back(), worker.group ? &*worker.group : nullptr, began);
    after = finish(worker);
  } while (after == After::kNextCall);
  return after;
}

// Makes the waiting calls if they need no walk of their own, in which they could get stuck.
void WorkerPool::work_while_asleep(Worker& worker, Clock::time_point began) {
  {
    const std::lock_guard lock(mutex_);
    if (worker.waiting.empty() || stopping_ || !worker.group->has_lines()) return;
    begin_next(worker);
  }
  make_calls(worker, began);
}

void WorkerPool::begin_next(Worker& worker) {
  worker.inside.push_back(worker.waiting.back());
  worker.waiting.pop_back();
}

// Hands over the finished call.
WorkerPool::After WorkerPool::finish(Worker& worker) {
  bool is_first = false;
  After after;
  {
    const std::lock_guard lock(mutex_);
    is_first = finished_.empty();
    finished_.push_back(worker.inside.back());
    // The calls behind do not wait, because each of them may do the same.
    if (finished_.back()->examiner.has_searched()) withdraw(worker);
    worker.inside.pop_back();
    --under_way_;
    after = what_next(worker);
  }
  if (is_first) wake_owner_.set();  // else it has been woken and has not taken them yet
  return after;
}

WorkerPool::After WorkerPool::what_next(Worker& worker) {
  if (!worker.waiting.empty() && !stopping_) {
    begin_next(worker);
    return After::kNextCall;
  }
  if (!worker.inside.empty()) return After::kSleeper;
  worker.group.reset();
  worker.phase = Phase::kIdle;
  if (worker.retired) ++ended_;
  if (worker.retired || stopping_) return After::kEnd;
  idle_.push_back(&worker);
  return After::kIdle;
}

// False if the worker stays, or is about to get a call.
bool WorkerPool::retires(Worker& worker) {
  const std::lock_guard lock(mutex_);
  const auto place = std::find(idle_.begin(), idle_.end(), &worker);
  if (place == idle_.end() || usable_ <= kStaying) return false;
  idle_.erase(place);
  worker.retired = true;
  --usable_;
  ++ended_;
  return true;
}

void WorkerPool::look_at_groups() {
  const std::lock_guard lock(mutex_);
  for (Worker& worker : workers_) {
    if (worker.waiting.empty()) continue;
    const unsigned steps = worker.group->steps();
    const Call* const call = worker.inside.back();
    if (steps == worker.steps && call == worker.call_at_look) withdraw(worker);
    worker.steps = steps;
    worker.call_at_look = call;
  }
}

void WorkerPool::withdraw(Worker& worker) {
  withdrawn_.insert(withdrawn_.end(), worker.waiting.rbegin(), worker.waiting.rend());
  under_way_ -= worker.waiting.size();
  worker.waiting.clear();
}

bool WorkerPool::any_waiting() {
  const std::lock_guard lock(mutex_);
  return std::any_of(workers_.begin(), workers_.end(),
                     [](const Worker& worker) { return !worker.waiting.empty(); });
}

const std::vector<Call*>& WorkerPool::take_withdrawn() {
  const std::lock_guard lock(mutex_);
  taken_withdrawn_.clear();
  taken_withdrawn_.swap(withdrawn_);
  return taken_withdrawn_;
}

const std::vector<Call*>& WorkerPool::take_finished() {
  const std::lock_guard lock(mutex_);
  taken_.clear();
  taken_.swap(finished_);
  return taken_;
}

size_t WorkerPool::under_way() {
  const std::lock_guard lock(mutex_);
  return under_way_;
}

size_t WorkerPool::usable() {
  const std::lock_guard lock(mutex_);
  return usable_;
}

bool WorkerPool::abandon(Call& call) {
  const std::lock_guard lock(mutex_);
  for (Worker& worker : workers_) {
    if (!worker.is_inside(call)) continue;
    if (worker.phase != Phase::kInside) return false;
    if (!worker.retired) --usable_;
    worker.retired = true;
    withdraw(worker);
    return true;
  }
  return false;
}

int WorkerPool::thread_of(const Call& call) {
  const std::lock_guard lock(mutex_);
  for (const Worker& worker : workers_) {
    if (worker.is_inside(call) && worker.phase == Phase::kInside) return worker.tid;
  }
  return 0;
}

// Joins retired workers whose calls have returned. They hold no lock after that.
void WorkerPool::join_ended() {
  for (auto worker = workers_.begin(); ended_ > 0 && worker != workers_.end();) {
    if (!worker->retired || !worker->inside.empty()) {
      ++worker;
      continue;
    }
    worker->thread.join();
    worker = workers_.erase(worker);
    --ended_;
  }
}

bool WorkerPool::stop() {
  bool all_free = true;
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    for (Worker& worker : workers_) {
      // A call that was handed over and has not begun never begins.
      if (worker.phase.exchange(Phase::kStopped) == Phase::kInside) {
        worker.thread.detach();
        all_free = false;
      } else {
        sem_post(&worker.handed);
      }
    }
  }
  for (Worker& worker : workers_) {  // nobody changes the list any more
    if (worker.thread.joinable()) worker.thread.join();
  }
  return all_free;
}
