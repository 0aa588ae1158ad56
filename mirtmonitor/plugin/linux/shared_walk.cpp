#include "shared_walk.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <new>

#include "cmdline_turn.h"
#include "fork_reset.h"
#include "proc_file.h"

// Searches that are served by the same walk.
struct WalkRound {
  enum State : uint32_t {
    kWaiting,    // a walk runs
    kNoWalk,     // no walk runs: one of the members has to walk
    kRead,       // the lines can be used
    kGivenUp,    // the walk made no progress: try again
    kEachAlone,  // memory was short
  };
  std::atomic<uint32_t> state{kWaiting};
  std::atomic<uint32_t> members{0};
  CommandLines lines;
};

namespace {

constexpr unsigned int kCmdlineSize = 1024;
constexpr int64_t kPatienceMs = 100;
constexpr int64_t kGroupLookMs = 10;  // so often a group shows its host the progress of the walk
constexpr int kAttempts = 8;

// The state of all searches. The mutex protects all changes; atomic members are also read without
// it.
struct Meeting {
  RobustMutex mutex;
  uint64_t last_walk;              // number of the latest walk
  std::atomic<uint64_t> running;   // number of the walk that others wait for; 0: none
  WalkRound* served;               // the round that the running walk serves; can be null
  WalkRound* waiting;              // the round of later searches; can be null
  std::atomic<uint32_t> arrivals;  // how many searches have waited so far
  std::atomic<uint64_t> moves;     // changes with every step of the running walk
};

Meeting g_meeting;

// In the child of a fork this forgets the rounds: their members are threads of the parent.
void make_meeting() {
  g_meeting.mutex.make();
  g_meeting.running.store(0, std::memory_order_relaxed);
  g_meeting.served = nullptr;
  g_meeting.waiting = nullptr;
}

ForkReset g_meeting_guard(make_meeting);

class MeetingLock {
 public:
  MeetingLock() : held_(g_meeting.mutex.lock()) {}
  MeetingLock& operator=(MeetingLock&&) = delete;
  bool held() const { return held_; }
  ~MeetingLock() {
    if (held_) g_meeting.mutex.unlock();
  }

 private:
  bool held_;
};

void wait_while(std::atomic<uint32_t>& state, uint32_t value, int64_t ms) {
  const timespec limit{ms / 1000, ms % 1000 * 1000000};
  syscall(SYS_futex, &state, FUTEX_WAIT_PRIVATE, value, &limit, nullptr, 0);
}

void wake(std::atomic<uint32_t>& state, int threads) {
  syscall(SYS_futex, &state, FUTEX_WAKE_PRIVATE, threads, nullptr, nullptr, 0);
}

// Whom to wake after the mutex is released: the woken threads may need it, or take the processor
// from the thread that holds it. A round can be gone by then; the call then wakes nobody, or a
// thread that checks its state and sleeps again.
class Wakes {
 public:
  Wakes() = default;
  Wakes& operator=(Wakes&&) = delete;
  ~Wakes() {
    if (served_ != nullptr) wake(*served_, INT_MAX);
    if (waiting_ != nullptr) wake(*waiting_, 1);
  }

  // Ends the running walk with this outcome for its round, and lets one of the waiting searches
  // walk. Its state changes first, because a member may be just about to sleep. The caller holds
  // the mutex.
  void settle_running_walk(WalkRound::State outcome) {
    if (g_meeting.served != nullptr) set(served_, *g_meeting.served, outcome);
    if (g_meeting.waiting != nullptr) set(waiting_, *g_meeting.waiting, WalkRound::kNoWalk);
    g_meeting.served = nullptr;
    g_meeting.running.store(0, std::memory_order_relaxed);
  }

 private:
  static void set(std::atomic<uint32_t>*& target, WalkRound& round, WalkRound::State state) {
    round.state.store(state, std::memory_order_release);
    target = &round.state;
  }

