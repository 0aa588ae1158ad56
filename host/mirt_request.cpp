// Requests to framework modules: the embedding program answers them during the requester's call.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "mirt_host.h"

namespace {

struct Handler {
  uint16_t module = 0;
  mirt_host_request_handler_t call = nullptr;
  void* user = nullptr;
};

// The requester must see a refused request as a failure, not as an answer.
constexpr int32_t kNobodyAnswers = -1;

std::mutex g_handlers_mutex;
Handler g_handlers[16];
std::atomic<uint16_t> g_local_nid{0};

Handler handler_of(uint16_t module) {
  const std::lock_guard<std::mutex> lock(g_handlers_mutex);
  for (const Handler& handler : g_handlers) {
    if (handler.call != nullptr && handler.module == module) return handler;
  }
  return {};
}

}  // namespace

int32_t mirt_host_set_request_handler(uint16_t modulePid, mirt_host_request_handler_t handler,
                                      void* user) {
  const std::lock_guard<std::mutex> lock(g_handlers_mutex);
  Handler* slot = nullptr;
  for (Handler& candidate : g_handlers) {
    const bool own = candidate.call != nullptr && candidate.module == modulePid;
    if (own || (slot == nullptr && candidate.call == nullptr)) slot = &candidate;
    if (own) break;
  }
  if (slot == nullptr) return handler == nullptr ? 0 : -1;
  *slot = Handler{modulePid, handler, user};
  return 0;
}

void mirt_host_set_local_nid(uint16_t nid) {
  g_local_nid.store(nid);
}

uint32_t MIRT_CommGetLocalNid() {
  return g_local_nid.load();
}

int32_t MIRT_CommSendRequestMsg(MIRT_COMM_INFO_S* info, void* payload,
                                MIRT_COMM_RET_DATA_S* reply) {
  if (info == nullptr || reply == nullptr || (payload == nullptr && info->msgLen > 0)) return -1;
  const Handler handler = handler_of(info->dstPid);
  if (handler.call == nullptr) return kNobodyAnswers;

  char answer[MIRT_HOST_MAX_REPLY];
  uint32_t length = 0;
  const int32_t answered = handler.call(info, payload, answer, &length, handler.user);
  if (answered != 0) return answered;
  if (length > sizeof answer) return -1;
  void* const buffer = length > 0 ? malloc(length) : nullptr;
  if (length > 0 && buffer == nullptr) return -1;
  if (length > 0) memcpy(buffer, answer, length);
  *reply = MIRT_COMM_RET_DATA_S{length, buffer};
  return 0;
}

void MIRT_CommFreeRetData(MIRT_COMM_RET_DATA_S* reply) {
  if (reply == nullptr) return;
  free(reply->buf);
  *reply = MIRT_COMM_RET_DATA_S{0, nullptr};
}
