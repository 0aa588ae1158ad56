// SIGHUP: the configuration is read again while everything runs.
#include <algorithm>
#include <set>

#include "child.h"
#include "every_item.h"

namespace {

const std::string kAlarm = "[instance.alarm]\nequals = 0\n";

constexpr char kOften[] = "period = 0.02\ndeadline = 1000\n";
constexpr char kRarely[] = "period = 100000\ndeadline = 1000\n";

std::string missing(const std::string& name, const std::string& rest = kAlarm,
                    const char* times = kOften) {
  return instance(name, "IsExistProcess", {{"ProcessName", "nobody"}}, times) + rest;
}

class ReloadTest : public MonitorTest {
 protected:
  // A configuration is replaced as a whole: the monitor reads the old one or the new one.
  void reconfigure(const Monitor& monitor, const std::string& text) const {
    std::ofstream(folder_ / "new.toml") << text;
    fs::rename(folder_ / "new.toml", folder_ / "a.toml");
    kill(monitor.pid(), SIGHUP);
  }
};

TEST_F(ReloadTest, WhatIsUnchangedGoesOnAndTheRestComesAndGoes) {
  Monitor monitor = started(missing("kept") + missing("changed") + missing("dropped"));
  std::map<std::string, std::string> ids;
  while (ids.size() < 3) {
    const Json raised = monitor.await({{"state", "raised"}});
    ids[raised["instance"]] = raised["alarm"];
  }
  reconfigure(monitor, missing("kept") + missing("changed", "[instance.alarm]\nbelow = 1\n") +
                           missing("new"));
  std::map<std::string, std::string> raised, cleared;
  while (raised.size() < 2) {
    const Json record = monitor.await({{"kind", "alarm"}});
    (record["state"] == "raised" ? raised : cleared)[record["instance"]] = record["alarm"];
  }
  EXPECT_EQ(cleared["dropped"], ids["dropped"]);
  EXPECT_EQ(cleared["changed"], ids["changed"]);
  EXPECT_EQ(cleared.count("kept"), 0U);
  EXPECT_NE(raised["changed"], ids["changed"]);
  EXPECT_EQ(raised.count("new"), 1U);
  EXPECT_EQ(monitor.await({{"instance", "kept"}, {"state", "alarm"}})["alarms"],
            Json::array({ids["kept"]}))
      << "still the same alarm";
  monitor.stop();
}

TEST_F(ReloadTest, AConfigurationWithMistakesChangesNothing) {
  configure(missing("kept", kAlarm, kRarely));  // nothing else wakes it
  Monitor monitor(folder_, kRun);
  const std::string id = monitor.await({{"state", "raised"}})["alarm"];
  reconfigure(monitor, "[[instance]]\nname = 7\n");
  // A good one after it shows that the bad one has been read.
  while (read_file(folder_ / "stderr").find("stays in force") == std::string::npos) usleep(1000);
  reconfigure(monitor, missing("kept", kAlarm, kRarely) + missing("new", kAlarm, kRarely));
  const std::vector<Json> records = monitor.records({{"instance", "new"}});
  for (const Json& record : records) EXPECT_NE(record.value("state", ""), "cleared") << record;
  const std::string errors = monitor.stop();
  EXPECT_TRUE(contains(errors, "a.toml:2: name is an integer, expected a string"));
  EXPECT_TRUE(contains(errors, "a.toml: not reloaded"));
}

TEST_F(ReloadTest, ABlockedCallIsLetGo) {
  mkfifo((folder_ / "fifo").c_str(), 0600);
  const std::string ticking = instance("ticking", "GetSysMemory");
  Monitor monitor = started("workers = 1\n" + ticking + pre_command("stuck", "cat fifo", "go"));
  const int writer = open((folder_ / "fifo").c_str(), O_WRONLY | O_CLOEXEC);  // waits for cat
  reconfigure(monitor, "workers = 1\n" + ticking);
  // With its only worker blocked nothing else could be called.
  monitor.await({{"kind", "event"}});
  for (int i = 0; i < 3; ++i) monitor.await({{"instance", "ticking"}, {"state", "ok"}});
  close(writer);
  kill(monitor.pid(), SIGTERM);
  for (const Json& record : monitor.records()) EXPECT_NE(record.value("instance", ""), "stuck");
  monitor.end(0);
}

// Many reloads, every second one with mistakes, while calls are under way. A call that overlaps
// another one of its instance finds that one's folder.
TEST_F(ReloadTest, AStormLosesNoAlarmAndCallsNothingTwiceAtOnce) {
  std::string text;
  for (int i = 0; i < 10; ++i) {
    const std::string number = std::to_string(i);
    std::string command = "f=in-" + number;
    command += "; mkdir $f && echo ok && rmdir $f || echo $f >>twice";
    text += pre_command("watch-" + number, command, "ok") + kAlarm;
  }
  Monitor monitor = started(text);
  std::set<std::string> raised;
  while (raised.size() < 10) raised.insert(monitor.await({{"state", "raised"}})["instance"]);
  const std::string descriptors = "/proc/" + std::to_string(monitor.pid()) + "/fd";
  const auto open_now = [&] {
    return std::distance(fs::directory_iterator(descriptors), fs::directory_iterator());
  };
  for (int i = 0; i < 40; ++i) {
    reconfigure(monitor, i % 2 == 0 ? text + "nonsense = 1\n" : text);
    for (int lines = 0; lines < 20; ++lines) monitor.line();
  }
  std::set<std::string> going_on;
  while (going_on.size() < 10) {
    const Json record = monitor.await(Json::object());
    EXPECT_NE(record.value("state", ""), "cleared") << record;
    EXPECT_NE(record.value("state", ""), "raised") << record;
    if (record.value("state", "") == "alarm") going_on.insert(record["instance"]);
  }
  EXPECT_LT(open_now(), 100) << "each shell that runs has a pipe; nothing else is left open";
  monitor.stop();
  EXPECT_EQ(read_file(folder_ / "twice"), "");
}

// For ThreadSanitizer above all: calls of all items share what the plug-in keeps.
TEST_F(ReloadTest, EveryItemIsCalledOnThreadsOfOneProcessMeanwhile) {
  const Child watched({kWatchedCommandLine});
  const std::string items = "workers = 60\n" + every_item("period = 1.1\ndeadline = 1000\n");
  const std::string more = instance("more", "GetSysMemory"),
                    other = instance("other", "GetSysMemory");
  Monitor monitor = started(items + more);
  std::multiset<std::string> calls{monitor.await({{"kind", "item"}})["instance"]};
  std::set<std::string> twice;
  for (bool is_other = true; twice.size() < all_items().size() + 2; is_other = !is_other) {
    reconfigure(monitor, items + (is_other ? other : more));
    for (int lines = 0; lines < 3; ++lines) {
      const std::string name = monitor.await({{"kind", "item"}})["instance"];
      calls.insert(name);
      if (calls.count(name) > 1) twice.insert(name);
    }
  }
  monitor.stop();
}

}  // namespace
