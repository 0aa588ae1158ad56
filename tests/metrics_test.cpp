// What Prometheus reads of a running monitor, checked with its own tool.
#include <cmath>
#include <regex>

#include "every_item.h"
#include "heart_fixture.h"
#include "hung_thread.h"
#include "item/state.h"
#include "metrics_format.h"
#include "status/unix_client.h"
#include "status/value_metric.h"

namespace {

std::string of_watch(const std::string& name) {
  return "{watch=\"" + name + "\"";
}

double scale_of(const std::string& unit) {
  if (unit == "%") return 0.01;
  if (unit == "% core") return 0.01 / static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN));
  return unit == "MiB" ? 1048576.0 : 1.0;
}

class MetricsTest : public HeartTest {
 protected:
  void SetUp() override {
    HeartTest::SetUp();
    SKIP_WITHOUT_PROMTOOL();
  }
  std::string scrape() const {
    const auto result = UnixClient(socket_path()).Get("/metrics");
    EXPECT_TRUE(result && result->status == 200) << httplib::to_string(result.error());
    return result ? result->body : "";
  }
  std::map<std::string, double> series() const { return series_of(scrape()); }
};

// The value of the watch as its line has it; no series if the line has none.
void expect_value(const Json& line, const std::map<std::string, double>& all) {
  const std::string name = line["instance"];
  const size_t metric = value_metric_of(*find_item(line["item"].get<std::string>()));
  unsigned found = 0;
  for (const ValueMetric& each : kValueMetrics) {
    const std::string beginning = each.name + of_watch(name);
    const auto next = all.lower_bound(beginning);
    if (next == all.end() || next->first.compare(0, beginning.size(), beginning) != 0) continue;
    ++found;
    EXPECT_EQ(each.name, kValueMetrics[metric].name) << name;
    const double expected = line["value"].get<double>() * scale_of(line["unit"]);
    EXPECT_NEAR(next->second, expected, std::abs(expected) * 1e-6) << line;
  }
  const bool has_value = !line["value"].is_null() && metric < kValueMetricCount;
  EXPECT_EQ(found, has_value ? 1U : 0U) << line;
}

void expect_state(const std::string& name, const std::string& state,
                  const std::map<std::string, double>& all) {
  for (const State each : kAllStates) {
    const std::string key =
        "mirt_watch_state" + of_watch(name) + ",state=\"" + state_name(each) + "\"}";
    ASSERT_EQ(all.count(key), 1U) << key;
    EXPECT_EQ(value_of(key, all), state == state_name(each) ? 1.0 : 0.0) << key;
  }
}

// Each metric that a file of fleet/ names is one of the program, or a rule records it.
void expect_known_metrics(const std::string& program) {
  const fs::path fleet = fs::path(MIRT_SOURCE_DIR) / "fleet";
  std::string known = program;
  for (const auto& rules : fs::directory_iterator(fleet / "rules")) {
    known += read_file(rules.path());
  }
  const std::regex name("\\b(?:[a-z]+:)?(?:mirt|process)_[a-z_]+[a-z](?::[a-z0-9_]+)?");
  unsigned names = 0;
  for (const auto& file : fs::recursive_directory_iterator(fleet)) {
    if (!file.is_regular_file()) continue;
    std::string text = read_file(file.path());
    if (file.path().extension() == ".json") {
      EXPECT_NO_THROW(text = Json::parse(text)["panels"].dump()) << file.path();
    }
    for (std::sregex_iterator next(text.begin(), text.end(), name), end; next != end; ++next) {
      const std::string metric = next->str();
      const bool is_recorded = metric.find(':') != std::string::npos;
      const std::string origin = is_recorded ? "record: " + metric + "\n" : "\n" + metric;
      EXPECT_TRUE(contains(known, origin)) << file.path() << " names " << metric;
      ++names;
    }
  }
  EXPECT_GT(names, 50U);
}

