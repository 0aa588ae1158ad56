// Searches that run at the same time. This program links the library's objects and wraps the two
// functions by which CommandLines and WalkRound allocate memory.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <new>
#include <random>
#include <thread>

#include "child.h"
#include "common_plugin.h"
#include "interposed.h"
#include "item_call.h"
#include "mirt_items.h"
#include "mirt_process.h"
#include "mirt_walk_group.h"
#include "proc_fixture.h"
#include "walk_actors.h"

static std::atomic<bool> g_no_lines{false}, g_no_rounds{false};
static thread_local MIRT_WALK_GROUP* g_group = nullptr;

extern "C" {
MIRT_WALK_GROUP* MIRT_CurrentWalkGroup(void) {
  return g_group;
}

void* __real_realloc(void* memory, size_t size);
void* __wrap_realloc(void* memory, size_t size) {
  return g_no_lines ? nullptr : __real_realloc(memory, size);
}
void* __real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& nothrow);
void* __wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& nothrow) {
  return g_no_rounds ? nullptr : __real__ZnwmRKSt9nothrow_t(size, nothrow);
}
}

namespace {

using Plugin = MIRT_Linux_Plugin;
using Pids = std::vector<int>;

Pids find_all(const std::string& name, int flag) {
  std::vector<process_cpu_context_t> found(4096);
  unsigned int used = 0;
  Plugin::get_allpid(name.c_str(), found.data(), 4096, &used, flag);
  Pids pids;
  for (unsigned int i = 0; i < used; ++i) pids.push_back(found[i].pid);
  return pids;
}

// Stops the first thread that opens a certain file. let_go() lets it continue, or ends it.
class Gate {
 public:
  enum class Then { kGoesOn, kEnds };
  explicit Gate(std::string path, Then then = Then::kGoesOn) : path_(std::move(path)) {
    hooks_->open = [this, then](const char* opened) {
      if (opened != path_ || reached_.exchange(true)) return;
      while (!open_) usleep(1000);
      if (then == Then::kEnds) syscall(SYS_exit, 0);
    };
  }
  void await() const {
    while (!reached_) usleep(1000);
  }
  void let_go() { open_ = true; }

 private:
  std::string path_;
  std::atomic<bool> reached_{false}, open_{false};
  ScopedHooks hooks_;
};

// Counts the walks through /proc.
class CountedWalks {
 public:
  CountedWalks() {
    hooks_->opendir_fails = [this](const char* path) {
      number_ += strcmp(path, "/proc") == 0 ? 1 : 0;
      return false;
    };
  }
  int number() const { return number_; }

 private:
  std::atomic<int> number_{0};
  ScopedHooks hooks_;
};

// A /proc of made-up processes. Their command lines have few different letters, so that patterns
// match or almost match.
class SharedWalk : public ProcFixture {
 protected:
  static constexpr int kProcesses = 160;
  static constexpr int kFirst = 10;

  void SetUp() override {
    ProcFixture::SetUp();
    for (int pid = kFirst; pid < kFirst + kProcesses; ++pid) {
      const int rss_kb = static_cast<int>(text("x", 40).size()) * 1024;
      put_process({pid, {text("ab ", 12), text("ab", 3)}, 0, 0, rss_kb, 2});
      pids_.push_back(pid);
    }
    put_cmdline(kFirst + 5, {});
    for (int i = 0; i < 12; ++i) patterns_.push_back(text("ab*? ", 7));
    patterns_.insert(patterns_.end(), {"", "*", "?", "**", "a*b*", "*a", "b"});
  }

  std::string text(const std::string& letters, size_t longest) {
    std::string made(random_() % longest + 1, ' ');
    for (char& letter : made) letter = letters[random_() % letters.size()];
    return made;
  }

  // Returns the answers of everything that walks, for one pattern.
  static std::string all_answers(const std::string& pattern) {
    std::string answers;
    for (const int flag : {kMatchExact, kMatchPrefix, kMatchWildcard}) {
      for (const int pid : find_all(pattern, flag)) answers += std::to_string(pid) + ' ';
      answers += '/';
    }
    pid_t pid = 0;
    answers += std::to_string(Plugin::get_pid_byname(pattern.c_str(), pid));
    for (const Item item : {GetProcessMemoryFuzzyMatch, GetProcessHandleFuzzyMatch,
                            GetProcessMemoryExtern, IsExistProcessExtern}) {
      ItemCall call({parameter("", pattern)});
      answers += ' ' + std::to_string(call.run(item)) + ' ' + std::to_string(call.result.pid);
    }
    return answers;
  }

  // Returns the answers for each pattern, without other searches.
  std::vector<std::string> lone_answers() const {
    std::vector<std::string> answers;
    for (const std::string& pattern : patterns_) answers.push_back(all_answers(pattern));
    return answers;
  }

