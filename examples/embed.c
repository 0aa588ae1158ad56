/* A minimal host: loads the plug-in, calls one item three times and prints the results.
 *
 *     embed PLUGIN ITEM [VALUE ...]
 */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "mirt_interface.h"

typedef float (*item_t)(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);

enum { kMaxParams = 8, kRounds = 3 };

/* One instance of an item: its parameters, and the context that every call receives. */
typedef struct instance {
  item_t item;
  int argc;
  FI_PARAM_S argv[kMaxParams];
  FI_CONTEXT_S context;
} instance;

static int fail(const char* what, const char* which) {
  fprintf(stderr, "embed: %s: %s\n", which, what);
  return 2;
}

/* Returns 0, or 1 if the item failed. */
static int call_once(instance* one) {
  FI_RESULT_S result;
  memset(&result, 0, sizeof result);
  const float value = one->item(one->argc, one->argv, &one->context, &result);
  if (result.result == 0) {
    printf("%f (pid %d)\n", value, result.pid);
  } else {
    printf("failed: %s\n", result.reason);
  }
  return result.result == 0 ? 0 : 1;
}

int main(int argc, char** argv) {
  if (argc < 3) return fail("usage: embed PLUGIN ITEM [VALUE ...]", "arguments");
  if (argc - 3 > kMaxParams) return fail("too many parameters", argv[2]);

  void* const plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (plugin == NULL) return fail(dlerror(), argv[1]);

  static instance one; /* static, so the context is all zero before the first call */
  *(void**)&one.item = dlsym(plugin, argv[2]);
  if (one.item == NULL) return fail("no such item", argv[2]);
  for (int i = 3; i < argc; ++i) {
    FI_PARAM_S* const parameter = &one.argv[one.argc++];
    /* Most items find their parameters by position and ignore the names. */
    snprintf(parameter->name, sizeof parameter->name, "ProcessName");
    if (strlen(argv[i]) >= sizeof parameter->value) return fail("value too long", argv[i]);
    snprintf(parameter->value, sizeof parameter->value, "%s", argv[i]);
  }

  int failed = 0;
  for (int round = 0; round < kRounds; ++round) {
    if (round > 0) sleep(1);
    failed |= call_once(&one);
  }
  return failed;
}
