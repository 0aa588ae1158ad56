#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
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

// A pipe whose content is read in one go.
class Pipe {
 public:
  explicit Pipe(int flags = O_CLOEXEC) { EXPECT_EQ(pipe2(ends_, flags), 0); }
  ~Pipe() {
    close_input();
    close(ends_[0]);
  }
  int input() const { return ends_[1]; }
  void close_input() {
    if (ends_[1] >= 0) close(ends_[1]);
    ends_[1] = -1;
  }
  // Up to the end: until nobody has the input open any more.
  std::string read_all() {
    close_input();
    std::string all;
    char chunk[4096];
    for (ssize_t got; (got = read(ends_[0], chunk, sizeof chunk)) > 0;) {
      all.append(chunk, static_cast<size_t>(got));
    }
    return all;
  }

 private:
  int ends_[2] = {-1, -1};
};

// What runs in body writes to standard error.
template <typename Body>
std::string standard_error_of(Body body) {
  Pipe pipe;
  const int saved = dup(STDERR_FILENO);
  dup2(pipe.input(), STDERR_FILENO);
  body();
  dup2(saved, STDERR_FILENO);
  close(saved);
  return pipe.read_all();
}

TEST(Log, IsOneWholeLineARecord) {
  EXPECT_EQ(standard_error_of([] {
              kelvlog(424, DBG_LOG_EVENT, "file.cpp", 12, "Function", 0, "a\nb\r%s %d", "c", 7);
            }),
            "[event] 424 file.cpp:12 Function: a b c 7\n");
}

TEST(Log, CutsALongRecordButEndsTheLine) {
  const std::string text(10000, 'x');
  const std::string line = standard_error_of(
      [&text] { kelvlog(422, DBG_LOG_ERROR, "f", 1, "F", 0, "%s", text.c_str()); });
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  EXPECT_GT(line.size(), 4000U);
  EXPECT_EQ(line.rfind("[error] 422 f:1 F: xxx", 0), 0U);
}

std::string g_logged;

TEST(Log, GoesToTheSinkThatIsSet) {
  g_logged.clear();
  kelvlog_set_sink([](const KELV_LOG_RECORD_S* record) {
    errno = EBADF;
    g_logged += std::to_string(record->module) + kelvlog_level_name(record->level) + record->file +
                std::to_string(record->line) + record->function + record->text + '|';
  });
  const std::string to_stderr = standard_error_of([] {
    kelvlog(421, DBG_LOG_INFO, "f", 5, "F", 0, "%s", "text");
    errno = ENOENT;
    kelvlog(421, 9, nullptr, 5, nullptr, 0, "line\nbreak");
    EXPECT_EQ(errno, ENOENT) << "a caller may log first and look at it afterwards";
    KELV_LOG(422, DBG_LOG_WARNING, "%d", 8);
  });
  kelvlog_set_sink(nullptr);
  EXPECT_EQ(g_logged.rfind("421infof5Ftext|421level5line break|422warningkelv_test.cpp", 0), 0U)
      << g_logged;
  EXPECT_EQ(to_stderr, "");
  EXPECT_NE(standard_error_of([] { kelvlog(1, 3, "f", 1, "F", 0, "back"); }), "");
}

TEST(Command, IsStartedAndLeavesNoZombie) {
  EXPECT_EQ(kelv_cmd_exec(nullptr), -1);
  EXPECT_EQ(kelv_cmd_exec("kill -9 $$"), 0) << "whatever becomes of it";
  Pipe pipe(0);
  const std::string number = std::to_string(pipe.input());
  // The shell has neither our pipe nor any other descriptor beyond the standard three: opening
  // them by number fails there. Hence the detour over a name that it can open.
  const std::string path = "/proc/" + std::to_string(getpid()) + "/fd/" + number;
  const std::string command = "{ ls /proc/self/fd | tr '\\n' ' '; (: >&" + number +
                              ") 2>/dev/null || echo closed; } >" + path;
  const int descriptors = open_descriptors();
  EXPECT_EQ(kelv_cmd_exec(command.c_str()), 0);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD) << "a child was left";
  // The fourth is the listed directory itself.
  EXPECT_EQ(pipe.read_all(), "0 1 2 3 closed\n");
}

