#include "proc/stuck_processes.h"

#include <algorithm>
#include <ctime>
#include <utility>

void StuckProcesses::note(StuckProcess process) {
  constexpr std::chrono::minutes kKept{10};  // longer than any call that can still ask
  const std::lock_guard lock(mutex_);
  processes_.erase(std::remove_if(processes_.begin(), processes_.end(),
                                  [&](const StuckProcess& old) {
                                    return old.pid == process.pid ||
                                           process.seen - old.seen > kKept;
                                  }),
                   processes_.end());
  processes_.push_back(std::move(process));
}

std::string StuckProcesses::text(StuckProcess::Clock::time_point seen_since) const {
  const std::lock_guard lock(mutex_);
  if (processes_.empty() || processes_.back().seen < seen_since) return "";
  const StuckProcess& last = processes_.back();
  const std::time_t since = std::chrono::system_clock::to_time_t(last.since);
  std::tm local{};
  localtime_r(&since, &local);
  char time[16];
  const size_t length = std::strftime(time, sizeof time, "%H:%M:%S", &local);
  return "a call has waited " + last.place + " since " + std::string(time, length);
}
