
#include <gtest/gtest.h>
#include <unistd.h>

#include "common_plugin.h"
#include "proc_fixture.h"

namespace {

using Plugin = MIRT_Linux_Plugin;
using Pids = std::vector<int>;

TEST(Wildcard, FollowsItsOwnRules) {
  using Row = std::pair<const char*, const char*>;  // pattern and text
  for (const auto& [pattern, text] :
       {Row("abc", "abc"), Row("a*b", "axxb"), Row("a*b*", "abxb"), Row("a*", "abc"), Row("*", ""),
        Row("*?*", "x"), Row("ab?", "abc"), Row("", ""), Row("*app_d*", "/bin/./app_d 12"),
        // After a partial match the matcher tries again further on; '?' is a partial match.
        Row("abc", "abxabc"), Row("?bc", "xabc")}) {
    EXPECT_TRUE(Plugin::str_fuzzy_match(text, pattern)) << pattern << " against " << text;
  }
  for (const auto& [pattern, text] :
       {Row("abc", "abcd"), Row("abc", "ab"), Row("*?", ""), Row("*app_d", "/bin/./app_d 12"),
        Row("", "a"), Row("\\*", "*"), Row("A", "a"), Row("*", nullptr), Row(nullptr, ""),
        // The first comparison decides; a star matches the shortest text and never a longer one.
        Row("abc", "xabc"), Row("a*b", "abxb")}) {
    EXPECT_FALSE(Plugin::str_fuzzy_match(text, pattern));
  }
}

TEST(Wildcard, EndsOnPatternsMadeToBacktrack) {
  // A matcher that backtracks to earlier stars would practically never end.
  const std::string text(1022, 'a');
  std::string pattern;
  while (pattern.size() < 396) pattern += "a*a?";
  EXPECT_FALSE(Plugin::str_fuzzy_match(text.c_str(), (pattern + "b").c_str()));
  EXPECT_TRUE(Plugin::str_fuzzy_match(text.c_str(), (pattern + "*").c_str()));
  EXPECT_FALSE(Plugin::str_fuzzy_match(text.c_str(), ("*" + std::string(390, 'a') + "b").c_str()));
}

class Match : public ProcFixture {
 protected:
  static bool matches(const std::string& name, int flag) {
    return Plugin::check_with_cmdline("/proc/5/cmdline", name.c_str(), flag);
  }
  static Pids find_all(const char* name, int flag, unsigned int size = 4) {
    process_cpu_context_t found[4] = {{-1, 2, 3}, {-1, 2, 3}, {-1, 2, 3}, {-1, 2, 3}};
    unsigned int used = 99;
    Plugin::get_allpid(name, found, size, &used, flag);
    Pids pids;
    for (unsigned int i = 0; i < 4; ++i) {
      EXPECT_EQ(found[i].syscputime + found[i].procputime, 5U) << "these are left alone";
      EXPECT_EQ(found[i].pid == -1, i >= used);
      if (i < used) pids.push_back(found[i].pid);
    }
    return pids;
  }
};

TEST_F(Match, ComparesTheJoinedCommandLineByMode) {
  put_cmdline(5, {"/bin/app", "-a", "1"});
  for (const int exact : {0, 3, -1}) {
    EXPECT_TRUE(matches("/bin/app -a 1", exact)) << exact;
    EXPECT_FALSE(matches("/bin/app", exact)) << exact;
  }
  EXPECT_TRUE(matches("/bin/app", 1));
  EXPECT_FALSE(matches("/bin/app -a 1 2", 1));
  EXPECT_TRUE(matches("*app*1", 2));
  EXPECT_FALSE(matches("*app", 2));
  const std::string begin(1022, 'a');
  put_cmdline(5, {begin + "tail"});
  EXPECT_TRUE(matches(begin, 0)) << "what comes behind is not compared";
  EXPECT_FALSE(matches(begin + "t", 1));
  put_cmdline(5, {});
  // An empty command line never matches.
  for (const int flag : {0, 1, 2}) EXPECT_FALSE(matches("", flag)) << flag;
}

TEST_F(Match, RecordsTheFirstMatchesInTheOrderOfTheListing) {
  for (const int pid : {41, 7, 300}) put_cmdline(pid, {"app", std::to_string(pid)});
  put_cmdline(8, {"other"});
  put_cmdline(9, {});
  make_dir("sys");
  ASSERT_EQ(symlink("7", "/proc/self"), 0);
  const Pids order = in_listing_order({41, 7, 300});
  EXPECT_EQ(find_all("app", 1), order);
  EXPECT_EQ(find_all("a*", 2), order);
  EXPECT_EQ(find_all("app 7", 0), Pids{7});
  EXPECT_EQ(find_all("app", 1, 2), Pids(order.begin(), order.begin() + 2));
  EXPECT_EQ(find_all("", 1), in_listing_order({41, 7, 300, 8}));
}

TEST_F(Match, KeepsTheRememberedProcessOrLooksForTheFirst) {
  for (const int pid : {41, 42, 43}) put_cmdline(pid, {"app", "-x"});
  const Pids order = in_listing_order({41, 42, 43});
  unsigned long long total = 5, ticks = 6;
  pid_t pid = order.back();
  EXPECT_EQ(Plugin::get_pid_byname("app -x", pid, total, ticks), order.back());
  EXPECT_EQ(total + ticks, 11U);
  put_cmdline(pid, {"app", "-y"});
  EXPECT_EQ(Plugin::get_pid_byname("app -x", pid, total, ticks), order.front());
  EXPECT_EQ(pid, order.front());
  EXPECT_EQ(total + ticks, 0U);
  EXPECT_EQ(Plugin::get_pid_byname("app", pid, total, ticks), 0);
  EXPECT_EQ(pid, 0);
}

}  // namespace