TEST(Command, GoesOnInTheBackground) {
  // It waits for a line that we only write after the call: a call that waited would hang here.
  Pipe go(0), answer(0);
  const std::string process = "/proc/" + std::to_string(getpid()) + "/fd/";
  const int listening = open((process + std::to_string(go.input())).c_str(), O_RDONLY | O_CLOEXEC);
  const std::string command = "{ read line; echo got $line; } <" + process +
                              std::to_string(listening) + " >" + process +
                              std::to_string(answer.input()) + " &";
  EXPECT_EQ(kelv_cmd_exec(command.c_str()), 0);
  EXPECT_EQ(write(go.input(), "it\n", 3), 3);
  char text[16] = "";
  const int reading =
      open((process + std::to_string(answer.input())).c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(read(reading, text, sizeof text - 1), 7);
  EXPECT_STREQ(text, "got it\n");
  close(reading);
  close(listening);
}

TEST(Command, LeavesTheSignalHandlingAlone) {
  struct sigaction ignore {
  }, before{};
  ignore.sa_handler = SIG_IGN;
  sigset_t blocked, mask;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR2);
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
  for (const int number : {SIGCHLD, SIGINT, SIGQUIT}) sigaction(number, &ignore, &before);
  EXPECT_EQ(kelv_cmd_exec("true"), 0) << "also when the kernel reaps children itself";
  for (const int number : {SIGCHLD, SIGINT, SIGQUIT}) {
    struct sigaction now {};
    sigaction(number, &before, &now);
    EXPECT_EQ(now.sa_handler, SIG_IGN) << number;
  }
  Pipe pipe(0);
  const std::string path = "/proc/" + std::to_string(getpid()) + "/fd/";
  EXPECT_EQ(kelv_cmd_exec(
                ("kill -USR2 $$; echo blocked >" + path + std::to_string(pipe.input())).c_str()),
            0);
  EXPECT_EQ(pipe.read_all(), "") << "the shell gets no blocked signals";
  sigprocmask(SIG_UNBLOCK, &blocked, &mask);
  EXPECT_EQ(sigismember(&mask, SIGUSR2), 1);
  EXPECT_EQ(sigismember(&mask, SIGCHLD), 0);
}

TEST(ProcessStatus, SeesAFatalSignalUntilTheProcessIsGone) {
  // The name is inherited. What looks like the fields behind it must not be taken for them.
  char name[16] = "";
  prctl(PR_GET_NAME, name);
  prctl(PR_SET_NAME, ") 0 0 0 0 0 0 0");
  const pid_t killed = fork();
  if (killed == 0) _exit(pause());
  const pid_t ended = fork();
  if (ended == 0) _exit(3);
  prctl(PR_SET_NAME, name);
  int status = -7;
  const auto check = [&status](pid_t pid) {
    status = -7;
    return kelv_process_status_check(pid, &status);
  };
  EXPECT_EQ(check(killed), 0);
  EXPECT_EQ(status, KELV_PROCESS_STATUS_NORMAL) << "alive";
  siginfo_t info;
  kill(killed, SIGKILL);
  for (const pid_t pid : {killed, ended}) {
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
  }
  EXPECT_EQ(check(killed), 0);
  EXPECT_EQ(status, KELV_PROCESS_STATUS_COREDUMP);
  EXPECT_EQ(check(ended), 0);
  EXPECT_EQ(status, KELV_PROCESS_STATUS_NORMAL) << "an ordinary end";
  for (const pid_t pid : {killed, ended}) waitpid(pid, nullptr, 0);
  EXPECT_NE(check(killed), 0);
  EXPECT_EQ(status, -7);
  EXPECT_NE(kelv_process_status_check(getpid(), nullptr), 0);
}

TEST(Numbers, AreDecimalOrHexadecimal) {
  struct Row {
    const char* text;
    uint64_t number;
  };
  for (const Row& row : {Row{"0", 0},
                         {"42", 42},
                         {" \t42", 42},
                         {"42abc", 42},
                         {"0x1F", 31},
                         {"0Xff", 255},
                         {"010", 10},
                         {"0x", 0},
                         {"0xg", 0},
                         {"", 0},
                         {"abc", 0},
                         {"-1", 0},
                         {"+1", 0},
                         {"ff", 0},
                         {"4026531843", 4026531843},
                         {"18446744073709551615", UINT64_MAX},
                         {"18446744073709551616", UINT64_MAX},
                         {"0xFFFFFFFFFFFFFFFFF", UINT64_MAX}}) {
    EXPECT_EQ(kelv_str_tou64(row.text), row.number) << row.text;
  }
  EXPECT_EQ(kelv_str_tou64(nullptr), 0U);
}

