// [[process]], [[heartbeat]], [machine] and [alert.NAME]: what they stand for, and their mistakes.
#include "config/config.h"
#include "config/config_text.h"
#include "monitor_fixture.h"

namespace {

class WatchTest : public MonitorTest {
 protected:
  // The configuration written out in full, which says the same of itself.
  std::string expanded(const std::string& text) const {
    configure(text);
    const ConfigReading reading = read_config(folder_ / "a.toml", Warnings::kAreMistakes);
    for (const std::string& line : findings_text("a.toml", reading.findings)) ADD_FAILURE() << line;
    std::string full = config_text(reading.config);
    configure(full);
    const ConfigReading again = read_config(folder_ / "a.toml", Warnings::kAreMistakes);
    for (const std::string& line : findings_text("full", again.findings)) ADD_FAILURE() << line;
    EXPECT_EQ(config_text(again.config), full);
    return full;
  }
};

std::string process(const std::string& keys) {
  return "[[process]]\nname = 'p'\nprefix = '/bin/p'\n" + keys;
}

TEST_F(WatchTest, WatchesStandForInstances) {
  // Of an instance, up to its first condition.
  const auto of_db = [](const std::string& measure, const std::string& item,
                        const std::string& pattern = "/opt/db ") {
    return "\n[[instance]]\nname = \"db." + measure + "\"\nitem = \"" + item +
           "\"\nperiod = 5\ndeadline = 20\nparams = [{ name = \"ProcessName\", value = \"" +
           pattern + "\" }]\n[[instance.alarm]]\n";
  };
  EXPECT_EQ(expanded(R"(
deadline = "20 s"
state = "/var/lib/m/state"
workers = 7
[status]
socket = "/run/m.socket"
[http]
listen = "[::]:9757"
expose = "page"
[recovery]
redundancy = "command"
command = "exit 1"
spare = ["frozen"]
[[process]]
name = "db"
prefix = "/opt/db "
running = true
memory = { above = "2 GiB", for = "1m", clear = "1.8 GiB" }
cpu = { above = "80 %", of = "core", for = 3, clear_for = "90 s", alert = [] }
handles = [{ above = 70, severity = "warning" }, { above = 90, on = ["failed"], alert = "b" }]
hung = { severity = "warning" }
alert = ["b", "a"]
[[heartbeat]]
name = "writer"
process = "sup"
module = 60001
every = "250 ms"
deadline = 10
on = ["unjudged"]
for = 2
severity = "warning"
[machine]
every = "1m"
deadline = 10
cpu = true
[machine.disk]
"/ü \"x" = { below = "1 %", alert = ["a"] }
[alert.b]
webhook = "http://[::1]:8080/x?y"
repeat = "4h"
[alert.a]
command = ["true", "a\tb"]
timeout = 5
report = { item = "SendErrRptExtend", params = [{ name = "ErrCode", value = "7" }] }
)"),
            R"(state = "/var/lib/m/state"
workers = 7

[status]
socket = "/run/m.socket"

[http]
listen = "[::]:9757"
expose = ["page"]

[recovery]
redundancy = "command"
command = "exit 1"
at_most = 1
per = 600
spare = ["frozen"]

[alert.a]
command = ["true", "a\u0009b"]
timeout = 5
report = { item = "SendErrRptExtend", params = [{ name = "ErrCode", value = "7" }] }

[alert.b]
webhook = "http://[::1]:8080/x?y"
repeat = 14400
)" + of_db("running", "IsExistProcessExtern") +
                R"(equals = 0
alert = ["b", "a"]
[[instance.alarm]]
on = ["failed", "blind", "unjudged"]
for = 3
alert = ["b", "a"]
)" + of_db("memory", "GetProcessMemoryExtern") +
                R"(above = 2048
clear = 1843.2
for = "60 s"
alert = ["b", "a"]
)" + of_db("cpu", "GetProcessCoreCPUExtern") +
                R"(above = 80
for = 3
clear_for = "90 s"
)" + of_db("handles", "GetProcessHandleExtern") +
                R"(above = 70
severity = "warning"
alert = ["b", "a"]
[[instance.alarm]]
above = 90
on = ["failed"]
alert = ["b"]
)" + of_db("hung", "CheckProcessStatusIsD", "/opt/db *") +
                R"(equals = 1
