// The heartbeat item over entries of the test's own, and the error reports with a host library that
// records what it is asked. The functions defined here stand before the libraries'.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "child.h"
#include "common_plugin.h"
#include "item_call.h"
#include "kelv_log.h"
#include "kelv_time.h"
#include "mirt_comm.h"
#include "mirt_items.h"

namespace {

using Calls = std::vector<std::string>;

// What the host library does and was asked to do.
struct Host {
  bool creates = true;
  std::string refused_parameter;
  int32_t send_result = 0;
  std::function<MIRT_AGENT_HEART_INFO_S*(uint16_t module)> attach;

  Calls calls;
  std::string key;   // the bytes of the last report's
  std::string text;  // of the last error, formatted
  uint32_t line = 0;
};
Host g_host;
int g_report;  // stands for a report: nobody looks inside
Calls g_log;

void note_log(const KELV_LOG_RECORD_S* record) {
  g_log.push_back(std::to_string(record->module) + "/" + std::to_string(record->level) + " " +
                  record->file + " " + record->function + ": " + record->text);
}

std::string about(const MIRT_ERRREPORT_S* report) {
  return static_cast<const void*>(report) == &g_report ? "" : " another report";
}

}  // namespace

extern "C" {
MIRT_ERRREPORT_S* MIRT_CreateErrRptSub(MIRT_PRIMARY_KEY_S* key) {
  g_host.calls.push_back("create");
  g_host.key.assign(reinterpret_cast<const char*>(key), sizeof *key);
  return g_host.creates ? reinterpret_cast<MIRT_ERRREPORT_S*>(&g_report) : nullptr;
}

int32_t MIRT_AddParamToErrRptSub(const MIRT_ERRREPORT_S* report, char* name, char* value) {
  g_host.calls.push_back("add " + std::string(name) + "=" + value + about(report));
  return g_host.refused_parameter == name ? 5 : 0;
}

int32_t MIRT_GetPrimaryKeySub(const MIRT_ERRREPORT_S* report, MIRT_PRIMARY_KEY_S* key) {
  g_host.calls.push_back("key" + about(report));
  *key = MIRT_PRIMARY_KEY_S{1, 0xABCDEF01, "from the host", 2};
  return 7;  // which nobody looks at
}

int32_t MIRT_SendErrReportSub(const MIRT_ERRREPORT_S* report, const char* desc, va_list*) {
  g_host.calls.push_back("send" + about(report) + (desc != nullptr ? " with a text" : ""));
  return g_host.send_result;
}

void MIRT_DestoryErrRptSub(const MIRT_ERRREPORT_S* report) {
  g_host.calls.push_back("destroy" + about(report));
}

int32_t MIRT_SendErrorSub(uint16_t resType, uint32_t errCode, uint32_t line, const char* funcName,
                          uint8_t rptType, const char* desc, va_list* args) {
  char text[1024] = "";
  vsnprintf(text, sizeof text, desc, *args);
  snprintf(text + 512, 512, "error %u 0x%X %s %u %s", resType, errCode, funcName, rptType, desc);
  g_host.calls.push_back(text + 512);
  g_host.text = text;
  g_host.line = line;
  return g_host.send_result;
}

uint32_t MIRT_CommGetLocalNid() {
  return 0xABCD0011;
}

int64_t kelv_time_getlocaltime(int64_t*) {
  return 1707447845;  // 2024-02-09 03:04:05
}

MIRT_AGENT_HEART_INFO_S* MIRT_AgentShmInit(uint16_t module) {
  return g_host.attach(module);
}
}  // extern "C"

namespace {

class ProcessMonitor : public testing::Test {
 protected:
  void SetUp() override {
    g_host = Host{};
    g_log.clear();
    kelvlog_set_sink(note_log);
  }
  void TearDown() override { kelvlog_set_sink(nullptr); }
};

// Nothing of the result record changed but what these say; no reason: it is as it was.
void expect_result(const FI_RESULT_S& result, int value, const char* reason = "as it was",
                   unsigned int hangflowid = 99) {
  EXPECT_EQ(result.result, value);
  EXPECT_STREQ(result.reason, reason);
  EXPECT_EQ(result.pid, -5);
  EXPECT_EQ(result.hangflowid, hangflowid);
}

// "A=1 B= C=%s" as parameters.
std::vector<FI_PARAM_S> params(const std::string& text) {
  std::vector<FI_PARAM_S> parameters;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const size_t equals = word.find('=');
    parameters.push_back(parameter(word.substr(0, equals), word.substr(equals + 1)));
  }
  return parameters;
}

