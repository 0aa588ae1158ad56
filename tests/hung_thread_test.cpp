// Hung threads on the real kernel: threads truly in D state, real shells, real signals.
#include "hung_thread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "child.h"
#include "fake_threads.h"
#include "mirt_host.h"
#include "mirt_items.h"
#include "recorded_system.h"

namespace {

// Matches this process and its forked children, and no other run of this program.
std::string own_pattern() {
  char text[1024] = "";
  EXPECT_EQ(MIRT_Linux_Plugin::get_cmdline_bypid(getpid(), text, sizeof text), 0);
  const std::string command_line = text;
  return command_line.size() < 390 ? command_line : command_line.substr(0, 390) + "*";
}

class HungThreadTest : public testing::Test {
 protected:
  RecordedSystem system_;
  HungCall call_{own_pattern()};
};

// How many descriptors a shell would inherit.
int inherited() {
  int count = 0;
  for (int fd = 3; fd < 4096; ++fd) {
    const int flags = fcntl(fd, F_GETFD);
    count += flags >= 0 && (flags & FD_CLOEXEC) == 0 ? 1 : 0;
  }
  return count;
}

TEST_F(HungThreadTest, IsReportedFromTheEleventhCallOnForAsLongAsItHangs) {
  const int inherited_before = inherited(), open_before = open_descriptors();
  system_.popen = [&](const char*) -> FILE* {
    EXPECT_GT(open_descriptors(), open_before) << "the plug-in is reading a directory";
    EXPECT_EQ(inherited(), inherited_before);
    return nullptr;  // a shell that cannot be started changes nothing
  };
  {
    const HungThread hung;
    for (int times = 1; times <= 12; ++times) {
      EXPECT_EQ(call_.run(CheckProcessStatusIsD), times > 10 ? 1.0F : 0.0F) << times;
      EXPECT_EQ(call_.result.pid, times > 10 ? hung.tid() : 0) << times;
      EXPECT_EQ(system_.take().size(), times > 7 ? 2U : 0U) << times;
    }
    EXPECT_EQ(call_.table()->thread_info[0].pid, getpid());
  }
  EXPECT_EQ(call_.run(CheckProcessStatusIsD), 0.0F);
  EXPECT_EQ(call_.table()->thread_info_unused, 0U);
}

TEST_F(HungThreadTest, AThousandCallsLeaveNothingBehind) {
  const HungThread first, second;
  const auto run = [this](int calls) {
    for (int call = 0; call < calls; ++call) call_.run(CheckProcessStatusIsD);
    return system_.take().size();
  };
  run(20);
  const size_t heap = mallinfo2().uordblks;
  const int descriptors = open_descriptors();
  EXPECT_EQ(run(1000), 6000U);
  // Less than the smallest block a call: what the allocator caches counts as in use.
  EXPECT_LT(mallinfo2().uordblks, heap + 16000);
  EXPECT_EQ(open_descriptors(), descriptors);
}

// A kernel log of the test's own: a pipe under the name of the real one.
class OwnKernelLog {
 public:
  OwnKernelLog() : dev_("/dev") {
    if (!dev_.mounted() || mkfifo("/dev/kmsg", 0600) != 0) return;
    fd_ = open("/dev/kmsg", O_RDWR | O_NONBLOCK | O_CLOEXEC);
  }
  OwnKernelLog(const OwnKernelLog&) = delete;
  OwnKernelLog& operator=(const OwnKernelLog&) = delete;
  ~OwnKernelLog() { close(fd_); }

  bool is_open() const { return fd_ >= 0; }
  std::string take() const {
    std::string text(65536, '\0');
    const ssize_t got = read(fd_, text.data(), text.size());
    text.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return text;
  }

 private:
  TmpfsMount dev_;
  int fd_ = -1;
};

TEST_F(HungThreadTest, RealShellsWriteReportAndStackAndLeaveNoZombie) {
  const OwnKernelLog kernel_log;
  ASSERT_TRUE(kernel_log.is_open()) << strerror(errno);
  const HungThread hung;
  system_.real_shells = true;
  for (int times = 1; times <= 7; ++times) call_.run(CheckProcessStatusIsD);
  EXPECT_EQ(kernel_log.take(), "");
  call_.run(CheckProcessStatusIsD);
  const std::string text = kernel_log.take();
  const std::string head = "Pid " + std::to_string(getpid()) + " Tid " +
                           std::to_string(hung.tid()) + " is D status. Detected times 8.First ";
  EXPECT_EQ(text.compare(0, head.size(), head), 0) << text;
  const size_t stack = text.find("\nCallTrace\n");
  ASSERT_NE(stack, std::string::npos) << text;
  EXPECT_GT(text.size(), stack + strlen("\nCallTrace\n")) << "the stack, or why there is none";

  const int descriptors = open_descriptors();
  for (int times = 9; times <= 48; ++times) call_.run(CheckProcessStatusIsD);
  EXPECT_EQ(open_descriptors(), descriptors);
  // The one child left is what the thread waits for.
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), 0);
}

