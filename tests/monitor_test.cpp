// mirt-monitor run, once and check-config.

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>

#include <map>
#include <regex>

#include "monitor_fixture.h"
#include "proc_fixture.h"

namespace {

const std::string kTicking = instance("ticking", "GetSysMemory");

// An instance whose pre-command reads from a FIFO until the test, or nobody, writes to it.
std::string instance_that_blocks(const fs::path& fifo, const std::string& deadline) {
  mkfifo(fifo.c_str(), 0600);
  return pre_command("stuck", "cat fifo", "go", "period = 0.02\ndeadline = " + deadline + "\n");
}

TEST_F(MonitorTest, ThreeRoundsOnThisMachine) {
  const fs::path config = folder_ / "a.toml";
  configure(instance("root", "GetDiskUsage", {{"any", "/"}}) + "unit = 'pc'\n" +
            instance("cpu", "GetSysCPU") +
            instance("self", "GetProcessMemoryFuzzyMatch", {{"any", "*" + config.string() + "*"}}));
  Monitor monitor(folder_, "mirt-monitor run --json --rounds 3 --config " + config.string());
  std::map<std::string, int> calls;
  const std::regex time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d)");
  for (const Json& record : monitor.records()) {
    const bool is_self = record["instance"] == "self";
    ++calls[record["instance"]];
    EXPECT_EQ(record["unit"], is_self ? "MiB" : record["instance"] == "cpu" ? "%" : "pc");
    EXPECT_TRUE(std::regex_match(record["time"].get<std::string>(), time)) << record;
    EXPECT_TRUE(has(record, {{"state", "ok"}, {"result", 0}, {"reason", ""}})) << record;
    EXPECT_EQ(record["pid"], is_self ? Json(monitor.pid()) : Json()) << record;
    EXPECT_GE(record["value"], is_self ? 0.1 : 0.0) << record;
    EXPECT_LE(record["value"], is_self ? 1e6 : 100.0) << record;
  }
  monitor.end(0);
  EXPECT_EQ(calls, (std::map<std::string, int>{{"cpu", 3}, {"root", 3}, {"self", 3}}));
}

TEST_F(MonitorTest, FailuresAreRedOnATerminalUnlessUnwanted) {
  const std::string on_terminal =
      "script --quiet --return --command 'mirt-monitor once GetDiskUsage /nowhere' /dev/null";
  const std::pair<std::string, const char*> rows[] = {
      {"env TERM=xterm NO_COLOR= " + on_terminal, "failed    \033[31mGet Disk Usage Fault"},
      {"env TERM=xterm NO_COLOR=1 " + on_terminal, "failed    Get Disk Usage Fault"}};
  for (const auto& [command, expected] : rows) {
    Monitor monitor(folder_, command);
    EXPECT_TRUE(contains(monitor.line().value_or(""), expected)) << command;
    monitor.end(1);
  }
}