  void expect_the_same_from(size_t threads) const {
    const std::vector<std::string> expected = lone_answers();
    Threads(threads, [&](size_t number) {
      for (size_t i = 0; i < patterns_.size(); ++i) {
        const size_t which = (i + number * 5) % patterns_.size();
        EXPECT_EQ(all_answers(patterns_[which]), expected[which]) << patterns_[which];
      }
    }).join();
  }

  std::mt19937 random_{20240607};
  std::vector<std::string> patterns_;
  Pids pids_;
};

TEST_F(SharedWalk, AnswersAsEachSearchAloneWould) {
  const CountedWalks walks;
  expect_the_same_from(12);
  const int calls = static_cast<int>(patterns_.size()) * 8 * (12 + 1);
  EXPECT_LT(walks.number(), calls) << "walks were shared";
}

TEST_F(SharedWalk, WithoutMemoryEachWalksAlone) {
  for (std::atomic<bool>* const refused : {&g_no_lines, &g_no_rounds}) {
    *refused = true;
    expect_the_same_from(3);
    *refused = false;
  }
}

// All calls of a group answer as of the moment of its first search.
TEST_F(SharedWalk, GroupReadsOnceAndForgetsAtItsEnd) {
  put_cmdline(pids_[0], {"early"});
  int reads = 0;
  ScopedHooks hooks;
  hooks->open = [&](const char* path) { reads += strstr(path, "/cmdline") != nullptr ? 1 : 0; };
  for (const bool memory : {true, false}) {
    g_no_rounds = !memory;
    MIRT_WALK_GROUP group{};
    g_group = &group;
    EXPECT_EQ(find_all("early", kMatchExact), Pids{pids_[0]});
    put_cmdline(pids_[0], {"late"});
    EXPECT_EQ(find_all("early", kMatchExact).size(), memory ? 1U : 0U);
    g_group = nullptr;
    EXPECT_EQ(find_all("late", kMatchExact), Pids{pids_[0]}) << "another call on this thread";
    g_group = &group;
    EXPECT_EQ(find_all("late", kMatchExact).size(), memory ? 0U : 1U);
    g_group = nullptr;
    ASSERT_EQ(group.lines != nullptr, memory);
    EXPECT_EQ(reads, (memory ? 2 : 4) * kProcesses);
    EXPECT_GE(group.steps, static_cast<unsigned>(kProcesses));
    if (memory) group.leave(group.lines);
    put_cmdline(pids_[0], {"early"});
    reads = 0;
  }
  g_no_rounds = false;
}

// The searches of a group serve others, and are served by them.
TEST_F(SharedWalk, GroupsAnswerAsEachSearchAloneWould) {
  const std::vector<std::string> expected = lone_answers();
  Threads(8, [&](size_t number) {
    MIRT_WALK_GROUP group{};
    g_group = number % 4 == 0 ? nullptr : &group;
    for (size_t i = 0; i < patterns_.size(); ++i) EXPECT_EQ(all_answers(patterns_[i]), expected[i]);
    if (group.lines != nullptr) group.leave(group.lines);
  }).join();
}

// The first search stops before, and then after the point up to which a walk can start again.
TEST_F(SharedWalk, BeginsAnewWithThoseWhoComeEarlyAndForgetsWhatItFoundBefore) {
  const Pids order = in_listing_order(pids_);
  for (const size_t stop : {size_t{20}, size_t{150}}) {
    put_cmdline(order[0], {"early"});
    put_cmdline(order[1], {"early"});
    Gate gate("/proc/" + std::to_string(order[stop]) + "/cmdline");
    process_cpu_context_t found[3] = {{-1, 0, 0}, {-1, 0, 0}, {-1, 0, 0}};
    unsigned int used = 0;
    ItemCall memory({parameter("", "early")});
    std::atomic<bool> ended{false};
    Threads threads;
    threads.add([&] { Plugin::get_allpid("early", found, 3, &used, kMatchExact); });
    gate.await();
    remove(std::to_string(order[0]));
    threads.add([&] {
      EXPECT_EQ(find_all("early", kMatchPrefix), Pids{order[1]})
          << "this was read before the call began";
      ended = true;
    });
    if (stop == 150) {
      // The second search does not wait for ever.
      while (!ended) usleep(1000);
    }
    gate.let_go();
    threads.join();
    const Pids pids = used == 1 ? Pids{found[0].pid} : Pids{found[0].pid, found[1].pid};
    EXPECT_TRUE(pids == Pids{order[1]} || pids == Pids({order[0], order[1]}));
    for (unsigned int i = used; i < 3; ++i) EXPECT_EQ(found[i].pid, -1) << "left alone";
  }
}

#if !defined(__SANITIZE_ADDRESS__)  // its allocator stays locked in the child, if a thread used it
TEST_F(SharedWalk, ForkLeavesNothingTakenInTheChild) {
  const std::vector<std::string> expected = lone_answers();
  const Pids order = in_listing_order({kFirst, kFirst + 159});
  for (const int pid : order) {
    Gate gate("/proc/" + std::to_string(pid) + "/cmdline");
    Threads threads;
    threads.add([&] { EXPECT_EQ(all_answers(patterns_[0]), expected[0]); });
    gate.await();
    // These searches wait for it, or skip that process after a second.
    for (size_t i = 1; i < 5; ++i) threads.add([this, i] { all_answers(patterns_[i]); });
    EXPECT_EQ(status_of_child([&] { return lone_answers() == expected ? 0 : 1; }), 0);
    gate.let_go();
    threads.join();
    EXPECT_EQ(lone_answers(), expected);
  }
}
#endif

#if !defined(__SANITIZE_THREAD__)  // it does not notice that such a thread ends
TEST_F(SharedWalk, EndedThreadLeavesNothingTaken) {
  const std::vector<std::string> expected = lone_answers();
  const int pid = in_listing_order({kFirst, kFirst + 100, kFirst + 159})[1];
  EXPECT_EQ(status_of_child([&] {
              Gate gate("/proc/" + std::to_string(pid) + "/cmdline", Gate::Then::kEnds);
              std::thread([&] { all_answers("*"); }).detach();
              gate.await();
              Threads threads(8,
                              [&](size_t i) { EXPECT_EQ(all_answers(patterns_[i]), expected[i]); });
              gate.let_go();
              threads.join();
              EXPECT_EQ(lone_answers(), expected) << "its process is not skipped";
              return HasFailure() ? 1 : 0;
            }),
            0);
}
#endif

TEST_F(SharedWalk, ExistenceByPrefixIsKnownAtTheFirstMatch) {
  put_cmdline(kFirst + 7, {"exists"});
  put_cmdline(kFirst + 157, {"exists", "too"});
  const Pids order = in_listing_order({kFirst + 7, kFirst + 157});
  std::vector<std::string> opened;
  ScopedHooks hooks;
  hooks->open = [&opened](const char* path) { opened.emplace_back(path); };
  ItemCall call({parameter("", "exis")});
  EXPECT_EQ(call.run(IsExistProcessExtern), 1.0F);
  EXPECT_EQ(call.result.pid, order[0]);
  EXPECT_EQ(opened.back(), "/proc/" + std::to_string(order[0]) + "/cmdline");
}

// Real processes that start, change their names, execute programs and end.

// One answer, with the ticks before and after the call.
struct Answer {
  enum Kind { kExact, kPrefix, kWildcard, kExists, kMemory, kKinds };
  Kind kind;
  char letter;  // of the name; kMemory searches for all letters
  uint64_t begin, end;
  Pids pids;
};

Answer ask(const ActorLog& log, Answer::Kind kind, char letter) {
  Answer answer{kind, letter, log.tick(), 0, {}};
  const std::string name = log.name(letter);
  pid_t pid = 0;
  if (kind == Answer::kExact) {
    GetProcessPid(name.c_str(), &pid);
  } else if (kind == Answer::kPrefix || kind == Answer::kWildcard) {
    answer.pids = kind == Answer::kPrefix ? find_all(name, kMatchPrefix)
                                          : find_all('*' + name.substr(3), kMatchWildcard);
  } else {
    ItemCall call({parameter("", kind == Answer::kExists ? name : log.name('?'))});
    call.run(kind == Answer::kExists ? IsExistProcessExtern : GetProcessMemoryFuzzyMatch);
    pid = call.result.pid;
  }
  if (pid != 0) answer.pids.push_back(pid);
  answer.end = log.tick();
  return answer;
}

// Returns why the log does not explain an answer, or an empty text if it does.
std::string unexplained(const ActorLog& log, const Answer& answer) {
  const std::string letters =
      answer.kind == Answer::kMemory ? ActorLog::kLetters : std::string(1, answer.letter);
  for (const int pid : answer.pids) {
    if (!log.could_be(pid, letters, answer.begin, answer.end)) {
      return std::to_string(pid) + " was not called that";
    }
  }
  for (const int pid : log.always(letters, answer.begin, answer.end)) {
    const bool listed = std::find(answer.pids.begin(), answer.pids.end(), pid) != answer.pids.end();
    const bool one_of_many = answer.kind != Answer::kPrefix && answer.kind != Answer::kWildcard;
    const bool first = answer.kind == Answer::kExact || answer.kind == Answer::kExists;
    if (answer.pids.empty() || (!one_of_many && !listed) || (first && answer.pids[0] > pid)) {
      return std::to_string(pid) + " was left out";
    }
  }
  return "";
}

TEST(SharedWalkOfRealProcesses, EveryAnswerIsExplainedByWhatTheProcessesDid) {
  constexpr int kAskers = 12, kQuestions = 80, kDirectors = 3, kActorsEach = 4;
  const CountedWalks walks;
  std::atomic<bool> asked{false};
  ActorLog log;
  std::vector<Answer> answers[kAskers];
  Threads directors(kDirectors, [&](size_t number) {
    std::mt19937 random(static_cast<unsigned>(number));
    Actor actors[kActorsEach] = {Actor(log), Actor(log), Actor(log), Actor(log)};
    while (!asked) actors[random() % kActorsEach].act(static_cast<unsigned>(random()));
  });
  Threads(kAskers, [&](size_t number) {
    std::mt19937 random(static_cast<unsigned>(100 + number));
    for (int i = 0; i < kQuestions; ++i) {
      const char letter = ActorLog::kLetters[random() % ActorLog::kLetters.size()];
      answers[number].push_back(ask(log, Answer::Kind(random() % Answer::kKinds), letter));
    }
  }).join();
  asked = true;
  directors.join();
  size_t found = 0;
  for (const std::vector<Answer>& list : answers) {
    ASSERT_EQ(list.size(), size_t{kQuestions});
    for (const Answer& answer : list) {
      EXPECT_EQ(unexplained(log, answer), "") << answer.kind << ' ' << answer.letter;
      found += answer.pids.size();
    }
  }
  EXPECT_GT(found, size_t{kAskers * kQuestions / 4});
  EXPECT_LT(walks.number(), kAskers * kQuestions) << "walks were shared";
}

char state_of(pid_t pid, pid_t tid) {
  const std::string stat =
      read_file("/proc/" + std::to_string(pid) + "/task/" + std::to_string(tid) + "/stat");
  const size_t name_end = stat.rfind(')');
  return name_end == std::string::npos ? '-' : stat[name_end + 2];
}

// Waits until a thread is in D state. Returns false if it ends first.
bool await_hanging(pid_t pid, pid_t tid) {
  for (;;) {
    const char state = state_of(pid, tid);
    if (state == 'D' || state == '-' || state == 'Z') return state == 'D';
    usleep(1000);
  }
}

TEST(SharedWalkOfRealProcesses, StuckProcessCostsOneThreadAndBlindsNobodyElse) {
  StuckProcess stuck;
  if (!stuck.started()) GTEST_SKIP() << "needs root and a kernel with FUSE to hold a memory lock";
  ASSERT_TRUE(await_hanging(stuck.pid(), stuck.pid()));
  const std::string name = "actor-" + std::to_string(getpid());
  const Child other({name, "-u"});
  const auto others_are_found = [&](size_t number) {
    ItemCall exact({parameter("", name + " -u")}), prefix({parameter("", name)});
    ItemCall wildcard({parameter("", "*" + name + "*")});
    EXPECT_EQ(exact.run(IsExistProcess), 1.0F) << number;
    EXPECT_EQ(prefix.run(IsExistProcessExtern), 1.0F) << number;
    EXPECT_GE(wildcard.run(GetProcessMemoryFuzzyMatch), 0.0F) << number;
    EXPECT_EQ(wildcard.result.pid, other.pid()) << number;
    EXPECT_TRUE(find_all(stuck.name(), kMatchPrefix).empty()) << "skipped";
  };
  std::atomic<pid_t> lost_tid{0};
  Pids found_by_lost;
  Threads lost;
  lost.add([&] {
    lost_tid = gettid();
    found_by_lost = find_all(stuck.name(), kMatchPrefix);
  });
  while (lost_tid == 0) usleep(1000);
  ASSERT_TRUE(await_hanging(getpid(), lost_tid));
  Threads(50, others_are_found).join();
  // Searches that followed the stuck process do not block, either.
  Threads(8, [&](size_t) {
    pid_t followed = stuck.pid();
    EXPECT_EQ(Plugin::get_pid_byname(stuck.command_line().c_str(), followed), 0);
  }).join();
  list_head listing;
  EXPECT_EQ(GetAllProcessRssMem(&listing), 0);
  FreeAllProcessList(&listing);
  EXPECT_EQ(state_of(getpid(), lost_tid), 'D') << "it is still blocked";
  stuck.let_go();
  lost.join();
  EXPECT_EQ(found_by_lost, Pids{stuck.pid()});
  EXPECT_EQ(find_all(stuck.name(), kMatchPrefix), Pids{stuck.pid()});
}

}  // namespace
