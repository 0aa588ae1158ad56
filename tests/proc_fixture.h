// A private /proc, for tests that need exact numbers.
#ifndef PROC_FIXTURE_H
#define PROC_FIXTURE_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "child.h"

// The content of the files of one simulated process.
struct FakeProcess {
  int pid;
  std::vector<std::string> arguments;  // empty: an empty cmdline, as for a kernel thread
  unsigned long long utime = 0, stime = 0;
  int rss_kb = 0;
  int handles = 0;
  std::string soft_limit = "1024";
};

// Enters a private mount namespace. False if it needs root or user namespaces.
bool enter_private_namespace();

// For the beginning of a test or of SetUp(): skips the test if it cannot mount.
#define SKIP_WITHOUT_MOUNTS() \
  if (!enter_private_namespace()) GTEST_SKIP() << "needs root, or user namespaces, to mount"

// An empty tmpfs over a directory while it exists, in a mount namespace of this process and its
// children. If the test program is below the directory, its folder stays visible.
class TmpfsMount : InPlace {
 public:
  explicit TmpfsMount(std::string path, const char* options = "size=16m");
  ~TmpfsMount();
  bool mounted() const { return mounted_; }  // if false, errno has the reason

 private:
  std::string path_;
  bool mounted_;
};

// While it exists, this process and its children have a private, empty /tmp and /dev/shm for the
// heartbeats' lock file and table. The machine's files are not changed, and nothing remains.
class OwnHeartbeatFiles {
 public:
  bool mounted() const { return tmp_.mounted() && shm_.mounted(); }

 private:
  TmpfsMount tmp_{"/tmp", "size=1m,mode=1777"}, shm_{"/dev/shm", "size=64k,mode=1777"};
};

// Tests with such files, which exist before the base's members do.
template <typename Base = testing::Test>
class WithOwnHeartbeatFiles : private OwnHeartbeatFiles, public Base {
 protected:
  void SetUp() override {
    SKIP_WITHOUT_MOUNTS();
    ASSERT_TRUE(mounted()) << strerror(errno);
  }
};

// Mounts an empty tmpfs over /proc during each test, in a private mount namespace. The real /proc
// is visible again after the test, because the sanitizers need it.
class ProcFixture : public testing::Test {
 public:
  // Writes a file and creates its directories. path is below /proc; content may contain NULs.
  static void put(const std::string& path, const std::string& content);
  static void make_dir(const std::string& path);
  static void remove(const std::string& path);

  // cmdline, stat, status, limits and fd of a process.
  static void put_process(const FakeProcess& process);
  static void put_cmdline(int pid, const std::vector<std::string>& arguments);
  static void put_ticks(int pid, unsigned long long utime, unsigned long long stime);

  // Those of these PIDs that are in /proc, in the order of the directory.
  static std::vector<int> in_listing_order(const std::vector<int>& pids);

 protected:
  void SetUp() override;
  void TearDown() override { proc_.reset(); }

 private:
  std::optional<TmpfsMount> proc_;
};

// True for root outside a user namespace, who can become any user.
bool is_machines_root();

#endif