// A forked copy of this process that runs one function.
class Fork {
 public:
  template <typename Work>
  explicit Fork(Work work) {
    if (pipe2(pipe_, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    work(pipe_[1]);
    _exit(0);
  }
  Fork(const Fork&) = delete;
  Fork& operator=(const Fork&) = delete;
  ~Fork() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(pipe_[0]);
    close(pipe_[1]);
  }
  pid_t pid() const { return pid_; }
  // The next number that it sent.
  int next() const {
    int number = -1;
    EXPECT_EQ(read(pipe_[0], &number, sizeof number), static_cast<ssize_t>(sizeof number));
    return number;
  }
  static void send(int fd, int number) {
    if (write(fd, &number, sizeof number) < 0) _exit(1);
  }

 private:
  pid_t pid_ = -1;
  int pipe_[2] = {-1, -1};
};

// The data plane: a hung thread, its id sent first, then the value of every SIGUSR1.
void be_data_plane(int fd) {
  sigset_t awaited;
  sigemptyset(&awaited);
  sigaddset(&awaited, SIGUSR1);
  sigprocmask(SIG_BLOCK, &awaited, nullptr);
  const HungThread hung;
  Fork::send(fd, hung.tid());
  for (siginfo_t received; sigwaitinfo(&awaited, &received) == SIGUSR1;) {
    Fork::send(fd, received.si_value.sival_int);
  }
}

int32_t allow(const MIRT_COMM_INFO_S* info, const void*, void* reply, uint32_t* length, void*) {
  if (info->msgOPCode != MIRT_OP_EXECUT_FILTER_ERRRPT) return -1;
  *static_cast<char*>(reply) = 1;
  *length = 1;
  return 0;
}

TEST_F(HungThreadTest, TheDataPlaneReceivesTheSignalOnceSomebodyAllowsIt) {
  const Fork data_plane(be_data_plane);
  const int tid = data_plane.next();
  system_.real_framework = system_.real_signals = true;
  FI_PARAM_S target = parameter("UserData", std::to_string(data_plane.pid()));
  FI_RESULT_S result{};

  for (int times = 1; times <= 11; ++times) {
    EXPECT_EQ(call_.run(CheckProcessStatusIsDForAppData), 0.0F);
  }
  EXPECT_EQ(call_.result.pid, tid);
  EXPECT_EQ(RebootAppData(1, &target, nullptr, &result), -1) << "nobody has allowed anything";

  ASSERT_EQ(mirt_host_set_request_handler(PID_CTRL_MIRTKERNELAGENT, allow, nullptr), 0);
  EXPECT_EQ(call_.run(CheckProcessStatusIsDForAppData), 1.0F);
  EXPECT_EQ(data_plane.next(), tid) << "the first signal that arrives";
  EXPECT_EQ(RebootAppData(1, &target, nullptr, &result), 0);
  EXPECT_EQ(data_plane.next(), data_plane.pid());
  target = parameter("UserData", "no number");
  EXPECT_EQ(RebootAppData(1, &target, nullptr, &result), 1) << "the kernel knows no process 0";
  mirt_host_set_request_handler(PID_CTRL_MIRTKERNELAGENT, nullptr, nullptr);
}

// Threads by the thousand, each in D state for a moment.
struct Churn {
  static constexpr int kThreads = 8;

  std::atomic<int> batches{0};
  std::atomic<bool> stop{false};

  void run() {
    while (!stop) {
      std::vector<std::thread> batch;
      for (int i = 0; i < kThreads; ++i) {
        batch.emplace_back([] {
          const pid_t child = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
          if (child == 0) {
            const timespec moment{0, 300000};
            nanosleep(&moment, nullptr);
            _exit(0);
          }
          waitpid(child, nullptr, 0);
        });
      }
      for (std::thread& thread : batch) thread.join();
      ++batches;
    }
  }
};

TEST_F(HungThreadTest, ThreadsThatComeAndGoAreNeverReportedAndLeaveAnEmptyTable) {
  void* const shared =
      mmap(nullptr, sizeof(Churn), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  Churn& churn = *new (shared) Churn;
  const Fork process([&churn](int fd) {
    churn.run();
    Fork::send(fd, 1);
    pause();
  });
  int sighted = 0;
  for (int call = 0; call < 400 || (sighted == 0 && call < 10000); ++call) {
    // None lives through two of these calls, however fast they are.
    for (const int before = churn.batches; churn.batches < before + 1;) std::this_thread::yield();
    ASSERT_EQ(call_.run(CheckProcessStatusIsD), 0.0F);
    ASSERT_EQ(call_.result.result, 0);
    sighted += call_.table()->thread_info_unused != 0 ? 1 : 0;
  }
  EXPECT_GE(churn.batches * Churn::kThreads, 3000);
  EXPECT_GT(sighted, 0);
  churn.stop = true;
  EXPECT_EQ(process.next(), 1);
  MIRT_Linux_Plugin().clean_thread_info_set(call_.table());
  const auto empty = std::make_unique<thread_info_set_t>();
  EXPECT_EQ(memcmp(call_.table(), empty.get(), sizeof *empty), 0);
  EXPECT_EQ(system_.take(), Trace{});
  munmap(shared, sizeof(Churn));
}

}  // namespace
