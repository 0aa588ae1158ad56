// mirt-monitor beside hung threads, stopped hearts and the data plane: alarms, reports, recovery.
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <thread>

#include "child.h"
#include "monitor_fixture.h"

namespace {

std::string own_command_line() {
  std::string text = file_text("/proc/self/cmdline");
  text.erase(text.find_last_not_of('\0') + 1);
  std::replace(text.begin(), text.end(), '\0', ' ');
  return text;
}

// A thread of this process in D state: it starts a program, and the child stops short of exec() at
// a FIFO that nobody writes to.
class HungThread {
 public:
  explicit HungThread(const fs::path& fifo) : fifo_(fifo) {
    if (mkfifo(fifo_.c_str(), 0600) != 0) std::abort();
    thread_ = std::thread([this] { hang(); });
    // Until it hangs its child may still copy descriptors, ends of the test's pipes among them.
    while (tid_ == 0 || !hangs()) std::this_thread::yield();
  }
  HungThread(const HungThread&) = delete;
  HungThread& operator=(const HungThread&) = delete;
  ~HungThread() {
    const int writer = open(fifo_.c_str(), O_WRONLY | O_CLOEXEC);
    thread_.join();
    close(writer);
  }
  int tid() const { return tid_; }

 private:
  bool hangs() const {
    const std::string status = file_text("/proc/self/task/" + std::to_string(tid_) + "/status");
    return status.find("State:\tD") != std::string::npos;
  }
  void hang() {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, fifo_.c_str(), O_RDONLY, 0);
    char name[] = "true";
    char* const arguments[] = {name, nullptr};
    tid_ = static_cast<int>(syscall(SYS_gettid));
    pid_t child = -1;
    if (posix_spawn(&child, "/bin/true", &actions, nullptr, arguments, environ) != 0) std::abort();
    posix_spawn_file_actions_destroy(&actions);
    waitpid(child, nullptr, 0);
  }

  fs::path fifo_;
  std::atomic<int> tid_{0};
  std::thread thread_;
};

// The value of the SIGUSR1 that has come, if one has. The signal must be blocked.
std::optional<int> take_signal() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR1);
  siginfo_t info;
  const timespec now{};
  if (sigtimedwait(&set, &info, &now) != SIGUSR1) return std::nullopt;
  return info.si_value.sival_int;
}

class RecoveryTest : public MonitorTest {
 protected:
  // This process plays the data plane.
  RecoveryTest() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
  }
};

TEST_F(RecoveryTest, SignalsOnlyWhenAllowed) {
  struct Row {
    std::string recovery;
    bool allowed;
    std::string log;
  };
  const fs::path seen = folder_ / "seen";
  const Row rows[] = {
      {"", false, "redundancyStatus(0)"},
      {"redundancy = 'deny'\n", false, "redundancyStatus(0)"},
      {"redundancy = 'allow'\n", true, "redundancy status(1)"},
      {"redundancy = 'command'\ncommand = 'exit 3'\n", false, "exit code is 3"},
      {"redundancy = 'command'\ncommand = 'kill -9 $$'\n", false, "exit code is 137"},
      {"redundancy = 'command'\ncommand = 'ls /proc/self/fd > " + seen.string() + "; echo said'\n",
       true, "said"}};
  for (const Row& row : rows) {
    configure((row.recovery.empty() ? "" : "[recovery]\n") + row.recovery +
              "[[instance]]\nname = 'reboot'\nitem = 'RebootAppData'\nperiod = 1\n"
              "params = [{ name = 'UserData', value = '" +
              std::to_string(getpid()) + "' }]\n");
    Monitor monitor(run_json({"--rounds", "1"}), folder_);
    const std::vector<std::string> lines = monitor.lines();
    ASSERT_EQ(lines.size(), 1U) << row.recovery;
    EXPECT_EQ(Json::parse(lines[0])["value"], row.allowed ? 0 : -1) << row.recovery;
    EXPECT_EQ(monitor.exit_code(), 0);
    EXPECT_NE(monitor.errors().find(row.log), std::string::npos) << monitor.errors();
    EXPECT_EQ(take_signal(), row.allowed ? std::optional(getpid()) : std::nullopt) << row.recovery;
  }
  EXPECT_EQ(file_text(seen), "0\n1\n2\n3\n") << "the folder that ls reads, no descriptor of ours";
}