severity = "warning"
alert = ["b", "a"]

[[instance]]
name = "writer"
item = "ProcessHeartBeat"
period = 0.25
params = [{ name = "ProcessName", value = "sup" }, { name = "ProcessMoudleId", value = "60001" }]
[[instance.alarm]]
equals = 0
on = ["unjudged"]
for = 2
severity = "warning"

[[instance]]
name = "machine.cpu"
item = "GetSysCPU"
period = 60

[[instance]]
name = "machine.disk:/ü \"x"
item = "GetDiskUsage"
period = 60
params = [{ name = "Directory", value = "/ü \"x" }]
[[instance.alarm]]
below = 1
alert = ["a"]
)");
  const std::string allow = "[recovery]\nredundancy = \"allow\"\n";
  EXPECT_EQ(expanded(allow + process("running = true\n")).find("\n" + allow), 0U);
}

TEST_F(WatchTest, TheItemIsThatOfTheWayToFindTheProcess) {
  const std::string measures =
      "running = true\nmemory = true\ncpu = true\nhandles = true\nhung = true\n";
  const std::pair<std::string, std::string> rows[] = {
      {"exact = 'x y'", "IsExistProcess GetProcessMemory GetProcessSysCPU GetProcessHandle x y"},
      {"prefix = 'x y'",
       "IsExistProcessExtern GetProcessMemoryExtern GetProcessSysCPUExtern GetProcessHandleExtern "
       "x y*"},
      {"match = '*x y?'",
       "GetProcessMemoryFuzzyMatch GetProcessMemoryFuzzyMatch GetProcessSysCPUFuzzyMatch "
       "GetProcessHandleFuzzyMatch *x y?"}};
  for (const auto& [target, expected] : rows) {
    configure(
        std::string("[[process]]\nname = 'p'\n").append(target).append("\n").append(measures));
    const std::vector<Instance> instances = read_config(folder_ / "a.toml").config.instances;
    ASSERT_EQ(instances.size(), 5U) << target;
    std::string found;
    for (size_t i = 0; i < 4; ++i) found += instances[i].item->name + std::string(" ");
    EXPECT_EQ(found + instances[4].params.front().value, expected);
  }
}

TEST_F(WatchTest, AWildcardThatMatchesNothingRaisesTheAlarmOfRunning) {
  Monitor monitor = started(
      "every = '20 ms'\n[[process]]\nname = 'w'\nmatch = '/no/such/*'\nrunning = true\n"
      "[[process]]\nname = 'p'\nprefix = '/no/such/'\nrunning = { severity = 'warning' }\n",
      "--rounds 2");
  std::vector<std::string> raised;
  for (const Json& record : monitor.records()) {
    if (record["kind"] == "alarm") raised.push_back(record["instance"]);
  }
  monitor.end(0);
  std::sort(raised.begin(), raised.end());
  EXPECT_EQ(raised, (std::vector<std::string>{"p.running", "w.running"}));
}

