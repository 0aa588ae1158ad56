/* A host that receives error reports and decides whether the data plane may be recovered. It calls
 * SendErrRpt once and RebootAppData once, so that both handlers run.
 */
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include "mirt_host.h"
#include "mirt_items.h"

/* Runs on the thread of the item that sends. The report is valid only during the call: copy what
 * you need. */
static int32_t take(const MIRT_HOST_REPORT_S* report, void* user) {
  printf("error 0x%" PRIX32 " of resource type 0x%X, id '%s'", report->key.errCode,
         (unsigned int)report->key.resType, report->key.resId);
  for (uint32_t i = 0; i < report->paramCount; ++i) {
    printf(", %s=%s", report->params[i].name, report->params[i].value);
  }
  printf("\n");
  ++*(int*)user;
  return 0; /* any other value makes SendErrRpt fail */
}

/* The answer is one byte; 1 allows. Returns -1 for any other request. */
static int32_t decide(const MIRT_COMM_INFO_S* info, const void* payload, void* reply,
                      uint32_t* replyLen, void* user) {
  (void)payload;
  if (info->msgOPCode != MIRT_OP_EXECUT_FILTER_ERRRPT) return -1;
  *(unsigned char*)reply = 0;
  *replyLen = 1;
  ++*(int*)user;
  return 0;
}

int main(void) {
  int reports = 0, questions = 0;
  mirt_host_set_report_handler(take, &reports);
  if (mirt_host_set_request_handler(PID_CTRL_MIRTKERNELAGENT, decide, &questions) != 0) return 1;

  FI_PARAM_S lost[] = {{"ErrCode", "0xF000020F"},
                       {"ProcessMoudleId", "17"},
                       {"ProcessName", "app_data"},
                       {"UserData", "31"}};
  FI_RESULT_S result;
  memset(&result, 0, sizeof result);
  if (SendErrRpt(sizeof lost / sizeof *lost, lost, NULL, &result) != 0) {
    fprintf(stderr, "take-reports: %s\n", result.reason);
    return 1;
  }
  /* decide() refuses, so nothing is started and no signal is sent. */
  const int recovered = RebootAppData(0, NULL, NULL, &result);
  printf("recovery: %s\n", recovered == -1 ? "refused" : "allowed");

  mirt_host_set_request_handler(PID_CTRL_MIRTKERNELAGENT, NULL, NULL);
  mirt_host_set_report_handler(NULL, NULL);
  return reports == 1 && questions == 1 && recovered == -1 ? 0 : 1;
}
