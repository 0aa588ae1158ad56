#include "common_plugin.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <tuple>

#include "child.h"
#include "interposed.h"
#include "item_call.h"

namespace {

// The item tests cover what is common to all items.
TEST(Checks, CompareWholeNamesInTheirOrder) {
  using Names = std::vector<const char*>;
  for (const Names& names :
       {Names{"PreCmd", "ProcessName", "RetKeyWords"},
        Names{"processName", "PreCmd", "RetKeyWords"},
        Names{"ProcessName", "PreCmd2", "RetKeyWords"}, Names{"ProcessName", "PreCmd", "RetKey"},
        Names{"Process", "Period"}, Names{"ProcessName", "Perio"}}) {
    std::vector<FI_PARAM_S> parameters;
    for (const char* name : names) parameters.push_back(parameter(name, ""));
    ItemCall call(parameters);
    const auto check = names.size() == 2 ? &MIRT_Linux_Plugin::input_para_check_cfgperiod
                                         : &MIRT_Linux_Plugin::input_para_check_precmd;
    const int argc = static_cast<int>(names.size());
    MIRT_Linux_Plugin plugin;
    // The context comes last.
    EXPECT_FALSE((plugin.*check)(argc, call.argv.data(), nullptr, &call.result));
    EXPECT_STREQ(call.result.reason, "Input parameter error.") << names[0] << ' ' << names[1];
  }
}

TEST(PreCommand, ComparesTheBeginningOfTheOutput) {
  const int descriptors = open_descriptors();
  using Row = std::tuple<std::string, std::string, int>;
  for (auto [script, keywords, outcome] :
       {Row("echo up and more", "up", 0), Row("echo up", "upx", -1), Row("echo Up", "up", -1),
        Row("echo ' up'", "up", -1), Row("true", "", 0), Row("true", "x", -1),
        Row("echo up; exit 3", "up", 0), Row("/nonexistent/command 2>/dev/null", "", 0),
        // Only 31 characters are kept.
        Row("echo 1234567890abcdefghij1234567890a", "1234567890abcdefghij1234567890a", 0),
        Row("echo 1234567890abcdefghij1234567890ab", "1234567890abcdefghij1234567890ab", -1),
        // More than the capacity of a pipe: the wait must not block while the pipe is full.
        Row("yes up | head -c 200000", "up", 0),
        // In two writes: one read() of a pipe would return only the first.
        Row("printf a; sleep 0.05; printf b", "ab", 0)}) {
    EXPECT_EQ(MIRT_Linux_Plugin::exec_pre_cmd(script.data(), keywords.data()), outcome) << script;
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left";
  }
}

TEST(PreCommandStart, FailsWithoutScriptKeywordsOrShell) {
  char text[] = "echo up", empty[] = "";
  EXPECT_EQ(MIRT_Linux_Plugin::exec_pre_cmd(nullptr, empty), -1);
  EXPECT_EQ(MIRT_Linux_Plugin::exec_pre_cmd(text, nullptr), -1);
  ScopedHooks hooks;
  hooks->popen = [] { return nullptr; };
  EXPECT_EQ(MIRT_Linux_Plugin::exec_pre_cmd(text, empty), -1);
}

TEST(Period, IsClampedForEveryNumberOfSeconds) {
  using Row = std::pair<const char*, int>;
  for (const auto& [text, period_us] :
       {Row(nullptr, 500000), Row("", 500000), Row("0", 500000), Row("-3", 500000),
        Row("x5", 500000), Row("1.9", 1000000), Row(" \t5", 5000000), Row("+7", 7000000),
        Row("10s", 10000000), Row("241", 240000000), Row("4294967297", 240000000),
        Row("99999999999999999999", 240000000), Row("-99999999999999999999", 500000)}) {
    EXPECT_EQ(ConvertStr2PeriodUS(text), period_us) << (text ? text : "null");
  }
}

TEST(ParaValue, IsTheFirstOfExactlyThatName) {
  std::vector<FI_PARAM_S> argv{parameter("Key", "first"), parameter("Key", "second"),
                               parameter("Longer", "third")};
  EXPECT_EQ(GetParaValue(3, argv.data(), "Key"), argv[0].value);
  EXPECT_EQ(GetParaValue(3, argv.data(), "Longer"), argv[2].value);
  EXPECT_EQ(GetParaValue(2, argv.data(), "Longer"), nullptr);
  EXPECT_EQ(GetParaValue(3, argv.data(), "Long"), nullptr);
  EXPECT_EQ(GetParaValue(-1, nullptr, "Key"), nullptr);
}

}  // namespace
