#include "allocation_failure.h"

#include <sys/mman.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>

#include "child.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);
}

namespace {

struct Watch {
  bool counting = false;
  Refusal refusal = kNone;
  size_t asked = 0;
  size_t live = 0;  // blocks allocated while counting and not freed yet
  void* blocks[4096];
};
Watch g_watch;

// Counts one allocation. False if it must be refused.
bool grant() {
  if (!g_watch.counting) return true;
  const size_t number = g_watch.asked++;
  const bool refused = number >= g_watch.refusal.first && number < g_watch.refusal.end;
  if (refused) errno = ENOMEM;
  return !refused;
}

void* taken(void* block) {
  if (!g_watch.counting || block == nullptr) return block;
  if (g_watch.live == std::size(g_watch.blocks)) abort();
  return g_watch.blocks[g_watch.live++] = block;
}

void given_back(void* block) {
  void** const end = g_watch.blocks + g_watch.live;
  void** const found = std::find(g_watch.blocks, end, block);
  if (found != end) *found = g_watch.blocks[--g_watch.live];
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
  return grant() ? taken(__libc_malloc(size)) : nullptr;
}

void* calloc(size_t count, size_t size) {
  return grant() ? taken(__libc_calloc(count, size)) : nullptr;
}

void* realloc(void* block, size_t size) {
  if (!grant()) return nullptr;
  void* const moved = __libc_realloc(block, size);
  if (moved == nullptr) return nullptr;
  given_back(block);
  return taken(moved);
}

void free(void* block) {
  if (block != nullptr) given_back(block);
  __libc_free(block);
}

}  // extern "C"

bool set_counting(bool on) {
  return std::exchange(g_watch.counting, on);
}

namespace {

void run(const Scenario& scenario, Refusal refusal, bool descriptors, Observed& trial) {
  if (scenario.prepare != nullptr) scenario.prepare();
  const int open_before = open_descriptors();
  {
    std::optional<NoDescriptors> none;
    if (!descriptors) none.emplace();
    g_watch.refusal = refusal;
    g_watch.counting = true;
    scenario.call(trial.outcome);
    g_watch.counting = false;
  }
  if (scenario.release != nullptr) scenario.release();
  trial.allocations = g_watch.asked;
  const auto note = [&trial](int left, const char* what) {
    if (left != 0) sprintf(trial.faults + strlen(trial.faults), "%d %s left; ", left, what);
  };
  note(g_watch.live > scenario.kept ? static_cast<int>(g_watch.live) : 0, "blocks");
  note(open_descriptors() - open_before, "descriptors");
  note(waitpid(-1, nullptr, WNOHANG) > 0 ? 1 : 0, "zombie");
  if (scenario.prepare != nullptr) scenario.prepare();
  scenario.call(trial.again);
}

}  // namespace

Observed run_in_child(const Scenario& scenario, Refusal refusal, bool descriptors) {
  // The child writes its results to shared memory.
  static auto& trial = *static_cast<Observed*>(
      mmap(nullptr, sizeof(Observed), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  trial = {};
  const int status = status_of_child([&] {
    run(scenario, refusal, descriptors, trial);
    return 0;
  });
  if (status != 0) snprintf(trial.faults, sizeof trial.faults, "crashed, status %d", status);
  return trial;
}
