// "Could not measure" beside "fine": the states that mirt-monitor finds out by itself.

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <map>
#include <set>
#include <tuple>

#include "heart_fixture.h"
#include "walk_actors.h"

namespace {

constexpr char kCommandLine[] = "watched by the state test";  // of a Child

// The command as an ordinary user, for whom the program must be reachable; empty if it is not.
std::string as_other_user(const std::string& command) {
  const std::string prefix = "setpriv --reuid 54321 --regid 54321 --clear-groups ";
  const bool possible = system((prefix + "test -x " MIRT_MONITOR_PATH " 2>/dev/null").c_str()) == 0;
  return possible ? prefix + command : "";
}

TEST_F(HeartTest, WithoutDescriptorsNothingIsJudgedAndNoAlarmRises) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "UndefinedBehaviorSanitizer takes descriptors itself to look at memory";
#endif
  make_table()[0] = {process_, 77, 5, 9, 0};
  const Params process{{"ProcessName", kCommandLine}};
  const std::string none = alarm("equals = 0");
  // An idle machine truly uses 0 % of its processors: no alarm there.
  configure(instance("cpu", "GetSysCPU") + instance("user-cpu", "GetSysUsrCPU") +
            instance("free", "GetSysFreeMemory") + none +
            instance("exists", "IsExistProcessExtern", process) + none +
            instance("memory", "GetProcessMemory", process) + none +
            instance("handles", "GetProcessHandleFuzzyMatch", process) + none +
            instance("core", "GetProcessCoreCPU", process) + none +
            instance("hung", "CheckProcessStatusIsD", process) + none + kHeart +
            alarm("equals = 1"));
  const Child child({kCommandLine});
  // Four are used by the monitor itself. With a fifth it can look at the machine, and open /proc,
  // but nothing in it.
  for (const char* const limit : {"4", "5"}) {
    Monitor monitor(folder_,
                    "sh -c 'ulimit -n " + std::string(limit) + "; exec " + kRun + "--rounds 3'");
    std::map<std::string, int> unjudged;
    for (const Json& record : monitor.records()) {
      EXPECT_EQ(record["kind"], "item") << record;
      if (record["state"] != "unjudged") continue;
      ++unjudged[record["instance"]];
      const bool says_why =
          record["detail"].get<std::string>().find("Too many open files") != std::string::npos;
      EXPECT_TRUE(says_why || record["instance"] == "heart") << record;
    }
    for (const char* const machine : {"cpu", "user-cpu", "free"}) {
      // Even the fifth is used for a moment, by the clock, for the time zone.
      EXPECT_EQ(unjudged[machine] == 3, *limit == '4') << machine;
    }
    for (const char* const name : {"exists", "memory", "handles", "core", "hung", "heart"}) {
      EXPECT_EQ(unjudged[name], 3) << name;
    }
    monitor.end(0);
  }
}

TEST_F(MonitorTest, AProcessThatMayNotBeReadIsNotAtZero) {
  const Child child({kCommandLine});
  const std::string once = "mirt-monitor once --json ",
                    name = std::string(" '") + kCommandLine + "'";
  const std::string handles = as_other_user(once + "GetProcessHandle" + name);
  if (handles.empty()) GTEST_SKIP() << "needs root, to be another user who can run the program";
  const std::string path = "/proc/" + std::to_string(child.pid()) + "/fd";
  const std::string detail =
      "cannot read process " + std::to_string(child.pid()) + ": " + path + ": Permission denied";
  const std::string several = as_other_user(once + "GetProcessHandleExtern" + name);
  for (const std::string& command : {handles, several}) {
    record_of(command, {{"state", "unjudged"}, {"answer", 0.0}, {"detail", detail}});
  }
  // Its memory is for everybody to read, and one's own handles are.
  Monitor(folder_, as_other_user(once + "GetProcessMemory" + name)).end(0);
  Monitor(folder_, once + "GetProcessHandle" + name).end(0);
}

