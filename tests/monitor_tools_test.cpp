// The commands over all processes: ps, find and kill, beside the machine's own ps.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "child.h"

namespace {

using Json = nlohmann::json;

struct Outcome {
  int exit_code;
  std::string output;
};

Outcome run(const std::string& command) {
  FILE* const pipe = popen((command + " 2>&1").c_str(), "re");
  Outcome outcome{-1, ""};
  if (pipe == nullptr) return outcome;
  char piece[4096];
  for (size_t got; (got = fread(piece, 1, sizeof piece, pipe)) > 0;) {
    outcome.output.append(piece, got);
  }
  const int status = pclose(pipe);
  if (WIFEXITED(status)) outcome.exit_code = WEXITSTATUS(status);
  return outcome;
}

Outcome monitor(const std::string& arguments) {
  return run(MIRT_MONITOR_PATH " " + arguments);
}

struct Process {
  int rss_mib;
  std::string cmdline;
  bool operator==(const Process& other) const {
    return rss_mib == other.rss_mib && cmdline == other.cmdline;
  }
};

std::map<pid_t, Process> by_system_ps() {
  std::map<pid_t, Process> processes;
  std::istringstream lines(run("ps -ww --no-headers -eo pid,rss,args").output);
  for (std::string line; std::getline(lines, line);) {
    pid_t pid = 0;
    int rss_kb = 0, begin = 0;
    // ps puts one blank between the columns; what follows is the command line's own.
    if (sscanf(line.c_str(), "%d %d%n", &pid, &rss_kb, &begin) != 2) continue;
    processes[pid] = {rss_kb / 1024, line.substr(static_cast<size_t>(begin) + 1)};
  }
  return processes;
}

TEST(MonitorPs, AgreesWithTheSystemsPsOnWhatLivesThroughBoth) {
  const Child child({"mirt tools test", "-u"});
  const auto before = by_system_ps();
  const Outcome listed = monitor("ps --json");
  const auto after = by_system_ps();
  ASSERT_EQ(listed.exit_code, 0);

  std::map<pid_t, Process> ours;
  std::istringstream lines(listed.output);
  for (std::string line; std::getline(lines, line);) {
    const Json row = Json::parse(line);
    ours[row["pid"].get<pid_t>()] = {row["rss_mib"].get<int>(), row["cmdline"].get<std::string>()};
  }
  EXPECT_EQ(ours[child.pid()].cmdline, "mirt tools test -u");
  for (const auto& [pid, process] : before) {
    const auto still = after.find(pid);
    if (still == after.end() || !(still->second == process)) continue;  // changed meanwhile
    if (process.cmdline.front() == '[') continue;                       // has no command line
    if (process.cmdline.size() > 1000 || process.cmdline.find("  ") != std::string::npos) continue;
    ASSERT_EQ(ours.count(pid), 1U) << process.cmdline;
    EXPECT_EQ(ours[pid].cmdline, process.cmdline);
    EXPECT_EQ(ours[pid].rss_mib, process.rss_mib) << process.cmdline;
  }
}

TEST(MonitorPs, MatchesSortsAndRefusesWhatItCannotSortBy) {
  const Child first({"mirt tools first", "-u"}), second({"mirt tools\033second", "-u"});
  const Outcome matched = monitor("ps --match 'mirt tools*' --sort pid");
  EXPECT_EQ(matched.exit_code, 0);
  const size_t at_first = matched.output.find("mirt tools first -u");
  // An escape in a name must not reach the terminal.
  const size_t at_second = matched.output.find("mirt tools?second -u");
  EXPECT_NE(at_first, std::string::npos) << matched.output;
  EXPECT_NE(at_second, std::string::npos) << matched.output;
  EXPECT_EQ(at_first < at_second, first.pid() < second.pid());
  EXPECT_EQ(monitor("ps --sort cpu").exit_code, 2);
  EXPECT_EQ(monitor("ps --sort name").exit_code, 2);
}

TEST(MonitorFind, FindsInThreeModesWithExitCodesForScripts) {
  const Child child({"mirt tools find", "-u"});
  const std::string pid_line = std::to_string(child.pid()) + "\n";
  for (const char* const search :
       {"exact 'mirt tools find -u'", "prefix 'mirt tools fi'", "wildcard 'mirt*f?nd -u'"}) {
    const Outcome found = monitor(std::string("find ") + search);
    EXPECT_EQ(found.exit_code, 0) << search;
    EXPECT_EQ(found.output, pid_line) << search;
  }
  const Outcome missed = monitor("find exact 'mirt tools find'");
  EXPECT_EQ(missed.exit_code, 1);
  EXPECT_EQ(missed.output, "");
  EXPECT_EQ(monitor("find sometimes x").exit_code, 2);
}

TEST(MonitorKill, KillsUnderTheRightNameOnly) {
  Child child({"mirt tools kill", "-u"});
  const std::string pid = std::to_string(child.pid());
  EXPECT_EQ(monitor("kill nobody " + pid).exit_code, 1);
  EXPECT_EQ(kill(child.pid(), 0), 0);
  EXPECT_EQ(monitor("kill cat " + pid).exit_code, 0);
  siginfo_t end{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child.pid()), &end, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(end.si_status, SIGKILL);
  child.end();
  EXPECT_EQ(monitor("kill cat " + pid).exit_code, 1);
  EXPECT_EQ(monitor("kill cat 0").exit_code, 2);
}

}  // namespace
