// What a scrape costs: the text alone, and all that a running monitor does for it.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "status/metrics_text.h"
#include "status/unix_client.h"

namespace {

constexpr int kWatches = 1000;

std::shared_ptr<const WatchView> watch(int number) {
  WatchView view{};
  view.name = "process-number-" + std::to_string(number) + ".memory";
  view.item = find_item("GetProcessMemory");
  view.state = State::kOk;
  view.has_value = true;
  view.value = 12.0;
  view.pid = 100000 + number;
  view.answered = std::chrono::system_clock::now();
  view.has_alarm = {false, true};
  view.outcomes[0] = 12345;
  for (int call = 0; call < 100; ++call) view.call_s.add(0.0001 * call);
  return std::make_shared<const WatchView>(std::move(view));
}

void MetricsText_1000(benchmark::State& state) {
  Snapshot snapshot{};
  for (int i = 0; i < kWatches; ++i) snapshot.watches.push_back(watch(i));
  while (state.KeepRunning()) benchmark::DoNotOptimize(metrics_text(snapshot));
}

// A monitor with as many watches, each with an alarm and a value.
class RunningMonitor {
 public:
  RunningMonitor() {
    char name[] = "/tmp/metrics-bench-XXXXXX";
    folder_ = mkdtemp(name);
    std::ofstream config(folder_ / "a.toml");
    config << "workers = 2\n[status]\nsocket = '" << socket() << "'\n";
    for (int i = 0; i < kWatches; ++i) {
      config << "[[instance]]\nname = 'process-number-" << i << ".memory'\nperiod = '1h'\n"
             << "item = 'GetSysFreeMemory'\n[instance.alarm]\nbelow = 1\n";
    }
    config.close();
    pid_ = fork();
    if (pid_ != 0) return;
    const std::string command = MIRT_MONITOR_PATH " run --config " + (folder_ / "a.toml").string();
    execl("/bin/sh", "sh", "-c", ("exec " + command + " >/dev/null 2>&1").c_str(), nullptr);
    _exit(127);
  }
  RunningMonitor& operator=(RunningMonitor&&) = delete;  // neither copied nor moved
  ~RunningMonitor() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    std::filesystem::remove_all(folder_);
  }

  // The metrics; empty if it does not answer.
  std::string scrape() const {
    UnixClient client(socket());
    const httplib::Result result = client.Get("/metrics");
    return result && result->status == 200 ? result->body : "";
  }

  // Waits until every watch has a value.
  bool is_complete() const {
    const std::string last = "mirt_machine_free_memory_bytes{watch=\"process-number-" +
                             std::to_string(kWatches - 1) + ".memory\"}";
    for (int tries = 0; tries < 600; ++tries) {
      if (scrape().find(last) != std::string::npos) return true;
      usleep(100000);
    }
    return false;
  }

  double cpu_s() const {
    clockid_t clock;
    timespec used{};
    if (clock_getcpuclockid(pid_, &clock) == 0) clock_gettime(clock, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
  }

 private:
  std::string socket() const { return folder_ / "socket"; }

  std::filesystem::path folder_;
  pid_t pid_ = -1;
};

void Scrape_1000(benchmark::State& state) {
  const RunningMonitor monitor;
  if (!monitor.is_complete()) state.SkipWithError("the monitor does not answer");
  while (state.KeepRunning()) {
    const double before = monitor.cpu_s();
    benchmark::DoNotOptimize(monitor.scrape());
    state.SetIterationTime(monitor.cpu_s() - before);
  }
}

BENCHMARK(MetricsText_1000)->Unit(benchmark::kMillisecond);
BENCHMARK(Scrape_1000)->Iterations(101)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
