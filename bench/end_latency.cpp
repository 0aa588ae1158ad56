// end_latency MONITOR [PERIOD-SECONDS]: from kill -9 of a watched process to the line of its alarm.
//
// A real mirt-monitor watches 100 of 2,000 processes; each of the 100 is killed once, one after the
// other, in each of two runs. Prints the quartiles of the 200 delays.
#include <fcntl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "idle_processes.h"

namespace {

constexpr int kProcesses = 2000, kWatches = 100, kRuns = 2;

double now_ms() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

void write_configuration(const std::string& path, const std::string& period) {
  std::ofstream file(path);
  for (int i = 0; i < kWatches; ++i) {
    file << "[[instance]]\nname = \"watch-" << i
         << "\"\nitem = \"IsExistProcess\"\nperiod = " << period
         << "\nparams = [{ name = \"ProcessName\", value = \"" << IdleProcesses::command_line(i)
         << "\" }]\n[instance.alarm]\nequals = 0\n";
  }
}

// The monitor as a child whose lines can be read.
class Monitor {
 public:
  Monitor(const std::string& program, const std::string& configuration) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
    pid_ = fork();
    if (pid_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      execl(program.c_str(), "mirt-monitor", "run", "--json", "--allow-writable-config", "--config",
            configuration.c_str(), nullptr);
      _exit(127);
    }
    close(ends[1]);
    output_ = fdopen(ends[0], "r");
  }
  Monitor& operator=(Monitor&&) = delete;
  ~Monitor() {
    kill(pid_, SIGTERM);
    fclose(output_);
    waitpid(pid_, nullptr, 0);
  }

  // Reads lines up to one that holds both texts. False at the end of the output.
  bool await(const std::string& first, const std::string& second) {
    char line[8192];
    while (std::fgets(line, sizeof line, output_)) {
      const std::string text = line;
      if (text.find(first) != std::string::npos && text.find(second) != std::string::npos) {
        return true;
      }
    }
    return false;
  }

 private:
  pid_t pid_;
  FILE* output_;
};

std::string name_of(int watch) {
  return "\"instance\":\"watch-" + std::to_string(watch) + "\"";
}

// False if the monitor ended before an alarm.
bool measure(const std::string& program, const std::string& configuration,
             std::vector<double>& delays_ms) {
  const IdleProcesses processes(kProcesses);
  Monitor monitor(program, configuration);
  for (int watch = 0; watch < kWatches; ++watch) {
    if (!monitor.await("\"value\":1.0", "\"kind\":\"item\"")) return false;
  }
  usleep(500'000);
  for (int watch = 0; watch < kWatches; ++watch) {
    usleep(static_cast<useconds_t>(std::rand() % 20'000));
    const double killed_ms = now_ms();
    kill(processes.pids()[static_cast<size_t>(watch)], SIGKILL);
    if (!monitor.await("\"state\":\"raised\"", name_of(watch))) return false;
    delays_ms.push_back(now_ms() - killed_ms);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: end_latency MONITOR [PERIOD-SECONDS]\n");
    return 2;
  }
  const std::string period = argc > 2 ? argv[2] : "1";
  char configuration[] = "/tmp/end-latency-XXXXXX";
  close(mkstemp(configuration));
  write_configuration(configuration, period);
  std::vector<double> delays_ms;
  bool complete = true;
  for (int run = 0; run < kRuns && complete; ++run) {
    complete = measure(argv[1], configuration, delays_ms);
  }
  unlink(configuration);
  if (!complete) {
    std::fprintf(stderr, "end_latency: the monitor ended early\n");
    return 1;
  }
  std::sort(delays_ms.begin(), delays_ms.end());
  const auto quantile = [&](double share) {
    return delays_ms[static_cast<size_t>(share * static_cast<double>(delays_ms.size() - 1))];
  };
  std::printf(
      "%zu kills at a period of %s s, from kill to the alarm's line, in ms:\n"
      "  quartiles %.2f %.2f %.2f, 95 %% %.2f, most %.2f\n",
      delays_ms.size(), period.c_str(), quantile(0.25), quantile(0.5), quantile(0.75),
      quantile(0.95), quantile(1.0));
  return 0;
}
