#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <unistd.h>

#include "child.h"
#include "common_plugin.h"
#include "interposed.h"
#include "item_call.h"
#include "mirt_items.h"
#include "proc_fixture.h"

namespace {

constexpr char kStat[] = "cpu  100 0 100 800 0 0 0 0 0 0\n";
constexpr char kStatAfterSleep[] = "cpu  200 0 200 1000 0 0 0 0 0 0\n";

enum class Arguments { kName, kNameAndPeriod, kNameAndCommand, kNothing, kContextAlone };
enum class Pid { kLeft, kFirst, kLast };  // of the two equal processes

struct ItemCase {
  const char* name;
  Item item;
  Arguments arguments;
  const char* process;  // name, pattern or directory
  float value;
  Pid pid;
  pid_t followed = 0;  // the PID in the context afterwards, where the item keeps one
};

#define ROW(item, ...)       \
  ItemCase {                 \
#item, item, __VA_ARGS__ \
  }
const ItemCase kItems[] = {
    ROW(GetProcessSysCPU, Arguments::kName, "app -a", 5, Pid::kLeft, 11),
    ROW(GetProcessCoreCPU, Arguments::kName, "app -a", 5 * kCores, Pid::kLeft, 11),
    ROW(GetProcessSysCPUExtern, Arguments::kName, "app", 10, Pid::kFirst),
    ROW(GetProcessCoreCPUExtern, Arguments::kName, "app", 10 * kCores, Pid::kFirst),
    ROW(GetProcessSysCPUFuzzyMatch, Arguments::kName, "*pp*", 10, Pid::kLast),
    ROW(GetProcessCoreCPUFuzzyMatch, Arguments::kName, "*pp*", 10 * kCores, Pid::kLast),
    ROW(GetProcessSysCPUFuzzyMatchCfgPeriod, Arguments::kNameAndPeriod, "*pp*", 10, Pid::kLast),
    ROW(GetProcessCoreCPUFuzzyMatchCfgPeriod, Arguments::kNameAndPeriod, "*pp*", 10 * kCores,
        Pid::kLast),
    ROW(GetProcessMemory, Arguments::kName, "app -a", 100, Pid::kLeft, 11),
    ROW(GetProcessMemoryExtern, Arguments::kName, "app", 100, Pid::kFirst),
    ROW(GetProcessMemoryFuzzyMatch, Arguments::kName, "*pp*", 100, Pid::kLast),
    ROW(GetProcessHandle, Arguments::kName, "app -a", 30, Pid::kLeft, 11),
    ROW(GetProcessHandleExtern, Arguments::kName, "app", 30, Pid::kFirst),
    ROW(GetProcessHandleFuzzyMatch, Arguments::kName, "*pp*", 30, Pid::kLast),
    ROW(IsExistProcess, Arguments::kName, "app -a", 1, Pid::kLeft, 11),
    ROW(IsExistProcessExtern, Arguments::kName, "app", 1, Pid::kFirst),
    ROW(IsExistProcessPreCmd, Arguments::kNameAndCommand, "app -a", 1, Pid::kLeft, 11),
    ROW(GetDiskUsage, Arguments::kName, "/some/dir", 51, Pid::kLeft),
    ROW(GetSysCPU, Arguments::kContextAlone, nullptr, 20, Pid::kLeft),
    ROW(GetSysUsrCPU, Arguments::kContextAlone, nullptr, 10, Pid::kLeft),
    ROW(GetSysMemory, Arguments::kNothing, nullptr, 75, Pid::kLeft),
    ROW(GetSysFreeMemory, Arguments::kNothing, nullptr, 2, Pid::kLeft),
};
#undef ROW

std::vector<FI_PARAM_S> arguments_for(const ItemCase& row, const char* process) {
  switch (row.arguments) {
    case Arguments::kName:
      return {parameter("any name", process)};
    case Arguments::kNameAndPeriod:
      return {parameter("ProcessName", process), parameter("Period", "3")};
    case Arguments::kNameAndCommand:
      return {parameter("ProcessName", process), parameter("PreCmd", "echo up"),
              parameter("RetKeyWords", "up")};
    default:
      return {};
  }
}

// Two equal processes and a machine, whose counters move while an item sleeps.
class ItemFixture : public ProcFixture {
 protected:
  void SetUp() override {
    ProcFixture::SetUp();
    for (const int pid : {11, 12}) {
      put_process({pid, {"app", pid == 11 ? "-a" : "-b"}, 30, 20, 102400, 3, "10"});
    }
    put("stat", kStat);
    put("meminfo", "MemTotal: 8192 kB\nMemFree: 2048 kB\n");
    hooks_->usleep = [this](useconds_t period_us) {
      slept_us_.push_back(period_us);
      put("stat", kStatAfterSleep);
      for (const int pid : {11, 12}) put_ticks(pid, 60, 30);
    };
    hooks_->statfs = [](const char*, struct statfs* status) {
      status->f_blocks = 100;
      status->f_bfree = status->f_bavail = 50;
      return 0;
    };
  }
  static void expect_success(const ItemCall& call, int pid) {
    EXPECT_EQ(call.result.result, 0);
    EXPECT_STREQ(call.result.reason, "as it was");
    EXPECT_EQ(call.result.pid, pid);
    EXPECT_EQ(call.result.hangflowid, 99U);
    EXPECT_EQ(call.context.steppointer, 4321);
  }
  ScopedHooks hooks_;
  std::vector<useconds_t> slept_us_;
};
class Items : public ItemFixture, public testing::WithParamInterface<ItemCase> {
 protected:
  static int written_pid(int written) { return GetParam().pid == Pid::kLeft ? -5 : written; }
};

TEST_P(Items, MeasureAndWriteWhatIsTheirs) {
  const ItemCase& row = GetParam();
  ItemCall call(arguments_for(row, row.process));
  const std::vector<FI_PARAM_S> before = call.argv;
  EXPECT_EQ(call.run(row.item), row.value);
  const std::vector<int> order = in_listing_order({11, 12});
  expect_success(call, written_pid(row.pid == Pid::kFirst ? order[0] : order[1]));
  if (row.arguments != Arguments::kContextAlone) {
    EXPECT_EQ(call.overlay<process_exist_context_t>().pid, row.followed);
  }
  const size_t largest = sizeof(process_cpu_context_t);
  const FI_CONTEXT_S zero{};
  EXPECT_EQ(memcmp(call.context.contextbuff + largest, zero.contextbuff + largest, 1024 - largest),
            0);
  if (!before.empty()) {
    EXPECT_EQ(memcmp(call.argv.data(), before.data(), before.size() * sizeof before[0]), 0);
  }
}

TEST_P(Items, GiveZeroForAProcessThatIsNotThere) {
  const ItemCase& row = GetParam();
  const bool of_a_process = row.process != nullptr && *row.process != '/';
  for (const int pid : {11, 12}) remove(std::to_string(pid));
  ItemCall call(arguments_for(row, row.process));
  // A context that still follows the process that has gone.
  const pid_t gone = 11;
  if (of_a_process) memcpy(call.context.contextbuff, &gone, sizeof gone);
  EXPECT_EQ(call.run(row.item), of_a_process ? 0.0F : row.value);
  expect_success(call, written_pid(0));
  if (row.followed != 0) {
    EXPECT_EQ(call.overlay<process_exist_context_t>().pid, 0);
  }
  EXPECT_TRUE(slept_us_.empty());
}

TEST_P(Items, RefuseBadArgumentsWithTheContextUntouched) {
  const ItemCase& row = GetParam();
  const bool checked = !arguments_for(row, "").empty();
  ItemCall call(arguments_for(row, "app"));
  const ItemCall before = call;
  const int argc = static_cast<int>(call.argv.size());
  const auto run = [&](int count, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    call.result = before.result;
    return row.item(count, argv, context, result);
  };
  const auto expect_refusal = [&](float value, const char* reason) {
    EXPECT_EQ(value, -1.0F) << reason;
    EXPECT_EQ(call.result.result, -1);
    EXPECT_STREQ(call.result.reason, reason);
    EXPECT_EQ(call.result.pid, -5);
  };
  EXPECT_EQ(run(argc, call.argv.data(), &call.context, nullptr), -1.0F);
  EXPECT_EQ(memcmp(&call.result, &before.result, sizeof call.result), 0);
  if (checked) {
    for (const int count : {argc - 1, argc + 1, -1}) {
      expect_refusal(run(count, call.argv.data(), &call.context, &call.result),
                     "Input parameter number error.");
    }
    expect_refusal(run(argc, nullptr, &call.context, &call.result),
                   "Input parameter argv is NULL.");
    expect_refusal(run(argc, call.argv.data(), nullptr, &call.result),
                   "Input parameter context is NULL.");
  } else if (row.arguments == Arguments::kContextAlone) {
    EXPECT_EQ(run(0, nullptr, nullptr, &call.result), -1.0F);
    EXPECT_EQ(memcmp(&call.result, &before.result, sizeof call.result), 0);
  } else {
    EXPECT_EQ(run(17, nullptr, nullptr, &call.result), row.value);
    EXPECT_EQ(call.result.result, 0);
  }
  if (argc > 1) {
    call.argv[1].name[0] = 'x';
    expect_refusal(run(argc, call.argv.data(), &call.context, &call.result),
                   "Input parameter error.");
  }
  EXPECT_EQ(memcmp(&call.context, &before.context, sizeof call.context), 0);
}

TEST_P(Items, SurviveALackOfDescriptors) {
  const ItemCase& row = GetParam();
  ItemCall call(arguments_for(row, row.process));
  // A command that cannot be started gates the search; statfs() needs no descriptor.
  const bool gated = row.arguments == Arguments::kNameAndCommand;
  const bool of_disk = row.item == GetDiskUsage;
  float without = -1;
  {
    const NoDescriptors exhausted;
    without = call.run(row.item);
  }
  EXPECT_EQ(without, gated ? 1.0F : of_disk ? row.value : 0.0F);
  expect_success(call, written_pid(0));
  EXPECT_EQ(call.run(row.item), row.value) << "afterwards";
}

INSTANTIATE_TEST_SUITE_P(All, Items, testing::ValuesIn(kItems),
                         [](const auto& row) { return std::string(row.param.name); });

class ItemDetails : public ItemFixture {};

TEST_F(ItemDetails, SystemCpuKeepsItsSampleInTheContext) {
  ItemCall all({}), user({});
  EXPECT_EQ(all.run(GetSysCPU), 20.0F);
  EXPECT_EQ(user.run(GetSysUsrCPU), 10.0F);
  EXPECT_EQ(all.overlay<sys_cpu_context_t>().totaltime, 1000U);
  EXPECT_EQ(all.overlay<sys_cpu_context_t>().idletime, 800U);
  EXPECT_EQ(user.overlay<sys_usr_cpu_context_t>().totaltime, 1000U);
  EXPECT_EQ(user.overlay<sys_usr_cpu_context_t>().uesrtime, 100U);
  EXPECT_EQ(all.run(GetSysCPU), 0.0F) << "nothing has moved";
  EXPECT_EQ(all.overlay<sys_cpu_context_t>().totaltime, 1000U);
  put("stat", kStatAfterSleep);
  EXPECT_EQ(all.run(GetSysCPU), 50.0F);
  EXPECT_EQ(user.run(GetSysUsrCPU), 25.0F);
}

TEST_F(ItemDetails, ProcessCpuKeepsItsSampleUntilTheProcessIsReplaced) {
  ItemCall call({parameter("", "app -a")});
  EXPECT_EQ(call.run(GetProcessSysCPU), 5.0F) << "since start-up";
  put("stat", kStatAfterSleep);
  put_ticks(11, 60, 30);
  EXPECT_EQ(call.run(GetProcessSysCPU), 10.0F) << "since the call before";
  EXPECT_EQ(call.overlay<process_cpu_context_t>().syscputime, 1400U);
  EXPECT_EQ(call.overlay<process_cpu_context_t>().procputime, 90U);
  // It starts anew: found in the same call, and measured since start-up again.
  remove("11");
  put_cmdline(31, {"app", "-a"});
  put_ticks(31, 14, 14);
  EXPECT_EQ(call.run(GetProcessCoreCPU), 2.0F * kCores);
  EXPECT_EQ(call.overlay<process_cpu_context_t>().pid, 31);
}

TEST_F(ItemDetails, IntervalsAreHalfASecondOrTheConfiguredPeriod) {
  for (const Item item : {GetProcessSysCPUExtern, GetProcessCoreCPUExtern}) {
    ItemCall({parameter("", "app")}).run(item);
  }
  for (const Item item : {GetProcessSysCPUFuzzyMatch, GetProcessCoreCPUFuzzyMatch}) {
    ItemCall({parameter("", "app*")}).run(item);
  }
  EXPECT_EQ(slept_us_, std::vector<useconds_t>(4, 500000));
  slept_us_.clear();
  for (const char* period : {"0", "3", "600"}) {
    ItemCall call({parameter("ProcessName", "app*"), parameter("Period", period)});
    call.run(GetProcessSysCPUFuzzyMatchCfgPeriod);
    call.run(GetProcessCoreCPUFuzzyMatchCfgPeriod);
  }
  EXPECT_EQ(slept_us_,
            (std::vector<useconds_t>{500000, 500000, 3000000, 3000000, 240000000, 240000000}));
}

TEST_F(ItemDetails, IdleProcessesAreNamedForPatternsAlone) {
  hooks_->usleep = [](useconds_t) { put("stat", kStatAfterSleep); };
  ItemCall prefix({parameter("", "app")}), pattern({parameter("", "app*")});
  EXPECT_EQ(prefix.run(GetProcessSysCPUExtern), 0.0F);
  expect_success(prefix, 0);
  put("stat", kStat);
  EXPECT_EQ(pattern.run(GetProcessSysCPUFuzzyMatch), 0.0F);
  expect_success(pattern, in_listing_order({11, 12})[1]);
}

TEST_F(ItemDetails, UnreadableMeminfoIsAValidZero) {
  remove("meminfo");
  for (const Item item : {GetSysMemory, GetSysFreeMemory}) {
    ItemCall call({});
    EXPECT_EQ(call.run(item), 0.0F);
    expect_success(call, -5);
  }
}

TEST_F(ItemDetails, PreCommandGatesTheSearch) {
  const auto gate = [](const char* command, const char* process) {
    return ItemCall({parameter("ProcessName", process), parameter("PreCmd", command),
                     parameter("RetKeyWords", "up")});
  };
  ItemCall closed = gate("echo down", "nobody");
  const pid_t remembered = 4444;
  memcpy(closed.context.contextbuff, &remembered, sizeof remembered);
  EXPECT_EQ(closed.run(IsExistProcessPreCmd), 1.0F);
  expect_success(closed, -5);
  EXPECT_EQ(closed.overlay<process_exist_context_t>().pid, remembered) << "not looked for";
  EXPECT_EQ(gate("echo up", "nobody").run(IsExistProcessPreCmd), 0.0F);
  ItemCall always({parameter("ProcessName", "nobody"), parameter("PreCmd", "true"),
                   parameter("RetKeyWords", "")});
  EXPECT_EQ(always.run(IsExistProcessPreCmd), 0.0F);
}

TEST_F(ItemDetails, ManyCallsLeaveNothingBehind) {
  ItemCall call({parameter("", "app -a")});
  EXPECT_EQ(call.run(GetProcessMemory), 100.0F);
  const int descriptors = open_descriptors();
  const size_t heap = mallinfo2().uordblks;
  int wrong = 0;
  for (int i = 0; i < 100000; ++i) wrong += call.run(GetProcessMemory) != 100.0F ? 1 : 0;
  EXPECT_EQ(mallinfo2().uordblks, heap);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(wrong, 0);
}

TEST(ItemFaults, OfAMissingDirectoryAreReported) {
  ItemCall call({parameter("", "/nonexistent/dir")});
  EXPECT_EQ(call.run(GetDiskUsage), -1.0F);
  EXPECT_EQ(call.result.result, -1);
  EXPECT_STREQ(call.result.reason, "Get Disk Usage Fault, Return -1.000000.");
  EXPECT_EQ(call.result.pid, -5);
}

TEST(RealItems, FollowARealProcess) {
  const std::string program = "/QAV/bin/./item." + std::to_string(getpid());
  Child child({program, "-u"});
  ItemCall exact({parameter("", program + " -u")}), bare({parameter("", program)});
  EXPECT_EQ(exact.run(IsExistProcess), 1.0F);
  EXPECT_EQ(exact.overlay<process_exist_context_t>().pid, child.pid());
  EXPECT_EQ(bare.run(IsExistProcess), 0.0F) << "it has an argument more";
  EXPECT_EQ(bare.run(IsExistProcessExtern), 1.0F);
  EXPECT_EQ(bare.result.pid, child.pid());
  EXPECT_GE(ItemCall({parameter("", program)}).run(GetProcessMemoryExtern), 0.0F);

  child.kill_unreaped(SIGKILL);
  EXPECT_EQ(exact.run(IsExistProcess), 0.0F) << "a zombie is no running process";
  EXPECT_EQ(exact.overlay<process_exist_context_t>().pid, 0);
}

TEST(RealItems, MeasureThisProcess) {
  char cmdline[1024] = "";
  ASSERT_EQ(MIRT_Linux_Plugin::get_cmdline_bypid(getpid(), cmdline, sizeof cmdline), 0);
  ItemCall memory({parameter("", cmdline)}), machine({});
  EXPECT_GE(memory.run(GetProcessMemory), 1.0F) << cmdline;
  EXPECT_EQ(memory.overlay<process_mem_context_t>().pid, getpid());
  const float used = machine.run(GetSysMemory), busy = machine.run(GetSysCPU);
  EXPECT_GT(used, 0.0F);
  EXPECT_LT(used, 100.0F);
  EXPECT_GT(busy, 0.0F);
  EXPECT_LE(busy, 100.0F);
  EXPECT_GT(machine.run(GetSysFreeMemory), 0.0F);
}

}  // namespace
