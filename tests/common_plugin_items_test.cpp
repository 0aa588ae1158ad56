
#include <gtest/gtest.h>

#include "child.h"
#include "common_plugin.h"
#include "interposed.h"
#include "item_call.h"
#include "mirt_items.h"
#include "proc_fixture.h"

namespace {

using Parameters = std::vector<FI_PARAM_S>;

const Parameters kNone, kExact{parameter("any name", "app -a")},
    kPrefix{parameter("any name", "app")}, kPattern{parameter("any name", "*pp*")},
    kPeriodic{parameter("ProcessName", "*pp*"), parameter("Period", "3")},
    kGated{parameter("ProcessName", "app -a"), parameter("PreCmd", "echo up"),
           parameter("RetKeyWords", "up")},
    kDirectory{parameter("any name", "/proc")};

// Which of two equal processes a result reports; for kFollowed the context has it instead.
enum Pid { kNobody, kFollowed, kFirst, kLast };

struct ItemCase {
  const char* name;
  Item item;
  const Parameters& parameters;
  float value;
  Pid pid;
};

#define NAMED(item) #item, item
const ItemCase kItems[] = {
    {NAMED(GetProcessSysCPU), kExact, 5, kFollowed},
    {NAMED(GetProcessCoreCPU), kExact, 5 * kCores, kFollowed},
    {NAMED(GetProcessSysCPUExtern), kPrefix, 10, kFirst},
    {NAMED(GetProcessCoreCPUExtern), kPrefix, 10 * kCores, kFirst},
    {NAMED(GetProcessSysCPUFuzzyMatch), kPattern, 10, kLast},
    {NAMED(GetProcessCoreCPUFuzzyMatch), kPattern, 10 * kCores, kLast},
    {NAMED(GetProcessSysCPUFuzzyMatchCfgPeriod), kPeriodic, 10, kLast},
    {NAMED(GetProcessCoreCPUFuzzyMatchCfgPeriod), kPeriodic, 10 * kCores, kLast},
    {NAMED(GetProcessMemory), kExact, 100, kFollowed},
    {NAMED(GetProcessMemoryExtern), kPrefix, 100, kFirst},
    {NAMED(GetProcessMemoryFuzzyMatch), kPattern, 100, kLast},
    {NAMED(GetProcessHandle), kExact, 30, kFollowed},
    {NAMED(GetProcessHandleExtern), kPrefix, 30, kFirst},
    {NAMED(GetProcessHandleFuzzyMatch), kPattern, 30, kLast},
    {NAMED(IsExistProcess), kExact, 1, kFollowed},
    {NAMED(IsExistProcessExtern), kPrefix, 1, kFirst},
    {NAMED(IsExistProcessPreCmd), kGated, 1, kFollowed},
    {NAMED(GetDiskUsage), kDirectory, 1, kNobody},
    {NAMED(GetSysCPU), kNone, 20, kNobody},
    {NAMED(GetSysUsrCPU), kNone, 10, kNobody},
    {NAMED(GetSysMemory), kNone, 75, kNobody},
    {NAMED(GetSysFreeMemory), kNone, 2, kNobody},
};

// Two equal processes and a machine whose counters grow while an item sleeps.
class ItemFixture : public ProcFixture {
 protected:
  void SetUp() override {
    ProcFixture::SetUp();
    if (IsSkipped()) return;
    for (const int pid : {11, 12}) {
      put_process({pid, {"app", pid == 11 ? "-a" : "-b"}, 30, 20, 102400, 3, "10"});
    }
    put("stat", "cpu  100 0 100 800 0 0 0 0 0 0\n");
    put("meminfo", "MemTotal: 8192 kB\nMemFree: 2048 kB\n");
    hooks_->usleep = [this](useconds_t period_us) {
      slept_us_.push_back(period_us);
      pass_time();
    };
  }
  static void pass_time() {
    put("stat", "cpu  200 0 200 1000 0 0 0 0 0 0\n");
    for (const int pid : {11, 12}) put_ticks(pid, 60, 30);
  }
  static void expect_success(const ItemCall& call, int pid) {
    EXPECT_EQ(call.result.result, 0);
    EXPECT_STREQ(call.result.reason, "as it was");
    EXPECT_EQ(call.result.pid, pid);
    EXPECT_EQ(call.context.steppointer, 4321);
  }
  static pid_t followed_by(const ItemCall& call) {
    return call.overlay<process_exist_context_t>().pid;
  }
  ScopedHooks hooks_;
  std::vector<useconds_t> slept_us_;
};

class Items : public ItemFixture, public testing::WithParamInterface<ItemCase> {
 protected:
  const ItemCase& row_ = GetParam();
  const bool compares_ = row_.pid == kFirst || row_.pid == kLast;
  ItemCall call_{row_.parameters};
};

TEST_P(Items, MeasureAndWriteWhatIsTheirs) {
  EXPECT_EQ(call_.run(row_.item), row_.value);
  const std::vector<int> order = in_listing_order({11, 12});
  expect_success(call_, row_.pid == kFirst ? order[0] : row_.pid == kLast ? order[1] : -5);
  const bool sleeps = compares_ && strstr(row_.name, "CPU") != nullptr;
  const useconds_t period_us = &row_.parameters == &kPeriodic ? 3000000 : 500000;
  EXPECT_EQ(slept_us_, std::vector<useconds_t>(sleeps ? 1 : 0, period_us));
  if (!row_.parameters.empty()) {
    EXPECT_EQ(followed_by(call_), row_.pid == kFollowed ? 11 : 0);
    EXPECT_EQ(memcmp(call_.argv.data(), &row_.parameters[0], sizeof(FI_PARAM_S)), 0);
  }
}

TEST_P(Items, GiveZeroForAProcessThatIsNotThere) {
  for (const int pid : {11, 12}) remove(std::to_string(pid));
  // A context with the PID of a process that has ended.
  if (row_.pid == kFollowed) call_.context.contextbuff[0] = 11;
  EXPECT_EQ(call_.run(row_.item), row_.pid == kNobody ? row_.value : 0.0F);
  EXPECT_TRUE(slept_us_.empty());
  expect_success(call_, compares_ ? 0 : -5);
  EXPECT_TRUE(row_.pid == kNobody || followed_by(call_) == 0);
}

TEST_P(Items, RefuseBadArgumentsWithTheContextUntouched) {
  const ItemCall before = call_;
  const int argc = static_cast<int>(call_.argv.size());
  FI_PARAM_S* const argv = call_.argv.data();
  const auto expect_refusal = [&](int count, FI_PARAM_S* parameters, FI_CONTEXT_S* context,
                                  const char* reason) {
    call_.result = before.result;
    EXPECT_EQ(row_.item(count, parameters, context, &call_.result), -1.0F) << reason;
    EXPECT_EQ(call_.result.result, -1);
    EXPECT_STREQ(call_.result.reason, reason);
    EXPECT_EQ(call_.result.pid, -5);
  };
  EXPECT_EQ(row_.item(argc, argv, &call_.context, nullptr), -1.0F);
  if (argc > 0) {
    for (const int count : {argc - 1, argc + 1, -1}) {
      expect_refusal(count, argv, &call_.context, "Input parameter number error.");
    }
    expect_refusal(argc, nullptr, &call_.context, "Input parameter argv is NULL.");
    expect_refusal(argc, argv, nullptr, "Input parameter context is NULL.");
  } else {
    const bool needs_context = strstr(row_.name, "CPU") != nullptr;
    EXPECT_EQ(row_.item(17, nullptr, nullptr, &call_.result), needs_context ? -1.0F : row_.value);
    EXPECT_EQ(call_.result.result, needs_context ? 77 : 0);
  }
  if (argc > 1) {
    argv[1].name[0] = 'x';
    expect_refusal(argc, argv, &call_.context, "Input parameter error.");
  }
  EXPECT_EQ(memcmp(&call_.context, &before.context, sizeof call_.context), 0);
}

INSTANTIATE_TEST_SUITE_P(All, Items, testing::ValuesIn(kItems),
                         [](const auto& row) { return std::string(row.param.name); });

using ItemDetails = ItemFixture;

TEST_F(ItemDetails, SamplesStayInTheContextUntilTheProcessIsReplaced) {
  ItemCall all(kNone), user(kNone), process(kExact);
  all.run(GetSysCPU);
  user.run(GetSysUsrCPU);
  process.run(GetProcessSysCPU);
  pass_time();
  EXPECT_EQ(all.run(GetSysCPU), 50.0F);
  EXPECT_EQ(user.run(GetSysUsrCPU), 25.0F);
  EXPECT_EQ(process.run(GetProcessSysCPU), 10.0F) << "since the call before";
  // The item finds the new process in the same call and measures since boot again.
  remove("11");
  put_cmdline(31, {"app", "-a"});
  put_ticks(31, 14, 14);
  EXPECT_EQ(process.run(GetProcessCoreCPU), 2.0F * kCores);
  EXPECT_EQ(followed_by(process), 31);
}

TEST_F(ItemDetails, PreCommandGatesTheSearch) {
  ItemCall call(kGated);
  put_cmdline(11, {"other"});
  EXPECT_EQ(call.run(IsExistProcessPreCmd), 0.0F);
  strcpy(call.argv[1].value, "echo down");
  call.context.contextbuff[0] = 44;
  EXPECT_EQ(call.run(IsExistProcessPreCmd), 1.0F);
  EXPECT_EQ(followed_by(call), 44) << "not looked for";
}

}  // namespace
