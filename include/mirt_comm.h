/* The records, numbers and functions of the framework's host library. The plug-in uses only these C
 * symbols of the library, so a daemon can provide its own library. Fields lie at the offsets
 * asserted below, little-endian. Plain C can include this header.
 *
 * Every function returns 0 for success unless it says otherwise.
 */
#ifndef MIRT_COMM_H
#define MIRT_COMM_H

#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>

#include "mirt_interface.h"

/* Framework module numbers. */
typedef enum tagenPID_CTRL_E {
  PID_CTRL_MIRTDAEMONE = 421,
  PID_CTRL_MIRTCORE = 422,
  PID_CTRL_MIRTKERNELAGENT = 423,
  PID_CTRL_MIRTMONITOR = 424,
  PID_CTRL_BUTT
} enPID_CTRL_E;

/* Request code: asks whether the hung data plane may be recovered. The answer is one byte; 1 means
 * yes. */
#define MIRT_OP_EXECUT_FILTER_ERRRPT 1879048204U /* 0x7000000c */

/* Identity of an error report. */
typedef struct tagMIRT_PRIMARY_KEY_S {
  uint16_t resType;
  uint32_t errCode;
  char resId[64]; /* ends with a NUL */
  uint8_t rptType;
} MIRT_PRIMARY_KEY_S;

/* An error report. The host library owns it; callers only hold a pointer. */
typedef struct tagMIRT_ERRREPORT_S MIRT_ERRREPORT_S;

/* Header of a request to another framework module. */
typedef struct tagMIRT_COMM_INFO_S {
  uint16_t dstNid; /* node */
  uint16_t dstPid; /* framework module */
  uint16_t srcNid;
  uint16_t srcPid;
  uint32_t msgOPCode;
  uint32_t msgLen;  /* bytes of payload */
  uint32_t timeOut; /* seconds */
  bool alreadyRetry;
} MIRT_COMM_INFO_S;

/* A reply; buf belongs to the host library until MIRT_CommFreeRetData(). */
typedef struct tagMIRT_COMM_RET_DATA_S {
  uint32_t msgLen; /* bytes at buf */
  void* buf;
} MIRT_COMM_RET_DATA_S;

MIRT_LAYOUT(sizeof(MIRT_PRIMARY_KEY_S) == 76);
MIRT_LAYOUT(__builtin_offsetof(MIRT_PRIMARY_KEY_S, errCode) == 4);
MIRT_LAYOUT(__builtin_offsetof(MIRT_PRIMARY_KEY_S, resId) == 8);
MIRT_LAYOUT(__builtin_offsetof(MIRT_PRIMARY_KEY_S, rptType) == 72);
MIRT_LAYOUT(sizeof(MIRT_COMM_INFO_S) == 24);
MIRT_LAYOUT(__builtin_offsetof(MIRT_COMM_INFO_S, srcPid) == 6);
MIRT_LAYOUT(__builtin_offsetof(MIRT_COMM_INFO_S, msgOPCode) == 8);
MIRT_LAYOUT(__builtin_offsetof(MIRT_COMM_INFO_S, alreadyRetry) == 20);
MIRT_LAYOUT(sizeof(MIRT_COMM_RET_DATA_S) == 16);
MIRT_LAYOUT(__builtin_offsetof(MIRT_COMM_RET_DATA_S, buf) == 8);

/* Returns a new report for the key, or null. The caller passes it to MIRT_DestoryErrRptSub()
 * exactly once. */
MIRT_EXTERN_C MIRT_API MIRT_ERRREPORT_S* MIRT_CreateErrRptSub(MIRT_PRIMARY_KEY_S* key);

/* Attaches a name and a value; both texts are copied. */
MIRT_EXTERN_C MIRT_API int32_t MIRT_AddParamToErrRptSub(const MIRT_ERRREPORT_S* errRpt, char* name,
                                                        char* value);

/* Copies the report's key. */
MIRT_EXTERN_C MIRT_API int32_t MIRT_GetPrimaryKeySub(const MIRT_ERRREPORT_S* errRpt,
                                                     MIRT_PRIMARY_KEY_S* key);

/* Sends the report. desc is a printf format for *args. If desc is null, args is not read. */
MIRT_EXTERN_C MIRT_API int32_t MIRT_SendErrReportSub(const MIRT_ERRREPORT_S* errRpt,
                                                     const char* desc, va_list* args);

/* Releases the report, sent or not. */
MIRT_EXTERN_C MIRT_API void MIRT_DestoryErrRptSub(const MIRT_ERRREPORT_S* errRpt);

/* Sends an error that has no report object; desc and args as in MIRT_SendErrReportSub(). */
MIRT_EXTERN_C MIRT_API int32_t MIRT_SendErrorSub(uint16_t resType, uint32_t errCode, uint32_t line,
                                                 const char* funcName, uint8_t rptType,
                                                 const char* desc, va_list* args);

/* Returns this node's id in the low 16 bits. */
MIRT_EXTERN_C MIRT_API uint32_t MIRT_CommGetLocalNid(void);

/* Sends info->msgLen bytes of payload to module info->dstPid on node info->dstNid and waits at most
 * info->timeOut for the answer. On success fills *reply; the caller releases it with
 * MIRT_CommFreeRetData(). On failure *reply is unchanged. */
MIRT_EXTERN_C MIRT_API int32_t MIRT_CommSendRequestMsg(MIRT_COMM_INFO_S* info, void* payload,
                                                       MIRT_COMM_RET_DATA_S* reply);

/* Releases a reply's buffer. */
MIRT_EXTERN_C MIRT_API void MIRT_CommFreeRetData(MIRT_COMM_RET_DATA_S* reply);

/* Creates or attaches the named shared memory of size bytes. Stores the mapped address in *address.
 * *isCreate is true if this call created the memory, which is then all zero. A segment whose
 * creator died before it wrote anything counts as new. A second attach in one process returns the
 * same mapping. */
MIRT_EXTERN_C MIRT_API int32_t MIRT_InitShareMem(void** address, const char* name, uint32_t size,
                                                 bool* isCreate);

#endif
