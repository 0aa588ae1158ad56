// Commands whose output nobody reads.
#ifndef MIRT_CMDHELPER_H
#define MIRT_CMDHELPER_H

#include <cstdint>
#include <cstdio>

// Runs recoverCmd through the shell and waits for that shell to end. Its status as pclose() gives
// it, or -1 when it could not be started.
inline int32_t MIRT_ExecuteCmd(const char* recoverCmd) {
  FILE* const pipe = popen(recoverCmd, "r");
  if (pipe == nullptr) return -1;
  return pclose(pipe);
}

#endif