TEST_F(WatchTest, MistakesInWatchesSayWhatWasFoundAndExpected) {
  const std::pair<std::string, std::string> rows[] = {
      {"every = '5 min'\n" + process("running = true\n"),
       "1: every is \"5 min\", expected a number of seconds, or text with ms, s, m, h or d"},
      {"[[process]]\nname = 'p'\nrunning = true\n",
       "1: no process in [[process]], expected one of exact, prefix, match"},
      {"[[process]]\nname = 'p'\nexact = 'a'\nmatch = 'b'\nrunning = true\n",
       "1: exact and match in [[process]], expected one of exact, prefix, match"},
      {"[[process]]\nexact = 'a'\nrunning = true\n",
       "1: no key \"name\" in [[process]], expected a string"},
      {"[[process]]\nname = 'p'\nexact = ''\nrunning = true\n",
       "3: exact is empty, expected a command line: no process matches an empty one"},
      {"[[process]]\nname = 'p'\nmatch = '" + std::string(400, 'x') + "'\nrunning = true\n",
       "3: match has 400 bytes, expected at most 399"},
      {"[[process]]\nname = 'p'\nprefix = '" + std::string(399, 'x') + "'\nhung = true\n",
       "3: prefix with a * for hung has 400 bytes, expected at most 399"},
      {process(""),
       "1: nothing to watch in [[process]], expected at least one of running, memory, cpu, "
       "handles, hung"},
      {process("runing = true\nmemory = true\n"),
       "4: unknown key \"runing\" in [[process]], did you mean \"running\"?"},
      {process("running = false\n"),
       "4: running is false, expected true or a table such as { for = ... }"},
      {process("running = { above = 1 }\n"),
       "4: unknown key \"above\" in running of [[process]], expected one of alert, clear_for, for, "
       "report, severity"},
      {process("memory = '2 GiB'\n"),
       "4: memory is a string, expected true, a table such as { above = ... }, or several of them "
       "in [ ]"},
      {process("memory = []\n"),
       "4: memory is an array, expected true, a table such as { above = ... }, or several of them "
       "in [ ]"},
      {process("memory = { above = '80 %' }\n"),
       "4: above is \"80 %\", expected a number of MiB, or text with KiB, MiB, GiB or TiB"},
      {process("memory = { for = '1m' }\n"),
       "4: no condition in memory of [[process]], expected one of above, below, equals, or on"},
      {process("memory = { above = 5, of = 'core' }\n"),
       "4: unknown key \"of\" in memory of [[process]], expected one of above, alert, below, "
       "clear, clear_for, equals, for, on, report, severity"},
      {process("cpu = { above = 5, of = 'cores' }\n"),
       "4: of is \"cores\", expected \"machine\" or \"core\""},
      {process("cpu = [\n{ above = 5, of = 'core' },\n{ above = 6, of = 'machine' }]\n"),
       "6: of is \"machine\", expected \"core\" as in the table before it"},
      {process("cpu = { above = 1000 }\n"),
       "4: above is 1000, which is never true for GetProcessSysCPUExtern, expected a bound for "
       "values from 0 to 100 %"},
      {process("handles = { above = 5, severity = 'fatal' }\n"),
       "4: severity is \"fatal\", expected \"warning\" or \"critical\""},
      {process("running = true\n") + process("running = true\n") + process("running = true\n"),
       "6: name \"p\" is already used in line 2, expected another name\n"
       "a.toml:10: name \"p\" is already used in line 2, expected another name"},
      {process("running = true\n") + instance("p.running", "GetSysCPU"),
       "6: name \"p.running\" is already used in line 4, expected another name"},
      {"process = [true]\n[machine]\ncpu = true\n",
       "1: process is a boolean, expected a table [[process]]"},
      {"[[heartbeat]]\nname = 'h'\nprocess = 'a b'\nmodule = 1\n",
       "3: process has a blank, expected \"a\": the item compares the name up to its first blank"},
      {"[[heartbeat]]\nname = 'h'\nprocess = 'a'\nmodule = 65535\n",
       "4: module is 65535, expected a whole number from 0 to 65534"},
      {"[[heartbeat]]\nname = 'h'\nprocess = 'a'\nmodule = 1\non = ['dead']\n",
       "5: on has \"dead\", expected an array of \"failed\", \"blind\", \"unjudged\", \"absent\""},
      {"[machine]\n",
       "1: nothing to watch in [machine], expected at least one of cpu, user_cpu, memory, "
       "free_memory, disk"},
      {"[machine]\ncpu = { above = 5, of = 'core' }\n",
       "2: unknown key \"of\" in cpu of [machine], expected one of above, alert, below, clear, "
       "clear_for, equals, for, on, report, severity"},
      {"[machine.disk]\nvar = true\n", "2: disk is of \"var\", expected an absolute path"},
      {"[machine]\ndisk = {}\n", "2: no directory in disk, expected at least one such as \"/\""},
      {"running = true\n[machine]\ncpu = true\n",
       "1: unknown key \"running\" in the file, expected it in [[process]]"},
      {"state = 'x/y'\n[machine]\ncpu = true\n",
       "1: state is \"x/y\", expected the absolute path of a file"}};
  for (const auto& [text, expected] : rows) EXPECT_EQ(check(text, 2), "a.toml:" + expected + '\n');
}

