#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "common_plugin.h"
#include "interposed.h"
#include "private_access.h"
#include "proc_fixture.h"

namespace {

using private_access::get_pcpu;
using Plugin = MIRT_Linux_Plugin;
using Ticks = unsigned long long;

// Other lines follow in the kernel's file; only the first counts.
std::string stat_text(const std::string& counters) {
  return "cpu  " + counters + "\ncpu0 1 1 1 1 1 1 1 0 0 0\nctxt 5\n";
}

// Both system samplers have a record of the total and of one part.
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

struct SystemCase {
  const char* name;
  float (*sampler)(Ticks&, Ticks&);
  const char* counters;  // user nice system idle iowait irq softirq ...; null: no file
  Ticks total, part;     // the sample before: idle, or user
  float percent;
  Ticks total_after, part_after;
};
class SystemCpu : public ProcFixture, public testing::WithParamInterface<SystemCase> {};

TEST_P(SystemCpu, IsAShareOfAllSevenCounters) {
  const SystemCase& row = GetParam();
  if (row.counters != nullptr) put("stat", stat_text(row.counters));
  Ticks total = row.total, part = row.part;
  EXPECT_EQ(row.sampler(total, part), row.percent);
  EXPECT_EQ(total, row.total_after);
  EXPECT_EQ(part, row.part_after);
}
INSTANTIATE_TEST_SUITE_P(
    Stat, SystemCpu,
    testing::Values(
        SystemCase{"SinceStartUp", kBusy, "100 0 100 800 0 0 0 0 0 0", 0, 0, 20, 1000, 800},
        SystemCase{"SevenOfTen", kBusy, "10 10 10 40 10 10 10 500 600 700", 0, 0, 60, 100, 40},
        SystemCase{"IowaitIsBusy", kBusy, "0 0 0 50 50 0 0", 0, 0, 50, 100, 50},
        SystemCase{"Interval", kBusy, "150 0 150 900 0 0 0", 1000, 800, 50, 1200, 900},
        SystemCase{"NoTickPassed", kBusy, "100 0 100 800 0 0 0", 1000, 700, 0, 1000, 700},
        SystemCase{"NoFile", kBusy, nullptr, 1000, 700, 0, 1000, 700},
        SystemCase{"FourCounters", kBusy, "100 0 100 800", 0, 0, 20, 1000, 800},
        SystemCase{"IdleWentBack", kBusy, "300 0 100 799 0 0 0", 1000, 800, 0, 1199, 799},
        SystemCase{"TotalWentBack", kBusy, "1 0 1 8 0 0 0", 1000, 8, 0, 10, 8},
        SystemCase{"IowaitWentBack", kBusy, "0 0 0 1000 0 0 0", 900, 800, 0, 1000, 1000},
        SystemCase{"UserWithoutNice", kUser, "100 200 100 600 0 0 0", 0, 0, 10, 1000, 100},
        SystemCase{"UserInterval", kUser, "150 0 50 900 50 25 25", 1000, 100, 25, 1200, 150},
        SystemCase{"UserNoTickPassed", kUser, "100 0 100 800 0 0 0", 1000, 50, 0, 1000, 50},
        SystemCase{"UserNoFile", kUser, nullptr, 1000, 700, 0, 1000, 700},
        SystemCase{"UserWentBack", kUser, "99 0 101 900 0 0 0", 1000, 100, 0, 1100, 99}),
    [](const auto& row) { return std::string(row.param.name); });

class Counters : public ProcFixture {};

TEST_F(Counters, AreLeftAloneOrZeroWithoutFile) {
  Ticks ticks[7] = {1, 2, 3, 4, 5, 6, 7};
  const auto read_seven = [&ticks] {
    return Plugin::get_sys_cpu_tick(ticks[0], ticks[1], ticks[2], ticks[3], ticks[4], ticks[5],
                                    ticks[6]);
  };
  EXPECT_EQ(read_seven(), -1);
  for (Ticks i = 0; i < 7; ++i) EXPECT_EQ(ticks[i], i + 1);
  EXPECT_EQ(Plugin::get_cpu_total_occupy(), 0U);
  EXPECT_EQ(Plugin::get_cpu_process_occupy(7), 0U);

  put("stat", stat_text("11 12 13 14 15 16 17 18"));
  EXPECT_EQ(read_seven(), 0);
  for (Ticks i = 0; i < 7; ++i) EXPECT_EQ(ticks[i], i + 11);
  EXPECT_EQ(Plugin::get_cpu_total_occupy(), 50U) << "user, nice, system and idle";
  put("stat", "");
  EXPECT_EQ(read_seven(), 0);
  for (const Ticks count : ticks) EXPECT_EQ(count, 0U);

  put_ticks(7, 30, 12);
  EXPECT_EQ(Plugin::get_cpu_process_occupy(7), 42U);
  put("7/stat", "7 (a b) S 1 1 1 0 -1 0 0 0 0 6 30 12 0\n");
  EXPECT_EQ(Plugin::get_cpu_process_occupy(7), 36U) << "a blank in the name moves the items";
  put("7/stat", "7 (x) S 1\n");
  EXPECT_EQ(Plugin::get_cpu_process_occupy(7), 0U);
}

struct ShareCase {
  const char* name;
  const char* machine;  // null: no file
  int process;          // its ticks; -1: no file
  Ticks total, ticks;   // the sample before
  float percent;
  Ticks total_after, ticks_after;
};
class ProcessShare : public ProcFixture, public testing::WithParamInterface<ShareCase> {};

TEST_P(ProcessShare, ReplacesTheSampleOnlyWhenItMeasures) {
  const ShareCase& row = GetParam();
  if (row.machine != nullptr) put("stat", stat_text(row.machine));
  if (row.process >= 0) put_ticks(7, static_cast<Ticks>(row.process), 0);
  Ticks total = row.total, ticks = row.ticks;
  EXPECT_EQ(get_pcpu(7, total, ticks), row.percent);
  EXPECT_EQ(total, row.total_after);
  EXPECT_EQ(ticks, row.ticks_after);
}
INSTANTIATE_TEST_SUITE_P(
    Stat, ProcessShare,
    testing::Values(ShareCase{"Interval", "100 100 200 1000 9 9 9", 90, 1000, 50, 10, 1400, 90},
                    ShareCase{"NewSample", "100 100 200 1000", 70, 0, 0, 5, 1400, 70},
                    ShareCase{"Idle", "100 100 200 1000", 50, 1000, 50, 0, 1400, 50},
                    ShareCase{"NoMachine", nullptr, 90, 1000, 50, 0, 1000, 50},
                    ShareCase{"NoProcess", "100 100 200 1000", -1, 1000, 50, 0, 1000, 50},
                    ShareCase{"NeverRan", "100 100 200 1000", 0, 1000, 50, 0, 1000, 50},
                    ShareCase{"NoTickPassed", "100 100 200 600", 90, 1000, 50, 0, 1000, 50},
                    // A younger process under a reused PID: the next call measures again.
                    ShareCase{"ProcessWentBack", "100 100 200 1000", 49, 1000, 50, 0, 1400, 49},
                    ShareCase{"MachineWentBack", "1 1 1 997", 90, 1400, 50, 0, 1000, 90}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(CoreCount, IsAskedOncePerProcess) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Plugin::get_cpu_core_num(), static_cast<unsigned int>(kCores));
  }
  EXPECT_EQ(get_nprocs_calls(), 1);
}

