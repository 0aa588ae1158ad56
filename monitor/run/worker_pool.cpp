#include "run/worker_pool.h"

#include <unistd.h>

#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include "proc/spare_memory.h"
#include "run/recovery_answer.h"

namespace {

void examine_and_call(Call& call) {
  call.finding = Finding{};
  call.examiner.before(call.context, call.end_is_known);
  set_report_origin(&call.origin);
  set_asking_result(&call.result);
  call.began = Call::Clock::now();
  call.value = call.item.call(static_cast<int>(call.params.size()), call.params.data(),
                              &call.context, &call.result);
  call.ended = Call::Clock::now();
  set_report_origin(nullptr);
  set_asking_result(nullptr);
  call.finding = call.examiner.after(call.context, call.result, call.value);
  const bool names_thread = call.item.row().reports == Reports::kValueAndThread &&
                            call.result.result == 0 && call.result.pid > 0;
  call.thread_owner = names_thread ? owner_of_thread(call.result.pid) : std::nullopt;
  call.evidence = names_thread ? evidence_of(call.result.pid) : std::nullopt;
}

// If an allocation fails, this call has no answer that can be trusted.
void run(Call& call) noexcept {
  call.began = call.ended = Call::Clock::now();
  call.result = FI_RESULT_S{};
  call.value = -1.0;
  try {
    examine_and_call(call);
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

bool WorkerPool::start(Call& call) {
  Worker* worker = nullptr;
  {
    const std::lock_guard lock(mutex_);
    join_ended();
    if (idle_.empty() && (usable_ >= limit_ || !start_worker())) return false;
    finished_.reserve(finished_.size() + under_way_ + 1);  // so that workers need no memory
    worker = idle_.back();
    idle_.pop_back();
    worker->call = &call;
    worker->phase = Phase::kHanded;
    ++under_way_;
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
    run(*worker.call);
    goes_on = finish(worker);
  }
}

// Returns false if the worker must end.
bool WorkerPool::finish(Worker& worker) {
  bool is_first = false;
  bool goes_on = true;
  {
    const std::lock_guard lock(mutex_);
    is_first = finished_.empty();
    finished_.push_back(worker.call);
    worker.call = nullptr;
    worker.phase = Phase::kIdle;
    --under_way_;
    goes_on = !worker.abandoned && !stopping_;
    if (goes_on) idle_.push_back(&worker);
    if (worker.abandoned) ++ended_;
  }
  if (is_first) wake_owner_.set();  // else it has been woken and has not taken them yet
  return goes_on;
}

std::vector<Call*> WorkerPool::take_finished() {
  std::vector<Call*> taken;
  const std::lock_guard lock(mutex_);
  taken.reserve(finished_.capacity());
  taken.swap(finished_);
  return taken;
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
