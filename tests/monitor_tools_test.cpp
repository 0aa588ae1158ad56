// The commands over all processes: ps, find and kill, beside the machine's own ps.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <list>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "child.h"
#include "monitor_fixture.h"

namespace {

std::string run(const std::string& command) {
  FILE* const pipe = popen(command.c_str(), "re");
  std::string output;
  for (int byte; (byte = getc(pipe)) != EOF;) output += static_cast<char>(byte);
  pclose(pipe);
  return output;
}

// What a command of mirt-monitor writes, its exit code behind that.
std::string monitor(const std::string& arguments) {
  return run(MIRT_MONITOR_PATH " " + arguments + " 2>/dev/null; echo exit $?");
}

// The rows that such a command writes as JSON.
std::vector<nlohmann::json> rows_of(const std::string& arguments) {
  std::istringstream lines(run(MIRT_MONITOR_PATH " " + arguments + " --json"));
  std::vector<nlohmann::json> rows;
  for (std::string line; std::getline(lines, line);) rows.push_back(nlohmann::json::parse(line));
  return rows;
}

// By PID: the memory in whole MiB, then the command line.
std::map<pid_t, std::string> by_system_ps() {
  std::map<pid_t, std::string> processes;
  std::istringstream lines(run("ps -ww --no-headers -eo pid,rss,args"));
  int rss_kb = 0;
  for (pid_t pid = 0; lines >> pid >> rss_kb;) {
    std::string arguments;
    std::getline(lines, arguments);
    processes[pid] = std::to_string(rss_kb / 1024) + arguments;
  }
  return processes;
}

TEST(MonitorPs, AgreesWithTheSystemsPsOnWhatLivesThroughBoth) {
  const Child child({"mirt tools test", "-u"});
  const auto before = by_system_ps();
  const auto rows = rows_of("ps");
  const auto after = by_system_ps();
  std::map<pid_t, std::string> ours;
  for (const auto& row : rows) {
    ours[row["pid"]] = row["rss_mib"].dump() + ' ' + row["cmdline"].get<std::string>();
  }
  EXPECT_TRUE(contains(ours[child.pid()], " mirt tools test -u"));
  for (const auto& [pid, process] : before) {
    const auto still = after.find(pid);
    if (still == after.end() || still->second != process) continue;  // changed meanwhile
    if (process.find(" [") != std::string::npos) continue;           // has no command line
    if (process.find('?') != std::string::npos) continue;            // holds what ps does not print
    if (process.size() > 1000 || process.find("  ") != std::string::npos) continue;
    EXPECT_EQ(ours[pid], process) << pid;
  }
}

TEST(MonitorPs, MatchesSortsAndLetsNoEscapeReachTheTerminal) {
  const Child first({"mirt tools first", "-u"}), second({"mirt tools\033second", "-u"});
  const std::string matched = monitor("ps --match 'mirt tools*' --sort pid");
  const size_t at_first = matched.find("mirt tools first -u");
  const size_t at_second = matched.find("mirt tools?second -u");
  EXPECT_EQ(at_first < at_second, first.pid() < second.pid()) << matched;
  EXPECT_LT(std::max(at_first, at_second), matched.size()) << matched;
  std::istringstream narrow(
      run("script --quiet --return --command \"stty cols 40; " MIRT_MONITOR_PATH
          " ps --match '*mirt tools?second*' --sort pid\" /dev/null"));
  size_t longest = 0;
  for (std::string line; std::getline(narrow, line);) longest = std::max(longest, line.size());
  EXPECT_EQ(longest, 41U) << "40 columns and a carriage return";
  EXPECT_EQ(monitor("ps --sort cpu") + monitor("ps --sort cpu --json"), "exit 2\nexit 2\n");
  for (const std::string key : {"pid", "rss"}) {
    std::vector<long> values;
    for (const auto& row : rows_of("ps --sort " + key)) {
      values.push_back(key == "pid" ? row["pid"].get<long>() : -row["rss_mib"].get<long>());
    }
    EXPECT_GT(values.size(), 2U);
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end())) << key;
  }
}

