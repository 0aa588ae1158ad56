#include "cmdline_turn.h"

#include <time.h>

#include <atomic>
#include <cstdint>

#include "fork_reset.h"

// Records the reader of a command line. Processes whose PIDs differ by a multiple of kPlaces share
// a place. If it is in use for another process, a reader is not recorded.
struct alignas(64) CmdlinePlace {
  RobustMutex reader;
  std::atomic<uint64_t> visit{0};  // PID and start in ms; 0: none
};

namespace {

constexpr uint32_t kStuckAfterMs = 1000;
constexpr unsigned int kPlaces = 256;

CmdlinePlace g_places[kPlaces];

void make_places() {
  for (CmdlinePlace& place : g_places) {
    place.reader.make();
    place.visit.store(0, std::memory_order_relaxed);
  }
}

ForkReset g_places_guard(make_places);

// Wraps around. The coarse clock is cheap enough for a call per process.
uint32_t now_ms() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

uint64_t visit_of(pid_t pid) {
  return static_cast<uint64_t>(static_cast<uint32_t>(pid)) << 32U | now_ms();
}

}  // namespace

CmdlineTurn::Answer CmdlineTurn::ask() noexcept {
  if (pid_ <= 0 || !g_places_guard.ready()) return Answer::kRead;
  CmdlinePlace& place = g_places[static_cast<uint32_t>(pid_) % kPlaces];
  if (place.reader.try_lock()) {
    place_ = &place;
    place.visit.store(visit_of(pid_), std::memory_order_relaxed);
    return Answer::kRead;
  }
  const uint64_t visit = place.visit.load(std::memory_order_relaxed);
  if (visit == 0) return Answer::kWait;
  if (static_cast<pid_t>(visit >> 32U) != pid_) return Answer::kRead;
  return now_ms() - static_cast<uint32_t>(visit) < kStuckAfterMs ? Answer::kWait : Answer::kSkip;
}

// Most reads take a few microseconds, so the first pauses are short.
void CmdlineTurn::pause(unsigned int asked) noexcept {
  constexpr unsigned int kSpins = 100;
  constexpr long kShortestNs = 50000, kLongestNs = 5000000;
  if (asked <= kSpins) {
    __builtin_ia32_pause();
    return;
  }
  const unsigned int doublings = (asked - kSpins) / 4;
  const timespec duration{0, doublings < 7 ? kShortestNs << doublings : kLongestNs};
  nanosleep(&duration, nullptr);
}

CmdlineTurn::~CmdlineTurn() {
  if (place_ == nullptr) return;
  place_->visit.store(0, std::memory_order_relaxed);
  place_->reader.unlock();
}
