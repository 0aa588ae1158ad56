// The heartbeat item with entries of the test, and the error reports with a host library that
// records its calls. The functions defined here replace those of the libraries.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdint>
#include <random>
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

// The behaviour and the recorded calls of the host library.
struct Host {
  bool creates = true;
  std::string refused_parameter;
  int32_t send_result = 0;
  MIRT_AGENT_HEART_INFO_S* entry = nullptr;  // the result of an attach

  std::string calls;  // each ends with a semicolon
};
Host g_host;
int g_report;       // represents a report; its content is never read
std::string g_log;  // the last record

std::string about(const MIRT_ERRREPORT_S* report) {
  return static_cast<const void*>(report) == &g_report ? "" : " another report";
}

}  // namespace

extern "C" {
MIRT_ERRREPORT_S* MIRT_CreateErrRptSub(MIRT_PRIMARY_KEY_S* key) {
  g_host.calls += "create " + std::string(reinterpret_cast<const char*>(key), sizeof *key) + ";";
  return g_host.creates ? reinterpret_cast<MIRT_ERRREPORT_S*>(&g_report) : nullptr;
}

int32_t MIRT_AddParamToErrRptSub(const MIRT_ERRREPORT_S* report, char* name, char* value) {
  g_host.calls += "add " + std::string(name) + "=" + value + about(report) + ";";
  return g_host.refused_parameter == name ? 5 : 0;
}

int32_t MIRT_GetPrimaryKeySub(const MIRT_ERRREPORT_S* report, MIRT_PRIMARY_KEY_S* key) {
  g_host.calls += "key" + about(report) + ";";
  *key = MIRT_PRIMARY_KEY_S{1, 0xABCDEF01, "from the host", 2};
  return 7;  // its callers ignore it
}

int32_t MIRT_SendErrReportSub(const MIRT_ERRREPORT_S* report, const char* desc, va_list*) {
  g_host.calls += "send" + about(report) + (desc != nullptr ? " with a text;" : ";");
  return g_host.send_result;
}

void MIRT_DestoryErrRptSub(const MIRT_ERRREPORT_S* report) {
  g_host.calls += "destroy" + about(report) + ";";
}

int32_t MIRT_SendErrorSub(uint16_t resType, uint32_t errCode, uint32_t, const char* funcName,
                          uint8_t rptType, const char* desc, va_list* args) {
  char text[1024];
  snprintf(text, sizeof text, "%u 0x%X %s %u %s;", resType, errCode, funcName, rptType, desc);
  g_host.calls += text;
  vsnprintf(text, sizeof text, desc, *args);
  g_host.calls += text;
  return g_host.send_result;
}

uint32_t MIRT_CommGetLocalNid() {
  return 0xABCD0011;
}

int64_t kelv_time_getlocaltime(int64_t*) {
  return 1707447845;  // 2024-02-09 03:04:05
}

MIRT_AGENT_HEART_INFO_S* MIRT_AgentShmInit(uint16_t module) {
  g_host.calls += "attach " + std::to_string(module) + ";";
  return g_host.entry;
}
}  // extern "C"

