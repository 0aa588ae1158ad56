// Followed processes: children and others, waited for or not, and numbers that are used again.
#include "proc/process_end.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>

#include "child.h"
#include "proc_fixture.h"
#include "text/end_text.h"

namespace {

using std::chrono::milliseconds;
using Steady = FollowedProcess::Steady;

// A child that waits until it is told with which status to exit. It is not waited for.
class Exiting {
 public:
  Exiting() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ == 0) {
      unsigned char status = 0;
      _exit(read(ends[0], &status, 1) == 1 ? status : 255);
    }
    close(ends[0]);
    write_end_ = UniqueFd(ends[1]);
  }
  pid_t pid() const { return pid_; }
  void exit_with(unsigned char status) const {
    EXPECT_EQ(write(write_end_.get(), &status, 1), 1);
    siginfo_t info;
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT), 0);
  }

 private:
  pid_t pid_ = -1;
  UniqueFd write_end_{-1};
};

// From 6.15 on it tells how a process has ended that has been waited for.
bool kernel_tells() {
  utsname system{};
  int major = 0, minor = 0;
  uname(&system);
  EXPECT_EQ(std::sscanf(system.release, "%d.%d", &major, &minor), 2);
  return major > 6 || (major == 6 && minor >= 15);
}

TEST(FollowedProcess, TellsHowAChildEndedBeforeAndAfterItIsWaitedFor) {
  const Exiting child;
  const auto process = FollowedProcess::follow(child.pid(), Steady::now());
  ASSERT_TRUE(process);
  EXPECT_FALSE(process->end());
  const auto age = std::chrono::system_clock::now() - process->started();
  EXPECT_GE(age, milliseconds(0));
  EXPECT_LT(age, std::chrono::seconds(100));
  child.exit_with(7);
  ASSERT_TRUE(process->end());
  ASSERT_TRUE(process->end()->status) << "not waited for";
  EXPECT_EQ(WEXITSTATUS(*process->end()->status), 7);
  EXPECT_GE(process->end()->ran, milliseconds(0));
  waitpid(child.pid(), nullptr, 0);
  ASSERT_TRUE(process->end());
  EXPECT_TRUE(!kernel_tells() || process->end()->status == 7 << 8) << "waited for";
}

TEST(FollowedProcess, TellsASignalAlsoOfOneThatIsNoChild) {
  FILE* const shell = popen("sleep infinity > /dev/null & echo $!", "re");
  pid_t orphan = 0;
  ASSERT_EQ(std::fscanf(shell, "%d", &orphan), 1);
  pclose(shell);
  const auto process = FollowedProcess::follow(orphan, Steady::now());
  ASSERT_TRUE(process);
  kill(orphan, SIGKILL);
  pollfd ended{process->fd(), POLLIN, 0};
  ASSERT_EQ(poll(&ended, 1, -1), 1);
  const auto end = process->end();
  ASSERT_TRUE(end);
  EXPECT_TRUE(!kernel_tells() || end->status == SIGKILL);
  EXPECT_EQ(end_text({SIGKILL, std::chrono::hours(3) + std::chrono::minutes(12)}),
            "killed by signal 9 after 3 h 12 min");
}

TEST(FollowedProcess, IsNoneThatHasEndedOrIsAThreadOrHasNoDescriptor) {
  Exiting child;
  child.exit_with(0);
  EXPECT_FALSE(FollowedProcess::follow(child.pid(), Steady::now()));
  EXPECT_EQ(errno, ESRCH);
  waitpid(child.pid(), nullptr, 0);
  EXPECT_FALSE(FollowedProcess::follow(child.pid(), Steady::now()));
  EXPECT_EQ(errno, ESRCH);
  std::thread([] {
    EXPECT_FALSE(FollowedProcess::follow(gettid(), Steady::now()));
    EXPECT_NE(errno, EMFILE);
  }).join();
  const NoDescriptors none;
  EXPECT_FALSE(FollowedProcess::follow(getpid(), Steady::now()));
  EXPECT_EQ(errno, EMFILE);
}

// Whoever may not look into a process reads 0 in place of its exit code.
TEST(FollowedProcess, DoesNotTakeWhatItMayNotReadForAnExitStatus) {
  if (!is_machines_root()) GTEST_SKIP() << "only root can become another user";
  const Exiting child;
  const auto process = FollowedProcess::follow(child.pid(), Steady::now());
  ASSERT_TRUE(process);
  child.exit_with(7);
  const auto is_hidden_from_nobody = [&process] {
    constexpr uid_t kNobody = 65534;
    const bool is_nobody = become(kNobody, kNobody);
    const auto end = process->end();
    return is_nobody && end && !end->status ? 0 : 1;
  };
  EXPECT_EQ(status_of_child(is_hidden_from_nobody), 0);
  waitpid(child.pid(), nullptr, 0);
}

// In a PID namespace of its own, as its first process. 0 if all is as it should be, or the number
// of the line where it was not.
int follow_reused_number() {
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("proc", "/proc", "proc", 0, nullptr) != 0) {
    return __LINE__;
  }
  const Exiting first;
  const auto seen = Steady::now();
  const auto followed = FollowedProcess::follow(first.pid(), seen);
  if (!followed) return __LINE__;
  kill(first.pid(), SIGKILL);
  waitpid(first.pid(), nullptr, 0);
  // Start times are told to a hundredth of a second.
  std::this_thread::sleep_until(seen + milliseconds(20));
  write_file("/proc/sys/kernel/ns_last_pid", std::to_string(first.pid() - 1));
  const Exiting second;
  if (second.pid() != first.pid()) return __LINE__;
  const auto end = followed->end();
  if (!end || (kernel_tells() && end->status != SIGKILL)) return __LINE__;
  if (FollowedProcess::follow(second.pid(), seen)) return __LINE__;
  const auto followed_second = FollowedProcess::follow(second.pid(), Steady::now());
  if (!followed_second || followed_second->end()) return __LINE__;
  second.exit_with(3);
  waitpid(second.pid(), nullptr, 0);
  const auto second_end = followed_second->end();
  if (!second_end || (kernel_tells() && second_end->status != 3 << 8)) return __LINE__;
  return 0;
}

TEST(FollowedProcess, IsNeverAnotherOneOfTheSameNumber) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can choose the next process number";
  const auto unshared = [] {
    if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) return 1;
    const int status = status_of_child(follow_reused_number);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
  };
  const int status = status_of_child(unshared);
  EXPECT_EQ(status, 0) << "line " << WEXITSTATUS(status);
}

TEST(EndText, HasTheTwoLargestUnits) {
  const auto text = [](long long ms) { return duration_text(milliseconds(ms)); };
  EXPECT_EQ(text(-5), "0.0 s");
  EXPECT_EQ(text(9999), "9.9 s");
  EXPECT_EQ(text(59999), "59 s");
  EXPECT_EQ(text(3599000), "59 min 59 s");
  EXPECT_EQ(text(86399000), "23 h 59 min");
  EXPECT_EQ(text(90000000), "1 d 1 h");
  EXPECT_EQ(end_text({std::nullopt, milliseconds(2000)}), "ended after 2.0 s");
  EXPECT_EQ(wait_status_text(1 << 8), "exited with status 1");
  EXPECT_EQ(wait_status_text(SIGSEGV | 0x80), "killed by signal 11 (core dumped)");
}

}  // namespace
