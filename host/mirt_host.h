/* How a program that embeds the host library receives what the plug-in sends and answers what it
 * asks. Plain C can include this header.
 *
 * A handler runs on the thread of the item that sends, possibly on several at once. Setting a
 * handler is safe at any time; a call under way may still reach the one set before.
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

/* A report or error as it reaches the handler; everything is valid during the call only. */
typedef struct tagMIRT_HOST_REPORT_S {
  MIRT_PRIMARY_KEY_S key;          /* an error without a report has an empty resId */
  const MIRT_HOST_PARAM_S* params; /* in the order in which they were attached */
  uint32_t paramCount;
  const char* description; /* formatted; "" when there is none */
  const char* funcName;    /* where an error without a report was sent; null for a report */
  uint32_t line;
} MIRT_HOST_REPORT_S;

/* Takes a report; 0 when it was accepted, anything else makes the sender's call fail. */
typedef int32_t (*mirt_host_report_handler_t)(const MIRT_HOST_REPORT_S* report, void* user);

/* Every later report and error goes to handler, with user as it stands; null goes back to the
 * default, one log line each. */
MIRT_EXTERN_C MIRT_API void mirt_host_set_report_handler(mirt_host_report_handler_t handler,
                                                         void* user);

/* Most bytes of an answer. */
#define MIRT_HOST_MAX_REPLY 4096

/* Answers a request: writes at most MIRT_HOST_MAX_REPLY bytes to reply and their number to
 * *replyLen. 0 when it was answered; anything else becomes the requester's result. */
typedef int32_t (*mirt_host_request_handler_t)(const MIRT_COMM_INFO_S* info, const void* payload,
                                               void* reply, uint32_t* replyLen, void* user);

/* Requests to framework module modulePid go to handler; null removes it. A request to a module
 * without a handler fails at once: nobody has allowed anything. 0, or -1 when sixteen modules have
 * handlers already. */
MIRT_EXTERN_C MIRT_API int32_t mirt_host_set_request_handler(uint16_t modulePid,
                                                             mirt_host_request_handler_t handler,
                                                             void* user);

/* May this process map memory whose file belongs to this user? Who owns a file can cut it short at
 * any time, and that kills whoever has it mapped: only root, the effective user of this process and
 * the user "daemon" are trusted. MIRT_InitShareMem() asks this before it maps. 0, or -1 with the
 * reason in why: "belongs to user alice (1000), expected root, daemon or user 1001". */
MIRT_EXTERN_C MIRT_API int32_t mirt_host_check_owner(uint32_t owner, char* why, size_t whySize);

/* What MIRT_CommGetLocalNid() gives; 0 until set. */
MIRT_EXTERN_C MIRT_API void mirt_host_set_local_nid(uint16_t nid);

#endif
