// What check-config, run and once say of a configuration that cannot work, or hardly.

#include <sys/resource.h>
#include <sys/stat.h>

#include <list>
#include <memory>
#include <new>

#include "monitor_fixture.h"
#include "proc/spare_memory.h"

namespace {

class ConfigTest : public MonitorTest {
 protected:
  std::string findings_in(const std::string& text) const {
    configure(text);
    return findings();
  }
};

std::string heartbeat(const std::string& process) {
  return instance("x", "ProcessHeartBeat",
                  {{"ProcessName", process}, {"ProcessMoudleId", "60001"}});
}

std::string measuring(const std::string& seconds, const std::string& period = "period = 1000\n") {
  return instance("x", "GetProcessCoreCPUFuzzyMatchCfgPeriod",
                  {{"ProcessName", "*p*"}, {"Period", seconds}}, period);
}

std::string named(const std::string& item, const std::string& name) {
  return instance("x", item, {{"Any", name}});
}

// In tests/mistakes.txt, "---" ends a configuration and what is said of it.
TEST_F(ConfigTest, MistakesAndWarningsAreSaidWithTheirLine) {
  std::ifstream cases(MIRT_SOURCE_DIR "/tests/mistakes.txt");
  int compared = 0;
  std::string text, expected;
  for (std::string line; std::getline(cases, line);) {
    if (line != "---") {
      (line.find("a.toml:") == 0 ? expected : text) += line + '\n';
      continue;
    }
    EXPECT_EQ(findings_in(std::exchange(text, "")), std::exchange(expected, ""));
    ++compared;
  }
  EXPECT_GT(compared, 90);
  const std::string start = "[[process]]\nname = 'p'\n";
  EXPECT_EQ(findings_in(start + "match = '" + std::string(400, 'x') + "'\nrunning = true\n"),
            "a.toml:3: match has 400 bytes, expected at most 399\n");
  EXPECT_EQ(findings_in(start + "prefix = '" + std::string(399, 'x') + "'\nhung = true\n"),
            "a.toml:3: prefix with a * for hung has 400 bytes, expected at most 399\n");
  EXPECT_EQ(findings_in("\n\na = '\xff'\n"),
            "a.toml:3: invalid TOML: found a byte that is not valid UTF-8, expected UTF-8 text\n");
}

TEST_F(ConfigTest, ValuesAtTheirLimitsAreAccepted) {
  const std::string rows[] = {
      heartbeat("supervised-proc"),
      heartbeat("with\\\\backslash1"),  // one byte as the kernel has it, two as it is shown
      measuring("1"),
      measuring("240"),
      pre_command("x", "true", std::string(31, 'x')),
      pre_command("x", "true", ""),
      named("GetProcessMemoryFuzzyMatch", "*"),
      named("IsExistProcess", "postgres: walwriter "),
      instance("x", "RebootAppData", {{"UserData", "4711"}})};
  for (const std::string& text : rows) EXPECT_EQ(check(text, 0, "--strict"), "") << text;
}

TEST_F(ConfigTest, RunGoesOnAfterWarningsUnlessStrict) {
  configure(instance("x", "GetProcessMemory", {{"n", "*"}}) + instance("y", "GetSysMemory"));
  const std::string text =
      "n has a *, which this item compares literally, expected a FuzzyMatch item for patterns\n";
  Monitor lenient(folder_, kRun + "--rounds 1");
  EXPECT_EQ(lenient.records().size(), 2U);
  EXPECT_EQ(lenient.end(0), "a.toml:6: warning: " + text);
  Monitor strict(folder_, kRun + "--rounds 1 --strict");
  EXPECT_EQ(strict.line(), std::nullopt);
  EXPECT_EQ(strict.end(2), "a.toml:6: " + text);
  Monitor checked(folder_, "mirt-monitor check-config a.toml");
  EXPECT_EQ(checked.line(), "a.toml: 2 instances, no mistakes, 1 warning");
  checked.end(0);
}

TEST_F(ConfigTest, OnceRefusesAndWarnsTheSame) {
  Monitor refused(folder_, "mirt-monitor once ProcessHeartBeat supervised-process 60001");
  EXPECT_EQ(refused.line(), std::nullopt);
  EXPECT_TRUE(contains(refused.end(2), "ProcessName has 18 bytes, expected at most 15"));
  Monitor warned(folder_, "mirt-monitor once IsExistProcess '*nobody*'");
  EXPECT_NE(warned.line(), std::nullopt);
  EXPECT_EQ(warned.end(0).find("mirt-monitor: warning: ProcessName has a *"), 0U);
  Monitor often(folder_, "mirt-monitor once GetProcessCoreCPUExtern nobody --every 0.1 --rounds 1");
  EXPECT_NE(often.line(), std::nullopt);
  EXPECT_TRUE(contains(often.end(1), "warning: --every is 0.1, expected more than 0.5 s: each"));
  EXPECT_EQ(check(instance("x", "GetSysCPU"), 0, "--expand"), "");
}

TEST_F(ConfigTest, ConditionsHaveToBePossible) {
  const std::string disk = named("GetDiskUsage", "/"), handles = named("GetProcessHandle", "p"),
                    memory = named("GetProcessMemory", "p"), flag = named("IsExistProcess", "p"),
                    cpu = instance("x", "GetSysCPU"), core = named("GetProcessCoreCPU", "p"),
                    free = instance("x", "GetSysFreeMemory");
  const struct {
    std::string instance, verdict;  // "never", "rarely", "always" or, where it is possible, nothing
    std::vector<std::string> conditions;
  } rows[] = {{cpu, "never", {"above = 100", "below = 0"}},
              {cpu, "", {"above = 99.9", "equals = 0"}},
              {cpu, "always", {"above = -1", "below = 101"}},
              {cpu, "rarely", {"equals = 12.5"}},
              {disk, "", {"above = 100"}},
              {disk, "never", {"above = 101", "equals = 12.5"}},
              {handles, "rarely", {"above = 100"}},
              {core, "rarely", {"above = 1e9"}},
              {memory, "never", {"above = '2 TiB'", "equals = '1536 KiB'"}},
              {memory, "", {"above = '2047 GiB'"}},
              {free, "", {"below = '1.5 GiB'"}},
              {flag, "never", {"below = 0", "above = 1", "equals = 2"}},
              {flag, "", {"above = 0", "equals = 0"}}};
  for (const auto& [measured, verdict, conditions] : rows) {
    const std::string expected = verdict.empty() ? "" : ", which is " + verdict + " true for ";
    for (const std::string& condition : conditions) {
      const std::string found =
          findings_in(std::string(measured).append("[instance.alarm]\n").append(condition));
      EXPECT_EQ(found.empty(), verdict.empty()) << condition << '\n' << found;
      EXPECT_EQ(contains(found, ": warning: "), verdict == "always" || verdict == "rarely");
      EXPECT_TRUE(contains(found, expected)) << condition;
    }
  }
}

TEST_F(ConfigTest, QuantitiesNeedAUnitOfTheirKind) {
  EXPECT_EQ(
      check("deadline = '5 min'\n" + instance("x", "GetSysMemory", {}, "period = '367 d'\n") +
                "[instance.alarm]\nabove = '2 GiB'\n" +
                instance("y", "IsExistProcess", {{"n", "p"}}, "period = '366 d'\n") +
                "[instance.alarm]\nequals = '1 s'\n",
            2),
      R"(a.toml:1: deadline is "5 min", expected a number of seconds, or text with ms, s, m, h or d
a.toml:5: period is "367 d", expected 0.001 to 31622400 seconds
a.toml:8: above is "2 GiB", expected a number of percent, or text with %
a.toml:16: equals is a string, expected a number
)");
}

TEST_F(ConfigTest, WhatMayNeverEndIsReadOnlyWhereItIsMeant) {
  mkfifo((folder_ / "fifo").c_str(), 0600);
  const std::string expected = ", expected a regular file, /dev/stdin or /dev/fd/N\n";
  const std::string check = "mirt-monitor check-config ";
  EXPECT_EQ(Monitor(folder_, check + "fifo").end(2), "fifo: is a named pipe" + expected);
  EXPECT_EQ(Monitor(folder_, check + ".").end(2), ".: is a directory" + expected);
  EXPECT_EQ(Monitor(folder_, check + "/dev/zero").end(2),
            "/dev/zero: is a device or socket" + expected);
  configure(instance("x", "GetSysCPU"));
  const std::string script = "sh -c '(sleep 0.2; cat a.toml) | " + check;
  for (const std::string path : {"/dev/stdin", "/dev/fd/0", "/proc/self/fd/0"}) {
    // The writer is slower than the reader.
    Monitor monitor(folder_, script + path + "'");
    EXPECT_EQ(monitor.line(), path + ": 1 instance, no mistakes");
    monitor.end(0);
  }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they have no reserve
// The reader of TOML would end the program if the rest of the reserve were too small for it.
TEST_F(ConfigTest, IsNotReadWhileLongLivedBlocksFillTheMemorySetAside) {
  configure(std::string(20000, '#') + '\n');
  const auto can_read = [this] {
    try {
      return read_config(folder_ / "a.toml").findings.mistakes.size() == 1;  // no instance
    } catch (const std::bad_alloc&) {
      return false;
    }
  };
  EXPECT_EQ(status_of_child([&] {
              std::list<std::unique_ptr<char[]>> blocks(10);
              if (!set_memory_aside() || !can_read()) return 1;
              rlimit before{};
              getrlimit(RLIMIT_AS, &before);
              const rlimit nothing{0, before.rlim_max};
              setrlimit(RLIMIT_AS, &nothing);
              for (auto& block : blocks)
                block.reset(new (std::nothrow) char[kSpareMemoryBytes / 4]);
              setrlimit(RLIMIT_AS, &before);
              if (!memory_is_short() || can_read()) return 2;
              blocks.clear();
              return !memory_is_short() && can_read() ? 0 : 3;
            }),
            0);
}
#endif

}  // namespace
