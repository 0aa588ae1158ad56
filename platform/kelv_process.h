/* Tells whether a process took a fatal signal. Plain C can include this header. */
#ifndef KELV_PROCESS_H
#define KELV_PROCESS_H

#include <sys/types.h>

#include "kelv_api.h"

typedef enum tagKELV_PROCESS_STATUS_E {
  KELV_PROCESS_STATUS_NORMAL = 0,
  KELV_PROCESS_STATUS_COREDUMP = 1, /* it took a fatal signal: it dumps core or was killed */
  KELV_PROCESS_STATUS_BUTT
} KELV_PROCESS_STATUS_E;

/* Sets *status and returns 0. Returns -1 with *status unchanged when there is no such process or
 * status is null. Reads the flags in /proc/<pid>/stat (dumping core, killed by a signal) and the
 * CoreDumping line of /proc/<pid>/status, which is also set when a thread other than the first took
 * the signal. */
KELV_API int kelv_process_status_check(pid_t pid, int* status);

#endif
