#include "run/worker_pool.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>
#include <system_error>

#include "proc/spare_memory.h"
#include "run/recovery_answer.h"

namespace {

using Clock = Call::Clock;

double call_item(Call& call, WalkGroup* group) {
  const WalkGroup::Member member(group);
  return call.item.call(static_cast<int>(call.params.size()), call.params.data(), &call.context,
                        &call.result);
}

void examine_and_call(Call& call, WalkGroup* group, Clock::time_point group_began) {
  call.finding = Finding{};
  call.examiner.before(call.context, call.end_is_known);
  set_report_origin(&call.origin);
  set_asking_result(&call.result);
  const Clock::time_point began = Clock::now();
  call.began = group ? group_began : began;
  call.value = call_item(call, group);
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

void WorkerPool::Worker::wait_for_call() {
  while (sem_wait(&handed) != 0) {  // a signal
  }
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
    worker->waiting.assign(calls.rbegin(), std::prev(calls.rend()));
    idle_.pop_back();
    worker->call = calls.front();
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
    worker.wait_for_call();
    Phase handed = Phase::kHanded;
    if (!worker.phase.compare_exchange_strong(handed, Phase::kInside)) break;  // stop()
    const Clock::time_point began = Clock::now();
    After after;
    do {
      run(*worker.call, worker.group ? &*worker.group : nullptr, began);
      after = finish(worker);
    } while (after == After::kNextCall);
    goes_on = after == After::kIdle;
  }
}

// Hands over the finished call.
WorkerPool::After WorkerPool::finish(Worker& worker) {
  bool is_first = false;
  After after;
  {
    const std::lock_guard lock(mutex_);
    is_first = finished_.empty();
    finished_.push_back(worker.call);
    --under_way_;
    after = what_next(worker);
  }
  if (is_first) wake_owner_.set();  // else it has been woken and has not taken them yet
  return after;
}

WorkerPool::After WorkerPool::what_next(Worker& worker) {
  worker.call = nullptr;
  if (!worker.waiting.empty() && !stopping_) {
    worker.call = worker.waiting.back();
    worker.waiting.pop_back();
    return After::kNextCall;
  }
  worker.group.reset();
  worker.phase = Phase::kIdle;
  if (worker.abandoned) ++ended_;
  if (worker.abandoned || stopping_) return After::kEnd;
  idle_.push_back(&worker);
  return After::kIdle;
}

void WorkerPool::look_at_groups() {
  const std::lock_guard lock(mutex_);
  for (Worker& worker : workers_) {
    if (worker.waiting.empty()) continue;
    const unsigned steps = worker.group->steps();
    if (steps == worker.steps && worker.call == worker.call_at_look) withdraw(worker);
    worker.steps = steps;
    worker.call_at_look = worker.call;
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
    if (worker.call != &call) continue;
    if (worker.phase != Phase::kInside) return false;
    worker.abandoned = true;
    --usable_;
    withdraw(worker);
    return true;
  }
  return false;
}

int WorkerPool::thread_of(const Call& call) {
  const std::lock_guard lock(mutex_);
  for (const Worker& worker : workers_) {
    if (worker.call == &call && worker.phase == Phase::kInside) return worker.tid;
  }
  return 0;
}

// Joins abandoned workers whose call has returned. They hold no lock after that.
void WorkerPool::join_ended() {
  for (auto worker = workers_.begin(); ended_ > 0 && worker != workers_.end();) {
    if (!worker->abandoned || worker->call) {
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
