// Lines for readers who do not read, and threads that wait, both for real.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "captured_log.h"
#include "child.h"
#include "item/params.h"
#include "proc/cpu_wait.h"
#include "proc/unique_fd.h"
#include "proc/wait_place.h"
#include "run/worker_pool.h"
#include "text/line_queue.h"

namespace {

using Weight = LineQueue::Weight;

std::string loss_text(const LineQueue::Loss& loss) {
  return "lost " + std::to_string(loss.ordinary) + "+" + std::to_string(loss.lasting);
}

// A pipe that is full from the beginning.
class FullPipe {
 public:
  FullPipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    while (write(ends[1], "\n", 1) == 1) continue;
    fcntl(ends[1], F_SETFL, 0);
    reader_ = UniqueFd(ends[0]);
    writer_ = UniqueFd(ends[1]);
  }
  int writer() const { return writer_.get(); }
  void close_reader() { close(reader_.release()); }
  // The next line that is not empty.
  std::string line() const {
    std::string text;
    for (char byte; read(reader_.get(), &byte, 1) == 1;) {
      if (byte != '\n') {
        text += byte;
      } else if (!text.empty()) {
        return text;
      }
    }
    return text;
  }

 private:
  UniqueFd reader_{-1}, writer_{-1};
};

class LineQueueTest : public testing::Test {
 protected:
  const Wake wake_;
  FullPipe pipe_;
  LineQueue queue_{pipe_.writer(), loss_text, wake_};
};

TEST_F(LineQueueTest, KeepsTheNewestValuesAndTheFirstOfWhatLastsAndSaysWhatIsLost) {
  ASSERT_TRUE(queue_.ready());
  queue_.push(std::string(PIPE_BUF, 'f'), Weight::kOrdinary);  // nothing else joins its write
  const size_t ordinary = LineQueue::kMostOrdinary + 7, lasting = LineQueue::kMostLasting + 3;
  for (size_t i = 0; i < ordinary; ++i) queue_.push("o" + std::to_string(i), Weight::kOrdinary);
  for (size_t i = 0; i < lasting; ++i) queue_.push("l" + std::to_string(i), Weight::kLasting);
  queue_.push("end", Weight::kOrdinary);
  std::vector<std::string> values, others;
  unsigned long lost_values = 0, lost_others = 0;
  for (std::string line; (line = pipe_.line()) != "end";) {
    unsigned long one = 0, other = 0;
    if (std::sscanf(line.c_str(), "lost %lu+%lu", &one, &other) == 2) {
      lost_values += one;
      lost_others += other;
    } else {
      (line[0] == 'l' ? others : values).push_back(line);
    }
  }
  // The thread had taken a line or two before the rest came. The one named "end" is a value too.
  EXPECT_EQ(values.size() + lost_values, ordinary + 1);
  EXPECT_GE(lost_values, 6U);
  for (size_t i = 1; i < LineQueue::kMostOrdinary; ++i) {
    ASSERT_EQ(values[values.size() - i], "o" + std::to_string(ordinary - i));
  }
  EXPECT_EQ(lost_others, 3U);
  ASSERT_EQ(others.size(), LineQueue::kMostLasting);
  for (size_t i = 0; i < others.size(); ++i) ASSERT_EQ(others[i], "l" + std::to_string(i));
  EXPECT_EQ(queue_.finish(std::chrono::seconds(100)), 0U);
}

TEST_F(LineQueueTest, KeepsTheOrderOfBothKindsAndCountsBytesToo) {
  const std::string half(LineQueue::kMostOrdinaryBytes / 2, 'x');
  queue_.push("first", Weight::kLasting);
  queue_.push(half + "1", Weight::kOrdinary);
  queue_.push(half + "2", Weight::kOrdinary);
  queue_.push("then", Weight::kLasting);
  queue_.push("last", Weight::kOrdinary);
  std::string line = pipe_.line();
  if (line == "first") line = pipe_.line();  // before or after the loss was counted
  EXPECT_EQ(line, "lost 1+0");
  line = pipe_.line();
  if (line == "first") line = pipe_.line();
  EXPECT_TRUE(line == half + "2") << line.size();
  EXPECT_EQ(pipe_.line(), "then");
  EXPECT_EQ(pipe_.line(), "last");
}

