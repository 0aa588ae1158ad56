#include "run/stop_signal.h"

#include <atomic>
#include <csignal>
#include <initializer_list>

namespace {

// Plain static data: the handler may run at any time, on any thread.
const Wake* stop_wake = nullptr;
std::atomic<bool> stop_asked{false};
std::atomic<unsigned> hangup_count{0};

extern "C" void ask_to_stop(int) {
  stop_asked = true;
  stop_wake->set();
}

extern "C" void count_hangup(int) {
  ++hangup_count;
  stop_wake->set();
}

extern "C" void do_nothing(int) {}

bool handle(int number, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  return sigaction(number, &action, nullptr) == 0;
}

bool is_ignored(int number) {
  struct sigaction action {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

bool StopSignal::install(const Wake& wake, bool hangup_ends) {
  stop_wake = &wake;
  sigset_t unblocked;
  sigemptyset(&unblocked);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    if (number == SIGHUP && is_ignored(number)) continue;  // nohup: must outlive its terminal
    const bool ends = number != SIGHUP || hangup_ends;
    if (!handle(number, ends ? ask_to_stop : count_hangup)) return false;
    sigaddset(&unblocked, number);
  }
  // The parent may have blocked them, and blocked signals are inherited.
  sigprocmask(SIG_UNBLOCK, &unblocked, nullptr);
  return catch_pipe();
}

bool StopSignal::catch_pipe() {
  return handle(SIGPIPE, do_nothing);
}

bool StopSignal::asked() {
  return stop_asked;
}

unsigned StopSignal::hangups() {
  return hangup_count;
}
