// Threads that call items. A thread whose call does not return can be abandoned.
#ifndef MONITOR_WORKER_POOL_H
#define MONITOR_WORKER_POOL_H

#include <semaphore.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "item/examiner.h"
#include "item/plugin.h"
#include "item/walk_group.h"
#include "output/report_queue.h"
#include "proc/thread_evidence.h"
#include "proc/thread_owner.h"
#include "proc/wake.h"

struct Slot;

// The data of a call. Only the worker uses it from start() until take_finished(); only the owner
// uses it at all other times.
struct Call {
  using Clock = std::chrono::steady_clock;

  Slot* slot;  // whose call it is
  Item item;
  std::vector<FI_PARAM_S> params;
  Examiner examiner;
  ReportOrigin origin{};      // of the reports that the item sends
  bool end_is_known = false;  // it is known that the process of the previous call has ended
  FI_CONTEXT_S context{};     // zero before the first call, then as the item left it
  FI_RESULT_S result{};       // zeroed before each call
  std::optional<ThreadOwner> thread_owner{};  // of the thread that the item named
  std::optional<ThreadEvidence> evidence{};   // of that thread, if it hangs
  double value = 0.0;
  Finding finding{};
  // Of the item itself, measured on its thread. The calls of a group begin together.
  Clock::time_point began{}, ended{};
  Clock::duration took{};  // of this call alone
  std::chrono::system_clock::time_point answered{};
};

// Runs each call on a worker thread. Use all functions on one thread only. Workers are started when
// needed and reused; one that has had no call for ten seconds ends, except for the last few. A call
// that never returns occupies one thread and delays no other call.
//
// Short calls can be started as a group: one worker makes them one after another, and they share
// their walk over /proc. This saves two changes of the thread for each call. If one of them makes
// no progress, or its answer needs a search, those behind it are withdrawn. While the item of a
// call sleeps, its worker makes the next call of the group; all of these items must sleep for the
// same time.
class WorkerPool {
 public:
  // `wake` is set when a call has finished.
  explicit WorkerPool(const Wake& wake) : wake_owner_(wake) {}
  // All workers must have been stopped.
  ~WorkerPool() = default;
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // At most this many workers run at once; abandoned ones do not count.
  void set_limit(size_t limit) { limit_ = limit; }

  // A worker runs the calls, one after another; several are a group. The records must not move
  // until take_finished() returns them. False if the limit is reached or no thread can be started:
  // try again later.
  bool start(const std::vector<Call*>& calls);

  // The error of the last attempt to start a thread; 0: it was started.
  int thread_error() const { return thread_error_; }

  // How many workers there are for calls.
  size_t usable();

  // The calls that returned since the previous call, including abandoned ones. Valid until the next
  // call. Needs no memory.
  const std::vector<Call*>& take_finished();

  // Withdraws the calls behind one that has made no progress since the previous look.
  void look_at_groups();
  // True if calls wait behind others of their group.
  bool any_waiting();
  // The calls that were withdrawn since the previous call: they have not begun and will not.
  const std::vector<Call*>& take_withdrawn();

  // Gives up a call that takes too long, and makes room for another worker. Its thread ends when
  // the call returns. False if no thread is inside the call: it has just returned, or its worker
  // has not started it yet.
  bool abandon(Call& call);

  // The id of the thread that is inside this call; 0 if there is none.
  int thread_of(const Call& call);

  // Ends all workers. False if some are still inside an item, where a thread cannot be interrupted.
  // The process must then call _exit() and must not destroy anything that they use.
  bool stop();

  // How many calls have been started and have not returned.
  size_t under_way();

 private:
  enum class Phase { kIdle, kHanded, kInside, kStopped };

  // Waits on a semaphore of its own, so that workers that wake up at the same time need no lock.
  struct Worker {
    Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker();
    bool wait_for_call();  // false: none came for a while

    std::thread thread{};
    sem_t handed{};
    std::atomic<int> tid{0};
    std::atomic<Phase> phase{Phase::kIdle};
    std::vector<Call*> inside{};   // the calls that it makes; all but the last one sleep
    std::vector<Call*> waiting{};  // further calls of the group, the next one last
    std::optional<WalkGroup> group{};
    unsigned steps = 0;                  // of the group, at the latest look
    const Call* call_at_look = nullptr;  // the call at the latest look
    bool retired = false;                // gets no more calls: abandoned, or not needed

    bool is_inside(const Call& call) const;
  };

  enum class After { kNextCall, kSleeper, kIdle, kEnd };

  void work(Worker& worker);
  After make_calls(Worker& worker, Call::Clock::time_point began);
  void work_while_asleep(Worker& worker, Call::Clock::time_point began);
  static void begin_next(Worker& worker);
  After finish(Worker& worker);
  After what_next(Worker& worker);
  bool retires(Worker& worker);
  void withdraw(Worker& worker);
  bool start_worker();
  void join_ended();

  size_t limit_ = 1;
  int thread_error_ = 0;
  const Wake& wake_owner_;
  std::mutex mutex_;  // guards all below
  std::vector<Worker*> idle_;
  std::vector<Call*> finished_, taken_, withdrawn_, taken_withdrawn_;
  std::list<Worker> workers_;  // a list: threads hold references
  size_t usable_ = 0;          // workers that are not retired
  size_t under_way_ = 0;
  size_t ended_ = 0;  // retired workers that can be joined
  bool stopping_ = false;
};

#endif
