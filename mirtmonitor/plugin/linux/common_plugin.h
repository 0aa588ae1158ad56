// How the plug-in finds and samples processes, and the records that it keeps between calls.
// Every function reads /proc again and keeps nothing open. State between calls is in the caller's
// context record. A missing process, an unreadable file and a shortage of memory are normal results
// (0, false, no match), not errors. Functions do not log unless their comment says so.
#ifndef COMMON_PLUGIN_H
#define COMMON_PLUGIN_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "mirt_agent_heart.h"
#include "mirt_interface.h"
#include "mirt_process.h"

// Context overlays: the state that an item keeps at the start of FI_CONTEXT_S.contextbuff. All zero
// is the initial state.

// A process with its last sample. PID lists also use this type, with pid only.
struct process_cpu_context_t {
  pid_t pid;                      // 0: none
  unsigned long long syscputime;  // the machine's ticks at the process's last sample
  unsigned long long procputime;  // the process's ticks, user and system
};

struct process_mem_context_t {
  pid_t pid;
};

struct process_handle_context_t {
  pid_t pid;
};

struct process_exist_context_t {
  pid_t pid;
};

struct sys_cpu_context_t {
  unsigned long long totaltime;  // ticks of all seven counters at the last sample
  unsigned long long idletime;
};

struct sys_usr_cpu_context_t {
  unsigned long long totaltime;
  unsigned long long uesrtime;
};

// Hung threads: the state of CheckProcessStatusIsD and CheckProcessStatusIsDForAppData.

// One thread seen in D state, with its context switches at the first and the latest detection.
struct thread_info_t {
  pid_t pid;
  pid_t tid;
  int times;  // consecutive detections without a context switch
  unsigned long first_voluntary_ctxt_switches;
  unsigned long first_nonvoluntary_ctxt_switches;
  unsigned long current_voluntary_ctxt_switches;
  unsigned long current_nonvoluntary_ctxt_switches;
};

constexpr unsigned int kMaxThreadInfos = 256;

// The threads of one item instance, in the order of their first detection, without gaps. Unused
// slots are all zero.
struct thread_info_set_t {
  unsigned int thread_info_unused;  // number of entries IN USE, despite its name
  thread_info_t thread_info[kMaxThreadInfos];
};

struct process_status_context_t {
  thread_info_set_t* pthreadinfoset;  // allocated at the first call, never freed
};

// A heartbeat item's last sight of its module.
typedef struct tagMIRT_AGENT_HEARTBEAT_CONTEXT_S {
  unsigned long long uiLastHeartBeat;                  // at the last call that found it changed
  MIRT_AGENT_HEART_INFO_S* pstMirtAgentHeartInfo_Shm;  // the module's entry; null until attached
} MIRT_AGENT_HEARTBEAT_CONTEXT_S;

static_assert(sizeof(MIRT_AGENT_HEARTBEAT_CONTEXT_S) == 16, "overlay layout");
static_assert(sizeof(process_cpu_context_t) == 24, "overlay layout");
static_assert(offsetof(process_cpu_context_t, syscputime) == 8, "overlay layout");
static_assert(offsetof(process_cpu_context_t, procputime) == 16, "overlay layout");
static_assert(sizeof(sys_cpu_context_t) == 16, "overlay layout");
static_assert(sizeof(sys_usr_cpu_context_t) == 16, "overlay layout");

// Selects what get_process_resource() measures.
typedef enum tagPROCESS_RESOURCE_E : int {
  PROCESS_RESOURCE_MEM = 0,
  PROCESS_RESOURCE_HANDLE = 1,
  PROCESS_RESOURCE_EXIST = 2,
  PROCESS_RESOURCE_MAX = 3
} PROCESS_RESOURCE_E;

