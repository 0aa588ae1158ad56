#include "proc/proc_status.h"

#include <fstream>

std::optional<std::string> status_value(int id, const std::string& key) {
  std::ifstream status("/proc/" + std::to_string(id) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, key.size() + 2, key + ":\t") == 0) return line.substr(key.size() + 2);
  }
  return std::nullopt;
}