TEST(Time, BreaksFixedValuesDown) {
  struct Row {
    int64_t seconds;
    int32_t second, minute, hour, day, month, year, weekday;
  };
  for (const Row& row : {Row{0, 0, 0, 0, 1, 1, 1970, 4},
                         {951827696, 56, 34, 12, 29, 2, 2000, 2},
                         {1704067199, 59, 59, 23, 31, 12, 2023, 0},
                         {-1, 59, 59, 23, 31, 12, 1969, 3},
                         {4107542400, 0, 0, 0, 1, 3, 2100, 1}}) {
    TIME_S time{};
    EXPECT_EQ(kelv_time_gmtime(&row.seconds, &time), 0);
    const std::vector<int32_t> got{time.iSecond, time.iMinute, time.iHour, time.iMDay,
                                   time.iMonth,  time.iYear,   time.iWDay};
    EXPECT_EQ(got, (std::vector<int32_t>{row.second, row.minute, row.hour, row.day, row.month,
                                         row.year, row.weekday}))
        << row.seconds;
  }
  TIME_S untouched{1, 2, 3, 4, 5, 6, 7};
  const int64_t beyond = INT64_MAX;
  EXPECT_NE(kelv_time_gmtime(&beyond, &untouched), 0);
  EXPECT_NE(kelv_time_gmtime(nullptr, &untouched), 0);
  EXPECT_NE(kelv_time_gmtime(&beyond, nullptr), 0);
  EXPECT_EQ(untouched.iSecond, 1);
}

TEST(Time, IsLocal) {
  setenv("TZ", "XYZ-05:30", 1);
  tzset();
  const int64_t before = time(nullptr);
  int64_t stored = 0;
  const int64_t local = kelv_time_getlocaltime(&stored);
  EXPECT_GE(local, before + 19800);
  EXPECT_LE(local, time(nullptr) + 19800);
  EXPECT_EQ(stored, local);
  EXPECT_GE(kelv_time_getlocaltime(nullptr), local);
  unsetenv("TZ");
  tzset();
}

TEST(Jiffies, NeverDecreaseAndCountSleep) {
  uint64_t last = kelv_get_jiffies();
  EXPECT_GT(last, 0U);
  const uint64_t first = last;
  for (int i = 0; i < 100000; ++i) {
    const uint64_t now = kelv_get_jiffies();
    ASSERT_GE(now, last);
    last = now;
  }
  kelv_10msleep(3);
  EXPECT_GT(kelv_get_jiffies(), first) << "30 ms are at least three ticks of any kernel";
}

TEST(Jiffies, CompareAcrossAWrap) {
  EXPECT_EQ(time_after_eq(5, 5), 1);
  EXPECT_EQ(time_after_eq(6, 5), 1);
  EXPECT_EQ(time_after_eq(5, 6), 0);
  EXPECT_EQ(time_after_eq(3, UINT64_MAX - 3), 1);
  EXPECT_EQ(time_after_eq(UINT64_MAX - 3, 3), 0);
}

TEST(Bounded, FunctionsKeepToTheirSize) {
  char buffer[] = "########";
  EXPECT_EQ(memset_s(buffer, 3, 'a', 3), 0);
  EXPECT_STREQ(buffer, "aaa#####");
  EXPECT_NE(memset_s(buffer, 4, 'b', 100), 0);
  EXPECT_STREQ(buffer, "bbbb####");
  EXPECT_EQ(memcpy_s(buffer, 4, "xyz", 2), 0);
  EXPECT_STREQ(buffer, "xybb####");
  EXPECT_NE(memcpy_s(buffer, 3, "xyzxyz", 6), 0);
  EXPECT_STREQ(buffer, "xyzb####");
  EXPECT_NE(memset_s(nullptr, 3, 0, 3), 0);
  EXPECT_NE(memcpy_s(buffer, 3, nullptr, 3), 0);
  EXPECT_NE(memcpy_s(nullptr, 3, buffer, 3), 0);
}

TEST(Bounded, PrintCutsAndTerminates) {
  struct Row {
    size_t size, count;
    const char* text;
    int outcome;
    const char* written;  // the eight bytes of the buffer, NUL as '.'
  };
  for (const Row& row : {Row{5, 4, "abc", 3, "abc.####"},
                         {5, 4, "abcd", 4, "abcd.###"},
                         {5, 4, "abcde", -1, "abcd.###"},
                         {5, 2, "abc", -1, "ab.#####"},
                         {5, 100, "abcdef", -1, "abcd.###"},
                         {1, 0, "abc", -1, ".#######"},
                         {0, 0, "abc", -1, "########"},
                         {5, 4, "", 0, ".#######"}}) {
    std::string buffer(8, '#');
    EXPECT_EQ(snprintf_s(buffer.data(), row.size, row.count, "%s", row.text), row.outcome);
    for (char& c : buffer) c = c == '\0' ? '.' : c;
    EXPECT_EQ(buffer, row.written) << row.size << ' ' << row.count << ' ' << row.text;
  }
  EXPECT_EQ(snprintf_s(nullptr, 8, 7, "x"), -1);
}

