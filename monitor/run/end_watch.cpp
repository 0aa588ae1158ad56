#include "run/end_watch.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "proc/descriptors.h"
#include "proc/proc_file.h"
#include "run/slot.h"
#include "text/end_text.h"

namespace {

bool has_ended(int pid) {
  const std::optional<std::string> state = status_value(pid, "State");
  return !state || state->compare(0, 1, "Z") == 0;
}

}  // namespace

void EndWatch::leave(Slot& slot) {
  for (auto process = processes_.begin(); process != processes_.end();) {
    auto& slots = process->slots;
    slots.erase(std::remove(slots.begin(), slots.end(), &slot), slots.end());
    process = slots.empty() ? processes_.erase(process) : std::next(process);
  }
  slot.followed = 0;
}

bool EndWatch::follow(Slot& slot, int pid, FollowedProcess::Steady::time_point seen) {
  if (slot.followed == pid) return true;
  leave(slot);
  if (pid <= 0) return true;
  auto found = std::find_if(processes_.begin(), processes_.end(),
                            [&](const Process& each) { return each.process.pid() == pid; });
  if (found == processes_.end()) {
    if (processes_.size() >= std::min(kMostProcesses, descriptor_limit() / 4)) return true;
    std::optional<FollowedProcess> process = FollowedProcess::follow(pid, seen);
    if (!process) return !has_ended(pid);
    processes_.push_back({std::move(*process), {}});
    found = std::prev(processes_.end());
  }
  found->slots.push_back(&slot);
  slot.followed = pid;
  return true;
}

void EndWatch::add_to(std::vector<pollfd>& fds) const {
  for (const Process& each : processes_) fds.push_back({each.process.fd(), POLLIN, 0});
}

std::vector<EndWatch::Ended> EndWatch::take_ended() {
  std::vector<Ended> ended;
  for (auto each = processes_.begin(); each != processes_.end();) {
    const std::optional<ProcessEnd> end = each->process.end();
    if (!end) {
      ++each;
      continue;
    }
    const int pid = each->process.pid();
    for (Slot* const slot : each->slots) slot->followed = 0;
    ended.push_back(
        {pid, "process " + std::to_string(pid) + " " + end_text(*end), std::move(each->slots)});
    each = processes_.erase(each);
  }
  return ended;
}
