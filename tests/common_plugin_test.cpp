#include "common_plugin.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>

#include "child.h"
#include "interposed.h"
#include "item_call.h"

namespace {

using Check = bool (MIRT_Linux_Plugin::*)(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*);

constexpr Check kOne = &MIRT_Linux_Plugin::input_para_check;
constexpr Check kPreCmd = &MIRT_Linux_Plugin::input_para_check_precmd;
constexpr Check kPeriod = &MIRT_Linux_Plugin::input_para_check_cfgperiod;

constexpr char kCountError[] = "Input parameter number error.";
constexpr char kArgvError[] = "Input parameter argv is NULL.";
constexpr char kNameError[] = "Input parameter error.";
constexpr char kContextError[] = "Input parameter context is NULL.";

TEST(Checks, StopAtTheFirstFailure) {
  struct Row {
    Check check;
    std::vector<const char*> names;  // of the parameters; none: argv is null
    int argc;
    bool context;
    const char* reason;  // null: the check passes
  };
  for (const Row& row : {
           Row{kOne, {"any name, empty value"}, 1, true, nullptr},
           {kOne, {"a", "b"}, 2, true, kCountError},
           {kOne, {}, 0, false, kCountError},
           {kOne, {}, 1, false, kArgvError},
           {kOne, {"a"}, 1, false, kContextError},
           {kPreCmd, {"ProcessName", "PreCmd", "RetKeyWords"}, 3, true, nullptr},
           {kPreCmd, {"ProcessName", "PreCmd", "RetKeyWords"}, 3, false, kContextError},
           {kPreCmd, {"PreCmd", "ProcessName", "RetKeyWords"}, 3, true, kNameError},
           {kPreCmd, {"processName", "PreCmd", "RetKeyWords"}, 3, true, kNameError},
           {kPreCmd, {"ProcessName", "PreCmd2", "RetKeyWords"}, 3, true, kNameError},
           {kPreCmd, {"ProcessName", "PreCmd", "RetKey"}, 3, true, kNameError},
           {kPreCmd, {"ProcessName", "", "RetKeyWords"}, 3, false, kNameError},
           {kPeriod, {"ProcessName", "Period"}, 2, true, nullptr},
           {kPeriod, {"Process", "Period"}, 2, false, kNameError},
       }) {
    std::vector<FI_PARAM_S> parameters;
    for (const char* name : row.names) parameters.push_back(parameter(name, ""));
    ItemCall call(parameters);
    FI_PARAM_S* const argv = parameters.empty() ? nullptr : parameters.data();
    FI_CONTEXT_S* const context = row.context ? &call.context : nullptr;
    const bool passes = row.reason == nullptr;
    MIRT_Linux_Plugin plugin;
    EXPECT_EQ((plugin.*row.check)(row.argc, argv, context, &call.result), passes);
    EXPECT_EQ(call.result.result, passes ? 77 : -1);
    EXPECT_STREQ(call.result.reason, passes ? "as it was" : row.reason);
    EXPECT_FALSE((plugin.*row.check)(row.argc, argv, context, nullptr));
  }
}

TEST(Checks, ReadsNoFurtherThanTheNameField) {
  // No NUL in any of the 100 bytes: a longer comparison would run into the value.
  std::vector<FI_PARAM_S> argv(2);
  memset(argv[0].name, 'x', sizeof argv[0].name);
  memcpy(argv[0].name, "ProcessName", strlen("ProcessName"));
  ItemCall call(argv);
  MIRT_Linux_Plugin plugin;
  EXPECT_FALSE(plugin.input_para_check_cfgperiod(2, call.argv.data(), &call.context, &call.result));
  EXPECT_STREQ(call.result.reason, kNameError);
}

struct CommandCase {
  const char* script;
  const char* keywords;
  int outcome;
};
class PreCommand : public testing::TestWithParam<CommandCase> {};

TEST_P(PreCommand, ComparesTheBeginningOfTheOutput) {
  const int descriptors = open_descriptors();
  std::string script = GetParam().script, keywords = GetParam().keywords;
  EXPECT_EQ(MIRT_Linux_Plugin::exec_pre_cmd(script.data(), keywords.data()), GetParam().outcome);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD) << "a child was left";
}

