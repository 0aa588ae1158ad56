// Heartbeats and error reports.
#include <cinttypes>
#include <cstdlib>
#include <cstring>

#include "common_plugin.h"
#include "context_overlay.h"
#include "item_result.h"
#include "kelv_log.h"
#include "kelv_string.h"
#include "mirt_agent_heart.h"
#include "mirt_inner.h"
#include "mirt_items.h"
#include "mirt_timeutil.h"

namespace {

constexpr unsigned int MY_PID = PID_CTRL_MIRTMONITOR;

constexpr uint32_t kErrSysCPUHigh = 0xF0000203;
constexpr uint32_t kErrSysMemHigh = 0xF0000204;
constexpr uint32_t kErrHeartbeatLast = 0xF000020F;
constexpr uint32_t kNoErrCode = 0xFFFFFFFF;

constexpr uint8_t kReportType = 1;
constexpr uint16_t kResourceTypeMark = 0xF000;
constexpr size_t kNameSize = 32;
constexpr size_t kUserDataSize = 128;

// The checks that these items share. Each item then finds its parameters by name.
bool check_input(int argc, const FI_PARAM_S* argv, FI_RESULT_S* result) {
  if (result == nullptr) return false;
  if (argc >= 0 && argv != nullptr) return true;
  set_failure(*result, "Input parameter number error.");
  return false;
}

// Returns the value of a required parameter; if it is missing, stores the failure and returns null.
char* required_value(int argc, FI_PARAM_S* argv, const char* name, FI_RESULT_S& result) {
  char* const value = GetParaValue(argc, argv, name);
  if (value == nullptr) set_failure(result, "Get para '%s' failed.", name);
  return value;
}

}  // namespace

char* GetParaValue(int argc, FI_PARAM_S* argv, const char* name) {
  for (int i = 0; i < argc; ++i) {
    if (strcmp(argv[i].name, name) == 0) return argv[i].value;
  }
  return nullptr;
}

// Heartbeats.

bool CheckProcIdAndProcName(pid_t pid, const char* procName) {
  if (procName == nullptr) return false;
  char name[kNameSize] = "";
  return MIRT_Linux_Plugin::get_procname_bypid(pid, name, sizeof name) == 0 &&
         strcmp(name, procName) == 0;
}

namespace {

// The supervised process writes while we read. One atomic load per field, so that no value is torn
// and all checks of a call use the same heartbeat. Acquire order: no other field is older than the
// process id.
template <typename Field>
Field load_shared(const Field& field) {
  return __atomic_load_n(&field, __ATOMIC_ACQUIRE);
}

}  // namespace

// True if the heartbeat changed since the last call or must not be checked. Otherwise false, with
// the flow id in *hangFlowId.
bool CheckHeartbeatFresh(const char* pszProcessName, const char* pszMid, FI_CONTEXT_S* context,
                         uint32_t* hangFlowId) {
  ContextOverlay<MIRT_AGENT_HEARTBEAT_CONTEXT_S> overlay(*context);
  if (overlay->pstMirtAgentHeartInfo_Shm == nullptr) {
    overlay->pstMirtAgentHeartInfo_Shm = MIRT_AgentShmInit(static_cast<uint16_t>(atoi(pszMid)));
  }
  const MIRT_AGENT_HEART_INFO_S* const entry = overlay->pstMirtAgentHeartInfo_Shm;
  if (entry == nullptr) return true;  // the next call tries again
  if (!CheckProcIdAndProcName(static_cast<pid_t>(load_shared(entry->processid)), pszProcessName)) {
    return true;
  }
  const uint64_t heartbeat = load_shared(entry->heartbeat);
  if (heartbeat == MIRT_AGENT_HEART_PAUSED) return true;
  if (heartbeat != overlay->uiLastHeartBeat) {
    overlay->uiLastHeartBeat = heartbeat;
    return true;
  }
  *hangFlowId = load_shared(entry->flowid);
  return false;
}

float ProcessHeartBeat(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
  if (!check_input(argc, argv, result)) return -1.0F;
  if (context == nullptr) {
    set_failure(*result, "Input parameter context error.");
    return -1.0F;
  }
  const char* const name = required_value(argc, argv, "ProcessName", *result);
  if (name == nullptr) return -1.0F;
  const char* const module_id = required_value(argc, argv, "ProcessMoudleId", *result);
  if (module_id == nullptr) return -1.0F;

  uint32_t hangFlowId = MIRT_AGENT_HEART_NO_FLOW;
  const bool fresh = CheckHeartbeatFresh(name, module_id, context, &hangFlowId);
  const bool hangs = !fresh && hangFlowId != MIRT_AGENT_HEART_NO_FLOW;
  if (hangs) {
    result->hangflowid = hangFlowId;
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "Process %s(%s) heartbeat not refreshed, hangFlowId=%d.", name,
             module_id, static_cast<int>(hangFlowId));
  }
  result->result = 0;
  return hangs ? 0.0F : 1.0F;
}

