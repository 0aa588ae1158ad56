// The text of snapshots that no well-meaning configuration gives.
#include "status/metrics_text.h"

#include <unistd.h>

#include "metrics_format.h"
#include "proc/own_process.h"
#include "proc/proc_file.h"
#include "status/value_metric.h"

namespace {

TEST(MetricsText, HostileNamesAreLabelsAndNothingElse) {
  SKIP_WITHOUT_PROMTOOL();
  WatchView watch{};
  watch.name = "a\"b\\c\nmirt_fake 1\xFF";
  watch.item = find_item("GetDiskUsage");
  watch.parameter = "\xC3\n\"";
  watch.has_value = true;
  watch.value = 12.3F;
  watch.note = "process 77 killed by signal 9 after 2.3 s";
  watch.has_alarm = {true, true};
  watch.alarms = {{"1", "on \"x\"", Severity::kWarning, {}, false},
                  {"2", "on \"x\"", Severity::kWarning, {}, false}};
  Snapshot snapshot{};
  snapshot.watches.push_back(std::make_shared<WatchView>(watch));
  snapshot.alerts = {{"a\n\"", "command", "", 1, 2, 3, 0, false},
                     {"a\n\"", "webhook", "", 10, 20, 30, 0, false}};
  const std::string text = metrics_text(snapshot);
  expect_no_complaint(text);
  const std::map<std::string, double> all = series_of(text);
  const std::string name = R"(watch="a\"b\\c\nmirt_fake 1)"
                           "\xEF\xBF\xBD\"";
  EXPECT_EQ(
      value_of("mirt_filesystem_used_ratio{" + name + ",mountpoint=\"\xEF\xBF\xBD\\n\\\"\"}", all),
      0.123);
  EXPECT_EQ(value_of("mirt_alarm_info{" + name +
                         ",severity=\"warning\",condition=\"on \\\"x\\\"\","
                         "evidence=\"process killed by signal 9 after 2.3 s\"}",
                     all),
            1.0);
  EXPECT_EQ(value_of(R"(mirt_alerts_sent_total{alert="a\n\"",outcome="failed"})", all), 22.0);
}

TEST(OwnProcess, IsAsOthersSeeIt) {
  const OwnProcess own = own_process();
  EXPECT_EQ(own.open_files, static_cast<size_t>(open_descriptors()));
  EXPECT_EQ(std::to_string(own.threads), status_value(getpid(), "Threads"));
  const size_t peak_kb = std::stoul(status_value(getpid(), "VmHWM").value_or("0"));
  EXPECT_GT(own.resident_bytes, 0U);
  EXPECT_LE(own.resident_bytes, (peak_kb + 1024) * 1024);
  EXPECT_GT(own.virtual_bytes, own.resident_bytes);
  EXPECT_GT(own.cpu_s, 0.0);
}

TEST(ValueMetrics, EachItemThatMeasuresHasOne) {
  for (const ItemRow& item : all_items()) {
    const bool measures = item.source.subject != Subject::kAction;
    EXPECT_EQ(value_metric_of(item) < kValueMetricCount, measures) << item.name;
  }
}

}  // namespace
