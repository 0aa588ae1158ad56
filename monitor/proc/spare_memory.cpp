#include "proc/spare_memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

namespace {

thread_local bool may_use_reserve = false, may_use_last_reserve = false;

// Blocks of whole units. It is searched from its start, which is quick enough for the rare use.
template <size_t kBytes>
class Reserve {
 public:
  bool set_aside() {
    void* const memory =
        mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) start_ = static_cast<char*>(memory);
    return start_ != nullptr;
  }

  // Null if there is no room.
  void* take(size_t size) noexcept {
    if (!start_ || size > kBytes) return nullptr;
    const size_t count = std::max<size_t>((size + kUnit - 1) / kUnit, 1);
    const std::lock_guard lock(mutex_);
    size_t run = 0;
    for (size_t unit = 0; unit < kUnits; ++unit) {
      run = taken_[unit] ? 0 : run + 1;
      if (run == count) return occupy(unit + 1 - count, count);
    }
    return nullptr;
  }

  bool has(const void* block) const noexcept {
    const char* const place = static_cast<const char*>(block);
    return start_ && place >= start_ && place < start_ + kBytes;
  }

  void give_back(void* block) noexcept {
    const std::lock_guard lock(mutex_);
    const size_t first = static_cast<size_t>(static_cast<char*>(block) - start_) / kUnit;
    const size_t count = lengths_[first];
    lengths_[first] = 0;
    std::fill_n(taken_ + first, count, false);
    in_use_ -= count;
  }

  bool in_use() const noexcept { return in_use_ != 0; }

  size_t left() const noexcept { return kBytes - in_use_ * kUnit; }

 private:
  static constexpr size_t kUnit = 64, kUnits = kBytes / kUnit;

  void* occupy(size_t first, size_t count) noexcept {
    lengths_[first] = static_cast<uint32_t>(count);
    std::fill_n(taken_ + first, count, true);
    in_use_ += count;
    return start_ + first * kUnit;
  }

  char* start_ = nullptr;
  std::mutex mutex_{};             // guards all below
  uint32_t lengths_[kUnits] = {};  // in units, at the first unit of a block
  bool taken_[kUnits] = {};
  std::atomic<size_t> in_use_{0};
};

Reserve<kSpareMemoryBytes> reserve;
Reserve<kLastMemoryBytes> last_reserve;

}  // namespace

SpareMemoryRight::SpareMemoryRight(bool may_use) noexcept : before_(may_use_reserve) {
  may_use_reserve = may_use;
}

SpareMemoryRight::~SpareMemoryRight() {
  may_use_reserve = before_;
}

NoFailure::NoFailure() noexcept : before_(may_use_last_reserve) {
  may_use_last_reserve = true;
}

NoFailure::~NoFailure() {
  may_use_last_reserve = before_;
}

bool memory_is_short() {
  return reserve.in_use() || last_reserve.in_use();
}

bool memory_is_there_for(size_t bytes) {
  if (reserve.left() + last_reserve.left() < std::min(bytes, kSpareMemoryBytes / 2)) return false;
  void* volatile block = std::malloc(bytes);
  std::free(block);
  return block != nullptr;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

bool set_memory_aside() {
  return true;
}

#else

bool set_memory_aside() {
  may_use_reserve = reserve.set_aside() && last_reserve.set_aside();
  return may_use_reserve;
}

// The libraries must find them too: what one side allocates, the other frees. The other forms of
// new and delete call these.
#pragma GCC visibility push(default)
void* operator new(size_t size) {
  if (void* const block = std::malloc(std::max<size_t>(size, 1))) return block;
  if (void* const block = may_use_reserve ? reserve.take(size) : nullptr) return block;
  if (void* const block = may_use_last_reserve ? last_reserve.take(size) : nullptr) return block;
  throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
  if (reserve.has(block)) return reserve.give_back(block);
  if (last_reserve.has(block)) return last_reserve.give_back(block);
  std::free(block);
}

void operator delete(void* block, size_t) noexcept {
  operator delete(block);
}

#pragma GCC visibility pop

#endif