TEST_F(WatchTest, MistakesInAlarmsAndAlertsSayWhatWasFoundAndExpected) {
  const std::string cpu = instance("x", "GetSysCPU") + "[instance.alarm]\n";
  const std::string use = cpu + "above = 5\nalert = ['ops']\n[alert.ops]\n";
  const std::pair<std::string, std::string> rows[] = {
      {cpu + "above = 5\nfor = 1.5\n",
       "9: for is a floating-point number, expected a number of calls, or text with ms, s, m, h "
       "or d"},
      {cpu + "above = 5\nfor = '3'\n",
       "9: for is \"3\", expected a number of seconds, or text with ms, s, m, h or d"},
      {cpu + "above = 5\nclear_for = '367 d'\n",
       "9: clear_for is \"367 d\", expected 0.001 to 31622400 seconds"},
      {cpu + "above = 5\nclear = 6\n", "9: clear is 6, expected at most the 5 of above"},
      {cpu + "below = 5\nclear = 4\n", "9: clear is 4, expected at least the 5 of below"},
      {cpu + "above = 5\nclear = '-1 %'\n",
       "9: clear is -1, which is always true for GetSysCPU, expected a bound for values from 0 to "
       "100 %: the alarm would never be cleared"},
      {cpu + "equals = 5\nclear = 4\n",
       "9: clear without above or below, expected it only beside one of them"},
      {cpu + "above = 5\nalert = 7\n",
       "9: alert is an integer, expected the names of tables [alert.NAME]"},
      {cpu + "above = 5\nalert = ['ops', 7]\n[alert.ops]\ncommand = ['true']\n",
       "9: alert has an element that is an integer, expected the names of tables [alert.NAME]"},
      {cpu + "above = 5\nalert = ['ops']\n",
       "9: unknown alert \"ops\", expected the name of a table [alert.NAME]"},
      {cpu + "above = 5\nalert = 'opss'\n[alert.ops]\ncommand = ['true']\n",
       "9: unknown alert \"opss\", did you mean \"ops\"?"},
      {use, "10: nothing to do in [alert.ops], expected at least one of command, webhook, report"},
      {use + "command = 'page me'\n",
       "11: command is a string, expected an array of text: the program and its arguments"},
      {use + "command = []\n",
       "11: command is empty, expected an array of text: the program and its arguments"},
      {use + "command = ['./page']\n",
       "11: command begins with \"./page\", expected an absolute path, or the name of a program in "
       "one of /usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"},
      {use + "webhook = 'https://example.org'\n",
       "11: webhook is \"https://example.org\", expected http://HOST[:PORT][/PATH] without a user "
       "and without blanks"},
      {use + "command = ['true']\ntimeout = '30 x'\n",
       "12: timeout is \"30 x\", expected a number of seconds, or text with ms, s, m, h or d"},
      {use + "report = { item = 'GetSysCPU' }\n",
       "11: item GetSysCPU sends no report, expected SendErrRpt or SendErrRptExtend"},
      {"alert.ops = 'page'\n" + instance("x", "GetSysCPU"),
       "1: alert.ops is a string, expected a table [alert.ops]"}};
  for (const auto& [text, expected] : rows) EXPECT_EQ(check(text, 2), "a.toml:" + expected + '\n');
}

TEST_F(WatchTest, WhatHardlyWorksIsWarnedOf) {
  const std::pair<std::string, std::string> rows[] = {
      {"[[process]]\nname = 'p'\nexact = '*p*'\nmemory = true\n",
       "3: warning: exact has a *, which is compared literally, expected match = \"*p*\" for a "
       "pattern"},
      {process("every = 0.5\ncpu = true\n"),
       "4: warning: every is 0.5, expected more than 0.5 s: each call of "
       "GetProcessSysCPUExtern measures for that long"},
      {"[[process]]\nname = 'p'\nexact = 'a?b'\nhung = true\n",
       "4: warning: hung uses exact as a pattern, in which ? matches any text, expected "
       "exact without * and ?"},
      {"[machine]\ncpu = true\n[alert.x]\ncommand = ['no-such-program']\n",
       "4: warning: command begins with \"no-such-program\", which is searched in "
       "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin: No such file or directory, "
       "expected a program that can be started"},
      {"[machine]\ncpu = true\n[alert.x]\ncommand = ['/tmp']\n",
       "4: warning: command begins with \"/tmp\": Permission denied, expected a program that can "
       "be started"}};
  for (const auto& [text, expected] : rows) EXPECT_EQ(check(text, 0), "a.toml:" + expected + '\n');
}

}  // namespace
