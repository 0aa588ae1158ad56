#include "proc/heartbeat_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <thread>

#include "mirt_agent_heart.h"
#include "mirt_host.h"
#include "proc/heartbeat_table.h"
#include "proc/lock_holder.h"
#include "proc/unique_fd.h"

namespace {

using Table = MIRT_AGENT_HEART_INFO_SET_S;

constexpr mode_t kMode = 0660;
constexpr int kMakeTries = 10;
constexpr int kLockTries = 50;
constexpr std::chrono::milliseconds kBetweenLockTries{100};

// Why preparation cannot continue: what was found, what was expected.
struct Refusal {
  std::string text;
};

[[noreturn]] void refuse(const char* path, const std::string& why) {
  throw Refusal{std::string(path) + " " + why};
}

[[noreturn]] void refuse_for_errno(const char* path, const char* what) {
  refuse(path, std::string(what) + ": " + std::strerror(errno));
}

const char* type_name(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFLNK:
      return "symbolic link";
    case S_IFDIR:
      return "directory";
    case S_IFIFO:
      return "FIFO";
    case S_IFSOCK:
      return "socket";
    default:
      return "device";
  }
}

// Any user can create files in these directories, for example a link that makes root change another
// file.
void check_harmless(const char* path, const struct stat& file, off_t size) {
  if (!S_ISREG(file.st_mode)) {
    refuse(path, std::string("is a ") + type_name(file.st_mode) + ", expected a regular file");
  }
  char why[160];
  if (mirt_host_check_owner(file.st_uid, why, sizeof why) != 0) refuse(path, why);
  if (file.st_nlink != 1) {
    refuse(path, "has " + std::to_string(file.st_nlink) + " names (hard links), expected 1");
  }
  if (file.st_size != 0 && file.st_size != size) {
    refuse(path,
           "has " + std::to_string(file.st_size) + " bytes, expected " + std::to_string(size));
  }
}

// Opens the existing file, or returns -1 if there is none. Checks the file before it opens it; the
// file cannot be replaced in between.
int open_existing(const char* path, off_t size) {
  const UniqueFd seen(open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (seen.get() < 0 && errno == ENOENT) return -1;
  struct stat file {};
  if (seen.get() < 0 || fstat(seen.get(), &file) != 0) refuse_for_errno(path, "cannot be examined");
  check_harmless(path, file, size);
  const int opened =
      open(("/proc/self/fd/" + std::to_string(seen.get())).c_str(), O_RDWR | O_CLOEXEC);
  if (opened < 0) refuse_for_errno(path, "cannot be opened");
  return opened;
}

// Opens the existing file, which must have this size or be empty, or creates it. Only root can
// access a new file until its group is set.
int open_or_make(const char* path, off_t size) {
  for (int tries = 0; tries < kMakeTries; ++tries) {
    const int existing = open_existing(path, size);
    if (existing >= 0) return existing;
    const int made = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (made >= 0) return made;
    if (errno != EEXIST) refuse_for_errno(path, "cannot be created");
  }
  refuse(path, "is repeatedly created and removed, expected it to stay");
}

void give_to_group(const char* path, int file, gid_t group) {
  if (fchown(file, 0, group) != 0 || fchmod(file, kMode) != 0) {
    refuse_for_errno(path, "cannot get owner root, this group and mode 0660");
  }
}

void take_lock(int file) {
  for (int tries = 0; flock(file, LOCK_EX | LOCK_NB) != 0; ++tries) {
    if (tries == kLockTries) {
      const std::optional<LockHolder> holder = holder_of_lock(MIRT_AGENT_LOCK_FILE);
      refuse(MIRT_AGENT_LOCK_FILE,
             "is locked by " +
                 (holder ? "process " + std::to_string(holder->pid) + " (" + holder->name + ")"
                         : std::string("an unknown process")) +
                 ", expected the lock to be free within 5 seconds");
    }
    std::this_thread::sleep_for(kBetweenLockTries);
  }
}

void write_free_table(int file) {
  Table table{};
  for (MIRT_AGENT_HEART_INFO_S& entry : table.array) {
    entry = {MIRT_AGENT_HEART_NO_PROCESS, MIRT_AGENT_HEART_FREE, 0, MIRT_AGENT_HEART_NO_FLOW, 0};
  }
  errno = ENOSPC;  // the reason for a short write
  if (pwrite(file, &table, sizeof table, 0) != sizeof table) {
    refuse_for_errno(kHeartbeatTableFile, "cannot be written");
  }
}

// The lock is held, so no other process is initialising the table: the creator of an unfinished
// table has died.
void complete_table(int file) {
  Table table{};
  const ssize_t got = pread(file, &table, sizeof table, 0);
  if (got < 0) refuse_for_errno(kHeartbeatTableFile, "cannot be read");
  if (!HeartbeatTable::is_made(table)) {
    write_free_table(file);
  } else if (const std::string fault = HeartbeatTable::fault(table); !fault.empty()) {
    throw Refusal{fault};
  }
}

}  // namespace

std::vector<std::string> prepare_heartbeat_files(gid_t group) {
  std::vector<std::string> refusals;
  std::optional<UniqueFd> lock;
  try {
    lock.emplace(open_or_make(MIRT_AGENT_LOCK_FILE, 0));
    take_lock(lock->get());
    give_to_group(MIRT_AGENT_LOCK_FILE, lock->get(), group);
  } catch (const Refusal& refusal) {
    refusals.push_back(refusal.text);
  }
  try {
    if (!refusals.empty()) {
      // Without the lock nothing is created, but problems with the table are reported too.
      const UniqueFd looked_at(open_existing(kHeartbeatTableFile, sizeof(Table)));
    } else {
      const UniqueFd table(open_or_make(kHeartbeatTableFile, sizeof(Table)));
      complete_table(table.get());
      give_to_group(kHeartbeatTableFile, table.get(), group);
    }
  } catch (const Refusal& refusal) {
    refusals.push_back(refusal.text);
  }
  return refusals;
}
