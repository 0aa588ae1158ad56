// mirt-monitor as its users have it: a child process with a configuration, pipes and signals.
#ifndef MONITOR_FIXTURE_H
#define MONITOR_FIXTURE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using Json = nlohmann::json;

inline std::string file_text(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// A running mirt-monitor in a process group of its own, with whatever its items have started.
class Monitor {
 public:
  // `prepare` runs in the child just before exec().
  Monitor(
      const std::vector<std::string>& arguments, const fs::path& folder,
      const std::function<void()>& prepare = [] {}, bool on_terminal = false)
      : errors_(folder / "stderr") {
    int ends[2];
    const bool opened = on_terminal ? openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr) == 0
                                    : pipe2(ends, O_CLOEXEC) == 0;
    if (!opened) std::abort();
    pid_ = fork();
    if (pid_ == 0) exec(arguments, ends[1], prepare);
    setpgid(pid_, pid_);  // in both, so that it is done by the time either goes on
    close(ends[1]);
    output_ = ends[0];
  }
  Monitor(const Monitor&) = delete;
  Monitor& operator=(const Monitor&) = delete;
  ~Monitor() {
    close_output();
    kill(-pid_, SIGKILL);  // pre-commands that hang outlive the monitor
    if (!waited_) waitpid(pid_, nullptr, 0);
  }

  pid_t pid() const { return pid_; }
  int output() const { return output_; }
  void send(int number) const { kill(pid_, number); }
  void close_output() {
    if (output_ >= 0) close(output_);
    output_ = -1;
  }

  // The next line of standard output; nothing at its end.
  std::optional<std::string> line() {
    for (;;) {
      const size_t end = pending_.find('\n');
      if (end != std::string::npos) {
        std::string found = pending_.substr(0, end);
        pending_.erase(0, end + 1);
        return found;
      }
      char piece[4096];
      const ssize_t got = read(output_, piece, sizeof piece);
      if (got <= 0) return std::nullopt;  // a terminal says EIO at its end
      pending_.append(piece, static_cast<size_t>(got));
    }
  }

  std::vector<std::string> lines() {
    std::vector<std::string> all;
    while (std::optional<std::string> next = line()) all.push_back(*next);
    return all;
  }

  // Reads on to the first line that is wanted.
  Json await(const std::function<bool(const Json&)>& wanted) {
    while (const std::optional<std::string> next = line()) {
      seen_.push_back(Json::parse(*next));
      if (wanted(seen_.back())) return seen_.back();
    }
    ADD_FAILURE() << "the output ended before the line that was waited for\n" << errors();
    return Json::object();
  }
  Json await(const std::string& instance, const std::vector<std::string>& states) {
    return await([&](const Json& record) {
      return record.value("instance", "") == instance &&
             std::find(states.begin(), states.end(), record["state"]) != states.end();
    });
  }

  // All that await() has read.
  const std::vector<Json>& seen() const { return seen_; }

  // Waits for the end. -1 if it was not by exit().
  int exit_code() {
    int status = 0;
    waitpid(pid_, &status, 0);
    waited_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string errors() const { return file_text(errors_); }

 private:
  [[noreturn]] void exec(const std::vector<std::string>& arguments, int output,
                         const std::function<void()>& prepare) const {
    setpgid(0, 0);
    const int errors = open(errors_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    close_range(3, ~0U, 0);
    for (const int number : {SIGINT, SIGTERM, SIGPIPE}) signal(number, SIG_DFL);
    setenv("TSAN_OPTIONS", "halt_on_error=1", 0);
    prepare();
    std::vector<char*> argv{const_cast<char*>(MIRT_MONITOR_PATH)};
    for (const std::string& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    execv(MIRT_MONITOR_PATH, argv.data());
    _exit(127);
  }

  fs::path errors_;
  pid_t pid_ = -1;
  int output_ = -1;
  bool waited_ = false;
  std::string pending_;
  std::vector<Json> seen_;
};

class MonitorTest : public testing::Test {
 protected:
  MonitorTest() {
    char name[] = "/tmp/monitor-test-XXXXXX";
    folder_ = mkdtemp(name);
    config_ = folder_ / "config.toml";
  }
  ~MonitorTest() override { fs::remove_all(folder_); }

  void configure(const std::string& text) const { std::ofstream(config_) << text; }

  std::vector<std::string> run_json(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"run", "--json", "--config", config_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  // An instance whose pre-command reads from a FIFO until the test, or nobody, writes to it.
  std::string instance_that_blocks(const std::string& deadline_s) const {
    mkfifo((folder_ / "fifo").c_str(), 0600);
    return "[[instance]]\nname = \"stuck\"\nitem = \"IsExistProcessPreCmd\"\nperiod = 0.05\n"
           "deadline = " +
           deadline_s +
           "\nparams = [{ name = \"ProcessName\", value = \"no such process\" },\n"
           "{ name = \"PreCmd\", value = \"cat " +
           (folder_ / "fifo").string() +
           "\" },\n"
           "{ name = \"RetKeyWords\", value = \"go\" }]\n";
  }

  fs::path folder_;
  fs::path config_;
};

#endif
