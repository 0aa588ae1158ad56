// Finds threads that hang in uninterruptible sleep, and recovers the data plane.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common_plugin.h"
#include "context_overlay.h"
#include "heap_memory.h"
#include "item_result.h"
#include "kelv_cmd.h"
#include "kelv_log.h"
#include "kelv_process.h"
#include "kelv_time.h"
#include "mirt_comm.h"
#include "mirt_items.h"
#include "proc_file.h"
#include "rate_limiter.h"

namespace {

constexpr unsigned int MY_PID = PID_CTRL_MIRTMONITOR;

constexpr unsigned int kMaxProcesses = 128;
constexpr int kSilentTimes = 7;  // consecutive detections that are not logged
constexpr int kHungTimes = 10;   // a thread with more consecutive detections hangs
constexpr size_t kReportSize = 256;
constexpr size_t kDumpCommandSize = 384;

RateLimiter g_fatal_signal_limiter;

bool took_fatal_signal(pid_t pid) {
  int status = KELV_PROCESS_STATUS_NORMAL;
  return kelv_process_status_check(pid, &status) == 0 && status == KELV_PROCESS_STATUS_COREDUMP;
}

// Counts one more detection of a thread in D state. False, with times unchanged, if the thread had
// a context switch since its first detection.
bool age(thread_info_t& entry, unsigned long voluntary, unsigned long nonvoluntary) {
  entry.current_voluntary_ctxt_switches = voluntary;
  entry.current_nonvoluntary_ctxt_switches = nonvoluntary;
  if (voluntary != entry.first_voluntary_ctxt_switches ||
      nonvoluntary != entry.first_nonvoluntary_ctxt_switches) {
    return false;
  }
  ++entry.times;
  return true;
}

}  // namespace

void MIRT_Linux_Plugin::print_proc_status_info(thread_info_t* pThreadInfo, int times) {
  if (pThreadInfo == nullptr || times <= kSilentTimes) return;
  const auto report = allocate_zeroed<char>(kReportSize);
  const auto command = allocate_zeroed<char>(kDumpCommandSize);
  if (report == nullptr || command == nullptr) return;
  snprintf_s(report.get(), kReportSize, kReportSize - 1,
             "Pid %u Tid %d is D status. Detected times %d."
             "First detected vcsw is %lu, nvcsw is %lu."
             "Now detected vcsw is %lu, nvcsw is %lu.",
             static_cast<unsigned int>(pThreadInfo->pid), pThreadInfo->tid, times,
             pThreadInfo->first_voluntary_ctxt_switches,
             pThreadInfo->first_nonvoluntary_ctxt_switches,
             pThreadInfo->current_voluntary_ctxt_switches,
             pThreadInfo->current_nonvoluntary_ctxt_switches);
  KELV_LOG(MY_PID, DBG_LOG_ERROR, "%s", report.get());
  snprintf_s(command.get(), kDumpCommandSize, kDumpCommandSize - 1,
             "echo '%s' > /dev/kmsg 2>&1;echo CallTrace > /dev/kmsg 2>&1;"
             "cat /proc/%u/stack > /dev/kmsg 2>&1",
             report.get(), static_cast<unsigned int>(pThreadInfo->tid));
  if (FILE* const shell = popen(command.get(), "r")) pclose(shell);
}

int MIRT_Linux_Plugin::check_process_status_is_D_byPid(pid_t pid, thread_info_set_t* pThrInfoSet,
                                                       pid_t& dstatustid) {
  dstatustid = 0;
  SubdirectoryReader threads(ProcPath<128>("/proc/%d/task", pid).get());
  if (!threads.is_open()) return 0;
  while (const char* name = threads.next()) {
    const pid_t tid = atoi(name);
    int stat = 0;
    unsigned long voluntary = 0, nonvoluntary = 0;
    if (get_proc_status_info(pid, tid, stat, voluntary, nonvoluntary) != 0 || stat != 1) continue;
    thread_info_t* entry = find_thread_info(pThrInfoSet, pid, tid);
    if (entry == nullptr) {
      entry = alloc_thread_info(pThrInfoSet, pid, tid, voluntary, nonvoluntary);
    }
    if (entry == nullptr) break;  // the table is full
    if (!age(*entry, voluntary, nonvoluntary)) continue;
    print_proc_status_info(entry, entry->times);
    if (entry->times > kHungTimes && dstatustid == 0) dstatustid = tid;
  }
  return dstatustid != 0 ? 1 : 0;
}

