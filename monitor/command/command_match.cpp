#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "command/commands.h"
#include "command/process_search.h"
#include "item/process_library.h"
#include "proc/proc_file.h"
#include "proc/process_end.h"
#include "text/clock_text.h"
#include "text/complaint.h"
#include "text/json_text.h"
#include "text/terminal_text.h"

namespace {

struct Found {
  ProcessRow process;  // with the command line as it is compared
  std::optional<WallTime> start;
  size_t bytes;  // length of the whole command line; only its beginning may be compared

  bool is_cut() const { return bytes > process.cmdline.size(); }
};

// The length of the whole command line without the NUL bytes at its end.
size_t cmdline_bytes(pid_t pid) {
  const std::string all = read_proc_file(proc_path(pid, "cmdline"), size_t{4} << 20).value_or("");
  const size_t last = all.find_last_not_of('\0');
  return last == std::string::npos ? 0 : last + 1;
}

std::optional<WallTime> start_of(pid_t pid) {
  const auto process = FollowedProcess::follow(pid, FollowedProcess::Steady::now());
  return process ? std::optional(process->started()) : std::nullopt;
}

std::optional<std::vector<Found>> matches(const ProcessLibrary& library,
                                          const MatchOptions& options) {
  const auto pids = search_processes(library, options.mode, options.text);
  if (!pids) return std::nullopt;
  const auto listing = list_processes(library, false);
  if (!listing) return std::nullopt;
  std::vector<Found> found;
  for (const ProcessRow& row : listing->processes) {
    if (std::find(pids->begin(), pids->end(), row.pid) == pids->end()) continue;
    found.push_back({row, start_of(row.pid), cmdline_bytes(row.pid)});
  }
  return found;
}

void print_people(const std::vector<Found>& found) {
  const auto print = [](const std::string& pid, const std::string& rss, const std::string& start,
                        const std::string& command) {
    const std::vector<std::string> cells{right(pid, 7), right(rss, 7), left(start, 19), command};
    std::printf("%s\n", joined_cells(cells).c_str());
  };
  if (!found.empty()) print("PID", "RSS MiB", "STARTED", "COMMAND");
  for (const Found& match : found) {
    const std::string& command = match.process.cmdline;
    const std::string cut = match.is_cut()
                                ? "  [only the first " + std::to_string(command.size()) + " of " +
                                      std::to_string(match.bytes) + " bytes are compared]"
                                : "";
    print(std::to_string(match.process.pid), std::to_string(match.process.rss_mib),
          match.start ? for_people(*match.start) : "-", printable(command) + cut);
  }
}

void print_json(const std::vector<Found>& found) {
  for (const Found& match : found) {
    const Json object{{"pid", match.process.pid},
                      {"rss_mib", match.process.rss_mib},
                      {"started", match.start ? Json(iso8601(*match.start)) : Json()},
                      {"cmdline", match.process.cmdline},
                      {"bytes", match.bytes},
                      {"cut", match.is_cut()}};
    std::printf("%s\n", json_text(object).c_str());
  }
}

}  // namespace

int command_match(const MatchOptions& options) {
  const auto library = ProcessLibrary::load(options.plugin);
  if (!library) return kExitUsage;
  const std::optional<std::vector<Found>> found = matches(*library, options);
  if (!found) return kExitFailed;
  options.json ? print_json(*found) : print_people(*found);
  return found->empty() ? kExitFailed : kExitOk;
}
