#include "item/process_library.h"

#include "text/complaint.h"

namespace {

// Repeats the search with more room until all processes fit.
template <typename Search>
std::optional<std::vector<pid_t>> find_all(Search* search, const std::string& name) {
  std::vector<pid_t> pids(64);  // hundreds of threads search at once
  for (;;) {
    unsigned int used = 0;
    const auto room = static_cast<unsigned int>(pids.size());
    if (search(name.c_str(), pids.data(), room, &used) != 0) return std::nullopt;
    if (used < room) {
      pids.resize(used);
      return pids;
    }
    pids.resize(pids.size() * 8);
  }
}

}  // namespace

ProcessLibrary::ProcessLibrary(const Plugin& plugin)
    : list_cpu_(plugin.function<decltype(GetAllProcessCoreCPU)>("GetAllProcessCoreCPU")),
      list_memory_(plugin.function<decltype(GetAllProcessRssMem)>("GetAllProcessRssMem")),
      free_list_(plugin.function<decltype(FreeAllProcessList)>("FreeAllProcessList")),
      find_one_(plugin.function<decltype(GetProcessPid)>("GetProcessPid")),
      find_prefix_(plugin.function<decltype(GetProcessPidExtern)>("GetProcessPidExtern")),
      find_wildcard_(plugin.function<decltype(GetProcessPidFuzzy)>("GetProcessPidFuzzy")),
      check_(plugin.function<decltype(CheckProcessExist)>("CheckProcessExist")) {}

bool ProcessLibrary::complete() const {
  return list_cpu_ && list_memory_ && free_list_ && find_one_ && find_prefix_ && find_wildcard_ &&
         check_;
}

std::optional<ProcessLibrary> ProcessLibrary::load(const std::string& path) {
  std::string error;
  const std::optional<Plugin> plugin = Plugin::load(path, error);
  if (!plugin) {
    complain(error);
    return std::nullopt;
  }
  std::optional<ProcessLibrary> library = of(*plugin);
  if (!library) {
    complain(plugin->path() + " does not export the process functions (GetAllProcessRssMem, ...)");
  }
  return library;
}

std::optional<ProcessLibrary> ProcessLibrary::of(const Plugin& plugin) {
  ProcessLibrary library(plugin);
  return library.complete() ? std::optional(library) : std::nullopt;
}

std::optional<Listing> ProcessLibrary::list(bool with_cpu) const {
  Listing listing;
  list_head head;
  if ((with_cpu ? list_cpu_(&head, &listing.user_percent) : list_memory_(&head)) != 0) {
    return std::nullopt;
  }
  for (const list_head* node = head.next; node != &head; node = node->next) {
    const auto* const info = reinterpret_cast<const PROCESS_INFO_S*>(node);
    listing.processes.push_back({info->pid, info->rss, info->corecpu, info->name, info->cmdline});
  }
  free_list_(&head);
  return listing;
}

std::optional<std::vector<pid_t>> ProcessLibrary::find_exact(const std::string& name) const {
  pid_t pid = 0;
  if (find_one_(name.c_str(), &pid) != 0) return std::nullopt;
  return pid != 0 ? std::vector<pid_t>{pid} : std::vector<pid_t>{};
}

std::optional<std::vector<pid_t>> ProcessLibrary::find_prefix(const std::string& name) const {
  return find_all(find_prefix_, name);
}

std::optional<std::vector<pid_t>> ProcessLibrary::find_wildcard(const std::string& pattern) const {
  return find_all(find_wildcard_, pattern);
}

std::optional<std::vector<pid_t>> ProcessLibrary::find(Match match, const std::string& name) const {
  return match == Match::kExact    ? find_exact(name)
         : match == Match::kPrefix ? find_prefix(name)
                                   : find_wildcard(name);
}

int ProcessLibrary::check(const std::string& name, pid_t pid) const {
  return check_(name.c_str(), pid);
}