int MIRT_Linux_Plugin::check_process_status_is_D_Fuzzy(const char* task_name,
                                                       thread_info_set_t* pThrInfoSet,
                                                       bool checkappstatus, pid_t& dstatuspid,
                                                       pid_t& dstatustid) {
  dstatuspid = 0;
  dstatustid = 0;
  if (task_name == nullptr || pThrInfoSet == nullptr) return 0;
  const auto pPids = allocate_zeroed<process_cpu_context_t>(kMaxProcesses);
  if (pPids == nullptr) return 0;
  unsigned int used = 0;
  get_allpid(task_name, pPids.get(), kMaxProcesses, &used, kMatchWildcard);
  for (unsigned int i = 0; i < used; ++i) {
    const pid_t pid = pPids[i].pid;
    if (checkappstatus && took_fatal_signal(pid)) {
      const RateLimiter::Verdict verdict = g_fatal_signal_limiter.ask();
      const int line = __LINE__;  // used by both records and in the text
      if (verdict.missed != 0) {
        kelvlog(MY_PID, DBG_LOG_INFO, kelvlog_base_name(__FILE__), line, __func__, 0,
                "print: %u messages suppressed.%s,line=%d.", verdict.missed, __func__, line);
      }
      if (verdict.print) {
        kelvlog(MY_PID, DBG_LOG_EVENT, kelvlog_base_name(__FILE__), line, __func__, 0,
                "Process '%s' receive a fatal signal and stop the process D status check, pid=%u.",
                task_name, static_cast<unsigned int>(pid));
      }
      continue;
    }
    pid_t tid = 0;
    const bool hung = check_process_status_is_D_byPid(pid, pThrInfoSet, tid) == 1;
    if (hung && dstatuspid == 0 && dstatustid == 0) {
      dstatuspid = pid;
      dstatustid = tid;
    }
  }
  return dstatuspid != 0 || dstatustid != 0 ? 1 : 0;
}

namespace {

// Returns the instance's table. The first call allocates it and stores it in the context at once,
// so that the next call finds it even if this one never returns. Null if memory is short.
thread_info_set_t* table_of(FI_CONTEXT_S& context) {
  ContextOverlay<process_status_context_t> overlay(context);
  if (overlay->pthreadinfoset == nullptr) {
    overlay->pthreadinfoset = allocate_zeroed<thread_info_set_t>().release();
  }
  return overlay->pthreadinfoset;
}

}  // namespace

float CheckProcessStatusIsDIntenal(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                   FI_RESULT_S* result, bool checkappstatus) {
  MIRT_Linux_Plugin plugin;
  if (!plugin.input_para_check(argc, argv, context, result)) return 0.0F;
  thread_info_set_t* const table = table_of(*context);
  if (table == nullptr) {
    set_failure(*result, "Allocate private data failed.");
    return 0.0F;
  }
  plugin.clean_thread_info_set(table);
  pid_t pid = 0, tid = 0;
  const int hung =
      plugin.check_process_status_is_D_Fuzzy(argv[0].value, table, checkappstatus, pid, tid);
  result->result = 0;
  result->pid = tid;
  return static_cast<float>(hung);
}

float CheckProcessStatusIsD(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                            FI_RESULT_S* result) {
  return CheckProcessStatusIsDIntenal(argc, argv, context, result, false);
}

// The data plane.

namespace {

constexpr char kAppData[] = "/QAV/bin/./app_data 12";
constexpr char kCollectStacks[] = "/QAV/script/os_lookup_stack.sh > /dev/kmsg 2>&1 &";
constexpr uint32_t kCollectWait10ms = 100;

// Reads the framework's answer as a byte: reading a bool that contains neither 0 nor 1 is
// undefined.
unsigned char as_byte(const bool& status) {
  unsigned char byte = 0;
  memcpy(&byte, &status, sizeof byte);
  return byte;
}

void process_print_stack() {
  KELV_LOG(MY_PID, DBG_LOG_WARNING, "Sys collect stack is start.");
  char command[256];
  memset_s(command, sizeof command, 0, sizeof command);
  snprintf_s(command, sizeof command, sizeof command - 1, kCollectStacks);
  if (kelv_cmd_exec(command) != 0) {
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "Heal execute collect diagnose script fail.");
    return;
  }
  kelv_10msleep(kCollectWait10ms);
  KELV_LOG(MY_PID, DBG_LOG_WARNING, "Sys collect stack is end.");
}

// Sends SIGUSR1 to a process or thread, with its own id as the value. Returns the result of
// sigqueue().
int send_sigusr1(pid_t target) {
  sigval value;
  memset_s(&value, sizeof value, 0, sizeof value);
  value.sival_int = target;
  return sigqueue(target, SIGUSR1, value);
}