// Match modes: how a process's command line, its arguments joined by single spaces, is compared
// with a configured name. Any other value means exact. An empty command line never matches.
enum : int {
  kMatchExact = 0,     // the whole command line
  kMatchPrefix = 1,    // it begins with the name
  kMatchWildcard = 2,  // '?' one character; '*' the shortest text after which the next part matches
};

class MIRT_API MIRT_Linux_Plugin {
 public:
  // The process with the highest value in the last sampling call over a wildcard pattern.
  int max_usage_pid;

  // Checks and helpers of the items (common_plugin.cpp).

  // True if the arguments are valid. If not, *result holds -1 and the reason, unless result is
  // null. Checks in this order: result, the number of parameters, argv, fixed parameter names,
  // context.
  bool input_para_check(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
  bool input_para_check_precmd(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                               FI_RESULT_S* result);
  bool input_para_check_cfgperiod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                  FI_RESULT_S* result);

  // Runs script through the shell and waits for it without a time limit. Returns 0 if its output
  // begins with checkRet, which can match only up to 31 bytes; -1 otherwise, also if the shell
  // cannot be started.
  static int exec_pre_cmd(char* script, char* checkRet);

  // Readers of /proc files (common_plugin_proc.cpp).

  // Copies line readlinenum (from 1) of a file to buf, with its newline, and fills the rest with
  // zeros. A line longer than size - 2 bytes counts as several lines. Returns 0, or -1 if there is
  // no such file or line; then buf is all zero, but unchanged if the file could not be opened.
  static int read_file(const char* file_path, char* buf, unsigned int size, int readlinenum);

  // Joins the NUL-terminated arguments in buf with spaces, in place, up to the first empty
  // argument.
  static void change_cmdlie_to_str(char* buf, unsigned int size);

  // Returns the start of item ie (from 1) of buffer, or its end if there are fewer items. Every
  // space separates items, so a space in the name field of a stat line shifts all later items by
  // one.
  static const char* get_items(const char* buffer, int ie);

  // Reads the kernel's short name of a process, up to its first white space, from the line of
  // /proc/<pid>/status that contains "Name:". Truncated to fit. Returns 0, or -1 with name
  // unchanged.
  static int get_procname_bypid(pid_t p, char* name, size_t size);

  // Reads the command line of a process, arguments joined by spaces, from /proc/<pid>/cmdline.
  // Returns 0, or -1 if it has none; kernel threads and zombies have none.
  static int get_cmdline_bypid(pid_t p, char* cmdline, size_t size);

  // Tells whether a thread is in D state, from /proc/<pid>/task/<tid>/status. Returns 0 with stat 1
  // and both counts of context switches, or with stat 0 and the counts unchanged. Returns -1 with
  // everything unchanged if the thread has ended. Callers set all three to 0 first.
  static int get_proc_status_info(pid_t pid, pid_t tid, int& stat,
                                  unsigned long& voluntary_ctxt_switches,
                                  unsigned long& nonvoluntary_ctxt_switches);

  // Search for processes (common_plugin_match.cpp).

  // True if the command line in file_path matches task_name in mode flag (kMatch...).
  static bool check_with_cmdline(const char* file_path, const char* task_name, const int flag);

  // Keeps p while its whole command line equals task_name. Otherwise p becomes the first such
  // process in the order of /proc, or 0, and both counts become 0. Returns p.
  static pid_t get_pid_byname(const char* task_name, pid_t& p);
  static pid_t get_pid_byname(const char* task_name, pid_t& p, unsigned long long& oldtotalcputime,
                              unsigned long long& oldprocputime);

  // Stores the PIDs of the first size matching processes in pids[].pid, in the order of /proc, and
  // their number in *used. The tick fields are unchanged.
  static void get_allpid(const char* task_name, process_cpu_context_t* pids, unsigned int size,
                         unsigned int* used, const int flag);

  // CPU (common_plugin_cpu.cpp).

  // Returns user + nice + system + idle ticks of all processors, from the first line of /proc/stat.
  // 0 on failure.
  static unsigned long long get_cpu_total_occupy();

