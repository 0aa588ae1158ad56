// mirt-monitor as users run it: a child process with a configuration, pipes and signals.
#ifndef MONITOR_FIXTURE_H
#define MONITOR_FIXTURE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "child.h"
#include "config/config.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Params = std::vector<std::pair<std::string, std::string>>;

inline std::string params_text(const Params& params) {
  std::string text = "params = [";
  for (const auto& [name, value] : params) {
    text += "{ name = " + Json(name).dump() + ", value = " + Json(value).dump() + " },\n";
  }
  return text + "]";
}

inline bool has(const Json& record, const Json& members) {
  Json updated = record;
  updated.update(members);
  return updated == record;
}

inline testing::AssertionResult contains(const std::string& text, const std::string& part) {
  if (text.find(part) != std::string::npos) return testing::AssertionSuccess();
  return testing::AssertionFailure() << '"' << part << "\" is not in: " << text;
}

// A table of the configuration; its deadline is long enough for the busiest machine.
inline std::string instance(const std::string& name, const std::string& item,
                            const Params& params = {},
                            const std::string& times = "period = 0.02\ndeadline = 1000\n") {
  return "[[instance]]\nname = " + Json(name).dump() + "\nitem = '" + item + "'\n" + times +
         params_text(params) + "\n";
}

inline std::string alarm(const std::string& text) {
  return "[[instance.alarm]]\n" + text + "\n";
}

// One that searches for no process, but judges what this shell command prints.
inline std::string pre_command(const std::string& name, const std::string& command,
                               const std::string& words,
                               const std::string& times = "period = 0.02\ndeadline = 1000\n") {
  return instance(name, "IsExistProcessPreCmd",
                  {{"ProcessName", "none"}, {"PreCmd", command}, {"RetKeyWords", words}}, times);
}

// One that asks for the recovery of this process, the data plane.
inline std::string reboot(const std::string& name, pid_t pid) {
  return instance(name, "RebootAppData", {{"UserData", std::to_string(pid)}});
}

// A file over another one while it lives.
class FileMount : InPlace {
 public:
  FileMount(const fs::path& from, std::string to) : to_(std::move(to)) {
    EXPECT_EQ(mount(from.c_str(), to_.c_str(), nullptr, MS_BIND, nullptr), 0) << strerror(errno);
  }
  ~FileMount() { EXPECT_EQ(umount2(to_.c_str(), MNT_DETACH), 0) << strerror(errno); }

 private:
  std::string to_;
};

// A shell command that execs mirt-monitor, in a new process group together with the processes that
// its items start.
class Monitor : InPlace {
 public:
  Monitor(const fs::path& folder, const std::string& command) : errors_(folder / "stderr") {
    const std::string script = "PATH=$(dirname " MIRT_MONITOR_PATH "):$PATH; cd " +
                               folder.string() + " && exec </dev/null 2>stderr && exec " + command;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
    pid_ = fork();
    if (pid_ == 0) {
      setpgid(0, 0);
      dup2(ends[1], STDOUT_FILENO);
      close_range(3, ~0U, 0);
      for (const int number : {SIGINT, SIGTERM, SIGPIPE}) signal(number, SIG_DFL);
      setenv("TSAN_OPTIONS", "halt_on_error=1", 0);
      execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
      _exit(127);
    }
    setpgid(pid_, pid_);  // in both, so that it is done before either continues
    close(ends[1]);
    output_ = fdopen(ends[0], "r");
  }
  ~Monitor() {
    fclose(output_);
    kill(-pid_, SIGKILL);  // with the processes it started, if the test failed
    waitpid(pid_, nullptr, 0);
  }

  pid_t pid() const { return pid_; }

