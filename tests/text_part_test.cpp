// Text for people and programs: terminals, times, wording, placeholders.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "item/item_table.h"
#include "item/params.h"
#include "item/placeholders.h"
#include "item/value_check.h"
#include "item/web_address.h"
#include "output/reporter.h"
#include "proc/file_systems.h"
#include "proc/own_process.h"
#include "proc/thread_evidence.h"
#include "proc_fixture.h"
#include "service/courier.h"
#include "service/journal.h"
#include "text/clock_text.h"
#include "text/end_text.h"
#include "text/json_text.h"
#include "text/mistake.h"
#include "text/number_text.h"
#include "text/terminal_text.h"
#include "text/wording.h"

namespace {

using std::chrono::milliseconds;

// Controls are C0, DEL, C1 and marks of direction. Not UTF-8: single, overlong, surrogate, above
// U+10FFFF, cut off.
TEST(TerminalText, ReplacesControlsAndWhatIsNotUtf8) {
  using Row = std::tuple<std::string, std::string, size_t>;
  constexpr size_t none = std::string::npos;
  for (const auto& [text, shown, malformed] :
       {Row("plain ~", "plain ~", none), Row("a\033[1mb\x7f\n", "a?[1mb??", none),
        Row(std::string("\0x", 2), "?x", none), Row("\u0080\u009f\u00a0", "??\u00a0", none),
        Row("\u00fc\u20ac\U0010ffff", "\u00fc\u20ac\U0010ffff", none),
        Row("\u061c\u200e\u202a\u202e\u2066\u2069", "??????", none),
        Row("\u200d\u2029\u202f\u2065\u206a", "\u200d\u2029\u202f\u2065\u206a", none),
        Row("\xc3", "?", 0), Row("ab\x80z", "ab?z", 2), Row("\xc0\xaf", "??", 0),
        Row("\xc1\xbf\xc2\x80", "???", 0), Row("\xe0\x9f\xbf\u0800", "???\u0800", 0),
        Row("\xed\x9f\xbf\xed\xa0\x80", "\xed\x9f\xbf???", 3),
        Row("\xf0\x8f\xbf\xbf\U00010000", "????\U00010000", 0),
        Row("\xf4\x90\x80\x80\xf5", "?????", 0), Row("\xe2\x82x", "??x", 0),
        Row("\xe2x\xac", "?x?", 0), Row("x\xf0\x9f\x98", "x???", 1)}) {
    EXPECT_EQ(printable(text), shown);
    EXPECT_EQ(first_malformed(text), malformed) << shown;
  }
}

TEST(JsonText, EscapesWhatWouldControlATerminal) {
  const std::string text = "\x7f\u009b\u061c\u202e\u2066\u00fc\u2014\\";
  EXPECT_EQ(json_text(text), "\"\\u007f\\u009b\\u061c\\u202e\\u2066\u00fc\u2014\\\\\"");
  EXPECT_EQ(Json::parse(json_text(text)), text);
}

TEST(TerminalText, IsAlignedByCharactersNotBytes) {
  EXPECT_EQ(width_of("\u00fc\u20acx"), 3U);
  EXPECT_EQ(left("\u00fc", 3) + "|" + right("\u00fc", 3) + "|" + left("long", 2),
            "\u00fc  |  \u00fc|long");
  EXPECT_EQ(cut("\u00fc\u20acx", 2), "\u00fc\u20ac");
  EXPECT_EQ(cut("abc", 3) + cut("abc", 0) + cut("", 2), "abc");
  EXPECT_EQ(joined_cells({"a ", "", "b", "  "}), "a     b");
}

// What a reporter writes, each line without the time at its beginning.
class Lines {
 public:
  std::string text() {
    queue_.finish(std::chrono::hours(1));
    std::string text(4096, '\0');
    text.resize(static_cast<size_t>(pread(file_.get(), text.data(), text.size(), 0)));
    const std::string time = for_people(WallTime{}) + "  ";
    for (size_t at; (at = text.find(time)) != std::string::npos;) text.erase(at, time.size());
    return text;
  }
  std::unique_ptr<Reporter> reporter() { return report_to_people(queue_, false); }