constexpr char k31[] = "1234567890123456789012345678901",
               k32[] = "12345678901234567890123456789012";

INSTANTIATE_TEST_SUITE_P(
    Rows, PreCommand,
    testing::Values(CommandCase{"echo up", "up", 0}, CommandCase{"echo up and more", "up", 0},
                    CommandCase{"echo up", "upx", -1}, CommandCase{"echo up", "up\n", 0},
                    CommandCase{"echo Up", "up", -1}, CommandCase{"echo ' up'", "up", -1},
                    CommandCase{"true", "", 0}, CommandCase{"true", "x", -1},
                    CommandCase{"echo up; exit 3", "up", 0},
                    CommandCase{"echo up >/dev/null", "up", -1},
                    CommandCase{"/nonexistent/command 2>/dev/null", "", 0},
                    CommandCase{"/nonexistent/command 2>/dev/null", "x", -1},
                    CommandCase{"echo 12345678901234567890123456789012", k31, 0},
                    CommandCase{"echo 12345678901234567890123456789012", k32, -1},
                    // More than one pipe holds: the command must not be waited for with it full.
                    CommandCase{"yes up | head -c 200000", "up", 0},
                    // In two writes: one read of a pipe would see the first alone.
                    CommandCase{"printf a; sleep 0.05; printf b", "ab", 0}));

TEST(PreCommandStart, FailsWithoutScriptKeywordsOrShell) {
  char text[] = "echo up", empty[] = "";
  EXPECT_EQ(MIRT_Linux_Plugin::exec_pre_cmd(nullptr, empty), -1);
  EXPECT_EQ(MIRT_Linux_Plugin::exec_pre_cmd(text, nullptr), -1);
  ScopedHooks hooks;
  hooks->popen = [] { return nullptr; };
  EXPECT_EQ(MIRT_Linux_Plugin::exec_pre_cmd(text, empty), -1);
}

TEST(Period, IsClampedForEveryNumberOfSeconds) {
  struct Row {
    const char* text;
    int period_us;
  };
  for (const Row& row : {Row{"", 500000},
                         {"0", 500000},
                         {"-3", 500000},
                         {"x5", 500000},
                         {"1", 1000000},
                         {"1.9", 1000000},
                         {" \t5", 5000000},
                         {"+7", 7000000},
                         {"10s", 10000000},
                         {"240", 240000000},
                         {"241", 240000000},
                         {"3000", 240000000},
                         {"100000", 240000000},
                         {"4294967297", 240000000},
                         {"99999999999999999999", 240000000},
                         {"-99999999999999999999", 500000}}) {
    EXPECT_EQ(ConvertStr2PeriodUS(row.text), row.period_us) << row.text;
  }
}

TEST(ParaValue, IsTheFirstOfExactlyThatName) {
  std::vector<FI_PARAM_S> argv{parameter("Key", "first"), parameter("Key", "second"),
                               parameter("Longer", "third")};
  const auto find = [&argv](int argc, const char* name) {
    return GetParaValue(argc, argv.data(), name);
  };
  EXPECT_EQ(find(3, "Key"), argv[0].value);
  EXPECT_EQ(find(3, "Longer"), argv[2].value);
  for (const char* name : {"key", "Long", "Longer ", ""}) EXPECT_EQ(find(3, name), nullptr) << name;
  EXPECT_EQ(find(2, "Longer"), nullptr);
  EXPECT_EQ(GetParaValue(0, nullptr, "Key"), nullptr);
  EXPECT_EQ(GetParaValue(-1, nullptr, "Key"), nullptr);
}

}  // namespace
