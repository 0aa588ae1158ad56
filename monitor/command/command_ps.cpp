#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <unordered_set>

#include "command/commands.h"
#include "command/process_search.h"
#include "item/process_library.h"
#include "text/complaint.h"
#include "text/json_text.h"
#include "text/terminal_text.h"

namespace {

constexpr int kMinuteS = 60;

// Shows a countdown of the 60 seconds on a terminal and removes it at the end.
class Countdown {
 public:
  Countdown() : terminal_(isatty(STDERR_FILENO) == 1) {
    if (terminal_) thread_ = std::thread([this] { run(); });
  }
  Countdown(const Countdown&) = delete;
  Countdown& operator=(const Countdown&) = delete;
  ~Countdown() {
    if (!terminal_) return;
    done_ = true;
    thread_.join();
    std::fprintf(stderr, "\r\033[K");
  }

 private:
  void run() const {
    constexpr auto kStep = std::chrono::milliseconds(100);
    for (int tenths_left = kMinuteS * 10; !done_; tenths_left = std::max(tenths_left - 1, 0)) {
      if (tenths_left % 10 == 0) std::fprintf(stderr, "\rmeasuring, %2d s left", tenths_left / 10);
      std::this_thread::sleep_for(kStep);
    }
  }

  const bool terminal_;
  std::atomic<bool> done_{false};
  std::thread thread_;
};

std::optional<Listing> list(const ProcessLibrary& library, bool with_cpu) {
  if (!with_cpu) return list_processes(library, false);
  const Countdown countdown;
  return list_processes(library, true);
}

// Keeps the processes whose command line matches.
bool keep_matches(const ProcessLibrary& library, const std::string& pattern, Listing& listing) {
  const auto found = find_processes(library, "wildcard", pattern);
  if (!found) return false;
  const std::unordered_set<pid_t> pids(found->begin(), found->end());
  auto& rows = listing.processes;
  rows.erase(std::remove_if(rows.begin(), rows.end(),
                            [&pids](const ProcessRow& row) { return pids.count(row.pid) == 0; }),
             rows.end());
  return true;
}

// Sorts largest first, or by PID; equal rows keep the order of /proc.
void sort_rows(const std::string& key, std::vector<ProcessRow>& rows) {
  std::stable_sort(rows.begin(), rows.end(), [&key](const ProcessRow& a, const ProcessRow& b) {
    if (key == "rss") return a.rss_mib > b.rss_mib;
    if (key == "cpu") return a.core_percent > b.core_percent;
    return a.pid < b.pid;
  });
}

// The width of the terminal in columns; unlimited if standard output is not a terminal.
size_t line_width() {
  winsize size{};
  if (isatty(STDOUT_FILENO) == 1 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 &&
      size.ws_col > 0) {
    return size.ws_col;
  }
  return std::string::npos;
}

// One line of the table, truncated to the terminal's width.
void print_row(bool with_cpu, const std::string& pid, const std::string& rss,
               const std::string& cpu, const std::string& name, const std::string& command) {
  static const size_t width = line_width();
  std::vector<std::string> cells{right(pid, 7), right(rss, 7)};
  if (with_cpu) cells.push_back(right(cpu, 5));
  cells.push_back(left(name, 15));
  cells.push_back(command);
  std::printf("%s\n", cut(joined_cells(cells), width).c_str());
}

void print_people(const Listing& listing, bool with_cpu) {
  print_row(with_cpu, "PID", "RSS MiB", "CPU %", "NAME", "COMMAND");
  for (const ProcessRow& row : listing.processes) {
    print_row(with_cpu, std::to_string(row.pid), std::to_string(row.rss_mib),
              std::to_string(row.core_percent), printable(row.name), printable(row.cmdline));
  }
  if (with_cpu) std::printf("user mode, whole machine: %d %%\n", listing.user_percent);
}

void print_json(const Listing& listing, bool with_cpu) {
  for (const ProcessRow& row : listing.processes) {
    Json object{{"pid", row.pid}, {"rss_mib", row.rss_mib}};
    if (with_cpu) object["core_percent"] = row.core_percent;
    object["name"] = row.name;
    object["cmdline"] = row.cmdline;
    std::printf("%s\n", json_text(object).c_str());
  }
  if (with_cpu) std::printf("{\"user_percent\":%d}\n", listing.user_percent);
}

}  // namespace

int command_ps(const PsOptions& options) {
  if (options.sort == "cpu" && !options.cpu) {
    complain("--sort cpu needs --cpu, which measures CPU usage");
    return kExitUsage;
  }
  const auto library = ProcessLibrary::load(options.plugin);
  if (!library) return kExitUsage;
  std::optional<Listing> listing = list(*library, options.cpu);
  if (!listing || (options.pattern && !keep_matches(*library, *options.pattern, *listing))) {
    return kExitFailed;
  }
  // A pattern that begins with a star also matches this program's command line.
  const std::vector<ProcessRow>& rows = listing->processes;
  if (options.pattern && rows.size() == 1 && rows.front().pid == getpid()) {
    complain(kOnlyMatchIsSelf);
  }
  sort_rows(options.sort, listing->processes);
  options.json ? print_json(*listing, options.cpu) : print_people(*listing, options.cpu);
  return kExitOk;
}
