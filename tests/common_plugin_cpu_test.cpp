

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "common_plugin.h"
#include "interposed.h"
#include "proc_fixture.h"

namespace {

using Plugin = MIRT_Linux_Plugin;
using Ticks = unsigned long long;
using namespace std::string_literals;

// Both system samplers record the total and one part.
template <typename Sample, float (Plugin::*kSampler)(Sample*)>
float measure(Ticks& total, Ticks& part) {
  Sample sample{total, part};
  const float percent = (Plugin().*kSampler)(&sample);
  memcpy(&total, &sample, sizeof total);
  memcpy(&part, reinterpret_cast<const char*>(&sample) + sizeof total, sizeof part);
  return percent;
}
constexpr auto kBusy = measure<sys_cpu_context_t, &Plugin::get_sys_cpu>;
constexpr auto kUser = measure<sys_usr_cpu_context_t, &Plugin::get_sys_usr_cpu>;

float process_share(Ticks& total, Ticks& part) {
  return Plugin().get_pcpu(7, total, part);
}

struct Case {
  const char* name;
  float (*sampler)(Ticks&, Ticks&);
  const char* counters;  // user nice system idle iowait irq softirq ...; null: no file
  const char* process;   // utime, stime and the following items; null: no file
  Ticks total, part;     // the previous sample: idle, user or the process
  float percent;
  Ticks total_after, part_after;
};
constexpr char kSeven[] = "100 100 200 1000 9 9 9";  // a process's share uses only the first four
constexpr Case kCases[] = {
    {"SevenOfTen", kBusy, "10 10 10 40 10 10 10 500 600", nullptr, 0, 0, 60, 100, 40},
    {"Interval", kBusy, "150 0 150 850 50 0 0", nullptr, 1000, 800, 75, 1200, 850},
    {"NoTickPassed", kBusy, "100 0 100 800 0 0 0", nullptr, 1000, 700, 0, 1000, 700},
    {"NoFile", kBusy, nullptr, nullptr, 1000, 700, 0, 1000, 700},
    {"FourCounters", kBusy, "100 0 100 800", nullptr, 0, 0, 20, 1000, 800},
    {"IdleWentBack", kBusy, "300 0 100 799 0 0 0", nullptr, 1000, 800, 0, 1199, 799},
    {"TotalWentBack", kBusy, "1 0 1 8 0 0 0", nullptr, 1000, 8, 0, 10, 8},
    {"IowaitWentBack", kBusy, "0 0 0 1000 0 0 0", nullptr, 900, 800, 0, 1000, 1000},
    {"UserInterval", kUser, "150 0 50 900 50 25 25", nullptr, 1000, 100, 25, 1200, 150},
    {"UserOutgrewTotal", kUser, "200 0 0 800 50 0 0", nullptr, 1000, 100, 200, 1050, 200},
    {"UserNoTickPassed", kUser, "100 0 100 800 0 0 0", nullptr, 1000, 50, 0, 1000, 50},
    {"UserWentBack", kUser, "99 0 101 900 0 0 0", nullptr, 1000, 100, 0, 1100, 99},
    {"ProcessInterval", process_share, kSeven, "60 30 5", 1000, 50, 10, 1400, 90},
    {"NoMachine", process_share, nullptr, "60 30", 1000, 50, 0, 1000, 50},
    {"NoProcess", process_share, kSeven, nullptr, 1000, 50, 0, 1000, 50},
    {"NeverRan", process_share, kSeven, "0 0", 1000, 50, 0, 1000, 50},
    {"ProcessNoTickPassed", process_share, "100 100 200 600", "90 0", 1000, 50, 0, 1000, 50},
    // A newer process with a reused PID: the next call measures again.
    {"ProcessWentBack", process_share, kSeven, "49 0", 1000, 50, 0, 1400, 49}};

using Share = ProcFixture;

TEST_F(Share, ReplacesTheSampleOnlyWhenItMeasures) {
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.name);
    remove("stat");
    remove("7");
    if (row.counters != nullptr) {
      put("stat", "cpu  "s + row.counters + "\ncpu0 1 1 1 1 1 1 1 0 0 0\n");
    }
    // The space in the name shifts the items by one.
    if (row.process != nullptr) put("7/stat", "7 (a b) S 1 1 1 0 -1 0 0 0 0 "s + row.process);
    Ticks total = row.total, part = row.part;
    EXPECT_EQ(row.sampler(total, part), row.percent);
    EXPECT_EQ(total, row.total_after);
    EXPECT_EQ(part, row.part_after);
  }
}

TEST(CoreCount, IsAskedOncePerProcess) {
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Plugin::get_cpu_core_num(), kCores);
  EXPECT_EQ(get_nprocs_calls(), 1);
}

using Busiest = ProcFixture;

TEST_F(Busiest, IsSoughtAmongTheFirst128AndMayEndDuringTheSleep) {
  std::vector<int> pids;
  for (int pid = 1000; pid < 1131; ++pid) {
    pids.push_back(pid);
    put_cmdline(pid, {"many"});
    put_ticks(pid, 300, 0);
  }
  put("stat", "cpu 0 0 0 1000\n");
  const std::vector<int> order = in_listing_order(pids);
  Ticks machine = 1000;
  ScopedHooks hooks;
  hooks->usleep = [&](useconds_t) {
    machine += 1000;
    put("stat", "cpu 0 0 0 " + std::to_string(machine));
    for (const int pid : {order[126], order[127]}) put_ticks(pid, machine * 3 / 10, 0);
    put_ticks(order[129], machine, 0);
    remove(std::to_string(order[0]));
  };
  Plugin plugin;
  EXPECT_EQ(plugin.get_process_cpu("m*", 1), 30.0F);
  EXPECT_EQ(plugin.max_usage_pid, order[127]) << "the later of equals";
  int pid = -1;
  EXPECT_EQ(plugin.get_process_cpu_extern("many", &pid), 30.0F);
  EXPECT_EQ(pid, order[126]) << "the earlier of equals";
}

}  // namespace
