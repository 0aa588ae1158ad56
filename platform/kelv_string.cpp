#include "kelv_string.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace {

bool is_hexadecimal(const char* text) {
  return text[0] == '0' && (text[1] == 'x' || text[1] == 'X') &&
         isxdigit(static_cast<unsigned char>(text[2])) != 0;
}

}  // namespace

uint64_t kelv_str_tou64(const char* text) {
  if (text == nullptr) return 0;
  text += strspn(text, " \t\n\v\f\r");
  if (isdigit(static_cast<unsigned char>(*text)) == 0) return 0;  // strtoull would accept a sign
  return strtoull(text, nullptr, is_hexadecimal(text) ? 16 : 10);
}
