#include "item/pre_command.h"

#include <dlfcn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

thread_local int start_error = 0;
thread_local int wait_status = 0;

template <typename Function>
Function* next_definition(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" FILE* popen(const char* command, const char* modes) {
  static auto* const real_popen = next_definition<decltype(popen)>("popen");
  FILE* const stream = real_popen(command, modes);
  start_error = stream ? 0 : errno;
  return stream;
}

extern "C" int pclose(FILE* stream) {
  static auto* const real_pclose = next_definition<decltype(pclose)>("pclose");
  wait_status = real_pclose(stream);
  return wait_status;
}

void forget_pre_command() {
  start_error = 0;
  wait_status = 0;
}

std::string pre_command_trouble() {
  if (start_error != 0)
    return std::string("it could not be started: ") + std::strerror(start_error);
  if (wait_status == 0) return "";
  if (wait_status < 0) return "its exit status is not known";
  if (WIFSIGNALED(wait_status)) {
    return "it was ended by signal " + std::to_string(WTERMSIG(wait_status));
  }
  return "it ended with exit status " + std::to_string(WEXITSTATUS(wait_status));
}
