// What check-config, run and once say of a configuration that cannot work, or hardly.

#include <sys/stat.h>

#include <regex>

#include "monitor_fixture.h"

namespace {

using ConfigTest = MonitorTest;

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

TEST_F(ConfigTest, ValuesThatNoCallCanUseAreMistakes) {
  const std::pair<std::string, std::string> rows[] = {
      {heartbeat("supervised-process"),
       "ProcessName has 18 bytes, expected at most 15: the kernel cuts the name to "
       "\"supervised-proc\""},
      {heartbeat("super vised"),
       "ProcessName has a blank, expected \"super\": the item compares the name up to its first "
       "blank"},
      {heartbeat(""), "ProcessName is empty, expected the short name of a process"},
      {measuring("0"), "Period is \"0\", expected a whole number from 1 to 240, decimal"},
      {measuring("241"), "Period is \"241\", expected a whole number from 1 to 240, decimal"},
      {measuring("1.5"), "Period is \"1.5\", expected a whole number from 1 to 240, decimal"},
      {pre_command("x", "true", std::string(32, 'x')),
       "RetKeyWords has 32 bytes, expected at most 31: the item reads no more"},
      {named("IsExistProcess", ""),
       "Any is empty, expected a command line: no process matches an empty one"},
      {named("GetProcessMemoryFuzzyMatch", ""),
       "Any is empty, expected a pattern: nothing matches an empty one"},
      {named("GetDiskUsage", ""), "Any is empty, expected a directory"},
      {"[http]\nlisten = 'localhost:80'\n" + heartbeat("x"),
       "listen is \"localhost:80\", expected an IP address and a port, such as \"127.0.0.1:9757\" "
       "or \"[::1]:9757\""},
      {"[http]\nlisten = '[::1]:0'\n" + heartbeat("x"),
       "listen is \"[::1]:0\", expected an IP address and a port, such as \"127.0.0.1:9757\" "
       "or \"[::1]:9757\""},
      {"[http]\nlisten = '0.0.0.0:80'\nexpose = ['pages']\n" + heartbeat("x"),
       "expose has \"pages\", expected an array of \"page\""},
      {"listen = '0.0.0.0:80'\n" + heartbeat("x"),
       "unknown key \"listen\" in the file, expected it in [http]"},
      {named("GetProcessMemoryFuzzyMatch", "a\n*b"),
       "Any has more text after a line break, expected one line: no command line can match it"},
      {instance("x", "RebootAppData", {{"UserData", "{pid}"}}),
       "UserData is \"{pid}\", expected a whole number from 1 to 2147483647, decimal"}};
  for (const auto& [text, expected] : rows) {
    const std::string errors = check(text, 2);
    EXPECT_TRUE(std::regex_match(errors, std::regex("a\\.toml:\\d+: [^\\n]*\\n"))) << errors;
    EXPECT_TRUE(contains(errors, ": " + expected + '\n'));
  }
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

TEST_F(ConfigTest, WhatHardlyWorksIsWarnedOf) {
  const std::pair<std::string, std::string> rows[] = {
      {named("GetProcessMemoryExtern", ""),
       "Any is empty, expected the beginning of a command line: every process matches an empty "
       "one"},
      {named("GetProcessMemory", "*app*"),
       "Any has a *, which this item compares literally, expected a FuzzyMatch item for patterns"},
      {named("GetProcessMemory", "app\n"),
       "Any ends with a line break, expected none: command lines rarely have one"},
      {"[http]\nlisten = '127.0.0.1:80'\nexpose = ['page']\n" + heartbeat("x"),
       "expose has no effect: 127.0.0.1:80 can be reached from this machine only"},
      {pre_command("x", "", "x"), "PreCmd is empty, expected a shell command"},
      {instance("x", "GetProcessCoreCPUExtern", {{"n", "p"}}, "period = '100 ms'\n"),
       "period is 0.1, expected more than 0.5 s: each call of GetProcessCoreCPUExtern measures for "
       "that long"},
      {measuring("7", "period = 7\n"),
       "period is 7, expected more than 7 s: each call of GetProcessCoreCPUFuzzyMatchCfgPeriod "
       "measures for that long"},
      {"[recovery]\nredundancy = 'command'\ncommand = 'true'\n" +
           instance("x", "RebootAppData", {}, "period = 60\n"),
       "deadline is 10, expected more than 30 s: the item waits that long for the command of "
       "[recovery]"}};
  for (const auto& [text, expected] : rows) {
    const std::string warning = check(text, 0);
    EXPECT_TRUE(std::regex_match(warning, std::regex("a\\.toml:\\d+: warning: [^\\n]*\\n")));
    EXPECT_TRUE(contains(warning, ": warning: " + expected + '\n'));
  }
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
          check(std::string(measured).append("[instance.alarm]\n").append(condition),
                verdict == "never" ? 2 : 0);
      EXPECT_EQ(found.empty(), verdict.empty()) << condition << '\n' << found;
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

TEST_F(ConfigTest, SlipsInTomlAreSaidInItsWords) {
  const std::pair<std::string, std::string> rows[] = {
      {"\nname = 'abc\nb = 1\n",
       "2: a quoted text does not end in this line, expected the closing quote"},
      {"\nname = \"\"\"abc\n\n\n", "2: a quoted text does not end, expected the closing quotes"},
      {"period = 10s\n",
       "1: found 10s without quotes, expected text in quotes (\"10s\"), a number, true or false"},
      {"item = \u201cGetSysCPU\u201d\n",
       "1: found \u201cGetSysCPU\u201d in curly quotes, expected straight quotes (\")"},
      {"period = 10 s\n",
       "1: found s, expected the end of the line (put text in quotes; a comment begins with #)"},
      {"// a comment\n",
       "1: found // a comment, expected KEY = VALUE, a table header in [ ] or a comment that "
       "begins with #"},
      {"period: 10 \n", "1: no = after the key in period: 10, expected KEY = VALUE"},
      {"period =\n", "1: no value after =, expected one on the same line"},
      {"a = [1,\n2\n[[instance]]\n",
       "3: found [[instance]] inside [ ], expected a comma or the closing ]"},
      {"a = [1,\n2,\n[[instance]]\n",
       "3: found [[instance]] inside [ ], expected the closing ] before it"},
      {"a = [{ b = 1,\nc = 2 }]\n",
       "1: the line ends inside { }, expected the closing } in the same line"},
      {"a = [{ b = 1 c = 2 }]\n",
       "1: found c = 2 }] inside { }, expected a comma or the closing }"},
      {"a = 1\n\na = 2\n",
       "3: found a = 2, but this name already has a value, expected each name once"},
      {"a = \"\\d\"\n",
       "1: unknown escape after a backslash in double quotes, expected \\\\ or single quotes"},
      {"[instance.alarm]\nabove = 1\n[[instance]]\n",
       "3: found [[instance]] after a table inside it, expected [[instance]] first"},
      {"\n\na = '\xff'\n", "3: found a byte that is not valid UTF-8, expected UTF-8 text"},
      {"a = 1979-13-01\n", "1: date: expected month between 1 and 12 (inclusive), saw 13"}};
  for (const auto& [text, expected] : rows) {
    std::string line = "a.toml:" + expected + '\n';
    EXPECT_EQ(check(text, 2), line.insert(line.find(' '), " invalid TOML:"));
  }
  EXPECT_EQ(
      check(instance("x", "GetSysCPU") + "[alarm]\nabove = 1\n", 2),
      "a.toml:7: unknown key \"alarm\" in the file, expected it as [instance.alarm] after its "
      "[[instance]]\n");
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

}  // namespace
