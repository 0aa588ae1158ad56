#include "run/worker_pool.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <system_error>
#include <utility>

#include "run/recovery_answer.h"

namespace {

void run(Call& call) {
  call.result = FI_RESULT_S{};
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
  call.answered = std::chrono::system_clock::now();
}

}  // namespace

bool WorkerPool::start(Call& call) {
  const std::lock_guard lock(mutex_);
  join_ended();
  const auto usable = std::count_if(workers_.begin(), workers_.end(),
                                    [](const Worker& worker) { return !worker.abandoned; });
  const auto idle = std::count_if(workers_.begin(), workers_.end(), [](const Worker& worker) {
    return !worker.abandoned && !worker.call;
  });
  if (static_cast<size_t>(idle) <= ready_.size()) {
    if (static_cast<size_t>(usable) >= limit_ || !start_worker()) return false;
  }
  ready_.push_back(&call);
  wake_.notify_one();
  return true;
}

bool WorkerPool::start_worker() {
  Worker& worker = workers_.emplace_back();
  try {
    worker.thread = std::thread([this, &worker] { work(worker); });
    lacks_threads_ = false;
    return true;
  } catch (const std::system_error&) {  // the system's limit on threads
    workers_.pop_back();
    lacks_threads_ = true;
    return false;
  }
}

void WorkerPool::work(Worker& worker) {
  std::unique_lock lock(mutex_);
  worker.tid = gettid();
  while (!worker.abandoned) {
    wake_.wait(lock, [&] { return stopping_ || !ready_.empty(); });
    if (stopping_) break;
    worker.call = ready_.front();
    ready_.pop_front();
    lock.unlock();
    run(*worker.call);
    lock.lock();
    tell_finished(*worker.call);
    worker.call = nullptr;
  }
  worker.ended = true;
}

void WorkerPool::tell_finished(Call& call) {
  finished_.push_back(&call);
  wake_owner_.set();
}

std::vector<Call*> WorkerPool::take_finished() {
  const std::lock_guard lock(mutex_);
  return std::exchange(finished_, {});
}

bool WorkerPool::abandon(Call& call) {
  const std::lock_guard lock(mutex_);
  for (Worker& worker : workers_) {
    if (worker.call != &call) continue;
    worker.abandoned = true;
    return true;
  }
  return false;
}

int WorkerPool::thread_of(const Call& call) {
  const std::lock_guard lock(mutex_);
  for (const Worker& worker : workers_) {
    if (worker.call == &call) return worker.tid;
  }
  return 0;
}

// Joins abandoned workers whose call has returned. They hold no lock after `ended` is set.
void WorkerPool::join_ended() {
  for (auto worker = workers_.begin(); worker != workers_.end();) {
    if (!worker->ended) {
      ++worker;
      continue;
    }
    worker->thread.join();
    worker = workers_.erase(worker);
  }
}

bool WorkerPool::stop() {
  std::vector<std::thread> free;
  bool all_free = true;
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    ready_.clear();  // calls that no worker has begun are never begun
    for (Worker& worker : workers_) {
      if (worker.call) {
        worker.thread.detach();
        all_free = false;
      } else {
        free.push_back(std::move(worker.thread));
      }
    }
  }
  wake_.notify_all();
  for (std::thread& thread : free) thread.join();
  return all_free;
}
