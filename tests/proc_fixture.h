// A /proc of the test's own, where exact numbers matter.
#ifndef PROC_FIXTURE_H
#define PROC_FIXTURE_H

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

// What the files of one made-up process say.
struct FakeProcess {
  int pid;
  std::vector<std::string> arguments;  // none: an empty cmdline, as of a kernel thread
  unsigned long long utime = 0, stime = 0;
  int rss_kb = 0;
  int handles = 0;
  std::string soft_limit = "1024";
};

// From now on this process alone sees what it mounts. False: run as root, or allow user namespaces.
bool enter_private_namespace();

// At the beginning of a test, or of SetUp(): without mounts of its own it is skipped, and counted
// so.
#define SKIP_WITHOUT_MOUNTS() \
  if (!enter_private_namespace()) GTEST_SKIP() << "needs root, or user namespaces, to mount"

// An empty tmpfs over a directory while it lives, in a mount namespace that this process and its
// children alone see. Where the test program lies below the directory, its folder stays in sight.
class TmpfsMount {
 public:
  explicit TmpfsMount(std::string path, const char* options = "size=16m");
  TmpfsMount& operator=(TmpfsMount&&) = delete;  // neither copied nor moved
  ~TmpfsMount();
  bool mounted() const { return mounted_; }  // if not, the reason is in errno

 private:
  std::string path_;
  bool mounted_;
};

// While it lives, this process and its children make and find the heartbeats' lock file and table
// in an empty /tmp and /dev/shm of their own: the machine's are not touched, and nothing is left.
class OwnHeartbeatFiles {
 public:
  bool mounted() const { return tmp_.mounted() && shm_.mounted(); }

 private:
  TmpfsMount tmp_{"/tmp", "size=1m,mode=1777"}, shm_{"/dev/shm", "size=64k,mode=1777"};
};

// Mounts an empty tmpfs over /proc for the length of each test, in a mount namespace that this
// process alone sees. The real /proc is back when the test ends: the sanitizers need it.
class ProcFixture : public testing::Test {
 public:
  // Writes a file, with the directories above it. path is below /proc; content may hold NULs.
  static void put(const std::string& path, const std::string& content);
  static void make_dir(const std::string& path);
  static void remove(const std::string& path);

  // cmdline, stat, status, limits and fd of a process.
  static void put_process(const FakeProcess& process);
  static void put_cmdline(int pid, const std::vector<std::string>& arguments);
  static void put_ticks(int pid, unsigned long long utime, unsigned long long stime);

  // Of these PIDs, those in /proc in the order in which the directory lists them.
  static std::vector<int> in_listing_order(const std::vector<int>& pids);

 protected:
  void SetUp() override;
  void TearDown() override { proc_.reset(); }

 private:
  std::optional<TmpfsMount> proc_;
};

#endif
