// mirt-monitor run, once and check-config.
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>

#include <map>
#include <regex>

#include "child.h"
#include "monitor_fixture.h"

namespace {

constexpr char kTicking[] =
    "[[instance]]\nname = \"ticking\"\nitem = \"GetSysMemory\"\nperiod = 0.05\n";

TEST_F(MonitorTest, ThreeRoundsOnThisMachine) {
  configure(std::string(kTicking) +
            "[[instance]]\nname = \"cpu\"\nitem = \"GetSysCPU\"\nperiod = 0.05\n"
            "[[instance]]\nname = \"root\"\nitem = \"GetDiskUsage\"\nperiod = 0.05\nunit = \"pc\"\n"
            "params = [{ name = \"any\", value = \"/\" }]\n"
            "[[instance]]\nname = \"self\"\nitem = \"GetProcessMemoryFuzzyMatch\"\nperiod = 0.05\n"
            "params = [{ name = \"any\", value = \"*" +
            config_.string() + "*\" }]\n");
  Monitor monitor(run_json({"--rounds", "3"}), folder_);
  std::map<std::string, std::vector<Json>> by_instance;
  for (const std::string& line : monitor.lines()) {
    const Json record = Json::parse(line);
    by_instance[record["instance"]].push_back(record);
    EXPECT_EQ(record["state"], "ok") << line;
    EXPECT_EQ(record["result"], 0) << line;
    EXPECT_EQ(record["reason"], "") << line;
    EXPECT_TRUE(
        std::regex_match(record["time"].get<std::string>(),
                         std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d)")))
        << line;
  }
  EXPECT_EQ(monitor.exit_code(), 0) << monitor.errors();
  ASSERT_EQ(by_instance.size(), 4U);
  for (const auto& [name, records] : by_instance) {
    ASSERT_EQ(records.size(), 3U) << name;
    for (const Json& record : records) {
      EXPECT_GE(record["value"], 0.0) << record;
      if (name != "self") {
        EXPECT_LE(record["value"], 100.0) << record;
        EXPECT_TRUE(record["pid"].is_null()) << record;
      }
    }
  }
  EXPECT_EQ(by_instance["root"][0]["unit"], "pc");
  EXPECT_EQ(by_instance["cpu"][0]["unit"], "%");
  for (const Json& record : by_instance["self"]) {
    EXPECT_EQ(record["pid"], monitor.pid());
    EXPECT_GT(record["value"], 0.0);
  }
}

TEST_F(MonitorTest, LinesForPeopleAreAligned) {
  configure(
      "[[instance]]\nname = \"r\u00f6\"\nitem = \"GetDiskUsage\"\nperiod = 0.05\n"
      "params = [{ name = \"d\", value = \"/\" }]\n"
      "[[instance]]\nname = \"longer name\"\nitem = \"GetSysFreeMemory\"\nperiod = 0.05\n"
      "[[instance]]\nname = \"bad\\u001b[2J\"\nitem = \"GetDiskUsage\"\nperiod = 0.05\n"
      "params = [{ name = \"d\", value = \"/nowhere\" }]\n");
  Monitor monitor({"run", "--config", config_, "--rounds", "1"}, folder_);
  std::map<std::string, std::string> after_time;
  for (const std::string& line : monitor.lines()) {
    ASSERT_GT(line.size(), 21U);
    after_time[line.substr(21, 3)] = line.substr(21);
  }
  EXPECT_EQ(monitor.exit_code(), 0);
  EXPECT_TRUE(std::regex_match(after_time["r\u00f6"], std::regex("r\u00f6 {10} +\\d+\\.00 %")))
      << after_time["r\u00f6"];
  EXPECT_TRUE(std::regex_match(after_time["lon"], std::regex("longer name +\\d+\\.\\d\\d MiB")));
  // The value ends in one column, 10 wide, and a name cannot command the terminal.
  EXPECT_EQ(after_time["lon"].rfind(" MiB"), 11U + 2 + 10);
  EXPECT_EQ(after_time["bad"],
            "bad?[2J          failed      Get Disk Usage Fault, Return -1.000000.");
}

TEST_F(MonitorTest, FailuresAreRedOnATerminalUnlessUnwanted) {
  const std::vector<std::string> arguments{"once", "GetDiskUsage", "/nowhere"};
  const auto first_line = [&](const char* no_color, bool on_terminal) {
    const auto prepare = [no_color] {
      setenv("TERM", "xterm", 1);
      setenv("NO_COLOR", no_color, 1);
    };
    Monitor monitor(arguments, folder_, prepare, on_terminal);
    std::string line = monitor.line().value_or("");
    EXPECT_NE(line.find("Get Disk Usage Fault"), std::string::npos) << line;
    EXPECT_EQ(monitor.exit_code(), 1);
    return line;
  };
  EXPECT_NE(first_line("", true).find("\033[31mGet Disk"), std::string::npos);
  EXPECT_EQ(first_line("1", true).find('\033'), std::string::npos);
  EXPECT_EQ(first_line("", false).find('\033'), std::string::npos);
}

struct BadConfig {
  const char* name;
  std::string text;
  std::string errors;  // every line, FILE standing for the path
};

class BadConfigTest : public MonitorTest, public testing::WithParamInterface<BadConfig> {};

TEST_P(BadConfigTest, IsRefusedWithEveryMistakeAndNothingStarted) {
  configure(GetParam().text);
  const std::string expected =
      std::regex_replace(GetParam().errors, std::regex("FILE"), config_.string());
  for (const auto& arguments : {run_json(), {"check-config", config_.string()}}) {
    Monitor monitor(arguments, folder_);
    EXPECT_TRUE(monitor.lines().empty());
    EXPECT_EQ(monitor.exit_code(), 2);
    EXPECT_EQ(monitor.errors(), expected);
  }
}

std::string with_value(const std::string& value) {
  return "[[instance]]\nname = \"a\"\nitem = \"GetProcessMemory\"\nperiod = 1\n"
         "params = [{ name = \"ProcessName\", value = \"" +
         value + "\" }]\n";
}

INSTANTIATE_TEST_SUITE_P(
    Configurations, BadConfigTest,
    testing::Values(
        BadConfig{"Empty", "", "FILE:1: no instance, expected at least one [[instance]]\n"},
        BadConfig{"NoToml", "workers = 2\n\n[[instance]\nname = 1\n",
                  "FILE:3: no TOML: Error while parsing table header: expected ']', saw '\\n', "
                  "expected a TOML file\n"},
        BadConfig{"SingleTable", "[instance]\nname = \"a\"\n",
                  "FILE:1: instance is a table, expected at least one [[instance]]\n"},
        BadConfig{"KeysAndTypes",
                  "deadlin = 4\nworkers = 0.5\n"
                  "[[instance]]\nname = \"a\"\nitem = \"getsyscpu\"\nperiod = 0\nperod = 3\n"
                  "[[instance]]\nname = \"a\"\nitem = \"Nonsense\"\nperiod = \"1\"\nunit = 5\n"
                  "[[instance]]\nname = \"\"\nitem = \"GetSysCPU\"\nperiod = nan\ndeadline = -1\n"
                  "[[instance]]\nname = 5\nitem = \"GetSysCPU\"\nperiod = 1\n"
                  "[[instance]]\n",
                  "FILE:1: unknown key \"deadlin\" in the file, did you mean \"deadline\"?\n"
                  "FILE:2: workers is a floating-point number, expected a whole number\n"
                  "FILE:5: unknown item \"getsyscpu\", did you mean \"GetSysCPU\"?\n"
                  "FILE:6: period is 0, expected a number of seconds from 0.001 to 31622400\n"
                  "FILE:7: unknown key \"perod\" in [[instance]], did you mean \"period\"?\n"
                  "FILE:9: name \"a\" is also that of the instance in line 4, expected a name of "
                  "its own\n"
                  "FILE:10: unknown item \"Nonsense\", expected one that \"mirt-monitor items\" "
                  "lists\n"
                  "FILE:11: period is a string, expected a number of seconds\n"
                  "FILE:12: unit is an integer, expected a string\n"
                  "FILE:14: name is empty, expected a name\n"
                  "FILE:16: period is nan, expected a number of seconds from 0.001 to 31622400\n"
                  "FILE:17: deadline is -1, expected a number of seconds from 0.001 to 31622400\n"
                  "FILE:19: name is an integer, expected a string\n"
                  "FILE:22: no key \"name\" in [[instance]], expected a string\n"
                  "FILE:22: no key \"item\" in [[instance]], expected a string\n"
                  "FILE:22: no key \"period\" in [[instance]], expected a number of seconds\n"},
        BadConfig{"Parameters",
                  "[[instance]]\nname = \"a\"\nitem = \"IsExistProcessPreCmd\"\nperiod = 1\n"
                  "params = [{ name = \"ProcessName\", value = \"x\" },\n"
                  "{ name = \"Precmd\", value = 7 }]\n"
                  "[[instance]]\nname = \"b\"\nitem = \"GetSysMemory\"\nperiod = 1\n"
                  "params = [\n{ name = \"x\", value = \"y\" },\n\"z\"]\n"
                  "[[instance]]\nname = \"c\"\nitem = \"ProcessHeartBeat\"\nperiod = 1\n"
                  "params = [{ name = \"ProcessModuleId\", value = \"5\" }]\n"
                  "[[instance]]\nname = \"d\"\nitem = \"GetDiskUsage\"\nperiod = 1\nparams = 3\n",
                  "FILE:5: no parameter \"RetKeyWords\" for IsExistProcessPreCmd, expected it as "
                  "number 3\n"
                  "FILE:6: value is an integer, expected a string\n"
                  "FILE:6: parameter 2 of IsExistProcessPreCmd is named \"Precmd\", expected "
                  "\"PreCmd\"\n"
                  "FILE:12: superfluous parameter 1, expected none for GetSysMemory\n"
                  "FILE:13: parameter is a string, expected { name = \"...\", value = \"...\" }\n"
                  "FILE:13: superfluous parameter 2, expected none for GetSysMemory\n"
                  "FILE:18: no parameter \"ProcessName\" for ProcessHeartBeat, expected it\n"
                  "FILE:18: no parameter \"ProcessMoudleId\" for ProcessHeartBeat, expected it\n"
                  "FILE:18: superfluous parameter \"ProcessModuleId\", expected at most 2 for "
                  "ProcessHeartBeat, did you mean \"ProcessMoudleId\"?\n"
                  "FILE:23: params is an integer, expected an array of { name = \"...\", value = "
                  "\"...\" }\n"},
        BadConfig{"RecoveryWithoutCommand",
                  std::string(kTicking) + "[recovery]\nredundancy = \"command\"\nmay = 1\n",
                  "FILE:5: no key \"command\" in [recovery], expected a string\n"
                  "FILE:7: unknown key \"may\" in [recovery], expected one of command, "
                  "redundancy\n"},
        BadConfig{"RecoveryWithEmptyCommand",
                  std::string(kTicking) + "[recovery]\nredundancy = \"command\"\ncommand = \"\"\n",
                  "FILE:7: command is empty, expected a shell command\n"},
        BadConfig{
            "RecoveryWithUselessCommand",
            std::string(kTicking) + "[recovery]\nredundancy = \"allow\"\ncommand = \"true\"\n",
            "FILE:7: command without redundancy = \"command\", expected it only there\n"},
        BadConfig{"RecoveryByChance",
                  std::string(kTicking) + "[recovery]\nredundancy = \"maybe\"\n",
                  "FILE:6: redundancy is \"maybe\", expected \"allow\", \"deny\" or "
                  "\"command\"\n"},
        BadConfig{
            "Alarms",
            std::string(kTicking) +
                "[instance.alarm]\nabove = 1\nbelow = \"2\"\nfor = 0\nclear_fro = 2\n"
                "[[instance]]\nname = \"b\"\nitem = \"GetSysMemory\"\nperiod = 1\n"
                "[instance.alarm]\nreport = { item = \"GetSysCPU\" }\n"
                "[[instance]]\nname = \"c\"\nitem = \"GetSysMemory\"\nperiod = 1\n"
                "[instance.alarm]\nequals = nan\nreport = { item = \"SendErrRpt\", params = [\n"
                "{ name = \"ErrCode\", value = \"{{ok} {value}\" },\n"
                "{ name = \"UserData\", value = \"{flow} {flowid} {value\" }] }\n",
            "FILE:5: above and below in [instance.alarm], expected one of above, below, "
            "equals\n"
            "FILE:7: below is a string, expected a number\n"
            "FILE:8: for is 0, expected a whole number from 1 to 1000000\n"
            "FILE:9: unknown key \"clear_fro\" in [instance.alarm], did you mean "
            "\"clear_for\"?\n"
            "FILE:14: no condition in [instance.alarm], expected one of above, below, equals\n"
            "FILE:15: item GetSysCPU sends no report, expected SendErrRpt or "
            "SendErrRptExtend\n"
            "FILE:21: equals is nan, expected a number from -1e+30 to 1e+30\n"
            "FILE:22: no parameter \"ProcessMoudleId\" for SendErrRpt, expected it\n"
            "FILE:24: unknown placeholder \"{flow}\", expected {value}, {pid}, {flowid}, "
            "{instance} or {{\n"
            "FILE:24: placeholder {flowid} for GetSysMemory, expected an item that reports a "
            "flow id\n"
            "FILE:24: unknown placeholder \"{value\", expected {value}, {pid}, {flowid}, "
            "{instance} or {{\n"},
        BadConfig{"ValueOneByteTooLong", with_value(std::string(400, 'x')),
                  "FILE:5: parameter value has 400 bytes, expected at most 399\n"},
        BadConfig{"NulInValue", with_value("a\\u0000b"),
                  "FILE:5: parameter value holds a NUL character, expected text without one\n"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(MonitorTest, ConfigurationsAtTheirLimitsAreAccepted) {
  configure(with_value(std::string(399, 'x')));
  Monitor monitor({"check-config", config_}, folder_);
  EXPECT_EQ(monitor.lines(),
            std::vector<std::string>{config_.string() + ": 1 instance, no mistakes"});
  EXPECT_EQ(monitor.exit_code(), 0);

  for (const char* const name : {"this-machine", "heartbeats", "hung-threads"}) {
    const std::string path = MIRT_SOURCE_DIR "/examples/" + std::string(name) + ".toml";
    Monitor example({"check-config", path}, folder_);
    EXPECT_NE(example.line().value_or("").find("instances, no mistakes"), std::string::npos);
    EXPECT_EQ(example.exit_code(), 0) << example.errors();
  }
}

TEST_F(MonitorTest, MissingFilesAndItemsAreNamed) {
  Monitor no_config({"run", "--config", folder_ / "absent.toml"}, folder_);
  EXPECT_EQ(no_config.exit_code(), 2);
  EXPECT_EQ(no_config.errors(),
            (folder_ / "absent.toml").string() + ": cannot be read: No such file or directory\n");

  configure(std::string("# first\n") + kTicking);
  const std::string other_library =
      fs::path(MIRT_MONITOR_PATH).parent_path().parent_path() / "lib/libkelv.so";
  Monitor no_item(run_json({"--plugin", other_library}), folder_);
  EXPECT_EQ(no_item.exit_code(), 2);
  EXPECT_EQ(no_item.errors(), config_.string() + ":2: item GetSysMemory is not in " +
                                  other_library + ", expected a library that exports it\n");

  Monitor no_plugin(run_json({"--plugin", folder_ / "absent.so"}), folder_);
  EXPECT_EQ(no_plugin.exit_code(), 2);
  EXPECT_NE(no_plugin.errors().find("absent.so"), std::string::npos);
}

TEST_F(MonitorTest, OnceTellsTheOutcomeByItsExitCode) {
  struct Row {
    std::vector<std::string> arguments;
    int exit_code;
  };
  const Row rows[] = {
      {{"GetSysMemory"}, 0},
      {{"GetDiskUsage", "/"}, 0},
      {{"GetDiskUsage", "Folder=/"}, 0},
      {{"GetDiskUsage", "/nowhere"}, 1},
      {{"GetDiskUsage"}, 2},
      {{"GetDiskUsage", "/", "/"}, 2},
      {{"GetDiskUsage", std::string(400, '/')}, 2},
      {{"IsExistProcessPreCmd", "x", "echo ok", "ok"}, 0},
      {{"IsExistProcessPreCmd", "x", "Cmd=echo ok", "ok"}, 2},
      {{"GetSysMemori"}, 2},
      {{"GetSysMemory", "--rounds", "2"}, 2},
      {{"GetSysMemory", "--every", "0"}, 2},
      {{}, 2},
  };
  for (const Row& row : rows) {
    std::vector<std::string> arguments{"once"};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    Monitor monitor(arguments, folder_);
    EXPECT_EQ(monitor.lines().size(), row.exit_code == 2 ? 0U : 1U);
    EXPECT_EQ(monitor.exit_code(), row.exit_code) << Json(arguments) << monitor.errors();
  }
}

TEST_F(MonitorTest, OnceTellsValuesFromNames) {
  const Child child({"monitored --mode=fast", "-u"});
  const auto value = [&](const std::string& argument) {
    Monitor monitor({"once", "IsExistProcess", argument, "--json"}, folder_);
    return Json::parse(monitor.line().value_or("{}")).value("value", -1.0);
  };
  EXPECT_EQ(value("monitored --mode=fast -u"), 1.0) << "no single word before the =";
  EXPECT_EQ(value("ProcessName=monitored --mode=fast -u"), 1.0);
  EXPECT_EQ(value("monitored --mode=slow -u"), 0.0);
}

TEST_F(MonitorTest, OnceKeepsOneContextOverItsRounds) {
  // 1,000 ticks, 250 of them idle, and no more from then on: only an item that is handed back its
  // context sees that no time has passed.
  const fs::path stat = folder_ / "stat";
  std::ofstream(stat) << "cpu 300 100 200 250 50 60 40 0 0 0\n";
  const auto freeze_counters = [&stat] {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) ||
        mount(stat.c_str(), "/proc/stat", nullptr, MS_BIND, nullptr) != 0) {
      _exit(126);
    }
  };
  Monitor monitor({"once", "GetSysCPU", "--every", "0.01", "--rounds", "3", "--json"}, folder_,
                  freeze_counters);
  std::vector<double> values;
  for (const std::string& line : monitor.lines()) values.push_back(Json::parse(line)["value"]);
  EXPECT_EQ(monitor.exit_code(), 0) << monitor.errors();
  EXPECT_EQ(values, (std::vector<double>{75.0, 0.0, 0.0}));
}

TEST_F(MonitorTest, BlockedItemGoesBlindThenAnswersLateThenGoesOn) {
  // One worker: the other instance can only go on once the stuck worker has been replaced.
  configure("workers = 1\n" + instance_that_blocks("1") + kTicking);
  Monitor monitor(run_json(), folder_);
  const Json blind = monitor.await("stuck", {"blind"});
  EXPECT_TRUE(blind["value"].is_null());
  EXPECT_LT(blind["since"], blind["time"]);
  for (int i = 0; i < 3; ++i) monitor.await("ticking", {"ok"});

  // The next call finds a file in the place of the FIFO that this one still reads from.
  const fs::path fifo = folder_ / "fifo";
  const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
  std::ofstream(folder_ / "file") << "go\n";
  fs::rename(folder_ / "file", fifo);
  EXPECT_EQ(write(writer, "go\n", 3), 3);
  close(writer);

  const Json late = monitor.await("stuck", {"late"});
  EXPECT_EQ(late["value"], 0.0);
  EXPECT_EQ(late["result"], 0);
  EXPECT_EQ(late["since"], blind["since"]);
  EXPECT_EQ(monitor.await("stuck", {"ok"})["value"], 0.0);
  const auto is_blind = [](const Json& record) { return record["state"] == "blind"; };
  EXPECT_EQ(std::count_if(monitor.seen().begin(), monitor.seen().end(), is_blind), 1);
  monitor.send(SIGTERM);
  EXPECT_EQ(monitor.exit_code(), 0) << monitor.errors();
}

TEST_F(MonitorTest, BlindInstanceDoesNotHoldUpTheLastRound) {
  configure(instance_that_blocks("0.2") + kTicking);
  Monitor monitor(run_json({"--rounds", "2"}), folder_);
  std::map<std::string, int> states;
  for (const std::string& line : monitor.lines()) ++states[Json::parse(line)["state"]];
  EXPECT_EQ(states, (std::map<std::string, int>{{"blind", 1}, {"ok", 2}}));
  EXPECT_EQ(monitor.exit_code(), 0) << monitor.errors();
}

class StopTest : public MonitorTest, public testing::WithParamInterface<int> {};

TEST_P(StopTest, EndsCleanlyWhileItemsSleepAndHang) {
  configure(instance_that_blocks("100") + kTicking +
            "[[instance]]\nname = \"sleeping\"\nperiod = 1\n"
            "item = \"GetProcessSysCPUFuzzyMatchCfgPeriod\"\n"
            "params = [{ name = \"ProcessName\", value = \"*" +
            config_.string() + "*\" }, { name = \"Period\", value = \"240\" }]\n");
  Monitor monitor(run_json(), folder_);
  // By the third call of one instance the others have long been started.
  for (int i = 0; i < 3; ++i) monitor.await("ticking", {"ok"});
  monitor.send(GetParam());
  EXPECT_EQ(monitor.exit_code(), 0);
  EXPECT_EQ(monitor.errors(), "");
  for (const std::string& line : monitor.lines()) {
    EXPECT_EQ(Json::parse(line)["instance"], "ticking") << "whole lines only, to the end";
  }
}

TEST_P(StopTest, EndsCleanlyWhileNothingIsDue) {
  configure("[[instance]]\nname = \"rare\"\nitem = \"GetSysMemory\"\nperiod = 100000\n");
  Monitor monitor(run_json(), folder_);
  monitor.await("rare", {"ok"});
  monitor.send(GetParam());
  EXPECT_EQ(monitor.exit_code(), 0);
  EXPECT_TRUE(monitor.lines().empty());
  EXPECT_EQ(monitor.errors(), "");
}

TEST_P(StopTest, EndsCleanlyWhileNobodyReads) {
  std::string text;
  for (int i = 0; i < 20; ++i) {
    text += "[[instance]]\nname = \"chatty" + std::to_string(i) +
            "\"\nitem = \"GetSysMemory\"\nperiod = 0.001\n";
  }
  configure(text);
  Monitor monitor(run_json(), folder_);
  // The monitor has more lines than fit, so that it is, or is about to be, stuck in writing one.
  const std::string pipe_path = "/proc/self/fd/" + std::to_string(monitor.output());
  pollfd writable{open(pipe_path.c_str(), O_WRONLY | O_CLOEXEC), POLLOUT, 0};
  ASSERT_GE(writable.fd, 0);
  while (poll(&writable, 1, 0) == 1) sched_yield();
  close(writable.fd);
  monitor.send(GetParam());
  EXPECT_EQ(monitor.exit_code(), 0);
  EXPECT_EQ(monitor.errors(), "");
}

INSTANTIATE_TEST_SUITE_P(Signals, StopTest, testing::Values(SIGINT, SIGTERM), [](const auto& row) {
  return row.param == SIGINT ? "SIGINT" : "SIGTERM";
});

TEST_F(MonitorTest, ClosedOutputEndsIt) {
  configure(kTicking);
  Monitor monitor(run_json(), folder_);
  monitor.await("ticking", {"ok"});
  monitor.close_output();
  EXPECT_EQ(monitor.exit_code(), 0);
  EXPECT_EQ(monitor.errors(), "");
}

TEST_F(MonitorTest, PreCommandsInheritNeitherDescriptorsNorSignalHandling) {
  const fs::path seen = folder_ / "seen";
  const std::string command =
      "exec 9>" + seen.string() +
      "; ls /proc/self/fd >&9; grep -E 'Sig(Blk|Ign)' /proc/self/status >&9";
  const auto close_all_three = [] { close_range(0, 2, 0); };
  for (const std::function<void()>& prepare : {std::function<void()>([] {}), {close_all_three}}) {
    Monitor monitor({"once", "IsExistProcessPreCmd", "x", command, "no such words"}, folder_,
                    prepare);
    monitor.lines();
    EXPECT_EQ(monitor.exit_code(), 0) << monitor.errors();
    std::istringstream text(file_text(seen));
    std::vector<int> descriptors;
    for (int fd; text >> fd;) descriptors.push_back(fd);
    // The three that everybody has, the folder that ls reads, and the 9 of this very command.
    EXPECT_EQ(descriptors, (std::vector<int>{0, 1, 2, 3, 9}));

    text.clear();
    int masks = 0;
    for (std::string label, mask; text >> label >> mask; ++masks) {
      const unsigned long long bits = std::stoull(mask, nullptr, 16);
      for (const int number : {SIGINT, SIGTERM, SIGPIPE}) {
        EXPECT_EQ(bits >> (number - 1) & 1U, 0U) << label << " of signal " << number;
      }
    }
    EXPECT_EQ(masks, 2);
  }
}

}  // namespace