TEST_F(RecoveryTest, HungThreadsAreShownWithTheirProcess) {
  const HungThread hung(folder_ / "hung-fifo");
  const auto instance = [](const std::string& name, const std::string& item) {
    return "[[instance]]\nname = '" + name + "'\nitem = '" + item +
           "'\nperiod = 0.001\nparams = [{ name = 'ProcessName', value = '" + own_command_line() +
           "' }]\n";
  };
  configure(instance("hung", "CheckProcessStatusIsD") +
            "[instance.alarm]\nequals = 1\nreport = { item = 'SendErrRptExtend', params = [\n"
            "{ name = 'ErrCode', value = '0xF0000301' }, { name = 'Thread', value = '{pid}' },\n"
            "{ name = 'Value', value = '{value} of {instance}, {{pid}' }] }\n" +
            instance("data-plane", "CheckProcessStatusIsDForAppData"));
  Monitor monitor(run_json({"--rounds", "11"}), folder_);
  std::map<std::string, std::vector<Json>> by_kind;
  for (const std::string& line : monitor.lines()) {
    const Json record = Json::parse(line);
    by_kind[record["kind"]].push_back(record);
    const bool names_thread = record.value("pid", Json()) == hung.tid();
    EXPECT_EQ(record.contains("tid"), names_thread) << line;
    if (!names_thread) continue;
    EXPECT_EQ(record["value"], record["instance"] == "hung" ? 1.0 : 0.0) << "refused: no verdict";
    EXPECT_EQ(record["tid"], hung.tid());
    EXPECT_EQ(record["process"], getpid());
    EXPECT_EQ(record["cmdline"], own_command_line());
  }
  EXPECT_EQ(monitor.exit_code(), 0);
  ASSERT_EQ(by_kind["alarm"].size(), 1U) << monitor.errors();
  EXPECT_EQ(by_kind["alarm"][0]["tid"], hung.tid());
  ASSERT_EQ(by_kind["report"].size(), 1U);
  EXPECT_EQ(by_kind["report"][0]["key"]["errCode"], "0xF0000301");
  EXPECT_EQ(by_kind["report"][0]["function"], "SendErrRptExtend");
  EXPECT_EQ(by_kind["report"][0]["description"], std::to_string(hung.tid()) + ",1 of hung, {pid}");
  EXPECT_NE(monitor.errors().find("redundancyStatus(0)"), std::string::npos);
  EXPECT_EQ(take_signal(), std::nullopt);

  configure(instance("hung", "CheckProcessStatusIsD"));
  Monitor for_people({"run", "--config", config_, "--rounds", "11"}, folder_);
  const std::vector<std::string> lines = for_people.lines();
  ASSERT_EQ(lines.size(), 11U);
  EXPECT_NE(lines[10].find("thread " + std::to_string(hung.tid()) + " of process " +
                           std::to_string(getpid()) + ": " + own_command_line()),
            std::string::npos)
      << lines[10];
}

// The layout that all processes share.
struct HeartEntry {
  uint32_t process, module;
  uint64_t heartbeat;
  uint32_t flow, reserved;
};
static_assert(sizeof(HeartEntry) == 24);

constexpr uint32_t kNone = 0xFFFFFFFF;
constexpr uint64_t kPaused = ~uint64_t{0};

// A /dev/shm of the test's own.
class HeartTest : public MonitorTest {
 protected:
  HeartTest() {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) ||
        mount("tmpfs", "/dev/shm", "tmpfs", 0, nullptr) != 0) {
      throw std::runtime_error("no mount namespace");
    }
  }
  ~HeartTest() override { umount2("/dev/shm", MNT_DETACH); }

  // A table with free entries only, to be written as supervised processes would.
  static HeartEntry* make_table() {
    constexpr size_t kCount = 50;
    const int file = shm_open("/MIRT_AGENT_HEARTBEAT", O_RDWR | O_CREAT, 0660);
    if (ftruncate(file, sizeof(HeartEntry) * kCount) != 0) std::abort();
    void* const mapped =
        mmap(nullptr, sizeof(HeartEntry) * kCount, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    auto* const entries = static_cast<HeartEntry*>(mapped);
    std::fill_n(entries, kCount, HeartEntry{kNone, 0xFFFF, 0, kNone, 0});
    return entries;
  }
  static void beat(HeartEntry& entry, uint64_t heartbeat) {
    __atomic_store_n(&entry.heartbeat, heartbeat, __ATOMIC_RELEASE);
  }
  static std::vector<double> values_of(const std::vector<Json>& records) {
    std::vector<double> values;
    for (const Json& record : records) {
      if (record["kind"] == "item") values.push_back(record["value"]);
    }
    return values;
  }
};

