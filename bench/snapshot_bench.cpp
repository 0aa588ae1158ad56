// The listing of all processes: the whole call compared with bare loops, and the match of two
// passes.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "allprocess.h"
#include "bare_calls.h"
#include "idle_processes.h"
#include "kelv_list.h"
#include "mirt_process.h"
#include "paired.h"

namespace {

constexpr int kSamples = 20000;

bool is_empty_file(const std::string& path) {
  char byte;
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool empty = fd < 0 || read(fd, &byte, 1) <= 0;
  if (fd >= 0) close(fd);
  return empty;
}

// cmdline of every process, and status of each process whose cmdline is not empty, in the order in
// which a listing reads them.
std::vector<std::string> paths_of_listing() {
  std::vector<std::string> paths;
  for (const std::string& cmdline : paths_of_all_processes("cmdline")) {
    paths.push_back(cmdline);
    if (is_empty_file(cmdline)) continue;
    paths.push_back(cmdline.substr(0, cmdline.rfind('/') + 1) + "status");
  }
  return paths;
}

size_t length_of(list_head& head) {
  size_t length = 0;
  for_each_node(&head, [&length](list_head*) { ++length; });
  return length;
}

// The listing and its release, compared with the bare calls.
template <typename Floor>
void list_memory(benchmark::State& state, Floor floor) {
  list_head head;
  if (GetAllProcessRssMem(&head) != 0) return state.SkipWithError("no listing");
  const bool complete = length_of(head) >= idle_processes().pids().size();
  FreeAllProcessList(&head);
  if (!complete) return state.SkipWithError("not all processes were listed");
  const auto list = [&head] {
    benchmark::DoNotOptimize(GetAllProcessRssMem(&head));
    FreeAllProcessList(&head);
  };
  paired(state, list, floor);
}

void ListMemory(benchmark::State& state) {
  idle_processes();
  list_memory(state, [paths = paths_of_listing()] { bare_read_all(paths); });
}
PAIRED_ROW(ListMemory);

void ListMemoryAndListing(benchmark::State& state) {
  idle_processes();
  list_memory(state, [paths = paths_of_listing()] {
    benchmark::DoNotOptimize(bare_listing("/proc"));
    bare_read_all(paths);
  });
}
PAIRED_ROW(ListMemoryAndListing);

// Samples as a pass creates them: each in its own allocation, in ascending order of PID.
class Pass {
 public:
  explicit Pass(unsigned long long ticks) {
    kelv_list_init(&head_);
    for (int i = 0; i < kSamples; ++i) {
      auto* const sample =
          static_cast<PROCESS_BASICDATA_S*>(calloc(1, sizeof(PROCESS_BASICDATA_S)));
      if (sample == nullptr) return;
      sample->pid = i + 1;
      sample->syscputime = ticks;
      snprintf(sample->name, sizeof sample->name, "worker-%d", i % 100);
      kelv_list_add_tail(&sample->stEntry, &head_);
    }
  }
  Pass(const Pass&) = delete;
  Pass& operator=(const Pass&) = delete;
  ~Pass() { FreeProcBasicData(&head_); }
  list_head* head() { return &head_; }

  // The worst order for a linear search.
  void reverse() {
    for_each_node(&head_, [](list_head* node) { std::swap(node->next, node->prev); });
    std::swap(head_.next, head_.prev);
  }

 private:
  list_head head_;
};

// Two passes of 20,000 processes each. The time includes creating and freeing 20,000 result
// entries.
void match_passes(benchmark::State& state, bool reversed) {
  Pass first(1000), second(2000);
  if (reversed) second.reverse();
  size_t matched = 0;
  for ([[maybe_unused]] auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores)
    list_head result;
    kelv_list_init(&result);
    CalcAllProcessCoreCPU(first.head(), second.head(), &result);
    state.PauseTiming();
    matched = length_of(result);
    state.ResumeTiming();
    FreeAllProcessList(&result);
  }
  if (matched != kSamples) state.SkipWithError("not all samples were matched");
}

void MatchPasses_20000(benchmark::State& state) {
  match_passes(state, false);
}
BENCHMARK(MatchPasses_20000)->Unit(benchmark::kMillisecond);

void MatchPassesReversed_20000(benchmark::State& state) {
  match_passes(state, true);
}
BENCHMARK(MatchPassesReversed_20000)->Unit(benchmark::kMillisecond);

}  // namespace
