#include "item/pre_command.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// Items read 32 bytes and use the first 31.
constexpr size_t kMostOutput = 31;

// The current or last command of this thread.
struct PreCommand {
  FILE* stream = nullptr;  // the caller's stream, which reads from `pipe`
  FILE* pipe = nullptr;
  char output[kMostOutput] = {};
  size_t output_length = 0;
  int start_error = 0;
  int wait_status = 0;
};
thread_local PreCommand pre_command;

template <typename Function>
Function* next_definition(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

ssize_t read_and_note(void* pipe, char* buffer, size_t size) {
  ssize_t got;
  do got = read(fileno(static_cast<FILE*>(pipe)), buffer, size);
  while (got < 0 && errno == EINTR);
  PreCommand& command = pre_command;
  if (got > 0) {
    const size_t noted = std::min(static_cast<size_t>(got), kMostOutput - command.output_length);
    std::memcpy(command.output + command.output_length, buffer, noted);
    command.output_length += noted;
  }
  return got;
}

}  // namespace

extern "C" FILE* popen(const char* command, const char* modes) {
  static auto* const real_popen = next_definition<decltype(popen)>("popen");
  forget_pre_command();
  FILE* const pipe = real_popen(command, modes);
  pre_command.start_error = pipe ? 0 : errno;
  if (!pipe || modes[0] != 'r') return pipe;
  cookie_io_functions_t functions{};
  functions.read = read_and_note;
  FILE* const stream = fopencookie(pipe, "r", functions);
  if (!stream) return pipe;  // out of memory: nothing is recorded
  pre_command.stream = stream;
  pre_command.pipe = pipe;
  return stream;
}

extern "C" int pclose(FILE* stream) {
  static auto* const real_pclose = next_definition<decltype(pclose)>("pclose");
  PreCommand& command = pre_command;
  if (stream == command.stream) {
    fclose(stream);
    stream = command.pipe;
    command.stream = command.pipe = nullptr;
  }
  command.wait_status = real_pclose(stream);
  return command.wait_status;
}

void forget_pre_command() {
  pre_command = {};
}

std::string pre_command_output() {
  const PreCommand& command = pre_command;
  return {command.output, strnlen(command.output, command.output_length)};
}

std::string pre_command_trouble() {
  const PreCommand& command = pre_command;
  if (command.start_error != 0) {
    return std::string("it could not be started: ") + std::strerror(command.start_error);
  }
  if (command.wait_status == 0) return "";
  if (command.wait_status < 0) return "its exit status is unknown";
  if (WIFSIGNALED(command.wait_status)) {
    return "signal " + std::to_string(WTERMSIG(command.wait_status)) + " ended it";
  }
  return "it ended with exit status " + std::to_string(WEXITSTATUS(command.wait_status));
}
