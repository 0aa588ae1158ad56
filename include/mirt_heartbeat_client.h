/* The supervised process's side of the heartbeat table: attach once, beat for as long as work goes
 * on. Header only, for C and C++; link libmirt_linux_plugin for MIRT_AgentShmInit().
 * docs/heartbeats.md tells how to use it well.
 *
 *     mirt_heartbeat_t heartbeat;
 *     if (mirt_heartbeat_attach(&heartbeat, 17) != 0) ...;    module 17
 *     for (;;) { work(); mirt_heartbeat_beat(&heartbeat); }
 *
 * Every field is written by one aligned store, so that a reader never sees half a value. One thread
 * at a time may use a mirt_heartbeat_t.
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
  MIRT_AGENT_HEART_INFO_S* entry; /* in shared memory, for the life of the process */
  uint64_t count;
} mirt_heartbeat_t;

/* Finds or claims the entry of the module and makes this process its owner: without a flow id, and
 * with a heartbeat that goes on from the last owner's, so that a restarted process is not taken for
 * one that stands still. 0, or -1 when there is no entry to be had: the log tells why, but for
 * module 65535, which is the mark of a free entry.
 *
 * Waits while another process holds the lock file. The calling thread's signals are blocked for
 * that time and delivered afterwards, as one of them would end the wait and let the attach go on
 * without the lock; only SIGKILL ends a wait. */
static inline int mirt_heartbeat_attach(mirt_heartbeat_t* heartbeat, uint16_t module_id);

/* Shows that the process is alive. */
static inline void mirt_heartbeat_beat(mirt_heartbeat_t* heartbeat) {
  /* All ones would pause the supervision. */
  if (++heartbeat->count == MIRT_AGENT_HEART_PAUSED) heartbeat->count = 1;
  __atomic_store_n(&heartbeat->entry->heartbeat, heartbeat->count, __ATOMIC_RELEASE);
}

/* Names what the process is at work on. Only a process that stands still with a flow id is
 * reported: without one the supervision sees nothing wrong. 0xFFFFFFFF is no flow id. */
static inline void mirt_heartbeat_set_flow(mirt_heartbeat_t* heartbeat, uint32_t flow_id) {
  __atomic_store_n(&heartbeat->entry->flowid, flow_id, __ATOMIC_RELEASE);
}

static inline void mirt_heartbeat_clear_flow(mirt_heartbeat_t* heartbeat) {
  mirt_heartbeat_set_flow(heartbeat, MIRT_AGENT_HEART_NO_FLOW);
}

/* Stops the supervision, before work that may stand still for long; the next beat resumes it. */
static inline void mirt_heartbeat_pause(mirt_heartbeat_t* heartbeat) {
  __atomic_store_n(&heartbeat->entry->heartbeat, MIRT_AGENT_HEART_PAUSED, __ATOMIC_RELEASE);
}

/* mirt_heartbeat_attach() with all signals blocked. */
static inline int mirt_heartbeat_attach_undisturbed(mirt_heartbeat_t* heartbeat,
                                                    uint16_t module_id) {
  heartbeat->entry = NULL; /* NOLINT(modernize-use-nullptr): C has no other */
  if (module_id != MIRT_AGENT_HEART_FREE) heartbeat->entry = MIRT_AgentShmInit(module_id);
  if (!heartbeat->entry) return -1;
  heartbeat->count = __atomic_load_n(&heartbeat->entry->heartbeat, __ATOMIC_ACQUIRE);
  mirt_heartbeat_clear_flow(heartbeat);
  mirt_heartbeat_beat(heartbeat);
  /* Last: from here on the entry is judged. */
  __atomic_store_n(&heartbeat->entry->processid, (uint32_t)getpid(), __ATOMIC_RELEASE);
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
