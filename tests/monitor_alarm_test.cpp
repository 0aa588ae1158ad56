// mirt-monitor beside hung threads, stopped hearts and the data plane: alarms, reports, recovery.
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <regex>
#include <thread>
#include <tuple>

#include "child.h"
#include "heart_fixture.h"
#include "monitor_fixture.h"

namespace {

TEST_F(MonitorTest, TheDataPlaneIsSignalledOnlyWhenAllowed) {
  // This process plays the data plane.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const std::tuple<std::string, bool, const char*> rows[] = {
      {"", false, "redundancyStatus(0)"},
      {"redundancy = 'deny'\n", false, "redundancyStatus(0)"},
      {"redundancy = 'allow'\n", true, "redundancy status(1)"},
      {"redundancy = 'command'\ncommand = 'exit 3'\n", false, "exit status is 3"},
      {"redundancy = 'command'\ncommand = 'kill -9 $$'\n", false, "exit status is 137"},
      {"redundancy = 'command'\ncommand = 'echo said'\n", true, "said"}};
  for (const auto& [recovery, allowed, log] : rows) {
    Monitor monitor =
        started((recovery.empty() ? "" : "[recovery]\n") + recovery + reboot("reboot", getpid()),
                "--rounds 1");
    EXPECT_EQ(monitor.await({{"state", allowed ? "ok" : "failed"}})["answer"], allowed ? 0 : -1);
    EXPECT_TRUE(contains(monitor.end(allowed ? 0 : 1), log)) << log;
    siginfo_t info{};
    const timespec now{};
    sigtimedwait(&signals, &info, &now);
    EXPECT_EQ(info.si_value.sival_int, allowed ? getpid() : 0) << log;
  }
}

TEST_F(MonitorTest, CommandsEndWithTheMonitor) {
  mkfifo((folder_ / "fifo").c_str(), 0600);
  const std::string command = "exec 8<>fifo; echo >&8; sleep 1000; :";
  Monitor monitor = started("[recovery]\nredundancy = 'command'\ncommand = '" + command + "'\n" +
                            reboot("reboot", getpid()) + pre_command("ask", command, "x"));
  std::ifstream fifo(folder_ / "fifo");
  int begun = 0;
  for (std::string line; std::getline(fifo, line);) {
    if (++begun == 2) kill(monitor.pid(), SIGTERM);
  }
  EXPECT_EQ(begun, 2) << "and the FIFO has ended: both shells have gone, and their sleeps";
  monitor.end(0);
}

// A control group of the test's own whose processes can be frozen.
class FreezerGroup : InPlace {
 public:
  explicit FreezerGroup(pid_t pid)
      : path_("/sys/fs/cgroup/freezer/mirt-test-" + std::to_string(getpid())) {
    std::error_code error;
    fs::create_directory(path_, error);
    std::ofstream(path_ / "cgroup.procs") << pid;
    ready_ = !error && read_file(path_ / "cgroup.procs") == std::to_string(pid) + "\n";
    if (ready_) std::ofstream(path_ / "freezer.state") << "FROZEN";
  }
  ~FreezerGroup() {
    if (ready_) std::ofstream(path_ / "freezer.state") << "THAWED";
    std::ofstream("/sys/fs/cgroup/freezer/cgroup.procs") << read_file(path_ / "cgroup.procs");
    rmdir(path_.c_str());
  }
  bool ready() const { return ready_; }

 private:
  fs::path path_;
  bool ready_ = false;
};

