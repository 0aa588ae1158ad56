// The command "status" as people and monitoring systems use it.
#include "monitor_fixture.h"

namespace {

class StatusTest : public MonitorTest {
 protected:
  StatusTest() { fs::create_directory(other_); }

  // What the command prints; its exit status is this.
  std::string status(const std::string& arguments, int exit_code = 0) {
    Monitor command(other_, "mirt-monitor status --socket " + socket_path() + " " + arguments);
    std::string text;
    while (const auto line = command.line()) text += *line + '\n';
    errors_ = command.end(exit_code);
    return text;
  }
  // Repeats "status --check" until it begins and exits like this.
  void await_check(const std::string& beginning, int exit_code) {
    for (;;) {
      Monitor command(other_, "mirt-monitor status --check --socket " + socket_path());
      const std::string line = command.line().value_or("");
      int ended = 0;
      waitpid(command.pid(), &ended, 0);
      if (line.find(beginning) == 0 && WEXITSTATUS(ended) == exit_code) return;
      usleep(10000);
    }
  }

  const fs::path other_ = folder_ / "other";  // whose standard error is not that of the monitor
  std::string errors_;
};

TEST_F(StatusTest, WhatIsWrongComesFirstAndTheCheckSaysHowBadItIs) {
  const std::string fine = instance("fine", "GetDiskUsage", {{"d", "/"}});
  const std::string warned =
      instance("warned", "GetSysMemory") + alarm("above=-1\nseverity='warning'");
  const std::string failed = instance("failed", "GetDiskUsage", {{"d", "/nowhere"}});
  const std::string critical =
      instance("a | 'b'=c", "IsExistProcess", {{"n", "nobody"}}) + alarm("equals = 0");
  const std::string absent = instance("absent", "GetProcessMemory", {{"n", "nobody"}});
  const std::tuple<std::string, int, const char*, const char*> rows[] = {
      {fine + absent, 0, "OK: ok 1, absent 1 | 'fine'=", "absent    absent"},
      {fine + warned, 1,
       "WARNING: warned (warning: above -1); ok 1, alarm 1 | 'fine'=", "alarm     warned"},
      {fine + warned + failed, 3, "UNKNOWN: failed (Get Disk Usage Fault", "failed    failed"},
      {fine + warned + failed + critical, 2, "CRITICAL: a / 'b'=c (critical: equals 0), failed (",
       "alarm     a | 'b'=c"}};
  for (const auto& [config, exit_code, line, first] : rows) {
    Monitor monitor = started_with_socket(config);
    await_check(line, exit_code);
    const std::string shown = status("");
    EXPECT_EQ(shown.find(first), shown.find("FOR\n") + 4) << shown;
    const Json body = Json::parse(status("--json"));
    EXPECT_EQ(body["watches"][0]["name"], "fine") << "in the order of the configuration";
    if (exit_code != 2) continue;
    const size_t header = shown.find("STATE"), end_of_value = shown.find("VALUE") + 4 - header;
    EXPECT_EQ(shown[shown.find(first) + end_of_value], '0') << "one column\n" << shown;
    const std::string check = status("--check", 2);
    EXPECT_TRUE(contains(check, " 'a / ''b''_c'=0"));
    EXPECT_EQ(std::count(check.begin(), check.end(), '|'), 1);
    Monitor(other_, "mirt-monitor silence 'a*' --for 1h --socket " + socket_path()).end(0);
    await_check("UNKNOWN: failed", 3);
    EXPECT_TRUE(contains(status(""), "silenced until "));
  }
  EXPECT_EQ(status("--check", 3).find("UNKNOWN: no monitor answers at "), 0U);
  EXPECT_EQ(status("", 1), "");
  EXPECT_TRUE(contains(errors_, "no monitor answers at " + socket_path()));
}

TEST_F(StatusTest, OneWatchHasItsHistoryAndHostileTextDoesNoHarm) {
  const std::string hostile = "nobody\033[2J";
  Monitor monitor =
      started_with_socket(instance("gone/\xC3\xA4?", "GetProcessMemory", {{"n", hostile}}) +
                          instance("memory", "GetSysFreeMemory"));
  monitor.await({{"state", "absent"}});
  monitor.await({{"instance", "memory"}, {"state", "ok"}});
  const std::string text = status("'gone/\xC3\xA4?'");
  EXPECT_EQ(text.find("watch       gone/\xC3\xA4?\n"), 0U) << text;
  EXPECT_TRUE(contains(text, "nobody?[2J"));
  EXPECT_TRUE(contains(text, "\nhistory     2"));
  EXPECT_EQ(text.find('\033'), std::string::npos);
  const std::string check = status("--check memory");
  EXPECT_EQ(check.find("OK: memory ok "), 0U) << check;
  EXPECT_TRUE(contains(check, "B\n")) << "MiB are given in bytes: " << check;
  EXPECT_EQ(status("nobody", 1), "");
  EXPECT_TRUE(contains(errors_, "there is no watch \"nobody\""));
  EXPECT_EQ(status("--check nobody", 3).find("UNKNOWN: "), 0U);
  status("--check --json", 2);
  status(">/dev/full", 1);
  status("--watch >/dev/full", 1);
}

TEST_F(StatusTest, WatchingGoesOnWhileTheMonitorIsAway) {
  configure_with_socket(instance("memory", "GetSysFreeMemory"));
  std::optional<Monitor> monitor(std::in_place, folder_, kRun);
  monitor->await({{"state", "ok"}});
  Monitor watching(other_, "mirt-monitor status --watch --json --socket " + socket_path());
  const auto start_time = [&] {
    return Json::parse(watching.line().value_or("{}")).value("started", "");
  };
  const std::string first = start_time();
  EXPECT_EQ(start_time(), first);
  monitor.emplace(folder_, kRun);
  std::string second = start_time();
  while (second == first) second = start_time();
  EXPECT_FALSE(second.empty());
}

TEST_F(StatusTest, WatchingDrawsAsMuchAsTheTerminalShows) {
  Monitor monitor = started_with_socket(instance("memory", "GetSysFreeMemory") +
                                        instance("root", "GetDiskUsage", {{"d", "/"}}));
  monitor.await({{"instance", "root"}, {"state", "ok"}});
  const std::string all = status("");
  Monitor watching(other_,
                   "script --quiet --return --command 'stty rows 4 cols 30; "
                   "mirt-monitor status --watch --socket " +
                       socket_path() + "' /dev/null");
  const auto starts = [](const std::string& line) { return line.find("\033[H\033[J") == 0; };
  std::string line = watching.line().value_or("");
  ASSERT_TRUE(starts(line)) << line;
  std::vector<std::string> drawn;
  for (line.erase(0, 6); !starts(line); line = watching.line().value_or("\033[H\033[J")) {
    drawn.push_back(line.substr(0, line.find('\r')));
  }
  EXPECT_GT(std::count(all.begin(), all.end(), '\n'), 3);
  EXPECT_EQ(drawn.size(), 3U) << "the cursor's line stays free";
  size_t longest = 0;
  for (const std::string& text : drawn) longest = std::max(longest, text.size());
  EXPECT_EQ(longest, 30U);
}

}  // namespace
