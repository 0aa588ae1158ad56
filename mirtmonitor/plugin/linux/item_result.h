// How items report failure in the result record, and the argument checks that items share.
#ifndef ITEM_RESULT_H
#define ITEM_RESULT_H

#include <cstdarg>
#include <cstring>
#include <initializer_list>

#include "kelv_securec.h"
#include "mirt_interface.h"

// Stores a failure: result -1 and the reason, truncated to fit.
__attribute__((format(printf, 2, 3))) inline void set_failure(FI_RESULT_S& result,
                                                              const char* format, ...) noexcept {
  result.result = -1;
  va_list values;
  va_start(values, format);
  vsnprintf_s(result.reason, sizeof result.reason, sizeof result.reason - 1, format, values);
  va_end(values);
}

// The checks before the context check: the number of parameters, argv and, if names are given, the
// parameter names by position. A null result fails without a reason.
inline bool check_arguments(int argc, const FI_PARAM_S* argv, FI_RESULT_S* result, int required,
                            std::initializer_list<const char*> names) noexcept {
  if (result == nullptr) return false;
  if (argc != required) {
    set_failure(*result, "Input parameter number error.");
    return false;
  }
  if (argv == nullptr) {
    set_failure(*result, "Input parameter argv is NULL.");
    return false;
  }
  for (const char* name : names) {
    if (strncmp(argv++->name, name, FI_PARAM_NAME_LEN) != 0) {
      set_failure(*result, "Input parameter error.");
      return false;
    }
  }
  return true;
}

#endif
