// Finds single processes by name and kills them.
#include <cstring>

#include "common_plugin.h"
#include "heap_memory.h"
#include "kelv_securec.h"
#include "mirt_cmdhelper.h"
#include "mirt_process.h"

int CheckProcessExist(const char* procName, pid_t pid) {
  char name[32] = "";
  if (MIRT_Linux_Plugin::get_procname_bypid(pid, name, sizeof name) != 0) return -1;
  return strncmp(procName, name, strlen(name)) == 0 ? 0 : -2;
}

int KillProcess(const char* procName, pid_t pid) {
  const int found = CheckProcessExist(procName, pid);
  if (found != 0) return found;
  char command[256];
  snprintf_s(command, sizeof command, sizeof command - 1, "kill -9 %u >/dev/null 2>&1 &",
             static_cast<unsigned int>(pid));
  MIRT_ExecuteCmd(command);
  return 0;
}

int GetProcessPid(const char* procName, pid_t* pid) {
  if (procName == nullptr || pid == nullptr) return -1;
  pid_t found = 0;
  MIRT_Linux_Plugin::get_pid_byname(procName, found);
  *pid = found;
  return 0;
}

int GetProcessPidInter(const char* procName, pid_t* pidbuff, unsigned int pidbuffsize,
                       unsigned int* pidbuffused, const int matchflag) {
  if (procName == nullptr || pidbuff == nullptr || pidbuffused == nullptr || pidbuffsize == 0) {
    return -1;
  }
  const auto matches = allocate_zeroed<process_cpu_context_t>(pidbuffsize);
  if (matches == nullptr) return -2;
  MIRT_Linux_Plugin::get_allpid(procName, matches.get(), pidbuffsize, pidbuffused, matchflag);
  for (unsigned int i = 0; i < *pidbuffused; ++i) pidbuff[i] = matches[i].pid;
  return 0;
}

int GetProcessPidExtern(const char* procName, pid_t* pidbuff, unsigned int pidbuffsize,
                        unsigned int* pidbuffused) {
  return GetProcessPidInter(procName, pidbuff, pidbuffsize, pidbuffused, kMatchPrefix);
}

int GetProcessPidFuzzy(const char* procName, pid_t* pidbuff, unsigned int pidbuffsize,
                       unsigned int* pidbuffused) {
  return GetProcessPidInter(procName, pidbuff, pidbuffsize, pidbuffused, kMatchWildcard);
}
