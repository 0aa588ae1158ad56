#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "child.h"
#include "common_plugin.h"
#include "private_access.h"
#include "proc_fixture.h"

namespace {

using private_access::str_fuzzy_match;
using Plugin = MIRT_Linux_Plugin;
using Pids = std::vector<int>;
using namespace std::string_literals;

TEST(Wildcard, FollowsItsOwnRules) {
  struct Row {
    const char *pattern, *text;
    bool matches;
  };
  for (const Row& row : {
           Row{"abc", "abc", true},
           {"abc", "xabc", false},  // the very first comparison decides
           {"abc", "aabc", true},   // but after a partial match it is tried further on
           {"abc", "abxabc", true},
           {"abc", "abcd", false},  // the end is anchored
           {"abc", "ab", false},
           {"a*b", "axxb", true},
           {"a*b", "abxb", false},  // the shortest run, never tried again
           {"a*b*", "abxb", true},
           {"a*", "abc", true},
           {"*", "", true},
           {"*", "any text", true},
           {"**", "", true},
           {"*?", "", false},
           {"*?*", "x", true},
           {"?bc", "xabc", true},  // a '?' first moves on, so the text is tried further on
           {"*app_data*", "/QAV/bin/./app_data 12", true},
           {"*app_data", "/QAV/bin/./app_data 12", false},
           {"ab?", "ab", false},
           {"ab?", "abc", true},
           {"", "a", false},
           {"", "", true},
           {"\\*", "*", false},  // nothing escapes
           {"A", "a", false},
       }) {
    EXPECT_EQ(str_fuzzy_match(row.text, row.pattern), row.matches)
        << row.pattern << " against " << row.text;
  }
  EXPECT_FALSE(str_fuzzy_match(nullptr, "*"));
  EXPECT_FALSE(str_fuzzy_match("", nullptr));
}

// The rules, step by step as they are documented, in signed numbers.
bool step_by_step(const std::string& text, const std::string& pattern) {
  const int len1 = static_cast<int>(text.size()), len2 = static_cast<int>(pattern.size());
  int p1 = 0, p2 = 0, mark = 0;
  const auto at = [](const std::string& of, int i) { return of[static_cast<size_t>(i)]; };
  while (p1 < len1 && p2 < len2) {
    if (at(pattern, p2) == '?') {
      p1 += 1;
      p2 += 1;
    } else if (at(pattern, p2) == '*') {
      p2 += 1;
      mark = p2;
    } else if (at(text, p1) == at(pattern, p2)) {
      p1 += 1;
      p2 += 1;
    } else {
      if (p1 == 0 && p2 == 0) return false;
      p1 = p1 - (p2 - mark) + 1;
      p2 = mark;
    }
  }
  if (p2 == len2) return p1 == len1 || (len2 > 0 && pattern.back() == '*');
  return pattern.find_first_not_of('*', static_cast<size_t>(p2)) == std::string::npos;
}

TEST(Wildcard, AgreesWithItsRulesOnRandomTexts) {
  std::minstd_rand random(7);
  const auto draw = [&random](const std::string& alphabet, size_t longest) {
    std::string drawn;
    for (size_t left = random() % (longest + 1); left > 0; --left) {
      drawn += alphabet[random() % alphabet.size()];
    }
    return drawn;
  };
  int matches = 0;
  for (int round = 0; round < 100000; ++round) {
    const std::string text = draw("aab*", 9), pattern = draw("aab?*", 6);
    const bool expected = step_by_step(text, pattern);
    matches += expected ? 1 : 0;
    ASSERT_EQ(str_fuzzy_match(text.c_str(), pattern.c_str()), expected)
        << pattern << " against " << text;
  }
  EXPECT_GT(matches, 1000);
}

TEST(Wildcard, EndsOnPatternsMadeToBacktrack) {
  // A matcher that goes back to earlier stars would still be at it next year.
  const std::string text(1022, 'a');
  std::string pattern;
  while (pattern.size() < 396) pattern += "a*a?";
  EXPECT_FALSE(str_fuzzy_match(text.c_str(), (pattern + "b").c_str()));
  EXPECT_TRUE(str_fuzzy_match(text.c_str(), (pattern + "*").c_str()));
  EXPECT_FALSE(str_fuzzy_match(text.c_str(), ("*" + std::string(390, 'a') + "b").c_str()));
}

class Match : public ProcFixture {
 protected:
  static Pids find_all(const char* name, int flag, unsigned int size = 8) {
    std::vector<process_cpu_context_t> found(8, {-1, 22, 33});
    unsigned int used = 99;
    Plugin::get_allpid(name, found.data(), size, &used, flag);
    Pids pids;
    for (size_t i = 0; i < found.size(); ++i) {
      EXPECT_EQ(found[i].syscputime, 22U);
      EXPECT_EQ(found[i].procputime, 33U);
      if (i < used) {
        pids.push_back(found[i].pid);
      } else {
        EXPECT_EQ(found[i].pid, -1) << "wrote more than it reported";
      }
    }
    return pids;
  }
};

TEST_F(Match, ComparesTheJoinedCommandLineByMode) {
  put_cmdline(5, {"/bin/app", "-a", "1"});
  const auto matches = [](const char* name, int flag) {
    return Plugin::check_with_cmdline("/proc/5/cmdline", name, flag);
  };
  for (const int exact : {0, 3, -1, 99}) {
    EXPECT_TRUE(matches("/bin/app -a 1", exact)) << exact;
    EXPECT_FALSE(matches("/bin/app", exact)) << exact;
    EXPECT_FALSE(matches("/bin/app*", exact)) << exact;
    EXPECT_FALSE(matches("/bin/app -a 1 ", exact)) << "no blank at the end";
  }
  EXPECT_TRUE(matches("/bin/app", 1));
  EXPECT_TRUE(matches("", 1));
  EXPECT_FALSE(matches("/bin/app -a 1 2", 1));
  EXPECT_FALSE(matches("/BIN/app", 1));
  EXPECT_TRUE(matches("*app*1", 2));
  EXPECT_FALSE(matches("*app", 2));

  put_cmdline(5, {});
  for (const int flag : {0, 1, 2}) {
    EXPECT_FALSE(matches("", flag)) << "an empty command line never matches";
    EXPECT_FALSE(Plugin::check_with_cmdline("/proc/6/cmdline", "", flag)) << "nor a missing one";
  }
}

TEST_F(Match, Compares1022BytesOfALongerCommandLine) {
  const std::string begin(1022, 'a');
  put_cmdline(5, {begin + "tail"});
  EXPECT_TRUE(Plugin::check_with_cmdline("/proc/5/cmdline", begin.c_str(), 0));
  EXPECT_FALSE(Plugin::check_with_cmdline("/proc/5/cmdline", (begin + "t").c_str(), 1));
  EXPECT_FALSE(Plugin::check_with_cmdline("/proc/5/cmdline", begin.substr(1).c_str(), 0));
}

TEST_F(Match, RecordsTheFirstMatchesInTheOrderOfTheListing) {
  for (const int pid : {41, 7, 300}) put_cmdline(pid, {"app", std::to_string(pid)});
  put_cmdline(8, {"other"});
  put_cmdline(9, {});
  make_dir("sys");
  put("uptime", "1.0 1.0\n");
  ASSERT_EQ(symlink("7", "/proc/self"), 0);
  const Pids order = in_listing_order({41, 7, 300});
  EXPECT_EQ(find_all("app", 1), order);
  EXPECT_EQ(find_all("a*", 2), order);
  EXPECT_EQ(find_all("app 7", 0), Pids{7});
  EXPECT_EQ(find_all("app", 1, 2), Pids(order.begin(), order.begin() + 2));
  EXPECT_EQ(find_all("app", 1, 0), Pids{});
  EXPECT_EQ(find_all("", 1), in_listing_order({41, 7, 300, 8}));
  EXPECT_EQ(find_all("nobody", 1), Pids{});
}

TEST_F(Match, KeepsTheRememberedProcessOrLooksForTheFirst) {
  for (const int pid : {41, 42, 43}) put_cmdline(pid, {"app", "-x"});
  const Pids order = in_listing_order({41, 42, 43});
  unsigned long long total = 5, ticks = 6;
  pid_t pid = order.back();
  EXPECT_EQ(Plugin::get_pid_byname("app -x", pid, total, ticks), order.back());
  EXPECT_EQ(pid, order.back()) << "though others come first";
  EXPECT_EQ(total, 5U);
  EXPECT_EQ(ticks, 6U);

  put_cmdline(pid, {"app", "-y"});
  EXPECT_EQ(Plugin::get_pid_byname("app -x", pid, total, ticks), order.front());
  EXPECT_EQ(pid, order.front());
  EXPECT_EQ(total, 0U);
  EXPECT_EQ(ticks, 0U);

  total = ticks = 9;
  EXPECT_EQ(Plugin::get_pid_byname("app", pid, total, ticks), 0);
  EXPECT_EQ(pid, 0);
  EXPECT_EQ(total, 0U);
  EXPECT_EQ(ticks, 0U);
  EXPECT_EQ(Plugin::get_pid_byname("app -y", pid), order.back());

  put_cmdline(0, {"zero"});
  pid = 0;
  total = 9;
  EXPECT_EQ(Plugin::get_pid_byname("zero", pid, total, ticks), 0);
  EXPECT_EQ(total, 0U) << "PID 0 is no remembered process";
}

TEST(RealMatch, FindsAProcessUntilItIsAZombie) {
  // Its own PID in the name: nobody else on the machine has that command line.
  const std::string program = "/QAV/bin/./app_data." + std::to_string(getpid());
  Child child({program, "-u"});
  pid_t pid = 0;
  EXPECT_EQ(Plugin::get_pid_byname((program + " -u").c_str(), pid), child.pid());
  EXPECT_EQ(Plugin::get_pid_byname(program.c_str(), pid), 0) << "arguments belong to the name";
  process_cpu_context_t found[2]{};
  unsigned int used = 0;
  Plugin::get_allpid(("*" + program.substr(5) + "*").c_str(), found, 2, &used, 2);
  ASSERT_EQ(used, 1U);
  EXPECT_EQ(found[0].pid, child.pid());

  pid = child.pid();
  child.kill_unreaped(SIGKILL);
  EXPECT_EQ(Plugin::get_pid_byname((program + " -u").c_str(), pid), 0);
  Plugin::get_allpid(program.c_str(), found, 2, &used, 1);
  EXPECT_EQ(used, 0U);
}

TEST(RealMatch, NeverFindsKernelThreads) {
  std::vector<process_cpu_context_t> all(4096);
  unsigned int used = 0;
  Plugin::get_allpid("", all.data(), 4096, &used, 1);
  ASSERT_GT(used, 0U);
  for (unsigned int i = 0; i < used; ++i) {
    EXPECT_NE(all[i].pid, 2) << "PID 2 is the kernel's thread of threads";
  }
  EXPECT_TRUE(std::any_of(all.begin(), all.begin() + used,
                          [](const auto& found) { return found.pid == getpid(); }));
}

}  // namespace