TEST_F(MonitorTest, BadConfigurationsAreRefusedWithEveryMistakeAndNothingStarted) {
  const std::pair<std::string, std::string> rows[] = {
      {"",
       "a.toml:1: nothing to watch, expected at least one [[process]], [[heartbeat]] or "
       "[[instance]], or [machine]\n"},
      {"\n[[instance]\nname = 1\n",
       "a.toml:2: invalid TOML: the table header [[instance] is not closed, expected ]] after "
       "the name\n"},
      {"deadlin = 4\nworkers = 0.5\n"
       "[[instance]]\nname = 'a'\nitem = 'getsyscpu'\nperiod = 0\n"
       "[[instance]]\nname = 'a'\nitem = 'GetSysCPU'\nperiod = nan\n"
       "[[instance]]\n"
       "[recovery]\nredundancy = 'maybe'\n",
       R"(a.toml:1: unknown key "deadlin" in the file, did you mean "deadline"?
a.toml:2: workers is a floating-point number, expected a whole number
a.toml:5: unknown item "getsyscpu", did you mean "GetSysCPU"?
a.toml:6: period is 0, expected 0.001 to 31622400 seconds
a.toml:8: name "a" is already used in line 4, expected another name
a.toml:10: period is nan, expected 0.001 to 31622400 seconds
a.toml:11: no key "name" in [[instance]], expected a string
a.toml:11: no key "item" in [[instance]], expected a string
a.toml:11: no key "period" in [[instance]], expected a number of seconds, or text with ms, s, m, h or d
a.toml:13: redundancy is "maybe", expected "allow", "deny" or "command"
)"},
      {"[[instance]]\nname = 'a'\nitem = 'IsExistProcessPreCmd'\nperiod = 1\n"
       "params = [{ name = 'ProcessName', value = 'x' },\n"
       "{ name = 'Precmd', value = 7 }]\n"
       "[[instance]]\nname = 'b'\nitem = 'ProcessHeartBeat'\nperiod = 1\n"
       "params = [{ name = 'x', value = \"a\\u0000b\" }]\n"
       "[recovery]\nredundancy = 'command'\n",
       R"(a.toml:5: no parameter "RetKeyWords" for IsExistProcessPreCmd, expected it as number 3
a.toml:6: value is an integer, expected a string
a.toml:6: parameter 2 of IsExistProcessPreCmd is named "Precmd", expected "PreCmd"
a.toml:11: value contains a NUL character, expected text without one
a.toml:11: no parameter "ProcessName" for ProcessHeartBeat, expected it
a.toml:11: no parameter "ProcessMoudleId" for ProcessHeartBeat, expected it
a.toml:11: unexpected parameter "x", expected at most 2 for ProcessHeartBeat
a.toml:12: no key "command" in [recovery], expected a string
)"},
      {kTicking + "[instance.alarm]\nabove = 1\nbelow = 2\nfor = 0\n" +
           instance("a", "GetProcessMemory", {{"ProcessName", std::string(400, 'x')}}) +
           "[instance.alarm]\nreport = { item = 'GetSysCPU', params = [\n"
           "{ name = 'UserData', value = '{{ok} {flowid} {value' }] }\n"
           "[recovery]\nredundancy = 'allow'\ncommand = 'true'\n",
       R"(a.toml:7: above and below in [instance.alarm], expected one of above, below, equals
a.toml:10: for is 0, expected a whole number from 1 to 1000000
a.toml:16: parameter value has 400 bytes, expected at most 399
a.toml:18: no condition in [instance.alarm], expected one of above, below, equals, or on
a.toml:19: item GetSysCPU sends no report, expected SendErrRpt or SendErrRptExtend
a.toml:20: placeholder {flowid} for GetProcessMemory, expected an item that reports a flow id
a.toml:20: unknown placeholder "{value", expected {value}, {pid}, {flowid}, {instance} or {{
a.toml:23: command without redundancy = "command", expected it only there
)"},
      {kTicking + "\"name\\u001b\" = 1\n[instance.alarm]\nabove = 1\n"
                  "report = { item = 'SendErrRpt', params = [\n"
                  "{ name = 'ErrCode', value = '4026532367' },\n"
                  "{ name = 'ProcessMoudleId', value = '65536' }] }\n",
       R"(a.toml:7: unknown key "name?" in [[instance]], did you mean "name"?
a.toml:10: no parameter "ProcessName" for SendErrRpt, expected it with ErrCode 0xF000020F
a.toml:12: ProcessMoudleId is "65536", expected a whole number from 0 to 65535, decimal or after 0x
)"},
      {kTicking +
           "[instance.alarm]\nabove = 1\nreport = { item = 'SendErrRpt', params = [\n"
           "{ name = 'ErrCode', value = '0xF0000205' },\n"
           "{ name = 'ProcessMoudleId', value = '{value}' }] }\n" +
           instance("b", "ProcessHeartBeat", {{"ProcessName", "x"}, {"ProcessMoudleId", "0x5"}}),
       "a.toml:10: ErrCode 0xF0000205 is not supported by SendErrRpt, expected one of 0xF0000203, "
       "0xF0000204, 0xF000020F\n"
       "a.toml:18: ProcessMoudleId is \"0x5\", expected a whole number from 0 to 65534, "
       "decimal\n"}};
  for (const auto& [text, errors] : rows) {
    configure(text);
    for (const std::string& command : {kRun, std::string("mirt-monitor check-config a.toml")}) {
      Monitor monitor(folder_, command);
      EXPECT_EQ(monitor.line(), std::nullopt);
      EXPECT_EQ(monitor.end(2), errors);
    }
  }
}

TEST_F(MonitorTest, ConfigurationsAtTheirLimitsAndTheExamplesAreAccepted) {
  configure(instance("a", "GetProcessMemory", {{"ProcessName", std::string(399, 'x')}}));
  const std::string examples = MIRT_SOURCE_DIR "/examples/";
  for (const std::string& path :
       {std::string("a.toml"), examples + "this-machine.toml", examples + "heartbeats.toml",
        examples + "hung-threads.toml", examples + "watches.toml"}) {
    // The tree may be that of somebody else.
    const std::string command = "mirt-monitor check-config --strict --allow-writable-config ";
    EXPECT_EQ(Monitor(folder_, command + path).end(0), "") << path;
  }
}

TEST_F(MonitorTest, MissingFilesAndItemsAreNamed) {
  EXPECT_EQ(Monitor(folder_, kRun).end(2), "a.toml: cannot be read: No such file or directory\n");
  configure("# first\n" + kTicking);
  const std::string library = fs::path(MIRT_MONITOR_PATH).parent_path() / "../lib/libkelv.so";
  EXPECT_EQ(Monitor(folder_, kRun + "--plugin " + library).end(2),
            "a.toml:2: item GetSysMemory is not in " + library +
                ", expected a library that exports it\n");
  const std::string error = Monitor(folder_, kRun + "--plugin ./absent.so").end(2);
  EXPECT_TRUE(contains(error, "./absent.so: "));
}

TEST_F(MonitorTest, MisspeltCommandLinesAreAnsweredWithWhatWasExpected) {
  const std::pair<const char*, const char*> rows[] = {
      {"rnu", "unknown command \"rnu\", did you mean \"run\"?\nRun \"mirt-monitor --help\""},
      {"run --confg x", "unknown option \"--confg\", did you mean \"--config\"?\nRun \"mirt-m"},
      {"kill x 2147483648", "pid: found \"2147483648\", expected a whole number from 1 to 21474"},
      {"--json heartbeats", "option \"--json\" must follow the command"},
      {"kill x 010", "pid: found \"010\", expected a whole number from 1"},
      {"once GetSysCPU --every nan", "--every: found \"nan\", expected a number of seconds from"},
      {"items \x1b", "unexpected argument \"?\"\nRun \"mirt-monitor items --help\" for more."}};
  for (const auto& [arguments, expected] : rows) {
    const std::string error = Monitor(folder_, std::string("mirt-monitor ") + arguments).end(2);
    EXPECT_EQ(error.find(std::string("mirt-monitor: ") + expected), 0U) << error;
  }
  EXPECT_EQ(Monitor(folder_, "mirt-monitor items >/dev/full").end(1),
            "mirt-monitor: cannot write standard output: No space left on device\n");
}

TEST_F(MonitorTest, OnceTellsTheOutcomeByItsExitCode) {
  const std::pair<std::string, int> rows[] = {
      {"GetDiskUsage Folder=/", 0},
      {"GetDiskUsage /nowhere", 1},
      {"GetDiskUsage", 2},
      {"GetDiskUsage / /", 2},
      {"GetDiskUsage " + std::string(400, '/'), 2},
      {"IsExistProcessPreCmd x 'echo --mode=ok' RetKeyWords=--mode",
       0},  // no single word before the =
      {"IsExistProcessPreCmd x 'Cmd=echo ok' ok", 2},
      {"IsExistProcess '[x,y]'", 0},  // no list of two
      {"GetSysMemori", 2}};
  for (const auto& [arguments, exit_code] : rows) {
    Monitor monitor(folder_, "mirt-monitor once " + arguments);
    EXPECT_EQ(monitor.line().has_value(), exit_code != 2) << arguments;
    monitor.end(exit_code);
  }
}

TEST_F(MonitorTest, OnceKeepsOneContextOverItsRounds) {
  // 1,000 ticks, 250 of them idle, and no more from then on: only an item that is handed back its
  // context sees that no time has passed.
  const fs::path stat = folder_ / "stat";
  std::ofstream(stat) << "cpu 300 100 200 250 50 60 40 0 0 0\n";
  SKIP_WITHOUT_MOUNTS();
  const FileMount mounted(stat, "/proc/stat");
  Monitor monitor(folder_, "mirt-monitor once GetSysCPU --every 0.01 --rounds 3 --json");
  EXPECT_EQ(monitor.await({{"state", "ok"}})["value"], 75.0);
  for (int i = 0; i < 2; ++i) {
    monitor.await({{"answer", 0.0},
                   {"state", "unjudged"},
                   {"detail", "/proc/stat shows no ticks since the previous call"}});
  }
  monitor.end(1);
}

TEST_F(MonitorTest, OnceEverySoOftenEndsOnlyWhenItIsStopped) {
  Monitor monitor(folder_, "mirt-monitor once GetSysMemory --every 0.01 --json");
  for (int i = 0; i < 2; ++i) monitor.await({{"state", "ok"}});
  monitor.stop_unread();
  mkfifo((folder_ / "fifo").c_str(), 0600);
  Monitor unanswered(folder_, "mirt-monitor once IsExistProcessPreCmd none 'cat fifo' go");
  const int writer = open((folder_ / "fifo").c_str(), O_WRONLY | O_CLOEXEC);  // waits for cat
  kill(unanswered.pid(), SIGTERM);
  unanswered.end(1);
  close(writer);
}

TEST_F(MonitorTest, BlockedItemGoesBlindThenAnswersLateThenGoesOn) {
  // One worker: the other instance can only go on once the stuck worker has been replaced.
  const fs::path fifo = folder_ / "fifo";
  Monitor monitor = started("workers = 1\n" + instance_that_blocks(fifo, "1") + kTicking);
  Json blind = monitor.await({{"instance", "stuck"}});
  EXPECT_EQ(blind["state"], "blind");
  EXPECT_TRUE(blind["value"].is_null());
  EXPECT_LT(blind["since"], blind["time"]);
  for (int i = 0; i < 3; ++i) monitor.await({{"instance", "ticking"}, {"state", "ok"}});

  // The next call finds a file in the place of the FIFO that this one still reads from.
  const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
  std::ofstream(folder_ / "file") << "go\n";
  fs::rename(folder_ / "file", fifo);
  EXPECT_EQ(write(writer, "go\n", 3), 3);
  close(writer);

  const Json late = monitor.await({{"instance", "stuck"}});
  EXPECT_TRUE(has(late, {{"late", true}, {"value", 0.0}, {"since", blind["since"]}})) << late;
  monitor.await({{"instance", "stuck"}, {"state", "ok"}, {"value", 0.0}});
  monitor.stop_unread();
}

TEST_F(MonitorTest, BlindInstanceDoesNotHoldUpTheLastRound) {
  Monitor monitor = started(instance_that_blocks(folder_ / "fifo", "0.2") + kTicking, "--rounds 2");
  std::map<std::string, int> states;
  for (const Json& record : monitor.records()) ++states[record["state"]];
  EXPECT_EQ(states, (std::map<std::string, int>{{"blind", 1}, {"ok", 2}}));
  monitor.end(0);
}

TEST_F(MonitorTest, SignalsEndItWhileItemsSleepAndHangAndNothingIsDue) {
  const fs::path config = folder_ / "a.toml";
  configure(instance("rare", "GetSysMemory", {}, "period = 100000\n") +
            instance("sleeping", "GetProcessSysCPUFuzzyMatchCfgPeriod",
                     {{"ProcessName", "*" + config.string() + "*"}, {"Period", "240"}},
                     "period = '5 m'\n") +
            instance_that_blocks(folder_ / "fifo", "1000"));
  for (const int number : {SIGINT, SIGTERM, SIGTERM}) {
    Monitor monitor(folder_, "mirt-monitor run --json --config " + config.string());
    monitor.await({{"instance", "rare"}, {"state", "ok"}});
    kill(monitor.pid(), SIGHUP);  // does not end it: the machine would be left unwatched
    const int writer = open((folder_ / "fifo").c_str(), O_WRONLY | O_CLOEXEC);  // waits for cat
    kill(monitor.pid(), number);
    EXPECT_EQ(monitor.end(0), "");
    for (const Json& record : monitor.records()) EXPECT_EQ(record["kind"], "event") << record;
    close(writer);
  }
}

// An instance that leaves a byte in a file at each call.
const std::string kCounted = pre_command("counted", "echo -n x | tee -a calls", "x");

// Returns when `more` calls of that instance have begun.
void await_calls(const fs::path& folder, size_t more) {
  const size_t before = read_file(folder / "calls").size();
  while (read_file(folder / "calls").size() < before + more) usleep(1000);
}

std::vector<pid_t> children_of(pid_t pid) {
  const std::string id = std::to_string(pid);
  std::istringstream pids(read_file("/proc/" + id + "/task/" + id + "/children"));
  return {std::istream_iterator<pid_t>(pids), {}};
}

TEST_F(MonitorTest, ProcessOneTakesOrphansAndPassesSignalsAndTheStatusOn) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, for a PID namespace";
  configure(instance("a", "GetSysMemory"));
  // The shell, which then runs the monitor as process 1, leaves a child that ends later.
  Monitor monitor(folder_,
                  "unshare --mount-proc --pid --fork sh -c '(sleep 0.2 &); exec " + kRun + "'");
  monitor.await({{"state", "ok"}});
  const pid_t process_one = children_of(monitor.pid()).at(0);
  while (children_of(process_one).size() != 1) usleep(1000);  // until only the monitor is left
  kill(process_one, SIGTERM);
  monitor.end(0);
  Monitor(folder_, "unshare --mount-proc --pid --fork mirt-monitor run --config missing").end(2);
}

TEST_F(MonitorTest, AReaderThatPausesHoldsNothingUpAndIsToldWhatItMissed) {
  const std::string judged = kCounted + "[instance.alarm]\nequals = 0\nfor = 20\n";
  Monitor monitor = started(judged + instance("chatty", "GetSysMemory", {}, "period = 0.001\n"));
  unsigned long last = monitor.await({{"instance", "counted"}})["seq"];
  const unsigned long notes = monitor.busy_notes();
  monitor.fill_pipe();
  // Long enough for the alarm, and for more lines than are kept.
  await_calls(folder_, 400);
  std::vector<Json> records = monitor.records({{"state", "raised"}});
  // Without the chatty one a slow reader keeps up, too.
  configure(judged);
  kill(monitor.pid(), SIGHUP);
  for (Json& record : monitor.records({{"kind", "event"}})) records.push_back(std::move(record));
  kill(monitor.pid(), SIGTERM);
  for (Json& record : monitor.records()) records.push_back(std::move(record));
  monitor.end(0);
  unsigned long lost = 0, gaps = 0;
  for (const Json& record : records) {
    if (record.value("kind", "") == "lost") {
      lost += record["lines"].get<unsigned long>();
      EXPECT_EQ(record["others"], 0) << "what matters is kept";
    } else if (record.contains("seq")) {
      gaps += record["seq"].get<unsigned long>() - last - 1;
      last = record["seq"];
    }
  }
  EXPECT_GT(lost, 0U);
  EXPECT_EQ(gaps, lost + monitor.busy_notes() - notes)
      << "each line that is not there has been counted";
}

TEST_F(MonitorTest, SignalEndsItWhileNobodyReads) {
  Monitor monitor = started(kCounted);
  monitor.await({{"instance", "counted"}});
  monitor.fill_pipe();
  await_calls(folder_, 3);
  kill(monitor.pid(), SIGTERM);
  EXPECT_TRUE(contains(monitor.end(1), "lines lost: the output was not read"));
  EXPECT_GT(monitor.records().size(), 100U) << "whole lines to the end";
}

// Only another thread than the one that waits for the next call has the signal. Nothing else ends
// that wait.
TEST_F(MonitorTest, SignalThatAnotherThreadTakesEndsItAtOnce) {
  Monitor monitor = started(instance("rare", "GetSysMemory", {}, "period = 1000000\n"));
  monitor.await({{"instance", "rare"}});
  const std::string process = "/proc/" + std::to_string(monitor.pid());
  while (read_file(process + "/stat").find(") S ") == std::string::npos) usleep(1000);
  for (const fs::directory_entry& thread : fs::directory_iterator(process + "/task")) {
    const pid_t id = std::stoi(thread.path().filename());
    if (id != monitor.pid()) tgkill(monitor.pid(), id, SIGTERM);
  }
  EXPECT_EQ(monitor.end(0), "");
}

TEST_F(MonitorTest, ALostReaderEndsWhatNobodyElseHears) {
  const std::string report =
      "[instance.alarm]\nequals = 0\nfor = 50\nreport = { item = "
      "'SendErrRptExtend', params = [{ name = 'ErrCode', value = '7' }] }\n";
  const std::string missing = instance("missing", "IsExistProcess", {{"ProcessName", "nobody"}});
  const std::tuple<std::string, std::string, const char*> rows[] = {
      {"--rounds 100", missing, "0\n"},
      {"", missing, "1\n"},
      {"2>&1", missing + report, "1\n"},
      {"& sleep 5; kill $!; wait $!", missing + report, "0\n"}};
  for (const auto& [how, text, code] : rows) {
    configure(text);
    Monitor monitor(folder_, std::string("sh -c '{ ")
                                 .append(kRun)
                                 .append(how)
                                 .append("; echo $? >code; } | head -n 1'"));
    EXPECT_EQ(monitor.records().size(), 1U);
    const std::string errors = monitor.end(0);
    EXPECT_EQ(read_file(folder_ / "code"), code) << how;
    // The alarm that comes after the reader has gone is told to the log, with its report.
    EXPECT_EQ(errors.find("report 0x00000007") != std::string::npos, how[0] == '&') << errors;
    EXPECT_EQ(errors.find("output is closed") != std::string::npos, how != "2>&1") << errors;
  }
}

TEST_F(MonitorTest, AFullDiskBehindTheOutputIsSaidOnce) {
  configure(kTicking);
  const std::string errors = Monitor(folder_, kRun + "--rounds 1 >/dev/full").end(1);
  EXPECT_EQ(errors.substr(errors.find("  ")),
            "  error  cannot write standard output: No space left on device\n");
}

TEST_F(MonitorTest, PreCommandsInheritNeitherDescriptorsNorSignalHandling) {
  const std::string command =
      "mirt-monitor once IsExistProcessPreCmd x 'exec 9>seen; ls /proc/self/fd >&9; for s in INT "
      R"(TERM PIPE; do sh -c "kill -$s \$\$"; echo $? >&9; done' 'no such words')";
  for (const std::string redirections : {"", "<&- >&- 2>&- "}) {
    Monitor monitor(folder_, redirections + command);
    monitor.end(1);
    // The three that everybody has, the folder that ls reads, and the 9 of this very command; then
    // 128 and the signal that killed a shell.
    EXPECT_EQ(read_file(folder_ / "seen"), "0\n1\n2\n3\n9\n130\n143\n141\n");
  }
}

}  // namespace
