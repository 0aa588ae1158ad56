// The heartbeat check and an error report. The table is in a private /dev/shm, so that the
// machine's table is not changed.
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "bare_calls.h"
#include "idle_processes.h"
#include "kelv_log.h"
#include "mirt_agent_heart.h"
#include "mirt_host.h"
#include "mirt_items.h"
#include "paired.h"

namespace {

constexpr int kEntries = MIRT_AGENT_HEART_MAX;

// Runs attach in a mount namespace with an empty /dev/shm and /tmp, and then returns to the
// machine's namespace, which other rows read.
template <typename Attach>
bool in_private_namespace(Attach attach) {
  const int machine = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
  if (machine < 0 || unshare(CLONE_FS | CLONE_NEWNS) != 0) return false;
  const bool attached = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                        mount("tmpfs", "/dev/shm", "tmpfs", 0, "size=64k,mode=1777") == 0 &&
                        mount("tmpfs", "/tmp", "tmpfs", 0, "size=64k,mode=1777") == 0 && attach();
  const bool back = setns(machine, CLONE_NEWNS) == 0;
  close(machine);
  return attached && back;
}

// Fifty supervised processes that do not beat and have no flow id, each with its configured item.
class Supervision {
 public:
  Supervision() {
    const std::vector<pid_t>& idle = idle_processes().pids();
    if (idle.size() < kEntries) return;
    ready_ = in_private_namespace([&] {
      for (size_t i = 0; i < kEntries; ++i) {
        if (!add(i, idle[i])) return false;
      }
      return true;
    });
  }
  bool ready() const { return ready_; }

  // Calls the item as a host does, after a beat of the process.
  float check(size_t i) {
    Instance& instance = instances_[i];
    ++entries_[i]->heartbeat;
    return ProcessHeartBeat(2, instance.parameters, &instance.context, &instance.result);
  }
  // True if the item compared the heartbeat and did not stop at the name check.
  bool is_judged(size_t i) {
    check(i);
    entries_[i]->flowid = 1;
    Instance& instance = instances_[i];
    const bool hangs =
        ProcessHeartBeat(2, instance.parameters, &instance.context, &instance.result) == 0.0F;
    entries_[i]->flowid = MIRT_AGENT_HEART_NO_FLOW;
    return hangs;
  }
  const std::vector<std::string>& status_paths() const { return status_paths_; }

 private:
  struct Instance {
    FI_PARAM_S parameters[2]{};
    FI_CONTEXT_S context{};
    FI_RESULT_S result{};
  };
  // The first check also attaches the item.
  bool add(size_t i, pid_t pid) {
    entries_[i] = MIRT_AgentShmInit(static_cast<uint16_t>(i));
    if (entries_[i] == nullptr) return false;
    entries_[i]->processid = static_cast<uint32_t>(pid);
    status_paths_.push_back(proc_path(pid, "status"));
    set(instances_[i].parameters[0], "ProcessName", "mirt_bench_idle");
    set(instances_[i].parameters[1], "ProcessMoudleId", std::to_string(i));
    return check(i) == 1.0F;
  }
  static void set(FI_PARAM_S& parameter, const std::string& name, const std::string& value) {
    name.copy(parameter.name, sizeof parameter.name - 1);
    value.copy(parameter.value, sizeof parameter.value - 1);
  }

  bool ready_ = false;
  std::array<MIRT_AGENT_HEART_INFO_S*, kEntries> entries_{};
  std::array<Instance, kEntries> instances_{};
  std::vector<std::string> status_paths_;
};

Supervision& supervision() {
  static Supervision the_only_one;
  return the_only_one;
}

void HeartbeatOne(benchmark::State& state) {
  Supervision& all = supervision();
  if (!all.ready() || !all.is_judged(0)) return state.SkipWithError("no private table");
  paired(
      state, [&all] { benchmark::DoNotOptimize(all.check(0)); },
      [path = all.status_paths()[0].c_str()] { bare_read(path); });
}
PAIRED_ROW(HeartbeatOne);

void HeartbeatFifty(benchmark::State& state) {
  Supervision& all = supervision();
  if (!all.ready() || !all.is_judged(kEntries - 1)) return state.SkipWithError("no table");
  paired(
      state,
      [&all] {
        for (size_t i = 0; i < kEntries; ++i) benchmark::DoNotOptimize(all.check(i));
      },
      [&all] { bare_read_all(all.status_paths()); });
}
PAIRED_ROW(HeartbeatFifty);

// A heartbeat-lost report with four parameters, compared with the same calls of the host library
// and the log. Handler and sink ignore what they receive.
void ErrorReport(benchmark::State& state) {
  FI_PARAM_S parameters[5]{};
  const char* const kTexts[5][2] = {{"ErrCode", "0xF000020F"},
                                    {"ProcessName", "app_data"},
                                    {"ProcessMoudleId", "17"},
                                    {"UserData", "31"},
                                    {"Instance", "app_data-heartbeat"}};
  for (size_t i = 0; i < 5; ++i) {
    std::string(kTexts[i][0]).copy(parameters[i].name, sizeof parameters[i].name - 1);
    std::string(kTexts[i][1]).copy(parameters[i].value, sizeof parameters[i].value - 1);
  }
  mirt_host_set_report_handler([](const MIRT_HOST_REPORT_S*, void*) { return 0; }, nullptr);
  kelvlog_set_sink([](const KELV_LOG_RECORD_S*) {});
  FI_RESULT_S result{};
  if (SendErrRpt(5, parameters, nullptr, &result) != 0) return state.SkipWithError("not sent");
  paired(
      state, [&] { benchmark::DoNotOptimize(SendErrRpt(5, parameters, nullptr, &result)); },
      [&parameters] {
        MIRT_PRIMARY_KEY_S key{0xF011, 0xF000020F, "app_data:31", 1};
        MIRT_ERRREPORT_S* const report = MIRT_CreateErrRptSub(&key);
        for (size_t i = 1; i < 5; ++i) {
          MIRT_AddParamToErrRptSub(report, parameters[i].name, parameters[i].value);
        }
        MIRT_GetPrimaryKeySub(report, &key);
        KELV_LOG(PID_CTRL_MIRTMONITOR, DBG_LOG_EVENT, "DiagCode(0x%X) resId %s.", key.errCode,
                 key.resId);
        benchmark::DoNotOptimize(MIRT_SendErrReportSub(report, nullptr, nullptr));
        MIRT_DestoryErrRptSub(report);
      });
  kelvlog_set_sink(nullptr);
  mirt_host_set_report_handler(nullptr, nullptr);
}
PAIRED_ROW(ErrorReport);

}  // namespace
