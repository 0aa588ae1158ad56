// Detection and recovery on made-up processes: what is said, done and returned, call by call.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <sstream>
#include <thread>
#include <vector>

#include "common_plugin.h"
#include "fake_threads.h"
#include "kelv_process.h"
#include "mirt_items.h"
#include "proc_fixture.h"
#include "rate_limiter.h"
#include "recorded_system.h"

namespace {

std::string report(int pid, int tid, int times, unsigned long voluntary,
                   unsigned long nonvoluntary) {
  const std::string counts = "detected vcsw is " + std::to_string(voluntary) + ", nvcsw is " +
                             std::to_string(nonvoluntary) + ".";
  return "Pid " + std::to_string(pid) + " Tid " + std::to_string(tid) +
         " is D status. Detected times " + std::to_string(times) + ".First " + counts + "Now " +
         counts;
}

// What one call says and does about one thread.
Trace reported(const std::string& text, int tid) {
  return {logged("error", "print_proc_status_info", text),
          "popen r echo '" + text +
              "' > /dev/kmsg 2>&1;echo CallTrace > /dev/kmsg 2>&1;cat /proc/" +
              std::to_string(tid) + "/stack > /dev/kmsg 2>&1",
          "pclose"};
}

Trace operator+(Trace left, const Trace& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Trace operator+(Trace left, const std::string& right) {
  left.push_back(right);
  return left;
}

std::vector<int> in_task_order(int pid) {
  std::vector<int> tids;
  for (const auto& entry :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    tids.push_back(atoi(entry.path().filename().c_str()));
  }
  return tids;
}

class HungThreads : public ProcFixture {
 protected:
  // The process that its threads belong to, found by the pattern of call_.
  static void put_app(int pid) { put_cmdline(pid, {"app", std::to_string(pid)}); }
  // Calls until the thread has been detected so often; the calls' traces are dropped.
  void age_to(int times) {
    for (int call = 0; call < times; ++call) call_.run(CheckProcessStatusIsD);
    system_.take();
  }
  int times_of(int pid, int tid) {
    const thread_info_t* const entry =
        MIRT_Linux_Plugin().find_thread_info(call_.table(), pid, tid);
    return entry != nullptr ? entry->times : 0;
  }

  RecordedSystem system_;
  HungCall call_{"app *"};
};

TEST_F(HungThreads, SilentSevenTimesReportedFromTheEighthHungFromTheEleventh) {
  put_app(100);
  put_thread(100, 100, 9, 9, 'S');
  put_thread(100, 101, 5, 1);
  put_thread(100, 102, 5, 1, 'R');
  make_dir("100/task/none");      // no thread
  put("100/task/103", "a file");  // nor this
  system_.process_status = [](pid_t, int*) {
    ADD_FAILURE() << "only the data-plane item asks for fatal signals";
    return -1;
  };
  for (int times = 1; times <= 12; ++times) {
    const bool hung = times > 10;
    EXPECT_EQ(call_.run(CheckProcessStatusIsD), hung ? 1.0F : 0.0F) << times;
    EXPECT_EQ(call_.result.pid, hung ? 101 : 0) << times;
    EXPECT_EQ(call_.result.result, 0);
    EXPECT_EQ(system_.take(), times > 7 ? reported(report(100, 101, times, 5, 1), 101) : Trace{});
    EXPECT_EQ(times_of(100, 101), times);
  }
  EXPECT_STREQ(call_.result.reason, "as it was");
  EXPECT_EQ(call_.result.hangflowid, 99U);
  EXPECT_EQ(call_.context.steppointer, 4321);
  EXPECT_EQ(call_.table()->thread_info_unused, 1U);

  put_thread(100, 101, 5, 1, 'S');  // one sample outside D state ends it
  EXPECT_EQ(call_.run(CheckProcessStatusIsD), 0.0F);
  EXPECT_EQ(call_.result.pid, 0);
  EXPECT_EQ(call_.table()->thread_info_unused, 0U);
  put_thread(100, 101, 5, 1);
  call_.run(CheckProcessStatusIsD);
  EXPECT_EQ(times_of(100, 101), 1);
}

TEST_F(HungThreads, TheLargestNumbersAreNotCut) {
  constexpr int kLargest = 2147483647;
  constexpr unsigned long kMost = 18446744073709551615UL;
  put_app(kLargest);
  put_thread(kLargest, kLargest, kMost, kMost);
  age_to(1);
  call_.table()->thread_info[0].times = kLargest - 1;
  EXPECT_EQ(call_.run(CheckProcessStatusIsD), 1.0F);
  EXPECT_EQ(system_.take(), reported(report(kLargest, kLargest, kLargest, kMost, kMost), kLargest));
}

TEST_F(HungThreads, ACounterThatMovesBetweenCallsStartsTheCountAgain) {
  put_app(100);
  put_thread(100, 101, 5, 1);
  put_thread(100, 102, 5, 1);
  age_to(4);
  put_thread(100, 101, 6, 1);
  put_thread(100, 102, 5, 2);
  age_to(1);
  for (const int tid : {101, 102}) {
    const thread_info_t* const entry =
        MIRT_Linux_Plugin().find_thread_info(call_.table(), 100, tid);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->times, 1);
    EXPECT_EQ(entry->first_voluntary_ctxt_switches, tid == 101 ? 6U : 5U);
    EXPECT_EQ(entry->first_nonvoluntary_ctxt_switches, tid == 101 ? 1U : 2U);
  }
  EXPECT_EQ(call_.table()->thread_info_unused, 2U);
}

TEST_F(HungThreads, ACounterThatMovesWithinACallIsNoDetection) {
  put_app(100);
  put_thread(100, 101, 5, 1);
  age_to(10);
  // Asked after the clean-up has read the thread and before the detection does.
  system_.process_status = [](pid_t, int*) {
    put_thread(100, 101, 6, 1);
    return -1;  // and a process whose state cannot be told is looked at
  };
  EXPECT_EQ(call_.run(CheckProcessStatusIsDForAppData), 0.0F);
  EXPECT_EQ(system_.take(), Trace{});
  const thread_info_t moved = call_.table()->thread_info[0];
  EXPECT_EQ(moved.times, 10);
  EXPECT_EQ(moved.first_voluntary_ctxt_switches, 5U);
  EXPECT_EQ(moved.current_voluntary_ctxt_switches, 6U);
  age_to(1);
  EXPECT_EQ(times_of(100, 101), 1);
}

TEST_F(HungThreads, TheFirstOfTheFirstProcessIsTheVerdictAndAllAreLogged) {
  for (const int pid : {200, 100, 300}) {
    put_app(pid);
    for (const int tid : {pid + 2, pid + 1}) put_thread(pid, tid, 5, 1);
  }
  put_app(50);  // it has gone before its threads are listed
  age_to(10);
  Trace expected;
  for (const int pid : in_listing_order({100, 200, 300})) {
    for (const int tid : in_task_order(pid)) {
      expected = expected + reported(report(pid, tid, 11, 5, 1), tid);
    }
  }
  EXPECT_EQ(call_.run(CheckProcessStatusIsD), 1.0F);
  EXPECT_EQ(call_.result.pid, in_task_order(in_listing_order({100, 200, 300})[0])[0]);
  EXPECT_EQ(system_.take(), expected);
  EXPECT_EQ(expected.size(), 18U);
}

TEST_F(HungThreads, AFullTableStopsTheWalkOfOneProcessAndNotOfTheNext) {
  const int first = 100, next = 5000;
  for (const int pid : {first, next}) put_app(pid);
  const std::vector<int> order = in_listing_order({first, next});
  put_thread(order[1], 9000, 5, 1);
  for (int tid = 1; tid <= 300; ++tid) put_thread(order[0], tid, 5, 1, 'S');
  const std::vector<int> tids = in_task_order(order[0]);
  put_thread(order[0], tids.back(), 5, 1);
  age_to(1);
  ASSERT_EQ(call_.table()->thread_info_unused, 2U);

  for (const int tid : tids) put_thread(order[0], tid, 5, 1);
  ASSERT_EQ(in_task_order(order[0]), tids);
  age_to(1);
  EXPECT_EQ(call_.table()->thread_info_unused, kMaxThreadInfos);
  EXPECT_EQ(times_of(order[0], tids[253]), 1);
  EXPECT_EQ(times_of(order[0], tids[254]), 0) << "no room";
  EXPECT_EQ(times_of(order[0], tids.back()), 1) << "behind it: not aged";
  EXPECT_EQ(times_of(order[1], 9000), 2);
}

TEST_F(HungThreads, RefusedArgumentsTouchNoTable) {
  put_app(100);
  put_thread(100, 101, 5, 1);
  for (const Item item : {CheckProcessStatusIsD, CheckProcessStatusIsDForAppData}) {
    EXPECT_EQ(item(2, call_.argv.data(), &call_.context, &call_.result), 0.0F);
    EXPECT_STREQ(call_.result.reason, "Input parameter number error.");
    EXPECT_EQ(item(1, nullptr, &call_.context, &call_.result), 0.0F);
    EXPECT_STREQ(call_.result.reason, "Input parameter argv is NULL.");
    EXPECT_EQ(item(1, call_.argv.data(), nullptr, &call_.result), 0.0F);
    EXPECT_STREQ(call_.result.reason, "Input parameter context is NULL.");
    EXPECT_EQ(item(1, call_.argv.data(), &call_.context, nullptr), 0.0F);
  }
  EXPECT_EQ(call_.result.result, -1);
  EXPECT_EQ(call_.result.pid, -5);
  EXPECT_EQ(call_.table(), nullptr);
  EXPECT_EQ(system_.take(), Trace{});
}

// A time at which the limiter, one for the whole process, has long been quiet.
uint64_t quiet_jiffies() {
  static std::atomic<uint64_t> now{0};
  return now += 1000000;
}

int takes_fatal_signal(pid_t, int* status) {
  *status = KELV_PROCESS_STATUS_COREDUMP;
  return 0;
}

TEST_F(HungThreads, DyingProcessesArePassedOverAndSaidSoOnceInAWhile) {
  for (const int pid : {100, 200}) {
    put_app(pid);
    put_thread(pid, pid + 1, 5, 1);
  }
  uint64_t now = quiet_jiffies();
  system_.jiffies = [&now] { return now; };
  system_.process_status = takes_fatal_signal;
  const std::string function = "check_process_status_is_D_Fuzzy";
  const std::string dying =
      logged("event", function,
             "Process 'app *' receive a fatal signal and stop the process D status check, pid=" +
                 std::to_string(in_listing_order({100, 200})[0]) + ".");
  EXPECT_EQ(call_.run(CheckProcessStatusIsDForAppData), 0.0F);
  const Trace first = system_.take();
  ASSERT_FALSE(first.empty());
  EXPECT_EQ(first.back(), dying) << "the second process is left out";
  now += 14999;
  call_.run(CheckProcessStatusIsDForAppData);
  EXPECT_EQ(system_.take(), Trace{});
  now += 150000;
  call_.run(CheckProcessStatusIsDForAppData);
  EXPECT_EQ(
      system_.take(),
      (Trace{logged("info", function, "print: 3 messages suppressed." + function + ",line=OWN."),
             dying}));
  EXPECT_EQ(call_.table()->thread_info_unused, 0U) << "nothing was looked at";
}

// What becomes of the question at each tick: "+" printed, "-" not, "+3" printed after saying that
// three were left out.
TEST(LimiterTest, PrintsOnceAnIntervalAndCountsTheRest) {
  RecordedSystem system;
  for (const std::string asks : {
           "20000+ 20001- 34999- 35000+ 49999- 150000+3 150001- 165000+ 299999+ 300000- 315000+2",
           "10+ 15009- 15010+ 15011-",  // just started
           "0+ 0- 5- 15000+",
           // The counter wraps.
           "18446744073709551516+ 18446744073709551615- 14899- 14900+",
           // The summaries' distance is compared as it stands and may be longer across the wrap.
           "9223372036854775808+ 9223372036854775809- 18446744073709551516+1 "
           "18446744073709551615- 14900+ 149899+ 164899+1",
       }) {
    RateLimiter limiter;
    std::string answers, word;
    for (std::istringstream words(asks); words >> word;) {
      system.jiffies = [&word] { return std::stoull(word); };
      const RateLimiter::Verdict verdict = limiter.ask();
      answers += std::to_string(std::stoull(word)) + (verdict.print ? '+' : '-') +
                 (verdict.missed != 0 ? std::to_string(verdict.missed) : "") + ' ';
    }
    EXPECT_EQ(answers, asks + ' ');
  }
}

TEST(LimiterTest, OfThreadsThatAskAtOnceExactlyOnePrints) {
  constexpr int kThreads = 2, kRounds = 100000;
  RecordedSystem system;
  std::atomic<uint64_t> now{20000};
  system.jiffies = [&now] { return now.load(); };
  std::vector<RateLimiter> limiters(kRounds);
  std::vector<std::atomic<int>> prints(kRounds);
  std::atomic<int> arrived{0};
  const auto ask_all = [&] {
    for (size_t round = 0; round < kRounds; ++round) {
      ++arrived;
      for (int spins = 1; arrived < kThreads * static_cast<int>(round + 1); ++spins) {
        if (spins % 256 == 0) std::this_thread::yield();  // spinning lets both set out together
      }
      prints[round] += limiters[round].ask().print ? 1 : 0;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(ask_all);
  for (std::thread& thread : threads) thread.join();
  now = 500000;
  for (size_t round = 0; round < kRounds; ++round) {
    ASSERT_EQ(prints[round], 1) << round;
    ASSERT_EQ(limiters[round].ask().missed, kThreads - 1U) << round;
  }
}

TEST_F(HungThreads, ItemsOnSeveralThreadsShareNothingButTheLimiter) {
  put_app(100);
  put_thread(100, 101, 5, 1);
  put_cmdline(200, {"dying"});
  const uint64_t now = quiet_jiffies();
  system_.jiffies = [now] { return now; };
  system_.process_status = [](pid_t pid, int* status) {
    *status = pid == 200 ? KELV_PROCESS_STATUS_COREDUMP : KELV_PROCESS_STATUS_NORMAL;
    return 0;
  };
  std::atomic<int> hung{0};
  std::vector<std::thread> threads;
  for (const Item item :
       {CheckProcessStatusIsD, CheckProcessStatusIsDForAppData, CheckProcessStatusIsDForAppData}) {
    threads.emplace_back([item, &hung] {
      HungCall call("*");
      for (int times = 1; times <= 30; ++times) hung += static_cast<int>(call.run(item));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(hung, 60);
  const Trace trace = system_.take();
  EXPECT_EQ(std::count_if(trace.begin(), trace.end(),
                          [](const auto& call) { return call.find("fatal") != call.npos; }),
            1);
}

// Recovery.

const std::string kQuery = "MIRT_GetDStatusCheckRedundancy";
// Every byte: nodes and modules, code, length, time limit, no retry; then the payload.
const Trace kRequest{"nid", "nid",
                     "request 3012a7013012a6010c000070040000001e00000000000000 00000000"};
const Trace kStacks{logged("warning", "process_print_stack", "Sys collect stack is start."),
                    "exec /QAV/script/os_lookup_stack.sh > /dev/kmsg 2>&1 &", "sleep 100",
                    logged("warning", "process_print_stack", "Sys collect stack is end.")};

Trace answered(int byte) {
  return kRequest +
         logged(
             "event", kQuery,
             "MIRT check redundancy status(" + std::to_string(byte) + ") for app_data Dstatus.") +
         "free reply";
}

std::string refused_by(const std::string& item, int rst, int status) {
  return logged("error", item,
                "Exec MIRT_GetDStatusCheckRedundancy rst(" + std::to_string(rst) +
                    "), redundancyStatus(" + std::to_string(status) + ").");
}

TEST_F(HungThreads, ARecoveryAsksCollectsWaitsSignalsAndSaysSo) {
  const std::string item = "CheckProcessStatusIsDForAppData";
  put_app(100);
  put_thread(100, 101, 5, 1);
  // What the eleventh call does behind the detection, whatever becomes of the recovery.
  const auto eleventh = [&](float expected) {
    age_to(1);
    call_.table()->thread_info[0].times = 10;
    EXPECT_EQ(call_.run(CheckProcessStatusIsDForAppData), expected);
    EXPECT_EQ(call_.result.result, 0);
    EXPECT_EQ(call_.result.pid, 101);
    Trace trace = system_.take();
    EXPECT_GE(trace.size(), 3U);
    trace.erase(trace.begin(), trace.begin() + 3);
    return trace;
  };
  EXPECT_EQ(eleventh(1.0F),
            answered(1) + kStacks + "sigqueue 101 SIGUSR1 101" +
                logged("event", item, "Send SIGUSR1 to app_data thread 101 success."));
  system_.exec_result = 1;
  system_.signal_result = -1;
  EXPECT_EQ(
      eleventh(1.0F),
      answered(1) + kStacks[0] + kStacks[1] +
          logged("error", "process_print_stack", "Heal execute collect diagnose script fail.") +
          "sigqueue 101 SIGUSR1 101" +
          logged("warning", item, "Send SIGUSR1 to app_data thread 101 failed."));
  for (const int byte : {0, 2, 255}) {
    system_.reply = std::string(1, static_cast<char>(byte)) + "\1\1\1";
    EXPECT_EQ(eleventh(0.0F), answered(byte) + refused_by(item, 0, byte));
  }
  system_.reply.reset();
  EXPECT_EQ(eleventh(0.0F), kRequest + logged("error", kQuery, "Get return data is null.") +
                                refused_by(item, 1, 0));
  system_.send_result = -7;
  EXPECT_EQ(eleventh(0.0F), kRequest +
                                logged("error", kQuery, "Send msg failed, return value(-7).") +
                                refused_by(item, 1, 0));
  EXPECT_EQ(MIRT_GetDStatusCheckRedundancy(nullptr), 1);
  EXPECT_EQ(system_.take(), Trace{logged("error", kQuery, "Input is null.")});
}

struct RebootCase {
  const char* name;
  std::vector<FI_PARAM_S> parameters;
  std::vector<std::string> app_arguments;  // of the process that runs
  int signal_result, returned;
  int result;  // 77: untouched
  const char* reason;
  int target;  // -1: nothing is signalled
};
class Reboot : public ProcFixture, public testing::WithParamInterface<RebootCase> {
 protected:
  RecordedSystem system_;
};

const std::vector<std::string> kAppData{"/QAV/bin/./app_data", "12", "--more"};

TEST_P(Reboot, SignalsTheGivenOrTheFoundProcess) {
  const RebootCase& row = GetParam();
  put_cmdline(640, row.app_arguments);
  system_.signal_result = row.signal_result;
  ItemCall call(row.parameters);
  EXPECT_EQ(
      RebootAppData(static_cast<int>(call.argv.size()), call.argv.data(), nullptr, &call.result),
      row.returned);
  EXPECT_EQ(call.result.result, row.result);
  EXPECT_STREQ(call.result.reason, row.reason);
  EXPECT_EQ(call.result.pid, -5);
  const std::string id = std::to_string(row.target);
  EXPECT_EQ(system_.take(), row.target < 0
                                ? answered(1)
                                : answered(1) + kStacks + ("sigqueue " + id + " SIGUSR1 " + id));
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, Reboot,
    testing::Values(
        RebootCase{"Given", {parameter("UserData", "321")}, kAppData, 0, 0, 0, "as it was", 321},
        RebootCase{"SignalFails", {parameter("UserData", "321")}, {}, -1, 1, 0, "as it was", 321},
        RebootCase{"NoNumber", {parameter("UserData", "app")}, {}, -1, 1, 0, "as it was", 0},
        RebootCase{"Found", {}, kAppData, 0, 0, 0, "Input parameter number error.", 640},
        RebootCase{
            "FoundSignalFails", {}, kAppData, -1, 1, 0, "Input parameter number error.", 640},
        RebootCase{"OtherName",
                   {parameter("UserData2", "321")},
                   kAppData,
                   0,
                   0,
                   0,
                   "Input parameter error.",
                   640},
        RebootCase{"TwoParameters",
                   {parameter("UserData", "321"), parameter("UserData", "1")},
                   kAppData,
                   0,
                   0,
                   0,
                   "Input parameter number error.",
                   640},
        RebootCase{"NotRunning", {}, {}, 0, -1, -1, "Input parameter number error.", -1},
        RebootCase{"OtherCommandLine",
                   {},
                   {"/QAV/bin/app_data", "12"},
                   0,
                   -1,
                   -1,
                   "Input parameter number error.",
                   -1}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(Reboot, RefusedLeavesTheRecordAlone) {
  put_cmdline(640, kAppData);
  ItemCall call({parameter("Wrong", "1")});
  system_.reply = std::string(1, 2);
  EXPECT_EQ(RebootAppData(1, call.argv.data(), nullptr, &call.result), -1);
  EXPECT_EQ(system_.take(), answered(2) + refused_by("RebootAppData", 0, 2));
  system_.send_result = 5;
  EXPECT_EQ(RebootAppData(1, call.argv.data(), nullptr, &call.result), -1);
  EXPECT_EQ(system_.take(), kRequest +
                                logged("error", kQuery, "Send msg failed, return value(5).") +
                                refused_by("RebootAppData", 1, 0));
  EXPECT_EQ(call.result.result, 77);
  EXPECT_STREQ(call.result.reason, "as it was");
}

TEST_F(Reboot, WithoutARecordItIsFoundByName) {
  put_cmdline(640, kAppData);
  EXPECT_EQ(RebootAppData(1, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(system_.take().back(), "sigqueue 640 SIGUSR1 640");
}

}  // namespace