// Heartbeats.

class HeartbeatItem : public ProcessMonitor {
 protected:
  void SetUp() override {
    ProcessMonitor::SetUp();
    g_host.attach = [this](uint16_t module) {
      attached_modules_.push_back(module);
      return attachable_ ? &entry_ : nullptr;
    };
  }
  float check(unsigned int hangflowid = 99) {
    const float value = call_.run(ProcessHeartBeat);
    expect_result(call_.result, 0, "as it was", hangflowid);
    EXPECT_EQ(call_.context.steppointer, 4321);
    return value;
  }
  unsigned long long last_heartbeat() const {
    return call_.overlay<MIRT_AGENT_HEARTBEAT_CONTEXT_S>().uiLastHeartBeat;
  }

  Child process_{{"supervised"}};  // a cat under another command line: the kernel's name counts
  MIRT_AGENT_HEART_INFO_S entry_{static_cast<uint32_t>(process_.pid()), 12, 0, 31, 0};
  bool attachable_ = true;
  std::vector<uint16_t> attached_modules_;
  ItemCall call_{params("Other=x ProcessMoudleId=12abc ProcessName=cat")};
};

TEST_F(HeartbeatItem, StandsStillAndGoesOn) {
  EXPECT_EQ(check(31), 0.0F) << "the first call compares with 0";
  EXPECT_EQ(g_log, Calls{"424/3 process_monitor.cpp ProcessHeartBeat: Process cat(12abc) heartbeat "
                         "not refreshed, hangFlowId=31."});
  for (const uint64_t heartbeat : {1ULL, 5ULL, 4ULL, 0xFFFFFFFFFFFFFFFEULL, 0ULL}) {
    entry_.heartbeat = heartbeat;
    EXPECT_EQ(check(31), 1.0F) << "another value, not a higher one";
    EXPECT_EQ(last_heartbeat(), heartbeat);
  }
  EXPECT_EQ(g_log.size(), 1u);
  entry_.flowid = 0xFFFFFFFE;
  EXPECT_EQ(check(0xFFFFFFFE), 0.0F);
  EXPECT_EQ(check(0xFFFFFFFE), 0.0F);
  ASSERT_EQ(g_log.size(), 3u) << "every call logs";
  EXPECT_NE(g_log[2].find("hangFlowId=-2."), std::string::npos);
  entry_.flowid = 0;
  EXPECT_EQ(check(0), 0.0F) << "0 is a flow";
  entry_.flowid = 0xFFFFFFFF;
  EXPECT_EQ(check(0), 1.0F) << "stands still with nothing to do";
  EXPECT_EQ(g_log.size(), 4u);
  EXPECT_EQ(attached_modules_, std::vector<uint16_t>{12}) << "once";
}

TEST_F(HeartbeatItem, JudgesNobodyButARunningProcessOfThatName) {
  entry_.heartbeat = 3;
  EXPECT_EQ(check(), 1.0F);
  entry_.heartbeat = 0xFFFFFFFFFFFFFFFF;
  EXPECT_EQ(check(), 1.0F) << "paused";
  entry_.heartbeat = 8;
  entry_.processid = 0xFFFFFFFF;
  EXPECT_EQ(check(), 1.0F) << "not registered yet";
  entry_.processid = static_cast<uint32_t>(getpid());
  EXPECT_EQ(check(), 1.0F) << "another name";
  entry_.processid = static_cast<uint32_t>(process_.pid());
  process_.end();
  EXPECT_EQ(check(), 1.0F) << "gone";
  EXPECT_EQ(last_heartbeat(), 3u) << "as the last judgement left it";
  EXPECT_TRUE(g_log.empty());
}

TEST_F(HeartbeatItem, AttachesAgainUntilThereIsAnEntry) {
  attachable_ = false;
  EXPECT_EQ(check(), 1.0F);
  EXPECT_EQ(check(), 1.0F);
  EXPECT_EQ(call_.overlay<MIRT_AGENT_HEARTBEAT_CONTEXT_S>().pstMirtAgentHeartInfo_Shm, nullptr);
  attachable_ = true;
  EXPECT_EQ(check(31), 0.0F);
  EXPECT_EQ(call_.overlay<MIRT_AGENT_HEARTBEAT_CONTEXT_S>().pstMirtAgentHeartInfo_Shm, &entry_);
  EXPECT_EQ(check(31), 0.0F);
  EXPECT_EQ(attached_modules_.size(), 3u);
  for (int i = 16; i < FI_CONTEXT_BUFF_LEN; ++i) {
    ASSERT_EQ(call_.context.contextbuff[i], 0) << "beyond the overlay, at " << i;
  }
}

