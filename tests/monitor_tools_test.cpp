// The commands over all processes: ps, find and kill, beside the machine's own ps.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "child.h"

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
  std::istringstream lines(run(MIRT_MONITOR_PATH " ps --json"));
  const auto after = by_system_ps();
  std::map<pid_t, std::string> ours;
  for (std::string line; std::getline(lines, line);) {
    const auto row = nlohmann::json::parse(line);
    ours[row["pid"]] = row["rss_mib"].dump() + ' ' + row["cmdline"].get<std::string>();
  }
  EXPECT_NE(ours[child.pid()].find(" mirt tools test -u"), std::string::npos);
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
  EXPECT_EQ(monitor("ps --sort cpu"), "exit 2\n");
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
  EXPECT_NE(monitor("kill nobody " + pid).find("exit 1\n"), std::string::npos);
  EXPECT_EQ(kill(child.pid(), 0), 0);
  EXPECT_NE(monitor("kill cat " + pid).find("exit 0\n"), std::string::npos);
  siginfo_t end{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child.pid()), &end, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(end.si_status, SIGKILL);
}

}  // namespace
