// Detection and recovery with simulated processes: log, actions and results, call by call.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <sstream>
#include <thread>

#include "fake_threads.h"
#include "kelv_process.h"
#include "mirt_host.h"
#include "mirt_items.h"
#include "rate_limiter.h"
#include "recorded_system.h"

namespace {

// The log and actions of one call for one thread.
std::string reported(int pid, int tid, int times, unsigned long vcsw = 5, unsigned long nvcsw = 1) {
  char text[512];
  snprintf(text, sizeof text,
           "Pid %d Tid %d is D status. Detected times %d.First detected vcsw is %lu, nvcsw is %lu."
           "Now detected vcsw is %lu, nvcsw is %lu.",
           pid, tid, times, vcsw, nvcsw, vcsw, nvcsw);
  return std::string("error print_proc_status_info: ") + text + "\npopen r echo '" + text +
         "' > /dev/kmsg 2>&1;echo CallTrace > /dev/kmsg 2>&1;cat /proc/" + std::to_string(tid) +
         "/stack > /dev/kmsg 2>&1\n";
}

class HungThreads : public ProcFixture {
 protected:
  // A process that the pattern of call_ finds, with a thread pid + 1 in D state.
  static void put_app(int pid) {
    put_cmdline(pid, {"app", std::to_string(pid)});
    put_thread(pid, pid + 1);
  }
  // Makes so many calls and drops their traces.
  void age(int times) {
    for (int call = 0; call < times; ++call) call_.run(CheckProcessStatusIsD);
    system_.take();
  }
  thread_info_t& entry(size_t index) { return call_.table()->thread_info[index]; }

