// Hung threads on the real kernel: threads really in D state, real shells, real signals.
#include "hung_thread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "child.h"
#include "fake_threads.h"
#include "mirt_host.h"
#include "mirt_items.h"
#include "recorded_system.h"

namespace {

// Matches this process and its forked children, but no other run of this program.
std::string own_pattern() {
  char text[1024] = "";
  EXPECT_EQ(MIRT_Linux_Plugin::get_cmdline_bypid(getpid(), text, sizeof text), 0);
  return std::string(text).substr(0, 390) + "*";
}

class HungThreadTest : public testing::Test {
 protected:
  // Makes so many calls and returns the last result.
  float run(int calls) {
    for (int call = 1; call < calls; ++call) call_.run(CheckProcessStatusIsD);
    return call_.run(CheckProcessStatusIsD);
  }

  RecordedSystem system_;
  HungCall call_{own_pattern()};
};

// The number of descriptors that a shell would inherit.
int inherited() {
  int count = 0;
  for (int fd = 3; fd < 4096; ++fd) count += fcntl(fd, F_GETFD) == 0 ? 1 : 0;
  return count;
}

TEST_F(HungThreadTest, IsReportedFromTheEleventhCallOnForAsLongAsItHangs) {
  const int inherited_before = inherited(), open_before = open_descriptors();
  system_.popen = [&](const char*) -> FILE* {
    EXPECT_GT(open_descriptors(), open_before) << "the plug-in is reading a directory";
    EXPECT_EQ(inherited(), inherited_before);
    return nullptr;  // a shell that does not start makes no difference
  };
  {
    const HungThread hung;
    for (int times = 1; times <= 12; ++times) {
      EXPECT_EQ(run(1), times > 10 ? 1.0F : 0.0F) << times;
      EXPECT_EQ(call_.result.pid, times > 10 ? hung.tid() : 0) << times;
      EXPECT_EQ(system_.take().empty(), times <= 7) << times;
    }
  }
  EXPECT_EQ(run(1), 0.0F);
  EXPECT_EQ(call_.table()->thread_info_unused, 0U);
}

TEST_F(HungThreadTest, AThousandCallsLeaveNothingBehind) {
  const HungThread first, second;
  run(20);
  system_.take();
  const size_t heap = mallinfo2().uordblks;
  const int descriptors = open_descriptors();
  run(1000);
  EXPECT_GT(system_.take().size(), 400000U) << "two reports a call";
  // Less than the smallest block per call; memory in the allocator's caches counts as in use.
  EXPECT_LT(mallinfo2().uordblks, heap + 16000);
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(HungThreadTest, RealShellsWriteReportAndStackAndLeaveNoZombie) {
  // A private kernel log: a pipe with the path of the real one.
  SKIP_WITHOUT_MOUNTS();
  const TmpfsMount dev("/dev");
  ASSERT_TRUE(dev.mounted() && mkfifo("/dev/kmsg", 0600) == 0) << strerror(errno);
  const int log = open("/dev/kmsg", O_RDWR | O_NONBLOCK | O_CLOEXEC);
  const HungThread hung;
  system_.real_shells = true;
  run(8);
  std::string text(65536, '\0');
  text.resize(static_cast<size_t>(std::max<ssize_t>(read(log, text.data(), text.size()), 0)));
  const std::string head = "Pid " + std::to_string(getpid()) + " Tid " +
                           std::to_string(hung.tid()) + " is D status. Detected times 8.First ";
  EXPECT_EQ(text.substr(0, head.size()), head);
  const size_t stack = text.find("\nCallTrace\n");
  EXPECT_LT(stack, text.size() - strlen("\nCallTrace\n")) << "the stack, or why there is none";
  run(40);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), 0) << "the one child left is what the thread waits for";
  close(log);
}

// The value of the pending SIGUSR1 of this process, or -1.
int signalled() {
  sigset_t awaited;
  sigemptyset(&awaited);
  sigaddset(&awaited, SIGUSR1);
  sigprocmask(SIG_BLOCK, &awaited, nullptr);
  siginfo_t received{};
  const timespec now{};
  return sigtimedwait(&awaited, &received, &now) < 0 ? -1 : received.si_value.sival_int;
}

int32_t allow(const MIRT_COMM_INFO_S* info, const void*, void* reply, uint32_t* length, void*) {
  *static_cast<char*>(reply) = 1;
  *length = 1;
  return info->msgOPCode == MIRT_OP_EXECUT_FILTER_ERRRPT ? 0 : -1;
}

TEST_F(HungThreadTest, TheDataPlaneReceivesTheSignalOnceSomebodyAllowsIt) {
  EXPECT_EQ(signalled(), -1);  // from now on all threads block the signal
  const HungThread hung;
  system_.real_framework = system_.real_signals = true;
  FI_PARAM_S target = parameter("UserData", std::to_string(getpid()));
  run(10);
  EXPECT_EQ(call_.run(CheckProcessStatusIsDForAppData), 0.0F) << "nobody has allowed anything";
  EXPECT_EQ(RebootAppData(1, &target, nullptr, &call_.result), -1);
  EXPECT_EQ(signalled(), -1);

  ASSERT_EQ(mirt_host_set_request_handler(PID_CTRL_MIRTKERNELAGENT, allow, nullptr), 0);
  EXPECT_EQ(call_.run(CheckProcessStatusIsDForAppData), 1.0F);
  EXPECT_EQ(signalled(), hung.tid());
  EXPECT_EQ(RebootAppData(1, &target, nullptr, &call_.result), 0);
  EXPECT_EQ(signalled(), getpid());
  mirt_host_set_request_handler(PID_CTRL_MIRTKERNELAGENT, nullptr, nullptr);
}

TEST_F(HungThreadTest, ThreadsThatComeAndGoAreNeverReportedAndLeaveAnEmptyTable) {
  std::atomic<int> batches{0};
  std::atomic<bool> stop{false};
  std::thread churn([&] {
    for (; !stop; ++batches) {
      const HungThread eight_more[8];
    }
  });
  int sighted = 0;
  for (int call = 0; call < 40 || sighted == 0; ++call) {
    // No thread lives through two of these calls, however fast they are.
    for (const int before = batches; batches == before;) std::this_thread::yield();
    EXPECT_EQ(run(1), 0.0F);
    sighted += call_.table()->thread_info_unused != 0 ? 1 : 0;
  }
  EXPECT_GT(sighted, 0);
  stop = true;
  churn.join();
  run(1);
  EXPECT_EQ(call_.table()->thread_info_unused, 0U);
  EXPECT_EQ(system_.take(), "");
}

}  // namespace
