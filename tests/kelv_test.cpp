#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "child.h"
#include "kelv_cmd.h"
#include "kelv_jiffies.h"
#include "kelv_list.h"
#include "kelv_log.h"
#include "kelv_process.h"
#include "kelv_securec.h"
#include "kelv_string.h"
#include "kelv_time.h"

namespace {

std::string logged_line(const std::string& text) {
  testing::internal::CaptureStderr();
  kelvlog(424, DBG_LOG_EVENT, "file.cpp", 12, "Function", 0, "%s %d", text.c_str(), 7);
  return testing::internal::GetCapturedStderr();
}

TEST(Log, IsOneWholeLineARecordCutIfItIsTooLong) {
  EXPECT_EQ(logged_line("a\nb\rc"), "[event] 424 file.cpp:12 Function: a b c 7\n");
  const std::string line = logged_line(std::string(10000, 'x'));
  EXPECT_GT(line.size(), 4000U);
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  testing::internal::CaptureStderr();
  kelvlog(424, DBG_LOG_INFO, std::string(8000, 'f').c_str(), 1, "F", 0, "text");
  kelvlog(424, DBG_LOG_DEBUG, "f", 2, "F", 0, "%ls", L"\xD800");  // cannot be converted
  const std::string lines = testing::internal::GetCapturedStderr();
  EXPECT_EQ(lines.substr(lines.size() - 22), "f\n[debug] 424 f:2 F: \n");
}

TEST(Log, EndsIfStandardErrorIsClosed) {
  EXPECT_EQ(status_of_child([] {
              close(STDERR_FILENO);
              alarm(60);
              kelvlog(424, DBG_LOG_EVENT, "f", 1, "F", 0, "text");
              return 0;
            }),
            0);
}

std::string g_logged;

TEST(Log, GoesToTheSinkThatIsSet) {
  kelvlog_set_sink([](const KELV_LOG_RECORD_S* record) {
    errno = EBADF;
    g_logged += std::to_string(record->module) + kelvlog_level_name(record->level) + record->file +
                std::to_string(record->line) + record->function + record->text + '|';
  });
  errno = ENOENT;
  EXPECT_EQ(logged_line("x\ny"), "");
  kelvlog(421, 9, nullptr, 5, nullptr, 0, "text");
  EXPECT_EQ(errno, ENOENT) << "a caller may log first and look at it afterwards";
  kelvlog_set_sink(nullptr);
  EXPECT_EQ(g_logged, "424eventfile.cpp12Functionx y 7|421level5text|");
}

std::string output_of(const std::string& command) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(kelv_cmd_exec(command.c_str()), 0) << command;
  return testing::internal::GetCapturedStdout();
}

TEST(Command, InheritsNeitherDescriptorsNorBlockedSignals) {
  sigset_t blocked;
  sigfillset(&blocked);
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
  EXPECT_EQ(output_of("kill -USR2 $$; echo blocked"), "");
  sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
  // The captured output is also open. The fourth descriptor is the listed directory.
  EXPECT_EQ(output_of("ls /proc/self/fd"), "0\n1\n2\n3\n");
}

TEST(Command, IsWaitedForButNotWhatItLeavesBehind) {
  char held[] = "/tmp/kelv_test_XXXXXX";
  close(mkostemp(held, O_CLOEXEC));
  // It runs as long as the file exists: a call that waited for it would never return.
  const std::string waits = "while [ -e " + std::string(held) + " ]; do sleep 0.01; done";
  EXPECT_EQ(output_of(waits + " & echo started"), "started\n");
  EXPECT_EQ(unlink(held), 0);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left";
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(output_of("true"), "") << "also when the kernel reaps children itself";
  signal(SIGCHLD, SIG_DFL);
  EXPECT_EQ(kelv_cmd_exec(nullptr), -1);
}

