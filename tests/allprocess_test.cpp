// The snapshot of all processes and the look-ups. Links the library's objects: some of what is
// tested here is not exported.
#include "allprocess.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <vector>

#include "child.h"
#include "interposed.h"
#include "mirt_process.h"
#include "proc_fixture.h"

namespace {

// A caller's list head with a pattern where a careless call would write.
struct Head {
  Head() { memset(&list, 0xA5, sizeof list); }
  bool is_untouched() const {
    const Head untouched;
    return memcmp(&list, &untouched.list, sizeof list) == 0;
  }
  list_head list;
};

// The entries by PID, in copies; the list is freed. Checks on the way that it is well formed.
std::map<int, PROCESS_INFO_S> take(Head& head) {
  std::map<int, PROCESS_INFO_S> entries;
  for_each_node(&head.list, [&](list_head* node) {
    const auto* const entry = reinterpret_cast<PROCESS_INFO_S*>(node);
    EXPECT_EQ(node->next->prev, node);
    EXPECT_EQ(node->prev->next, node);
    EXPECT_FALSE(entry->used);
    EXPECT_TRUE(entries.emplace(entry->pid, *entry).second) << "twice: " << entry->pid;
  });
  FreeAllProcessList(&head.list);
  EXPECT_EQ(head.list.next, &head.list);
  EXPECT_EQ(head.list.prev, &head.list);
  return entries;
}

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
  // user nice system idle iowait irq softirq, and two that no total counts.
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
  std::function<void()> meanwhile_;  // what happens within the minute
  std::vector<std::string> trace_;   // what was opened, and the sleep
  int user_percent_ = -7;
};

TEST_F(Snapshot, CpuIsPercentOfOneCoreCutToWholeOnes) {
  pass_1400_ticks();
  put_named(10, "two-cores", 5000);
  put_named(11, "not-quite", 5000);
  put_named(12, "idle", 5000);
  put_named(13, "younger", 5000);     // its count goes backwards
  put_named(14, "impossible", 5000);  // more than an int can tell
  meanwhile_ = [passed = meanwhile_] {
    passed();
    put_ticks(10, 5200, 200);
    put_ticks(11, 5399, 0);
    put_ticks(13, 4999, 0);
    put_ticks(14, 1ULL << 62, 0);
  };
  std::map<int, int> percents;
  for (const auto& [pid, entry] : list_cpu()) percents[pid] = entry.corecpu;
  EXPECT_EQ(percents, (std::map<int, int>{{10, 200}, {11, 199}, {12, 0}, {13, 0}, {14, INT_MAX}}));
}

TEST_F(Snapshot, OnlyWhoLivesThroughTheMinuteUnderOneNameIsListed) {
  pass_1400_ticks();
  put_named(10, "lives", 0);
  put_named(20, "ends", 0);
  put_named(30, "renames", 0);
  put_named(40, "empties", 0);
  put_named(41, "kernel", 0);
  put_cmdline(41, {});
  put_named(42, "nameless", 0);
  put("42/status", "State:\tS\n");
  put_named(43, "no-status", 0);
  remove("43/status");
  put("4x/cmdline", "not a process");
  put("44", "not a directory");
  meanwhile_ = [passed = meanwhile_] {
    passed();
    put_named(10, "lives", 70, 4096);
    put_cmdline(10, {"another", "line"});
    remove("20");
    put_named(30, "renamed", 70);
    put_cmdline(40, {});
    put_named(50, "starts", 0);
  };
  const auto entries = list_cpu();
  ASSERT_EQ(entries.size(), 1U);
  // All but the CPU usage is as it was in the first pass.
  const PROCESS_INFO_S& entry = entries.at(10);
  EXPECT_EQ(entry.corecpu, 35);
  EXPECT_EQ(entry.rss, 1);
  EXPECT_STREQ(entry.name, "lives");
  EXPECT_STREQ(entry.cmdline, "lives -x");
}

TEST_F(Snapshot, UserPercentIsOfSevenCountersAndLeavesNiceOut) {
  struct Row {
    const char* before;
    const char* after;
    int percent;
    size_t listed;
  };
  const Row rows[] = {
      {"1000 10 100 2000 5 5 5", "1311 199 200 2400 155 35 25", 25, 1},  // 31100 / 1200
      {"1000 0 0 0 0 0 0", "1000 0 0 0 0 0 1", 0, 0},  // no tick that a process could have had
      {"1000 0 0 0 500 0 0", "1100 0 0 0 450 0 0", 200, 1},  // iowait was corrected
      {"1000 0 0 5000 0 0 0", "900 0 0 6000 0 0 0", 0, 1},   // user went backwards
      {"1000 0 0 5000 0 0 0", "1100 0 0 4000 0 0 0", 0, 0},  // all of it did
  };
  put_named(10, "x", 5);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.after);
    put_machine(row.before);
    meanwhile_ = [&row] { put_machine(row.after); };
    EXPECT_EQ(list_cpu().size(), row.listed);
    EXPECT_EQ(user_percent_, row.percent);
  }
}

