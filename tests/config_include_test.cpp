// A configuration of several files, and who may be able to write them.

#include <sys/stat.h>
#include <unistd.h>

#include "config/config.h"
#include "monitor_fixture.h"
#include "proc_fixture.h"

namespace {

constexpr char kCpu[] = "[machine]\ncpu = true\n";
constexpr uid_t kOther = 12345;

class IncludeTest : public MonitorTest {
 protected:
  IncludeTest() { fs::create_directory(folder_ / "conf.d"); }
};

TEST_F(IncludeTest, FilesAreReadInTheirOrderEachWithDefaultsOfItsOwn) {
  configure("include = ['conf.d/*.toml', 'extra', 'conf.d/none-*']\nevery = 7\n" +
            std::string(kCpu) + "alert = 'ops'\n");
  put("conf.d/b.toml", "[[process]]\nname = 'b'\nexact = 'b'\nrunning = true\n");
  put("conf.d/a.toml", "every = 3\n[[process]]\nname = 'a'\nexact = 'a'\nmemory = true\n");
  put("conf.d/ignored", "no toml");
  put("extra", "[alert.ops]\ncommand = ['true']\n");
  EXPECT_EQ(findings(), "");
  const Plan config = read_config(folder_ / "a.toml").config;
  std::vector<std::tuple<std::string, fs::path, double>> found;
  for (const Instance& each : config.instances) {
    found.emplace_back(each.name, fs::relative(each.file, folder_), each.period_s);
  }
  EXPECT_EQ(found, (decltype(found){{"machine.cpu", "a.toml", 7},
                                    {"a.memory", "conf.d/a.toml", 3},
                                    {"b.running", "conf.d/b.toml", 7}}));
  EXPECT_EQ(config.alerts.size(), 1U);
}

TEST_F(IncludeTest, EachMistakeHasTheNameOfItsFile) {
  configure("include = ['conf.d/*', 'gone.toml', '', '*.toml']\n" + std::string(kCpu) +
            "alert = ['who']\n[alert.ops]\ncommand = ['true']\n");
  fs::create_directory(folder_ / "conf.d/sub");
  put("conf.d/a.toml", "workers = 3\ninclude = ['x']\n[machine]\nuser_cpu = tru\n");
  put("conf.d/b.toml", "workers = 3\ninclude = ['x']\n[machine]\ncpu = true\nalert = ['who']\n");
  put("conf.d/c.toml", "\n[alert.ops]\nwebhook = 'http://h'\n");
  EXPECT_EQ(
      findings(),
      "a.toml:1: include has an empty name, expected an array of file names and patterns\n"
      "conf.d/a.toml:4: invalid TOML: found tru without quotes, expected text in quotes "
      "(\"tru\"), a number, true or false\n"
      "conf.d/b.toml:1: workers in an included file, expected it only in a.toml\n"
      "conf.d/b.toml:2: include in an included file, expected it only in a.toml\n"
      "conf.d/b.toml:4: name \"machine.cpu\" is already used at a.toml:3, expected another name\n"
      "conf.d/c.toml:2: alert: name \"ops\" is already used at a.toml:5, expected another name\n"
      "conf.d/sub: is a directory, expected a regular file, /dev/stdin or /dev/fd/N\n"
      "gone.toml: cannot be read: No such file or directory\n");
  Monitor monitor(folder_, "mirt-monitor check-config a.toml");
  EXPECT_TRUE(contains(monitor.end(2), "\nconf.d/a.toml:4: invalid TOML"));
}

class TrustTest : public IncludeTest {
 protected:
  void SetUp() override {
    if (!is_machines_root()) GTEST_SKIP() << "files are given to other users here";
    configure("include = ['conf.d/b.toml']\n" + std::string(kCpu));
    put("conf.d/b.toml", "[[process]]\nname = 'b'\nexact = 'b'\nrunning = true\n");
    ASSERT_EQ(findings(), "");
  }
  void change(const std::string& name, mode_t mode, uid_t owner = 0) const {
    ASSERT_EQ(chown((folder_ / name).c_str(), owner, 0), 0);
    ASSERT_EQ(chmod((folder_ / name).c_str(), mode), 0);
  }
};

TEST_F(TrustTest, WhatOthersCanWriteIsRefused) {
  const std::string flag = "; use --allow-writable-config to read it anyway\n";
  const std::string root = folder_.string();
  const struct {
    std::string name;
    mode_t mode;
    uid_t owner;
    std::string expected;
  } rows[] = {
      {"a.toml", 0664, 0,
       "a.toml: can be written by its group (mode 0664), expected only root (chmod go-w)"},
      {"a.toml", 0602, 0,
       "a.toml: can be written by everybody (mode 0602), expected only root (chmod go-w)"},
      {"a.toml", 0644, kOther, "a.toml: is owned by user 12345, expected root"},
      {"conf.d/b.toml", 0666, 0,
       "conf.d/b.toml: can be written by everybody (mode 0666), expected only root (chmod go-w)"},
      {"conf.d", 0775, 0,
       "conf.d/b.toml: is in \"conf.d\", which can be written by its group (mode 0775), expected "
       "only root (chmod go-w)"},
      {"conf.d", 0755, kOther,
       "conf.d/b.toml: is in \"conf.d\", which is owned by user 12345, expected root"},
      {"conf.d", 01777, 0, ""}};
  for (const auto& row : rows) {
    const mode_t usual = row.name == "conf.d" ? 0755 : 0644;
    change(row.name, row.mode, row.owner);
    EXPECT_EQ(findings(), row.expected.empty() ? "" : row.expected + flag);
    EXPECT_TRUE(read_config(folder_ / "a.toml", Warnings::kAllowed, Trust::kEverything)
                    .findings.mistakes.empty());
    change(row.name, usual);
    EXPECT_EQ(findings(), "");
  }
}

TEST_F(TrustTest, ALinkCountsByWhereItIsAndByWhereItLeads) {
  change("conf.d", 0777);
  rename((folder_ / "a.toml").c_str(), (folder_ / "real.toml").c_str());
  fs::create_symlink("../real.toml", folder_ / "conf.d/a.toml");
  const auto mistakes_of = [this](const char* name) {
    return read_config(folder_ / name).findings.mistakes.size();
  };
  EXPECT_EQ(mistakes_of("conf.d/a.toml"), 1U) << "the link can be replaced";
  put("conf.d/b.toml", kCpu);
  fs::create_symlink("conf.d/b.toml", folder_ / "link.toml");
  EXPECT_EQ(mistakes_of("link.toml"), 1U) << "the file can be replaced";
  change("conf.d", 0755);
  EXPECT_EQ(mistakes_of("link.toml"), 0U);
}

TEST_F(TrustTest, AnotherUserTrustsRootAndItself) {
  change("", 0755);
  const auto said_to = [this](uid_t user) {
    EXPECT_EQ(seteuid(user), 0);
    std::string all = findings();
    EXPECT_EQ(seteuid(0), 0);
    return all;
  };
  EXPECT_EQ(said_to(kOther), "") << "root's own";
  change("a.toml", 0600, kOther);
  EXPECT_EQ(said_to(kOther), "");
  change("a.toml", 0644, kOther + 1);
  EXPECT_EQ(said_to(kOther),
            "a.toml: is owned by user 12346, expected root or user 12345; use "
            "--allow-writable-config to read it anyway\n");
}

TEST_F(TrustTest, RunAndCheckConfigAskUnlessToldOtherwise) {
  change("a.toml", 0666);
  for (const std::string& command :
       {kRun + "--rounds 1 ", std::string("mirt-monitor check-config a.toml ")}) {
    EXPECT_EQ(Monitor(folder_, command).end(2).find("a.toml: can be written by everybody"), 0U);
    Monitor allowed(folder_, command + "--allow-writable-config");
    EXPECT_NE(allowed.line(), std::nullopt);
    allowed.end(0);
  }
}

}  // namespace