TEST_F(MonitorTest, HiddenProcessesAreNotAbsent) {
  const std::string once =
      as_other_user("mirt-monitor once --json IsExistProcess 'no such process'");
  if (once.empty()) GTEST_SKIP() << "needs root, to be another user who can run the program";
  // The shell is process 1, and root's.
  record_of(
      "unshare --mount --pid --fork sh -c \"mount -t proc -o hidepid=2 proc /proc && " + once +
          "; exit \\$?\"",
      {{"state", "unjudged"}, {"detail", "/proc hides the processes of other users (hidepid)"}});
}

TEST_F(MonitorTest, LimitsAndCountersThatSayNothingAreToldApartFromZero) {
  SKIP_WITHOUT_MOUNTS();
  const Child child({kCommandLine});
  const std::string id = std::to_string(child.pid()), name = std::string(" '") + kCommandLine + "'";
  std::string limits = read_file("/proc/" + id + "/limits");
  const size_t value = limits.find_first_of("0123456789", limits.find("Max open files"));
  const size_t length = limits.find(' ', value) - value;
  limits.replace(value, length, "unlimited");
  write_file(folder_ / "limits", limits);
  {
    const FileMount mounted(folder_ / "limits", "/proc/" + id + "/limits");
    for (const char* const item : {"GetProcessHandle", "GetProcessHandleExtern"}) {
      const std::string detail = "process " + id + " has no limit of open files";
      record_of(std::string("mirt-monitor once --json ") + item + name,
                {{"state", "unjudged"}, {"answer", 0.0}, {"detail", detail}});
    }
  }
  // 500 ticks of a process within one of the machine: a file could not be read in between.
  write_file(folder_ / "machine", "cpu 1 0 0 0 0 0 0 0 0 0\n");
  write_file(folder_ / "process", id + " (x) S 1 1 1 0 -1 0 0 0 0 0 500 0 0 0 20 0 1 0 33 0 0\n");
  const FileMount machine(folder_ / "machine", "/proc/stat"),
      process(folder_ / "process", "/proc/" + id + "/stat");
  const Json record = record_of("mirt-monitor once --json GetProcessSysCPU" + name,
                                {{"state", "unjudged"}, {"answer", 50000.0}});
  EXPECT_EQ(record["detail"].get<std::string>().find("50000 % is more than possible"), 0U);
}

// The thread that reads the command line of a stuck process is lost; its instance continues, and so
// do those whose calls were to follow on the same thread.
TEST_F(MonitorTest, AStuckProcessBlindsNoInstanceAndIsNotReportedAsEnded) {
  const StuckProcess stuck;
  if (!stuck.started()) GTEST_SKIP() << "this kernel allows no file system of our own";
  const Child child({kCommandLine});
  const std::string times = "period = 0.2\ndeadline = 1000\n";
  std::string text =
      instance("stuck", "IsExistProcessExtern", {{"ProcessName", stuck.name()}}, times) +
      alarm("equals = 0");
  const std::vector<std::string> healthy{"a", "b", "c", "d"};
  for (const std::string& name : healthy) {
    const Params process{{"ProcessName", std::string("*") + kCommandLine}};
    text += instance(name, "GetProcessMemoryFuzzyMatch", process, times);
  }
  Monitor monitor = started(text);
  const auto await_five_of_each = [&] {
    std::map<std::string, int> left;
    for (const std::string& name : healthy) left[name] = 5;
    while (!left.empty() && !HasFailure()) {
      const Json record = monitor.await({{"kind", "item"}});
      const std::string name = record["instance"];
      if (name == "stuck") {
        EXPECT_EQ(record["state"], "unjudged") << record;
      }
      if (left.count(name) != 0 && --left[name] == 0) left.erase(name);
    }
  };
  await_five_of_each();
  const StuckProcess second;
  await_five_of_each();
  kill(monitor.pid(), SIGTERM);
  for (const Json& record : monitor.records(nullptr)) EXPECT_NE(record["kind"], "alarm") << record;
  monitor.end(0);
}

