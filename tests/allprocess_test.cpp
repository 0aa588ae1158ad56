// The listings of all processes and the look-ups. Links the library's objects, because some of the
// tested functions are not exported.
#include "allprocess.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <tuple>
#include <vector>

#include "interposed.h"
#include "mirt_process.h"
#include "proc_fixture.h"

namespace {

// A caller's list head, filled with a pattern to detect unwanted writes.
struct Head {
  Head() { memset(&list, 0xA5, sizeof list); }
  bool is_untouched() const {
    const Head untouched;
    return memcmp(&list, &untouched.list, sizeof list) == 0;
  }
  list_head list;
};

// Returns copies of the entries by PID; frees the list.
std::map<int, PROCESS_INFO_S> take(Head& head) {
  std::map<int, PROCESS_INFO_S> entries;
  for_each_node(&head.list, [&entries](list_head* node) {
    EXPECT_EQ(node->next->prev, node);
    const auto* const entry = reinterpret_cast<PROCESS_INFO_S*>(node);
    EXPECT_TRUE(entries.emplace(entry->pid, *entry).second) << "twice: " << entry->pid;
  });
  FreeAllProcessList(&head.list);
  EXPECT_EQ(head.list.next, &head.list);
  return entries;
}

using Trace = std::vector<std::string>;

class Snapshot : public ProcFixture {
 protected:
  Snapshot() {
    hooks_->sleep = [this](unsigned int seconds) {
      trace_.push_back("sleep " + std::to_string(seconds));
      if (meanwhile_) meanwhile_();
    };
    hooks_->open = [this](const std::string& path) { trace_.push_back(path); };
  }

  static void put_named(int pid, const std::string& name, unsigned long long ticks,
                        int rss_kb = 2047) {
    put_cmdline(pid, {name, "-x"});
    put_ticks(pid, ticks, 0);
    put(std::to_string(pid) + "/status", "Name:\t" + name + "\nState:\tS (sleeping)\nVmRSS:\t" +
                                             std::to_string(rss_kb) + " kB\nThreads:\t1\n");
  }
  // user nice system idle iowait irq softirq, and two that are not part of the total.
  static void put_machine(const std::string& ticks) { put("stat", "cpu  " + ticks + " 9 9\n"); }
  // 1,400 ticks of seven processors: 200 of one each.
  void pass_1400_ticks() {
    put_machine("1000 0 0 9000 0 0 0");
    meanwhile_ = [] { put_machine("1400 0 0 10000 0 0 0"); };
  }

  std::map<int, PROCESS_INFO_S> list_cpu() {
    Head head;
    if (GetAllProcessCoreCPU(&head.list, &user_percent_) == 0) return take(head);
    ADD_FAILURE() << "no listing";
    return {};
  }

