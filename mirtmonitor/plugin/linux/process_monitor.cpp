// Parameters by name.
#include <cstring>

#include "common_plugin.h"

char* GetParaValue(int argc, FI_PARAM_S* argv, const char* name) {
  for (int i = 0; i < argc; ++i) {
    if (strcmp(argv[i].name, name) == 0) return argv[i].value;
  }
  return nullptr;
}