  std::atomic<uint32_t>* served_ = nullptr;
  std::atomic<uint32_t>* waiting_ = nullptr;
};

void make_waiting() {
  if (g_meeting.waiting == nullptr) g_meeting.waiting = new (std::nothrow) WalkRound;
}

WalkRound* join_waiting() {
  make_waiting();
  if (g_meeting.waiting == nullptr) return nullptr;
  g_meeting.waiting->members.fetch_add(1, std::memory_order_relaxed);
  g_meeting.arrivals.fetch_add(1, std::memory_order_relaxed);
  return g_meeting.waiting;
}

void leave(WalkRound* round) noexcept {
  if (round->members.fetch_sub(1, std::memory_order_acq_rel) == 1) delete round;
}

// Checks the progress of the running walk for a search that waits.
class Patience {
 public:
  bool is_over() {
    const uint64_t moves = g_meeting.moves.load(std::memory_order_relaxed);
    const int64_t now = now_ms();
    if (moves != moves_) since_ms_ = now;
    moves_ = moves;
    return now - since_ms_ >= kPatienceMs;
  }

 private:
  static int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
  }

  uint64_t moves_ = g_meeting.moves.load(std::memory_order_relaxed);
  int64_t since_ms_ = now_ms();
};

}  // namespace

// The host need not define it.
extern "C" __attribute__((weak)) MIRT_WALK_GROUP* MIRT_CurrentWalkGroup(void);

SharedWalk::SharedWalk()
    : group_(MIRT_CurrentWalkGroup == nullptr ? nullptr : MIRT_CurrentWalkGroup()) {
  if (use_lines_of_group()) return;
  if (!g_meeting_guard.ready()) part_ = Part::kAlone;
  for (int attempt = 0; part_ == Part::kUndecided && attempt < kAttempts; ++attempt) join();
}

SharedWalk::~SharedWalk() {
  if (part_ == Part::kWalks) end_walk(WalkRound::kEachAlone);
  if (!leave_lines_to_group()) leave_round();
}

bool SharedWalk::use_lines_of_group() noexcept {
  if (group_ == nullptr || group_->lines == nullptr) return false;
  round_ = static_cast<WalkRound*>(group_->lines);
  round_->members.fetch_add(1, std::memory_order_relaxed);
  part_ = Part::kHasLines;
  return true;
}

// The group takes the place of this search in the round.
bool SharedWalk::leave_lines_to_group() noexcept {
  if (group_ == nullptr || group_->lines != nullptr || part_ != Part::kHasLines) return false;
  group_->lines = round_;
  group_->leave = [](void* lines) { leave(static_cast<WalkRound*>(lines)); };
  return true;
}

void SharedWalk::join() {
  {
    const MeetingLock lock;
    if (lock.held()) {
      if (g_meeting.running.load(std::memory_order_relaxed) == 0) return begin_walk();
      round_ = join_waiting();
    }
  }
  if (round_ == nullptr) {
    part_ = Part::kAlone;
  } else {
    wait_for_walk();
  }
}

void SharedWalk::wait_for_walk() {
  Patience patience;
  for (;;) {
    wait_while(round_->state, WalkRound::kWaiting,
               group_ == nullptr ? kPatienceMs / 2 : kGroupLookMs);
    switch (round_->state.load(std::memory_order_acquire)) {
      case WalkRound::kRead:
        part_ = Part::kHasLines;
        return;
      case WalkRound::kGivenUp:
        return leave_round();
      case WalkRound::kEachAlone:
        part_ = Part::kAlone;
        return;
      default:
        break;
    }
    show_progress();
    Wakes wakes;
    const MeetingLock lock;
    if (!lock.held()) continue;
    if (patience.is_over()) wakes.settle_running_walk(WalkRound::kGivenUp);
    if (g_meeting.waiting == round_ && g_meeting.running.load(std::memory_order_relaxed) == 0) {
      return begin_walk();
    }
  }
}

// For a host that gives up calls without progress: the walk's steps are those of all who wait.
void SharedWalk::show_progress() noexcept {
  if (group_ == nullptr) return;
  const uint64_t moves = g_meeting.moves.load(std::memory_order_relaxed);
  __atomic_store_n(&group_->steps, static_cast<unsigned int>(moves), __ATOMIC_RELAXED);
}

