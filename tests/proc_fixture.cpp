#include "proc_fixture.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "child.h"

bool enter_private_namespace() {
  if (unshare(CLONE_NEWNS) != 0) {
    // Mounts need root: we become root of a user namespace.
    const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", "0 " + user + " 1");
    write_file("/proc/self/gid_map", "0 " + group + " 1");
  }
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

TmpfsMount::TmpfsMount(std::string path, const char* options) : path_(std::move(path)) {
  static const bool private_namespace = enter_private_namespace();
  mounted_ = private_namespace && mount("tmpfs", path_.c_str(), "tmpfs", 0, options) == 0;
}

TmpfsMount::~TmpfsMount() {
  EXPECT_TRUE(!mounted_ || umount2(path_.c_str(), MNT_DETACH) == 0) << strerror(errno);
}

void ProcFixture::SetUp() {
  proc_.emplace("/proc");
  ASSERT_TRUE(proc_->mounted()) << strerror(errno) << ": run as root, or allow user namespaces";
}

void ProcFixture::put(const std::string& path, const std::string& content) {
  const std::filesystem::path file = "/proc/" + path;
  std::filesystem::create_directories(file.parent_path());
  write_file(file, content);
}

void ProcFixture::make_dir(const std::string& path) {
  std::filesystem::create_directories("/proc/" + path);
}

void ProcFixture::remove(const std::string& path) {
  std::filesystem::remove_all("/proc/" + path);
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
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const int pid = atoi(entry.path().filename().c_str());
    if (std::find(pids.begin(), pids.end(), pid) != pids.end()) listed.push_back(pid);
  }
  return listed;
}
