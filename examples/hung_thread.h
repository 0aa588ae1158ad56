// A thread that stays in D state until the object is destroyed.
#ifndef HUNG_THREAD_H
#define HUNG_THREAD_H

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

// The thread waits in vfork() until its child execs or ends; the kernel waits in uninterruptible
// sleep. The child only waits for SIGKILL, and ends with its parent at the latest. If no child can
// be started, the thread ends at once.
class HungThread {
 public:
  HungThread() : thread_([this] { hang(); }) {
    while (child_ == 0) std::this_thread::yield();
  }
  HungThread(const HungThread&) = delete;
  HungThread& operator=(const HungThread&) = delete;
  ~HungThread() {
    if (child_ > 0) kill(child_, SIGKILL);
    thread_.join();
  }

  pid_t tid() const { return tid_; }

 private:
  void hang() {
    tid_ = static_cast<pid_t>(syscall(SYS_gettid));
    const pid_t child = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork): the point
    if (child == 0) {
      // Only system calls here: the child uses its parent's memory.
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      child_ = getpid();
      for (;;) pause();
    }
    if (child < 0) child_ = -1;
    if (child > 0) waitpid(child, nullptr, 0);
  }

  std::atomic<pid_t> child_{0};
  std::atomic<pid_t> tid_{0};
  std::thread thread_;
};

#endif
