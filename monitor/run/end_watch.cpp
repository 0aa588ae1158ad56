#include "run/end_watch.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
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

bool EndWatch::wait_for_end(Process& process) {
  if (ends_.get() < 0) ends_ = UniqueFd(epoll_create1(EPOLL_CLOEXEC));
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.ptr = &process;
  return epoll_ctl(ends_.get(), EPOLL_CTL_ADD, process.process.fd(), &event) == 0;
}

// To close the descriptor is not enough: a child that has not called exec() yet still has it.
EndWatch::Processes::iterator EndWatch::stop_following(Processes::iterator process) {
  epoll_ctl(ends_.get(), EPOLL_CTL_DEL, process->process.fd(), nullptr);
  return processes_.erase(process);
}

void EndWatch::leave(Slot& slot) {
  for (auto process = processes_.begin(); process != processes_.end();) {
    auto& slots = process->slots;
    slots.erase(std::remove(slots.begin(), slots.end(), &slot), slots.end());
    process = slots.empty() ? stop_following(process) : std::next(process);
  }
  slot.followed = 0;
}

EndWatch::Processes::iterator EndWatch::find(int pid) {
  return std::find_if(processes_.begin(), processes_.end(),
                      [&](const Process& each) { return each.process.pid() == pid; });
}

bool EndWatch::follow(Slot& slot, int pid, FollowedProcess::Steady::time_point seen) {
  if (slot.followed == pid) return true;
  if (pid <= 0 && slot.followed > 0 && find(slot.followed)->process.is_exiting()) return true;
  leave(slot);
  if (pid <= 0) return true;
  auto found = find(pid);
  if (found == processes_.end()) {
    if (processes_.size() >= std::min(kMostProcesses, descriptor_limit() / 4)) return true;
    std::optional<FollowedProcess> process = FollowedProcess::follow(pid, seen);
    if (!process) return !has_ended(pid);
    processes_.push_back({std::move(*process), {}});
    found = std::prev(processes_.end());
    if (!wait_for_end(*found)) {
      processes_.pop_back();
      return !has_ended(pid);
    }
  }
  found->slots.push_back(&slot);
  slot.followed = pid;
  return true;
}

std::vector<EndWatch::Ended> EndWatch::take_ended() {
  std::array<epoll_event, 64> events;
  const int count = epoll_wait(ends_.get(), events.data(), static_cast<int>(events.size()), 0);
  std::vector<Ended> ended;
  for (int i = 0; i < count; ++i) {
    const auto each =
        std::find_if(processes_.begin(), processes_.end(), [&](const Process& process) {
          return &process == events[static_cast<size_t>(i)].data.ptr;
        });
    const std::optional<ProcessEnd> end = each->process.end();
    if (!end) continue;
    const int pid = each->process.pid();
    ended.push_back({pid, "process " + std::to_string(pid) + " " + end_text(*end), {}});
    // Nothing below throws: a slot that is not followed must not be in the list.
    ended.back().slots.swap(each->slots);
    for (Slot* const slot : ended.back().slots) slot->followed = 0;
    stop_following(each);
  }
  return ended;
}
