/* Numbers written as text. Plain C can include this header. */
#ifndef KELV_STRING_H
#define KELV_STRING_H

#include <stdint.h>

#include "kelv_api.h"

/* The number at the start of text: decimal, or hexadecimal after 0x; a leading 0 is not octal.
 * Leading blanks are skipped, reading stops at the first character that is not a digit, and a
 * number too large is UINT64_MAX. 0 for a null text and for text that holds no number, a sign
 * included. */
KELV_API uint64_t kelv_str_tou64(const char* text);

#endif
