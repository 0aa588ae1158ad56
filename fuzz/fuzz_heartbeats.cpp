// The heartbeat table in shared memory, which every supervised process can write: whatever it
// contains, it can be shown as valid JSON, and the item that supervises a module answers.
#include <fcntl.h>
#include <sys/mman.h>

#include <cstring>

#include "fuzz_input.h"
#include "kelv_log.h"
#include "mirt_agent_heart.h"
#include "mirt_items.h"
#include "private_mount.h"
#include "proc/heartbeat_entry.h"
#include "proc/heartbeat_table.h"
#include "status/heartbeat_json.h"

namespace {

using Table = MIRT_AGENT_HEART_INFO_SET_S;

constexpr uint16_t kModule = 7;

Table* attach() {
  kelvlog_set_sink([](const KELV_LOG_RECORD_S* /*record*/) {});
  mount_empty("/dev/shm");
  mount_empty("/tmp");
  FUZZ_CHECK(MIRT_AgentShmInit(kModule) != nullptr);
  const int segment = shm_open("/" MIRT_AGENT_HEARTBEAT_NAME, O_RDWR | O_CLOEXEC, 0);
  void* const table = mmap(nullptr, sizeof(Table), PROT_READ | PROT_WRITE, MAP_SHARED, segment, 0);
  FUZZ_CHECK(table != MAP_FAILED);
  close(segment);
  return static_cast<Table*>(table);
}

void check_item() {
  FI_PARAM_S parameters[2] = {{"ProcessName", "init"}, {"ProcessMoudleId", "7"}};
  FI_CONTEXT_S context{};
  for (int call = 0; call < 2; ++call) {
    FI_RESULT_S result{};
    const float value = ProcessHeartBeat(2, parameters, &context, &result);
    FUZZ_CHECK(value == 0.0F || value == 1.0F || value == -1.0F);
    FUZZ_CHECK((value == -1.0F) == (result.result != 0));
    FUZZ_CHECK(memchr(result.reason, '\0', sizeof result.reason) != nullptr);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Table* const table = attach();
  static HeartbeatReader reader;
  memset(table, 0, sizeof *table);
  memcpy(table, data, std::min(size, sizeof *table));
  const std::string text = json_text(reader.read());
  FUZZ_CHECK(Json::accept(text));
  Table copy;
  std::string why;
  FUZZ_CHECK(read_heartbeat_table(copy, why));
  const bool is_valid = HeartbeatTable::fault(copy).empty();
  FUZZ_CHECK(is_valid == (text.rfind(R"({"error":null)", 0) == 0));
  MIRT_AGENT_HEART_INFO_S entry;
  FUZZ_CHECK(!read_heartbeat_entry(kModule, entry, why) || entry.pid == kModule);
  check_item();
  return 0;
}
