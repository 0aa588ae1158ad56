/* Shell commands. Plain C can include this header. */
#ifndef KELV_CMD_H
#define KELV_CMD_H

#include "kelv_api.h"

/* Runs a command line with /bin/sh and waits until that shell has ended. A command that ends in "&"
 * continues in the background and the call returns at once. Returns 0 if the shell was started,
 * whatever the command's exit status; -1 if it could not be started. The shell inherits only the
 * three standard descriptors and no blocked signals. The caller's signal handlers are unchanged and
 * no zombie remains. */
KELV_API int kelv_cmd_exec(const char* command);

#endif
