// The snapshot's samples, and its inner functions: linked with the library's objects, not exported.
#ifndef ALLPROCESS_H
#define ALLPROCESS_H

#include <sys/types.h>

#include "kelv_list.h"
#include "mirt_process.h"

// One process as one pass found it.
typedef struct tagPROCESS_BASICDATA_S {
  list_head stEntry;  // first, so that a node's address is its record's address
  bool invalid;       // marks what the CPU calculation found no figure for
  pid_t pid;
  unsigned long long syscputime;  // the machine's ticks at the sample
  unsigned long long procputime;  // the process's own
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

// Does the file hold a byte at least? Kernel threads and zombies have an empty command line.
bool IsUserProcess(const char* cmdLinePath);

// Adds a sample of a user process to the list whose head is pContext. In the first pass the
// machine's ticks are read before the process's, in the second after them. A process that cannot be
// read in full is left out.
void GetProcessBasicData(const char* procPath, pid_t pid, void* pContext,
                         const bool isFirstCpuCheck);

void FreeProcBasicData(list_head* pstBasicDataHead);

// The first node of the list for which compare(pstEntry1, node) is 0; null when there is none.
list_head* SearchList(list_head* pstListHead, int (*compare)(list_head*, list_head*),
                      list_head* pstEntry1);

// 0 when both samples have the same PID and name, else -1.
int ProcBasicDataCmpMatchPidName(list_head* pstEntry1, list_head* pstEntry2);

// A new result entry, in no list; null when there is no memory.
PROCESS_INFO_S* ProcBasicDataToProcInfo(PROCESS_BASICDATA_S* procBasicData);

// Add the result entries, in the samples' order, to an initialised list; entries without memory are
// left out. The first works the CPU figures out and drops the samples that have none. Always 0.
int CalcAllProcessCoreCPU(list_head* pstFirstBasicDataHead, list_head* pstSecondBasicDataHead,
                          list_head* pstAllProcessCoreCPUListHead);
int CalcAllProcessRssMem(list_head* pstBasicDataHead, list_head* pstAllProcessRssMemListHead);

#endif
