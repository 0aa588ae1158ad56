// Every exported function without memory and without descriptors: checks what it returns and
// writes, that it leaks nothing, and that it works again afterwards.
#include "allocation_failure.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "child.h"
#include "common_plugin.h"
#include "interposed.h"
#include "item_call.h"
#include "kelv_log.h"
#include "kelv_time.h"
#include "mirt_host.h"
#include "mirt_items.h"
#include "mirt_process.h"
#include "proc_fixture.h"

// Replaces the actions of data-plane recovery: a shell without work, no wait, no signal.
extern "C" {
int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const*, char* const* environment) {
  static const auto real =
      reinterpret_cast<decltype(&posix_spawn)>(dlsym(RTLD_NEXT, "posix_spawn"));
  char shell[] = "sh", option[] = "-c", nothing[] = ":";
  char* const arguments[] = {shell, option, nothing, nullptr};
  return real(pid, path, actions, attributes, arguments, environment);
}
void kelv_10msleep(uint32_t) {}
int sigqueue(pid_t, int, const union sigval) noexcept {
  return 0;
}
}

namespace {

// A scenario and its outcomes: normal, without memory, without descriptors, and further ones,
// separated by '|', if a single allocation is refused.
struct Row {
  Scenario scenario;
  const char *whole, *without_memory, *without_descriptors, *partly;
};

class OutOf : public ProcFixture, public testing::WithParamInterface<Row> {
 public:
  // The processes "app 10" and "app 11" of a machine that has been up for 10,000 ticks.
  static void put_ticks_at_start() {
    put("stat", "cpu  1000 0 0 9000 0 0 0\n");
    put_ticks(10, 500, 0);
    put_ticks(11, 100, 0);
  }
  // 1,000 ticks later.
  static void put_later_ticks() {
    const bool counted = set_counting(false);
    put("stat", "cpu  1500 0 0 9500 0 0 0\n");
    put_ticks(10, 600, 0);
    put_ticks(11, 150, 0);
    set_counting(counted);
  }

 protected:
  void SetUp() override {
    ProcFixture::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(files_.mounted());
    put_process({10, {"app", "10"}, 500, 0, 3072, 8, "16"});
    put_process({11, {"app", "11"}, 100, 0, 2048, 4, "16"});
    put_cmdline(12, {"nameless"});  // a listing that has started with it drops it
    put("10/task/100/status",
        "Name:\tx\nState:\tD (disk sleep)\nvoluntary_ctxt_switches:\t5\n"
        "nonvoluntary_ctxt_switches:\t6\n");
    put("meminfo", "MemTotal: 8192 kB\nMemFree: 2048 kB\n");
    hooks_->usleep = [](useconds_t) { put_later_ticks(); };
    hooks_->sleep = [](unsigned int) { put_later_ticks(); };
    hooks_->popen = [] { return real_popen("echo READY", "r"); };
    hooks_->statfs = [](const char*, struct statfs* status) {
      status->f_blocks = 100;
      status->f_bfree = status->f_bavail = 50;
      return 0;
    };
    kelvlog_set_sink([](const KELV_LOG_RECORD_S*) {});
    mirt_host_set_report_handler([](const MIRT_HOST_REPORT_S*, void*) { return 0; }, nullptr);
    mirt_host_set_request_handler(PID_CTRL_MIRTKERNELAGENT, allow, nullptr);
    make_stale_heartbeat();
    // Makes the C library load now what it keeps; an unknown user name needs everything.
    tzset();
    getpwnam("nobody-of-this-name");
  }
  void TearDown() override {
    kelvlog_set_sink(nullptr);
    ProcFixture::TearDown();
  }

 private:
  static int32_t allow(const MIRT_COMM_INFO_S*, const void*, void* reply, uint32_t* length, void*) {
    *static_cast<char*>(reply) = 1;
    *length = 1;
    return 0;
  }