TEST_F(MetricsTest, EveryItemAndStateIsAsInTheLines) {
  make_table()[0] = {process_, 77, 5, 9, 0};
  const Child child({kWatchedCommandLine});
  const HungThread hung;
  Monitor monitor = started_with_socket(
      every_item("period = 1000\ndeadline = 1000\n") +
      instance("absent", "GetProcessMemory", {{"ProcessName", "nobody"}}) +
      instance("failed", "GetDiskUsage", {{"d", "/nowhere"}}) + alarm("on = ['failed']") +
      alarm("on = ['failed']\nfor = 2\nseverity = 'warning'") +
      pre_command("blind", "sleep 1000", "", "period = 1000\ndeadline = 0.01\n") +
      pre_command("pending", "sleep 1000", "", "period = 1000\ndeadline = 1000\n") +
      pre_command("unjudged", "echo no", "yes") +
      instance("heart", "ProcessHeartBeat", {{"ProcessName", "cat"}, {"ProcessMoudleId", "77"}}) +
      alarm("equals = 0") +
      instance("stuck", "CheckProcessStatusIsD", {{"ProcessName", "*metrics_tests*"}}) +
      alarm("equals = 1") + "[alert.nobody]\ncommand = ['/bin/true']\n");
  std::map<std::string, Json> lines;
  const auto is_complete = [&] {
    return lines.size() == all_items().size() + 6 && lines["heart"]["state"] == "alarm" &&
           lines["stuck"]["state"] == "alarm" &&
           lines["failed"].value("alarms", Json()).size() == 2;
  };
  while (!is_complete()) {
    const Json line = monitor.await({{"kind", "item"}});
    lines[line.value("instance", "")] = line;
  }
  const std::string text = scrape();
  const std::map<std::string, double> all = series_of(text);
  expect_no_complaint(text);
  expect_known_metrics(text);
  for (const auto& [name, line] : lines) {
    expect_value(line, all);
    expect_state(name, line["state"], all);
    if (!line["pid"].is_number() || line["pid"] == 0 || line.contains("tid")) continue;
    EXPECT_EQ(value_of("mirt_process_pid" + of_watch(name) + "}", all), line["pid"]);
  }
  for (const char* const name : {"absent", "failed", "blind", "unjudged"}) {
    EXPECT_EQ(lines[name]["state"], name);
  }
  expect_state("pending", "pending", all);
  expect_value({{"instance", "pending"}, {"item", "IsExistProcess"}, {"value", nullptr}}, all);
  EXPECT_EQ(value_of("mirt_heartbeat_flow_id{watch=\"heart\"}", all), 9.0);
  EXPECT_EQ(value_of("mirt_process_pid{watch=\"heart\"}", all), process_);
  EXPECT_EQ(value_of("mirt_process_pid{watch=\"stuck\"}", all), getpid());
  EXPECT_EQ(value_of("mirt_filesystem_used_ratio{watch=\"GetDiskUsage\",mountpoint=\"/\"}", all),
            lines["GetDiskUsage"]["value"].get<double>() / 100.0);
  for (const char* const severity : {"critical", "warning"}) {
    const std::string labels = of_watch("failed") + ",severity=\"" + severity + "\"}";
    EXPECT_EQ(value_of("mirt_alarm_active" + labels, all), 1.0);
    EXPECT_EQ(value_of("mirt_alarms_raised_total" + labels, all), 1.0);
  }
  EXPECT_EQ(all.count("mirt_alarm_active{watch=\"stuck\",severity=\"warning\"}"), 0U);
  const std::string evidence =
      "mirt_alarm_info{watch=\"stuck\",severity=\"critical\","
      "condition=\"equals 1\",evidence=\"thread \\\"metrics_tests\\\" in "
      "state D (disk sleep)";
  EXPECT_TRUE(contains(text, evidence));
  EXPECT_EQ(value_of("mirt_reports_total{error_code=\"0xF0000203\"}", all), 2.0);
  EXPECT_EQ(value_of("mirt_recovery_decisions_total{decision=\"denied\"}", all), 1.0);
  EXPECT_EQ(value_of("mirt_watch_calls_total{watch=\"blind\",outcome=\"blind\"}", all), 1.0);
  EXPECT_EQ(value_of("mirt_watch_call_seconds_count{watch=\"GetSysCPU\"}", all), 1.0);
}

