// Threads that call items, and that can be given up on.
#ifndef MONITOR_WORKER_POOL_H
#define MONITOR_WORKER_POOL_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <list>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "item/examiner.h"
#include "item/plugin.h"
#include "output/report_queue.h"
#include "proc/thread_evidence.h"
#include "proc/thread_owner.h"
#include "proc/wake.h"

struct Slot;

// One item instance as a worker sees it. From start() until take_finished() it is the worker's
// alone; at all other times it is the owner's.
struct Call {
  using Clock = std::chrono::steady_clock;

  Slot* slot;  // whose call it is
  Item item;
  std::vector<FI_PARAM_S> params;
  Examiner examiner;
  ReportOrigin origin{};      // of the reports that the item sends
  bool end_is_known = false;  // of the process of the call before
  FI_CONTEXT_S context{};     // zero before the first call, then as the item left it
  FI_RESULT_S result{};       // zeroed before each call
  std::optional<ThreadOwner> thread_owner{};  // of the thread that the item has named
  std::optional<ThreadEvidence> evidence{};   // of that thread, if it hangs
  double value = 0.0;
  Finding finding{};
  Clock::time_point began{}, ended{};  // of the item itself, as its thread saw it
  std::chrono::system_clock::time_point answered{};
};

// Runs calls, each on a worker of its own. start(), take_finished() and abandon() belong to one
// thread. Workers are started as calls need them and reused; a call that never returns costs one
// thread and delays nobody.
class WorkerPool {
 public:
  // `wake` is set when a call has finished.
  explicit WorkerPool(const Wake& wake) : wake_owner_(wake) {}
  // Every worker must have been stopped.
  ~WorkerPool() = default;
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // At most this many calls at one time; abandoned ones do not count.
  void set_limit(size_t limit) { limit_ = limit; }

  // Has a worker run the call, which must stay where it is until it is taken back. False if the
  // limit is reached or the system gives no further thread: try again later.
  bool start(Call& call);

  // True if the system gave no further thread at the last attempt.
  bool lacks_threads() const { return lacks_threads_; }

  // The calls that have returned since the last time, abandoned ones among them.
  std::vector<Call*> take_finished();

  // Gives up on a call that takes too long and makes room for another worker. The thread that is
  // stuck in it ends should it ever return. False if no thread is in it: it has returned in the
  // meantime, or its worker has not woken up yet.
  bool abandon(Call& call);

  // The thread that is inside this call; 0 if none is.
  int thread_of(const Call& call);

  // Ends all workers. False if some are still inside an item: threads cannot be interrupted there,
  // so the process then has to end by _exit(), without destroying anything that they use.
  bool stop();

 private:
  struct Worker {
    std::thread thread;
    int tid = 0;
    Call* call = nullptr;
    bool abandoned = false;
    bool ended = false;
  };

  void work(Worker& worker);
  bool start_worker();
  void join_ended();
  void tell_finished(Call& call);

  size_t limit_ = 1;
  bool lacks_threads_ = false;
  const Wake& wake_owner_;
  std::mutex mutex_;  // guards all below
  std::condition_variable wake_;
  std::deque<Call*> ready_;
  std::vector<Call*> finished_;
  std::list<Worker> workers_;  // a list: threads hold references
  bool stopping_ = false;
};

#endif