TEST_F(LineQueueTest, EndsAlthoughNobodyReadsAndTellsThatTheReaderHasGone) {
  for (int i = 0; i < 5; ++i) queue_.push("x", Weight::kLasting);
  EXPECT_EQ(queue_.finish(std::chrono::milliseconds(0)), 5U);
  EXPECT_FALSE(queue_.stuck());
  EXPECT_FALSE(queue_.closed());

  std::signal(SIGPIPE, SIG_IGN);
  FullPipe left;
  LineQueue lost(left.writer(), loss_text, wake_);
  left.close_reader();
  wake_.clear();
  lost.push("x", Weight::kOrdinary);
  while (!lost.closed()) std::this_thread::yield();
  EXPECT_EQ(lost.error(), 0) << "it has merely gone";
  EXPECT_EQ(lost.finish(std::chrono::seconds(100)), 0U);

  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  LineQueue failed(full, loss_text, wake_);
  failed.push("x", Weight::kOrdinary);
  while (!failed.closed()) std::this_thread::yield();
  EXPECT_EQ(failed.error(), ENOSPC);
  failed.finish(std::chrono::seconds(100));
  close(full);
}

// A thread that runs `wait` gets to this place sooner or later; `release` lets it go on.
void expect_place(const std::string& expected, const std::function<void()>& wait,
                  const std::function<void()>& release) {
  std::atomic<int> tid{0};
  std::thread thread([&] {
    tid = gettid();
    wait();
  });
  while (tid == 0) std::this_thread::yield();
  std::string text;
  for (int tries = 0; tries < 100000 && text != expected; ++tries) {
    const std::optional<WaitPlace> place = wait_place_of(tid);
    text = place ? place->text() : "running";
    std::this_thread::yield();
  }
  EXPECT_EQ(text, expected);
  release();
  thread.join();
}

TEST(WaitPlace, NamesTheCallTheFileAndItsProcess) {
  const TemporaryFolder folder;
  const std::string fifo = folder / "fifo", lock = folder / "lock";
  mkfifo(fifo.c_str(), 0600);
  const auto open_fifo = [&](int flags) { close(open(fifo.c_str(), flags | O_CLOEXEC)); };
  expect_place(
      "in open of " + fifo, [&] { open_fifo(O_RDONLY); }, [&] { open_fifo(O_WRONLY); });

  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  char byte = 0;
  expect_place(
      "in read from a command that it has started", [&] { EXPECT_EQ(read(ends[0], &byte, 1), 1); },
      [&] { EXPECT_EQ(write(ends[1], "x", 1), 1); });

  const HeldLock held(lock);
  const int wanted = open(lock.c_str(), O_RDWR | O_CLOEXEC);
  expect_place(
      "in flock of " + lock, [&] { flock(wanted, LOCK_EX); }, [&] { held.let_go(); });
  for (const int fd : {ends[0], ends[1], wanted}) close(fd);

  const WaitPlace place{"read", "/proc/self/cmdline", getpid()};
  prctl(PR_SET_NAME, "reader");
  EXPECT_EQ(place.text(),
            "in read of /proc/self/cmdline (process " + std::to_string(getpid()) + ", \"reader\")");
}

// Calls of an item that sleeps, on one thread; the second one does not sleep.
class AsleepTest : public testing::Test {
 protected:
  AsleepTest() {
    has_lines = true;
    steps.clear();
    make_calls(item, kRow);
  }
  ~AsleepTest() override { EXPECT_TRUE(pool_.stop()); }

  void make_calls(float (*function)(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*),
                  const ItemRow& row) {
    records_.clear();
    calls_.clear();
    for (int i = 0; i < 5; ++i) {
      params_.push_back({{"ProcessName", std::to_string(i)}});
      records_.push_back({nullptr, Item(reinterpret_cast<void*>(function), row),
                          to_records(params_.back()),
                          Examiner(row, params_.back(), surroundings_)});
      calls_.push_back(&records_.back());
    }
  }

  static float item(int, FI_PARAM_S* argv, FI_CONTEXT_S*, FI_RESULT_S*) {
    MIRT_WALK_GROUP* const group = MIRT_CurrentWalkGroup();
    if (has_lines) *group = {group, [](void*) {}, 0};
    const std::string number = argv[0].value;
    steps += number + "< ";
    if (number != "1") usleep(1);
    while (number == "4" && hold) sched_yield();
    steps += ">" + number + " ";
    return 1.0F;
  }
  std::string steps_of_all() {
    EXPECT_TRUE(pool_.start(calls_));
    await_finished(5);
    return std::exchange(steps, "");
  }
  void await_finished(size_t count) {
    for (size_t got = 0; got < count; got += pool_.take_finished().size()) sched_yield();
  }
  // All calls are inside at the same time.
  static float meeting(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*) {
    for (++met; met < 5;) sched_yield();
    return 1.0F;
  }
  static float nothing_there(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*) { return 0.0F; }

