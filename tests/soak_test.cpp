// Simulated minutes: every item and function once a second, while processes start and end.
// Instead of sleeping, the replaced functions let processes start and end.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "child.h"
#include "common_plugin.h"
#include "item_call.h"
#include "kelv_log.h"
#include "mirt_host.h"
#include "mirt_items.h"
#include "proc_fixture.h"

namespace {

// A sanitizer makes a new process expensive, and reports leaks itself.
#ifdef __SANITIZE_ADDRESS__
constexpr int kSeconds = 60;
#else
constexpr int kSeconds = 240;
#endif
constexpr int kWarmUpSeconds = kSeconds / 4;  // by then every table, cache and arena exists
constexpr size_t kLiving = 6;

// Processes of one kind; each turn replaces the oldest with a new one.
class Crowd {
 public:
  void turn() {
    living_.push_back(std::make_unique<Child>(std::vector<std::string>{"soak worker", "-u"}));
    if (living_.size() > kLiving) living_.pop_front();
  }
  pid_t eldest() const { return living_.front()->pid(); }

 private:
  std::list<std::unique_ptr<Child>> living_;
};

Crowd* g_crowd = nullptr;

// One instance of every item, with valid parameters.
struct Instance {
  Item item;
  ItemCall call;
};

std::vector<Instance> all_instances() {
  constexpr char kExact[] = "ProcessName=soak worker -u", kPrefix[] = "ProcessName=soak w",
                 kPattern[] = "ProcessName=*oak wor?er*",
                 kPeriodic[] = "ProcessName=*oak wor?er*;Period=30";
  // clang-format off
  const std::pair<Item, const char*> kRows[] = {
      {GetSysCPU, ""}, {GetSysUsrCPU, ""}, {GetSysMemory, ""}, {GetSysFreeMemory, ""},
      {GetDiskUsage, "Dir=/"}, {GetProcessSysCPU, kExact}, {GetProcessSysCPUExtern, kPrefix},
      {GetProcessSysCPUFuzzyMatch, kPattern}, {GetProcessSysCPUFuzzyMatchCfgPeriod, kPeriodic},
      {GetProcessCoreCPU, kExact}, {GetProcessCoreCPUExtern, kPrefix},
      {GetProcessCoreCPUFuzzyMatch, kPattern}, {GetProcessCoreCPUFuzzyMatchCfgPeriod, kPeriodic},
      {GetProcessMemory, kExact}, {GetProcessMemoryExtern, kPrefix},
      {GetProcessMemoryFuzzyMatch, kPattern}, {GetProcessHandle, kExact},
      {GetProcessHandleExtern, kPrefix}, {GetProcessHandleFuzzyMatch, kPattern},
      {IsExistProcess, kExact}, {IsExistProcessExtern, kPrefix},
      {IsExistProcessPreCmd, "ProcessName=soak worker -u;PreCmd=echo yes;RetKeyWords=yes"},
      {ProcessHeartBeat, "ProcessName=soak_tests;ProcessMoudleId=17"},
      {as_float<SendErrRpt>, "ErrCode=0xF000020F;ProcessName=app;ProcessMoudleId=17"},
      {as_float<SendErrRptExtend>, "ErrCode=1;nodeId="}, {as_float<RebootAppData>, ""},
      {CheckProcessStatusIsD, kPattern}, {CheckProcessStatusIsDForAppData, kPattern}};
  // clang-format on
  std::vector<Instance> instances;
  for (const auto& [item, text] : kRows) instances.push_back({item, ItemCall(params(text))});
  return instances;
}

void run_plain_functions() {
  list_head head;
  int user_percent = 0;
  if (GetAllProcessRssMem(&head) == 0) FreeAllProcessList(&head);
  if (GetAllProcessCoreCPU(&head, &user_percent) == 0) FreeAllProcessList(&head);
  pid_t pids[4];
  unsigned int used = 0;
  EXPECT_EQ(GetProcessPidExtern("soak", pids, 4, &used), 0);
  EXPECT_EQ(GetProcessPidFuzzy("*oak*", pids, 4, &used), 0);
  EXPECT_EQ(GetProcessPid("soak worker -u", pids), 0);
  EXPECT_EQ(CheckProcessExist("cat", g_crowd->eldest()), 0);
  EXPECT_NE(MIRT_AgentShmInit(18), nullptr);
}

TEST(Soak, MinutesLeaveNothingBehind) {
  SKIP_WITHOUT_MOUNTS();
  const OwnHeartbeatFiles files;
  ASSERT_TRUE(files.mounted()) << strerror(errno);
  kelvlog_set_sink([](const KELV_LOG_RECORD_S*) {});
  Crowd crowd;
  g_crowd = &crowd;
  std::vector<Instance> instances = all_instances();
  ASSERT_EQ(instances.size(), 28U);
  MIRT_AGENT_HEART_INFO_S* const stopped_heart = MIRT_AgentShmInit(17);
  ASSERT_NE(stopped_heart, nullptr);
  stopped_heart->processid = static_cast<uint32_t>(getpid());
  stopped_heart->flowid = 31;

  size_t heap = 0;
  int descriptors = 0;
  for (int second = 0; second < kSeconds; ++second) {
    crowd.turn();
    for (Instance& instance : instances) {
      instance.call.result = {};
      instance.call.run(instance.item);
      EXPECT_EQ(instance.call.result.result, 0) << instance.call.result.reason;
      EXPECT_EQ(instance.call.result.hangflowid, instance.item == ProcessHeartBeat ? 31U : 0U);
    }
    if (second % 10 == 0) run_plain_functions();
    if (second == kWarmUpSeconds) {
      heap = mallinfo2().uordblks;
      descriptors = open_descriptors();
    }
  }
  // The allocator's caches vary; a leak of one smallest block per second would exceed this limit.
  EXPECT_LE(mallinfo2().uordblks, heap + 24UL * (kSeconds - kWarmUpSeconds));
  EXPECT_EQ(open_descriptors(), descriptors);
  // No child has ended without a wait. The processes of the crowd are alive.
  siginfo_t ended{};
  EXPECT_EQ(waitid(P_ALL, 0, &ended, WEXITED | WNOHANG | WNOWAIT), 0);
  EXPECT_EQ(ended.si_pid, 0);
  // The contexts own the tables of hung threads, and the test owns the contexts.
  for (const Instance& instance : instances) {
    if (instance.item == CheckProcessStatusIsD ||
        instance.item == CheckProcessStatusIsDForAppData) {
      free(instance.call.overlay<process_status_context_t>().pthreadinfoset);
    }
  }
  g_crowd = nullptr;
}

}  // namespace

// The plug-in sleeps with these functions. They return at once and let processes start and end.
int usleep(useconds_t /*us*/) {
  if (g_crowd != nullptr) g_crowd->turn();
  return 0;
}
unsigned int sleep(unsigned int seconds) {
  return static_cast<unsigned int>(usleep(seconds));
}