class Busiest : public ProcFixture {
 protected:
  // PIDs of idle processes that match "many", in the order of the listing.
  std::vector<int> put_many(int count) {
    std::vector<int> pids;
    for (int pid = 1000; pid < 1000 + count; ++pid) {
      pids.push_back(pid);
      put_cmdline(pid, {"many"});
      put_ticks(pid, 10, 0);
    }
    put("stat", stat_text("100 0 100 800"));
    return in_listing_order(pids);
  }
  // What happens while the sampler sleeps: 1000 ticks of the machine, and the rest.
  void during_sleep(const std::function<void()>& rest) {
    hooks_->usleep = [rest](useconds_t) {
      put("stat", stat_text("200 0 200 1600"));
      rest();
    };
  }
  ScopedHooks hooks_;
  int pid_ = -1;
  Plugin plugin_{};
};

TEST_F(Busiest, MayBeAnyAndAProcessMayEndDuringTheSleep) {
  const std::vector<int> order = put_many(4);
  during_sleep([&order] {
    remove(std::to_string(order[0]));
    for (const int i : {1, 2}) put_ticks(order[static_cast<size_t>(i)], 310, 0);
    put_ticks(order[3], 11, 0);
  });
  EXPECT_EQ(plugin_.get_process_cpu_extern("many", &pid_), 30.0F);
  EXPECT_EQ(pid_, order[1]) << "the earlier of equals";
  put_many(4);
  EXPECT_EQ(plugin_.get_process_cpu("m*", 1), 30.0F);
  EXPECT_EQ(plugin_.max_usage_pid, order[2]) << "the later of equals";
}

TEST_F(Busiest, IsSoughtAmongTheFirst128Alone) {
  const std::vector<int> order = put_many(130);
  during_sleep([&order] {
    put_ticks(order[127], 110, 0);
    put_ticks(order[128], 510, 0);
  });
  EXPECT_EQ(plugin_.get_process_cpu_extern("many", &pid_), 10.0F);
  EXPECT_EQ(pid_, order[127]);
}

TEST_F(Busiest, LeavesThePidAloneWhenNoneMatches) {
  plugin_.max_usage_pid = -2;
  EXPECT_EQ(plugin_.get_process_cpu_extern("nobody", &pid_), 0.0F);
  EXPECT_EQ(plugin_.get_process_cpu("nobody*", 1), 0.0F);
  EXPECT_EQ(pid_, -1);
  EXPECT_EQ(plugin_.max_usage_pid, -2);
}

}  // namespace