 private:
  const Wake wake_;
  const UniqueFd file_{memfd_create("lines", MFD_CLOEXEC)};
  LineQueue queue_{file_.get(), loss_for_people, wake_};
};

Instance instance_of(const std::string& name, const char* item) {
  Instance instance;
  instance.name = name;
  instance.item = find_item(item);
  instance.unit = instance.item->unit;
  return instance;
}

const Instance kDisk = instance_of("r\u00f6\033[2J", "GetDiskUsage");
const Instance kHeart = instance_of("heart", "ProcessHeartBeat");
const Instance kHung = instance_of("hung", "CheckProcessStatusIsD");
const Instance kReport = instance_of("disk", "SendErrRpt");
const FI_RESULT_S kPlain{}, kOfThread{0, "", 7, 0};
const std::optional<ThreadOwner> kNobody, kOwner{{5, "app -d"}};
const std::optional<ThreadEvidence> kNoEvidence,
    kEvidence{{7, "app", "D", "vfork", "", 1, 2, 2, "killable"}};

AlarmRule above_90() {
  AlarmRule rule;
  rule.condition = AlarmRule::Condition::kAbove;
  rule.bound = 90.0;
  return rule;
}

Answer answer_of(const Instance& instance, double value, const Finding& finding = {}) {
  return {instance, value,       kPlain, WallTime{}, std::nullopt,
          kNobody,  kNoEvidence, 0.0,    finding,    finding.state};
}

const Answer kFull = answer_of(kDisk, 91.256),
             kGone = answer_of(kDisk, -1.0, {State::kAbsent, "no"});
const Answer kStands = answer_of(kHeart, 0.0);
const Answer kHangs{kHung, 1.0, kOfThread, WallTime{}, std::nullopt, kOwner, kEvidence, 2.6, {}};
const Answer kWaits{kHung, 1.0, kOfThread, WallTime{}, std::nullopt, kOwner, kNoEvidence, 0.0, {}};

Answer sent() {
  Answer answer = answer_of(kReport, 0.0, {State::kFailed, "not sent"});
  answer.of_alarm = true;
  return answer;
}

TEST(Lines, AreAlignedAndShowWhatIsKnown) {
  Lines lines;
  const auto reporter = lines.reporter();
  reporter->lay_out({kDisk, kHeart, kHung});
  for (const Answer& answer : {kFull, kStands, kHangs, kWaits, sent(), kGone})
    reporter->answered(answer);
  reporter->alarm_changed(
      {kDisk, above_90(), WallTime{}, &kFull, State::kOk, false, "1", "because"});
  reporter->alarm_changed({kDisk, above_90(), WallTime{}, &kGone, State::kAbsent, true, "1", ""});
  EXPECT_EQ(lines.text(),
            "r\u00f6?[2J       91.26 %\n"
            "heart         0.00    flow 0\n"
            "hung          1.00    thread 7 of process 5: app -d, has not run for 3 s in vfork, "
            "2 threads with this stack, suspected: killable\n"
            "hung          1.00    thread 7 of process 5: app -d\n"
            "disk             0\n"
            "r\u00f6?[2J      absent    no\n"
            "r\u00f6?[2J       91.26 %  alarm cleared: not above 90 for 1 call, because\n"
            "r\u00f6?[2J      absent    alarm raised: above 90 for 1 call\n");
  EXPECT_EQ(Json::parse(loss_as_json({3, 2}))["lines"], 5);
}

// In place of the system's journal: a socket at its path.
TEST(Journal, HasTheNewsAndTheAlarmsBesideTheLines) {
  SKIP_WITHOUT_MOUNTS();
  const TmpfsMount run("/run");
  std::filesystem::create_directories("/run/systemd/journal");
  const UniqueFd journald(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
  ASSERT_EQ(bind(journald.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  Lines lines;
  Journal journal;
  const auto reporter = report_to_journal(lines.reporter(), journal);
  for (const Answer& answer : {kFull, kGone, kGone, sent(), kHangs}) reporter->answered(answer);
  reporter->alarm_changed({kDisk, above_90(), WallTime{}, &kFull, State::kAlarm, true, "1", ""});
  EXPECT_TRUE(journal.finish(std::chrono::hours(1)));
  std::string records, buffer(4096, '\0');
  for (ssize_t got; (got = recv(journald.get(), buffer.data(), 4096, MSG_DONTWAIT)) > 0;) {
    records += buffer.substr(0, static_cast<size_t>(got));
  }
  std::replace(records.begin(), records.end(), '\n', ' ');
  EXPECT_EQ(
      records,
      "MESSAGE=r\u00f6?[2J is absent: no MESSAGE_ID=b2680fd5b68d4e07a00ffa11647f8041 PRIORITY=6 "
      "SYSLOG_IDENTIFIER=mirt-monitor MIRT_WATCH=r\u00f6\033[2J MIRT_ITEM=GetDiskUsage "
      "MIRT_STATE=absent MIRT_UNIT=% "
      "MESSAGE=r\u00f6?[2J: alarm raised: above 90 for 1 call "
      "MESSAGE_ID=83dd75deb1074c1da813b06cb01b5976 PRIORITY=2 "
      "SYSLOG_IDENTIFIER=mirt-monitor MIRT_WATCH=r\u00f6\033[2J MIRT_ITEM=GetDiskUsage "
      "MIRT_STATE=alarm MIRT_ALARM=1 MIRT_SEVERITY=critical MIRT_CONDITION=above 90 "
      "MIRT_VALUE=91.256 MIRT_UNIT=% ");
  const std::string text = lines.text();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 6) << text;
}

TEST_F(ProcFixture, FileSystemsAreShownOnceByTheirShortestPath) {
  put("self/mounts",
      "/dev/a /sys/kernel ext4 rw 0 0\n/dev/a /sys ext4 rw 0 0\n/dev/a /sys/fs ext4 rw 0 0\n"
      "/dev/b /nowhere ext4 rw 0 0\n/dev/c /dev/shm ext4 ro 0 0\ntmpfs /dev/shm tmpfs rw 0 0\n");
  const FileSystems found = local_file_systems();
  EXPECT_EQ(found.folders, (std::vector<std::string>{"/", "/sys"}));
  EXPECT_EQ(found.left_out, std::vector<std::string>{"/nowhere: No such file or directory"});
}

TEST_F(ProcFixture, EvidenceHasTheSwitchesOfTheThread) {
  put("7/status",
      "State:\tD\nvoluntary_ctxt_switches:\t3\nnonvoluntary_ctxt_switches:\t5\nTgid:\t7\n");
  const std::optional<ThreadEvidence> evidence = evidence_of(7);
  ASSERT_TRUE(evidence);
  EXPECT_EQ(evidence->voluntary_switches, 3U);
  EXPECT_EQ(evidence->involuntary_switches, 5U);
}

TEST(Courier, EndsWhatItHasBegunBeforeItGoes) {
  std::atomic<bool> done{false};
  {
    Courier().post([&] { done = true; });
  }
  EXPECT_TRUE(done);
}

TEST(OwnProcess, HasTheWholeNameOfItsMachine) {
  if (unshare(CLONE_NEWUTS) != 0) GTEST_SKIP() << "needs root, to name a machine";
  const std::string longest(HOST_NAME_MAX, 'h');
  ASSERT_EQ(sethostname(longest.data(), longest.size()), 0);
  EXPECT_EQ(host_name(), longest);
}

TEST(ClockText, ShowsLocalTimeWithItsOffset) {
  const WallTime time{milliseconds(1772352930007)};  // 2026-03-01 08:15:30.007 UTC
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"UTC0", "2026-03-01 08:15:30", "2026-03-01T08:15:30.007+00:00"},
      {"AAA-5:45", "2026-03-01 14:00:30", "2026-03-01T14:00:30.007+05:45"},
      {"BBB9:30", "2026-02-28 22:45:30", "2026-02-28T22:45:30.007-09:30"},
      {"CCC0:15", "2026-03-01 08:00:30", "2026-03-01T08:00:30.007-00:15"}};
  for (const auto& [zone, people, iso] : rows) {
    setenv("TZ", zone, 1);
    tzset();
    EXPECT_EQ(for_people(time), people);
    EXPECT_EQ(iso8601(time), iso);
    EXPECT_EQ(read_iso8601(iso), time) << iso;
  }
  unsetenv("TZ");
  tzset();
}

TEST(ClockText, ReadsOnlyItsOwnForm) {
  const std::string good = "2026-03-01T08:15:30.250+01:00";
  ASSERT_TRUE(read_iso8601(good));
  EXPECT_TRUE(read_iso8601("2200-12-31T23:59:60.999-23:59"));
  EXPECT_TRUE(read_iso8601("1970-01-01T00:00:00.000+00:00"));
  for (size_t i = 0; i < good.size(); ++i) {
    std::string other = good;
    other[i] = 'x';
    EXPECT_FALSE(read_iso8601(other)) << other;
  }
  using Row = std::pair<size_t, const char*>;
  // The place of a two-digit field, and values that it cannot have.
  for (const auto& [place, field] :
       {Row(0, "19"), Row(0, "23"), Row(5, "00"), Row(5, "13"), Row(8, "00"), Row(8, "32"),
        Row(11, "24"), Row(14, "60"), Row(17, "61"), Row(24, "24"), Row(27, "60")}) {
    std::string other = good;
    EXPECT_FALSE(read_iso8601(other.replace(place, 2, field))) << other;
  }
  EXPECT_FALSE(read_iso8601(good + "0"));
  EXPECT_FALSE(read_iso8601(good.substr(0, good.size() - 1)));
  EXPECT_FALSE(read_iso8601(""));
}

TEST(Wording, GuessesWordsOfWhichTwoThirdsAreRight) {
  const std::vector<std::string_view> words{"period", "params", "item", "unit"};
  using Row = std::pair<const char*, const char*>;
  for (const auto& [word, expected] :
       {Row("perod", "period"), Row("PERIOD", "period"), Row("pereoid", "period"),
        Row("peirod", "period"), Row("prm", ""), Row("pxrxmx", ""), Row("parasm", "params"),
        Row("itme", "item"), Row("iXeX", ""), Row("unti", "unit"), Row("", ""),
        Row("zzzzzz", "")}) {
    EXPECT_EQ(nearest(word, words), expected) << word;
  }
  EXPECT_EQ(nearest(std::string(65, 'x'), {std::string(65, 'x')}), "") << "no misspelt name";
  EXPECT_EQ(expected_one_of("itme", words), ", did you mean \"item\"?");
  EXPECT_EQ(expected_one_of("z", words), ", expected one of period, params, item, unit");
  EXPECT_EQ(did_you_mean("z", words), "");
}

TEST(NumberText, IsAsShortAsItCanBe) {
  EXPECT_EQ(number_text(10) + " " + number_text(0.5) + " " + number_text(-1e7 / 3),
            "10 0.5 -3333333.333");
  EXPECT_EQ(value_text(1) + " " + value_text(12.3F) + " " + value_text(-2) + " " + value_text(0.25),
            "1 12.3 -2 0.25");
  EXPECT_EQ(value_text(1e14) + " " + value_text(1e15), "100000000000000 1e+15");
  EXPECT_EQ(seconds_text(milliseconds(3249)), "3.2 s");
}

TEST(Mistakes, HaveTheirPlaceAndAreInItsOrder) {
  Findings findings;
  findings.mistakes = {{7, "b\n"}, {3, "c", "other"}, {0, "a"}};
  findings.warnings = {{7, "w"}, {2, "v"}};
  EXPECT_EQ(findings_text("main", findings),
            (std::vector<std::string>{"main: a", "main:2: warning: v", "main:7: b?",
                                      "main:7: warning: w", "other:3: c"}));
}

TEST(Placeholders, AreFilledInIfTheItemReportsThem) {
  const PlaceholderTexts texts{"1.5", "77", "9", "db"};
  using Row = std::tuple<const char*, const char*, size_t>;
  for (const auto& [text, filled, mistakes] :
       {Row("cpu {value} of {instance}", "cpu 1.5 of db", 0), Row("", "", 0),
        Row("{{value}}", "{value}}", 0), Row("{pid}{flowid}", "779", 1),
        Row("}{{{value}", "}{1.5", 0), Row("{Value}", "{Value}", 1), Row("{", "{", 1),
        Row("{value", "{value", 1), Row("a{b{value}", "a{b1.5", 1), Row("{}", "{}", 1)}) {
    EXPECT_EQ(fill_placeholders(text, texts), filled);
    EXPECT_EQ(check_placeholders(text, find_item("GetProcessMemoryExtern")).size(), mistakes)
        << text;
  }
  const auto fits = [](const char* text, const char* item) {
    return check_placeholders(text, find_item(item)).empty();
  };
  EXPECT_TRUE(fits("{flowid}", "ProcessHeartBeat") && fits("{pid}", "CheckProcessStatusIsD"));
  EXPECT_FALSE(fits("{pid}", "ProcessHeartBeat") || fits("{pid}", "GetSysCPU"));
  EXPECT_TRUE(check_placeholders("{pid} {flowid}", nullptr).empty()) << "any item";
}

TEST(Interval, IsTheTimeForWhichTheItemSleeps) {
  const auto of = [](const char* item, const std::vector<Param>& params) {
    return interval_seconds(*find_item(item), params);
  };
  EXPECT_EQ(of("GetSysCPU", {}), 0.0);
  EXPECT_EQ(of("GetProcessSysCPUExtern", {{"p", "x"}}), 0.5);
  const char* const item = "GetProcessCoreCPUFuzzyMatchCfgPeriod";
  const std::vector<Param> params{{"ProcessName", "x"}, {"Period", "3"}};
  EXPECT_EQ(of(item, params), 3.0);
  EXPECT_TRUE(check_period(*find_item(item), params, 3.0));
  EXPECT_FALSE(check_period(*find_item(item), params, 3.1));
}

TEST(WebAddress, HasSchemeHostPortAndPath) {
  const auto parts = [](const std::string& text) -> std::string {
    const auto address = read_web_address(text);
    return address ? address->host + " " + std::to_string(address->port) + " " + address->path
                   : "-";
  };
  using Row = std::pair<const char*, const char*>;
  for (const auto& [text, expected] :
       {Row("http://a.b-c", "a.b-c 80 /"), Row("http://h:8080/p?q=1", "h 8080 /p?q=1"),
        Row("http://h?x", "h 80 /?x"), Row("http://[::1]:9/", "::1 9 /"),
        Row("http://10.0.0.1:8080/a/b?c=d&e=%20", "10.0.0.1 8080 /a/b?c=d&e=%20"),
        Row("http://[fe80::1]:65535?x", "fe80::1 65535 /?x"), Row("http://h:65535", "h 65535 /")}) {
    EXPECT_EQ(parts(text), expected) << text;
  }
  for (const char* const text : {"",
                                 "http://",
                                 "https://h/",
                                 "HTTP://h/",
                                 "h/path",
                                 "http://:80/",
                                 "http://h:",
                                 "http://h:/",
                                 "http://h:0",
                                 "http://h:65536",
                                 "http://h:99999999999/",
                                 "http://u@h/",
                                 "http://u:word@h/",
                                 "http://[::1",
                                 "http://[::1/",
                                 "http://[]/",
                                 "http://h/a b",
                                 "http://h/\r\nX: y",
                                 "http://h/#f",
                                 "http://h\xc3\xa4/",
                                 "http://h/\xc3\xbc",
                                 "http://h/\x7f"}) {
    EXPECT_EQ(parts(text), "-") << text;
  }
}

}  // namespace
