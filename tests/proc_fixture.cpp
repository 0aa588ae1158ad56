#include "proc_fixture.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "child.h"

namespace fs = std::filesystem;

namespace {

// The folder directly below `path` that contains the test program; empty if it is elsewhere.
fs::path folder_of_program(const fs::path& path) {
  static const fs::path program = fs::read_symlink("/proc/self/exe");
  const auto below = program.lexically_relative(path);
  return below.empty() || *below.begin() == ".." ? fs::path() : path / *below.begin();
}

bool mount_tmpfs(const std::string& path, const char* options) {
  const fs::path kept = folder_of_program(path);
  const int tree = kept.empty() ? -1
                                : open_tree(AT_FDCWD, kept.c_str(),
                                            OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE);
  if (mount("tmpfs", path.c_str(), "tmpfs", 0, options) != 0) return false;
  if (kept.empty()) return true;
  fs::create_directory(kept);
  const bool moved = move_mount(tree, "", AT_FDCWD, kept.c_str(), MOVE_MOUNT_F_EMPTY_PATH) == 0;
  close(tree);
  return moved;
}

}  // namespace

bool enter_private_namespace() {
  static const bool entered = enter_private_mounts();
  return entered;
}

TmpfsMount::TmpfsMount(std::string path, const char* options)
    : path_(std::move(path)), mounted_(enter_private_namespace() && mount_tmpfs(path_, options)) {}

TmpfsMount::~TmpfsMount() {
  EXPECT_TRUE(!mounted_ || umount2(path_.c_str(), MNT_DETACH) == 0) << strerror(errno);
}

void ProcFixture::SetUp() {
  SKIP_WITHOUT_MOUNTS();
  proc_.emplace("/proc");
  ASSERT_TRUE(proc_->mounted()) << strerror(errno);
}

void ProcFixture::put(const std::string& path, const std::string& content) {
  const fs::path file = "/proc/" + path;
  fs::create_directories(file.parent_path());
  write_file(file, content);
}

void ProcFixture::make_dir(const std::string& path) {
  fs::create_directories("/proc/" + path);
}

void ProcFixture::remove(const std::string& path) {
  fs::remove_all("/proc/" + path);
}

void ProcFixture::put_cmdline(int pid, const std::vector<std::string>& arguments) {
  std::string text;
  for (const std::string& argument : arguments) text += argument + '\0';
  put(std::to_string(pid) + "/cmdline", text);
}

void ProcFixture::put_ticks(int pid, unsigned long long utime, unsigned long long stime) {
  const std::string id = std::to_string(pid);
  put(id + "/stat", id + " (x) S 1 1 1 0 -1 4194560 9 8 7 6 " + std::to_string(utime) + ' ' +
                        std::to_string(stime) + " 5 4 20 0 1 0 33 0 0\n");
}

void ProcFixture::put_process(const FakeProcess& process) {
  const std::string id = std::to_string(process.pid);
  put_cmdline(process.pid, process.arguments);
  put_ticks(process.pid, process.utime, process.stime);
  put(id + "/status", "Name:\tx\nState:\tS (sleeping)\nVmRSS:\t   " +
                          std::to_string(process.rss_kb) + " kB\nThreads:\t1\n");
  std::string limits;
  for (int line = 0; line < 8; ++line) {
    limits += "Limit                     Soft Limit           Hard Limit           Units     \n";
  }
  put(id + "/limits", limits + "Max open files            " + process.soft_limit +
                          "                 524288               files     \n");
  make_dir(id + "/fd");
  for (int fd = 0; fd < process.handles; ++fd) put(id + "/fd/" + std::to_string(fd), "");
}

std::vector<int> ProcFixture::in_listing_order(const std::vector<int>& pids) {
  std::vector<int> listed;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const int pid = atoi(entry.path().filename().c_str());
    if (std::find(pids.begin(), pids.end(), pid) != pids.end()) listed.push_back(pid);
  }
  return listed;
}

bool is_machines_root() {
  std::ifstream map("/proc/self/uid_map");
  uint64_t first = 1, outside = 1, count = 0;
  map >> first >> outside >> count;
  return geteuid() == 0 && outside == 0 && count == UINT32_MAX;
}
