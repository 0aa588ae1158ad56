/* Log records: one call, one whole line. Plain C can include this header. */
#ifndef KELV_LOG_H
#define KELV_LOG_H

#include <string.h>

#include "kelv_api.h"

typedef enum tagDBG_LOG_TYPE {
  DBG_LOG_ERROR = 3,
  DBG_LOG_WARNING = 4,
  DBG_LOG_EVENT = 5,
  DBG_LOG_INFO = 6,
  DBG_LOG_DEBUG = 7,
  DBG_LOG_BUTT
} DBG_LOG_TYPE_E;

/* Writes one record. module is the caller's framework module number, level a DBG_LOG_... value,
 * file the base name of the source file; reserved is always 0. Line breaks inside the text become
 * spaces, so that a record stays one line. Thread-safe; never fails. */
KELV_API void kelvlog(unsigned int module, int level, const char* file, int line,
                      const char* function, int reserved, const char* format, ...)
    __attribute__((format(printf, 7, 8)));

/* Returns the text after the last '/' of a path: a source file's base name. */
static inline const char* kelvlog_base_name(const char* path) {
  const char* const slash = strrchr(path, '/');
  return slash ? slash + 1 : path;
}

/* Writes one record with this file, line and function: KELV_LOG(module, level, format, ...). */
#define KELV_LOG(module, level, ...) \
  kelvlog(module, level, kelvlog_base_name(__FILE__), __LINE__, __func__, 0, __VA_ARGS__)

/* One record as a sink receives it; the texts are valid only during the call. */
typedef struct tagKELV_LOG_RECORD_S {
  unsigned int module;
  int level;
  const char* file;
  int line;
  const char* function;
  const char* text;
} KELV_LOG_RECORD_S;

typedef void (*kelvlog_sink_t)(const KELV_LOG_RECORD_S* record);

/* Sends every later record to sink instead of standard error; null restores standard error. The
 * sink runs on the thread that logs, possibly on several threads at once, and must not log. */
KELV_API void kelvlog_set_sink(kelvlog_sink_t sink);

/* Returns "error", "warning", "event", "info" or "debug"; "level" for any other value. */
KELV_API const char* kelvlog_level_name(int level);

#endif
