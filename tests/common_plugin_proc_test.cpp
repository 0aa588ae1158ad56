#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>

#include "child.h"
#include "common_plugin.h"
#include "interposed.h"
#include "proc_fixture.h"

namespace {

using Plugin = MIRT_Linux_Plugin;
using namespace std::string_literals;

class ReadFile : public ProcFixture {
 protected:
  // The text that read_file() leaves, cut at the zeros behind it; "-1" when it fails.
  static std::string read_line(unsigned int size, int line) {
    std::vector<char> buffer(size, '?');
    if (Plugin::read_file("/proc/file", buffer.data(), size, line) != 0) {
      EXPECT_EQ(std::count(buffer.begin(), buffer.end(), '\0'), static_cast<long>(size));
      return "-1";
    }
    return std::string(buffer.data(), size).substr(0, last_byte(buffer) + 1);
  }

 private:
  static size_t last_byte(const std::vector<char>& buffer) {
    size_t length = buffer.size();
    while (length > 0 && buffer[length - 1] == '\0') --length;
    return length - 1;
  }
};

TEST_F(ReadFile, CountsLinesAndPiecesOfLines) {
  put("file", "one\ntwo\nthree");
  EXPECT_EQ(read_line(64, 1), "one\n");
  EXPECT_EQ(read_line(64, 2), "two\n");
  EXPECT_EQ(read_line(64, 3), "three");
  EXPECT_EQ(read_line(64, 4), "-1");
  put("file", "0123456789\nnext\n");
  EXPECT_EQ(read_line(8, 1), "012345");
  EXPECT_EQ(read_line(8, 2), "6789\n");
  EXPECT_EQ(read_line(8, 3), "next\n");
  put("file", "a\0b\0\0"s);
  EXPECT_EQ(read_line(64, 1), "a\0b"s);
  put("file", "");
  EXPECT_EQ(read_line(64, 1), "-1");
}

TEST_F(ReadFile, GoesOnAfterAShortReadAtTheEndOfALine) {
  ScopedHooks hooks;
  hooks->read_at_most = [] { return 4; };
  put("file", "one\ntwo\n");
  EXPECT_EQ(read_line(64, 2), "two\n");
  EXPECT_EQ(read_line(64, 3), "-1");
}

TEST_F(ReadFile, RefusesWhatItCannotUseAndTouchesNothingForLineZero) {
  put("file", "text\n");
  char buffer[4] = "abc";
  EXPECT_EQ(Plugin::read_file(nullptr, buffer, 4, 1), -1);
  EXPECT_EQ(Plugin::read_file("/proc/file", nullptr, 4, 1), -1);
  EXPECT_EQ(Plugin::read_file("/proc/file", buffer, 0, 1), -1);
  EXPECT_EQ(Plugin::read_file("/proc/missing", buffer, 4, 1), -1);
  EXPECT_EQ(Plugin::read_file("/proc/file", buffer, 4, 0), 0);
  EXPECT_EQ(Plugin::read_file("/proc/file", buffer, 4, -1), 0);
  EXPECT_STREQ(buffer, "abc");
}

// The C library's line reader, applied as read_file() says: the pieces, the NULs and the borders
// of our own buffer have to come out the same.
TEST_F(ReadFile, AgreesWithTheStandardLineReader) {
  std::minstd_rand random(20);
  const std::string letters = "ab\n\0"s;
  for (const size_t length : {1, 70, 4095, 4096, 4097, 8192, 12345}) {
    std::string content;
    // Few line ends, so that lines cross the borders of every buffer.
    for (size_t i = 0; i < length; ++i) {
      content += random() % 90 == 0 ? letters[random() % 4] : static_cast<char>('c' + i % 20);
    }
    put("file", content);
    for (const int size : {3, 8, 255, 1024, 4097, 5000}) {
      FILE* const file = fopen("/proc/file", "r");
      std::vector<char> expected(static_cast<size_t>(size)), got(expected.size());
      for (int line = 1;; line += line < 20 ? 1 : 97) {
        rewind(file);
        bool more = true;
        for (int i = 0; i < line && more; ++i) {
          std::fill(expected.begin(), expected.end(), '\0');
          more = fgets(expected.data(), size - 1, file) != nullptr;
        }
        if (!more) std::fill(expected.begin(), expected.end(), '\0');
        EXPECT_EQ(
            Plugin::read_file("/proc/file", got.data(), static_cast<unsigned int>(size), line),
            more ? 0 : -1);
        ASSERT_EQ(got, expected) << "line " << line << " by " << size << " of " << length;
        if (!more) break;
      }
      fclose(file);
    }
  }
}

TEST(CommandLineText, JoinsArgumentsUpToTheFirstEmptyOne) {
  const auto convert = [](std::string bytes) {
    Plugin::change_cmdlie_to_str(bytes.data(), static_cast<unsigned int>(bytes.size()));
    return bytes;
  };
  EXPECT_EQ(convert("prog\0-a\0b\0\0\0"s), "prog -a b\0\0\0"s);
  EXPECT_EQ(convert("a\0\0b\0\0"s), "a\0\0b\0\0"s);
  EXPECT_EQ(convert("\0\0b"s), "\0\0b"s);
  EXPECT_EQ(convert("a\0b\0"s), "a b\0"s) << "the last byte is never changed";
  EXPECT_EQ(convert("\0"s), "\0"s);
  char more[] = "a\0b\0c";
  Plugin::change_cmdlie_to_str(more, 4);
  EXPECT_EQ(std::string(more, 5), "a b\0c"s) << "nor looked beyond";
}

TEST(StatItems, AreSeparatedByEveryBlank) {
  const char* const line = "1 (x) S 4";
  EXPECT_STREQ(Plugin::get_items(line, 3), "S 4");
  EXPECT_EQ(Plugin::get_items(line, 1), line);
  EXPECT_EQ(Plugin::get_items(line, 0), line);
  EXPECT_EQ(Plugin::get_items(line, -7), line);
  EXPECT_EQ(Plugin::get_items(line, 9), line + strlen(line));
  EXPECT_STREQ(Plugin::get_items("1 (a b) S", 3), "b) S") << "a blank in the name counts";
  EXPECT_STREQ(Plugin::get_items("a  b\tc\nd e", 3), "b\tc\nd e");
  EXPECT_STREQ(Plugin::get_items("a ", 2), "");
  EXPECT_EQ(Plugin::get_items(nullptr, 3), nullptr);
}

class ProcessName : public ProcFixture {};

TEST_F(ProcessName, IsTheWordAfterTheKey) {
  struct Row {
    const char *status, *name;
    int outcome;
  };
  for (const Row& row : {Row{"Name:\tcat\nUmask:\t0022\n", "cat", 0},
                         {"Name:\ttwo words\n", "two", 0},
                         {"Umask:\t0022\nName:\tlater\n", "later", 0},
                         {"X Name:\tinside\n", "Name:", 0},
                         {"Name:\tfifteen-letters\n", "fifteen", 0},
                         {"Name:\n", "kept", 0},
                         {"Umask:\t0022\n", "kept", -1},
                         {"", "kept", -1}}) {
    put("7/status", row.status);
    char name[16] = "kept";
    memset(name + 8, '#', 8);
    EXPECT_EQ(Plugin::get_procname_bypid(7, name, 8), row.outcome) << row.status;
    EXPECT_STREQ(name, row.name);
    EXPECT_EQ(std::string(name + 8, 8), "########") << "wrote past the buffer";
  }
  char name[8] = "kept";
  EXPECT_EQ(Plugin::get_procname_bypid(8, name, sizeof name), -1);
  EXPECT_STREQ(name, "kept");
}

class ThreadStatus : public ProcFixture {};

TEST_F(ThreadStatus, GivesTheCountersOfABlockedThreadAlone) {
  constexpr char kHead[] = "Name:\tx\nUmask:\t0022\n";
  constexpr char kTail[] = "voluntary_ctxt_switches:\t150\nnonvoluntary_ctxt_switches:\t3\n";
  struct Row {
    const char *name, *status;
    int stat;
    unsigned long voluntary, nonvoluntary;
  };
  const std::string blocked = kHead + "State:\tD (disk sleep)\n"s + kTail,
                    sleeping = kHead + "State:\tS (sleeping)\n"s + kTail, stateless = kHead + ""s,
                    early = kTail + "State:\tR (running)\n"s,
                    huge = "State:\tD\nvoluntary_ctxt_switches:\t18446744073709551615\n",
                    indented = " State:\tD\nmore voluntary_ctxt_switches:\t9\n",
                    second_piece = std::string(254, 'x') + "State:\tD\n";
  for (const Row& row : {Row{"blocked", blocked.c_str(), 1, 150, 3},
                         {"sleeping", sleeping.c_str(), 0, 11, 12},
                         {"no state", stateless.c_str(), 10, 11, 12},
                         {"counters first", early.c_str(), 0, 150, 3},
                         {"largest count", huge.c_str(), 1, ~0UL, 12},
                         {"keys not at the start", indented.c_str(), 10, 11, 12},
                         {"a piece is a line", second_piece.c_str(), 1, 11, 12}}) {
    put("7/task/8/status", row.status);
    int stat = 10;
    unsigned long voluntary = 11, nonvoluntary = 12;
    EXPECT_EQ(Plugin::get_proc_status_info(7, 8, stat, voluntary, nonvoluntary), 0) << row.name;
    EXPECT_EQ(stat, row.stat) << row.name;
    EXPECT_EQ(voluntary, row.voluntary) << row.name;
    EXPECT_EQ(nonvoluntary, row.nonvoluntary) << row.name;
  }
  int stat = 10;
  unsigned long voluntary = 11, nonvoluntary = 12;
  EXPECT_EQ(Plugin::get_proc_status_info(7, 9, stat, voluntary, nonvoluntary), -1);
  EXPECT_EQ(stat, 10);
  EXPECT_EQ(voluntary, 11U);
  EXPECT_EQ(nonvoluntary, 12U);
}

TEST(RealProcess, IsReadWhileItLivesAndVanishes) {
  Child child({"/QAV/bin/./app data", "-u"});
  const pid_t pid = child.pid();
  char cmdline[64] = "", name[16] = "";
  EXPECT_EQ(Plugin::get_cmdline_bypid(pid, cmdline, sizeof cmdline), 0);
  EXPECT_STREQ(cmdline, "/QAV/bin/./app data -u");
  EXPECT_EQ(Plugin::get_cmdline_bypid(pid, cmdline, 8), 0);
  EXPECT_STREQ(cmdline, "/QAV/b") << "size - 2 characters";
  EXPECT_EQ(Plugin::get_cmdline_bypid(pid, nullptr, 8), -1);
  EXPECT_EQ(Plugin::get_procname_bypid(pid, name, sizeof name), 0);
  EXPECT_STREQ(name, "cat");
  int stat = 1;
  unsigned long voluntary = 0, nonvoluntary = 0;
  EXPECT_EQ(Plugin::get_proc_status_info(pid, pid, stat, voluntary, nonvoluntary), 0);
  EXPECT_EQ(stat, 0);

  child.kill_unreaped(SIGKILL);
  EXPECT_EQ(Plugin::get_cmdline_bypid(pid, cmdline, sizeof cmdline), -1) << "a zombie has none";
  EXPECT_EQ(Plugin::get_procname_bypid(pid, name, sizeof name), 0);
  child.end();
  EXPECT_EQ(Plugin::get_procname_bypid(pid, name, sizeof name), -1);
  EXPECT_EQ(Plugin::get_proc_status_info(pid, pid, stat, voluntary, nonvoluntary), -1);
}

}  // namespace
