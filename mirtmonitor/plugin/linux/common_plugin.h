// The plug-in's sampling and discovery logic, and the records that it keeps between calls.
//
// Every function reads /proc anew and keeps nothing; what must outlive a call lies in the caller's
// context record. A process that is not there, a file that cannot be read and memory that cannot be
// had are ordinary answers (0, false, no match), never errors, and nothing here logs unless it says
// so.
#ifndef COMMON_PLUGIN_H
#define COMMON_PLUGIN_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "mirt_agent_heart.h"
#include "mirt_interface.h"
#include "mirt_process.h"

// Context overlays: what an item keeps at the start of FI_CONTEXT_S.contextbuff. All zero is the
// state in which nothing has been seen yet.

// A process with its last sample. Also the element of PID lists, where only pid counts.
struct process_cpu_context_t {
  pid_t pid;                      // 0: none
  unsigned long long syscputime;  // the machine's ticks at the process's last sample
  unsigned long long procputime;  // the process's own ticks, user and system
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

// Hung threads: what CheckProcessStatusIsD and its data-plane sibling keep.

// One thread seen in D state, with its context switches at first sight and at the latest.
struct thread_info_t {
  pid_t pid;
  pid_t tid;
  int times;  // detections in a row in which it stood still
  unsigned long first_voluntary_ctxt_switches;
  unsigned long first_nonvoluntary_ctxt_switches;
  unsigned long current_voluntary_ctxt_switches;
  unsigned long current_nonvoluntary_ctxt_switches;
};

constexpr unsigned int kMaxThreadInfos = 256;

// The threads of one item instance, packed at the front in the order in which they were first seen;
// the slots behind are all zero.
struct thread_info_set_t {
  unsigned int thread_info_unused;  // entries IN USE, whatever the name says
  thread_info_t thread_info[kMaxThreadInfos];
};

struct process_status_context_t {
  thread_info_set_t* pthreadinfoset;  // made at the first call, for the life of the process
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

// What get_process_resource() measures.
typedef enum tagPROCESS_RESOURCE_E : int {
  PROCESS_RESOURCE_MEM = 0,
  PROCESS_RESOURCE_HANDLE = 1,
  PROCESS_RESOURCE_EXIST = 2,
  PROCESS_RESOURCE_MAX = 3
} PROCESS_RESOURCE_E;

// Matching modes: how a process's command line, its arguments joined by single blanks, is compared
// with a configured name. Any other value means exact. An empty command line never matches.
enum : int {
  kMatchExact = 0,     // the whole command line
  kMatchPrefix = 1,    // it begins with the name
  kMatchWildcard = 2,  // '?' one character, '*' the shortest run that lets the next part match
};

class MIRT_API MIRT_Linux_Plugin {
 public:
  // The process that gave the highest value in the last sampling call over a wildcard pattern.
  int max_usage_pid;

  // Checks and services of the items (common_plugin.cpp).

  // May the item go on? If not, *result holds -1 and the reason; a null result is left alone.
  // The tests, in this order: result, the count of parameters, argv, names where they are fixed,
  // context.
  bool input_para_check(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
  bool input_para_check_precmd(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                               FI_RESULT_S* result);
  bool input_para_check_cfgperiod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                  FI_RESULT_S* result);

  // Runs script through the shell and waits for it, without a time limit. 0 when its output begins
  // with checkRet, of which at most 31 bytes can match; -1 otherwise, also when it cannot be
  // started.
  static int exec_pre_cmd(char* script, char* checkRet);

  // Readers of /proc files (common_plugin_proc.cpp).

  // Leaves line readlinenum (from 1) of a file in buf, its newline included, zeros behind it. A
  // line of more than size - 2 bytes counts as several. 0; or -1 when there is no such file or
  // line: buf is then all zero, unless the file could not be opened.
  static int read_file(const char* file_path, char* buf, unsigned int size, int readlinenum);

  // Joins the NUL-terminated arguments in buf by blanks, in place, up to the first empty one.
  static void change_cmdlie_to_str(char* buf, unsigned int size);

  // Where item ie (from 1) of buffer begins; its end when there are fewer. Every blank separates,
  // so a blank in the name field of a stat line moves all later items by one.
  static const char* get_items(const char* buffer, int ie);

  // The kernel's short name of a process, up to its first blank, from the line of
  // /proc/<pid>/status that holds "Name:". Cut to fit. 0; or -1 with name untouched.
  static int get_procname_bypid(pid_t p, char* name, size_t size);

