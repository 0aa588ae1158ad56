// A reserve of memory, so that the monitor continues when the system has none.
#ifndef MONITOR_SPARE_MEMORY_H
#define MONITOR_SPARE_MEMORY_H

#include <cstddef>

// The program's operator new takes from the reserve what the system refuses, on threads that may
// use it. Anywhere else std::bad_alloc is thrown as usual. Threads that serve clients must not use
// the reserve up, so they do not have the right. Builds with a sanitizer have no reserve.
constexpr size_t kSpareMemoryBytes = size_t{4} << 20;

// And this much more, on any thread, for functions of libraries that end the program where an
// allocation fails.
constexpr size_t kLastMemoryBytes = size_t{1} << 20;

// Sets the reserve aside; false if the system does not give so much. The pages become resident only
// when they are used. Call it once, before any thread starts. The thread that calls it may use the
// reserve.
bool set_memory_aside();

// Gives this thread the right to use the reserve, or takes it, while this object exists.
class SpareMemoryRight {
 public:
  explicit SpareMemoryRight(bool may_use) noexcept;
  ~SpareMemoryRight();
  SpareMemoryRight(const SpareMemoryRight&) = delete;
  SpareMemoryRight& operator=(const SpareMemoryRight&) = delete;

 private:
  const bool before_;
};

// While this object exists, allocations of this thread can use that.
class NoFailure {
 public:
  NoFailure() noexcept;
  ~NoFailure();
  NoFailure(const NoFailure&) = delete;
  NoFailure& operator=(const NoFailure&) = delete;

 private:
  const bool before_;
};

// True while a part of the reserve is in use: the system has refused memory.
bool memory_is_short();

// True if the system can give this much now, and as much is left of what was set aside, at most
// 2 MiB: the system can still refuse a part of it later. For libraries that end the program without
// memory.
bool memory_is_there_for(size_t bytes);

#endif
