#include <gtest/gtest.h>
#include <signal.h>

#include <tuple>

#include "child.h"
#include "common_plugin.h"
#include "interposed.h"
#include "proc_fixture.h"

namespace {

using Plugin = MIRT_Linux_Plugin;
using namespace std::string_literals;

using ReadProc = ProcFixture;

// The content of a buffer of this size after read_file(); "-1" if it fails.
std::string read_line(unsigned int size, int line) {
  std::string buffer(size, '?');
  if (Plugin::read_file("/proc/file", buffer.data(), size, line) != 0) return "-1";
  return buffer;
}

TEST_F(ReadProc, CountsPiecesOfLinesAcrossItsOwnBuffer) {
  // 682 pieces of six bytes come first, so that the reader's buffer ends between the digits.
  put("file", std::string(4093, 'x') + "\n0123456789\nn\0m"s);
  EXPECT_EQ(read_line(8, 684), "012345\0\0"s);
  EXPECT_EQ(read_line(8, 685), "6789\n\0\0\0"s);
  EXPECT_EQ(read_line(8, 686), "n\0m\0\0\0\0\0"s);
  EXPECT_EQ(read_line(8, 687), "-1");
}

TEST_F(ReadProc, GoesOnAfterAShortReadAtTheEndOfALine) {
  ScopedHooks hooks;
  hooks->read_at_most = [] { return 4; };
  put("file", "one\ntwo\n");
  EXPECT_EQ(read_line(8, 2).substr(0, 3), "two");
}

TEST_F(ReadProc, RefusesWhatItCannotUseAndTouchesNothingForLineZero) {
  put("file", "text\n");
  char buffer[4] = "abc";
  EXPECT_EQ(Plugin::read_file(nullptr, buffer, 4, 1), -1);
  EXPECT_EQ(Plugin::read_file("/proc/file", buffer, 0, 1), -1);
  EXPECT_EQ(Plugin::read_file("/proc/file", buffer, 4, 0), 0);
  EXPECT_STREQ(buffer, "abc");
}

TEST(CommandLineText, JoinsArgumentsUpToTheFirstEmptyOne) {
  for (const auto& [bytes, joined] : {std::pair("prog\0-a\0b\0\0\0"s, "prog -a b\0\0\0"s),
                                      {"a\0\0b\0\0"s, "a\0\0b\0\0"s},
                                      {"a\0b\0"s, "a b\0"s}}) {
    std::string text = bytes;
    Plugin::change_cmdlie_to_str(text.data(), static_cast<unsigned int>(text.size()));
    EXPECT_EQ(text, joined);
  }
}

TEST_F(ReadProc, NameIsTheWordAfterTheKey) {
  using Row = std::pair<const char*, const char*>;
  for (const auto& [status, expected] :
       {Row("Name:\tcat\nUmask:\t0022\n", "cat"), Row("Umask:\t0022\nName:\ttwo words\n", "two"),
        Row("Name:\tfifteen-letters\n", "fifteen"), Row("Umask:\t0022\n", "kept")}) {
    put("7/status", status);
    char name[] = "kept\0###########";
    EXPECT_EQ(Plugin::get_procname_bypid(7, name, 8), expected == "kept"s ? -1 : 0);
    EXPECT_STREQ(name, expected);
    EXPECT_EQ(name[8], '#') << "wrote past the buffer";
  }
}

TEST_F(ReadProc, StatusGivesTheCountersOfABlockedThreadAlone) {
  constexpr char kCounts[] = "voluntary_ctxt_switches:\t150\nnonvoluntary_ctxt_switches:\t3\n";
  // The text before and after the counters, the state and the sum of the counters.
  using Row = std::tuple<std::string, const char*, int, unsigned long>;
  for (const auto& [before, behind, expected, counts] :
       {Row("Name:\tx\nState:\tD (disk sleep)\n", "", 1, 153),
        Row("Name:\tx\nState:\tS (sleeping)\n", "", 0, 23),
        Row("", "State:\tR (running)\n", 0, 153), Row(" State:\tD\nmore ", "", 10, 14),
        Row(std::string(254, 'x') + "State:\tD\n", "", 1, 153)}) {
    put("7/task/8/status", before + kCounts + behind);
    int stat = 10;
    unsigned long voluntary = 11, nonvoluntary = 12;
    EXPECT_EQ(Plugin::get_proc_status_info(7, 8, stat, voluntary, nonvoluntary), 0);
    EXPECT_EQ(stat, expected) << before;
    EXPECT_EQ(voluntary + nonvoluntary, counts) << before;
    EXPECT_EQ(Plugin::get_proc_status_info(7, 9, stat, voluntary, nonvoluntary), -1);
  }
}

TEST(RealProcess, IsReadWhileItLivesAndVanishes) {
  Child child({"/QAV/bin/./app data", "-u"});
  const pid_t pid = child.pid();
  char cmdline[64] = "", name[16] = "";
  EXPECT_EQ(Plugin::get_cmdline_bypid(pid, cmdline, sizeof cmdline), 0);
  EXPECT_STREQ(cmdline, "/QAV/bin/./app data -u");
  EXPECT_EQ(Plugin::get_cmdline_bypid(pid, nullptr, 9), -1);
  child.kill_unreaped(SIGKILL);
  EXPECT_EQ(Plugin::get_cmdline_bypid(pid, cmdline, sizeof cmdline), -1) << "a zombie has none";
  EXPECT_EQ(Plugin::get_procname_bypid(pid, name, sizeof name), 0);
  EXPECT_STREQ(name, "cat");
  child.end();
  EXPECT_EQ(Plugin::get_procname_bypid(pid, name, sizeof name), -1);
}

}  // namespace
