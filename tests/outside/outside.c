/* Calls one item of the installed library; exit status 0 if the value is valid. */
#include <mirt_items.h>
#include <mirt_process.h>
#include <stdio.h>

int main(void) {
  FI_RESULT_S result = {.result = -1};
  const float percent = GetSysMemory(0, NULL, NULL, &result);
  pid_t pid = -1;
  printf("memory in use: %f %%\n", (double)percent);
  return result.result == 0 && percent > 0 && percent < 100 && GetProcessPid("no such", &pid) == 0
             ? 0
             : 1;
}
