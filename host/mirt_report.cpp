// Builds reports and errors and passes them to the embedding program.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "kelv_log.h"
#include "mirt_host.h"

// The parameters form a linked list in the order of attachment. Each list node and its two texts
// share one block: one allocation for each parameter, and one free().
struct tagMIRT_ERRREPORT_S {
  struct Param {
    Param* next;
    MIRT_HOST_PARAM_S texts;
  };

  MIRT_PRIMARY_KEY_S key;
  Param* first;
  Param* last;
  uint32_t count;
};

namespace {

using Param = tagMIRT_ERRREPORT_S::Param;

struct Handler {
  mirt_host_report_handler_t call = nullptr;
  void* user = nullptr;
};

std::mutex g_handler_mutex;
Handler g_handler;

Handler current_handler() {
  const std::lock_guard<std::mutex> lock(g_handler_mutex);
  return g_handler;
}

int32_t log_report(const MIRT_HOST_REPORT_S& report) {
  KELV_LOG(PID_CTRL_MIRTCORE, DBG_LOG_EVENT,
           "Error report 0x%X, resource type 0x%X, id '%.64s', %u parameters: %s",
           report.key.errCode, report.key.resType, report.key.resId, report.paramCount,
           report.description);
  return 0;
}

int32_t deliver(const MIRT_HOST_REPORT_S& report) {
  const Handler handler = current_handler();
  return handler.call != nullptr ? handler.call(&report, handler.user) : log_report(report);
}

// A report's description, truncated to fit.
class Description {
 public:
  Description(const char* desc, va_list* args) {
    text_[0] = '\0';
    if (desc != nullptr && args != nullptr) vsnprintf(text_, sizeof text_, desc, *args);
  }
  const char* text() const { return text_; }

 private:
  char text_[1024];
};

// Returns one block with the record followed by its two texts; null when memory is short.
Param* new_param(const char* name, const char* value) {
  const size_t name_size = strlen(name) + 1, value_size = strlen(value) + 1;
  char* const block = static_cast<char*>(malloc(sizeof(Param) + name_size + value_size));
  if (block == nullptr) return nullptr;
  char* const texts = block + sizeof(Param);
  memcpy(texts, name, name_size);
  memcpy(texts + name_size, value, value_size);
  return new (block) Param{nullptr, {texts, texts + name_size}};
}

}  // namespace

void mirt_host_set_report_handler(mirt_host_report_handler_t handler, void* user) {
  const std::lock_guard<std::mutex> lock(g_handler_mutex);
  g_handler = Handler{handler, user};
}

MIRT_ERRREPORT_S* MIRT_CreateErrRptSub(MIRT_PRIMARY_KEY_S* key) {
  if (key == nullptr) return nullptr;
  return new (std::nothrow) MIRT_ERRREPORT_S{*key, nullptr, nullptr, 0};
}

int32_t MIRT_AddParamToErrRptSub(const MIRT_ERRREPORT_S* errRpt, char* name, char* value) {
  if (errRpt == nullptr || name == nullptr || value == nullptr) return -1;
  Param* const param = new_param(name, value);
  if (param == nullptr) return -1;
  // The report was created without const, so the cast is safe; const is a promise of the callers
  // only.
  auto* const report = const_cast<MIRT_ERRREPORT_S*>(errRpt);
  (report->last != nullptr ? report->last->next : report->first) = param;
  report->last = param;
  ++report->count;
  return 0;
}

int32_t MIRT_GetPrimaryKeySub(const MIRT_ERRREPORT_S* errRpt, MIRT_PRIMARY_KEY_S* key) {
  if (errRpt == nullptr || key == nullptr) return -1;
  *key = errRpt->key;
  return 0;
}

int32_t MIRT_SendErrReportSub(const MIRT_ERRREPORT_S* errRpt, const char* desc, va_list* args) {
  if (errRpt == nullptr) return -1;
  auto* const params = static_cast<MIRT_HOST_PARAM_S*>(
      malloc(std::max<size_t>(errRpt->count, 1) * sizeof(MIRT_HOST_PARAM_S)));
  if (params == nullptr) return -1;
  uint32_t count = 0;
  for (const Param* param = errRpt->first; param != nullptr; param = param->next) {
    params[count++] = param->texts;
  }
  const Description description(desc, args);
  const int32_t sent =
      deliver(MIRT_HOST_REPORT_S{errRpt->key, params, count, description.text(), nullptr, 0});
  free(params);
  return sent;
}

void MIRT_DestoryErrRptSub(const MIRT_ERRREPORT_S* errRpt) {
  if (errRpt == nullptr) return;
  for (Param* param = errRpt->first; param != nullptr;) {
    Param* const next = param->next;
    free(param);
    param = next;
  }
  delete errRpt;
}

int32_t MIRT_SendErrorSub(uint16_t resType, uint32_t errCode, uint32_t line, const char* funcName,
                          uint8_t rptType, const char* desc, va_list* args) {
  MIRT_PRIMARY_KEY_S key{};
  key.resType = resType;
  key.errCode = errCode;
  key.rptType = rptType;
  const Description description(desc, args);
  return deliver(MIRT_HOST_REPORT_S{key, nullptr, 0, description.text(),
                                    funcName != nullptr ? funcName : "", line});
}