  // The command line of a process, arguments joined by blanks, from /proc/<pid>/cmdline. 0; or -1
  // when there is none, as with kernel threads and zombies.
  static int get_cmdline_bypid(pid_t p, char* cmdline, size_t size);

  // Is a thread in D state? From /proc/<pid>/task/<tid>/status. 0 with stat 1 and both counts of
  // context switches, or with stat 0 and the counts untouched; -1, all untouched, when the thread
  // has gone. Callers set all three to 0 first.
  static int get_proc_status_info(pid_t pid, pid_t tid, int& stat,
                                  unsigned long& voluntary_ctxt_switches,
                                  unsigned long& nonvoluntary_ctxt_switches);

  // Discovery (common_plugin_match.cpp).

  // Does the command line in file_path match task_name in mode flag (kMatch...)?
  static bool check_with_cmdline(const char* file_path, const char* task_name, const int flag);

  // Keeps p while its whole command line equals task_name; else p becomes the first such process in
  // the order of /proc, or 0, and both counts become 0. Returns p.
  static pid_t get_pid_byname(const char* task_name, pid_t& p);
  static pid_t get_pid_byname(const char* task_name, pid_t& p, unsigned long long& oldtotalcputime,
                              unsigned long long& oldprocputime);

  // Writes the PIDs of the first size processes that match into pids[].pid, in the order of /proc,
  // and their number into *used. The tick fields are left alone.
  static void get_allpid(const char* task_name, process_cpu_context_t* pids, unsigned int size,
                         unsigned int* used, const int flag);

  // CPU (common_plugin_cpu.cpp).

  // Ticks of user, nice, system and idle, of all processors: the first line of /proc/stat. 0 on
  // failure.
  static unsigned long long get_cpu_total_occupy();

  // Ticks of a process, user and system: items 14 and 15 of /proc/<pid>/stat. 0 on failure.
  static unsigned long long get_cpu_process_occupy(pid_t p);

  // The first seven counters of /proc/stat. 0; or -1, all untouched, when it cannot be opened.
  static int get_sys_cpu_tick(unsigned long long& user, unsigned long long& nice,
                              unsigned long long& system, unsigned long long& idle,
                              unsigned long long& iowait, unsigned long long& irq,
                              unsigned long long& softirq);

  // Busy share of the machine in percent since the sample in *pstContext, which is then replaced;
  // iowait counts as busy. 0.0, with the sample kept, when the file cannot be read or no tick has
  // passed; 0.0, with the sample replaced, when a counter went backwards.
  float get_sys_cpu(sys_cpu_context_t* pstContext);

  // The same for user mode alone, without nice.
  float get_sys_usr_cpu(sys_usr_cpu_context_t* pstUsrContext);

  // Processors online, asked once for the life of the process.
  static unsigned int get_cpu_core_num();

  // A process's share of the machine's time in percent (one of four processors busy: 25).
  //
  // The process whose command line equals task_name, since the sample in the caller's three fields,
  // which are advanced; since start-up when they are new.
  float get_process_cpu(const char* task_name, pid_t& p, unsigned long long& oldtotalcputime,
                        unsigned long long& oldprocputime);
  // The highest over period_us among at most 128 processes that match the pattern. max_usage_pid is
  // the winner, the later one of equals; it is left alone when none matches. Sleeps if one does.
  float get_process_cpu(const char* task_name, int period_us);
  // The highest over half a second among at most 128 processes whose command line begins with
  // task_name. *pid is the winner, the earlier one of equals; left alone when none is above 0.
  float get_process_cpu_extern(const char* task_name, int* pid);

  // Memory, handles, disk (common_plugin_resource.cpp).

  // Resident memory in whole MiB: VmRSS of /proc/<pid>/status. 0 on failure.
  static unsigned int get_phy_mem(pid_t p);

  // Memory in use in percent, caches included; free memory in MiB. From the first two lines of
  // /proc/meminfo, by position. 0.0 when they cannot be read.
  float get_sys_mem();
  float get_sys_free_mem();

  // Used share of the file system that holds dir_name, in whole percent; -1.0 if it cannot be
  // asked.
  float get_disk_usage(const char* dir_name);

  // Memory in MiB, handles in whole percent of the soft limit, existence as 1.0 or 0.0, of the
  // process whose command line equals task_name; p is remembered as in get_pid_byname().
  float get_process_memory(const char* task_name, pid_t& p);
  float get_process_handle(const char* task_name, pid_t& p);
  float get_process_exist(const char* task_name, pid_t& p);

  // The highest among all processes that match the pattern; max_usage_pid is the winner, the later
  // one of equals.
  float get_process_memory(const char* task_name);
  float get_process_handle(const char* task_name);

