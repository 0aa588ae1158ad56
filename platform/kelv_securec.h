/* Memory and text functions that never access memory outside the given buffer. Plain C can include
 * this header. */
#ifndef KELV_SECUREC_H
#define KELV_SECUREC_H

#include <stdarg.h>
#include <stddef.h>

#include "kelv_api.h"

/* Sets count bytes of destination, at most size. Returns 0; EINVAL for a null destination; ERANGE
 * if count is more than size (then size bytes are set). */
KELV_API int memset_s(void* destination, size_t size, int byte, size_t count);

/* Copies count bytes, at most size. Returns 0; EINVAL for a null pointer; ERANGE if count is more
 * than size (then size bytes are copied). The two areas must not overlap. */
KELV_API int memcpy_s(void* destination, size_t size, const void* source, size_t count);

/* Writes at most count characters, and at most size - 1, and a terminating NUL. Returns the number
 * of characters written, or -1 if the text was truncated, could not be formatted, or size is 0. */
KELV_API int snprintf_s(char* destination, size_t size, size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
KELV_API int vsnprintf_s(char* destination, size_t size, size_t count, const char* format,
                         va_list arguments) __attribute__((format(printf, 4, 0)));

/* Reads text as sscanf() does, with these conversions: d i u x o with the lengths hh h l ll z j,
 * and s and c, each with an optional width and an optional * that assigns nothing. Each %s and %c
 * target is followed by its buffer size, an unsigned int or size_t. A token that does not fit is
 * truncated and terminated (%c: not stored), and reading continues after the whole token. Returns
 * the number of values assigned, or -1 if the text ended before the first conversion or an argument
 * is null. */
KELV_API int sscanf_s(const char* text, const char* format, ...);

#endif