  // Returns user + system ticks of a process: items 14 and 15 of /proc/<pid>/stat. 0 on failure.
  static unsigned long long get_cpu_process_occupy(pid_t p);

  // Reads the first seven counters of /proc/stat. Returns 0, or -1 with all unchanged if it cannot
  // be opened.
  static int get_sys_cpu_tick(unsigned long long& user, unsigned long long& nice,
                              unsigned long long& system, unsigned long long& idle,
                              unsigned long long& iowait, unsigned long long& irq,
                              unsigned long long& softirq);

  // Returns the machine's busy time in percent since the sample in *pstContext, and replaces that
  // sample. iowait counts as busy. Returns 0.0 and keeps the sample if the file cannot be read or
  // no tick has passed; 0.0 and replaces it if a counter went backwards.
  float get_sys_cpu(sys_cpu_context_t* pstContext);

  // The same for user mode only, without nice.
  float get_sys_usr_cpu(sys_usr_cpu_context_t* pstUsrContext);

  // Returns the number of online processors, read once per process.
  static unsigned int get_cpu_core_num();

  // The three functions below return a process's share of the machine's time in percent (one of
  // four processors busy: 25).
  //
  // The process whose command line equals task_name. Measures since the sample in the caller's
  // three fields and updates them; measures since boot if they are zero.
  float get_process_cpu(const char* task_name, pid_t& p, unsigned long long& oldtotalcputime,
                        unsigned long long& oldprocputime);
  // The highest value over period_us among at most 128 processes that match the pattern. Sets
  // max_usage_pid to that process, the last one of equals; unchanged if none matches. Sleeps only
  // if one matches.
  float get_process_cpu(const char* task_name, int period_us);
  // The highest value over 0.5 s among at most 128 processes whose command line begins with
  // task_name. Sets *pid to that process, the first one of equals; unchanged if none is above 0.
  float get_process_cpu_extern(const char* task_name, int* pid);

  // Memory, open files (handles), disk (common_plugin_resource.cpp).

  // Returns resident memory in whole MiB: VmRSS of /proc/<pid>/status. 0 on failure.
  static unsigned int get_phy_mem(pid_t p);

  // Memory in use in percent, including caches; free memory in MiB. Read from the first two lines
  // of /proc/meminfo, by position. 0.0 if they cannot be read.
  float get_sys_mem();
  float get_sys_free_mem();

  // Returns the used share of the file system that contains dir_name, in whole percent; -1.0 if
  // statfs() fails.
  float get_disk_usage(const char* dir_name);

  // Measure the process whose command line equals task_name: memory in MiB, open files in whole
  // percent of the soft limit, existence as 1.0 or 0.0. p works as in get_pid_byname().
  float get_process_memory(const char* task_name, pid_t& p);
  float get_process_handle(const char* task_name, pid_t& p);
  float get_process_exist(const char* task_name, pid_t& p);

  // The highest value among all processes that match the pattern. Set max_usage_pid to that
  // process, the last one of equals.
  float get_process_memory(const char* task_name);
  float get_process_handle(const char* task_name);

  // The highest value among all processes whose command line begins with task_name. Sets *pid to
  // that process, the first one of equals; unchanged if none is above 0.
  float get_process_resource(PROCESS_RESOURCE_E res_type, const char* task_name, int* pid);

  // The table of hung threads (process_status_table.cpp). A null table is an empty table that
  // accepts no entries.

