// The samples and internal functions of the process listings. The library does not export them;
// tests link the objects.
#ifndef ALLPROCESS_H
#define ALLPROCESS_H

#include <sys/types.h>

#include "kelv_list.h"
#include "mirt_process.h"

// One process in one pass.
typedef struct tagPROCESS_BASICDATA_S {
  list_head stEntry;  // first, so that a node's address is also its record's address
  bool invalid;       // the CPU calculation found no value for it
  pid_t pid;
  unsigned long long syscputime;  // the machine's ticks at the sample
  unsigned long long procputime;  // the process's ticks at the sample
  int corecpu;                    // percent of one core
  int rss;                        // whole MiB
  char name[32];
  char cmdline[1024];
} PROCESS_BASICDATA_S;

inline PROCESS_BASICDATA_S* sample_of(list_head* node) {
  return reinterpret_cast<PROCESS_BASICDATA_S*>(node);
}

// Calls visit for every node of a list; visit may free it.
template <typename Visit>
void for_each_node(list_head* head, Visit visit) {
  for (list_head *node = head->next, *next; node != head; node = next) {
    next = node->next;
    visit(node);
  }
}

// True if the file has at least one byte. Kernel threads and zombies have an empty command line.
bool IsUserProcess(const char* cmdLinePath);

// Adds a sample of a user process to the list with head pContext. The first pass reads the
// machine's ticks before the process's ticks, the second pass after them. A process that cannot be
// read completely is left out.
void GetProcessBasicData(const char* procPath, pid_t pid, void* pContext,
                         const bool isFirstCpuCheck);

void FreeProcBasicData(list_head* pstBasicDataHead);

// Returns the first node of the list for which compare(pstEntry1, node) is 0, or null.
list_head* SearchList(list_head* pstListHead, int (*compare)(list_head*, list_head*),
                      list_head* pstEntry1);

// Returns 0 if both samples have the same PID and name, else -1.
int ProcBasicDataCmpMatchPidName(list_head* pstEntry1, list_head* pstEntry2);

// Returns a new result entry outside any list; null when memory is short.
PROCESS_INFO_S* ProcBasicDataToProcInfo(PROCESS_BASICDATA_S* procBasicData);

// Both functions append the result entries, in the order of the samples, to an initialised list. An
// entry is left out when memory is short. The first function also calculates the CPU usage and
// leaves out samples without one. Both return 0.
int CalcAllProcessCoreCPU(list_head* pstFirstBasicDataHead, list_head* pstSecondBasicDataHead,
                          list_head* pstAllProcessCoreCPUListHead);
int CalcAllProcessRssMem(list_head* pstBasicDataHead, list_head* pstAllProcessRssMemListHead);

#endif
