#include "proc/descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>

namespace {

// Descriptors are checked one by one, because listing /proc/self/fd needs a descriptor. A process
// with more than this number is not short of descriptors.
constexpr size_t kMostLookedAt = 4096;

}  // namespace

size_t descriptor_limit() {
  rlimit limit{};
  return getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : 0;
}

size_t free_descriptors() {
  const size_t limit = std::min(descriptor_limit(), kMostLookedAt);
  size_t used = 0;
  for (size_t fd = 0; fd < limit; ++fd) used += fcntl(static_cast<int>(fd), F_GETFD) != -1;
  return limit - used;
}