TEST(ProcessStatus, SeesAFatalSignalUntilTheProcessIsGone) {
  const pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_NAME, ") 0 0 0 0 0 0 0");  // looks like the fields after it
    raise(SIGKILL);
  }
  waitid(P_PID, static_cast<id_t>(pid), nullptr, WEXITED | WNOWAIT);
  int status = -7;
  EXPECT_EQ(kelv_process_status_check(pid, &status), 0);
  EXPECT_EQ(status, KELV_PROCESS_STATUS_COREDUMP);
  waitpid(pid, nullptr, 0);
  EXPECT_NE(kelv_process_status_check(pid, &status), 0);
  EXPECT_EQ(kelv_process_status_check(getpid(), &status), 0);
  EXPECT_EQ(status, KELV_PROCESS_STATUS_NORMAL);
  EXPECT_EQ(kelv_process_status_check(getpid(), nullptr), -1);
}

TEST(Numbers, AreDecimalOrHexadecimal) {
  using Row = std::pair<const char*, uint64_t>;
  for (const auto& [text, number] :
       {Row(" \t42", 42), Row("42abc", 42), Row("0x1F", 31), Row("010", 10), Row("-1", 0),
        Row(nullptr, 0), Row("0xFFFFFFFFFFFFFFFFF", UINT64_MAX), Row("0XfF", 255), Row("0x", 0),
        Row("1x2", 1), Row("0b1", 0)}) {
    EXPECT_EQ(kelv_str_tou64(text), number) << text;
  }
}

TEST(Time, IsBrokenDownAndLocal) {
  const int64_t leap_day = 951827696, beyond = INT64_MAX;
  const TIME_S expected{56, 34, 12, 29, 2, 2000, 2};
  TIME_S time{};
  EXPECT_EQ(kelv_time_gmtime(&leap_day, &time), 0);
  EXPECT_EQ(kelv_time_gmtime(&beyond, &time), -1);
  EXPECT_EQ(kelv_time_gmtime(nullptr, &time), -1);
  EXPECT_EQ(kelv_time_gmtime(&leap_day, nullptr), -1);
  EXPECT_EQ(memcmp(&time, &expected, sizeof time), 0) << "and left alone by the failure";
  setenv("TZ", "XYZ-05:30", 1);
  tzset();
  int64_t local = 0;
  EXPECT_EQ(kelv_time_getlocaltime(&local), local);
  EXPECT_GE(local, ::time(nullptr) + 19800 - 3600);
  EXPECT_GE(kelv_time_getlocaltime(nullptr), local);
  unsetenv("TZ");
}

TEST(Jiffies, CountSleepAndCompareAcrossAWrap) {
  const uint64_t first = kelv_get_jiffies();
  kelv_10msleep(3);
  EXPECT_GT(kelv_get_jiffies(), first) << "30 ms are at least three ticks of any kernel";
  EXPECT_EQ(time_after_eq(5, 6), 0);
  EXPECT_EQ(time_after_eq(3, UINT64_MAX - 3), 1);
}

TEST(List, IsLinkedBothWaysAndWhatWasTakenOutLeadsNowhere) {
  list_head list, nodes[3];
  kelv_list_init(&list);
  for (list_head& node : nodes) kelv_list_add_tail(&node, &list);
  kelv_list_del(&nodes[1]);
  const list_head* const circle[] = {&list, &nodes[0], &nodes[2], &list};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(circle[i]->next, circle[i + 1]) << i;
    EXPECT_EQ(circle[i + 1]->prev, circle[i]) << i;
  }
  EXPECT_EQ(reinterpret_cast<uintptr_t>(nodes[1].next), KELV_LIST_POISON_NEXT);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(nodes[1].prev), KELV_LIST_POISON_PREV);
}

TEST(Bounded, SetAndCopyKeepToTheirSize) {
  char buffer[] = "####";
  EXPECT_NE(memset_s(buffer, 3, 'b', 100), 0);
  EXPECT_EQ(memcpy_s(buffer, 4, "xyz", 2), 0);
  EXPECT_STREQ(buffer, "xyb#");
  EXPECT_NE(memcpy_s(buffer, 3, "123456", 6), 0);
  EXPECT_STREQ(buffer, "123#");
  EXPECT_EQ(memset_s(nullptr, 3, 'b', 1), EINVAL);
  EXPECT_EQ(memcpy_s(nullptr, 4, "xyz", 2), EINVAL);
  EXPECT_EQ(memcpy_s(buffer, 4, nullptr, 2), EINVAL);
}