TEST_F(HeartTest, AlarmsRiseOnceReportAndClear) {
  const Child child({"supervised"});  // called "cat" by the kernel
  HeartEntry& entry = *make_table();
  entry = {static_cast<uint32_t>(child.pid()), 77, 5, 102, 0};
  configure(
      "[[instance]]\nname = 'heart'\nitem = 'ProcessHeartBeat'\nperiod = 0.02\nparams = [\n"
      "{ name = 'ProcessName', value = 'cat' }, { name = 'ProcessMoudleId', value = '77' }]\n"
      "[instance.alarm]\nequals = 0\nfor = 2\nclear_for = 3\n"
      "report = { item = 'SendErrRpt', params = [\n"
      "{ name = 'ErrCode', value = '0xF000020F' }, { name = 'ProcessMoudleId', value = '77' },\n"
      "{ name = 'ProcessName', value = 'cat' }, { name = 'UserData', value = '{flowid}' }] }\n");
  Monitor monitor(run_json(), folder_);
  EXPECT_EQ(monitor.await("heart", {"raised"})["hangflowid"], 102);
  EXPECT_EQ(values_of(monitor.seen()), (std::vector<double>{1, 0, 0}));

  const auto is_report = [](const Json& record) { return record["kind"] == "report"; };
  const Json report = monitor.await(is_report);
  EXPECT_EQ(report["key"], (Json{{"resType", 0xF000 | 77},
                                 {"errCode", "0xF000020F"},
                                 {"resId", "cat:102"},
                                 {"rptType", 1}}));
  EXPECT_EQ(report["params"], (Json{{{"name", "ProcessMoudleId"}, {"value", "77"}},
                                    {{"name", "ProcessName"}, {"value", "cat"}},
                                    {{"name", "UserData"}, {"value", "102"}}}));

  beat(entry, kPaused);
  monitor.await("heart", {"cleared"});
  std::vector<double> values = values_of(monitor.seen());
  EXPECT_EQ(std::vector<double>(values.end() - 4, values.end()), (std::vector<double>{0, 1, 1, 1}));
  beat(entry, 9);
  monitor.await("heart", {"raised"});
  monitor.await(is_report);
  monitor.await("heart", {"ok"});
  EXPECT_EQ(std::count_if(monitor.seen().begin(), monitor.seen().end(), is_report), 2);
  monitor.send(SIGTERM);
  EXPECT_EQ(monitor.exit_code(), 0);
  EXPECT_NE(monitor.errors().find("report 0xF000020F"), std::string::npos) << "in the log, too";
}

TEST_F(HeartTest, ReportThatCannotBeSentIsNamed) {
  configure(
      "workers = 1\n[[instance]]\nname = 'memory'\nitem = 'GetSysMemory'\nperiod = 0.02\n"
      "[instance.alarm]\nabove = -1\nreport = { item = 'SendErrRpt', params = [\n"
      "{ name = 'ErrCode', value = '1' }, { name = 'ProcessMoudleId', value = '77' }] }\n");
  Monitor monitor(run_json({"--rounds", "1"}), folder_);
  const Json failed = monitor.await("memory", {"failed"});
  EXPECT_EQ(failed["item"], "SendErrRpt");
  EXPECT_EQ(failed["reason"], "ErrCode 0x1 is not supported.");
  EXPECT_TRUE(monitor.lines().empty());
  EXPECT_EQ(monitor.exit_code(), 0);
}

TEST_F(HeartTest, TableIsShownAndNeverMade) {
  Monitor without({"heartbeats"}, folder_);
  EXPECT_EQ(without.exit_code(), 1);
  EXPECT_EQ(without.errors(), "mirt-monitor: no heartbeat table\n");
  EXPECT_FALSE(fs::exists("/dev/shm/MIRT_AGENT_HEARTBEAT"));
  std::ofstream("/dev/shm/MIRT_AGENT_HEARTBEAT") << "ten bytes!";
  Monitor too_small({"heartbeats"}, folder_);
  EXPECT_EQ(too_small.exit_code(), 1);
  EXPECT_EQ(too_small.errors(), "mirt-monitor: the heartbeat table has 10 bytes, expected 1200\n");

  const Child child({"supervised"});
  const auto pid = static_cast<uint32_t>(child.pid());
  HeartEntry* const entries = make_table();
  entries[0] = {pid, 60001, 7, 101, 0};
  entries[1] = {pid, 60002, 0, kNone, 0};
  entries[49] = {kNone, 0, kPaused, 0, 0};
  std::atomic<bool> ends{false};
  std::thread beating([&] {
    for (uint64_t count = 1; !ends; ++count) beat(entries[1], count);
  });
  Monitor shown({"heartbeats", "--json"}, folder_);
  const std::vector<std::string> lines = shown.lines();
  ends = true;
  beating.join();
  EXPECT_EQ(shown.exit_code(), 0) << shown.errors();
  ASSERT_EQ(lines.size(), 3U);
  const std::string process = std::to_string(pid);
  EXPECT_EQ(lines[0], "{\"module\":60001,\"process\":" + process +
                          ",\"name\":\"cat\",\"heartbeat\":7,\"moved\":false,\"flowid\":101,"
                          "\"paused\":false}");
  const Json moving = Json::parse(lines[1]);
  EXPECT_EQ(moving["moved"], true);
  EXPECT_TRUE(moving["flowid"].is_null());
  EXPECT_EQ(lines[2],
            "{\"module\":0,\"process\":null,\"name\":null,\"heartbeat\":null,\"moved\":false,"
            "\"flowid\":0,\"paused\":true}");

  Monitor for_people({"heartbeats"}, folder_);
  const std::vector<std::string> rows = for_people.lines();
  ASSERT_EQ(rows.size(), 4U);
  std::istringstream row(rows[3]);
  std::vector<std::string> cells;
  for (std::string cell; row >> cell;) cells.push_back(cell);
  EXPECT_EQ(cells, (std::vector<std::string>{"0", "-", "-", "-", "no", "0", "yes"}));
}

}  // namespace
