// The answer to the plug-in's question whether a hung data plane may be recovered.
#ifndef MONITOR_RECOVERY_ANSWER_H
#define MONITOR_RECOVERY_ANSWER_H

#include "item/recovery.h"

// Has the host library answer the plug-in's question as `recovery` says, from now to the end of the
// program. To be called once. False if it takes no further handler.
bool answer_redundancy(const Recovery& recovery);

#endif
