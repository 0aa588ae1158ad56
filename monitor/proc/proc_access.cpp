#include "proc/proc_access.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>

#include "proc/unique_fd.h"

namespace {

// An answer "no trouble" is valid for this time, also for other threads. Many calls begin together.
constexpr std::chrono::milliseconds kRecent{20};

// A question that many threads ask at the same time. Only the answer "yes" is kept.
class Recently {
 public:
  template <typename Ask>
  bool is_true(Ask ask) {
    const std::lock_guard lock(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (confirmed_ && now - asked_ < kRecent) return true;
    asked_ = now;
    confirmed_ = ask();
    return confirmed_;
  }

 private:
  std::mutex mutex_;
  std::chrono::steady_clock::time_point asked_{};
  bool confirmed_ = false;
};

}  // namespace

int open_error(const std::string& path) {
  const UniqueFd file = open_to_read(path.c_str());
  return file.get() >= 0 ? 0 : errno;
}

std::string open_trouble(const std::string& path) {
  const int error = open_error(path);
  return error == 0 ? "" : path + ": " + std::strerror(error);
}

std::string proc_trouble() {
  const UniqueFd proc = open_to_read("/proc");
  // Opens, and cannot be listed: then every search finds nothing.
  char entries[1024];
  if (proc.get() < 0 || getdents64(proc.get(), entries, sizeof entries) < 0) {
    return std::string("/proc: ") + std::strerror(errno);
  }
  std::string own = open_trouble("/proc/self/cmdline");
  if (!own.empty()) return own;
  // Process 1 always runs, and every user may read its command line, unless /proc is mounted with
  // hidepid.
  const int error = open_error("/proc/1/cmdline");
  if (error == 0) return "";
  const bool hidden = error == ENOENT || error == EACCES || error == EPERM;
  return hidden ? "/proc hides the processes of other users (hidepid)"
                : std::string("/proc/1/cmdline: ") + std::strerror(error);
}

std::string recent_proc_trouble() {
  static Recently readable;
  std::string trouble;
  readable.is_true([&trouble] {
    trouble = proc_trouble();
    return trouble.empty();
  });
  return trouble;
}

bool may_read_all_files() {
  static Recently permitted;
  return permitted.is_true([] { return geteuid() == 0 && open_error("/proc/1/fd") == 0; });
}