// Error reports.

uint32_t GetErrCodeFromArgv(int argc, FI_PARAM_S* argv) {
  const char* const value = GetParaValue(argc, argv, "ErrCode");
  return value != nullptr ? static_cast<uint32_t>(kelv_str_tou64(value)) : kNoErrCode;
}

namespace {

// Returns the error code that both items require; if it is missing, stores the failure and returns
// kNoErrCode.
uint32_t required_err_code(int argc, FI_PARAM_S* argv, FI_RESULT_S& result) {
  const uint32_t code = GetErrCodeFromArgv(argc, argv);
  if (code == kNoErrCode) set_failure(result, "Get para 'ErrCode' failed.");
  return code;
}

// Returns a report's key without resId; the caller sets resId.
MIRT_PRIMARY_KEY_S make_key(const char* module_id, uint32_t uErrCode) {
  MIRT_PRIMARY_KEY_S key;
  memset_s(&key, sizeof key, 0, sizeof key);
  key.resType = static_cast<uint16_t>(kelv_str_tou64(module_id)) | kResourceTypeMark;
  key.errCode = uErrCode;
  key.rptType = kReportType;
  return key;
}

template <typename... Values>
void set_res_id(MIRT_PRIMARY_KEY_S& key, const char* format, Values... values) {
  snprintf_s(key.resId, sizeof key.resId, sizeof key.resId - 1, format, values...);
}

MIRT_ERRREPORT_S* create_report(MIRT_PRIMARY_KEY_S& key, FI_RESULT_S& result) {
  MIRT_ERRREPORT_S* const report = MIRT_CreateErrRptInner(&key);
  if (report == nullptr) set_failure(result, "Create ErrRpt failed.");
  return report;
}

// Ends both items after the host library has answered.
int finish_send(int32_t sent, FI_RESULT_S& result) {
  if (sent != 0) {
    set_failure(result, "Send ErrRpt failed.");
    return -1;
  }
  result.result = 0;
  return 0;
}

}  // namespace

MIRT_ERRREPORT_S* CreateErrRptSysCPUHigh(int argc, FI_PARAM_S* argv, uint32_t uErrCode,
                                         FI_RESULT_S* result) {
  const char* const module_id = required_value(argc, argv, "ProcessMoudleId", *result);
  if (module_id == nullptr) return nullptr;
  const char* const resource_id = required_value(argc, argv, "ResId", *result);
  if (resource_id == nullptr) return nullptr;
  MIRT_PRIMARY_KEY_S key = make_key(module_id, uErrCode);
  set_res_id(key, "%s", resource_id);
  return create_report(key, *result);
}

MIRT_ERRREPORT_S* CreateErrRptSysMemHigh(int argc, FI_PARAM_S* argv, uint32_t uErrCode,
                                         FI_RESULT_S* result) {
  return CreateErrRptSysCPUHigh(argc, argv, uErrCode, result);
}

int32_t GetHeartbeatLastParaFormArg(int argc, FI_PARAM_S* argv, char** strProcName,
                                    char** strProcModId, char** strhangFlowId,
                                    FI_RESULT_S* result) {
  *strProcName = required_value(argc, argv, "ProcessName", *result);
  if (*strProcName == nullptr) return 1;
  *strProcModId = required_value(argc, argv, "ProcessMoudleId", *result);
  if (*strProcModId == nullptr) return 1;
  *strhangFlowId = GetParaValue(argc, argv, "UserData");
  return 0;
}

int32_t AddParaToErrRpt(int argc, FI_PARAM_S* argv, MIRT_ERRREPORT_S* errRpt, FI_RESULT_S* result) {
  for (int i = 0; i < argc; ++i) {
    char* const name = argv[i].name;
    if (strcmp(name, "ErrCode") == 0 || strcmp(name, "RecoverCmd") == 0) continue;
    if (MIRT_AddParamToErrRptInner(errRpt, name, argv[i].value) != 0) {
      set_failure(*result, "Add param %s=%s fail.", name, argv[i].value);
      return 1;
    }
  }
  return 0;
}