MIRT_COMM_INFO_S redundancy_request() {
  MIRT_COMM_INFO_S stMsgInfo;
  memset_s(&stMsgInfo, sizeof stMsgInfo, 0, sizeof stMsgInfo);
  stMsgInfo.dstNid = static_cast<uint16_t>(MIRT_CommGetLocalNid());
  stMsgInfo.dstPid = PID_CTRL_MIRTKERNELAGENT;
  stMsgInfo.srcNid = static_cast<uint16_t>(MIRT_CommGetLocalNid());
  stMsgInfo.srcPid = PID_CTRL_MIRTCORE;
  stMsgInfo.msgOPCode = MIRT_OP_EXECUT_FILTER_ERRRPT;
  stMsgInfo.msgLen = sizeof(int32_t);
  stMsgInfo.timeOut = 30;
  return stMsgInfo;
}

}  // namespace

int32_t MIRT_GetDStatusCheckRedundancy(bool* redundancyStatus) {
  if (redundancyStatus == nullptr) {
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "Input is null.");
    return 1;
  }
  MIRT_COMM_RET_DATA_S stRetData;
  memset_s(&stRetData, sizeof stRetData, 0, sizeof stRetData);
  MIRT_COMM_INFO_S stMsgInfo = redundancy_request();
  int32_t pMsg = 0;
  const int32_t sent = MIRT_CommSendRequestMsg(&stMsgInfo, &pMsg, &stRetData);
  if (sent != 0) {
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "Send msg failed, return value(%d).", sent);
    return 1;
  }
  if (stRetData.buf == nullptr) {
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "Get return data is null.");
    return 1;
  }
  memcpy(redundancyStatus, stRetData.buf, 1);
  KELV_LOG(MY_PID, DBG_LOG_EVENT, "MIRT check redundancy status(%u) for app_data Dstatus.",
           static_cast<unsigned int>(as_byte(*redundancyStatus)));
  MIRT_CommFreeRetData(&stRetData);
  return 0;
}

namespace {

// True if the framework allows recovery. If not, logs that with the item's name and line.
bool recovery_allowed(const char* item, int line) {
  bool redundancyStatus = false;
  const int32_t rst = MIRT_GetDStatusCheckRedundancy(&redundancyStatus);
  const unsigned char status = as_byte(redundancyStatus);
  if (rst == 0 && status == 1) return true;
  kelvlog(MY_PID, DBG_LOG_ERROR, kelvlog_base_name(__FILE__), line, item, 0,
          "Exec MIRT_GetDStatusCheckRedundancy rst(%d), redundancyStatus(%d).", rst, status);
  return false;
}

}  // namespace

float CheckProcessStatusIsDForAppData(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                      FI_RESULT_S* result) {
  const float hung = CheckProcessStatusIsDIntenal(argc, argv, context, result, true);
  if (static_cast<int>(hung) != 1) return hung;
  if (!recovery_allowed(__func__, __LINE__)) return 0.0F;
  process_print_stack();
  const int tid = result->pid;
  if (send_sigusr1(tid) != 0) {
    KELV_LOG(MY_PID, DBG_LOG_WARNING, "Send SIGUSR1 to app_data thread %d failed.", tid);
  } else {
    KELV_LOG(MY_PID, DBG_LOG_EVENT, "Send SIGUSR1 to app_data thread %d success.", tid);
  }
  return hung;
}

bool MIRT_Linux_Plugin::input_para_check_RebootAppData(int argc, FI_PARAM_S* argv,
                                                       FI_CONTEXT_S* /*context*/,
                                                       FI_RESULT_S* result) {
  return check_arguments(argc, argv, result, 1, {"UserData"});
}

int RebootAppData(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
  if (!recovery_allowed(__func__, __LINE__)) return -1;
  auto pPids = allocate_zeroed<process_cpu_context_t>(kMaxProcesses);
  if (pPids == nullptr) return -1;
  pid_t target = 0;
  if (MIRT_Linux_Plugin().input_para_check_RebootAppData(argc, argv, context, result)) {
    target = atoi(argv[0].value);
  } else {
    unsigned int used = 0;
    MIRT_Linux_Plugin::get_allpid(kAppData, pPids.get(), 1, &used, kMatchPrefix);
    target = pPids[0].pid;
    if (target == 0) return -1;
  }
  pPids.reset();
  process_print_stack();
  const int sent = send_sigusr1(target);
  if (result != nullptr) result->result = 0;
  return sent != 0 ? 1 : 0;
}
