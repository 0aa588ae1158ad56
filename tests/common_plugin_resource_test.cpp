#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "common_plugin.h"
#include "interposed.h"
#include "private_access.h"
#include "proc_fixture.h"

namespace {

using private_access::get_handle_count;
using private_access::get_handle_max;
using private_access::get_handle_usage;
using Plugin = MIRT_Linux_Plugin;

class Memory : public ProcFixture {};

TEST_F(Memory, OfAProcessIsWholeMebibytes) {
  struct Row {
    const char* status;
    unsigned int rss_mib;
  };
  for (const Row& row : {Row{"VmRSS:\t 1023 kB\n", 0},
                         {"VmRSS:\t 1024 kB\n", 1},
                         {"Name:\tx\nVmHWM:\t9000 kB\nVmRSS:\t5000 kB\nVmRSS:\t9000 kB\n", 4},
                         {"Name:\tVmRSS:\nVmRSS:\t5000 kB\n", 0},  // a process of that very name
                         {"VmRSS:\tmuch\n", 0},
                         {"Name:\tkernel\n", 0},
                         {"", 0}}) {
    put("7/status", row.status);
    EXPECT_EQ(Plugin::get_phy_mem(7), row.rss_mib) << row.status;
  }
  EXPECT_EQ(Plugin::get_phy_mem(8), 0U);
}

TEST_F(Memory, OfTheSystemGoesByLineNotByKey) {
  struct Row {
    const char* meminfo;
    float used_percent, free_mib;
  };
  for (const Row& row : {Row{"MemTotal: 1000 kB\nMemFree: 250 kB\nMemAvailable: 900 kB\n", 75, 0},
                         {"MemFree: 8192 kB\nMemTotal: 2048 kB\n", 75, 2},
                         {"MemTotal: 8192 kB\nMemFree: 1023 kB\n", 87.512207F, 0},
                         {"MemTotal: 8192 kB\nMemFree: 1024 kB\n", 87.5F, 1},
                         {"MemTotal: 1000 kB\n", 100, 0},
                         {"MemTotal: 0 kB\nMemFree: 9000 kB\n", 0, 8},
                         {"", 0, 0}}) {
    put("meminfo", row.meminfo);
    EXPECT_EQ(Plugin().get_sys_mem(), row.used_percent) << row.meminfo;
    EXPECT_EQ(Plugin().get_sys_free_mem(), row.free_mib) << row.meminfo;
  }
  remove("meminfo");
  EXPECT_EQ(Plugin().get_sys_mem(), 0.0F);
  EXPECT_EQ(Plugin().get_sys_free_mem(), 0.0F);
}

class Handles : public ProcFixture {};

TEST_F(Handles, AreWholePercentOfTheSoftLimit) {
  struct Row {
    int handles;
    const char* soft_limit;
    unsigned int max, usage;
  };
  int pid = 10;
  for (const Row& row : {Row{3, "1024", 1024, 0},
                         {512, "1024", 1024, 50},
                         {11, "10", 10, 110},
                         {3, "unlimited", 0, 0},
                         {3, "0", 0, 0},
                         {0, "1024", 1024, 0}}) {
    put_process({++pid, {"app"}, 0, 0, 0, row.handles, row.soft_limit});
    EXPECT_EQ(get_handle_count(pid), static_cast<unsigned int>(row.handles));
    EXPECT_EQ(get_handle_max(pid), row.max);
    EXPECT_EQ(get_handle_usage(pid), row.usage) << row.handles << " of " << row.soft_limit;
  }
  put("30/limits", "Limit Soft Limit\nMax open files 1024 1024 files\n");
  EXPECT_EQ(get_handle_max(30), 0U) << "it is the ninth line or nothing";
  EXPECT_EQ(get_handle_count(30), 0U);
  EXPECT_EQ(get_handle_usage(31), 0U);
}

// The kernel's size of the fd directory and the entries themselves have to tell the same.
TEST(RealHandles, AreThoseOfTheListing) {
  const auto listed = [] {
    const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<unsigned int>(std::distance(begin(entries), end(entries)));
  };
  EXPECT_EQ(get_handle_count(getpid()), listed());
  std::vector<int> held;
  for (int i = 0; i < 500; ++i) held.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const unsigned int many = get_handle_count(getpid());
  EXPECT_EQ(many, listed());
  EXPECT_GE(many, 500U);
  rlimit limits{};
  getrlimit(RLIMIT_NOFILE, &limits);
  EXPECT_EQ(get_handle_max(getpid()), limits.rlim_cur);
  for (const int fd : held) close(fd);
}

TEST(RealHandles, OfAProcessThatMayNotBeLookedAtAreNone) {
  // The size of its fd directory could be read all the same.
  const pid_t observer = fork();
  if (observer == 0) {
    // Fails where we are no real root; then PID 1 is another user's anyway.
    static_cast<void>(setresuid(65534, 65534, 65534) == 0);
    struct stat status {};
    _exit(stat("/proc/1/fd", &status) == 0 && get_handle_count(1) == 0 ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(waitpid(observer, &status, 0), observer);
  EXPECT_EQ(status, 0);
}

TEST(Disk, UsageIsRoundedUpTwice) {
  struct Row {
    unsigned long blocks, bfree, bavail;
    float percent;
  };
  ScopedHooks hooks;
  Row row{};
  std::string asked;
  hooks->statfs = [&](const char* path, struct statfs* status) {
    asked = path;
    status->f_blocks = row.blocks;
    status->f_bfree = row.bfree;
    status->f_bavail = row.bavail;
    return 0;
  };
  for (const Row& next :
       {Row{100, 50, 50, 51}, Row{3, 2, 2, 34}, Row{10, 10, 10, 1}, Row{1000, 0, 0, 101},
        Row{0, 0, 0, 0}, Row{10, 10, 0, 0}, Row{100, 50, 30, 63},
        Row{1000000000000, 500000000000, 500000000000, 51}, Row{199, 100, 100, 50}}) {
    row = next;
    EXPECT_EQ(Plugin().get_disk_usage("/some/dir"), row.percent)
        << row.blocks << ' ' << row.bfree << ' ' << row.bavail;
  }
  EXPECT_EQ(asked, "/some/dir");
  hooks->statfs = [](const char*, struct statfs*) {
    errno = EIO;
    return -1;
  };
  EXPECT_EQ(Plugin().get_disk_usage("/"), -1.0F);
}

TEST(Disk, OfAMissingDirectoryCannotBeTold) {
  EXPECT_EQ(Plugin().get_disk_usage("/nonexistent/dir"), -1.0F);
  EXPECT_GE(Plugin().get_disk_usage("/"), 1.0F);
}

class Highest : public ProcFixture {
 protected:
  void SetUp() override {
    ProcFixture::SetUp();
    put_process({13, {"app", "-c"}, 0, 0, 1000, 0, "10"});
    plugin_.max_usage_pid = -2;
  }
  int pid_ = -1;
  Plugin plugin_{};
};

TEST_F(Highest, OfZerosNamesAProcessOnlyForAPattern) {
  EXPECT_EQ(plugin_.get_process_resource(PROCESS_RESOURCE_MEM, "app -c", &pid_), 0.0F);
  EXPECT_EQ(pid_, -1);
  EXPECT_EQ(plugin_.get_process_memory("app -c"), 0.0F);
  EXPECT_EQ(plugin_.max_usage_pid, 13);
  EXPECT_EQ(plugin_.get_process_handle("app -c"), 0.0F);
  EXPECT_EQ(plugin_.max_usage_pid, 13);
}

TEST_F(Highest, OfNobodyOrAnUnknownKindIsZeroAndNamesNone) {
  EXPECT_EQ(plugin_.get_process_memory("nobody*"), 0.0F);
  EXPECT_EQ(plugin_.get_process_handle("nobody*"), 0.0F);
  EXPECT_EQ(plugin_.get_process_resource(PROCESS_RESOURCE_EXIST, "nobody", &pid_), 0.0F);
  for (const int kind : {3, 4, -1}) {
    EXPECT_EQ(plugin_.get_process_resource(static_cast<PROCESS_RESOURCE_E>(kind), "app", &pid_),
              0.0F);
  }
  EXPECT_EQ(pid_, -1);
  EXPECT_EQ(plugin_.max_usage_pid, -2);
}

TEST_F(Highest, HasNoLimitOnTheNumberOfProcesses) {
  std::vector<int> pids;
  for (int pid = 1000; pid < 1150; ++pid) {
    put_process({pid, {"many"}});
    pids.push_back(pid);
  }
  const int last = in_listing_order(pids).back();
  put_process({last, {"many"}, 0, 0, 2048, 1, "2"});
  EXPECT_EQ(plugin_.get_process_resource(PROCESS_RESOURCE_MEM, "many", &pid_), 2.0F);
  EXPECT_EQ(pid_, last);
  EXPECT_EQ(plugin_.get_process_handle("many"), 50.0F);
  EXPECT_EQ(plugin_.max_usage_pid, last);
}

}  // namespace