TEST_F(HeartbeatItem, ModuleIdIsReadAsAtoiDoes) {
  attachable_ = false;
  for (const char* text : {"0", "65535", " 9x", "none", "", "65541", "-1", "0x10"}) {
    strcpy(call_.argv[1].value, text);
    EXPECT_EQ(check(), 1.0F);
  }
  EXPECT_EQ(attached_modules_, (std::vector<uint16_t>{0, 65535, 9, 0, 0, 5, 65535, 0}));
}

TEST_F(HeartbeatItem, ArgumentsAreTestedInOrder) {
  std::vector<FI_PARAM_S> neither = params("processname=cat ProcessMoudleIds=1"),
                          name = params("ProcessName=cat ProcessMoudleIds=1");
  const struct {
    int argc;
    FI_PARAM_S* argv;
    FI_CONTEXT_S* context;
    const char* reason;
  } kRows[] = {
      {-1, neither.data(), nullptr, "Input parameter number error."},
      {0, nullptr, nullptr, "Input parameter number error."},
      {0, neither.data(), nullptr, "Input parameter context error."},
      {2, neither.data(), &call_.context, "Get para 'ProcessName' failed."},
      {0, name.data(), &call_.context, "Get para 'ProcessName' failed."},
      {2, name.data(), &call_.context, "Get para 'ProcessMoudleId' failed."},
  };
  for (const auto& row : kRows) {
    ItemCall call({});
    EXPECT_EQ(ProcessHeartBeat(row.argc, row.argv, row.context, &call.result), -1.0F);
    expect_result(call.result, -1, row.reason);
  }
  EXPECT_EQ(ProcessHeartBeat(2, name.data(), &call_.context, nullptr), -1.0F);
  EXPECT_TRUE(attached_modules_.empty());
}

TEST(ProcessName, IsTheKernelsShortName) {
  char before[16];
  prctl(PR_GET_NAME, before);
  prctl(PR_SET_NAME, "fifteen_letters_and_more");
  EXPECT_TRUE(CheckProcIdAndProcName(getpid(), "fifteen_letters"));
  EXPECT_FALSE(CheckProcIdAndProcName(getpid(), "fifteen_letters_and_more"));
  EXPECT_FALSE(CheckProcIdAndProcName(getpid(), "fifteen_letter"));
  EXPECT_FALSE(CheckProcIdAndProcName(getpid(), ""));
  EXPECT_FALSE(CheckProcIdAndProcName(getpid(), nullptr));
  EXPECT_FALSE(CheckProcIdAndProcName(-1, "fifteen_letters"));
  prctl(PR_SET_NAME, "two words");
  EXPECT_TRUE(CheckProcIdAndProcName(getpid(), "two")) << "the first word of it";
  prctl(PR_SET_NAME, before);
}

// Error reports.

using ReportItem = int (*)(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*);

int run(ReportItem item, ItemCall& call) {
  return item(static_cast<int>(call.argv.size()), call.argv.data(), nullptr, &call.result);
}

std::string key_bytes(uint16_t resType, uint32_t errCode, const std::string& resId) {
  std::string bytes(76, '\0');
  memcpy(&bytes[0], &resType, 2);
  memcpy(&bytes[4], &errCode, 4);
  resId.copy(&bytes[8], 63);
  bytes[72] = 1;
  return bytes;
}

struct KeyCase {
  const char* name;
  std::string parameters;
  std::string key;
  Calls added;
};
class ErrorReport : public ProcessMonitor, public testing::WithParamInterface<KeyCase> {};

TEST_P(ErrorReport, IsMadeSentAndDestroyed) {
  for (const int32_t send_result : {0, -3}) {
    g_host = Host{};
    g_host.send_result = send_result;
    g_log.clear();
    ItemCall call(params(GetParam().parameters));
    EXPECT_EQ(run(SendErrRpt, call), send_result == 0 ? 0 : -1);
    expect_result(call.result, send_result == 0 ? 0 : -1,
                  send_result == 0 ? "as it was" : "Send ErrRpt failed.");
    EXPECT_EQ(g_host.key, GetParam().key);
    Calls expected{"create"};
    for (const std::string& added : GetParam().added) expected.push_back("add " + added);
    expected.insert(expected.end(), {"key", "send", "destroy"});
    EXPECT_EQ(g_host.calls, expected);
    EXPECT_EQ(g_log, Calls{"424/5 process_monitor.cpp SendErrRpt: DiagCode(0xABCDEF01) resId from "
                           "the host."});
  }
}