TEST_F(Snapshot, ProcessIsReadInsideTheMachinesInterval) {
  pass_1400_ticks();
  put_named(10, "x", 0);
  trace_.clear();
  list_cpu();
  std::vector<std::string> ticks;
  for (const std::string& path : trace_) {
    if (path == "sleep 60" || path.substr(path.size() - 5) == "/stat") ticks.push_back(path);
  }
  EXPECT_EQ(ticks,
            (std::vector<std::string>{"/proc/stat", "/proc/stat", "/proc/10/stat", "sleep 60",
                                      "/proc/stat", "/proc/10/stat", "/proc/stat"}));
}

TEST_F(Snapshot, MemoryListingReadsTwoFilesOfAProcessOnce) {
  put_named(10, "app_data", 0, 3 * 1024 + 1023);
  trace_.clear();
  Head head;
  ASSERT_EQ(GetAllProcessRssMem(&head.list), 0);
  EXPECT_EQ(trace_, (std::vector<std::string>{"/proc/10/cmdline", "/proc/10/status"}));
  const auto entries = take(head);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries.at(10).rss, 3);
  EXPECT_EQ(entries.at(10).corecpu, 0);
  EXPECT_STREQ(entries.at(10).name, "app_data");
}

TEST_F(Snapshot, LongTextsAreCutAndNobodyIsNoFailure) {
  Head head;
  ASSERT_EQ(GetAllProcessRssMem(&head.list), 0);
  EXPECT_TRUE(take(head).empty());

  pass_1400_ticks();
  put_named(10, std::string(40, 'n'), 0);
  put_cmdline(10, {std::string(700, 'a'), std::string(700, 'b')});
  put_named(11, "VmRSS:", 0, 1024);  // the key stands in the first line: no number there
  head = Head();
  ASSERT_EQ(GetAllProcessRssMem(&head.list), 0);
  for (const auto& entries : {take(head), list_cpu()}) {
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries.at(10).name, std::string(31, 'n'));
    EXPECT_EQ(entries.at(10).cmdline, std::string(700, 'a') + ' ' + std::string(321, 'b'));
    EXPECT_EQ(entries.at(11).rss, 0);
  }
}

TEST_F(Snapshot, FailureLeavesTheHeadAsItWas) {
  int walks_left = 0;
  hooks_->opendir_fails = [&walks_left](const char*) { return walks_left-- == 0; };
  const auto fails = [this](const char* what) {
    Head head;
    EXPECT_EQ(GetAllProcessCoreCPU(&head.list, &user_percent_), -1) << what;
    EXPECT_TRUE(head.is_untouched()) << what;
    EXPECT_EQ(user_percent_, -7) << what;
  };
  walks_left = 2;
  fails("no ticks before");
  pass_1400_ticks();
  put_named(10, "x", 0);
  walks_left = 0;
  fails("no first walk");
  walks_left = 1;
  fails("no second walk");
  walks_left = 2;
  meanwhile_ = [] { remove("stat"); };
  fails("no ticks after");
  walks_left = 2;
  put_machine("1000 0 0 9000 0 0 0");
  meanwhile_ = nullptr;
  fails("a clock that stands still");

  walks_left = 0;
  Head head;
  EXPECT_EQ(GetAllProcessRssMem(&head.list), -1);
  EXPECT_TRUE(head.is_untouched());
}

TEST_F(Snapshot, WalkHandsEveryProcessOn) {
  make_dir("10");
  make_dir("7");
  make_dir("self");
  make_dir("8a");
  put("9", "");
  const auto visit = [](const char* path, int pid, void* context, bool first) {
    EXPECT_TRUE(first);
    static_cast<std::map<std::string, int>*>(context)->emplace(path, pid);
  };
  std::map<std::string, int> visited;
  EXPECT_EQ(ForeachProcDir(visit, &visited, true), 0);
  EXPECT_EQ(visited, (std::map<std::string, int>{{"/proc/10", 10}, {"/proc/7", 7}}));
  hooks_->opendir_fails = [](const char*) { return true; };
  EXPECT_EQ(ForeachProcDir(visit, &visited, true), -1);
}

