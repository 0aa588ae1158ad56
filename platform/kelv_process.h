/* What has become of a process. Plain C can include this header. */
#ifndef KELV_PROCESS_H
#define KELV_PROCESS_H

#include <sys/types.h>

#include "kelv_api.h"

typedef enum tagKELV_PROCESS_STATUS_E {
  KELV_PROCESS_STATUS_NORMAL = 0,
  KELV_PROCESS_STATUS_COREDUMP = 1, /* it took a fatal signal: dumping core, or killed */
  KELV_PROCESS_STATUS_BUTT
} KELV_PROCESS_STATUS_E;

/* 0 with *status set, or -1 with *status untouched when there is no such process or status is null.
 * From the flags in /proc/<pid>/stat (dumping core, killed by a signal) and the CoreDumping line of
 * /proc/<pid>/status, which also tells when another thread than the first took the signal. */
KELV_API int kelv_process_status_check(pid_t pid, int* status);

#endif
