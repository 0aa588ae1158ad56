#include "item/sleep_work.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace {

constexpr long kSecondNs = 1000000000;

thread_local const std::function<void()>* sleep_work = nullptr;

timespec later_by(useconds_t microseconds) {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  const long ns = time.tv_nsec + long{microseconds} * 1000;
  time.tv_sec += ns / kSecondNs;
  time.tv_nsec = ns % kSecondNs;
  return time;
}

bool is_over(const timespec& time) {
  const timespec now = later_by(0);
  return now.tv_sec != time.tv_sec ? now.tv_sec > time.tv_sec : now.tv_nsec >= time.tv_nsec;
}

}  // namespace

SleepWork::SleepWork(std::function<void()> work) : work_(std::move(work)) {
  sleep_work = &work_;
}

SleepWork::~SleepWork() {
  sleep_work = nullptr;
}

// Called from the plug-in.
extern "C" int usleep(useconds_t microseconds) {
  const timespec end = later_by(microseconds);
  if (sleep_work != nullptr) (*sleep_work)();
  if (is_over(end)) return 0;  // the kernel would start a timer for it
  const int error = clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
  if (error == 0) return 0;
  errno = error;
  return -1;
}
