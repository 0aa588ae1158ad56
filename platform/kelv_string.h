/* Reads numbers from text. Plain C can include this header. */
#ifndef KELV_STRING_H
#define KELV_STRING_H

#include <stdint.h>

#include "kelv_api.h"

/* Returns the number at the start of text: decimal, or hexadecimal after 0x; a leading 0 does not
 * mean octal. Skips leading white space and stops at the first character that is not a digit. A
 * number that is too large returns UINT64_MAX. Returns 0 for null, for text that does not start
 * with a number, and for a number with a sign. */
KELV_API uint64_t kelv_str_tou64(const char* text);

#endif
