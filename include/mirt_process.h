/* All user processes of the machine, and single ones by name: plain functions for other components
 * of the framework. Plain C can include this header. Nothing here logs. docs/snapshot.md has
 * examples.
 */
#ifndef MIRT_PROCESS_H
#define MIRT_PROCESS_H

#include <stdbool.h>
#include <sys/types.h>

#include "kelv_list.h"
#include "mirt_interface.h"

/* One process of a listing. stEntry comes first, so a node's address is its record's address. */
typedef struct tagPROCESS_INFO_S {
  list_head stEntry;
  pid_t pid;
  int corecpu; /* percent of one core over the minute; 0 in a memory listing */
  int rss;     /* resident memory, whole MiB */
  char name[32];
  char cmdline[1024]; /* arguments joined by blanks; cut to fit, as name is */
  bool used;          /* false; free for the caller's own marking */
} PROCESS_INFO_S;

/* Lists every user process that lives through the next 60 seconds, for which the call sleeps, with
 * its CPU usage; *usersyscpu is the share of that minute, in percent of the whole machine, that was
 * spent in user mode, nice left out. From /proc/stat and each process's stat, status and cmdline.
 *
 * 0, or -1 when /proc cannot be read or its clock stands still: then *allProcessListHead is exactly
 * as it was. On success the head, whatever it held, is the head of a new list, which belongs to the
 * caller until FreeAllProcessList(). Neither pointer may be null. */
MIRT_EXTERN_C MIRT_API int GetAllProcessCoreCPU(list_head* allProcessListHead, int* usersyscpu);

/* Lists every user process with its memory, at once, from each one's cmdline and status. Result and
 * ownership as above. */
MIRT_EXTERN_C MIRT_API int GetAllProcessRssMem(list_head* allProcessListHead);

/* Frees every entry; the head is then an empty list. The head must have come from a successful
 * listing. */
MIRT_EXTERN_C MIRT_API void FreeAllProcessList(list_head* allProcessListHead);

/* Does procName begin with the short name of process pid (the kernel cuts that one at 15 bytes)?
 * 0 yes, -1 no such process, -2 another name. procName must not be null. */
MIRT_EXTERN_C MIRT_API int CheckProcessExist(const char* procName, pid_t pid);

/* The same test; on 0 the process is being killed, with SIGKILL, in the background. Whether it
 * ended is for the caller to see. */
MIRT_EXTERN_C MIRT_API int KillProcess(const char* procName, pid_t pid);

/* The first process, in the order of /proc, whose whole command line is procName; *pid is 0 when
 * there is none. 0, or -1 when a pointer is null. */
MIRT_EXTERN_C MIRT_API int GetProcessPid(const char* procName, pid_t* pid);

/* The first pidbuffsize processes, in the order of /proc, whose command line begins with procName
 * (Extern) or matches it as a wildcard pattern (Fuzzy): pidbuff gets their PIDs and *pidbuffused
 * their number. 0; or, with *pidbuffused untouched, -1 when a pointer is null or pidbuffsize is 0,
 * -2 when there is no memory. */
MIRT_EXTERN_C MIRT_API int GetProcessPidExtern(const char* procName, pid_t* pidbuff,
                                               unsigned int pidbuffsize, unsigned int* pidbuffused);
MIRT_EXTERN_C MIRT_API int GetProcessPidFuzzy(const char* procName, pid_t* pidbuff,
                                              unsigned int pidbuffsize, unsigned int* pidbuffused);

#ifdef __cplusplus

/* Calls iterfunc("/proc/<pid>", pid, pContext, isFirstCpuCheck) for every process directory. 0, or
 * -1 when /proc cannot be opened. */
MIRT_API int ForeachProcDir(void (*iterfunc)(const char* procPath, int pid, void* pContext,
                                             bool isFirstCpuCheck),
                            void* pContext, const bool isFirstCpuCheck);

/* Are the first strLen characters of str decimal digits? False for a null str. */
MIRT_API bool isDigit(char* str, int strLen);

#endif

#endif