const std::string kHundred(100, 'r');

INSTANTIATE_TEST_SUITE_P(
    Keys, ErrorReport,
    testing::Values(
        KeyCase{"CpuHigh",
                "ErrCode=0xF0000203 ProcessMoudleId=5 ResId=cpu0 UserData=17",
                key_bytes(0xF005, 0xF0000203, "cpu0"),
                {}},
        KeyCase{"MemHighInDecimalWithHighBitsAndLongResId",
                "ResId=" + kHundred + " ProcessMoudleId=0x1A123 ErrCode=4026532356",
                key_bytes(0xF123, 0xF0000204, kHundred),
                {}},
        KeyCase{"CodeAbove32BitsAndEmptyResId",
                "ErrCode=0x1F0000203 ProcessMoudleId= ResId=",
                key_bytes(0xF000, 0xF0000203, ""),
                {}},
        KeyCase{"HeartbeatWithoutUserData",
                "ProcessName=app ErrCode=0xF000020F ProcessMoudleId=65535",
                key_bytes(0xFFFF, 0xF000020F, "app"),
                {"ProcessName=app", "ProcessMoudleId=65535"}},
        KeyCase{"HeartbeatWithEverything",
                "UserData=17 RecoverCmd=reboot ErrCode=0xF000020F ProcessMoudleId=9 Extra= "
                "ProcessName=app ErrCode=again Extra=%s",
                key_bytes(0xF009, 0xF000020F, "app:17"),
                {"UserData=17", "ProcessMoudleId=9", "Extra=", "ProcessName=app", "Extra=%s"}},
        KeyCase{"HeartbeatWithLongName",
                "ErrCode=0xF000020F ProcessMoudleId=9 UserData= ProcessName=" + kHundred,
                key_bytes(0xF009, 0xF000020F, kHundred),
                {"ProcessMoudleId=9", "UserData=", "ProcessName=" + kHundred}}),
    [](const auto& row) { return std::string(row.param.name); });

using ErrorReportFailure = ProcessMonitor;

TEST_F(ErrorReportFailure, MissingParametersReachNoHost) {
  const struct {
    const char* parameters;
    const char* reason;
  } kRows[] = {
      {"Other=1", "Get para 'ErrCode' failed."},
      {"errcode=0xF0000203 ProcessMoudleId=5", "Get para 'ErrCode' failed."},
      {"ErrCode=0xFFFFFFFF ProcessMoudleId=5", "Get para 'ErrCode' failed."},
      {"ErrCode=none ProcessMoudleId=5", "ErrCode 0x0 is not supported."},
      {"ErrCode=0xf000020e ProcessMoudleId=5", "ErrCode 0xF000020E is not supported."},
      {"ErrCode=0xF0000203", "Get para 'ProcessMoudleId' failed."},
      {"ErrCode=0xF0000204 ProcessMoudleId=5", "Get para 'ResId' failed."},
      {"ErrCode=0xF000020F", "Get para 'ProcessName' failed."},
      {"ErrCode=0xF000020F ProcessMoudleId=5", "Get para 'ProcessName' failed."},
      {"ErrCode=0xF000020F ProcessName=a", "Get para 'ProcessMoudleId' failed."},
  };
  for (const auto& row : kRows) {
    ItemCall call(params(row.parameters));
    EXPECT_EQ(run(SendErrRpt, call), -1);
    expect_result(call.result, -1, row.reason);
  }
  for (const ReportItem item : {SendErrRpt, SendErrRptExtend}) {
    FI_PARAM_S code = parameter("ErrCode", "0xF0000203");
    ItemCall call({});
    EXPECT_EQ(item(1, &code, &call.context, nullptr), -1);
    EXPECT_EQ(item(-1, &code, &call.context, &call.result), -1);
    expect_result(call.result, -1, "Input parameter number error.");
    EXPECT_EQ(item(1, nullptr, &call.context, &call.result), -1);
    EXPECT_EQ(item(0, &code, &call.context, &call.result), -1);
    expect_result(call.result, -1, "Get para 'ErrCode' failed.");
  }
  EXPECT_EQ(g_host.calls, Calls{});
  EXPECT_EQ(g_log, Calls{});
}