TEST_F(MonitorTest, AKilledProcessIsAbsentAndKeepsItsAlarm) {
  Child child({kCommandLine});
  const Params process{{"ProcessName", kCommandLine}};
  Monitor monitor = started(instance("memory", "GetProcessMemory", process) + alarm("above = 0") +
                            instance("exists", "IsExistProcess", process) + alarm("equals = 0") +
                            instance("gone", "GetProcessMemoryExtern", process) +
                            alarm("on = ['absent']\nfor = 3"));
  const std::string id = monitor.await({{"instance", "memory"}, {"state", "raised"}})["alarm"];
  monitor.await({{"instance", "gone"}, {"state", "ok"}});
  child.end();
  std::vector<Json> records = monitor.records({{"instance", "gone"}, {"state", "raised"}});
  EXPECT_TRUE(has(records.back(),
                  {{"condition", "absent"}, {"instance_state", "absent"}, {"value", nullptr}}))
      << records.back();
  unsigned absent = 0;
  for (const Json& record : records) {
    absent += record["instance"] == "gone" && record["state"] == "absent";
  }
  EXPECT_EQ(absent, 3U);
  for (int i = 0; i < 5; ++i) {
    const Json record = monitor.await({{"instance", "memory"}, {"kind", "item"}});
    if (record["state"] == "alarm") continue;  // answered before the end
    EXPECT_EQ(record["state"], "absent");
    EXPECT_TRUE(record["value"].is_null()) << record;
    EXPECT_EQ(record["alarms"], Json{id}) << record;
  }
  monitor.await({{"instance", "exists"}, {"state", "alarm"}, {"value", 0.0}});
  // It comes back: all is measured again, and only then cleared.
  const Child again({kCommandLine});
  monitor.await({{"instance", "gone"}, {"state", "cleared"}});
  monitor.stop_unread();
}

TEST_F(HeartTest, WhatTheItemDoesNotJudgeIsNeverOk) {
  HeartEntry& entry = *make_table();
  const std::string id = std::to_string(process_);
  configure(kHeart + alarm("equals = 0\non = ['unjudged']\nfor = 2") + alarm("equals = 1"));
  Child killed({"supervised"});
  const auto killed_id = static_cast<uint32_t>(killed.pid());
  killed.end();
  const std::pair<HeartEntry, std::string> rows[] = {
      {{~0U, 77, 0, 9, 0}, "no process has registered for module 77"},
      {{killed_id, 77, 5, 9, 0}, "its owner, process " + std::to_string(killed_id) + ", has ended"},
      {{1, 77, 5, 9, 0}, ", expected \"cat\""},
      {{process_, 77, ~0UL, 9, 0}, "paused by its owner"},
      {{process_, 77, 0, ~0U, 0},
       "the heartbeat did not change, and its owner has set no flow id"}};
  for (const auto& [state, detail] : rows) {
    entry = state;
    Monitor monitor(folder_, kRun);
    std::vector<Json> records = monitor.records({{"state", "raised"}});
    EXPECT_EQ(records.back()["condition"], "equals 0 or unjudged");
    const Json& judged = records.at(records.size() - 2);
    EXPECT_TRUE(has(judged, {{"state", "unjudged"}, {"answer", 1.0}})) << judged;
    EXPECT_TRUE(contains(judged["detail"].get<std::string>(), detail)) << judged;
    monitor.stop_unread();
  }
  // Another table takes the place of that which the item looks at.
  entry = {process_, 77, 5, 9, 0};
  Monitor monitor(folder_, kRun);
  monitor.await({{"state", "alarm"}, {"answer", 0.0}});
  entry.process = killed_id;
  fs::remove(kTable);
  *make_table() = {process_, 77, 5, 9, 0};
  monitor.await({{"state", "unjudged"}, {"detail", "the item did not judge process " + id}});
}

TEST_F(HeartTest, SignsOfLifeExcuseAStandstillButNotForEver) {
  HeartEntry& entry = *make_table();
  entry = {process_, 77, 5, 100, 0};
  Monitor monitor = started(kHeart + alarm("equals = 0"));
  monitor.await({{"state", "raised"}});
  // At work on something else at each call, and yet without a beat.
  const Meanwhile working([&] { __atomic_add_fetch(&entry.flow, 1, __ATOMIC_RELEASE); });
  monitor.await({{"state", "unjudged"},
                 {"answer", 0.0},
                 {"detail", "its owner or flow id changed since the previous call"}});
  monitor.await({{"state", "alarm"}});
}