TEST(Bounded, PrintCutsAndTerminates) {
  for (const auto& [size, count] : {std::pair(1U, 0U), {4U, 99U}, {9U, 6U}, {8U, 7U}}) {
    for (const char* format : {"%s%d%u", "%.3s%i%u"}) {
      std::string got(10, '#');
      const size_t room = std::min(count, size - 1);
      EXPECT_EQ(snprintf_s(got.data(), size, count, format, "ab/", -12, 5U), room == 7 ? 7 : -1);
      EXPECT_EQ(got, std::string("ab/-125", room) + '\0' + std::string(9 - room, '#'));
    }
  }
  char text[16] = "#";
  const char* volatile none = nullptr;  // volatile: or the compiler warns of it
  EXPECT_EQ(snprintf_s(text, sizeof text, 15, "%s|", none), 7);
  EXPECT_STREQ(text, "(null)|");
  EXPECT_EQ(snprintf_s(nullptr, 1, 1, "%s", "x"), -1);
  EXPECT_EQ(snprintf_s(text, 0, 1, "%s", "x"), -1);
  const auto print = snprintf_s;  // the compiler does not check its format
  EXPECT_EQ(print(text, 1, 1, none), -1);
  EXPECT_STREQ(text, "(null)|") << "nothing was written";
}

// Numbers and the count of assignments are the same as those of the standard scanner.
TEST(Scan, ReadsNumbersAsTheStandardScannerDoes) {
  using Row = std::pair<const char*, const char*>;
  for (const auto& [text, format] :
       {Row("cpu  12 34", "%*s %llu %llu %llu"), Row("7,8 ;9", "%llu,%llu ;%llu"),
        Row("-5 +6 0x7", "%lld %llu %llx"), Row("0x1f 17", "%lli %llo"), Row("12345", "%3llu%llu"),
        Row("18446744073709551616 1", "%llu %llu"), Row("300 70000 5000000000", "%hhu %hu %u"),
        Row("1\n2", "%d %zu"), Row("12345678901234 5", "%12llu%llu"), Row("  %7", " %%%llu"),
        Row("   ", " %llu"), Row("", "%llu"), Row("x", "%llu"), Row("7 x", "%llu %llu"),

        Row("a1", "a%llu"), Row(" 1", "%llu"), Row("1 2", "%llu%%%llu"), Row("Ab 1", "AB %llu"),
        Row("1 2 3", "%llu %*llu %llu")}) {
    unsigned long long expected[3] = {1, 2, 3}, got[3] = {1, 2, 3};
    const int assigned = sscanf(text, format, &expected[0], &expected[1], &expected[2]);
    EXPECT_EQ(sscanf_s(text, format, &got[0], &got[1], &got[2]), assigned) << text;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(got[i], expected[i]) << text << " by " << format;
  }
}

TEST(Scan, CutsTextsToTheirBuffers) {
  char text[] = "########";
  int number = 0;
  EXPECT_EQ(sscanf_s("Name:\tlonger 7", "%*s %s %d", text, 4U, &number), 2);
  EXPECT_EQ(std::string(text, 8), std::string("lon\0####", 8));
  EXPECT_EQ(number, 7) << "reading goes on after the whole word";
  EXPECT_EQ(sscanf_s("xyz", "%3c", text, 2U), 0) << "no room";
  EXPECT_EQ(sscanf_s("xyz", "%4c", text, 8U), 0) << "too short";
  EXPECT_EQ(sscanf_s(" xyz", "%2c%*c%1s%c", text, 8U, text + 4, 2U, text + 6, 1U), 2);
  EXPECT_EQ(std::string(text, 8), std::string(" xn\0z\0##", 8)) << "characters are not terminated";
  EXPECT_EQ(sscanf_s("ab", "%s", text, 0U), 1);
  EXPECT_EQ(sscanf_s("ab", "%s", text + 7, 1U), 1);
  EXPECT_EQ(std::string(text, 8), std::string(" xn\0z\0#\0", 8)) << "a size of 0 stores nothing";
  EXPECT_EQ(sscanf_s("5", "%*d %d", &number), 0) << "one number was read";
  EXPECT_EQ(sscanf_s("1", "%f", &number), 0) << "an unknown conversion";
  EXPECT_EQ(sscanf_s(nullptr, "%d", &number), -1);
  EXPECT_EQ(sscanf_s("1", nullptr, &number), -1);
}

}  // namespace
