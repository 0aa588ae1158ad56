#include "item/pre_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "proc/child_program.h"
#include "proc/unique_fd.h"

namespace {

// Items read 32 bytes and use the first 31.
constexpr size_t kMostOutput = 31;

// The current or last command of this thread.
struct PreCommand {
  FILE* stream = nullptr;  // the caller's stream, which reads from `pipe`
  int pipe = -1;           // what the command prints
  pid_t shell = -1;
  char output[kMostOutput] = {};
  size_t output_length = 0;
  int start_error = 0;
  int wait_status = 0;
};
thread_local PreCommand pre_command;

ssize_t read_and_note(void* /*cookie*/, char* buffer, size_t size) {
  PreCommand& command = pre_command;
  ssize_t got;
  do got = read(command.pipe, buffer, size);
  while (got < 0 && errno == EINTR);
  if (got > 0) {
    const size_t noted = std::min(static_cast<size_t>(got), kMostOutput - command.output_length);
    std::memcpy(command.output + command.output_length, buffer, noted);
    command.output_length += noted;
  }
  return got;
}

// Starts a shell for the command with the environment of all commands. It inherits the standard
// descriptors only. Returns 0 or an error number.
int start_shell(const char* command, int output, pid_t& shell) {
  const std::vector<std::string> texts = command_environment();
  const std::vector<char*> environment = pointers(texts);
  const std::vector<std::string> words{"sh", "-c", command};
  const std::vector<char*> arguments = pointers(words);
  posix_spawn_file_actions_t actions;
  int error = posix_spawn_file_actions_init(&actions);
  if (error != 0) return error;
  error = posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  if (error == 0) error = posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  if (error == 0) {
    error = posix_spawn(&shell, "/bin/sh", &actions, nullptr, arguments.data(), environment.data());
  }
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

FILE* open_command(const char* command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return nullptr;
  UniqueFd read_end(ends[0]);
  const UniqueFd write_end(ends[1]);
  cookie_io_functions_t functions{};
  functions.read = read_and_note;
  FILE* const stream = fopencookie(nullptr, "r", functions);
  if (!stream) return nullptr;
  errno = start_shell(command, write_end.get(), pre_command.shell);
  if (errno != 0) {
    const int error = errno;
    fclose(stream);
    errno = error;
    return nullptr;
  }
  pre_command.pipe = read_end.release();
  pre_command.stream = stream;
  return stream;
}

}  // namespace

// Called from the plug-in, which does not expect exceptions.
extern "C" FILE* popen(const char* command, const char* modes) try {
  forget_pre_command();
  errno = EINVAL;
  FILE* const stream = modes[0] == 'r' ? open_command(command) : nullptr;
  pre_command.start_error = stream ? 0 : errno;
  return stream;
} catch (...) {
  errno = pre_command.start_error = ENOMEM;
  return nullptr;
}

extern "C" int pclose(FILE* stream) {
  PreCommand& command = pre_command;
  if (stream != command.stream) {
    errno = ECHILD;
    return -1;
  }
  fclose(stream);
  close(command.pipe);
  int status = 0;
  pid_t waited;
  do waited = waitpid(command.shell, &status, 0);
  while (waited < 0 && errno == EINTR);
  command.stream = nullptr;
  command.wait_status = waited < 0 ? -1 : status;
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