TEST_F(HeartTest, ABeatJustAfterTheCallIsASignOfLife) {
  HeartEntry& entry = *make_table();
  entry = {process_, 77, 5, 100, 0};
  Monitor monitor = started(kHeart);
  monitor.await({{"state", "ok"}});
  // The item logs that the heartbeat stands still, and at once it moves, sooner or later in time.
  uintmax_t logged = 0;
  const Meanwhile beating([&] {
    const uintmax_t size = fs::file_size(folder_ / "stderr");
    if (size != std::exchange(logged, size)) {
      __atomic_add_fetch(&entry.heartbeat, 1, __ATOMIC_RELEASE);
    }
  });
  monitor.await(
      {{"state", "unjudged"}, {"answer", 0.0}, {"detail", "it moved just after this call"}});
}

TEST_F(HeartTest, WhoeverHoldsTheLockIsNamedAfterASecond) {
  const HeldLock lock("/tmp/mirt_agent_lock");
  make_table()[0] = {process_, 77, 5, ~0U, 0};
  Monitor monitor = started(kHeart, "--rounds 1");
  const std::string expected =
      "warning  heart: waits for the lock on /tmp/mirt_agent_lock, which process " +
      std::to_string(getpid()) + " (\"monitor_tests\") holds";
  monitor.await_log(expected);
  lock.let_go();
  monitor.await({{"state", "ok"}});
  monitor.end(0);
}

TEST_F(MonitorTest, PreCommandsAreJudgedByWhatTheyPrinted) {
  const std::string once = "mirt-monitor once --json IsExistProcessPreCmd 'no such process' '";
  const std::string no_search = ", so the item did not search for the process";
  const std::tuple<const char*, const char*, std::string> rows[] = {
      {"echo ready; exit 3", "ok", ""},
      {"yes ready", "ok", ""},  // ended by SIGPIPE
      {"printf ready", "ok", ""},
      {"echo read", "unjudged", "the pre-command printed \"read\", expected \"ready\""},
      {"exit 3", "unjudged", "the pre-command failed (it ended with exit status 3)"},
      {"kill -9 $$", "unjudged", "the pre-command failed (signal 9 ended it)"}};
  for (const auto& [command, state, detail] : rows) {
    const bool looked = *state == 'o';
    const Json record =
        record_of(once + command + "' ready", {{"state", state}, {"answer", looked ? 0.0 : 1.0}},
                  looked ? 0 : 1);
    EXPECT_EQ(record.value("detail", ""), looked ? "" : detail + no_search);
  }
}

TEST_F(MonitorTest, AlarmsOnFailuresAndSeveralOfOneInstance) {
  const std::string folder = folder_ / "later";
  Monitor monitor =
      started(instance("disk", "GetDiskUsage", {{"d", folder}}) +
              alarm("on = ['failed']\nfor = 3\n" +
                    report_text("SendErrRptExtend", {{"ErrCode", "7"}, {"What", "{value}"}})) +
              alarm("below = 101"));
  const std::vector<Json> records = monitor.records({{"state", "raised"}});
  EXPECT_EQ(records.size(), 4U) << "three calls, and the alarm";
  EXPECT_EQ(records.front()["detail"], "statfs of \"" + folder + "\": No such file or directory");
  const Json& raised = records.back();
  EXPECT_TRUE(has(raised, {{"condition", "failed"}, {"instance_state", "failed"}}));
  const Json report = monitor.await({{"kind", "report"}});
  EXPECT_TRUE(
      has(report, {{"instance", "disk"}, {"alarm", raised["alarm"]}, {"description", "failed"}}))
      << report;
  fs::create_directory(folder);
  std::set<std::string> of_both{raised["alarm"]};
  // Either may come first.
  for (int i = 0; i < 2; ++i) {
    const Json change = monitor.await({{"kind", "alarm"}});
    of_both.insert(change["alarm"]);
    EXPECT_EQ(change["state"], change["condition"] == "below 101" ? "raised" : "cleared");
  }
  EXPECT_EQ(of_both.size(), 2U);
  monitor.stop_unread();
}