TEST(MonitorFindAndKill, HaveExitCodesForScripts) {
  const Child child({"mirt tools find", "-u"});
  const std::string pid = std::to_string(child.pid()), found = pid + "\nexit 0\n";
  EXPECT_EQ(monitor("find exact 'mirt tools find -u'"), found);
  EXPECT_EQ(monitor("find prefix 'mirt tools fi'"), found);
  EXPECT_EQ(monitor("find wildcard 'mirt*f?nd -u'"), found);
  EXPECT_EQ(monitor("find exact 'mirt tools find'"), "exit 1\n");
  setenv("PATTERN", "*mirt nobody*", 1);
  EXPECT_EQ(monitor("find wildcard \"$PATTERN\""), "exit 1\n") << "though it finds its own command";
  EXPECT_EQ(monitor("kill cat 0"), "exit 2\n");
  EXPECT_TRUE(contains(monitor("kill nobody " + pid), "exit 1\n"));
  EXPECT_EQ(kill(child.pid(), 0), 0);
  EXPECT_TRUE(contains(monitor("kill cat " + pid), "exit 0\n"));
  siginfo_t end{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child.pid()), &end, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(end.si_status, SIGKILL);
}

TEST(MonitorMatch, ShowsWhatAWatchMeansAsItIsCompared) {
  const Child plain({"mirt match\033one", "-u"}), other({"mirt match two", "-u"});
  const Child longer({"mirt match " + std::string(2000, 'x'), "-u"});
  std::map<pid_t, nlohmann::json> found;
  for (const auto& row : rows_of("match prefix 'mirt match'")) found[row["pid"]] = row;
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[plain.pid()]["cmdline"], "mirt match\033one -u");
  EXPECT_EQ(found[plain.pid()]["cut"], false);
  EXPECT_EQ(found[longer.pid()]["cmdline"].get<std::string>().size(), 1022U);
  EXPECT_EQ(found[longer.pid()]["bytes"], 2014);
  EXPECT_EQ(found[longer.pid()]["cut"], true);
  const std::string started =
      run("date -d \"$(ps -o lstart= " + std::to_string(plain.pid()) + ")\" +%Y-%m-%dT%H:%M");
  EXPECT_EQ(found[plain.pid()]["started"].get<std::string>().substr(0, 13), started.substr(0, 13));
  const std::string people = monitor("match wildcard 'mirt match*'");
  EXPECT_TRUE(contains(people, "  mirt match?one -u\n"));
  EXPECT_TRUE(contains(people, "x  [only the first 1022 of 2014 bytes are compared]\n"));
  EXPECT_EQ(monitor("match exact 'mirt match'"), "exit 1\n");
}

TEST(MonitorItems, HaveUnitsParametersAndWhatTheyReportAndNeed) {
  const std::string items = monitor("items");
  for (
      const char* text :
      {"\nGetDiskUsage                         [%]  used share",
       "\n    Directory (or any other name): a directory of the file system\n    needs a context\n",
       "\n    reports a pid, takes 0.5 s, needs a context\n",
       "\n    reports a flow id, needs a context\nSendErrRpt                           [-]  sends",
       "\n    ProcessName (optional): process whose heartbeat was lost; the third code needs it\n",
       "\n    and any others\n    needs no context\nCheckProcessStatusIsD                [-]  1 if",
       "\n    reports a thread id, needs a context\n"}) {
    EXPECT_TRUE(contains(items, text)) << text;
  }
}

TEST(MonitorInit, WritesAConfigurationThatIsRightAlsoWithItsCommentsTakenAway) {
  const Child odd({"mirt init\n\"[[x]]\\ \xff", "-u"});
  const std::string checked =
      " > init.toml && " MIRT_MONITOR_PATH " check-config --strict init.toml 2>&1";
  const std::string folder = run("mktemp -d | tr -d '\\n'");
  const std::string init = "cd " + folder + " && " MIRT_MONITOR_PATH " init";
  EXPECT_TRUE(contains(run(init + checked), "no mistakes\n"));
  const std::string uncommented = " | sed -E 's/^# (\\[|[a-z]+ = )/\\1/'";
  const std::string all = run(init + uncommented + checked);
  EXPECT_TRUE(contains(all, "no mistakes\n"));
  const std::string text = run(init);
  EXPECT_TRUE(contains(text, "\n[machine.disk]\n\"/\" = { above = \"90 %\" }\n"));
  EXPECT_TRUE(contains(text, "\n# [[process]]"));
  std::list<Child> many;
  for (char letter = 'a'; letter <= 'k'; ++letter)
    many.emplace_back(std::vector<std::string>{{letter}, "-u"});
  EXPECT_EQ(run(init + " | grep -c '^# ..process'"), "10\n") << "the largest ones";
  run("rm -r " + folder);
}

}  // namespace
