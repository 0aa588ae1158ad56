#include "kelv_time.h"

#include <cerrno>
#include <ctime>

namespace {

constexpr uint64_t kNsPerSecond = 1000000000;

uint64_t in_ns(const timespec& time) {
  return static_cast<uint64_t>(time.tv_sec) * kNsPerSecond + static_cast<uint64_t>(time.tv_nsec);
}

}  // namespace

void kelv_10msleep(uint32_t n) {
  const uint64_t duration_ns = static_cast<uint64_t>(n) * 10000000;
  timespec left{static_cast<time_t>(duration_ns / kNsPerSecond),
                static_cast<long>(duration_ns % kNsPerSecond)};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

uint64_t kelv_get_jiffies() {
  timespec now{}, tick{};
  if (clock_gettime(CLOCK_MONOTONIC_COARSE, &now) != 0) return 0;
  if (clock_getres(CLOCK_MONOTONIC_COARSE, &tick) != 0 || in_ns(tick) == 0) return 0;
  return in_ns(now) / in_ns(tick);
}

int64_t kelv_time_getlocaltime(int64_t* pllTime) {
  const time_t now = time(nullptr);
  tm local{};
  int64_t local_s = now;
  if (localtime_r(&now, &local) != nullptr) local_s += local.tm_gmtoff;
  if (pllTime != nullptr) *pllTime = local_s;
  return local_s;
}

int kelv_time_gmtime(const int64_t* pllTime, TIME_S* pstTime) {
  if (pllTime == nullptr || pstTime == nullptr) return -1;
  const time_t seconds = *pllTime;
  tm broken{};
  if (gmtime_r(&seconds, &broken) == nullptr || broken.tm_year > INT32_MAX - 1900) return -1;
  *pstTime = TIME_S{broken.tm_sec,     broken.tm_min,         broken.tm_hour, broken.tm_mday,
                    broken.tm_mon + 1, broken.tm_year + 1900, broken.tm_wday};
  return 0;
}
