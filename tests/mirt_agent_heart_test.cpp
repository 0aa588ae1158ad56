// The heartbeat table, in a private /dev/shm and /tmp. Every attach runs in its own process,
// because a process maps the table only once. The program links the library's objects and wraps
// malloc() (see CMakeLists.txt).
#include "mirt_agent_heart.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "child.h"
#include "interposed.h"
#include "item_call.h"
#include "kelv_log.h"
#include "mirt_comm.h"
#include "mirt_heartbeat_client.h"
#include "mirt_items.h"
#include "proc_fixture.h"

static bool g_no_lookup_buffer = false;

extern "C" {
void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size) {
  if (size != 16384 || !g_no_lookup_buffer) return __real_malloc(size);
  errno = ENOMEM;
  return nullptr;
}
}

namespace {

constexpr char kSegment[] = "/dev/shm/" MIRT_AGENT_HEARTBEAT_NAME;
constexpr char kFull[] = "MIRT_AgentShmInit: No heartbeat memory.\n";
constexpr char kOutcomes[] = "/tmp/outcomes";

using Entry = MIRT_AGENT_HEART_INFO_S;

Entry claimed_by(uint32_t module) {
  return {0xFFFFFFFF, module, 0, 0xFFFFFFFF, 0};
}

// The bytes of a table that begins with these entries; all others are free.
std::string table_of(std::vector<Entry> entries) {
  entries.resize(50, claimed_by(0xFFFF));
  return {reinterpret_cast<const char*>(entries.data()), 1200};
}

// The last text; before it the host library logs what is wrong with the segment.
std::string g_logged;

// Adds the outcome to those of other processes: the index of the entry, or what was logged.
void attach_here(uint16_t module) {
  kelvlog_set_sink([](const KELV_LOG_RECORD_S* record) {
    if (record->module != PID_CTRL_MIRTCORE || record->level != DBG_LOG_ERROR) return;
    g_logged = std::string(record->function) + ": " + record->text;
  });
  const Entry* const entry = MIRT_AgentShmInit(module);
  std::ofstream outcomes(kOutcomes, std::ios::app);
  // A mapping begins at a page boundary.
  if (entry != nullptr) outcomes << reinterpret_cast<uintptr_t>(entry) % 4096 / sizeof *entry;
  outcomes << g_logged + "\n";
}

// Runs work in a child process; a child that hangs, for example on a lock, is killed.
template <typename Work>
pid_t start(Work work) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  alarm(60);
  work();
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

bool succeeded(pid_t pid) {
  int status = -1;
  return waitpid(pid, &status, 0) == pid && status == 0;
}

std::string attach(uint16_t module) {
  std::filesystem::remove(kOutcomes);
  EXPECT_TRUE(succeeded(start([module] { attach_here(module); })));
  return read_file(kOutcomes);
}

struct stat lock_file_status() {
  struct stat status {};
  EXPECT_EQ(lstat(MIRT_AGENT_LOCK_FILE, &status), 0);
  return status;
}

class HeartTable : public WithOwnHeartbeatFiles<> {
 protected:
  static void clear() {
    std::filesystem::remove(kSegment);
    std::filesystem::remove(MIRT_AGENT_LOCK_FILE);
  }
};

TEST_F(HeartTable, FirstAttachMakesLockFileAndTable) {
  umask(002);
  EXPECT_EQ(attach(7), "0\n");
  EXPECT_EQ(read_file(kSegment), table_of({claimed_by(7)}));
  const struct stat status = lock_file_status();
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0640));
  EXPECT_EQ(status.st_gid, getegid()) << "the group stays";
  // Only root may change the owner of a file.
  const uid_t daemon = getpwnam("daemon")->pw_uid;
  const bool root = chown(MIRT_AGENT_LOCK_FILE, daemon, getegid()) == 0;
  EXPECT_EQ(status.st_uid, root ? daemon : geteuid());
  clear();
  EXPECT_TRUE(succeeded(start([] {
    close(STDIN_FILENO);  // 0 is a descriptor like any other
    attach_here(8);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "it is closed again";
  })));
  EXPECT_EQ(read_file(kOutcomes), "0\n0\n");
  EXPECT_EQ(lock_file_status().st_uid, status.st_uid);
}

