/* The heartbeat table: one entry for each module in named shared memory, where supervised processes
 * show that they are alive. Every process that attaches uses the same layout. Plain C can include
 * this header. */
#ifndef MIRT_AGENT_HEART_H
#define MIRT_AGENT_HEART_H

#include <stdint.h>

#include "mirt_interface.h"

#define MIRT_AGENT_HEARTBEAT_NAME "MIRT_AGENT_HEARTBEAT"
#define MIRT_AGENT_LOCK_FILE "/tmp/mirt_agent_lock"

#define MIRT_AGENT_HEART_FREE 0xFFFFU                 /* pid: the entry is free */
#define MIRT_AGENT_HEART_NO_PROCESS 0xFFFFFFFFU       /* processid: not written yet */
#define MIRT_AGENT_HEART_NO_FLOW 0xFFFFFFFFU          /* flowid: none */
#define MIRT_AGENT_HEART_PAUSED 0xFFFFFFFFFFFFFFFFULL /* heartbeat: do not check the entry */

/* reserved of the first entry: initialisation is in progress, or its creator died */
#define MIRT_AGENT_HEART_UNFINISHED 0x5452494DU

enum { MIRT_AGENT_HEART_MAX = 50 };

/* The supervised process writes processid, heartbeat and flowid. pid is written once, under the
 * lock file, by the process that claims the entry. */
typedef struct tagMIRT_AGENT_HEART_INFO_S {
  uint32_t processid; /* PID of the process */
  uint32_t pid;       /* module id, 16 bits */
  uint64_t heartbeat; /* any value that keeps changing */
  uint32_t flowid;    /* the work that the process is doing */
  uint32_t reserved;
} MIRT_AGENT_HEART_INFO_S;

typedef struct tagMIRT_AGENT_HEART_INFO_SET_S {
  MIRT_AGENT_HEART_INFO_S array[MIRT_AGENT_HEART_MAX];
} MIRT_AGENT_HEART_INFO_SET_S;

MIRT_LAYOUT(sizeof(MIRT_AGENT_HEART_INFO_S) == 24);
MIRT_LAYOUT(__builtin_offsetof(MIRT_AGENT_HEART_INFO_S, pid) == 4);
MIRT_LAYOUT(__builtin_offsetof(MIRT_AGENT_HEART_INFO_S, heartbeat) == 8);
MIRT_LAYOUT(__builtin_offsetof(MIRT_AGENT_HEART_INFO_S, flowid) == 16);
MIRT_LAYOUT(sizeof(MIRT_AGENT_HEART_INFO_SET_S) == 1200);

/* True while initialisation is unfinished (in progress, or its creator died). A claimed entry means
 * that it is finished, because entries are claimed only after initialisation. */
static inline int mirt_agent_heart_is_unfinished(const MIRT_AGENT_HEART_INFO_SET_S* table) {
  if (table->array[0].reserved != MIRT_AGENT_HEART_UNFINISHED) return 0;
  for (int i = 0; i < MIRT_AGENT_HEART_MAX; ++i) {
    const uint32_t pid = table->array[i].pid;
    if (pid != 0 && pid != MIRT_AGENT_HEART_FREE) return 0;
  }
  return 1;
}

/* Finds or claims the entry of module pid in the shared table; creates the table if necessary. The
 * pointer is valid until the process ends. Returns null when the lock file or the memory is
 * unavailable or the table is full; the log says which. The caller may try again. */
MIRT_EXTERN_C MIRT_API MIRT_AGENT_HEART_INFO_S* MIRT_AgentShmInit(uint16_t pid);

#endif