TEST_F(MonitorTest, AFrozenThreadIsNoHangThatNeedsRecovery) {
  const Child child({"frozen data plane", "-u"});
  const FreezerGroup group(child.pid());
  if (!group.ready()) GTEST_SKIP() << "there is no freezer among the control groups";
  const std::string status = "/proc/" + std::to_string(child.pid()) + "/status";
  while (read_file(status).find("D (disk sleep)") == std::string::npos) usleep(1000);
  Monitor monitor = started(
      "[recovery]\nredundancy = 'allow'\n" +
          instance("plane", "CheckProcessStatusIsDForAppData",
                   {{"ProcessName", "frozen data plane*"}}) +
          instance("hung", "CheckProcessStatusIsD", {{"ProcessName", "frozen data plane*"}}),
      "--rounds 11");
  bool named = false;
  for (const Json& record : monitor.records()) {
    if (record.value("instance", "") != "hung" || record["value"] != 1.0) continue;
    EXPECT_EQ(record["evidence"]["suspected"], "frozen") << record;
    named = true;
  }
  EXPECT_TRUE(named);
  const std::string log = monitor.end(0);
  EXPECT_TRUE(contains(log, "recovery refused: thread " + std::to_string(child.pid()) +
                                " is suspected to be frozen"));
}

TEST_F(MonitorTest, HungThreadsAreShownWithTheirProcess) {
  // A thread in D state: it waits as in vfork(), which is fork() under ThreadSanitizer.
  std::atomic<int> tid{0};
  pid_t child = 0;
  std::thread hung([&] {
    tid = gettid();
    if (syscall(SYS_clone, CLONE_VFORK | CLONE_PARENT_SETTID | SIGCHLD, nullptr, &child) == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      for (;;) pause();
    }
  });
  const auto stat = [&] { return read_file("/proc/self/task/" + std::to_string(tid) + "/stat"); };
  while (stat().find(") D ") == std::string::npos) std::this_thread::yield();
  std::string command_line = read_file("/proc/self/cmdline");
  command_line.pop_back();
  std::replace(command_line.begin(), command_line.end(), '\0', ' ');
  const Params process{{"ProcessName", command_line}};
  configure(instance("data-plane", "CheckProcessStatusIsDForAppData", process) +
            instance("hung", "CheckProcessStatusIsD", process) + "[instance.alarm]\nequals = 1\n" +
            report_text("SendErrRptExtend", {{"ErrCode", "0xF0000301"},
                                             {"At", "{pid}: {value} of {instance}, {{pid}"}}));
  const std::string thread_id = std::to_string(tid), process_id = std::to_string(getpid());
  Json shown{{"tid", tid.load()}, {"process", getpid()}, {"cmdline", command_line}, {"value", 1.0}};
  Monitor monitor(folder_, kRun + "--rounds 11");
  const std::vector<Json> records = monitor.records();
  const auto seen = [&](const Json& members) {
    return std::any_of(records.begin(), records.end(),
                       [&](const Json& record) { return has(record, members); });
  };
  EXPECT_TRUE(seen(shown));
  for (const Json& record : records) {
    EXPECT_LT(record.value("line", Json()), 100000) << "of the source, if it is known";
    if (!has(record, shown) || record["kind"] != "item") continue;
    const Json& evidence = record["evidence"];
    EXPECT_TRUE(has(evidence, {{"tid", tid.load()},
                               {"state", "D (disk sleep)"},
                               {"threads_with_this_stack", 1},
                               {"suspected", nullptr}}))
        << "a real hang: " << evidence;
    EXPECT_GE(evidence["standing_seconds"], 0.1) << "ten periods";
    EXPECT_LT(evidence["standing_seconds"], 1000.0);
    if (is_machines_root()) {
      EXPECT_TRUE(contains(evidence["stack"].dump(), "clone"));
    }
  }
  shown["state"] = "raised";
  EXPECT_TRUE(seen(shown));
  EXPECT_TRUE(seen({{"kind", "report"}, {"description", thread_id + ": 1 of hung, {pid}"}}));
  EXPECT_TRUE(seen({{"instance", "data-plane"},
                    {"state", "unjudged"},
                    {"detail", "thread " + thread_id + " hangs, but recovery was refused"}}));
  EXPECT_TRUE(contains(monitor.end(0), "redundancyStatus(0)"));
  kill(child, SIGKILL);
  hung.join();
}

