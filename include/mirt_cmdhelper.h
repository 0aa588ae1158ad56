// Runs commands and ignores their output.
#ifndef MIRT_CMDHELPER_H
#define MIRT_CMDHELPER_H

#include <cstdint>
#include <cstdio>

// Runs recoverCmd through the shell and waits for that shell to end. Returns the wait status from
// pclose(), or -1 if the shell could not be started.
inline int32_t MIRT_ExecuteCmd(const char* recoverCmd) {
  FILE* const pipe = popen(recoverCmd, "r");
  if (pipe == nullptr) return -1;
  return pclose(pipe);
}

#endif
