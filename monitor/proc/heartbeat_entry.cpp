#include "proc/heartbeat_entry.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "proc/unique_fd.h"

bool read_heartbeat_table(MIRT_AGENT_HEART_INFO_SET_S& table, std::string& why) {
  const UniqueFd segment(
      shm_open("/" MIRT_AGENT_HEARTBEAT_NAME, O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0));
  if (segment.get() < 0) {
    why = std::string("cannot open the heartbeat table: ") + std::strerror(errno);
    return false;
  }
  if (pread(segment.get(), &table, sizeof table, 0) != static_cast<ssize_t>(sizeof table)) {
    why = "the heartbeat table is too short";
    return false;
  }
  return true;
}

bool read_heartbeat_entry(uint16_t module, MIRT_AGENT_HEART_INFO_S& entry, std::string& why) {
  MIRT_AGENT_HEART_INFO_SET_S table;
  if (!read_heartbeat_table(table, why)) return false;
  const auto* const found =
      std::find_if(std::begin(table.array), std::end(table.array),
                   [&](const MIRT_AGENT_HEART_INFO_S& each) { return each.pid == module; });
  if (found == std::end(table.array)) {
    why = "module " + std::to_string(module) + " has no entry in the heartbeat table";
    return false;
  }
  entry = *found;
  return true;
}