  static inline const ItemRow& kRow = *find_item("GetProcessSysCPUFuzzyMatch");
  static inline std::atomic<bool> has_lines, hold{false};
  static inline std::atomic<int> met{0};
  static inline std::string steps;
  const Wake wake_;
  const Surroundings surroundings_{};
  std::list<std::vector<Param>> params_;
  std::list<Call> records_;
  std::vector<Call*> calls_;
  WorkerPool pool_{wake_};
};

TEST_F(AsleepTest, TheNextCallsAreMadeIfTheySearchNothingThatCouldBlock) {
  EXPECT_EQ(steps_of_all(), "0< 1< >1 2< 3< 4< >4 >3 >2 >0 ");
  has_lines = false;
  EXPECT_EQ(steps_of_all(), "0< >0 1< >1 2< >2 3< >3 4< >4 ");
}

TEST_F(AsleepTest, ABlockedCallBlocksThoseThatSleepOnItsThread) {
  hold = true;
  ASSERT_TRUE(pool_.start(calls_));
  while (pool_.thread_of(*calls_[4]) == 0) sched_yield();
  EXPECT_EQ(pool_.thread_of(*calls_[0]), pool_.thread_of(*calls_[4]));
  for (const int blocked : {4, 0, 3}) EXPECT_TRUE(pool_.abandon(*calls_[blocked]));
  EXPECT_FALSE(pool_.abandon(*calls_[1])) << "it has returned";
  EXPECT_EQ(pool_.usable(), 0U);
  hold = false;
  await_finished(5);
  steps.clear();
  EXPECT_EQ(steps_of_all(), "0< 1< >1 2< 3< 4< >4 >3 >2 >0 ") << "on another thread";
  EXPECT_EQ(pool_.usable(), 1U);
}

std::atomic<bool> g_no_call_comes{false};

TEST_F(AsleepTest, WorkersThatAreNotNeededEndExceptForTheLastFour) {
  make_calls(meeting, kRow);
  pool_.set_limit(5);
  g_no_call_comes = true;
  for (Call* const call : calls_) ASSERT_TRUE(pool_.start({call}));
  await_finished(5);
  while (pool_.usable() > 4) sched_yield();
  for (Call* const call : calls_) {  // while those that stay look again and again
    ASSERT_TRUE(pool_.start({call}));
    await_finished(1);
  }
  g_no_call_comes = false;
  EXPECT_EQ(pool_.usable(), 4U);
}

TEST_F(AsleepTest, CallsBehindAnAnswerThatNeedsASearchDoNotWait) {
  make_calls(nothing_there, *find_item("IsExistProcessExtern"));
  ASSERT_TRUE(pool_.start(calls_));
  while (pool_.under_way() > 0) sched_yield();
  EXPECT_EQ(pool_.take_finished(), std::vector<Call*>{calls_.front()});
  EXPECT_EQ(pool_.take_withdrawn(), std::vector<Call*>(calls_.begin() + 1, calls_.end()));
  EXPECT_FALSE(pool_.any_waiting());
}

// A process that is always busy, on this processor.
class Busy : InPlace {
 public:
  Busy(int policy, int processor) : pid_(fork()) {
    if (pid_ != 0) return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    sched_setaffinity(0, sizeof one, &one);
    const sched_param none{};
    sched_setscheduler(0, policy, &none);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
    }
  }
  ~Busy() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

TEST(CpuWait, TellsThreadsThatGetNothingFromThoseThatRunOrSleep) {
  const int processor = sched_getcpu();
  const Busy runs(SCHED_OTHER, processor), starves(SCHED_IDLE, processor);
  // Sooner or later the one of them is seen as it runs, the other as it waits.
  for (bool seen = false; !seen;) {
    const auto of_running = thread_times_of(runs.pid());
    const auto of_starving = thread_times_of(starves.pid());
    usleep(30000);
    seen = still_waiting(runs.pid(), of_running).empty() &&
           still_waiting(starves.pid(), of_starving) == std::vector<int>{starves.pid()};
  }
  Child child({"sleeping"});
  const pid_t sleeping = child.pid();
  std::vector<ThreadTimes> before;
  do before = thread_times_of(sleeping);
  while (!still_waiting(sleeping, before).empty());  // until it sleeps
  EXPECT_FALSE(before.empty());
  child.end();
  EXPECT_TRUE(thread_times_of(sleeping).empty());
}

}  // namespace

// So that workers need not wait for ten seconds.
int sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* end) {
  if (!g_no_call_comes) {
    static const auto real =
        reinterpret_cast<decltype(&sem_clockwait)>(dlsym(RTLD_NEXT, "sem_clockwait"));
    return real(semaphore, clock, end);
  }
  if (sem_trywait(semaphore) == 0) return 0;
  sched_yield();
  errno = ETIMEDOUT;
  return -1;
}
