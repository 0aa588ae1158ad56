/* For a program that embeds the host library: receive the plug-in's reports, answer its requests.
 * Plain C can include this header.
 *
 * A handler runs on the thread of the item that sends, possibly on several threads at once. A
 * handler can be set at any time; a call that has already started may still use the previous
 * handler.
 */
#ifndef MIRT_HOST_H
#define MIRT_HOST_H

#include <stddef.h>

#include "mirt_comm.h"

/* One name and value of a report. */
typedef struct tagMIRT_HOST_PARAM_S {
  const char* name;
  const char* value;
} MIRT_HOST_PARAM_S;

/* A report or error as the handler receives it; all pointers are valid only during the call. */
typedef struct tagMIRT_HOST_REPORT_S {
  MIRT_PRIMARY_KEY_S key;          /* an error without a report has an empty resId */
  const MIRT_HOST_PARAM_S* params; /* in the order in which they were attached */
  uint32_t paramCount;
  const char* description; /* formatted; "" if there is none */
  const char* funcName;    /* function that sent an error without a report; null for a report */
  uint32_t line;
} MIRT_HOST_REPORT_S;

/* Receives a report. Returns 0 to accept it; any other value makes the sender's call fail. */
typedef int32_t (*mirt_host_report_handler_t)(const MIRT_HOST_REPORT_S* report, void* user);

/* Passes every later report and error to handler, with user unchanged. Null restores the default:
 * one log line for each. */
MIRT_EXTERN_C MIRT_API void mirt_host_set_report_handler(mirt_host_report_handler_t handler,
                                                         void* user);

/* Maximum size of an answer, in bytes. */
#define MIRT_HOST_MAX_REPLY 4096

/* Answers a request: writes at most MIRT_HOST_MAX_REPLY bytes to reply and their number to
 * *replyLen. Returns 0 for an answer; the requester receives any other value as its result. */
typedef int32_t (*mirt_host_request_handler_t)(const MIRT_COMM_INFO_S* info, const void* payload,
                                               void* reply, uint32_t* replyLen, void* user);

/* Passes requests to framework module modulePid to handler; null removes the handler. A request to
 * a module without a handler fails at once, so nothing is allowed by default. Returns 0, or -1 when
 * sixteen modules already have handlers. */
MIRT_EXTERN_C MIRT_API int32_t mirt_host_set_request_handler(uint16_t modulePid,
                                                             mirt_host_request_handler_t handler,
                                                             void* user);

/* Checks whether this process may map memory whose file belongs to user owner. The owner of a file
 * can truncate it at any time, which kills every process that has it mapped. So only root, the
 * effective user of this process and the user "daemon" are trusted. MIRT_InitShareMem() makes this
 * check before it maps. Returns 0, or -1 with the reason in why: "belongs to user alice (1000),
 * expected root, daemon or user 1001". */
MIRT_EXTERN_C MIRT_API int32_t mirt_host_check_owner(uint32_t owner, char* why, size_t whySize);

/* Sets the value that MIRT_CommGetLocalNid() returns; initially 0. */
MIRT_EXTERN_C MIRT_API void mirt_host_set_local_nid(uint16_t nid);

#endif