TEST_F(MonitorTest, RoundsFailWhenEveryCallDid) {
  const std::string failing = instance("disk", "GetDiskUsage", {{"d", "/nowhere"}});
  const std::string report =
      alarm("on = ['failed']\n" + report_text("SendErrRptExtend", {{"ErrCode", "7"}}));
  const std::pair<std::string, int> rows[] = {
      {failing, 1}, {failing + report, 1}, {failing + instance("free", "GetSysFreeMemory"), 0}};
  for (const auto& [text, code] : rows) {
    Monitor monitor = started(text, "--rounds 2");
    monitor.records();
    monitor.end(code);
  }
}

TEST_F(MonitorTest, ABlindInstanceSaysWhereItHangsAndItsAlarmCountsBeats) {
  SKIP_WITHOUT_MOUNTS();
  const Child child({kCommandLine});
  const std::string id = std::to_string(child.pid()), path = "/proc/" + id + "/cmdline";
  mkfifo((folder_ / "fifo").c_str(), 0600);
  configure(instance("search", "IsExistProcess", {{"ProcessName", kCommandLine}},
                     "period = 0.02\ndeadline = 0.2\n") +
            alarm("equals = 0\non = ['blind']\nfor = 5") + instance("ticking", "GetSysMemory"));
  const FileMount mounted(folder_ / "fifo", path);
  Monitor monitor(folder_, kRun);
  const Json blind = monitor.await({{"state", "blind"}});
  EXPECT_EQ(blind["detail"], "in open of " + path + " (process " + id + ", \"cat\")");
  const Json raised = monitor.await({{"state", "raised"}});
  EXPECT_TRUE(has(
      raised,
      {{"condition", "equals 0 or blind"}, {"instance_state", "blind"}, {"instance", "search"}}))
      << raised;
  monitor.await({{"instance", "ticking"}, {"state", "ok"}});
  // The file gives what it should: the call returns late, and the alarm is cleared.
  std::ofstream(folder_ / "fifo") << kCommandLine << '\0';
  monitor.await({{"instance", "search"}, {"late", true}, {"value", 1.0}});
  EXPECT_EQ(monitor.await({{"state", "cleared"}})["alarm"], raised["alarm"]);
}

TEST_F(MonitorTest, AFullStandardErrorHoldsNothingUpAndSaysWhatIsLost) {
  const fs::path fifo = folder_ / "log";
  mkfifo(fifo.c_str(), 0600);
  const int log = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
  fcntl(log, F_SETPIPE_SZ, 4096);
  // Two log lines each time.
  configure(instance("reboot", "RebootAppData", {{"UserData", "1"}}, "period = 0.001\n"));
  Monitor monitor(folder_, "sh -c 'exec 2>log; exec " + kRun + "'");
  for (int i = 0; i < 700; ++i) monitor.await({{"state", "failed"}});
  FILE* const lines = fdopen(log, "r");
  char line[512];
  while (fgets(line, sizeof line, lines) && !strstr(line, " log lines lost")) {
  }
  EXPECT_GT(atoi(strstr(line, "warning  ") + strlen("warning  ")), 100) << line;
  monitor.stop();
  fclose(lines);
}

TEST_F(MonitorTest, APatternThatMatchesNothingButTheCommandSaysSo) {
  const std::string only = "the only match is this mirt-monitor process";
  for (const std::string command : {"find wildcard", "ps --match"}) {
    Monitor monitor(folder_, "mirt-monitor " + command + " '*nothing but mirt-monitor'");
    EXPECT_EQ(monitor.line().has_value(), command[0] == 'p') << "find leaves itself out";
    EXPECT_EQ(monitor.end(command[0] == 'p' ? 0 : 1), "mirt-monitor: " + only + "\n");
  }
  for (const char* const item : {"GetProcessMemoryFuzzyMatch", "CheckProcessStatusIsD"}) {
    record_of(std::string("mirt-monitor once --json ") + item + " '*nothing but mirt-monitor*'",
              {{"state", "absent"}, {"detail", only}, {"value", nullptr}});
  }
  const Child child({"also there", "-u"});
  Monitor(folder_, "mirt-monitor once CheckProcessStatusIsD '*also there*'").end(0);
}

}  // namespace
