/* Memory and text functions that never go past the buffer they are given. Plain C can include this
 * header. */
#ifndef KELV_SECUREC_H
#define KELV_SECUREC_H

#include <stdarg.h>
#include <stddef.h>

#include "kelv_api.h"

/* Sets count bytes of destination, never more than size. 0; EINVAL for a null destination; ERANGE
 * when count was more than size (then size bytes are set). */
KELV_API int memset_s(void* destination, size_t size, int byte, size_t count);

/* Copies count bytes, never more than size. 0; EINVAL for a null pointer; ERANGE when count was
 * more than size (then size bytes are copied). The two areas must not overlap. */
KELV_API int memcpy_s(void* destination, size_t size, const void* source, size_t count);

/* Formats at most count characters, and never more than size - 1, and a terminating NUL. The number
 * of characters written, or -1 when the text was cut, when it could not be formatted, or when there
 * is no room even for the NUL. */
KELV_API int snprintf_s(char* destination, size_t size, size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
KELV_API int vsnprintf_s(char* destination, size_t size, size_t count, const char* format,
                         va_list arguments) __attribute__((format(printf, 4, 0)));

/* Reads text as sscanf() does, with these conversions: d i u x o with the lengths hh h l ll z j,
 * and s and c, each with an optional width and an optional * that assigns nothing. Every %s and %c
 * target is followed by its buffer size, an unsigned int or size_t: a token that does not fit is
 * cut and terminated (%c: not stored), and reading goes on after the whole token. The number of
 * values assigned, or -1 when the text ended before the first conversion, or an argument is null.
 */
KELV_API int sscanf_s(const char* text, const char* format, ...);

#endif