TEST_F(HeartTest, AlarmsRiseOnceReportAndClear) {
  HeartEntry& entry = *make_table();
  entry = {process_, 77, 5, 102, 0};
  configure(kHeart + "[instance.alarm]\nequals = 0\nfor = 2\nclear_for = 3\n" +
            report_text("SendErrRpt", {{"ErrCode", "0xF000020F"},
                                       {"ProcessMoudleId", "77"},
                                       {"ProcessName", "cat"},
                                       {"UserData", "{flowid}"}}));
  const Json key{
      {"resType", 0xF000 | 77}, {"errCode", "0xF000020F"}, {"resId", "cat:102"}, {"rptType", 1}};
  Monitor monitor(folder_, kRun);
  const Json raised = monitor.await({{"state", "raised"}, {"hangflowid", 102}});
  const std::string id = raised["alarm"];
  monitor.await({{"kind", "report"}, {"key", key}, {"instance", "heart"}, {"alarm", id}});
  monitor.await({{"kind", "item"}, {"value", 0.0}});
  // Paused it is not judged, and an alarm stays; going on clears it.
  __atomic_store_n(&entry.heartbeat, ~0UL, __ATOMIC_RELEASE);
  monitor.await({{"state", "unjudged"}, {"detail", "paused by its owner"}, {"answer", 1.0}});
  uint64_t beat = 6;
  const Meanwhile beating([&] { __atomic_store_n(&entry.heartbeat, ++beat, __ATOMIC_RELEASE); });
  const std::vector<Json> to_the_end = monitor.records({{"state", "cleared"}});
  EXPECT_EQ(to_the_end.back()["alarm"], id) << "raised and cleared are one alarm";
  unsigned fresh = 0;
  for (const Json& record : to_the_end)
    fresh += record["kind"] == "item" && record["answer"] == 1.0;
  EXPECT_GE(fresh, 3U);
  // Clearing sends no report.
  for (int i = 0; i < 5; ++i) EXPECT_EQ(monitor.await(Json::object())["kind"], "item");
  EXPECT_TRUE(contains(monitor.stop_unread(), "report 0xF000020F  resType 0xF04D  resId cat:102"))
      << "in the log, too";
}

TEST_F(HeartTest, TableIsShownAndNeverMade) {
  const std::string command = "mirt-monitor heartbeats";
  EXPECT_EQ(Monitor(folder_, command).end(1),
            "mirt-monitor: there is no heartbeat table (/dev/shm/MIRT_AGENT_HEARTBEAT)\n");
  EXPECT_FALSE(fs::exists(kTable));
  std::ofstream(kTable) << "ten bytes!";
  EXPECT_EQ(Monitor(folder_, command).end(1),
            "mirt-monitor: the heartbeat table has 10 bytes, expected 1200\n");

  HeartEntry* const entries = make_table();
  entries[3].module = 65536;
  EXPECT_EQ(Monitor(folder_, command).end(1),
            "mirt-monitor: the heartbeat table is damaged: entry 3 is of module 65536, expected at "
            "most 65534\n");
  entries[3].module = 0xFFFF;
  entries[0].reserved = 0x5452494D;  // its maker is still at work
  EXPECT_EQ(Monitor(folder_, command).end(1),
            "mirt-monitor: the heartbeat table is not initialised yet\n");
  entries[0] = {process_, 60001, 0, 101, 0};
  entries[49] = {~0U, 0, ~0UL, ~0U, 0};
  const Meanwhile beating([&] { __atomic_add_fetch(&entries[0].heartbeat, 1, __ATOMIC_RELEASE); });
  const Json moving{{"module", 60001}, {"process", process_}, {"name", "cat"},
                    {"moved", true},   {"flowid", 101},       {"paused", false}};
  std::vector<Json> rows{Json::object()};
  // A busy machine may stop the beating for the whole time between two looks.
  while (!rows.empty() && !has(rows[0], moving)) {
    rows = Monitor(folder_, command + " --json").records();
  }
  EXPECT_EQ(rows.at(1).dump(), R"({"flowid":null,"heartbeat":null,"module":0,"moved":false,)"
                               R"("name":null,"paused":true,"process":null})");
  Monitor people(folder_, command);
  std::string last;
  while (const std::optional<std::string> line = people.line()) last = *line;
  EXPECT_EQ(last,
            "     0           -  -                                   -  no              -  yes");
}

}  // namespace