  // Returns the entry of that thread, or null. Valid until the next deletion.
  thread_info_t* find_thread_info(thread_info_set_t* pThrInfoSet, pid_t pid, pid_t tid);
  // Adds an entry with these first counts and 0 in all other fields. Null if the table is full. The
  // thread must not have an entry yet.
  thread_info_t* alloc_thread_info(thread_info_set_t* pThrInfoSet, pid_t pid, pid_t tid,
                                   unsigned long voluntary_ctxt_switches,
                                   unsigned long nonvoluntary_ctxt_switches);
  // Removes entry delindex, if it exists. Later entries keep their order.
  void del_thread_info(thread_info_set_t* pThrInfoSet, unsigned int delindex);
  // Removes every thread that has ended, left D state, or had a context switch since its first
  // detection.
  void clean_thread_info_set(thread_info_set_t* pThrInfoSet);
  // True if /proc/<pid>/task/<tid>/status exists.
  bool is_match_pid_tid(pid_t pid, pid_t tid);

  // Hung threads (process_status.cpp). These functions log: see docs/hung-threads.md.

  // Makes one detection in at most 128 processes that match the pattern and updates the table.
  // Returns 1 with the first hung thread and its process, or 0 with both 0. checkappstatus skips
  // processes that took a fatal signal.
  int check_process_status_is_D_Fuzzy(const char* task_name, thread_info_set_t* pThrInfoSet,
                                      bool checkappstatus, pid_t& dstatuspid, pid_t& dstatustid);
  // The same for one process: /proc/<pid>/task.
  int check_process_status_is_D_byPid(pid_t pid, thread_info_set_t* pThrInfoSet, pid_t& dstatustid);

  // True if there is exactly one parameter, named "UserData". If not, *result holds -1 and the
  // reason.
  bool input_para_check_RebootAppData(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                      FI_RESULT_S* result);

 private:
  // Logs a thread with more than 7 consecutive detections, and writes its kernel stack to the
  // kernel log through a shell.
  static void print_proc_status_info(thread_info_t* pThreadInfo, int times);

  // Compares with a wildcard pattern in at most strlen(str1) x strlen(pattern) steps. Only the
  // first character is anchored at the start; docs/items.md has the rules.
  static bool str_fuzzy_match(const char* str1, const char* pattern);
  // True if the whole command line of p equals task_name. Always false for PID 0.
  static bool check_pid_with_name(const char* task_name, pid_t& p);

  // Returns the share of the machine's time since the sample in the two counts, and replaces them.
  // Returns 0.0 and keeps them if one cannot be read, the process has used no time, or no tick has
  // passed; 0.0 and replaces them if a counter went backwards.
  float get_pcpu(pid_t p, unsigned long long& oldtotalcputime, unsigned long long& oldprocputime);

  // Reads MemTotal and MemFree in kB. False, with both unchanged, if /proc/meminfo cannot be
  // opened.
  bool get_sys_mem_info(unsigned long long& totalMem, unsigned long long& freeMem);

  // Return the number of open descriptors (/proc/<pid>/fd), their soft limit (line 9 of
  // /proc/<pid>/limits; 0 if unlimited), and the number in percent of the limit. 0 on failure.
  unsigned int get_handle_count(pid_t p);
  unsigned int get_handle_max(pid_t p);
  unsigned int get_handle_usage(pid_t p);
};

// Returns the value of the first parameter with that name, a pointer into argv; null if there is
// none.
MIRT_API char* GetParaValue(int argc, FI_PARAM_S* argv, const char* name);

// Converts whole seconds to microseconds, limited to 0.5 s to 240 s. Text that is not a number
// becomes 0.5 s.
MIRT_API int ConvertStr2PeriodUS(const char* value);

// True if the process exists and has exactly that short name. False for a null name.
MIRT_API bool CheckProcIdAndProcName(pid_t pid, const char* procName);

// Implements both hung-thread items: returns 1.0 with the thread's id in result->pid, or 0.0.
MIRT_API float CheckProcessStatusIsDIntenal(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                            FI_RESULT_S* result, bool checkappstatus);

// Asks the framework whether the data plane may be recovered. Returns 0 with the answer's first
// byte in *redundancyStatus; only the value 1 allows it. Returns 1 and logs on any failure.
MIRT_API int32_t MIRT_GetDStatusCheckRedundancy(bool* redundancyStatus);

#endif