MIRT_ERRREPORT_S* CreateErrRptheartbeatLast(int argc, FI_PARAM_S* argv, uint32_t uErrCode,
                                            FI_RESULT_S* result) {
  char *name = nullptr, *module_id = nullptr, *hang_flow_id = nullptr;
  if (GetHeartbeatLastParaFormArg(argc, argv, &name, &module_id, &hang_flow_id, result) != 0) {
    return nullptr;
  }
  MIRT_PRIMARY_KEY_S key = make_key(module_id, uErrCode);
  if (hang_flow_id != nullptr) {
    set_res_id(key, "%s:%s", name, hang_flow_id);
  } else {
    set_res_id(key, "%s", name);
  }
  MIRT_ERRREPORT_S* const report = create_report(key, *result);
  if (report == nullptr) return nullptr;
  if (AddParaToErrRpt(argc, argv, report, result) != 0) {
    MIRT_DestoryErrRptInner(report);
    return nullptr;
  }
  return report;
}

namespace {

using Builder = MIRT_ERRREPORT_S* (*)(int argc, FI_PARAM_S* argv, uint32_t uErrCode,
                                      FI_RESULT_S* result);

// Returns the function that builds a report with that code; null for an unsupported code.
Builder builder_of(uint32_t code) {
  switch (code) {
    case kErrSysCPUHigh:
      return CreateErrRptSysCPUHigh;
    case kErrSysMemHigh:
      return CreateErrRptSysMemHigh;
    case kErrHeartbeatLast:
      return CreateErrRptheartbeatLast;
    default:
      return nullptr;
  }
}

}  // namespace

int SendErrRpt(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* /*context*/, FI_RESULT_S* result) {
  if (!check_input(argc, argv, result)) return -1;
  const uint32_t code = required_err_code(argc, argv, *result);
  if (code == kNoErrCode) return -1;
  const Builder build = builder_of(code);
  if (build == nullptr) {
    set_failure(*result, "ErrCode 0x%X is not supported.", code);
    return -1;
  }
  MIRT_ERRREPORT_S* const report = build(argc, argv, code, result);
  if (report == nullptr) return -1;
  MIRT_PRIMARY_KEY_S key{};  // zero, in case the host library does not fill it before it is logged
  MIRT_GetPrimaryKeyInner(report, &key);
  key.resId[sizeof key.resId - 1] = '\0';
  KELV_LOG(MY_PID, DBG_LOG_EVENT, "DiagCode(0x%X) resId %s.", key.errCode, key.resId);
  const int32_t sent = MIRT_SendErrReportInner(report, nullptr);
  MIRT_DestoryErrRptInner(report);
  return finish_send(sent, *result);
}

namespace {

// A text built by appending; truncated to fit.
class UserDataText {
 public:
  UserDataText() { memset_s(text_, sizeof text_, 0, sizeof text_); }

  bool is_full() const { return strlen(text_) > sizeof text_ - 2; }

  template <typename... Values>
  void append(const char* format, Values... values) {
    const size_t usedsize = strlen(text_);
    snprintf_s(text_ + usedsize, sizeof text_ - usedsize, sizeof text_ - 1 - usedsize, format,
               values...);
  }

  void append_now() {
    TIME_S now;
    MIRT_GmTime(&now);
    append("%d-%d-%d %02d:%02d:%02d,", now.iYear, now.iMonth, now.iMDay, now.iHour, now.iMinute,
           now.iSecond);
  }

  // Removes the last character: the comma after the last piece, or the last character that still
  // fitted.
  void drop_last() {
    const size_t usedsize = strlen(text_);
    if (usedsize > 0) text_[usedsize - 1] = '\0';
  }

  const char* get() const { return text_; }

 private:
  char text_[kUserDataSize];
};

// Appends one parameter. An empty nodeId or diagnoseTime means the local node id or time.
void append_parameter(UserDataText& text, const FI_PARAM_S& parameter) {
  if (parameter.value[0] != '\0') {
    text.append("%s,", parameter.value);
  } else if (strcmp(parameter.name, "nodeId") == 0) {
    text.append("%u,", MIRT_CommGetLocalNid() & 0xFFFFU);
  } else if (strcmp(parameter.name, "diagnoseTime") == 0) {
    text.append_now();
  }
}

}  // namespace

int SendErrRptExtend(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* /*context*/, FI_RESULT_S* result) {
  UserDataText text;
  if (!check_input(argc, argv, result)) return -1;
  const uint32_t code = required_err_code(argc, argv, *result);
  if (code == kNoErrCode) return -1;
  // The first parameter is the error code by convention and is never part of the text.
  for (int i = 1; i < argc && !text.is_full(); ++i) {
    if (strcmp(argv[i].name, "UserData") != 0) append_parameter(text, argv[i]);
  }
  text.drop_last();
  const int32_t sent =
      MIRT_SendErrorInner(static_cast<uint16_t>(MY_PID), code, static_cast<uint32_t>(__LINE__),
                          __func__, kReportType, "%s", text.get());
  return finish_send(sent, *result);
}
