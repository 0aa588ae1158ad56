// The heartbeat table in named shared memory. One lock file protects its creation and every claim.
#include "mirt_agent_heart.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "kelv_log.h"
#include "kelv_securec.h"
#include "mirt_comm.h"

namespace {

constexpr unsigned int MY_PID = PID_CTRL_MIRTCORE;
constexpr size_t kLookupSize = 16384;
constexpr mode_t kLockFileMode = 0640;

// The mapped table: null until the first successful attach, never unmapped.
std::atomic<MIRT_AGENT_HEART_INFO_SET_S*> s_pstMirtAgentHeartInfoArr{nullptr};

// Keeps the compiler from reordering stores across this call; the processor does not reorder them.
void keep_order() {
  std::atomic_signal_fence(std::memory_order_seq_cst);
}

// If the creator dies before it sets the mark, the segment is still all zero and the host library
// treats it as new.
void initialise(MIRT_AGENT_HEART_INFO_SET_S& table) {
  uint32_t& mark = table.array[0].reserved;
  mark = MIRT_AGENT_HEART_UNFINISHED;
  keep_order();
  for (MIRT_AGENT_HEART_INFO_S& entry : table.array) {
    entry.processid = MIRT_AGENT_HEART_NO_PROCESS;
    entry.pid = MIRT_AGENT_HEART_FREE;
    entry.heartbeat = 0;
    entry.flowid = MIRT_AGENT_HEART_NO_FLOW;
    if (&entry.reserved != &mark) entry.reserved = 0;
  }
  keep_order();
  mark = 0;
}

// Returns the first entry with that module id, or null.
MIRT_AGENT_HEART_INFO_S* find_entry(MIRT_AGENT_HEART_INFO_SET_S& table, uint32_t pid) {
  for (MIRT_AGENT_HEART_INFO_S& entry : table.array) {
    if (entry.pid == pid) return &entry;
  }
  return nullptr;
}

// Attaches the shared table and creates it if it does not exist. Returns null on failure.
MIRT_AGENT_HEART_INFO_SET_S* attach_table() {
  // Every attach loads and stores this pointer, although the library maps the segment only once: it
  // orders memory between threads of one process, as the file lock does between processes.
  void* memory = s_pstMirtAgentHeartInfoArr.load();
  bool isCreate = false;
  if (MIRT_InitShareMem(&memory, MIRT_AGENT_HEARTBEAT_NAME, sizeof(MIRT_AGENT_HEART_INFO_SET_S),
                        &isCreate) != 0) {
    return nullptr;
  }
  auto* const table = static_cast<MIRT_AGENT_HEART_INFO_SET_S*>(memory);
  if (isCreate || mirt_agent_heart_is_unfinished(table) != 0) initialise(*table);
  return table;
}

// Returns the module's entry, or claims a free one for it; null when no entry is free.
MIRT_AGENT_HEART_INFO_S* find_or_claim_entry(MIRT_AGENT_HEART_INFO_SET_S& table, uint32_t pid) {
  MIRT_AGENT_HEART_INFO_S* entry = find_entry(table, pid);
  if (entry == nullptr) {
    entry = find_entry(table, MIRT_AGENT_HEART_FREE);
    if (entry != nullptr) entry->pid = pid;
  }
  s_pstMirtAgentHeartInfoArr.store(&table);
  return entry;
}

}  // namespace

// Makes the user "daemon" the owner of a lock file that this process created, because other
// processes attach as that user.
void MIRT_AgentSetLockFileOwner(int32_t fd) {
  if (fd < 0) return;
  char* const buffer = static_cast<char*>(malloc(kLookupSize));
  if (buffer == nullptr) {
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "Allocate get name buffer failed, error:%d:%s.", errno,
             strerror(errno));
    return;
  }
  memset_s(buffer, kLookupSize, 0, kLookupSize);
  passwd record{};
  passwd* found = nullptr;
  if (getpwnam_r("daemon", &record, buffer, kLookupSize, &found) != 0) {
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "Get name failed, error:%d:%s.", errno, strerror(errno));
  } else if (found == nullptr) {
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "Not found user.");
  } else {
    // Not everybody may give files away; the lock works all the same.
    [[maybe_unused]] const int given = fchown(fd, found->pw_uid, static_cast<gid_t>(-1));
  }
  free(buffer);
}

// Returns an open descriptor of the lock file, or -1.
int32_t MIRT_AgentShmInitCreateFile() {
  int32_t fd = open(MIRT_AGENT_LOCK_FILE, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kLockFileMode);
  if (fd >= 0) {
    MIRT_AgentSetLockFileOwner(fd);
    return fd;
  }
  fd = open(MIRT_AGENT_LOCK_FILE, O_RDWR | O_CREAT | O_CLOEXEC, kLockFileMode);
  // With the sysctl fs.protected_regular the kernel refuses O_CREAT in a sticky directory to all
  // users except the file's owner, which is now "daemon".
  if (fd < 0 && errno == EACCES) {
    fd = open(MIRT_AGENT_LOCK_FILE, O_RDWR | O_CLOEXEC);
  }
  if (fd < 0) {
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "Create or reopen %s failed.", MIRT_AGENT_LOCK_FILE);
    return -1;
  }
  return fd;
}

MIRT_AGENT_HEART_INFO_S* MIRT_AgentShmInit(uint16_t pid) {
  const int32_t fd = MIRT_AgentShmInitCreateFile();
  if (fd < 0) return nullptr;
  flock(fd, LOCK_EX);
  MIRT_AGENT_HEART_INFO_SET_S* const table = attach_table();
  MIRT_AGENT_HEART_INFO_S* const entry =
      table != nullptr ? find_or_claim_entry(*table, pid) : nullptr;
  flock(fd, LOCK_UN);
  close(fd);
  if (table == nullptr) {
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "Create or reopen %s failed.", MIRT_AGENT_HEARTBEAT_NAME);
  } else if (entry == nullptr) {
    KELV_LOG(MY_PID, DBG_LOG_ERROR, "No heartbeat memory.");
  }
  return entry;
}
