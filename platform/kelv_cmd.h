/* Shell commands. Plain C can include this header. */
#ifndef KELV_CMD_H
#define KELV_CMD_H

#include "kelv_api.h"

/* Runs a shell command line with /bin/sh and waits until that shell has ended; a command that ends
 * in "&" therefore goes on in the background and the call returns at once. 0 when the shell was
 * started, whatever became of the command; -1 when it could not be. The shell gets the three
 * standard descriptors and no other, and no blocked signals. The caller's signal handling is left
 * alone and no zombie stays behind. */
KELV_API int kelv_cmd_exec(const char* command);

#endif
