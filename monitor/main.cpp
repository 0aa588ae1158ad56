// mirt-monitor: loads the inspection plug-in and runs its items.
#include <fcntl.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "command/command_line.h"
#include "proc/process_one.h"
#include "proc/program_path.h"
#include "proc/spare_memory.h"
#include "text/complaint.h"

namespace {

// If one of the three is closed, the next opened file would get its number and receive the output.
void fill_standard_descriptors() {
  int fd;
  do fd = open("/dev/null", O_RDWR);  // NOLINT(android-cloexec-open): pre-commands need them too
  while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
}

// A write past the limit on the size of files must fail, not end the program. A handler, because
// commands would inherit that the signal is ignored.
void catch_file_size_signal() {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  action.sa_flags = SA_RESTART;
  sigaction(SIGXFSZ, &action, nullptr);
}

void tell_no_memory_to_start() {
  std::fputs("mirt-monitor: cannot start: out of memory\n", stderr);
}

std::terminate_handler g_terminate;  // the one of the C++ library

// Objects of libraries are made before main(), where no exception can be caught. This runs before
// all of them.
__attribute__((constructor(101))) void prepare_for_no_memory() {
  g_terminate = std::set_terminate([] {
    tell_no_memory_to_start();
    _exit(kExitFailed);
  });
}

// Returns code, or 1 if output could not be written. A closed pipe is not an error.
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
  // Commands that items start must not inherit the descriptors that we inherited.
  if (close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0) {
    complain(std::string("commands will inherit open descriptors: ") + std::strerror(errno));
  }
  std::signal(SIGCHLD, SIG_DFL);  // if it is ignored, the exit statuses of our children are lost
  if (!continue_below_process_one()) {
    complain(std::string("orphans will stay as zombies: ") + std::strerror(errno));
  }
  if (!set_memory_aside()) {
    tell_no_memory_to_start();
    return kExitFailed;
  }
  std::set_terminate(g_terminate);
  catch_file_size_signal();
  // Items start commands too, and programs in the folders of another user's PATH must not run.
  setenv("PATH", kProgramPath, 1);
  try {
    return flush_output(run_command_line(argc, argv));
  } catch (const std::exception& error) {  // probably out of memory
    std::fprintf(stderr, "mirt-monitor: %s\n", error.what());
    return kExitFailed;
  }
}
