// mirt-monitor: loads the inspection plug-in and runs its items.
#include <fcntl.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "command/command_line.h"
#include "command/commands.h"
#include "text/complaint.h"

namespace {

// Started without one of the three, the next file opened would take its number, and output meant
// for people would go there.
void fill_standard_descriptors() {
  int fd;
  do fd = open("/dev/null", O_RDWR);  // NOLINT(android-cloexec-open): pre-commands need them too
  while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
}

// The exit code, unless output was lost; a reader that has gone wants no more of it.
int flush_output(int code) {
  errno = 0;
  const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (written || errno == EPIPE) return code;
  complain_of_output(errno != 0 ? errno : EIO);
  return kExitFailed;
}

}  // namespace

int main(int argc, char** argv) {
  fill_standard_descriptors();
  // What we were started with is not for the commands that items start.
  if (close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0) {
    complain(std::string("commands will inherit descriptors: ") + std::strerror(errno));
  }
  std::signal(SIGCHLD, SIG_DFL);  // inherited as ignored, it would take our children's exit codes
  try {
    return flush_output(run_command_line(argc, argv));
  } catch (const std::exception& error) {  // no memory, in all likelihood
    std::fprintf(stderr, "mirt-monitor: %s\n", error.what());
    return kExitFailed;
  }
}
