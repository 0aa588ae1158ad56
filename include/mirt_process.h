/* Functions for other components of the framework: list all user processes of the machine, find
 * single processes by name. Plain C can include this header. These functions do not log.
 * docs/snapshot.md has examples.
 */
#ifndef MIRT_PROCESS_H
#define MIRT_PROCESS_H

#include <stdbool.h>
#include <sys/types.h>

#include "kelv_list.h"
#include "mirt_interface.h"

/* One process of a listing. stEntry is the first member, so a node's address is also its record's
 * address. */
typedef struct tagPROCESS_INFO_S {
  list_head stEntry;
  pid_t pid;
  int corecpu; /* percent of one core over 60 seconds; 0 in a memory listing */
  int rss;     /* resident memory, whole MiB */
  char name[32];
  char cmdline[1024]; /* arguments joined by spaces; truncated to fit, as name is */
  bool used;          /* initially false; for the caller's own use */
} PROCESS_INFO_S;

/* Sleeps 60 seconds and lists every user process that lived through them, with its CPU usage.
 * *usersyscpu is the share of that time, in percent of the whole machine, that was spent in user
 * mode without nice. From /proc/stat and each process's stat, status and cmdline.
 *
 * Returns 0, or -1 when /proc cannot be read or its tick counter did not advance; then
 * *allProcessListHead is unchanged. On success the head, whatever it held before, is the head of a
 * new list. The caller releases the list with FreeAllProcessList(). Neither pointer may be null. */
MIRT_EXTERN_C MIRT_API int GetAllProcessCoreCPU(list_head* allProcessListHead, int* usersyscpu);

/* Lists every user process with its memory, without a wait, from its cmdline and status. Result and
 * ownership as above. */
MIRT_EXTERN_C MIRT_API int GetAllProcessRssMem(list_head* allProcessListHead);

/* Frees every entry; the list is then empty. The head must come from a successful listing. */
MIRT_EXTERN_C MIRT_API void FreeAllProcessList(list_head* allProcessListHead);

/* Returns 0 if procName begins with the short name of process pid (the kernel cuts short names at
 * 15 bytes), -1 if there is no such process, -2 if it has another name. procName must not be null.
 */
MIRT_EXTERN_C MIRT_API int CheckProcessExist(const char* procName, pid_t pid);

/* Makes the same test; on 0 a background command sends SIGKILL to the process. The caller has to
 * check whether the process ended. */
MIRT_EXTERN_C MIRT_API int KillProcess(const char* procName, pid_t pid);

/* Finds the first process, in the order of /proc, whose whole command line is procName; *pid is 0
 * when there is none. Returns 0, or -1 when a pointer is null. */
MIRT_EXTERN_C MIRT_API int GetProcessPid(const char* procName, pid_t* pid);

/* Finds the first pidbuffsize processes, in the order of /proc, whose command line begins with
 * procName (Extern) or matches it as a wildcard pattern (Fuzzy). Stores their PIDs in pidbuff and
 * their number in *pidbuffused. Returns 0; or, with *pidbuffused unchanged, -1 when a pointer is
 * null or pidbuffsize is 0, -2 when memory is short. */
MIRT_EXTERN_C MIRT_API int GetProcessPidExtern(const char* procName, pid_t* pidbuff,
                                               unsigned int pidbuffsize, unsigned int* pidbuffused);
MIRT_EXTERN_C MIRT_API int GetProcessPidFuzzy(const char* procName, pid_t* pidbuff,
                                              unsigned int pidbuffsize, unsigned int* pidbuffused);

#ifdef __cplusplus

/* Calls iterfunc("/proc/<pid>", pid, pContext, isFirstCpuCheck) for every process directory.
 * Returns 0, or -1 when /proc cannot be opened. */
MIRT_API int ForeachProcDir(void (*iterfunc)(const char* procPath, int pid, void* pContext,
                                             bool isFirstCpuCheck),
                            void* pContext, const bool isFirstCpuCheck);

/* True if the first strLen characters of str are decimal digits. False for a null str. */
MIRT_API bool isDigit(char* str, int strLen);

#endif

#endif