TEST(Digits, CountAsFarAsAsked) {
  char digits[] = "123", mixed[] = "12a", around[] = "/:";
  EXPECT_TRUE(isDigit(digits, 3));
  EXPECT_FALSE(isDigit(mixed, 3));
  EXPECT_TRUE(isDigit(mixed, 2));
  EXPECT_TRUE(isDigit(mixed, 0));
  EXPECT_FALSE(isDigit(around, 1));
  EXPECT_FALSE(isDigit(around + 1, 1));
  EXPECT_FALSE(isDigit(nullptr, 0));
}

TEST(List, RemovedNodePointsNowhere) {
  list_head head, a, b, c;
  kelv_list_init(&head);
  for (list_head* node : {&a, &b, &c}) kelv_list_add_tail(node, &head);
  kelv_list_del(&b);
  EXPECT_EQ(a.next, &c);
  EXPECT_EQ(c.prev, &a);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(b.next), 0x00100100U);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(b.prev), 0x00200200U);
  kelv_list_init(&head);
  FreeAllProcessList(&head);
  EXPECT_EQ(head.next, &head);
}

TEST(Pairing, IsThatOfASearchFromTheFront) {
  std::mt19937 random(20);
  const auto below = [&random](unsigned int bound) {
    return static_cast<unsigned int>(random() % bound);
  };
  // Up to 60 samples that have few PIDs and names among them.
  const auto fill = [&below](std::vector<PROCESS_BASICDATA_S>& samples, list_head& head) {
    kelv_list_init(&head);
    samples.resize(below(60));
    for (PROCESS_BASICDATA_S& sample : samples) {
      sample.pid = static_cast<pid_t>(below(6));
      sample.syscputime = 900 + below(1000);
      sample.procputime = below(1000);
      memset(sample.name, 'n', below(3));
      kelv_list_add_tail(&sample.stEntry, &head);
    }
  };
  for (int round = 0; round < 200; ++round) {
    std::vector<PROCESS_BASICDATA_S> first, second;
    list_head first_head, second_head;
    fill(first, first_head);
    fill(second, second_head);
    std::vector<std::pair<pid_t, int>> expected, found;
    for (PROCESS_BASICDATA_S& before : first) {
      list_head* const node =
          SearchList(&second_head, ProcBasicDataCmpMatchPidName, &before.stEntry);
      if (node == nullptr || sample_of(node)->syscputime <= before.syscputime) continue;
      const PROCESS_BASICDATA_S& after = *sample_of(node);
      const double ticks =
          static_cast<double>(after.procputime) - static_cast<double>(before.procputime);
      const double ratio =
          100.0 * ticks / static_cast<double>(after.syscputime - before.syscputime);
      expected.emplace_back(before.pid, std::max(0, static_cast<int>(kCores * ratio)));
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

// Real processes.

struct PsLine {
  int rss_kb = 0;
  std::string arguments;
};

std::map<int, PsLine> run_ps() {
  std::map<int, PsLine> lines;
  FILE* const ps = popen("ps -ww -eo pid=,rss=,args=", "r");
  int pid = 0, rss_kb = 0;
  char arguments[4096];
  while (ps && fscanf(ps, "%d %d %4095[^\n]%*[^\n]", &pid, &rss_kb, arguments) >= 3) {
    lines[pid] = {rss_kb, arguments};
  }
  if (ps) pclose(ps);
  return lines;
}

TEST(RealProcesses, AreListedAsPsShowsThem) {
  const Child child({"mirt-listed", "-u"});
  const auto before = run_ps();
  Head head;
  ASSERT_EQ(GetAllProcessRssMem(&head.list), 0);
  auto entries = take(head);
  const auto after = run_ps();
  ASSERT_EQ(entries.count(child.pid()), 1U);
  EXPECT_STREQ(entries[child.pid()].cmdline, "mirt-listed -u");
  EXPECT_STREQ(entries[child.pid()].name, "cat");
  for (const auto& [pid, line] : before) {
    const auto still = after.find(pid);
    // In brackets: kernel threads and zombies, which have no command line.
    if (still == after.end() || still->second.arguments != line.arguments ||
        line.arguments[0] == '[') {
      continue;
    }
    ASSERT_EQ(entries.count(pid), 1U) << pid << ' ' << line.arguments;
    // As far as both show the same: from the first control character on ps has its own way.
    const std::string ours = entries[pid].cmdline;
    const auto plain =
        static_cast<size_t>(std::find_if(ours.begin(), ours.end(), iscntrl) - ours.begin());
    EXPECT_EQ(line.arguments.substr(0, plain), ours.substr(0, plain)) << pid;
    if (still->second.rss_kb == line.rss_kb) {
      EXPECT_EQ(entries[pid].rss, line.rss_kb / 1024) << pid;
    }
  }
}

TEST(RealProcesses, AreKilledUnderTheirNameOnly) {
  Child child({"mirt-victim"});
  {
    ScopedHooks hooks;
    hooks->popen = [] {
      ADD_FAILURE() << "a command was started";
      return nullptr;
    };
    EXPECT_EQ(KillProcess("dog", child.pid()), -2);
    EXPECT_EQ(KillProcess("ca", child.pid()), -2);
  }
  EXPECT_EQ(CheckProcessExist("cat", child.pid()), 0);
  ScopedHooks hooks;
  hooks->popen = [] { return nullptr; };
  EXPECT_EQ(KillProcess("cat", child.pid()), 0) << "no shell is no failure";
  hooks->popen = nullptr;
  ASSERT_EQ(KillProcess("catalogue", child.pid()), 0);
  siginfo_t end{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child.pid()), &end, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(end.si_status, SIGKILL);
  const pid_t pid = child.pid();
  child.end();
  EXPECT_EQ(CheckProcessExist("cat", pid), -1);
  EXPECT_EQ(KillProcess("cat", pid), -1);
}

// Look-ups.

class Lookup : public ProcFixture {
 protected:
  void SetUp() override {
    ProcFixture::SetUp();
    for (int pid : {11, 12, 13, 14, 15}) put_cmdline(pid, {"app", std::to_string(pid)});
    put_cmdline(16, {"another"});
    put("16/status", "Name:\tapp_data\n");
  }
};

TEST_F(Lookup, NameTestAsksForTheShortNameInFront) {
  EXPECT_EQ(CheckProcessExist("app_data", 16), 0);
  EXPECT_EQ(CheckProcessExist("app_data_server", 16), 0);
  EXPECT_EQ(CheckProcessExist("app", 16), -2);
  EXPECT_EQ(CheckProcessExist("another", 16), -2);
  EXPECT_EQ(CheckProcessExist("app_data", 99), -1);
}

TEST_F(Lookup, ExactNameGivesOnePidOrZero) {
  pid_t pid = 15;
  EXPECT_EQ(GetProcessPid("app 12", &pid), 0);
  EXPECT_EQ(pid, 12);
  EXPECT_EQ(GetProcessPid("app", &pid), 0);
  EXPECT_EQ(pid, 0);
  pid = 15;
  EXPECT_EQ(GetProcessPid(nullptr, &pid), -1);
  EXPECT_EQ(GetProcessPid("app 12", nullptr), -1);
  EXPECT_EQ(pid, 15);
}

TEST_F(Lookup, SearchesFillWhatTheyAreGiven) {
  const std::vector<int> order = in_listing_order({11, 12, 13, 14, 15});
  struct Row {
    decltype(&GetProcessPidFuzzy) search;
    const char* name;
    const char* nobody;
  };
  for (const Row& row :
       {Row{GetProcessPidExtern, "app", "pp"}, {GetProcessPidFuzzy, "*p ?*", "x"}}) {
    SCOPED_TRACE(row.name);
    pid_t pids[6] = {-1, -1, -1, -1, -1, -1};
    unsigned int used = 77;
    EXPECT_EQ(row.search(nullptr, pids, 6, &used), -1);
    EXPECT_EQ(row.search(row.name, nullptr, 6, &used), -1);
    EXPECT_EQ(row.search(row.name, pids, 6, nullptr), -1);
    EXPECT_EQ(row.search(row.name, pids, 0, &used), -1);
    EXPECT_EQ(used, 77U);
    EXPECT_EQ(row.search(row.name, pids, 2, &used), 0);
    EXPECT_EQ(used, 2U);
    EXPECT_EQ(std::vector<int>(pids, pids + 3), (std::vector<int>{order[0], order[1], -1}));
    EXPECT_EQ(row.search(row.name, pids, 6, &used), 0);
    EXPECT_EQ(used, 5U);
    EXPECT_EQ(std::vector<int>(pids, pids + 5), order);
    EXPECT_EQ(row.search(row.nobody, pids, 6, &used), 0);
    EXPECT_EQ(used, 0U);
    used = 77;
    ScopedHooks hooks;
    hooks->opendir_fails = [](const char*) { return true; };
    EXPECT_EQ(row.search(row.name, pids, 6, &used), 0);
    EXPECT_EQ(used, 0U);
  }
}

}  // namespace
