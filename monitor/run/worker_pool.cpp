#include "run/worker_pool.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <system_error>
#include <utility>

namespace {

void run(Call& call) {
  call.result = FI_RESULT_S{};
  call.value = call.item.call(static_cast<int>(call.params.size()), call.params.data(),
                              &call.context, &call.result);
  const bool names_thread = call.item.row().reports == Reports::kValueAndThread &&
                            call.result.result == 0 && call.result.pid > 0;
  call.thread_owner = names_thread ? owner_of_thread(call.result.pid) : std::nullopt;
  call.ended = std::chrono::system_clock::now();
}

}  // namespace

WorkerPool::WorkerPool(size_t limit)
    : limit_(limit), finished_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

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
    return true;
  } catch (const std::system_error&) {  // the system's limit on threads
    workers_.pop_back();
    return false;
  }
}

void WorkerPool::work(Worker& worker) {
  std::unique_lock lock(mutex_);
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
  const uint64_t one = 1;
  // Cannot fail in a way that matters: a full counter is readable as well.
  [[maybe_unused]] const ssize_t written = write(finished_fd_.get(), &one, sizeof one);
}

std::vector<Call*> WorkerPool::take_finished() {
  const std::lock_guard lock(mutex_);
  uint64_t ignored;
  [[maybe_unused]] const ssize_t got = read(finished_fd_.get(), &ignored, sizeof ignored);
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

// Abandoned workers whose call came back after all; they hold no lock any more once ended is set.
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
    ready_.clear();  // handed over, but not begun: from here on nobody begins anything
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
