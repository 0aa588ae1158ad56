#include "alert/alert_command.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <string_view>

#include "alert/output_lines.h"
#include "proc/child_program.h"
#include "proc/program_path.h"
#include "text/end_text.h"
#include "text/number_text.h"

namespace {

using Clock = std::chrono::steady_clock;

bool is_for_commands(const std::string& variable) {
  return variable.compare(0, 5, "MIRT_") == 0 && variable.find('=') == std::string::npos &&
         variable.find('\0') == std::string::npos;
}

std::string variable(std::string name, const std::string& value) {
  name += '=';
  name += value;
  return name;
}

std::vector<std::string> environment_of(const AlertMessage& message) {
  std::vector<std::string> environment = command_environment();
  for (const auto& [name, value] : message.variables) {
    if (is_for_commands(name)) environment.push_back(variable(name, value));
  }
  return environment;
}

struct Pipe {
  UniqueFd read_end{-1}, write_end{-1};

  bool open() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    read_end = UniqueFd(ends[0]);
    write_end = UniqueFd(ends[1]);
    return true;
  }
};

// Discarded output is read slowly, so that a command that floods its output uses little CPU time.
constexpr std::chrono::milliseconds kBetweenReads{10};

// One run of a command, from its start to its end.
class CommandRun {
 public:
  CommandRun(const Alert& alert, const AlertMessage& message, const AlertLimits& limits)
      : alert_(alert), unwritten_(message.json), lines_(alert.name, limits) {}

  // False, with errno set, if it cannot be started.
  bool start(const std::vector<std::string>& environment);
  Delivery wait(const Wake& stop);

 private:
  bool wait_for_events(const Wake& stop, Clock::time_point deadline);
  void write_input();
  bool read_output();

  const Alert& alert_;
  std::string_view unwritten_;
  OutputLines lines_;
  UniqueFd input_{-1}, output_{-1};  // our ends; -1 once they are closed
  Clock::time_point next_read_{};
  std::optional<ChildProgram> child_;
};

bool CommandRun::start(const std::vector<std::string>& environment) {
  Pipe input, output;
  if (!input.open() || !output.open()) return false;
  fcntl(input.write_end.get(), F_SETFL, O_NONBLOCK);
  fcntl(output.read_end.get(), F_SETFL, O_NONBLOCK);
  const std::string program = find_program(alert_.command.front());
  if (program.empty()) return false;
  std::optional<ChildProgram> child = ChildProgram::start(
      {program, alert_.command, environment, input.read_end.get(), output.write_end.get()});
  input_ = std::move(input.write_end);
  output_ = std::move(output.read_end);
  if (child) child_.emplace(std::move(*child));
  return child_.has_value();
}

Delivery CommandRun::wait(const Wake& stop) {
  const auto limit = std::chrono::duration<double>(alert_.timeout_s);
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
  std::optional<int> status;
  bool goes_on = true;
  while (goes_on && !status) {
    goes_on = wait_for_events(stop, deadline);
    write_input();
    read_output();
    status = child_->status_by(Clock::time_point{});
  }
  if (!status) child_->kill_all();
  while (!lines_.is_cut() && read_output()) continue;
  lines_.finish();
  if (!status && Clock::now() < deadline)
    return {Delivery::Result::kFailed, "the monitor is ending"};
  if (!status) {
    return {Delivery::Result::kFailed,
            "killed after " + number_text(alert_.timeout_s) + " s (timeout)"};
  }
  if (*status != 0) return {Delivery::Result::kFailed, wait_status_text(*status)};
  return {};
}

// Waits until there is something to do. False after the timeout or when the program ends.
bool CommandRun::wait_for_events(const Wake& stop, Clock::time_point deadline) {
  const bool is_pausing = Clock::now() < next_read_;
  const auto until = is_pausing ? std::min(deadline, next_read_) : deadline;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
  pollfd events[] = {{child_->end_fd(), POLLIN, 0},
                     {stop.fd(), POLLIN, 0},
                     {input_.get(), POLLOUT, 0},
                     {is_pausing ? -1 : output_.get(), POLLIN, 0}};
  poll(events, std::size(events), static_cast<int>(std::clamp<long>(left, 0, INT_MAX)));
  const bool is_stopped = events[1].revents != 0;
  return !is_stopped && Clock::now() < deadline;
}

void CommandRun::write_input() {
  if (input_.get() < 0) return;
  const ssize_t written = write(input_.get(), unwritten_.data(), unwritten_.size());
  if (written >= 0) unwritten_.remove_prefix(static_cast<size_t>(written));
  const bool may_go_on = written >= 0 || errno == EAGAIN || errno == EINTR;
  if (unwritten_.empty() || !may_go_on) input_ = UniqueFd(-1);  // the command sees end of file
}

// True if there was output.
bool CommandRun::read_output() {
  if (output_.get() < 0 || Clock::now() < next_read_) return false;
  char text[65536];
  const ssize_t got = read(output_.get(), text, sizeof text);
  if (got > 0) lines_.add({text, static_cast<size_t>(got)});
  if (lines_.is_cut()) next_read_ = Clock::now() + kBetweenReads;
  const bool may_go_on = got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
  if (!may_go_on) output_ = UniqueFd(-1);
  return got > 0;
}

}  // namespace

Delivery run_alert_command(const Alert& alert, const AlertMessage& message, const Wake& stop,
                           const AlertLimits& limits) {
  CommandRun run(alert, message, limits);
  if (!run.start(environment_of(message))) {
    const std::string error = std::strerror(errno);
    return {Delivery::Result::kFailed, alert.command.front() + " cannot be started: " + error};
  }
  return run.wait(stop);
}
