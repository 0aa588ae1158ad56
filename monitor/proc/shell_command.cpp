#include "proc/shell_command.h"

#include <sys/wait.h>
#include <unistd.h>

#include "proc/child_program.h"

std::optional<int> run_shell_command(const std::string& command, std::chrono::seconds limit) {
  const Program shell{
      "/bin/sh", {"sh", "-c", command}, command_environment(), /*input=*/-1, STDERR_FILENO};
  std::optional<ChildProgram> child = ChildProgram::start(shell);
  if (!child) return std::nullopt;
  const std::optional<int> status = child->status_by(ChildProgram::Clock::now() + limit);
  if (!status) return std::nullopt;
  return WIFEXITED(*status) ? WEXITSTATUS(*status) : 128 + WTERMSIG(*status);
}
