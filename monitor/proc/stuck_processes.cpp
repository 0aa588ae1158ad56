#include "proc/stuck_processes.h"

#include <ctime>
#include <utility>

void StuckProcesses::set(std::vector<StuckProcess> processes) {
  const std::lock_guard lock(mutex_);
  processes_ = std::move(processes);
}

std::string StuckProcesses::text() const {
  const std::lock_guard lock(mutex_);
  if (processes_.empty()) return "";
  const StuckProcess& first = processes_.front();
  const std::time_t since = std::chrono::system_clock::to_time_t(first.since);
  std::tm local{};
  localtime_r(&since, &local);
  char time[16];
  const size_t length = std::strftime(time, sizeof time, "%H:%M:%S", &local);
  return "a call has waited " + first.place + " since " + std::string(time, length);
}