TEST_F(MetricsTest, CountersGoOnAfterAReloadAndWatchesThatAreGoneHaveNoSeries) {
  const std::string kept = instance("kept", "GetSysFreeMemory");
  Monitor monitor = started_with_socket(kept + instance("gone", "GetSysMemory"));
  for (const char* const name : {"kept", "gone"}) monitor.await({{"instance", name}});
  const std::string calls = "mirt_watch_calls_total{watch=\"kept\",outcome=\"ok\"}";
  const std::string success = "mirt_config_last_reload_success";
  const std::map<std::string, double> before = series();
  EXPECT_EQ(value_of(success, before), 1.0);
  EXPECT_EQ(before.size(), 29 + 2 * (16 + 1)) << "the formula of docs/metrics.md";
  EXPECT_EQ(before.count("mirt_machine_memory_ratio{watch=\"gone\"}"), 1U);
  configure_with_socket(kept);
  kill(monitor.pid(), SIGHUP);
  std::map<std::string, double> after = series();
  while (after.count("mirt_watch_state{watch=\"gone\",state=\"ok\"}") > 0) after = series();
  EXPECT_GE(value_of(calls, after), value_of(calls, before));
  EXPECT_GT(value_of("mirt_config_last_reload_timestamp_seconds", after),
            value_of("mirt_config_last_reload_timestamp_seconds", before));
  configure("mistake");
  kill(monitor.pid(), SIGHUP);
  while (value_of(success, after) == 1.0) after = series();
}

TEST_F(MetricsTest, TheFileIsReplacedAsAWholeAndRemovedAtTheEnd) {
  const fs::path folder = folder_ / "collector", file = folder / "mirt.prom";
  configure_with_socket(instance("free", "GetSysFreeMemory") + "[metrics]\ntextfile = '" +
                        file.string() + "'\nevery = 1\n");
  Monitor monitor(folder_, "sh -c 'umask 077; exec " + kRun + "'");
  const auto await_in_log = [&](const std::string& text) {
    while (read_file(folder_ / "stderr").find(text) == std::string::npos) {
      ASSERT_TRUE(monitor.line());
    }
  };
  await_in_log("metrics file " + file.string() +
               ": cannot open its folder: No such file or directory\n");
  fs::create_directory(folder);
  write_file(folder / "mirt.prom.new-1", "left by a monitor that was killed");
  await_in_log("metrics file " + file.string() + ": written again\n");
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
  expect_no_complaint(read_file(file));
  const std::string value = "mirt_machine_free_memory_bytes{watch=\"free\"}";
  EXPECT_EQ(series_of(read_file(file)).count(value), 1U);
  EXPECT_EQ(read_file(file).find("\nprocess_"), std::string::npos) << "these are the exporter's";
  const std::string log = monitor.stop();
  EXPECT_EQ(log.find("cannot open"), log.rfind("cannot open")) << "once: " << log;
  EXPECT_EQ(log.find("does not answer"), std::string::npos) << log;
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(MonitorTest, MistakesInTheTableMetricsAreFound) {
  const std::string watch = instance("free", "GetSysFreeMemory") + "[metrics]\n";
  const std::pair<const char*, const char*> rows[] = {
      {"every = 15", ":7: no key \"textfile\" in [metrics], expected a string"},
      {"textfile = '/a/mirt.txt'", ":8: textfile is \"/a/mirt.txt\", expected an absolute path"},
      {"textfile = 'mirt.prom'", ":8: textfile is \"mirt.prom\", expected an absolute path"},
      {"textfile = '/a.prom'\nevery = '0.5 s'", ":9: every is less than a second, expected"},
      {"textfile = '/a.prom'\npath = 1", ":9: unknown key \"path\" in [metrics]"}};
  for (const auto& [text, mistake] : rows) {
    EXPECT_TRUE(contains(check(watch + text + "\n", 2), mistake));
  }
}

}  // namespace