TEST(Bounded, PrintAgreesWithTheStandardPrint) {
  const auto agrees = [](const char* format, auto... values) {
    for (const size_t size : {4U, 12U, 64U}) {
      char got[64], expected[64];
      const int length = snprintf(expected, size, format, values...);
      EXPECT_EQ(snprintf_s(got, size, size - 1, format, values...),
                length < static_cast<int>(size) ? length : -1);
      EXPECT_STREQ(got, expected) << format;
    }
  };
  agrees("/proc/%d/task/%d/status", INT_MIN, INT_MAX);
  agrees("/proc/%u/status", UINT_MAX);
  agrees("%d%s%u", 0, "", 0U);
  agrees("%s %f.", "Return", -1.0);
  agrees("%5d|%-5s|%03u", 7, "ab", 9U);
  agrees("%d%% of %s", 50, "it");
  agrees("%lld %lu %x %c", LLONG_MIN, ULONG_MAX, 255U, 'c');
  agrees("%.2s", "cut");
}

// Numbers come out as the standard scanner gives them, the number of assignments included.
TEST(Scan, ReadsNumbersAsTheStandardScannerDoes) {
  struct Row {
    const char *text, *format;
  };
  using Numbers = unsigned long long[3];
  for (const Row& row : {
           Row{"cpu  12 34 56", "%*s %llu %llu %llu"},
           {"cpu 12", "%*s %llu %llu %llu"},
           {"MemTotal:\t 99 kB", "%*s %llu"},
           {"7,8 ;9", "%llu,%llu ;%llu"},
           {"7;8", "%llu,%llu"},
           {"-5 +6 0x7", "%lld %llu %llx"},
           {"077 0x1f 10", "%lli %lli %lli"},
           {"77 99", "%llo %llo"},
           {"123456", "%3llu%2llu%llu"},
           {"  42", "%llu"},
           {"abc", "%llu"},
           {"", "%llu"},
           {"   ", "%llu"},
           {"18446744073709551616 1", "%llu %llu"},
           {"-9223372036854775809", "%lld"},
           {"12 % 5", "%llu %% %llu"},
           {"300 70000 5000000000", "%hhu %hu %u"},
           {"-1 -2 -3", "%hhd %hd %d"},
           {"1 2 3", "%ld %zu %ju"},
           {"5000000000", "%d"},
           {"1\n2", "%llu %llu"},
       }) {
    Numbers expected{1, 2, 3}, got{1, 2, 3};
    const int assigned = sscanf(row.text, row.format, &expected[0], &expected[1], &expected[2]);
    EXPECT_EQ(sscanf_s(row.text, row.format, &got[0], &got[1], &got[2]), assigned) << row.text;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(got[i], expected[i]) << row.text << " by " << row.format;
  }
  EXPECT_EQ(sscanf_s(nullptr, "%d"), -1);
  EXPECT_EQ(sscanf_s("1", nullptr), -1);
}

TEST(Scan, CutsTextsToTheirBuffers) {
  char text[9] = "########";
  int number = 0;
  EXPECT_EQ(sscanf_s("Name:\tlonger 7", "%*s %s %d", text, 4U, &number), 2);
  EXPECT_STREQ(text, "lon") << "cut and terminated";
  EXPECT_EQ(std::string(text + 4, 4), "####");
  EXPECT_EQ(number, 7) << "reading goes on after the whole word";
  EXPECT_EQ(sscanf_s("ab cd", "%s", text, sizeof text), 1);
  EXPECT_STREQ(text, "ab");
  char letter = '#';
  EXPECT_EQ(sscanf_s("State:\tD (disk sleep)", "%*s\t%c", &letter, 1U), 1);
  EXPECT_EQ(letter, 'D');
  EXPECT_EQ(sscanf_s("xyz", "%3c", text, 2U), 0) << "no room: not stored";
  EXPECT_STREQ(text, "ab");
  EXPECT_EQ(sscanf_s("xyz", "%2s", text, 8U), 1);
  EXPECT_STREQ(text, "xy");
  EXPECT_EQ(sscanf_s("", "%s", text, 8U), -1);
}

TEST(List, KeepsTheOrderAndPoisonsWhatIsRemoved) {
  list_head head, nodes[3];
  kelv_list_init(&head);
  EXPECT_EQ(head.next, &head);
  for (list_head& node : nodes) kelv_list_add_tail(&node, &head);
  kelv_list_del(&nodes[1]);
  EXPECT_EQ(head.next, &nodes[0]);
  EXPECT_EQ(nodes[0].next, &nodes[2]);
  EXPECT_EQ(nodes[2].prev, &nodes[0]);
  EXPECT_EQ(nodes[2].next, &head);
  EXPECT_EQ(head.prev, &nodes[2]);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(nodes[1].next), KELV_LIST_POISON_NEXT);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(nodes[1].prev), KELV_LIST_POISON_PREV);
  kelv_list_del(&nodes[0]);
  kelv_list_del(&nodes[2]);
  EXPECT_EQ(head.next, &head);
  EXPECT_EQ(head.prev, &head);
}

}  // namespace