  ScopedHooks hooks_;
  std::function<void()> meanwhile_;  // runs during the 60 seconds
  Trace trace_;                      // the opened files and the sleep
  int user_percent_ = -7;
};

TEST_F(Snapshot, CpuIsWholePercentOfOneCoreForWhoLivesThroughTheMinute) {
  pass_1400_ticks();
  for (const int pid : {10, 11, 12, 13, 14, 20, 30, 40, 41, 42}) put_named(pid, "app", 5000);
  put_cmdline(41, {});
  put("42/status", "State:\tS\n");
  put("4x/cmdline", "not a process");
  meanwhile_ = [passed = meanwhile_] {
    passed();
    put_named(10, "app", 5200 + 200, 4096);
    put_cmdline(10, {"another", "line"});
    put_ticks(11, 5399, 0);
    put_ticks(13, 4999, 0);        // its count goes backwards
    put_ticks(14, 1ULL << 62, 0);  // more than an int can hold
    remove("20");
    put_named(30, "renamed", 5070);
    put_cmdline(40, {});
    put_named(50, "starts", 0);
  };
  auto entries = list_cpu();
  std::map<int, int> percents;
  for (const auto& [pid, entry] : entries) percents[pid] = entry.corecpu;
  EXPECT_EQ(percents, (std::map<int, int>{{10, 200}, {11, 199}, {12, 0}, {13, 0}, {14, INT_MAX}}));
  // Everything except the CPU usage comes from the first pass.
  EXPECT_EQ(entries[10].rss, 1);
  EXPECT_STREQ(entries[10].cmdline, "app -x");
}

TEST_F(Snapshot, UserPercentIsOfSevenCountersAndLeavesNiceOut) {
  const std::tuple<const char*, const char*, int, size_t> kRows[] = {
      {"1000 10 100 2000 5 5 5", "1311 199 200 2400 155 35 25", 25, 1},  // 31100 / 1200
      {"1000 0 0 0 0 0 0", "1000 0 0 0 0 0 1", 0, 0},  // none of the ticks that count for a process
      {"1000 0 0 0 500 0 0", "1100 0 0 0 450 0 0", 200, 1},  // the kernel decreased iowait
      {"1000 0 0 5000 0 0 0", "1100 0 0 4000 0 0 0", 0, 0},  // the total went backwards
  };
  put_named(10, "x", 5);
  for (const auto& [before, after, percent, listed] : kRows) {
    put_machine(before);
    meanwhile_ = [text = after] { put_machine(text); };
    EXPECT_EQ(list_cpu().size(), listed);
    EXPECT_EQ(user_percent_, percent);
  }
}

TEST_F(Snapshot, FilesAreReadOnceAndTheProcessInsideTheMachinesInterval) {
  pass_1400_ticks();
  put_named(10, "app_data" + std::string(40, 'n'), 0, 3 * 1024 + 1023);
  put_cmdline(10, {std::string(700, 'a'), std::string(700, 'b')});
  trace_.clear();
  Head head;
  ASSERT_EQ(GetAllProcessRssMem(&head.list), 0);
  EXPECT_EQ(trace_, (Trace{"/proc/10/cmdline", "/proc/10/status"}));
  const auto entries = take(head);
  EXPECT_EQ(entries.at(10).rss, 3);
  EXPECT_EQ(entries.at(10).name, "app_data" + std::string(23, 'n'));
  EXPECT_EQ(entries.at(10).cmdline, std::string(700, 'a') + ' ' + std::string(321, 'b'));

  // A process that ends between its two files is left out; a process that shows no memory is
  // listed.
  for (const int pid : {20, 21}) {
    put_cmdline(pid, {"app"});
    put(std::to_string(pid) + "/status", "Name:\tapp\nState:\tZ\n");
  }
  hooks_->open = [](const std::string& path) {
    if (path == "/proc/20/status") put_cmdline(20, {});
  };
  ASSERT_EQ(GetAllProcessRssMem(&head.list), 0);
  const auto listed = take(head);
  EXPECT_EQ(listed.count(20) + listed.count(21) * 10, 10U);

  for (const char* gone : {"20", "21"}) remove(gone);
  trace_.clear();
  hooks_->open = [this](const std::string& path) {
    if (path.substr(path.size() - 5) == "/stat") trace_.push_back(path);
  };
  EXPECT_EQ(list_cpu().size(), 1U);
  EXPECT_EQ(trace_, (Trace{"/proc/stat", "/proc/stat", "/proc/10/stat", "sleep 60", "/proc/stat",
                           "/proc/10/stat", "/proc/stat"}));
}

TEST_F(Snapshot, FailureLeavesTheHeadAsItWas) {
  int walks_left = 2;
  hooks_->opendir_fails = [&walks_left](const char*) { return walks_left-- == 0; };
  const auto fails = [&](int walks, const char* what) {
    walks_left = walks;
    Head head;
    EXPECT_EQ(GetAllProcessCoreCPU(&head.list, &user_percent_), -1) << what;
    EXPECT_TRUE(head.is_untouched()) << what;
    EXPECT_EQ(user_percent_, -7) << what;
  };
  fails(2, "no ticks before");
  pass_1400_ticks();
  fails(0, "no first walk");
  fails(1, "no second walk");
  meanwhile_ = [] { remove("stat"); };
  fails(2, "no ticks after");
  pass_1400_ticks();
  meanwhile_ = nullptr;
  fails(2, "a clock that stands still");
  walks_left = 0;
  Head head;
  EXPECT_EQ(GetAllProcessRssMem(&head.list), -1);
  EXPECT_TRUE(head.is_untouched());
}

TEST(Pairing, IsThatOfASearchFromTheFront) {
  std::mt19937 random(20);
  const auto below = [&random](unsigned int bound) {
    return static_cast<unsigned int>(random() % bound);
  };
  // Up to 60 samples with few different PIDs and names; some samples of the second pass are not
  // later.
  const auto fill = [&below](std::vector<PROCESS_BASICDATA_S>& samples, list_head& head,
                             bool later) {
    kelv_list_init(&head);
    samples.resize(below(60));
    for (PROCESS_BASICDATA_S& sample : samples) {
      sample.pid = static_cast<pid_t>(below(6));
      sample.syscputime = later ? 1000 + 100 * below(2) : 1000;
      sample.procputime = later ? below(1000) : 0;
      memset(sample.name, 'n', below(3));
      kelv_list_add_tail(&sample.stEntry, &head);
    }
  };
  for (int round = 0; round < 200; ++round) {
    std::vector<PROCESS_BASICDATA_S> first, second;
    list_head first_head, second_head;
    fill(first, first_head, false);
    fill(second, second_head, true);
    std::vector<std::pair<pid_t, int>> expected, found;
    for (PROCESS_BASICDATA_S& before : first) {
      list_head* const node =
          SearchList(&second_head, ProcBasicDataCmpMatchPidName, &before.stEntry);
      if (node == nullptr || sample_of(node)->syscputime == 1000) continue;
      expected.emplace_back(before.pid, kCores * static_cast<int>(sample_of(node)->procputime));
    }
    Head result;
    kelv_list_init(&result.list);
    EXPECT_EQ(CalcAllProcessCoreCPU(&first_head, &second_head, &result.list), 0);
    for_each_node(&result.list, [&found](list_head* node) {
      const auto* const entry = reinterpret_cast<PROCESS_INFO_S*>(node);
      found.emplace_back(entry->pid, entry->corecpu);
    });
    FreeAllProcessList(&result.list);
    ASSERT_EQ(found, expected) << "round " << round;
  }
}

// Look-ups.

class Lookup : public ProcFixture {
 protected:
  void SetUp() override {
    ProcFixture::SetUp();
    if (IsSkipped()) return;
    for (const int pid : {11, 12, 13, 14, 15}) put_cmdline(pid, {"app", std::to_string(pid)});
    put_cmdline(16, {"another"});
    put("16/status", "Name:\tapp_data\n");
  }
};

TEST_F(Lookup, SingleProcessesAreFoundByNameOrPid) {
  EXPECT_EQ(CheckProcessExist("app_data_server", 16), 0);
  EXPECT_EQ(CheckProcessExist("app", 16), -2);
  EXPECT_EQ(KillProcess("app_data", 99), -1);
  EXPECT_EQ(KillProcess("app", 16), -2);
  char mixed[] = "12/:";
  EXPECT_TRUE(isDigit(mixed, 2));
  EXPECT_FALSE(isDigit(mixed, 3) || isDigit(mixed + 3, 1) || isDigit(nullptr, 0));
  pid_t pid = 15;
  EXPECT_EQ(GetProcessPid("app 12", &pid), 0);
  EXPECT_EQ(pid, 12);
  EXPECT_EQ(GetProcessPid("app", &pid), 0);
  EXPECT_EQ(pid, 0);
  EXPECT_EQ(GetProcessPid(nullptr, &pid), -1);
  EXPECT_EQ(GetProcessPid("app 12", nullptr), -1);
}

TEST_F(Lookup, SearchesFillWhatTheyAreGiven) {
  const std::vector<int> order = in_listing_order({11, 12, 13, 14, 15});
  for (const auto& [search, name] :
       {std::pair(&GetProcessPidExtern, "app"), {&GetProcessPidFuzzy, "*p ?*"}}) {
    pid_t pids[6] = {-1, -1, -1, -1, -1, -1};
    unsigned int used = 77;
    EXPECT_EQ(search(nullptr, pids, 6, &used), -1);
    EXPECT_EQ(search(name, pids, 0, &used), -1);
    EXPECT_EQ(used, 77U);
    EXPECT_EQ(search(name, pids, 2, &used), 0);
    EXPECT_EQ(used, 2U);
    EXPECT_EQ(std::vector<int>(pids, pids + 3), (std::vector<int>{order[0], order[1], -1}));
    EXPECT_EQ(search(name, pids, 6, &used), 0);
    EXPECT_EQ(used, 5U);
    EXPECT_EQ(std::vector<int>(pids, pids + 5), order);
  }
}

}  // namespace