TEST_F(ErrorReportFailure, ReportThatCannotBeMadeIsNotDestroyed) {
  for (const char* code : {"0xF0000203", "0xF0000204", "0xF000020F"}) {
    g_host = Host{};
    g_host.creates = false;
    ItemCall call(
        params("ProcessMoudleId=5 ResId=cpu0 ProcessName=app ErrCode=" + std::string(code)));
    EXPECT_EQ(run(SendErrRpt, call), -1);
    expect_result(call.result, -1, "Create ErrRpt failed.");
    EXPECT_EQ(g_host.calls, Calls{"create"});
  }
}

TEST_F(ErrorReportFailure, RefusedParameterEndsTheReport) {
  const std::string longest(399, 'v'), name(99, 'n');
  for (const std::string& refused : {std::string("Second"), name}) {
    g_host = Host{};
    g_host.refused_parameter = refused;
    ItemCall call(params("ErrCode=0xF000020F ProcessMoudleId=5 ProcessName=app " + refused + "=" +
                         longest + " Third=3"));
    EXPECT_EQ(run(SendErrRpt, call), -1);
    expect_result(call.result, -1, ("Add param " + refused + "=" + longest + " fail.").c_str());
    EXPECT_EQ(g_host.calls, (Calls{"create", "add ProcessMoudleId=5", "add ProcessName=app",
                                   "add " + refused + "=" + longest, "destroy"}));
  }
}

// Errors without a report.

class ErrorText : public ProcessMonitor {
 protected:
  std::string text_of(const std::vector<FI_PARAM_S>& parameters) {
    g_host.calls.clear();
    ItemCall call(parameters);
    EXPECT_EQ(run(SendErrRptExtend, call), 0);
    expect_result(call.result, 0);
    EXPECT_EQ(g_host.calls, Calls{"error 424 0xF0000300 SendErrRptExtend 1 %s"});
    EXPECT_GT(g_host.line, 0u);
    return g_host.text;
  }
  const FI_PARAM_S code_ = parameter("ErrCode", "0xF0000300");
};

TEST_F(ErrorText, IsMadeOfTheValuesBehindTheFirst) {
  const struct {
    const char *parameters, *text;
  } kRows[] = {
      {"ErrCode=0xF0000300", ""},
      {"ErrCode=0xF0000300 x=3 nodeId= diagnoseTime=", "3,17,2024-2-9 03:04:05"},
      {"ErrCode=0xF0000300 nodeId=n diagnoseTime=d UserData=skipped x= y=%n", "n,d,%n"},
      {"x=never ErrCode=0xF0000300 y=z", "0xF0000300,z"},
  };
  for (const auto& row : kRows) EXPECT_EQ(text_of(params(row.parameters)), row.text);
}

TEST_F(ErrorText, FailedSendIsAFailure) {
  g_host.send_result = 1;
  ItemCall call({code_});
  EXPECT_EQ(run(SendErrRptExtend, call), -1);
  expect_result(call.result, -1, "Send ErrRpt failed.");
  EXPECT_EQ(g_host.calls.size(), 1u);
}

// What the text has to be, said another way: everything joined, and the joint cut at 127.
std::string model_text(const std::vector<FI_PARAM_S>& parameters) {
  std::string text;
  for (size_t i = 1; i < parameters.size(); ++i) {
    const std::string name = parameters[i].name, value = parameters[i].value;
    if (name == "UserData") continue;
    if (!value.empty()) text += value + ",";
    if (value.empty() && name == "nodeId") text += "17,";
    if (value.empty() && name == "diagnoseTime") text += "2024-2-9 03:04:05,";
  }
  text = text.substr(0, 127);
  if (!text.empty()) text.pop_back();
  return text;
}

TEST_F(ErrorText, IsNeverMoreThanItsBuffer) {
  std::mt19937 random(20240209);
  const auto up_to = [&random](size_t most) {
    return std::uniform_int_distribution<size_t>(0, most)(random);
  };
  const char* const kNames[] = {"UserData", "nodeId", "diagnoseTime", "x", "ErrCode"};
  size_t longest = 0;
  for (int round = 0; round < 3000 && !HasFailure(); ++round) {
    std::vector<FI_PARAM_S> parameters{code_};
    const size_t most = up_to(2) == 0 ? 399 : 12;  // most lists end near the buffer's end
    for (size_t left = up_to(30); left > 0; --left) {
      std::string value(up_to(1) * up_to(most), '\0');
      for (char& c : value) c = "ab%s, "[up_to(5)];
      parameters.push_back(parameter(kNames[up_to(4)], value));
    }
    const std::string text = text_of(parameters);
    EXPECT_EQ(text, model_text(parameters));
    longest = std::max(longest, text.size());
  }
  EXPECT_EQ(longest, 126u);
}

}  // namespace
