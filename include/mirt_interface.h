/* The records that a host and its inspection items exchange.
 *
 * Host and plug-in are built separately, so this layout is fixed: the fields, their order and their
 * sizes, without gaps. Plain C can include this header.
 *
 * An item is an exported function of the form
 *
 *     float Item(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
 *
 * (three items return int, see mirt_items.h). The call runs to completion on the caller's thread.
 */
#ifndef MIRT_INTERFACE_H
#define MIRT_INTERFACE_H

#ifdef __cplusplus
#define MIRT_EXTERN_C extern "C"
#define MIRT_LAYOUT(condition) static_assert(condition, #condition)
#define MIRT_CAST(type, value) static_cast<type>(value)
#else
#define MIRT_EXTERN_C
#define MIRT_LAYOUT(condition) _Static_assert(condition, #condition)
#define MIRT_CAST(type, value) ((type)(value))
#endif

/* The library exports only the symbols with this mark. */
#define MIRT_API __attribute__((visibility("default")))

enum {
  FI_PARAM_NAME_LEN = 100,
  FI_PARAM_VALUE_LEN = 400,
  FI_CONTEXT_BUFF_LEN = 1024,
  FI_RESULT_REASON_LEN = 1024
};

/* One configured parameter; both texts end with a NUL. */
typedef struct tagFI_PARAM_S {
  char name[FI_PARAM_NAME_LEN];
  char value[FI_PARAM_VALUE_LEN]; /* a process name, a directory, a command, a number of seconds */
} FI_PARAM_S;

/* State of one item instance. The host owns it, fills it with zeros before the first call and never
 * changes contextbuff later. Two calls with the same record must not overlap. */
typedef struct tagFI_CONTEXT_S {
  int steppointer;                       /* for the host only; no item reads or writes it */
  char contextbuff[FI_CONTEXT_BUFF_LEN]; /* for the item only; the host keeps the bytes */
} FI_CONTEXT_S;

/* What an item reports in addition to its return value. */
typedef struct tagFI_RESULT_S {
  int result;                        /* 0: the value is valid; -1: the item failed */
  char reason[FI_RESULT_REASON_LEN]; /* why it failed; unchanged on success */
  int pid; /* process or thread that the value belongs to, if the item reports one */
  unsigned int hangflowid; /* only ProcessHeartBeat writes it */
} FI_RESULT_S;

MIRT_LAYOUT(sizeof(FI_PARAM_S) == 500);
MIRT_LAYOUT(sizeof(FI_CONTEXT_S) == 1028);
MIRT_LAYOUT(sizeof(FI_RESULT_S) == 1036);
MIRT_LAYOUT(__builtin_offsetof(FI_PARAM_S, value) == 100);
MIRT_LAYOUT(__builtin_offsetof(FI_CONTEXT_S, contextbuff) == 4);
MIRT_LAYOUT(__builtin_offsetof(FI_RESULT_S, reason) == 4);
MIRT_LAYOUT(__builtin_offsetof(FI_RESULT_S, pid) == 1028);
MIRT_LAYOUT(__builtin_offsetof(FI_RESULT_S, hangflowid) == 1032);

#endif