TEST_F(HeartTable, LaterAttachesFindOrClaimUntilItIsFull) {
  std::vector<Entry> entries;
  for (uint32_t module = 100; module < 148; ++module) entries.push_back({4711, module, 12, 31, 0});
  entries[0].reserved = 0x5452494D;  // the mark of an unfinished table, but this one is finished
  write_file(kSegment, table_of(entries));
  EXPECT_EQ(attach(0), "48\n") << "0 is a module like any other";
  EXPECT_EQ(attach(65535), "49\n") << "the mark of a free entry";
  EXPECT_EQ(attach(65534), "49\n") << "it is free still";
  EXPECT_EQ(attach(147), "47\n") << "found, and left as it is";
  EXPECT_EQ(attach(65535), kFull);
  entries.insert(entries.end(), {claimed_by(0), claimed_by(65534)});
  EXPECT_EQ(read_file(kSegment), table_of(entries));
}

TEST_F(HeartTable, LockFileOrSegmentThatIsNoneIsLeftAlone) {
  std::filesystem::create_directory(MIRT_AGENT_LOCK_FILE);
  EXPECT_EQ(attach(7),
            "MIRT_AgentShmInitCreateFile: Create or reopen /tmp/mirt_agent_lock failed.\n");
  std::filesystem::remove(MIRT_AGENT_LOCK_FILE);
  EXPECT_FALSE(std::filesystem::exists(kSegment));
  write_file(kSegment, std::string(1201, 'x'));
  EXPECT_EQ(attach(7), "MIRT_AgentShmInit: Create or reopen MIRT_AGENT_HEARTBEAT failed.\n");
  EXPECT_EQ(read_file(kSegment), std::string(1201, 'x'));
}

TEST_F(HeartTable, OwnerThatCannotBeSetFailsNothing) {
  const TmpfsMount no_users("/etc");
  const auto expect_entry = [](const std::string& text) {
    EXPECT_EQ(attach(7), "0MIRT_AgentSetLockFileOwner: " + text + "\n");
    std::filesystem::remove(MIRT_AGENT_LOCK_FILE);
  };
  expect_entry("Get name failed, error:2:No such file or directory.");
  write_file("/etc/passwd", "");
  expect_entry("Not found user.");
  g_no_lookup_buffer = true;
  expect_entry("Allocate get name buffer failed, error:12:Cannot allocate memory.");
  g_no_lookup_buffer = false;
}

// The kernel refuses to create what exists and belongs to others, with fs.protected_regular on.
TEST_F(HeartTable, LockFileOfAnotherOwnerIsReopenedAndKeepsIt) {
  ScopedHooks hooks;
  hooks->refuse_open = [](int flags) {
    return (flags & O_CREAT) != 0 && (flags & O_EXCL) == 0 ? EACCES : 0;
  };
  write_file(MIRT_AGENT_LOCK_FILE, "");
  chmod(MIRT_AGENT_LOCK_FILE, 0666);
  const bool given_away = chown(MIRT_AGENT_LOCK_FILE, 12345, 12346) == 0;
  EXPECT_EQ(attach(7), "0\n");
  EXPECT_EQ(lock_file_status().st_uid, given_away ? 12345 : geteuid());
  EXPECT_EQ(lock_file_status().st_mode & 07777, 0666u);
}

TEST_F(HeartTable, ManyAtOnceNeverShareAnEntry) {
  for (int round = 0; round < 3; ++round) {
    clear();
    std::filesystem::remove(kOutcomes);
    const HeldLock gate(MIRT_AGENT_LOCK_FILE);
    std::vector<pid_t> children;
    for (uint16_t module = 1; module <= 60; ++module) {
      children.push_back(start([module] { attach_here(module); }));
    }
    gate.let_go();
    for (const pid_t child : children) EXPECT_TRUE(succeeded(child));
    std::multiset<std::string> expected, outcomes;
    for (int i = 0; i < 60; ++i) expected.insert(i < 50 ? std::to_string(i) + "\n" : kFull);
    std::ifstream lines(kOutcomes);
    for (std::string line; std::getline(lines, line);) outcomes.insert(line + "\n");
    EXPECT_EQ(outcomes, expected);
  }
}

