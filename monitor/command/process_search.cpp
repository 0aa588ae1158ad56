#include "command/process_search.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <set>

#include "proc/census.h"
#include "proc/proc_access.h"
#include "proc/proc_file.h"
#include "text/complaint.h"

namespace {

// A process that changes while it is looked at can make a complete answer look incomplete.
constexpr int kAttempts = 3;

// True if /proc shows what this user may see, and every file of it can be opened.
bool can_read_proc() {
  const std::string trouble = open_trouble("/proc/self/cmdline");
  if (!trouble.empty()) complain(trouble);
  return trouble.empty();
}

std::optional<Census> all_processes() {
  std::optional<Census> census = take_census();
  if (!census) complain(std::string("/proc: ") + std::strerror(errno));
  return census;
}

// Calls `look` until its answer is complete. `look` returns an optional answer; `is_complete`
// compares it with the PIDs of the processes that ran all the time.
template <typename Look, typename IsComplete>
auto complete_answer(Look look, IsComplete is_complete) -> decltype(look()) {
  for (int attempt = 0; attempt < kAttempts && can_read_proc(); ++attempt) {
    const std::optional<Census> before = all_processes();
    if (!before) return std::nullopt;
    auto answer = look();
    if (!answer) return std::nullopt;
    const std::optional<Census> after = all_processes();
    if (!after) return std::nullopt;
    if (is_complete(*answer, in_both(*before, *after))) return answer;
  }
  return std::nullopt;
}

bool has_command_line(pid_t pid) {
  return !read_proc_file(proc_path(pid, "cmdline"), 1).value_or("").empty();
}

// The plug-in skips a process whose files it cannot open, and takes an error of the folder for its
// end. So a list is compared with the processes that must be in it.
bool is_whole(const Listing& listing, const std::set<pid_t>& steady) {
  std::set<pid_t> listed;
  for (const ProcessRow& row : listing.processes) listed.insert(row.pid);
  return std::all_of(steady.begin(), steady.end(),
                     [&](pid_t pid) { return listed.count(pid) != 0 || !has_command_line(pid); });
}

using Pids = std::vector<pid_t>;

// Only the plug-in knows what matches, so a search is compared with a second one.
struct TwoSearches {
  Pids first, second;

  bool agree_on(const std::set<pid_t>& steady) const {
    const std::set<pid_t> a(first.begin(), first.end()), b(second.begin(), second.end());
    Pids different;
    std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(),
                                  std::back_inserter(different));
    return std::none_of(different.begin(), different.end(),
                        [&](pid_t pid) { return steady.count(pid) != 0; });
  }
};

std::optional<Pids> search(const ProcessLibrary& library, const std::string& mode,
                           const std::string& text) {
  return mode == "exact"    ? library.find_exact(text)
         : mode == "prefix" ? library.find_prefix(text)
                            : library.find_wildcard(text);
}

}  // namespace

std::optional<Listing> list_processes(const ProcessLibrary& library, bool with_cpu) {
  auto listing = complete_answer([&] { return library.list(with_cpu); }, is_whole);
  if (!listing) complain("cannot list all processes");
  return listing;
}

std::optional<Pids> find_processes(const ProcessLibrary& library, const std::string& mode,
                                   const std::string& text) {
  const auto search_twice = [&]() -> std::optional<TwoSearches> {
    auto first = search(library, mode, text);
    auto second = search(library, mode, text);
    if (!first || !second) return std::nullopt;
    return TwoSearches{std::move(*first), std::move(*second)};
  };
  auto found = complete_answer(search_twice, [](const TwoSearches& both, const auto& steady) {
    return both.agree_on(steady);
  });
  if (!found) complain("cannot search all processes");
  return found ? std::optional(std::move(found->second)) : std::nullopt;
}

std::optional<Pids> search_processes(const ProcessLibrary& library, const std::string& mode,
                                     const std::string& text) {
  auto pids = find_processes(library, mode, text);
  if (!pids) return std::nullopt;
  // A pattern that begins with a star also matches this program's command line.
  if (*pids == Pids{getpid()}) complain(kOnlyMatchIsSelf);
  pids->erase(std::remove(pids->begin(), pids->end(), getpid()), pids->end());
  return pids;
}
