// mirt_walk_latency [OTHERS]: how long one search over all processes takes, alone and while OTHERS
// threads (default 50) search at the same time, each about ten times a second. Both are measured in
// turn, so that a change of the machine's speed affects both. Times are wall time in milliseconds.
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "common_plugin.h"
#include "idle_processes.h"

namespace {

constexpr int kTurns = 10, kCallsEach = 20;
constexpr unsigned int kRoom = 8192;

double now_ms() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

void sleep_ms(long ms) {
  const timespec duration{0, ms * 1000000};
  nanosleep(&duration, nullptr);
}

double search_ms(std::vector<process_cpu_context_t>& found) {
  unsigned int used = 0;
  const double start = now_ms();
  MIRT_Linux_Plugin::get_allpid("*bench-idle --work*", found.data(), kRoom, &used, kMatchWildcard);
  const double end = now_ms();
  if (used != idle_processes().pids().size()) {
    fprintf(stderr, "mirt_walk_latency: %u processes found instead of %zu\n", used,
            idle_processes().pids().size());
    exit(1);
  }
  return end - start;
}

void measure(std::vector<double>& times) {
  std::vector<process_cpu_context_t> found(kRoom);
  for (int call = 0; call < kCallsEach; ++call) {
    times.push_back(search_ms(found));
    sleep_ms(3);
  }
}

void measure_among(int others, std::vector<double>& times) {
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  threads.reserve(static_cast<size_t>(others));
  for (int number = 0; number < others; ++number) {
    threads.emplace_back([&done, number] {
      std::vector<process_cpu_context_t> found(kRoom);
      sleep_ms(number * 100 / 50 % 100);
      while (!done) {
        search_ms(found);
        sleep_ms(100);
      }
    });
  }
  sleep_ms(200);
  measure(times);
  done = true;
  for (std::thread& thread : threads) thread.join();
}

void print(const char* name, std::vector<double> times) {
  std::sort(times.begin(), times.end());
  const auto quantile = [&times](size_t percent) {
    return times[(times.size() - 1) * percent / 100];
  };
  printf("%-22s %8.1f %8.1f %8.1f %8.1f\n", name, quantile(25), quantile(50), quantile(75),
         times.back());
}

}  // namespace

int main(int argc, char** argv) {
  const int others = argc > 1 ? atoi(argv[1]) : 50;
  if (idle_processes().pids().empty()) return 1;
  std::vector<double> alone, among;
  for (int turn = 0; turn < kTurns; ++turn) {
    measure(alone);
    measure_among(others, among);
  }
  printf("%-22s %8s %8s %8s %8s\n", "ms", "quartile", "median", "quartile", "longest");
  print("alone", alone);
  print(("with " + std::to_string(others) + " others").c_str(), among);
}