  // Module 7 is process 10, whose heartbeat stopped at flow 5. In a child, because an attach lasts
  // until the process ends.
  static void make_stale_heartbeat() {
    const auto attach = [] {
      MIRT_AGENT_HEART_INFO_S* const entry = MIRT_AgentShmInit(7);
      if (entry == nullptr) return 1;
      entry->processid = 10;
      entry->flowid = 5;
      return 0;
    };
    ASSERT_EQ(status_of_child(attach), 0);
  }

  OwnHeartbeatFiles files_;
  ScopedHooks hooks_;
};

TEST_P(OutOf, MemoryOrDescriptors) {
  const Row& row = GetParam();
  const auto expect = [&row](const Observed& run, const std::vector<std::string>& allowed) {
    EXPECT_NE(std::find(allowed.begin(), allowed.end(), run.outcome), allowed.end()) << run.outcome;
    EXPECT_STREQ(run.faults, "");
    EXPECT_STREQ(run.again, row.whole);
  };
  const Observed whole = run_in_child(row.scenario, kNone);
  expect(whole, {row.whole});
  expect(run_in_child(row.scenario, kAll), {row.without_memory});
  expect(run_in_child(row.scenario, kNone, false), {row.without_descriptors});
  std::vector<std::string> partly{row.whole, row.without_memory};
  std::istringstream further(row.partly);
  for (std::string outcome; std::getline(further, outcome, '|');) partly.push_back(outcome);
  for (size_t number = 0; number < whole.allocations; ++number) {
    SCOPED_TRACE("allocation " + std::to_string(number) + " refused");
    expect(run_in_child(row.scenario, {number, number + 1}), partly);
  }
}

// Items. An outcome is the value, result->result and result->pid, and the reason of a failure; 77
// and -5 mean an unchanged result. A run may use static variables, because it has its own process.

std::optional<ItemCall> g_records;

// parameters: "name=value;name=value".
void prepare(const char* parameters, void (*before)()) {
  OutOf::put_ticks_at_start();
  g_records.emplace(params(parameters));
  if (before != nullptr) before();
}

template <auto* kItem>
void call_item(char* outcome) {
  auto& [argv, context, result] = *g_records;
  const auto value =
      static_cast<double>(kItem(static_cast<int>(argv.size()), argv.data(), &context, &result));
  snprintf(outcome, kOutcomeSize, "%g %d %d%s%.200s", value, result.result, result.pid,
           result.result == -1 ? " " : "", result.result == -1 ? result.reason : "");
}

// The context owns the table, and the test owns the context.
void free_table() {
  free(g_records->overlay<process_status_context_t>().pthreadinfoset);
}

// One detection before thread 100 of process 10 counts as hung.
void put_almost_hung_thread() {
  auto* const table = static_cast<thread_info_set_t*>(calloc(1, sizeof(thread_info_set_t)));
  table->thread_info_unused = 1;
  table->thread_info[0] = {10, 100, 10, 5, 6, 5, 6};
  const process_status_context_t overlay{table};
  memcpy(g_records->context.contextbuff, &overlay, sizeof overlay);
}

#define ITEM_WITH(name, parameters, before, release, kept, ...)                               \
  Row {                                                                                       \
    {#name, call_item<name>, [] { prepare(parameters, before); }, release, kept}, __VA_ARGS__ \
  }
#define ITEM(name, parameters, ...) ITEM_WITH(name, parameters, nullptr, nullptr, 0, __VA_ARGS__)

// A sample that could not be read counts as 0 ticks, so the share is the one since boot.
#define CPU_ITEM(name, parameters) \
  ITEM(name, parameters, "10 0 10", "0 0 0", "0 0 0", "5 0 11|15 0 11|60 0 10")
#define CORE_ITEM(name, parameters) \
  ITEM(name, parameters, "70 0 10", "0 0 0", "0 0 0", "35 0 11|105 0 11|420 0 10")

// The heartbeat table stays mapped until the process ends, because pointers into it stay valid.
constexpr size_t kMapping = 1;

// clang-format off
const Row kItems[] = {
    ITEM(GetProcessSysCPU, "ProcessName=app 10", "5 0 -5", "0 0 -5", "0 0 -5", ""),
    ITEM(GetProcessCoreCPU, "ProcessName=app 10", "35 0 -5", "0 0 -5", "0 0 -5", ""),
    CPU_ITEM(GetProcessSysCPUExtern, "ProcessName=app"),
    CORE_ITEM(GetProcessCoreCPUExtern, "ProcessName=app"),
    CPU_ITEM(GetProcessSysCPUFuzzyMatch, "ProcessName=*app*"),
    CORE_ITEM(GetProcessCoreCPUFuzzyMatch, "ProcessName=*app*"),
    CPU_ITEM(GetProcessSysCPUFuzzyMatchCfgPeriod, "ProcessName=*app*;Period=1"),
    CORE_ITEM(GetProcessCoreCPUFuzzyMatchCfgPeriod, "ProcessName=*app*;Period=1"),
    ITEM(GetProcessMemory, "ProcessName=app 10", "3 0 -5", "0 0 -5", "0 0 -5", ""),
    ITEM(GetProcessMemoryExtern, "ProcessName=app", "3 0 10", "0 0 0", "0 0 0", "2 0 11"),
    ITEM(GetProcessMemoryFuzzyMatch, "ProcessName=*app*", "3 0 10", "0 0 0", "0 0 0", "2 0 11"),
    ITEM(GetProcessHandle, "ProcessName=app 10", "50 0 -5", "0 0 -5", "0 0 -5", ""),
    ITEM(GetProcessHandleExtern, "ProcessName=app", "50 0 10", "0 0 0", "0 0 0", "25 0 11"),
    ITEM(GetProcessHandleFuzzyMatch, "ProcessName=*app*", "50 0 10", "0 0 0", "0 0 0", "25 0 11"),
    ITEM(IsExistProcess, "ProcessName=app 10", "1 0 -5", "0 0 -5", "0 0 -5", ""),
    ITEM(IsExistProcessExtern, "ProcessName=app 10", "1 0 10", "0 0 0", "0 0 0", ""),
    // Without the command's output, the process counts as existing.
    ITEM(IsExistProcessPreCmd, "ProcessName=nobody;PreCmd=ask;RetKeyWords=READY",
         "0 0 -5", "1 0 -5", "1 0 -5", ""),
    ITEM(GetDiskUsage, "Dir=/", "51 0 -5", "51 0 -5", "51 0 -5", ""),
    ITEM(GetSysCPU, "", "10 0 -5", "10 0 -5", "0 0 -5", ""),
    ITEM(GetSysUsrCPU, "", "10 0 -5", "10 0 -5", "0 0 -5", ""),
    ITEM(GetSysMemory, "", "75 0 -5", "75 0 -5", "0 0 -5", ""),
    ITEM(GetSysFreeMemory, "", "2 0 -5", "2 0 -5", "0 0 -5", ""),
    // A process that cannot be read is not checked.
    ITEM_WITH(ProcessHeartBeat, "ProcessName=x;ProcessMoudleId=7", nullptr, nullptr, kMapping,
              "0 0 -5", "1 0 -5", "1 0 -5", ""),
    ITEM(SendErrRpt, "ErrCode=0xF000020F;ProcessName=x;ProcessMoudleId=7",
         "0 0 -5", "-1 -1 -5 Create ErrRpt failed.", "0 0 -5",
         "-1 -1 -5 Add param ProcessName=x fail.|-1 -1 -5 Add param ProcessMoudleId=7 fail.|"
         "-1 -1 -5 Send ErrRpt failed."),
    ITEM(SendErrRptExtend, "ErrCode=0xF0000203;nodeId=;diagnoseTime=",
         "0 0 -5", "0 0 -5", "0 0 -5", ""),
    ITEM_WITH(CheckProcessStatusIsD, "ProcessName=*app*", nullptr, free_table, 0,
              "0 0 0", "0 -1 -5 Allocate private data failed.", "0 0 0", ""),
    // Recovery is refused if the request fails; the thread is still reported.
    ITEM_WITH(CheckProcessStatusIsDForAppData, "ProcessName=*app*", put_almost_hung_thread,
              free_table, 0, "1 0 100", "0 0 0", "0 0 0", "0 0 100"),
    ITEM(RebootAppData, "UserData=100", "0 0 -5", "-1 77 -5", "0 0 -5", ""),
};
// clang-format on

// Functions. An outcome is the return value and the results.

list_head g_head;

// The result, then the PIDs in ascending order, because the order of a test's /proc is not defined.
void print(char* outcome, int result, std::array<int, 32>& pids, size_t count) {
  outcome += sprintf(outcome, "%d", result);
  std::sort(pids.begin(), pids.begin() + count);
  for (size_t i = 0; i < count; ++i) outcome += sprintf(outcome, " %d", pids[i]);
}

template <typename List>
void list(char* outcome, List get) {
  g_head = {nullptr, nullptr};
  std::array<int, 32> pids{};
  size_t count = 0;
  const int result = get(&g_head);
  for (list_head* node = g_head.next; node != nullptr && node != &g_head; node = node->next) {
    pids[count++] = reinterpret_cast<PROCESS_INFO_S*>(node)->pid;
  }
  print(outcome, result, pids, count);
  if (result != 0 && g_head.next != nullptr) strcat(outcome, " but touched the head");
}

void free_listing() {
  if (g_head.next != nullptr) FreeAllProcessList(&g_head);
}

template <typename Search>
void search(char* outcome, Search find, const char* name) {
  std::array<int, 32> pids{};
  unsigned int used = 0;
  const int result = find(name, pids.data(), 4, &used);
  print(outcome, result, pids, used);
}

using Plugin = MIRT_Linux_Plugin;

constexpr char kBoth[] = "0 10 11", kOneOfThem[] = "0 10|0 11";

#define FUNCTION(name, release, kept, print, ...)                                               \
  Row {                                                                                         \
    {name, [](char* outcome) { print; }, OutOf::put_ticks_at_start, release, kept}, __VA_ARGS__ \
  }

// clang-format off
const Row kFunctions[] = {
    FUNCTION("GetAllProcessCoreCPU", free_listing, 0, list(outcome, [](list_head* head) {
      int user_percent = 0;
      return GetAllProcessCoreCPU(head, &user_percent);
    }), kBoth, "-1", "-1", kOneOfThem),
    FUNCTION("GetAllProcessRssMem", free_listing, 0, list(outcome, GetAllProcessRssMem),
             kBoth, "-1", "-1", kOneOfThem),
    FUNCTION("GetProcessPidExtern", nullptr, 0, search(outcome, GetProcessPidExtern, "app"),
             kBoth, "-2", "0", "0|0 10|0 11"),
    FUNCTION("GetProcessPidFuzzy", nullptr, 0, search(outcome, GetProcessPidFuzzy, "*app*"),
             kBoth, "-2", "0", "0|0 10|0 11"),
    FUNCTION("GetProcessPid", nullptr, 0, pid_t pid = -1;
             const int result = GetProcessPid("app 10", &pid);
             sprintf(outcome, "%d %d", result, pid), "0 10", "0 0", "0 0", ""),
    FUNCTION("ForeachProcDir", nullptr, 0, int visits = 0;
             const int result = ForeachProcDir([](const char*, int, void* counter, bool) {
               ++*static_cast<int*>(counter); }, &visits, true);
             sprintf(outcome, "%d %d", result, visits), "0 3", "-1 0", "-1 0", ""),
    FUNCTION("KillProcess", nullptr, 0,
             sprintf(outcome, "%d", KillProcess("x", 10)), "0", "0", "-1", ""),
    FUNCTION("MIRT_AgentShmInit", nullptr, kMapping, unlink(MIRT_AGENT_LOCK_FILE);
             sprintf(outcome, "%d", MIRT_AgentShmInit(7) != nullptr), "1", "0", "0", ""),
    FUNCTION("MIRT_InitShareMem", nullptr, kMapping, void* address = nullptr; bool made = false;
             const int result = MIRT_InitShareMem(&address, "MIRT_TEST", 64, &made);
             sprintf(outcome, "%d %d", result, address != nullptr), "0 1", "-1 0", "-1 0", ""),
    FUNCTION("Report", nullptr, 0, MIRT_PRIMARY_KEY_S key{}; char text[] = "x";
             const auto* report = MIRT_CreateErrRptSub(&key);
             const int added = MIRT_AddParamToErrRptSub(report, text, text);
             const int sent = MIRT_SendErrReportSub(report, nullptr, nullptr);
             MIRT_DestoryErrRptSub(report);
             sprintf(outcome, "%d %d %d", report != nullptr, added, sent),
             "1 0 0", "0 -1 -1", "1 0 0", "1 -1 0|1 0 -1"),
    FUNCTION("MIRT_GetDStatusCheckRedundancy", nullptr, 0, bool status = false;
             const int result = MIRT_GetDStatusCheckRedundancy(&status);
             sprintf(outcome, "%d %d", result, status), "0 1", "1 0", "0 1", ""),
    // Functions that allocate nothing return the same result.
    FUNCTION("Readers", nullptr, 0, char text[64] = ""; char name[8] = ""; int stat = 9;
             unsigned long voluntary = 0; unsigned long nonvoluntary = 0;
             const int read = Plugin::read_file("/proc/meminfo", text, sizeof text, 2);
             const int named = Plugin::get_procname_bypid(10, name, sizeof name);
             const int joined = Plugin::get_cmdline_bypid(10, text, sizeof text);
             Plugin::get_proc_status_info(10, 100, stat, voluntary, nonvoluntary);
             sprintf(outcome, "%d %d%s %d%s %d %lu %u %d", read, named, name, joined, text, stat,
                     voluntary, Plugin::get_phy_mem(10), Plugin().is_match_pid_tid(10, 100)),
             "0 0x 0app 10 1 5 3 1", "0 0x 0app 10 1 5 3 1", "-1 -1 -1 9 0 0 1", ""),
    FUNCTION("Matching", nullptr, 0,
             sprintf(outcome, "%d %d %d",
                     Plugin::check_with_cmdline("/proc/10/cmdline", "*p 1?", kMatchWildcard),
                     CheckProcessExist("x", 10), CheckProcIdAndProcName(10, "x")),
             "1 0 1", "0 0 1", "0 -1 0", ""),
    FUNCTION("ThreadTable", nullptr, 0, static thread_info_set_t table; Plugin plugin;
             plugin.alloc_thread_info(&table, 10, 100, 5, 6);
             plugin.alloc_thread_info(&table, 10, 200, 5, 6);
             plugin.clean_thread_info_set(&table);
             const bool found = plugin.find_thread_info(&table, 10, 100) != nullptr;
             sprintf(outcome, "%u %d", table.thread_info_unused, found);
             plugin.del_thread_info(&table, 0), "1 1", "1 1", "0 0", ""),
    FUNCTION("RawTicks", nullptr, 0,
             const auto total = Plugin::get_cpu_total_occupy();
             sprintf(outcome, "%llu %llu", total, Plugin::get_cpu_process_occupy(10)),
             "10000 500", "0 0", "0 0", "0 500|10000 0"),
};
// clang-format on

const auto name_of = [](const testing::TestParamInfo<Row>& row) {
  return std::string(row.param.scenario.name);
};
INSTANTIATE_TEST_SUITE_P(Items, OutOf, testing::ValuesIn(kItems), name_of);
INSTANTIATE_TEST_SUITE_P(Functions, OutOf, testing::ValuesIn(kFunctions), name_of);

}  // namespace