  // The next line of standard output, even if incomplete; nothing at its end.
  std::optional<std::string> line() {
    std::string found;
    for (int byte; (byte = getc(output_)) != '\n'; found += static_cast<char>(byte)) {
      if (byte == EOF) return found.empty() ? std::nullopt : std::optional(found);
    }
    return found;
  }
  // The records up to the first one with these members; without members, all records.
  std::vector<Json> records(const Json& members = {}) {
    std::vector<Json> all;
    while (const std::optional<std::string> next = line()) {
      const Json record = Json::parse(*next);
      // A busy machine is no matter of the tests.
      if (record.value("text", "").find("the monitor did not run") == 0) {
        ++busy_notes_;
        continue;
      }
      all.push_back(record);
      if (!members.is_null() && has(all.back(), members)) return all;
    }
    if (members.is_null()) return all;
    ADD_FAILURE() << "the output ended before " << members << '\n' << read_file(errors_);
    return {Json::object()};
  }
  Json await(const Json& members) { return records(members).back(); }

  // Returns when standard error has this text.
  void await_log(const std::string& text) const {
    while (read_file(errors_).find(text) == std::string::npos) usleep(1000);
  }

  // How many records about a busy machine records() has left out so far.
  unsigned long busy_notes() const { return busy_notes_; }

  // Fills the monitor's output pipe with empty records until it is full.
  void fill_pipe() const {
    const std::string path = "/proc/" + std::to_string(pid_) + "/fd/1";
    const int pipe = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
    ASSERT_GE(pipe, 0);
    while (write(pipe, "{}\n", 3) == 3) {
    }
    close(pipe);
  }

  // Waits for the end and expects this exit status. Returns the content of standard error.
  std::string end(int exit_code) {
    int status = 0;
    waitpid(pid_, &status, 0);
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, exit_code) << read_file(errors_);
    return read_file(errors_);
  }
  // Ends the monitor as an operator does; its last output is not read.
  std::string stop_unread() {
    kill(pid_, SIGTERM);
    return end(0);
  }
  // The same, and reads its output to the end.
  std::string stop() {
    kill(pid_, SIGTERM);
    records();
    return end(0);
  }

 private:
  fs::path errors_;
  pid_t pid_;
  FILE* output_;
  unsigned long busy_notes_ = 0;
};

// Does this again and again on a thread of its own while it lives.
class Meanwhile : InPlace {
 public:
  explicit Meanwhile(const std::function<void()>& act)
      : thread_([this, act] {
          for (; !ends_; usleep(500)) act();
        }) {}
  ~Meanwhile() {
    ends_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> ends_{false};
  std::thread thread_;
};

inline const std::string kRun = "mirt-monitor run --json --config a.toml ";

class MonitorTest : public testing::Test {
 protected:
  MonitorTest() {
    umask(022);  // a configuration that others can write is refused
    char name[] = "/tmp/monitor-test-XXXXXX";
    folder_ = mkdtemp(name);
  }
  ~MonitorTest() override { fs::remove_all(folder_); }

  void put(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ / name) << text;
  }
  void configure(const std::string& text) const { put("a.toml", text); }
  void configure_with_socket(const std::string& text) const {
    configure("[status]\nsocket = '" + socket_path() + "'\n" + text);
  }
  std::string socket_path() const { return (folder_ / "socket").string(); }

  // A monitor with this configuration and these options.
  Monitor started(const std::string& text, const std::string& options = "") const {
    configure(text);
    return Monitor(folder_, kRun + options);
  }
  Monitor started_with_socket(const std::string& text) const {
    configure_with_socket(text);
    return Monitor(folder_, kRun);
  }

  // What check-config says of the text, all of it on standard error but for the last line.
  std::string check(const std::string& text, int exit_code, const std::string& options = "") const {
    configure(text);
    return Monitor(folder_, "mirt-monitor check-config a.toml " + options).end(exit_code);
  }

  // The same without a process, as the reader of configurations says it, with names of files as
  // seen from the folder.
  std::string findings() const {
    const ConfigReading reading = read_config(folder_ / "a.toml");
    std::string all;
    for (const auto& line : findings_text(folder_ / "a.toml", reading.findings)) all += line + '\n';
    const std::string prefix = folder_.string() + '/';
    for (size_t at; (at = all.find(prefix)) != std::string::npos;) all.erase(at, prefix.size());
    return all;
  }

  // The record with these members of a command that ends with this exit status.
  Json record_of(const std::string& command, const Json& members, int exit_code = 1) const {
    Monitor monitor(folder_, command);
    Json record = monitor.await(members);
    monitor.end(exit_code);
    return record;
  }

  fs::path folder_;
};

#endif