bool has_stopped(pid_t pid) {
  int status = 0;
  return waitpid(pid, &status, 0) == pid && WIFSTOPPED(status);
}

// A traced process that attaches module 7; it is stopped before the attach.
pid_t start_traced_attach() {
  const pid_t pid = start([] {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    MIRT_AgentShmInit(7);
  });
  EXPECT_TRUE(has_stopped(pid));
  return pid;
}

// Lets it run to the next stop: the start or end of a system call (PTRACE_SYSCALL) or the next
// instruction (PTRACE_SINGLESTEP). False: it has ended.
bool go_on(pid_t pid, decltype(PTRACE_SYSCALL) how) {
  ptrace(how, pid, nullptr, nullptr);
  return has_stopped(pid);
}

// After module 7 died during its attach and left this segment, module 8 must get a correct table.
void expect_usable(const std::string& left) {
  const bool claimed = left.size() == 1200 && left[4] == 7;
  EXPECT_EQ(attach(8), claimed ? "1\n" : "0\n");
  EXPECT_EQ(read_file(kSegment),
            claimed ? table_of({claimed_by(7), claimed_by(8)}) : table_of({claimed_by(8)}));
}

TEST_F(HeartTable, KilledAtAnySystemCall) {
  bool alive = false;
  int stops = 0;
  for (; (alive || stops == 0) && !HasFailure(); ++stops) {
    clear();
    const pid_t traced = start_traced_attach();
    alive = true;
    for (int i = 0; i < stops && alive; ++i) alive = go_on(traced, PTRACE_SYSCALL);
    if (alive) {
      kill(traced, SIGKILL);
      waitpid(traced, nullptr, 0);
    }
    SCOPED_TRACE("killed at stop " + std::to_string(stops));
    expect_usable(read_file(kSegment));
  }
  EXPECT_GT(stops, 20) << "open, lock, size, map, unlock and close at the least";
}

// Not with AddressSanitizer, which adds many instructions between the stores and no other states.
#ifndef __SANITIZE_ADDRESS__
// Returns every state of the table that a process can leave if it is killed while it attaches. No
// other process changes the table, because the lock is held.
std::vector<std::string> states_of_attach() {
  const pid_t traced = start_traced_attach();
  while (read_file(kSegment).size() != 1200 && go_on(traced, PTRACE_SYSCALL)) {
  }
  const int lock = open(MIRT_AGENT_LOCK_FILE, O_RDONLY | O_CLOEXEC);
  std::vector<std::string> states{read_file(kSegment)};
  const int segment = open(kSegment, O_RDONLY | O_CLOEXEC);
  void* const table = mmap(nullptr, 1200, PROT_READ, MAP_SHARED, segment, 0);
  close(segment);
  while (go_on(traced, PTRACE_SINGLESTEP)) {
    if (memcmp(table, states.back().data(), 1200) == 0) continue;
    states.emplace_back(static_cast<const char*>(table), 1200);
    EXPECT_EQ(flock(lock, LOCK_SH | LOCK_NB), -1);
  }
  munmap(table, 1200);
  close(lock);
  return states;
}

TEST_F(HeartTable, KilledBetweenAnyTwoStores) {
  std::vector<std::string> states = states_of_attach();
  EXPECT_GT(states.size(), 50u) << "more than one store an entry";
  // Also a process that was killed while it repaired the state that the first one left.
  write_file(kSegment, states[states.size() / 2]);
  const std::vector<std::string> repaired = states_of_attach();
  states.insert(states.end(), repaired.begin(), repaired.end());
  EXPECT_EQ(states.back(), table_of({claimed_by(7)}));
  for (size_t i = 0; i < states.size() && !HasFailure(); ++i) {
    SCOPED_TRACE("state " + std::to_string(i) + " of " + std::to_string(states.size()));
    write_file(kSegment, states[i]);
    expect_usable(states[i]);
  }
}
#endif

