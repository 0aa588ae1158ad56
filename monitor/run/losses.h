// Work that was lost because there was not enough memory.
#ifndef MONITOR_LOSSES_H
#define MONITOR_LOSSES_H

#include <atomic>
#include <new>

// On any thread.
class Losses {
 public:
  void add() noexcept { ++count_; }
  bool any() const noexcept { return count_ != 0; }
  unsigned long take() noexcept { return count_.exchange(0); }
  void put_back(unsigned long count) noexcept { count_ += count; }

 private:
  std::atomic<unsigned long> count_{0};
};

// Does a piece of work. If an allocation fails, only this work is lost, and counted; then false.
template <typename Work>
bool at_most_lose(Losses& losses, Work work) {
  try {
    work();
    return true;
  } catch (const std::bad_alloc&) {
    losses.add();
    return false;
  }
}

#endif
