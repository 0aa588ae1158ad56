/* The heartbeat table as a supervised process uses it: attach once, then beat while work makes
 * progress. Header only, for C and C++; link libmirt_linux_plugin for MIRT_AgentShmInit(). See
 * docs/heartbeats.md.
 *
 *     mirt_heartbeat_t heartbeat;
 *     if (mirt_heartbeat_attach(&heartbeat, 17) != 0) ...;    module 17
 *     for (;;) { work(); mirt_heartbeat_beat(&heartbeat); }
 *
 * One aligned store writes each field, so a reader never sees a partial value. Only one thread at a
 * time may use a mirt_heartbeat_t.
 */
#ifndef MIRT_HEARTBEAT_CLIENT_H
#define MIRT_HEARTBEAT_CLIENT_H

#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <unistd.h>

#include "mirt_agent_heart.h"

#ifndef SIG_BLOCK
#error "POSIX is needed: compile with -std=gnu11, or define _POSIX_C_SOURCE as 200809L"
#endif

typedef struct mirt_heartbeat {
  MIRT_AGENT_HEART_INFO_S* entry; /* in shared memory, valid until the process ends */
  uint64_t count;
} mirt_heartbeat_t;

/* Finds or claims the module's entry and makes this process its owner, without a flow id. The
 * heartbeat continues from the last owner's value, so that a restarted process does not look like
 * one that hangs. Returns 0, or -1 when no entry is available; the log says why, except for module
 * 65535, which marks a free entry.
 *
 * Waits while another process holds the lock file. Blocks the calling thread's signals for that
 * time, because a signal would end the wait and the attach would continue without the lock. Only
 * SIGKILL ends the wait. Blocked signals are delivered afterwards. */
static inline int mirt_heartbeat_attach(mirt_heartbeat_t* heartbeat, uint16_t module_id);

/* Shows that the process is alive. */
static inline void mirt_heartbeat_beat(mirt_heartbeat_t* heartbeat) {
  /* Skips the value that pauses the supervision. */
  if (++heartbeat->count == MIRT_AGENT_HEART_PAUSED) heartbeat->count = 1;
  __atomic_store_n(&heartbeat->entry->heartbeat, heartbeat->count, __ATOMIC_RELEASE);
}

/* Says which work the process is doing. A process whose heartbeat stops is reported only if it has
 * a flow id; without one it counts as idle. 0xFFFFFFFF means no flow id. */
static inline void mirt_heartbeat_set_flow(mirt_heartbeat_t* heartbeat, uint32_t flow_id) {
  __atomic_store_n(&heartbeat->entry->flowid, flow_id, __ATOMIC_RELEASE);
}

static inline void mirt_heartbeat_clear_flow(mirt_heartbeat_t* heartbeat) {
  mirt_heartbeat_set_flow(heartbeat, MIRT_AGENT_HEART_NO_FLOW);
}

/* Pauses the supervision before work that may take long without a beat. The next beat resumes it.
 */
static inline void mirt_heartbeat_pause(mirt_heartbeat_t* heartbeat) {
  __atomic_store_n(&heartbeat->entry->heartbeat, MIRT_AGENT_HEART_PAUSED, __ATOMIC_RELEASE);
}

/* mirt_heartbeat_attach() with all signals blocked. */
static inline int mirt_heartbeat_attach_undisturbed(mirt_heartbeat_t* heartbeat,
                                                    uint16_t module_id) {
  heartbeat->entry = NULL; /* NOLINT(modernize-use-nullptr): C has only NULL */
  if (module_id != MIRT_AGENT_HEART_FREE) heartbeat->entry = MIRT_AgentShmInit(module_id);
  if (!heartbeat->entry) return -1;
  heartbeat->count = __atomic_load_n(&heartbeat->entry->heartbeat, __ATOMIC_ACQUIRE);
  mirt_heartbeat_clear_flow(heartbeat);
  mirt_heartbeat_beat(heartbeat);
  /* Written last: from now on the entry is checked. */
  __atomic_store_n(&heartbeat->entry->processid, MIRT_CAST(uint32_t, getpid()), __ATOMIC_RELEASE);
  return 0;
}

static inline int mirt_heartbeat_attach(mirt_heartbeat_t* heartbeat, uint16_t module_id) {
  sigset_t all, before;
  int result;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  result = mirt_heartbeat_attach_undisturbed(heartbeat, module_id);
  pthread_sigmask(SIG_SETMASK, &before, &all);
  return result;
}

#endif