std::atomic<int> g_signals{0};

// Attaches under handlers that let system calls be interrupted.
void attach_with_handlers() {
  struct sigaction action {};
  action.sa_handler = [](int) { ++g_signals; };
  for (const int number : {SIGUSR1, SIGUSR2, SIGCHLD, SIGRTMIN})
    sigaction(number, &action, nullptr);
  sigset_t before{}, after{};
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  mirt_heartbeat_t heartbeat{};
  EXPECT_EQ(mirt_heartbeat_attach(&heartbeat, 7), 0);
  EXPECT_GE(g_signals, 4) << "they come when the attach is over";
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  EXPECT_EQ(memcmp(&before, &after, sizeof before), 0);
}

// True if it sleeps in the kernel, like a process that waits for the lock.
bool waits_for_lock(pid_t pid) {
  const std::string waiter = "-> FLOCK  ADVISORY  WRITE " + std::to_string(pid) + " ";
  return read_file("/proc/locks").find(waiter) != std::string::npos &&
         read_file("/proc/" + std::to_string(pid) + "/stat").find(") S ") != std::string::npos;
}

TEST_F(HeartTable, SignalsDoNotLetAnAttachGoOnWithoutTheLock) {
  const HeldLock lock(MIRT_AGENT_LOCK_FILE);
  const pid_t attaching = start(attach_with_handlers);
  while (!waits_for_lock(attaching)) sched_yield();
  for (int round = 0; round < 1000 && !HasFailure(); ++round) {
    // A delivered signal wakes its process before kill() returns.
    for (const int number : {SIGUSR1, SIGUSR2, SIGCHLD, SIGRTMIN}) kill(attaching, number);
    EXPECT_TRUE(waits_for_lock(attaching)) << "after " << round << " rounds";
  }
  EXPECT_FALSE(std::filesystem::exists(kSegment));
  lock.let_go();
  EXPECT_TRUE(succeeded(attaching));
}

// One run of a supervised process, which checks itself.
void live_and_be_judged() {
  ItemCall call({parameter("ProcessName", "supervised"), parameter("ProcessMoudleId", "17")});
  const auto check = [&call] { return call.run(ProcessHeartBeat); };
  prctl(PR_SET_NAME, "supervised");
  EXPECT_EQ(check(), 1.0F) << "the monitor may come before the process";
  mirt_heartbeat_t heartbeat{};
  ASSERT_EQ(mirt_heartbeat_attach(&heartbeat, 17), 0);
  EXPECT_EQ(check(), 1.0F) << "attaching is a beat";
  EXPECT_EQ(check(), 1.0F) << "without the last one's flow";
  mirt_heartbeat_set_flow(&heartbeat, 31);
  EXPECT_EQ(check(), 0.0F);
  mirt_heartbeat_pause(&heartbeat);
  EXPECT_EQ(check(), 1.0F);
  EXPECT_EQ(check(), 1.0F);
  mirt_heartbeat_beat(&heartbeat);
  EXPECT_EQ(check(), 1.0F);
  EXPECT_EQ(check(), 0.0F);
  mirt_heartbeat_clear_flow(&heartbeat);
  EXPECT_EQ(check(), 1.0F);
  mirt_heartbeat_set_flow(&heartbeat, 32);
}

TEST_F(HeartTable, SupervisedProcessIsJudgedThroughItsLivesInOneEntry) {
  EXPECT_TRUE(succeeded(start(live_and_be_judged)));
  const pid_t restarted = start(live_and_be_judged);
  EXPECT_TRUE(succeeded(restarted));
  const Entry entry{static_cast<uint32_t>(restarted), 17, 4, 32, 0};
  EXPECT_EQ(read_file(kSegment), table_of({entry})) << "the heartbeat goes on from the last";
}

}  // namespace