  RecordedSystem system_;
  HungCall call_{"app *"};
};

TEST_F(HungThreads, SilentSevenTimesReportedFromTheEighthHungFromTheEleventh) {
  constexpr int kPid = 2147483646, kTid = 2147483647;
  constexpr unsigned long kMost = 18446744073709551615UL;
  put_app(kPid);
  put_thread(kPid, kTid, kMost, kMost);
  for (int times = 1; times <= 12; ++times) {
    EXPECT_EQ(call_.run(CheckProcessStatusIsD), times > 10 ? 1.0F : 0.0F) << times;
    EXPECT_EQ(call_.result.pid, times > 10 ? kTid : 0) << times;
    EXPECT_EQ(call_.result.result, 0);
    EXPECT_EQ(system_.take(), times > 7 ? reported(kPid, kTid, times, kMost, kMost) : "");
  }
  put_thread(kPid, kTid, kMost, kMost, 'S');  // one sample outside D state ends it
  EXPECT_EQ(call_.run(CheckProcessStatusIsD), 0.0F);
  EXPECT_EQ(call_.table()->thread_info_unused, 0U);
}

TEST_F(HungThreads, ACounterThatMovesWithinACallIsNoDetection) {
  put_app(100);
  age(10);
  // Runs after the clean-up has read the thread and before the detection reads it.
  system_.pid_status = [](int) {
    put_thread(100, 101, 6);
    return -1;  // a process with unknown state is examined
  };
  EXPECT_EQ(call_.run(CheckProcessStatusIsDForAppData), 0.0F);
  EXPECT_EQ(system_.take(), "");
  EXPECT_EQ(entry(0).times, 10);
  age(1);
  EXPECT_EQ(entry(0).times, 1) << "counted anew";
}

TEST_F(HungThreads, TheFirstOfTheFirstProcessIsTheVerdictAndAllAreLogged) {
  for (const int pid : {200, 100, 300}) {
    put_app(pid);
    put_thread(pid, pid + 2);
  }
  put_cmdline(50, {"app", "50"});  // it ends before its threads are listed
  age(10);
  std::string expected;
  std::vector<int> tids;
  const std::vector<int> pids = in_listing_order({100, 200, 300});
  for (const int pid : pids) {
    const std::string threads = "/proc/" + std::to_string(pid) + "/task";
    for (const auto& thread : std::filesystem::directory_iterator(threads)) {
      tids.push_back(std::stoi(thread.path().filename()));
      expected += reported(pid, tids.back(), 11);
    }
  }
  EXPECT_EQ(call_.run(CheckProcessStatusIsD), 1.0F);
  EXPECT_EQ(call_.result.pid, tids[0]);
  EXPECT_EQ(system_.take(), expected);

  // A full table ends the search in one process, but not in the next one.
  for (int tid = 1000; tid < 1300; ++tid) put_thread(pids[0], tid);
  age(1);
  EXPECT_EQ(call_.table()->thread_info_unused, kMaxThreadInfos);
  for (const size_t other : {2U, 3U, 4U, 5U}) EXPECT_EQ(entry(other).times, 12);
}

TEST_F(HungThreads, DyingProcessesArePassedOverAndSaidSoOnceInAWhile) {
  put_app(100);
  static uint64_t now = 0;
  now += 1000000;  // long after the last message of the process-wide limiter
  system_.jiffies = [] { return now; };
  system_.pid_status = [](int) { return KELV_PROCESS_STATUS_COREDUMP; };
  const std::string who = "check_process_status_is_D_Fuzzy";
  const std::string left_out = "info " + who + ": print: 1 messages suppressed." + who + ",line=\n";
  const std::string dying =
      "event " + who +
      ": Process 'app *' receive a fatal signal and stop the process D status check, pid=100.\n";
  for (const std::string& said : {dying, std::string(), left_out + dying}) {
    EXPECT_EQ(call_.run(CheckProcessStatusIsDForAppData), 0.0F);
    EXPECT_EQ(system_.take(), said);
    now += said.empty() ? 150000 : 1;
  }
  EXPECT_EQ(call_.table()->thread_info_unused, 0U) << "nothing was looked at";
  EXPECT_EQ(call_.run(CheckProcessStatusIsD), 0.0F);
  EXPECT_EQ(system_.take(), "");
  EXPECT_EQ(entry(0).times, 1) << "the plain item examines dying processes";
}

// The result at each tick: "+" printed, "-" suppressed, "+3" printed after a count of three
// suppressed messages.
TEST(LimiterTest, PrintsOnceAnIntervalAndCountsTheRest) {
  RecordedSystem system;
  for (const std::string asks : {
           "20000+ 20001- 34999- 35000+ 49999- 150000+3 150001- 165000+ 299999+ 300000- 315000+2 ",
           "10+ 15009- 15010+ 15011- ",  // just started
           "0+ 0- 5- 15000+ ",
           // The counter wraps; the interval of the summaries is compared without regard to a wrap.
           "9223372036854775808+ 9223372036854775809- 18446744073709551516+1 "
           "18446744073709551615- 14899- 14900+ 149899+ 164899+2 ",
       }) {
    RateLimiter limiter;
    std::istringstream words(asks);
    for (std::string word; words >> word;) {
      system.jiffies = [&word] { return std::stoull(word); };
      const RateLimiter::Verdict said = limiter.ask();
      const std::string missed = said.missed != 0 ? std::to_string(said.missed) : "";
      EXPECT_EQ(word.substr(word.find_first_of("+-")), (said.print ? '+' : '-') + missed) << asks;
    }
  }
}

TEST(LimiterTest, OfTwoThreadsThatAskAtOnceOnePrints) {
  RecordedSystem system;
  system.jiffies = [] { return 20000; };
  std::vector<RateLimiter> limiters(100000);
  std::vector<std::atomic<int>> prints(limiters.size()), here(limiters.size());
  Threads(2, [&](size_t) {
    for (size_t i = 0; i < limiters.size(); ++i) {
      // They meet at each limiter. On a busy machine the other may not be running: go on then.
      ++here[i];
      for (int spins = 0; here[i] < 2 && spins < 10000; ++spins) continue;
      prints[i] += limiters[i].ask().print ? 1 : 0;
    }
  }).join();
  EXPECT_EQ(std::count(prints.begin(), prints.end(), 1), 100000);
}

TEST_F(HungThreads, ItemsOnTwoThreadsShareNothing) {
  put_app(100);
  std::atomic<int> hung{0};
  Threads(2, [&hung](size_t number) {
    HungCall call("app *");
    const Item item = number == 0 ? CheckProcessStatusIsD : CheckProcessStatusIsDForAppData;
    for (int times = 1; times <= 30; ++times) hung += static_cast<int>(call.run(item));
  }).join();
  EXPECT_EQ(hung, 40);
}

// Recovery.

TEST_F(HungThreads, ARecoveryAsksCollectsWaitsSignalsAndSaysSo) {
  put_app(100);
  mirt_host_set_local_nid(0x1230);
  // Every byte: nodes and modules, code, length, time limit, no retry; payload; an empty answer.
  const std::string request =
      "request 3012a7013012a6010c000070040000001e00000000000000 00000000 " + std::string(32, '0');
  const std::string said_before = reported(100, 101, 11) + request;
  using Row = std::pair<RecordedSystem::Answers, std::string>;
  for (const auto& [answers, done] : {
           Row{{1, 0, 0, 0}, R"(
event MIRT_GetDStatusCheckRedundancy: MIRT check redundancy status(1) for app_data Dstatus.
warning process_print_stack: Sys collect stack is start.
exec /QAV/script/os_lookup_stack.sh > /dev/kmsg 2>&1 &
sleep 100
warning process_print_stack: Sys collect stack is end.
sigqueue 101 SIGUSR1 101
event CheckProcessStatusIsDForAppData: Send SIGUSR1 to app_data thread 101 success.
)"},
           Row{{1, 0, 1, -1}, R"(
event MIRT_GetDStatusCheckRedundancy: MIRT check redundancy status(1) for app_data Dstatus.
warning process_print_stack: Sys collect stack is start.
exec /QAV/script/os_lookup_stack.sh > /dev/kmsg 2>&1 &
error process_print_stack: Heal execute collect diagnose script fail.
sigqueue 101 SIGUSR1 101
warning CheckProcessStatusIsDForAppData: Send SIGUSR1 to app_data thread 101 failed.
)"},
           Row{{255, 0, 0, 0}, R"(
event MIRT_GetDStatusCheckRedundancy: MIRT check redundancy status(255) for app_data Dstatus.
error CheckProcessStatusIsDForAppData: Exec MIRT_GetDStatusCheckRedundancy rst(0), redundancyStatus(255).
)"},
           Row{{-1, 0, 0, 0}, R"(
error MIRT_GetDStatusCheckRedundancy: Get return data is null.
error CheckProcessStatusIsDForAppData: Exec MIRT_GetDStatusCheckRedundancy rst(1), redundancyStatus(0).
)"},
           Row{{1, -7, 0, 0}, R"(
error MIRT_GetDStatusCheckRedundancy: Send msg failed, return value(-7).
error CheckProcessStatusIsDForAppData: Exec MIRT_GetDStatusCheckRedundancy rst(1), redundancyStatus(0).
)"},
       }) {
    const bool signalled = done.find("sigqueue") != done.npos;
    system_.answers = answers;
    age(1);
    entry(0).times = 10;
    EXPECT_EQ(call_.run(CheckProcessStatusIsDForAppData), signalled ? 1.0F : 0.0F);
    EXPECT_EQ(call_.result.pid, 101);
    EXPECT_EQ(system_.take(), said_before + done);
  }
}

TEST_F(HungThreads, RebootSignalsTheGivenOrTheFoundProcess) {
  const FI_PARAM_S given = parameter("UserData", "321");
  const std::string running = "/QAV/bin/./app_data", count = "Input parameter number error.";
  struct Row {
    std::vector<FI_PARAM_S> argv;
    std::string program, reason, done;
    RecordedSystem::Answers answers = {};
    int returned = 0, result = 0;
  };
  for (const Row& row : {
           Row{{given}, running, "as it was", "sigqueue 321 SIGUSR1 321\n", {1, 0, 0, -1}, 1},
           Row{{given}, running, "as it was", "", {2}, -1, 77},
           Row{{}, running, count, "sigqueue 640 SIGUSR1 640\n"},
           Row{{}, "/QAV/bin/app_data", count, "", {}, -1, -1},
       }) {
    put_cmdline(640, {row.program, "12", "--more"});
    system_.answers = row.answers;
    ItemCall call(row.argv);
    const int argc = static_cast<int>(row.argv.size());
    EXPECT_EQ(RebootAppData(argc, call.argv.data(), nullptr, &call.result), row.returned);
    EXPECT_EQ(call.result.result, row.result);
    EXPECT_EQ(call.result.reason, row.reason);
    const std::string trace = system_.take();
    EXPECT_EQ(trace.substr(std::min(trace.find("sigqueue"), trace.size())), row.done);
  }
}

}  // namespace
