// Global locks that stay usable after a fork and after the end of a thread.
#ifndef FORK_RESET_H
#define FORK_RESET_H

#include <pthread.h>
#include <time.h>

#include <atomic>
#include <cerrno>

// Initializes global state at first use, and again in the child of every fork: the threads that
// held its locks in the parent do not exist in the child.
class ForkReset {
 public:
  constexpr explicit ForkReset(void (*make)()) : make_(make) {}

  // Returns true if the state can be used. Returns false while another thread initializes it, and
  // if the fork handler cannot be registered; the caller then has to work without the state.
  bool ready() noexcept {
    const Stage stage = stage_.load(std::memory_order_acquire);
    return stage == Stage::kReady || (stage == Stage::kNew && prepare());
  }

 private:
  enum class Stage { kNew, kBeingMade, kReady, kUnusable };

  bool prepare() noexcept {
    Stage expected = Stage::kNew;
    if (!stage_.compare_exchange_strong(expected, Stage::kBeingMade)) return false;
    make_();
    const bool registered = pthread_atfork(nullptr, nullptr, make_) == 0;
    stage_.store(registered ? Stage::kReady : Stage::kUnusable, std::memory_order_release);
    return registered;
  }

  void (*make_)();
  std::atomic<Stage> stage_{Stage::kNew};
};

// A mutex that the kernel releases if its owner ends.
class RobustMutex {
 public:
  // Initializes the mutex, even if a thread of the parent process held it: see ForkReset.
  void make() noexcept {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&mutex_, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }
  // Returns false if another thread holds the mutex for a second.
  bool lock() noexcept {
    if (try_lock()) return true;
    timespec limit{};
    clock_gettime(CLOCK_REALTIME, &limit);
    ++limit.tv_sec;
    return is_ours(pthread_mutex_timedlock(&mutex_, &limit));
  }
  bool try_lock() noexcept { return is_ours(pthread_mutex_trylock(&mutex_)); }
  void unlock() noexcept { pthread_mutex_unlock(&mutex_); }

 private:
  bool is_ours(int error) noexcept {
    return error == 0 || (error == EOWNERDEAD && pthread_mutex_consistent(&mutex_) == 0);
  }

  pthread_mutex_t mutex_;
};

#endif