namespace {

class ProcessMonitor : public testing::Test {
 protected:
  void SetUp() override {
    g_host = Host{};
    g_log.clear();
    kelvlog_set_sink([](const KELV_LOG_RECORD_S* record) {
      g_log = std::to_string(record->level) + " " + record->function + ": " + record->text;
    });
  }
  void TearDown() override { kelvlog_set_sink(nullptr); }
};

// Runs the item and expects this reason; none: success. Nothing else of the result may change.
template <typename AnyItem>
void expect_outcome(AnyItem* item, const std::vector<FI_PARAM_S>& parameters,
                    const std::string& reason = "") {
  ItemCall call(parameters);
  const int value = reason.empty() ? 0 : -1;
  const int argc = static_cast<int>(call.argv.size());
  EXPECT_EQ(item(argc, call.argv.data(), &call.context, &call.result), value);
  EXPECT_EQ(call.result.result, value);
  EXPECT_EQ(call.result.reason, reason.empty() ? "as it was" : reason);
  EXPECT_EQ(call.result.pid, -5);
  EXPECT_EQ(call.result.hangflowid, 99u);
}

// Heartbeats.

TEST_F(ProcessMonitor, HeartbeatIsJudgedByItsEntry) {
  Child process{{"supervised"}};  // cat with another command line: the kernel's name counts
  const auto id = static_cast<uint32_t>(process.pid());
  ItemCall call(params("Other=x;ProcessMoudleId=12abc;ProcessName=cat"));
  for (int attempt = 0; attempt < 2; ++attempt) EXPECT_EQ(call.run(ProcessHeartBeat), 1.0F);
  MIRT_AGENT_HEART_INFO_S entry{};
  g_host.entry = &entry;
  const std::pair<MIRT_AGENT_HEART_INFO_S, float> kSteps[] = {
      {{id, 12, 0, 31, 0}, 0.0F},  // the first call compares with 0
      {{id, 12, ~1ULL, 31, 0}, 1.0F},
      {{id, 12, 5, 31, 0}, 1.0F},
      {{id, 12, 5, 0, 0}, 0.0F},
      {{id, 12, 5, ~0U, 0}, 1.0F},
      {{id, 12, ~0ULL, 7, 0}, 1.0F},                           // paused
      {{static_cast<uint32_t>(getpid()), 12, 5, 7, 0}, 1.0F},  // another name
      {{~0U, 12, 5, 7, 0}, 1.0F},                              // not registered yet
      {{id, 12, 5, 7, 0}, 0.0F},  // none of the rows above counted as a beat
  };
  for (const auto& [state, judged] : kSteps) {
    entry = state;
    EXPECT_EQ(call.run(ProcessHeartBeat), judged) << entry.heartbeat << ' ' << entry.flowid;
    EXPECT_EQ(g_log.empty(), judged == 1.0F);
    g_log.clear();
  }
  entry.flowid = ~1U;
  call.run(ProcessHeartBeat);
  EXPECT_EQ(g_log,
            "3 ProcessHeartBeat: Process cat(12abc) heartbeat not refreshed, hangFlowId=-2.");
  EXPECT_EQ(call.result.hangflowid, ~1U);
  EXPECT_FALSE(CheckProcIdAndProcName(process.pid(), "ca"));
  EXPECT_FALSE(CheckProcIdAndProcName(process.pid(), "catalogue"));
  EXPECT_FALSE(CheckProcIdAndProcName(process.pid(), nullptr));
  process.end();
  EXPECT_EQ(call.run(ProcessHeartBeat), 1.0F) << "gone";
  EXPECT_EQ(g_host.calls, "attach 12;attach 12;attach 12;") << "until there is an entry";
  EXPECT_EQ(call.result.result, 0);
}

TEST_F(ProcessMonitor, BadInputReachesNoHost) {
  const std::pair<const char*, const char*> kReports[] = {
      {"errcode=1;ProcessMoudleId=5", "Get para 'ErrCode' failed."},
      {"ErrCode=0xFFFFFFFF", "Get para 'ErrCode' failed."},
      {"ErrCode=none", "ErrCode 0x0 is not supported."},
      {"ErrCode=0xf000020e", "ErrCode 0xF000020E is not supported."},
      {"ErrCode=0xF0000203", "Get para 'ProcessMoudleId' failed."},
      {"ErrCode=0xF0000204;ProcessMoudleId=5", "Get para 'ResId' failed."},
      {"ErrCode=0xF000020F", "Get para 'ProcessName' failed."},
      {"ErrCode=0xF000020F;ProcessName=a", "Get para 'ProcessMoudleId' failed."},
  };
  for (const auto& [text, reason] : kReports) expect_outcome(SendErrRpt, params(text), reason);
  expect_outcome(SendErrRptExtend, params("x=1"), "Get para 'ErrCode' failed.");
  expect_outcome(ProcessHeartBeat, params("processname=a"), "Get para 'ProcessName' failed.");
  expect_outcome(ProcessHeartBeat, params("ProcessName=a"), "Get para 'ProcessMoudleId' failed.");
  ItemCall call(params("ErrCode=0xF0000203"));
  EXPECT_EQ(ProcessHeartBeat(1, call.argv.data(), nullptr, &call.result), -1.0F);
  EXPECT_STREQ(call.result.reason, "Input parameter context error.");
  for (const auto item : {SendErrRpt, SendErrRptExtend}) {
    EXPECT_EQ(item(1, call.argv.data(), &call.context, nullptr), -1);
    EXPECT_EQ(item(-1, call.argv.data(), &call.context, &call.result), -1);
    EXPECT_STREQ(call.result.reason, "Input parameter number error.");
  }
  EXPECT_EQ(g_host.calls, "");
}

// Error reports.

std::string key_bytes(uint16_t resType, uint32_t errCode, const std::string& resId) {
  std::string bytes(76, '\0');
  memcpy(&bytes[0], &resType, 2);
  memcpy(&bytes[4], &errCode, 4);
  resId.copy(&bytes[8], 63);
  bytes[72] = 1;
  return bytes;
}

TEST_F(ProcessMonitor, ReportIsMadeSentAndDestroyed) {
  const std::string kHundred(100, 'r');
  const std::array<std::string, 3> kRows[] = {
      // parameters, key and added parameters
      {"ErrCode=0xF0000203;ProcessMoudleId=5;ResId=cpu0;UserData=17",
       key_bytes(0xF005, 0xF0000203, "cpu0"), ""},
      {"ResId=" + kHundred + ";ProcessMoudleId=0x1A123;ErrCode=8321499652",
       key_bytes(0xF123, 0xF0000204, kHundred), ""},
      {"UserData=17;RecoverCmd=reboot;ErrCode=0xF000020F;ProcessMoudleId=9;ProcessName=app;"
       "Extra=%s",
       key_bytes(0xF009, 0xF000020F, "app:17"),
       "add UserData=17;add ProcessMoudleId=9;add ProcessName=app;add Extra=%s;"},
      {"ErrCode=0xF000020F;ProcessMoudleId=9;UserData=;ProcessName=" + kHundred,
       key_bytes(0xF009, 0xF000020F, kHundred),
       "add ProcessMoudleId=9;add UserData=;add ProcessName=" + kHundred + ";"},
  };
  for (const auto& [parameters, key, added] : kRows) {
    SetUp();
    expect_outcome(SendErrRpt, params(parameters));
    EXPECT_EQ(g_host.calls, std::string("create ").append(key).append(";").append(added).append(
                                "key;send;destroy;"));
    EXPECT_EQ(g_log, "5 SendErrRpt: DiagCode(0xABCDEF01) resId from the host.");
  }
  g_host.send_result = -3;
  g_host.calls.clear();
  expect_outcome(SendErrRpt, params(kRows[0][0]), "Send ErrRpt failed.");
  EXPECT_EQ(g_host.calls, "create " + kRows[0][1] + ";key;send;destroy;");
}

TEST_F(ProcessMonitor, ReportThatCannotBeMadeOrFilledIsNotSent) {
  const std::string refused(99, 'n'), longest = refused + "=" + std::string(399, 'v');
  const auto parameters =
      params("ErrCode=0xF000020F;ProcessMoudleId=5;ProcessName=a;" + longest + ";Third=3");
  g_host.refused_parameter = refused;
  expect_outcome(SendErrRpt, parameters, "Add param " + longest + " fail.");
  const std::string created = "create " + key_bytes(0xF005, 0xF000020F, "a") + ";";
  EXPECT_EQ(g_host.calls,
            created + "add ProcessMoudleId=5;add ProcessName=a;add " + longest + ";destroy;");
  SetUp();
  g_host.creates = false;
  expect_outcome(SendErrRpt, parameters, "Create ErrRpt failed.");
  EXPECT_EQ(g_host.calls, created);
}

// Errors without a report.

// The expected text, computed in another way: all values joined, then truncated to 127 bytes.
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

TEST_F(ProcessMonitor, ErrorTextIsMadeOfTheValuesBehindTheFirstAndCut) {
  std::mt19937 random(20240209);
  const auto up_to = [&random](size_t most) {
    return std::uniform_int_distribution<size_t>(0, most)(random);
  };
  const char* const kNames[] = {"UserData", "nodeId", "diagnoseTime", "x", "ErrCode"};
  size_t longest = 0;
  for (int round = 0; round < 3000 && !HasFailure(); ++round) {
    std::vector<FI_PARAM_S> parameters(up_to(1), parameter("x", "never"));
    parameters.push_back(parameter("ErrCode", "0xF0000300"));
    const size_t most = up_to(2) == 0 ? 399 : 12;  // most lists end near the buffer's end
    for (size_t left = up_to(30); left > 0; --left) {
      std::string value(up_to(1) * up_to(most), '\0');
      for (char& c : value) c = "ab%s, "[up_to(5)];
      parameters.push_back(parameter(kNames[up_to(4)], value));
    }
    SetUp();
    g_host.send_result = static_cast<int32_t>(up_to(1));
    expect_outcome(SendErrRptExtend, parameters,
                   g_host.send_result == 0 ? "" : "Send ErrRpt failed.");
    const std::string expected = model_text(parameters);
    EXPECT_EQ(g_host.calls, "424 0xF0000300 SendErrRptExtend 1 %s;" + expected);
    longest = std::max(longest, expected.size());
  }
  EXPECT_EQ(longest, 126u);
}

}  // namespace
