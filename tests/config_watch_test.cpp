// [[process]], [[heartbeat]], [machine] and [alert.NAME]: what they stand for, and their mistakes.
#include "config/config.h"
#include "config/config_text.h"
#include "monitor_fixture.h"

namespace {

class WatchTest : public MonitorTest {
 protected:
  // The configuration written out in full, which says the same of itself.
  std::string expanded(const std::string& text) const {
    configure(text);
    const ConfigReading reading = read_config(folder_ / "a.toml", Warnings::kAreMistakes);
    for (const std::string& line : findings_text("a.toml", reading.findings)) ADD_FAILURE() << line;
    std::string full = config_text(reading.config);
    configure(full);
    const ConfigReading again = read_config(folder_ / "a.toml", Warnings::kAreMistakes);
    for (const std::string& line : findings_text("full", again.findings)) ADD_FAILURE() << line;
    EXPECT_EQ(config_text(again.config), full);
    return full;
  }
};

std::string process(const std::string& keys) {
  return "[[process]]\nname = 'p'\nprefix = '/bin/p'\n" + keys;
}

TEST_F(WatchTest, WatchesStandForInstances) {
  EXPECT_EQ(expanded(read_file(MIRT_SOURCE_DIR "/tests/watches.toml")),
            read_file(MIRT_SOURCE_DIR "/tests/watches_expanded.toml"));
  const std::string allow = "[recovery]\nredundancy = \"allow\"\n";
  EXPECT_EQ(expanded(allow + process("running = true\n")).find("\n" + allow), 0U);
}

TEST_F(WatchTest, TheItemIsThatOfTheWayToFindTheProcess) {
  const std::string measures =
      "running = true\nmemory = true\ncpu = true\nhandles = true\nhung = true\n";
  const std::pair<std::string, std::string> rows[] = {
      {"exact = 'x y'", "IsExistProcess GetProcessMemory GetProcessSysCPU GetProcessHandle x y"},
      {"prefix = 'x y'",
       "IsExistProcessExtern GetProcessMemoryExtern GetProcessSysCPUExtern GetProcessHandleExtern "
       "x y*"},
      {"match = '*x y?'",
       "GetProcessMemoryFuzzyMatch GetProcessMemoryFuzzyMatch GetProcessSysCPUFuzzyMatch "
       "GetProcessHandleFuzzyMatch *x y?"}};
  for (const auto& [target, expected] : rows) {
    configure(
        std::string("[[process]]\nname = 'p'\n").append(target).append("\n").append(measures));
    const std::vector<Instance> instances = read_config(folder_ / "a.toml").config.instances;
    ASSERT_EQ(instances.size(), 5U) << target;
    std::string found;
    for (size_t i = 0; i < 4; ++i) found += instances[i].item->name + std::string(" ");
    EXPECT_EQ(found + instances[4].params.front().value, expected);
  }
}

TEST_F(WatchTest, AWildcardThatMatchesNothingRaisesTheAlarmOfRunning) {
  Monitor monitor = started(
      "every = '20 ms'\n[[process]]\nname = 'w'\nmatch = '/no/such/*'\nrunning = true\n"
      "[[process]]\nname = 'p'\nprefix = '/no/such/'\nrunning = { severity = 'warning' }\n",
      "--rounds 2");
  std::vector<std::string> raised;
  for (const Json& record : monitor.records()) {
    if (record["kind"] == "alarm") raised.push_back(record["instance"]);
  }
  monitor.end(0);
  std::sort(raised.begin(), raised.end());
  EXPECT_EQ(raised, (std::vector<std::string>{"p.running", "w.running"}));
}

}  // namespace
