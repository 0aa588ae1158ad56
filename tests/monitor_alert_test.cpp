// Alerts, silences and the state over restarts, as an operator sees them.
#include <algorithm>

#include "monitor_fixture.h"
#include "text/clock_text.h"

namespace {

using namespace std::chrono_literals;

class AlertTest : public MonitorTest {
 protected:
  // An alert whose command keeps each message as a line of the file "told", and some variables,
  // behind one that hangs and one that cannot be started.
  void configure_watch(const std::string& rest = "") const {
    const fs::path command = folder_ / "page";
    std::ofstream(command) << "#!/bin/sh\ncd '" << folder_.string()
                           << "'\ncat >>told\necho >>told\n"
                              "echo \"$1 $MIRT_EVENT $MIRT_INSTANCE $MIRT_SEVERITY\" >>variables\n";
    fs::permissions(command, fs::perms::owner_all);
    configure(
        "every = '50ms'\n[[process]]\nname = 'database'\nexact = 'the database -u'\n"
        "running = true\nmemory = { above = '2 GiB', for = '1m' }\nalert = ['stuck', 'absent', "
        "'ops']\n"
        "[alert.stuck]\ncommand = ['/bin/sh', '-c', 'setsid sleep 1000 & sleep 1000']\n"
        "timeout = '1s'\n[alert.absent]\ncommand = ['/nowhere/page']\n"
        "[alert.ops]\ncommand = ['" +
        command.string() + "', '--page']\n" + rest);
  }

  std::vector<Json> told() const {
    std::vector<Json> all;
    std::ifstream file(folder_ / "told");
    for (std::string line; std::getline(file, line);) {
      if (!line.empty()) all.push_back(Json::parse(line, nullptr, false));
    }
    return all;
  }
  // Returns when this many messages have arrived whole.
  std::vector<Json> await_told(size_t count) const {
    const auto lines = [&] {
      const std::string text = read_file(folder_ / "variables");
      return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    };
    while (lines() < count) usleep(1000);
    return told();
  }
};

const std::vector<std::string> kDatabase{"the database", "-u"};

TEST_F(AlertTest, TheEndOfAProcessIsToldOnceAndSoIsItsReturn) {
  std::optional<Child> database(std::in_place, kDatabase);
  configure_watch();
  Monitor monitor(folder_, kRun);
  monitor.await({{"instance", "database.running"}, {"value", 1.0}});
  monitor.await({{"instance", "database.memory"}, {"state", "ok"}});
  database->kill_unreaped(SIGKILL);
  const Json raised = monitor.await({{"kind", "alarm"}, {"state", "raised"}});
  EXPECT_EQ(raised["instance"], "database.running");
  EXPECT_EQ(await_told(1).front()["alarm"], raised["alarm"]);
  monitor.await({{"instance", "database.memory"}, {"state", "absent"}, {"value", nullptr}});
  database.emplace(kDatabase);
  monitor.await({{"kind", "alarm"}, {"state", "cleared"}});
  const std::vector<Json> messages = await_told(2);
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_TRUE(has(messages[0], {{"event", "raised"},
                                {"instance", "database.running"},
                                {"severity", "critical"},
                                {"instances", {"database.running"}}}))
      << messages[0];
  EXPECT_EQ(messages[0].value("cause", "").find("process "), 0U) << messages[0];
  for (const char* const error : {"stuck (command): message not sent: killed after ",
                                  "absent (command): message not sent: /nowhere/page cannot be"}) {
    monitor.await_log(error);
  }
  EXPECT_EQ(messages[1]["event"], "cleared");
  EXPECT_EQ(messages[1]["alarm"], messages[0]["alarm"]);
  EXPECT_EQ(read_file(folder_ / "variables"),
            "--page raised database.running critical\n"
            "--page cleared database.running critical\n");
  monitor.stop();
}

TEST_F(AlertTest, WhatLastsIsToldAgainButNotAtOnce) {
  configure_watch("repeat = '1s'\n");
  Monitor monitor(folder_, kRun + " >/dev/null");
  const std::vector<Json> messages = await_told(3);
  for (const size_t i : {1U, 2U}) {
    EXPECT_TRUE(has(messages[i], {{"event", "reminder"}, {"alarm", messages[0]["alarm"]}}));
    EXPECT_GT(*read_iso8601(messages[i]["time"]) - *read_iso8601(messages[i - 1]["time"]), 900ms);
  }
  monitor.stop_unread();
}

TEST_F(AlertTest, WhatIsSilencedIsRaisedButNotTold) {
  const std::string socket = (folder_ / "socket").string();
  configure_watch("[status]\nsocket = '" + socket + "'\n");
  Monitor monitor(folder_, kRun);
  EXPECT_EQ(await_told(1).front()["event"], "raised") << "there is no such process";
  const std::string at = " --socket " + socket;
  const fs::path other = folder_ / "other";  // whose standard error is not the monitor's
  fs::create_directory(other);
  Monitor(other, "mirt-monitor silence 'data*' --for 2h --reason 'moved by *ops*'" + at).end(0);
  const std::string list =
      Monitor(other, "mirt-monitor silences --json" + at).records().at(0).dump();
  EXPECT_TRUE(contains(list, "moved by *ops*"));
  {
    const Child database(kDatabase);
    monitor.await({{"kind", "alarm"}, {"state", "cleared"}});
  }
  monitor.await({{"kind", "alarm"}, {"state", "raised"}});
  Monitor(other, "mirt-monitor unsilence 'data*'" + at).end(0);
  Monitor(other, "mirt-monitor unsilence 'data*'" + at).end(1);
  const Child database(kDatabase);
  const std::vector<Json> messages = await_told(2);
  EXPECT_EQ(messages.size(), 2U) << "neither the clearing nor the raising in between";
  EXPECT_EQ(messages.back()["event"], "cleared");
  const std::string log = monitor.stop();
  EXPECT_TRUE(contains(log, "database.running: alarm raised, silenced"));
  EXPECT_TRUE(contains(Monitor(other, "mirt-monitor silences" + at).end(1), "no monitor answers"));
}

TEST_F(AlertTest, ARestartForgetsNoAlarmAndTellsNoneTwice) {
  const std::string state = "state = '" + (folder_ / "state").string() + "'\n";
  configure_watch();
  configure(state + read_file(folder_ / "a.toml"));
  std::string id;
  for (const int signal : {SIGTERM, SIGKILL}) {
    Monitor monitor(folder_, kRun);
    const Json record = monitor.await({{"instance", "database.running"}, {"state", "alarm"}});
    if (id.empty()) id = record["alarms"][0];
    EXPECT_EQ(record["alarms"], Json::array({id}));
    EXPECT_EQ(await_told(1).size(), 1U);
    while (read_file(folder_ / "state").find(id) == std::string::npos) usleep(1000);
    kill(monitor.pid(), signal);
    waitpid(monitor.pid(), nullptr, 0);
  }
  std::ofstream(folder_ / "state") << "{\"version\": 1, \"ala";
  Monitor monitor(folder_, kRun);
  const Json raised = monitor.await({{"kind", "alarm"}, {"state", "raised"}});
  EXPECT_NE(raised["alarm"], id) << "a damaged state is no state";
  await_told(2);
  EXPECT_TRUE(contains(monitor.stop(), ".damaged-")) << "set aside, and said";
}

}  // namespace