// The caller holds the mutex. All searches that wait began before this walk.
void SharedWalk::begin_walk() noexcept {
  part_ = Part::kWalks;
  number_ = ++g_meeting.last_walk;
  g_meeting.running.store(number_, std::memory_order_relaxed);
  g_meeting.moves.fetch_add(1, std::memory_order_relaxed);
  serve_waiting();
}

// The caller holds the mutex.
void SharedWalk::serve_waiting() noexcept {
  arrivals_seen_ = g_meeting.arrivals.load(std::memory_order_relaxed);
  if (g_meeting.waiting == nullptr) return;
  if (round_ == nullptr) {
    round_ = g_meeting.waiting;
    round_->members.fetch_add(1, std::memory_order_relaxed);
  }
  round_->state.store(WalkRound::kWaiting, std::memory_order_relaxed);
  g_meeting.served = round_;
  g_meeting.waiting = nullptr;
}

bool SharedWalk::move_on() noexcept {
  if (group_ != nullptr) __atomic_fetch_add(&group_->steps, 1, __ATOMIC_RELAXED);
  if (part_ != Part::kWalks || g_meeting.running.load(std::memory_order_relaxed) != number_) {
    return true;
  }
  g_meeting.moves.store(number_ << 32U | ++steps_, std::memory_order_relaxed);
  return round_ != nullptr || steps_ > kEarlySteps ||
         g_meeting.arrivals.load(std::memory_order_relaxed) == arrivals_seen_;
}

void SharedWalk::gather() noexcept {
  // Groups arrive later than single calls: the host has to hand out the calls of each first.
  const long quiet_ms = group_ == nullptr ? 1 : 3;
  constexpr long kMostMs = 40;
  const timespec quiet{0, quiet_ms * 1000000};
  uint32_t before, now = g_meeting.arrivals.load(std::memory_order_relaxed);
  long waited_ms = 0;
  do {
    before = now;
    nanosleep(&quiet, nullptr);
    waited_ms += quiet_ms;
    now = g_meeting.arrivals.load(std::memory_order_relaxed);
  } while (now != before && waited_ms < kMostMs);
  steps_ = kEarlySteps;  // only once
  const MeetingLock lock;
  if (!lock.held() || g_meeting.running.load(std::memory_order_relaxed) != number_) return;
  // Even if no other search waits, the later ones of the group need the lines.
  if (group_ != nullptr) make_waiting();
  serve_waiting();
}

namespace {

// Returns false if /proc cannot be opened or memory is short.
bool read_command_lines(SharedWalk& walk, CommandLines& lines) {
  SubdirectoryReader processes("/proc");
  if (!processes.is_open()) return false;
  char text[kCmdlineSize];
  while (const char* name = processes.next()) {
    const pid_t pid = atoi(name);
    walk.move_on();
    {
      CmdlineTurn turn(pid);
      const ProcPath<100> path("/proc/%s/cmdline", name);
      if (!turn.take([&walk] { walk.move_on(); }) ||
          MIRT_Linux_Plugin::read_file(path.get(), text, sizeof text, 1) != 0) {
        continue;
      }
    }
    MIRT_Linux_Plugin::change_cmdlie_to_str(text, sizeof text);
    if (!lines.add(pid, text)) return false;
  }
  return true;
}

}  // namespace

void SharedWalk::read_for_all() {
  if (round_ == nullptr) gather();  // the host starts the calls of a beat together
  const bool read = round_ != nullptr && read_command_lines(*this, round_->lines);
  end_walk(read ? WalkRound::kRead : WalkRound::kEachAlone);
  part_ = read ? Part::kHasLines : Part::kAlone;
}

// A walk that has been replaced has no other members left to inform.
void SharedWalk::end_walk(uint32_t outcome) noexcept {
  Wakes wakes;
  const MeetingLock lock;
  if (lock.held() && g_meeting.running.load(std::memory_order_relaxed) == number_) {
    wakes.settle_running_walk(static_cast<WalkRound::State>(outcome));
  }
}

void SharedWalk::leave_round() noexcept {
  if (round_ != nullptr) leave(round_);
  round_ = nullptr;
}

const CommandLines* SharedWalk::lines() const {
  return part_ == Part::kHasLines ? &round_->lines : nullptr;
}
