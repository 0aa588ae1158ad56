#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <numeric>
#include <tuple>

#include "child.h"
#include "common_plugin.h"
#include "interposed.h"
#include "proc_fixture.h"

namespace {

using Plugin = MIRT_Linux_Plugin;

using Resources = ProcFixture;

TEST_F(Resources, MemoryOfAProcessIsWholeMebibytes) {
  using Row = std::pair<const char*, unsigned int>;
  for (const auto& [status, rss_mib] :
       {Row("VmRSS:\t 1023 kB\n", 0), Row("VmHWM:\t9000 kB\nVmRSS:\t5000 kB\nVmRSS:\t9000 kB\n", 4),
        // A process with exactly that name.
        Row("Name:\tVmRSS:\nVmRSS:\t5000 kB\n", 0), Row("VmRSS:\tmuch\n", 0), Row("", 0)}) {
    put("7/status", status);
    EXPECT_EQ(Plugin::get_phy_mem(7), rss_mib) << status;
  }
}

TEST_F(Resources, MemoryOfTheSystemGoesByLineNotByKey) {
  using Row = std::tuple<const char*, float, float>;
  for (const auto& [meminfo, used_percent, free_mib] :
       {Row{"MemFree: 8192 kB\nMemTotal: 2048 kB\nMemAvailable: 9 kB\n", 75, 2},
        Row{"MemTotal: 8192 kB\nMemFree: 1023 kB\n", 87.512207F, 0},
        Row{"MemTotal: 1000 kB\n", 100, 0}, Row{"MemTotal: 0 kB\nMemFree: 9000 kB\n", 0, 8},
        Row{"", 0, 0}}) {
    put("meminfo", meminfo);
    EXPECT_EQ(Plugin().get_sys_mem(), used_percent) << meminfo;
    EXPECT_EQ(Plugin().get_sys_free_mem(), free_mib) << meminfo;
  }
}

// Here the item counts the entries, because only a proc file system reports their number as a size.
TEST_F(Resources, HandlesAreWholePercentOfTheSoftLimit) {
  using Row = std::tuple<int, const char*, unsigned int>;
  for (const auto& [handles, soft_limit, usage] :
       {Row{3, "1024", 0}, Row{512, "1024", 50}, Row{11, "10", 110}, Row{3, "unlimited", 0},
        Row{3, "0", 0}, Row{0, "1024", 0}}) {
    remove("7");
    put_process({7, {"app"}, 0, 0, 0, handles, soft_limit});
    EXPECT_EQ(Plugin().get_handle_count(7), static_cast<unsigned int>(handles));
    EXPECT_EQ(Plugin().get_handle_usage(7), usage) << handles << " of " << soft_limit;
  }
  put("7/fd/0", "");
  put("7/limits", "Limit Soft Limit\nMax open files 3 3 files\n");
  EXPECT_EQ(Plugin().get_handle_usage(7), 0U) << "it is the ninth line or nothing";
}

// The size of the fd directory must be equal to the number of its entries.
TEST(RealHandles, AreThoseOfTheListing) {
  std::vector<int> held(500);
  for (int& fd : held) fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
  EXPECT_EQ(Plugin().get_handle_count(getpid()), std::distance(begin(entries), end(entries)) + 1);
  for (const int fd : held) close(fd);
}

TEST(RealHandles, OfAProcessThatMayNotBeLookedAtAreNone) {
  // The size of its fd directory is still readable.
  const int status = status_of_child([] {
    // Root of a user namespace cannot become another user. Without root, PID 1 belongs to another.
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) return 2;
    struct stat folder {};
    return stat("/proc/1/fd", &folder) == 0 && Plugin().get_handle_count(1) == 0 ? 0 : 1;
  });
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "needs root, to be another user";
  EXPECT_EQ(status, 0);
}

TEST(Disk, UsageIsRoundedUpTwice) {
  struct statfs answer {};
  ScopedHooks hooks;
  hooks->statfs = [&answer](const char*, struct statfs* status) {
    *status = answer;
    return 0;
  };
  using Row = std::array<unsigned long, 4>;
  for (const auto& [blocks, free, available, percent] :
       {Row{100, 50, 50, 51}, Row{3, 2, 2, 34}, Row{10, 10, 10, 1}, Row{1000, 0, 0, 101}, Row{},
        Row{10, 10, 0, 0}, Row{100, 50, 30, 63}, Row{199, 100, 100, 50},
        Row{1000000000000, 500000000000, 500000000000, 51}}) {
    answer.f_blocks = blocks;
    answer.f_bfree = free;
    answer.f_bavail = available;
    EXPECT_EQ(Plugin().get_disk_usage("/some/dir"), percent) << blocks << ' ' << free;
  }
}

TEST_F(Resources, HighestHasNoLimitOnTheNumberOfProcesses) {
  std::vector<int> pids(150);
  std::iota(pids.begin(), pids.end(), 1000);
  for (const int pid : pids) put_process({pid, {"many"}});
  const int last = in_listing_order(pids).back();
  int pid = -1;
  Plugin plugin;
  EXPECT_EQ(plugin.get_process_resource(PROCESS_RESOURCE_MEM, "many", &pid), 0.0F);
  EXPECT_EQ(pid, -1) << "all equal, and none above zero";
  EXPECT_EQ(plugin.get_process_memory("many*"), 0.0F);
  EXPECT_EQ(plugin.max_usage_pid, last) << "but for a pattern the last one leads";
  put_process({last, {"many"}, 0, 0, 2048, 1, "2"});
  EXPECT_EQ(plugin.get_process_resource(PROCESS_RESOURCE_MEM, "many", &pid), 2.0F);
  EXPECT_EQ(pid, last);
  EXPECT_EQ(plugin.get_process_resource(static_cast<PROCESS_RESOURCE_E>(3), "many", &pid), 0.0F);
}

}  // namespace
