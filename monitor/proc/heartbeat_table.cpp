#include "proc/heartbeat_table.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "mirt_host.h"
#include "proc/unique_fd.h"

std::optional<HeartbeatTable> HeartbeatTable::open(std::string& error) {
  // O_NONBLOCK: the open must not wait if this is a FIFO.
  const UniqueFd segment(
      shm_open("/" MIRT_AGENT_HEARTBEAT_NAME, O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0));
  struct stat status {};
  if (segment.get() < 0 || fstat(segment.get(), &status) != 0) {
    error =
        errno == ENOENT
            ? std::string("there is no heartbeat table (/dev/shm/" MIRT_AGENT_HEARTBEAT_NAME ")")
            : std::string("cannot open the heartbeat table: ") + std::strerror(errno);
    return std::nullopt;
  }
  if (!S_ISREG(status.st_mode)) {
    error = "/dev/shm/" MIRT_AGENT_HEARTBEAT_NAME " is not a regular file";
    return std::nullopt;
  }
  if (char why[160]; mirt_host_check_owner(status.st_uid, why, sizeof why) != 0) {
    error = std::string("the heartbeat table ") + why;
    return std::nullopt;
  }
  if (status.st_size != sizeof(MIRT_AGENT_HEART_INFO_SET_S)) {
    error = "the heartbeat table has " + std::to_string(status.st_size) + " bytes, expected " +
            std::to_string(sizeof(MIRT_AGENT_HEART_INFO_SET_S));
    return std::nullopt;
  }
  const void* const mapped =
      mmap(nullptr, sizeof(MIRT_AGENT_HEART_INFO_SET_S), PROT_READ, MAP_SHARED, segment.get(), 0);
  if (mapped == MAP_FAILED) {
    error = std::string("cannot map the heartbeat table: ") + std::strerror(errno);
    return std::nullopt;
  }
  return HeartbeatTable(static_cast<const MIRT_AGENT_HEART_INFO_SET_S*>(mapped));
}

MIRT_AGENT_HEART_INFO_SET_S HeartbeatTable::read() const {
  MIRT_AGENT_HEART_INFO_SET_S copy{};
  for (size_t i = 0; i < MIRT_AGENT_HEART_MAX; ++i) {
    const MIRT_AGENT_HEART_INFO_S& from = shared_->array[i];
    MIRT_AGENT_HEART_INFO_S& to = copy.array[i];
    to.pid = __atomic_load_n(&from.pid, __ATOMIC_ACQUIRE);
    to.processid = __atomic_load_n(&from.processid, __ATOMIC_ACQUIRE);
    to.heartbeat = __atomic_load_n(&from.heartbeat, __ATOMIC_ACQUIRE);
    to.flowid = __atomic_load_n(&from.flowid, __ATOMIC_ACQUIRE);
    to.reserved = __atomic_load_n(&from.reserved, __ATOMIC_ACQUIRE);
  }
  return copy;
}

bool HeartbeatTable::is_made(const MIRT_AGENT_HEART_INFO_SET_S& table) {
  static const MIRT_AGENT_HEART_INFO_SET_S kUntouched{};
  return mirt_agent_heart_is_unfinished(&table) == 0 &&
         std::memcmp(&table, &kUntouched, sizeof table) != 0;
}

std::string HeartbeatTable::fault(const MIRT_AGENT_HEART_INFO_SET_S& table) {
  if (!is_made(table)) return "the heartbeat table is not initialised yet";
  for (size_t i = 0; i < MIRT_AGENT_HEART_MAX; ++i) {
    if (table.array[i].pid <= MIRT_AGENT_HEART_FREE) continue;
    return "the heartbeat table is damaged: entry " + std::to_string(i) + " is of module " +
           std::to_string(table.array[i].pid) + ", expected at most " +
           std::to_string(MIRT_AGENT_HEART_FREE - 1);
  }
  return "";
}
