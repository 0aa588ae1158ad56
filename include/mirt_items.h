/* The inspection items, by their exported names. docs/items.md describes the parameters, unit and
 * results of each item. A host normally looks them up with dlsym(); programs that link the library
 * use this header. All items are declared here. Plain C can include it.
 */
#ifndef MIRT_ITEMS_H
#define MIRT_ITEMS_H

#include "mirt_interface.h"

/* Declares one item of the given return type. */
#define MIRT_ITEM(type, name)                                                         \
  MIRT_EXTERN_C MIRT_API type name(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, \
                                   FI_RESULT_S* result)

/* Process CPU: percent of the whole machine (Sys) or of one core (Core). */
MIRT_ITEM(float, GetProcessSysCPU);
MIRT_ITEM(float, GetProcessSysCPUExtern);
MIRT_ITEM(float, GetProcessSysCPUFuzzyMatch);
MIRT_ITEM(float, GetProcessSysCPUFuzzyMatchCfgPeriod);
MIRT_ITEM(float, GetProcessCoreCPU);
MIRT_ITEM(float, GetProcessCoreCPUExtern);
MIRT_ITEM(float, GetProcessCoreCPUFuzzyMatch);
MIRT_ITEM(float, GetProcessCoreCPUFuzzyMatchCfgPeriod);

/* Process memory in MiB, open files in percent of the limit. */
MIRT_ITEM(float, GetProcessMemory);
MIRT_ITEM(float, GetProcessMemoryExtern);
MIRT_ITEM(float, GetProcessMemoryFuzzyMatch);
MIRT_ITEM(float, GetProcessHandle);
MIRT_ITEM(float, GetProcessHandleExtern);
MIRT_ITEM(float, GetProcessHandleFuzzyMatch);

/* 1.0 if such a process runs, else 0.0. */
MIRT_ITEM(float, IsExistProcess);
MIRT_ITEM(float, IsExistProcessExtern);
MIRT_ITEM(float, IsExistProcessPreCmd);

/* The machine: percent; free memory in MiB. */
MIRT_ITEM(float, GetDiskUsage);
MIRT_ITEM(float, GetSysCPU);
MIRT_ITEM(float, GetSysUsrCPU);
MIRT_ITEM(float, GetSysMemory);
MIRT_ITEM(float, GetSysFreeMemory);

/* Supervision, reports, hung threads. */
MIRT_ITEM(float, ProcessHeartBeat);
MIRT_ITEM(int, SendErrRpt);
MIRT_ITEM(int, SendErrRptExtend);
MIRT_ITEM(float, CheckProcessStatusIsD);
MIRT_ITEM(float, CheckProcessStatusIsDForAppData);
MIRT_ITEM(int, RebootAppData);

#endif
