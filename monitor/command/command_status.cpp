#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>

#include "command/commands.h"
#include "command/monitor_client.h"
#include "command/status_check.h"
#include "command/status_text.h"
#include "text/complaint.h"
#include "text/terminal_text.h"

namespace {

constexpr std::chrono::seconds kBetweenLooks{1};

std::string path_of(const StatusOptions& options) {
  return options.name.empty() ? "/api/status" : watch_path(options.name);
}

std::vector<std::string> lines_of(const Json& body, const StatusOptions& options, bool colour) {
  if (options.json) return {json_text(body)};
  return options.name.empty() ? status_lines(body, colour) : watch_lines(body, colour);
}

int check(const StatusOptions& options) {
  const httplib::Result result = ask_monitor(options.socket, path_of(options));
  const std::string trouble = answer_trouble(result, options.socket);
  const CheckResult found = !trouble.empty()       ? check_failed(trouble)
                            : options.name.empty() ? check_status(Json::parse(result->body))
                                                   : check_watch(Json::parse(result->body));
  std::printf("%s\n", found.line.c_str());
  return found.exit_status;
}

// The size of the terminal; nothing if standard output is not one, or does not tell its size.
std::optional<winsize> terminal_size() {
  winsize size{};
  const bool is_known = isatty(STDOUT_FILENO) != 0 &&
                        ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 &&
                        size.ws_col > 0;
  return is_known ? std::optional(size) : std::nullopt;
}

// Replaces the content of the terminal, with as many lines as fit.
void draw(const std::vector<std::string>& lines, const winsize& size) {
  std::printf("\033[H\033[J");
  for (size_t i = 0; i < lines.size() && i + 1 < size.ws_row; ++i) {
    std::printf("%s\n", cut(lines[i], size.ws_col).c_str());
  }
}

void print(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) std::printf("%s\n", line.c_str());
}

// Until a signal ends it, or the output cannot be written.
int watch(const StatusOptions& options) {
  for (;;) {
    const std::optional<winsize> terminal = terminal_size();
    const httplib::Result result = ask_monitor(options.socket, path_of(options));
    const std::string trouble = answer_trouble(result, options.socket);
    // No colours: cut() could remove the sequence that ends a colour.
    if (terminal) {
      draw(trouble.empty() ? lines_of(Json::parse(result->body), options, false)
                           : std::vector<std::string>{printable(trouble)},
           *terminal);
    } else if (!trouble.empty()) {
      complain(trouble);
    } else {
      print(lines_of(Json::parse(result->body), options, false));
      if (!options.json) std::printf("\n");
    }
    if (std::fflush(stdout) != 0) return kExitFailed;
    std::this_thread::sleep_for(kBetweenLooks);
  }
}

}  // namespace

int command_status(const StatusOptions& options) {
  if (options.check) return check(options);
  if (options.watch) return watch(options);
  const auto body = body_of(ask_monitor(options.socket, path_of(options)), options.socket);
  if (!body) return kExitFailed;
  print(lines_of(*body, options, wants_colour()));
  return kExitOk;
}
