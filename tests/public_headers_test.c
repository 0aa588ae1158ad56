/* Checks that the public headers for plain C compile as C, and that their functions have C linkage.
 */
#include <string.h>

#include "kelv_api.h"
#include "kelv_cmd.h"
#include "kelv_jiffies.h"
#include "kelv_list.h"
#include "kelv_log.h"
#include "kelv_process.h"
#include "kelv_securec.h"
#include "kelv_string.h"
#include "kelv_time.h"
#include "mirt_comm.h"
#include "mirt_heartbeat_client.h"
#include "mirt_host.h"
#include "mirt_inner.h"
#include "mirt_interface.h"
#include "mirt_items.h"
#include "mirt_process.h"
#include "mirt_walk_group.h"

int main(void) {
  FI_RESULT_S result;
  memset(&result, 0, sizeof result);
  result.result = 7;
  if (GetSysMemory(0, NULL, NULL, &result) <= 0.0f || result.result != 0) return 1;

  char text[4];
  if (snprintf_s(text, sizeof text, sizeof text - 1, "%d", 12345) != -1) return 2;
  list_head head, node;
  kelv_list_init(&head);
  kelv_list_add_tail(&node, &head);
  if (head.next != &node || time_after_eq(kelv_get_jiffies(), 0) != 1) return 3;
  kelv_list_del(&node);
  if (head.next != &head || (uintptr_t)node.prev != KELV_LIST_POISON_PREV) return 5;

  MIRT_PRIMARY_KEY_S key, same;
  memset(&key, 0, sizeof key);
  key.errCode = 7;
  MIRT_ERRREPORT_S* const report = MIRT_CreateErrRptInner(&key);
  if (!report || MIRT_GetPrimaryKeyInner(report, &same) != 0 || same.errCode != 7) return 6;
  MIRT_DestoryErrRptInner(report);
  return sizeof(MIRT_COMM_INFO_S) == 24 ? 0 : 4;
}
