// Items that need no scan, compared with bare reads of their files.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bare_calls.h"
#include "common_plugin.h"
#include "idle_processes.h"
#include "mirt_items.h"
#include "paired.h"

namespace {

using Item = float (*)(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*);

// One configured item of a host.
class Instance {
 public:
  Instance(Item item, const std::string& value) : item_(item) {
    value.copy(parameter_.value, sizeof parameter_.value - 1);
  }
  float call() { return item_(1, &parameter_, &context_, &result_); }
  bool valid() const { return result_.result == 0; }

 private:
  Item item_;
  FI_PARAM_S parameter_{};
  FI_CONTEXT_S context_{};
  FI_RESULT_S result_{};
};

template <typename Floor>
void item_row(benchmark::State& state, Instance instance, Floor floor) {
  instance.call();  // finds the process, if the item has one
  if (!instance.valid()) return state.SkipWithError("the item failed");
  paired(
      state, [&instance] { benchmark::DoNotOptimize(instance.call()); }, floor);
}

// An item for one process in the middle of the idle ones; the item remembers its PID.
template <typename Floor>
void followed_row(benchmark::State& state, Item item, Floor floor_of) {
  const std::vector<pid_t>& idle = idle_processes().pids();
  if (idle.empty()) return state.SkipWithError("no processes");
  const size_t middle = idle.size() / 2;
  item_row(state, Instance(item, IdleProcesses::command_line(static_cast<int>(middle))),
           floor_of(idle[middle]));
}

void GetProcessMemory_Remembered(benchmark::State& state) {
  followed_row(state, GetProcessMemory, [](pid_t pid) {
    return [cmdline = proc_path(pid, "cmdline"), status = proc_path(pid, "status")] {
      bare_read(cmdline.c_str());
      bare_read(status.c_str());
    };
  });
}
PAIRED_ROW(GetProcessMemory_Remembered);

void GetProcessSysCPU_Remembered(benchmark::State& state) {
  followed_row(state, GetProcessSysCPU, [](pid_t pid) {
    return [cmdline = proc_path(pid, "cmdline"), stat = proc_path(pid, "stat")] {
      bare_read(cmdline.c_str());
      bare_read("/proc/stat");
      bare_read(stat.c_str());
    };
  });
}
PAIRED_ROW(GetProcessSysCPU_Remembered);

void IsExistProcess_Remembered(benchmark::State& state) {
  followed_row(state, IsExistProcess, [](pid_t pid) {
    return [cmdline = proc_path(pid, "cmdline")] { bare_read(cmdline.c_str()); };
  });
}
PAIRED_ROW(IsExistProcess_Remembered);

// The size of the opened directory, if the kernel reports the number of entries there.
void bare_size(const char* directory) {
  struct stat status {};
  struct statfs file_system {};
  const int fd = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  benchmark::DoNotOptimize(fstatfs(fd, &file_system));
  benchmark::DoNotOptimize(fstat(fd, &status));
  close(fd);
}

void GetProcessHandle_Remembered(benchmark::State& state) {
  followed_row(state, GetProcessHandle, [](pid_t pid) {
    return [cmdline = proc_path(pid, "cmdline"), fd = proc_path(pid, "fd"),
            limits = proc_path(pid, "limits")] {
      bare_read(cmdline.c_str());
      bare_size(fd.c_str());
      bare_read(limits.c_str());
    };
  });
}
PAIRED_ROW(GetProcessHandle_Remembered);

// Keeps descriptors open until it is destroyed.
class ManyDescriptors {
 public:
  explicit ManyDescriptors(size_t count) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    while (fds_.size() < count) {
      const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
      if (fd < 0) return;
      fds_.push_back(fd);
    }
  }
  ManyDescriptors(const ManyDescriptors&) = delete;
  ManyDescriptors& operator=(const ManyDescriptors&) = delete;
  ~ManyDescriptors() {
    for (const int fd : fds_) close(fd);
  }
  size_t count() const { return fds_.size(); }

 private:
  std::vector<int> fds_;
};

std::string own_command_line() {
  std::ifstream file("/proc/self/cmdline");
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!text.empty()) text.pop_back();
  for (char& c : text) {
    if (c == '\0') c = ' ';
  }
  return text;
}

// The whole item, compared with only a listing of the directory: far below 1 if the kernel reports
// the number of entries.
void GetProcessHandle_15000BesideWalk(benchmark::State& state) {
  constexpr size_t kOpen = 15000;
  const ManyDescriptors many(kOpen);
  if (many.count() < kOpen) return state.SkipWithError("the limit of open files is too low");
  const Instance self(GetProcessHandle, own_command_line());
  if (Instance(self).call() <= 0.0F) return state.SkipWithError("own command line not found");
  item_row(state, self, [] { benchmark::DoNotOptimize(bare_listing("/proc/self/fd")); });
}
PAIRED_ROW(GetProcessHandle_15000BesideWalk);

void system_row(benchmark::State& state, Item item, const char* path) {
  item_row(state, Instance(item, ""), [path] { bare_read(path); });
}

void GetSysCPU_(benchmark::State& state) {
  system_row(state, GetSysCPU, "/proc/stat");
}
PAIRED_ROW(GetSysCPU_)->Name("GetSysCPU");

void GetSysUsrCPU_(benchmark::State& state) {
  system_row(state, GetSysUsrCPU, "/proc/stat");
}
PAIRED_ROW(GetSysUsrCPU_)->Name("GetSysUsrCPU");

void GetSysMemory_(benchmark::State& state) {
  system_row(state, GetSysMemory, "/proc/meminfo");
}
PAIRED_ROW(GetSysMemory_)->Name("GetSysMemory");

void GetSysFreeMemory_(benchmark::State& state) {
  system_row(state, GetSysFreeMemory, "/proc/meminfo");
}
PAIRED_ROW(GetSysFreeMemory_)->Name("GetSysFreeMemory");

void GetDiskUsage_(benchmark::State& state) {
  item_row(state, Instance(GetDiskUsage, "/"), [] {
    struct statfs file_system {};
    benchmark::DoNotOptimize(statfs("/", &file_system));
  });
}
PAIRED_ROW(GetDiskUsage_)->Name("GetDiskUsage");

}  // namespace