  // The highest among all processes whose command line begins with task_name; *pid is the winner,
  // the earlier one of equals, and left alone when none is above 0.
  float get_process_resource(PROCESS_RESOURCE_E res_type, const char* task_name, int* pid);

  // The table of hung threads (process_status_table.cpp). A null table has no entries and takes
  // none.

  // The entry of that thread, or null. Valid until the next deletion.
  thread_info_t* find_thread_info(thread_info_set_t* pThrInfoSet, pid_t pid, pid_t tid);
  // A new entry with these first counts and all else 0; null when the table is full. The caller has
  // made sure that the thread has none yet.
  thread_info_t* alloc_thread_info(thread_info_set_t* pThrInfoSet, pid_t pid, pid_t tid,
                                   unsigned long voluntary_ctxt_switches,
                                   unsigned long nonvoluntary_ctxt_switches);
  // Removes entry delindex, if there is one; those behind it keep their order.
  void del_thread_info(thread_info_set_t* pThrInfoSet, unsigned int delindex);
  // Removes every thread that has gone, left D state, or been switched since it was first seen.
  void clean_thread_info_set(thread_info_set_t* pThrInfoSet);
  // Does /proc/<pid>/task/<tid>/status exist?
  bool is_match_pid_tid(pid_t pid, pid_t tid);

  // Hung threads (process_status.cpp). These log: docs/hung-threads.md tells what.

  // Ages the table by one detection over at most 128 processes that match the pattern. 1 with the
  // first hung thread and its process, or 0 with both 0. With checkappstatus, processes that took a
  // fatal signal are passed over.
  int check_process_status_is_D_Fuzzy(const char* task_name, thread_info_set_t* pThrInfoSet,
                                      bool checkappstatus, pid_t& dstatuspid, pid_t& dstatustid);
  // The same for one process: /proc/<pid>/task.
  int check_process_status_is_D_byPid(pid_t pid, thread_info_set_t* pThrInfoSet, pid_t& dstatustid);

  // Is there exactly one parameter, named "UserData"? If not, *result holds -1 and the reason.
  bool input_para_check_RebootAppData(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                      FI_RESULT_S* result);

 private:
  // Logs a thread that stood still for more than 7 detections, and writes its kernel stack to the
  // kernel log through a shell.
  static void print_proc_status_info(thread_info_t* pThreadInfo, int times);

  // Wildcard comparison in at most strlen(str1) x strlen(pattern) steps. Not anchored at the start
  // as a full matcher is: README and docs/items.md tell the rules.
  static bool str_fuzzy_match(const char* str1, const char* pattern);
  // Does the whole command line of p equal task_name? PID 0 names no process.
  static bool check_pid_with_name(const char* task_name, pid_t& p);

  // Share of the machine's time since the sample in the two counts, which are then replaced. 0.0,
  // with the counts kept, when either cannot be read, the process has used no time at all, or no
  // tick has passed; 0.0, with the counts replaced, when a counter went backwards.
  float get_pcpu(pid_t p, unsigned long long& oldtotalcputime, unsigned long long& oldprocputime);

  // MemTotal and MemFree in kB. False, both untouched, when /proc/meminfo cannot be opened.
  bool get_sys_mem_info(unsigned long long& totalMem, unsigned long long& freeMem);

  // Open descriptors (/proc/<pid>/fd), their soft limit (line 9 of /proc/<pid>/limits; 0 if there
  // is none), and the first in percent of the second. 0 on failure.
  unsigned int get_handle_count(pid_t p);
  unsigned int get_handle_max(pid_t p);
  unsigned int get_handle_usage(pid_t p);
};

// The value of the first parameter of that name, inside argv; null when there is none.
MIRT_API char* GetParaValue(int argc, FI_PARAM_S* argv, const char* name);

// A whole number of seconds as microseconds, from 0.5 s (also for what is no number) to 240 s.
MIRT_API int ConvertStr2PeriodUS(const char* value);

// Is that process there, under exactly that short name? False for a null name.
MIRT_API bool CheckProcIdAndProcName(pid_t pid, const char* procName);

// The body of both hung-thread items: 1.0 with the thread's id in result->pid, or 0.0.
MIRT_API float CheckProcessStatusIsDIntenal(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                            FI_RESULT_S* result, bool checkappstatus);

// Asks the framework whether the data plane may be recovered. 0 with the answer's first byte in
// *redundancyStatus, where only the value 1 allows it; 1 on any failure, which is logged.
MIRT_API int32_t MIRT_GetDStatusCheckRedundancy(bool* redundancyStatus);

#endif
