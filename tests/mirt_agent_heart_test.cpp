// The heartbeat table, in a /dev/shm and a /tmp of the test's own. Every attach runs in a process
// of its own, as a table is mapped once for the life of a process. The program links the library's
// objects and wraps three functions of the C library (see CMakeLists.txt).
#include "mirt_agent_heart.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "child.h"
#include "item_call.h"
#include "kelv_log.h"
#include "mirt_comm.h"
#include "mirt_heartbeat_client.h"
#include "mirt_items.h"
#include "proc_fixture.h"

namespace {

// What the wrapped functions do in place of the C library; empty: nothing.
struct Wrapped {
  bool no_lookup_buffer = false;
  std::optional<int> getpwnam_r;              // what it gives, having found nobody
  std::function<int(int flags)> refuse_open;  // an errno for this open of the lock file, or 0
};
Wrapped g_wrapped;

constexpr char kSegment[] = "/dev/shm/" MIRT_AGENT_HEARTBEAT_NAME;

}  // namespace

extern "C" {
void* __real_malloc(size_t size);
int __real_getpwnam_r(const char*, passwd*, char*, size_t, passwd**);
int __real_open(const char* path, int flags, ...);

void* __wrap_malloc(size_t size) {
  if (size == 16384 && g_wrapped.no_lookup_buffer) {
    errno = ENOMEM;
    return nullptr;
  }
  return __real_malloc(size);
}

int __wrap_getpwnam_r(const char* name, passwd* record, char* buffer, size_t size, passwd** found) {
  if (g_wrapped.getpwnam_r) {
    *found = nullptr;
    errno = EIO;
    return strcmp(name, "daemon") == 0 && size == 16384 ? *g_wrapped.getpwnam_r : EINVAL;
  }
  return __real_getpwnam_r(name, record, buffer, size, found);
}

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (g_wrapped.refuse_open && strcmp(path, MIRT_AGENT_LOCK_FILE) == 0) {
    errno = g_wrapped.refuse_open(flags);
    if (errno != 0) return -1;
  }
  return __real_open(path, flags, mode);
}
}  // extern "C"

namespace {

using Table = std::array<MIRT_AGENT_HEART_INFO_S, MIRT_AGENT_HEART_MAX>;

bool operator==(const Table& a, const Table& b) {
  return memcmp(&a, &b, sizeof a) == 0;
}

// A new table in which these modules have claimed the first entries.
Table table_of(const std::vector<uint32_t>& modules) {
  Table table;
  table.fill({0xFFFFFFFF, 0xFFFF, 0, 0xFFFFFFFF, 0});
  for (size_t i = 0; i < modules.size(); ++i) table[i].pid = modules[i];
  return table;
}

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

void write_table(const Table& table) {
  std::ofstream(kSegment, std::ios::binary)
      .write(reinterpret_cast<const char*>(&table), sizeof table);
}

Table read_table() {
  const std::string bytes = read_file(kSegment);
  Table table{};
  EXPECT_EQ(bytes.size(), 1200u);
  memcpy(&table, bytes.data(), std::min(bytes.size(), sizeof table));
  return table;
}

// What one process saw of its attach; lies in memory shared with the test.
struct Outcome {
  int index = -1;               // of the entry; -1: none
  int leaked_descriptors = -1;  // none: the lock went with its descriptor
  bool table_is_whole = false;
  char log[2048] = "";  // module/level file function: text
};

// Where the attaching processes write what they saw, afresh for each use.
Outcome* new_outcomes() {
  constexpr size_t kMost = 60;
  static auto* const outcomes = static_cast<Outcome*>(mmap(
      nullptr, kMost * sizeof(Outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  std::fill_n(outcomes, kMost, Outcome{});
  return outcomes;
}

Outcome* g_outcome = nullptr;

void note_log(const KELV_LOG_RECORD_S* record) {
  const size_t used = strlen(g_outcome->log);
  snprintf(g_outcome->log + used, sizeof g_outcome->log - used, "%u/%d %s %s: %s\n", record->module,
           record->level, record->file, record->function, record->text);
}

void attach_here(uint16_t module, Outcome& outcome) {
  g_outcome = &outcome;
  kelvlog_set_sink(note_log);
  const int before = open_descriptors();
  const MIRT_AGENT_HEART_INFO_S* const entry = MIRT_AgentShmInit(module);
  outcome.leaked_descriptors = open_descriptors() - before;
  if (entry == nullptr) return;
  void* table = nullptr;
  bool created = true;
  MIRT_InitShareMem(&table, MIRT_AGENT_HEARTBEAT_NAME, sizeof(Table), &created);
  const auto& entries = *static_cast<Table*>(table);
  outcome.index = static_cast<int>(entry - entries.data());
  outcome.table_is_whole = std::all_of(entries.begin(), entries.end(), [](const auto& e) {
    return e.processid == 0xFFFFFFFF && e.pid != 0 && e.heartbeat == 0 && e.flowid == 0xFFFFFFFF;
  });
}

// Runs work in a child process; a child that hangs, say on a lock, dies in time.
template <typename Work>
pid_t start(Work work) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  alarm(60);
  work();
  _exit(0);
}

bool succeeded(pid_t pid) {
  int status = -1;
  return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

Outcome attach(uint16_t module) {
  Outcome* const outcomes = new_outcomes();
  EXPECT_TRUE(succeeded(start([&] { attach_here(module, outcomes[0]); })));
  EXPECT_EQ(outcomes[0].leaked_descriptors, 0);
  return outcomes[0];
}

class HeartTable : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(shared_memory_.mounted() && tmp_.mounted()) << strerror(errno);
    write_file("/tmp/probe", "");
    if (const passwd* const daemon = getpwnam("daemon")) daemon_uid_ = daemon->pw_uid;
    // Nobody but root may give a file away.
    const bool root = chown("/tmp/probe", daemon_uid_, static_cast<gid_t>(-1)) == 0;
    lock_owner_ = root ? daemon_uid_ : geteuid();
  }
  void TearDown() override { g_wrapped = Wrapped{}; }
  static struct stat lock_file_status() {
    struct stat status {};
    EXPECT_EQ(lstat(MIRT_AGENT_LOCK_FILE, &status), 0);
    return status;
  }

  TmpfsMount shared_memory_{"/dev/shm", "size=64k,mode=1777"}, tmp_{"/tmp", "size=64k,mode=1777"};
  uid_t daemon_uid_ = 0;
  uid_t lock_owner_ = 0;
};

TEST_F(HeartTable, FirstAttachMakesLockFileAndTable) {
  umask(002);
  const Outcome first = attach(7);
  EXPECT_EQ(first.index, 0);
  EXPECT_STREQ(first.log, "");
  EXPECT_TRUE(read_table() == table_of({7}));
  const struct stat status = lock_file_status();
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0640));
  EXPECT_EQ(status.st_uid, lock_owner_);
  EXPECT_EQ(status.st_gid, getegid()) << "the group stays";
  EXPECT_EQ(status.st_size, 0);
}

TEST_F(HeartTable, LaterAttachesFindOrClaim) {
  Table table = table_of({7});
  table[0].processid = 4711;
  table[0].heartbeat = 12;
  table[0].flowid = 99;
  write_table(table);
  EXPECT_EQ(attach(7).index, 0);
  EXPECT_TRUE(read_table() == table) << "what is found stays as it is";
  EXPECT_EQ(attach(0).index, 1) << "0 is a module like any other";
  EXPECT_EQ(attach(65534).index, 2);
  EXPECT_EQ(attach(65535).index, 3) << "the mark of a free entry";
  EXPECT_EQ(attach(8).index, 3) << "it is free still";
  table[1].pid = 0;
  table[2].pid = 65534;
  table[3].pid = 8;
  EXPECT_TRUE(read_table() == table);
}

TEST_F(HeartTable, FullTableTakesNobodyButItsOwners) {
  std::vector<uint32_t> modules;
  for (uint32_t module = 100; module < 150; ++module) modules.push_back(module);
  write_table(table_of(modules));
  const Outcome refused = attach(7);
  EXPECT_EQ(refused.index, -1);
  EXPECT_STREQ(refused.log, "422/3 mirt_agent_heart.cpp MIRT_AgentShmInit: No heartbeat memory.\n");
  EXPECT_EQ(attach(65535).index, -1);
  EXPECT_EQ(attach(149).index, 49);
  EXPECT_TRUE(read_table() == table_of(modules));
}

constexpr char kNoLockFile[] =
    "422/3 mirt_agent_heart.cpp MIRT_AgentShmInitCreateFile: "
    "Create or reopen /tmp/mirt_agent_lock failed.\n";
constexpr char kNoMemory[] =
    "422/3 mirt_agent_heart.cpp MIRT_AgentShmInit: Create or reopen MIRT_AGENT_HEARTBEAT failed.\n";

// The host library says first what is wrong with the segment.
std::string last_line(const std::string& log) {
  const size_t end = log.size() < 2 ? std::string::npos : log.rfind('\n', log.size() - 2);
  return end == std::string::npos ? log : log.substr(end + 1);
}

TEST_F(HeartTable, LockFileThatIsNone) {
  write_file("/tmp/target", "precious");
  for (const char* target : {"/tmp/target", "/tmp/nowhere", ""}) {
    if (*target != '\0') {
      std::filesystem::create_symlink(target, MIRT_AGENT_LOCK_FILE);
    } else {
      std::filesystem::create_directory(MIRT_AGENT_LOCK_FILE);
    }
    const Outcome outcome = attach(7);
    EXPECT_STREQ(outcome.log, kNoLockFile);
    EXPECT_EQ(outcome.index, -1);
    std::filesystem::remove(MIRT_AGENT_LOCK_FILE);
  }
  EXPECT_EQ(read_file("/tmp/target"), "precious");
  EXPECT_FALSE(std::filesystem::exists("/tmp/nowhere"));
  EXPECT_FALSE(std::filesystem::exists(kSegment));
}

TEST_F(HeartTable, SegmentOfAnotherSizeIsLeftAlone) {
  for (const size_t size : {1199u, 1201u}) {
    write_file(kSegment, std::string(size, 'x'));
    const Outcome outcome = attach(7);
    EXPECT_EQ(outcome.index, -1);
    EXPECT_EQ(last_line(outcome.log), kNoMemory);
    EXPECT_EQ(read_file(kSegment), std::string(size, 'x'));
  }
}

TEST_F(HeartTable, FullFileSystemFailsUntilThereIsRoom) {
  ASSERT_EQ(mount(nullptr, "/dev/shm", nullptr, MS_REMOUNT, "size=4k"), 0) << strerror(errno);
  write_file("/dev/shm/filler", std::string(4096, 'x'));
  const Outcome outcome = attach(7);
  EXPECT_EQ(outcome.index, -1);
  EXPECT_EQ(last_line(outcome.log), kNoMemory);
  std::filesystem::remove("/dev/shm/filler");
  EXPECT_EQ(attach(7).index, 0);
  EXPECT_TRUE(read_table() == table_of({7}));
}

TEST_F(HeartTable, OwnerThatCannotBeSetFailsNothing) {
  const std::string in_function = "422/3 mirt_agent_heart.cpp MIRT_AgentSetLockFileOwner: ";
  const auto expect_own_lock_file = [&](const std::string& text) {
    const Outcome outcome = attach(7);
    EXPECT_EQ(outcome.log, in_function + text + "\n");
    EXPECT_EQ(outcome.index, 0);
    EXPECT_EQ(lock_file_status().st_uid, geteuid());
    std::filesystem::remove(MIRT_AGENT_LOCK_FILE);
  };
  g_wrapped.getpwnam_r = ERANGE;
  expect_own_lock_file("Get name failed, error:5:Input/output error.");
  g_wrapped.getpwnam_r = 0;
  expect_own_lock_file("Not found user.");
  g_wrapped.no_lookup_buffer = true;
  expect_own_lock_file("Allocate get name buffer failed, error:12:Cannot allocate memory.");
}

TEST_F(HeartTable, LockFileOfAnotherOwnerKeepsIt) {
  write_file(MIRT_AGENT_LOCK_FILE, "not ours to read");
  const bool given_away = chown(MIRT_AGENT_LOCK_FILE, 12345, 12346) == 0;
  chmod(MIRT_AGENT_LOCK_FILE, 0666);
  EXPECT_EQ(attach(7).index, 0);
  const struct stat status = lock_file_status();
  EXPECT_EQ(status.st_uid, given_away ? 12345 : geteuid());
  EXPECT_EQ(status.st_mode & 07777, 0666u);
  EXPECT_EQ(read_file(MIRT_AGENT_LOCK_FILE), "not ours to read");
}

TEST_F(HeartTable, OnlyRefusedCreationIsTriedWithoutIt) {
  write_file(MIRT_AGENT_LOCK_FILE, "");
  for (const int error : {EACCES, EMFILE}) {
    Outcome* const outcomes = new_outcomes();
    ASSERT_TRUE(succeeded(start([&] {
      std::vector<int> opens, expected{O_RDWR | O_CREAT | O_EXCL, O_RDWR | O_CREAT};
      if (error == EACCES) expected.push_back(O_RDWR);
      g_wrapped.refuse_open = [&](int flags) {
        opens.push_back(flags & (O_ACCMODE | O_CREAT | O_EXCL));
        return (flags & O_CREAT) != 0 ? error : 0;
      };
      attach_here(7, outcomes[0]);
      if (opens != expected) _exit(1);
    })));
    EXPECT_EQ(outcomes[0].index, error == EACCES ? 0 : -1);
    EXPECT_STREQ(outcomes[0].log, error == EACCES ? "" : kNoLockFile);
  }
}

// Switches fs.protected_regular on for as long as it lives, where the machine allows it.
class ProtectedRegular {
 public:
  ProtectedRegular() : before_(read_file(kPath)) { write_file(kPath, "2"); }
  ProtectedRegular(const ProtectedRegular&) = delete;
  ProtectedRegular& operator=(const ProtectedRegular&) = delete;
  ~ProtectedRegular() { write_file(kPath, before_); }
  bool is_on() const { return read_file(kPath) == "2\n"; }

 private:
  static constexpr char kPath[] = "/proc/sys/fs/protected_regular";
  std::string before_;
};

TEST_F(HeartTable, ProtectedLockFileIsReopened) {
  const ProtectedRegular setting;
  EXPECT_EQ(attach(7).index, 0);
  if (setting.is_on() && lock_owner_ == daemon_uid_) {
    EXPECT_EQ(open(MIRT_AGENT_LOCK_FILE, O_RDWR | O_CREAT | O_CLOEXEC, 0640), -1);
    EXPECT_EQ(errno, EACCES) << "else this shows nothing";
  }
  const Outcome second = attach(8);
  EXPECT_EQ(second.index, 1);
  EXPECT_STREQ(second.log, "");
  EXPECT_EQ(lock_file_status().st_uid, lock_owner_);
}

TEST_F(HeartTable, ManyAtOnceNeverShareAnEntry) {
  constexpr int kProcesses = 60;
  for (int round = 0; round < 3; ++round) {
    std::filesystem::remove(kSegment);
    std::filesystem::remove(MIRT_AGENT_LOCK_FILE);
    Outcome* const outcomes = new_outcomes();
    int gate[2];
    ASSERT_EQ(pipe2(gate, O_CLOEXEC), 0);
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
      children.push_back(start([&, i] {
        char unused;
        close(gate[1]);
        if (read(gate[0], &unused, 1) == 0) {
          attach_here(static_cast<uint16_t>(1 + i), outcomes[static_cast<size_t>(i)]);
        }
      }));
    }
    close(gate[0]);
    close(gate[1]);  // the end of the pipe lets them all go
    for (const pid_t child : children) EXPECT_TRUE(succeeded(child));
    const Table table = read_table();
    std::set<int> indices;
    for (size_t i = 0; i < kProcesses; ++i) {
      const Outcome& outcome = outcomes[i];
      if (outcome.index < 0) {
        EXPECT_EQ(last_line(outcome.log),
                  "422/3 mirt_agent_heart.cpp MIRT_AgentShmInit: No heartbeat memory.\n");
        continue;
      }
      EXPECT_TRUE(outcome.table_is_whole);
      EXPECT_TRUE(indices.insert(outcome.index).second) << "shared: " << outcome.index;
      EXPECT_EQ(table[static_cast<size_t>(outcome.index)].pid, 1 + i);
    }
    EXPECT_EQ(indices.size(), 50u);
  }
}

// A process that attaches under the test's eyes, held before it begins.
class TracedAttach {
 public:
  explicit TracedAttach(uint16_t module) {
    pid_ = start([module] {
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      raise(SIGSTOP);
      _exit(MIRT_AgentShmInit(module) != nullptr ? 0 : 1);
    });
    wait();
    ptrace(PTRACE_SETOPTIONS, pid_, nullptr, PTRACE_O_EXITKILL);
  }
  TracedAttach(const TracedAttach&) = delete;
  TracedAttach& operator=(const TracedAttach&) = delete;
  ~TracedAttach() {
    if (!alive_) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  // Lets it run to the next stop: the begin or end of a system call (PTRACE_SYSCALL) or the next
  // instruction (PTRACE_SINGLESTEP). False: it has ended.
  bool go_on(decltype(PTRACE_SYSCALL) how) {
    ptrace(how, pid_, nullptr, nullptr);
    return wait();
  }

 private:
  bool wait() {
    int status = 0;
    alive_ = waitpid(pid_, &status, 0) == pid_ && WIFSTOPPED(status);
    return alive_;
  }
  pid_t pid_ = -1;
  bool alive_ = false;
};

// After module 7 died somewhere in its attach, module 8 must get a perfect table.
void expect_usable(bool claimed) {
  const Outcome next = attach(8);
  EXPECT_EQ(next.index, claimed ? 1 : 0) << next.log;
  EXPECT_TRUE(next.table_is_whole);
  EXPECT_TRUE(read_table() == (claimed ? table_of({7, 8}) : table_of({8})));
}

TEST_F(HeartTable, KilledAtAnySystemCall) {
  bool ended = false;
  int stops = 0;
  for (; !ended && !HasFailure(); ++stops) {
    std::filesystem::remove(kSegment);
    std::filesystem::remove(MIRT_AGENT_LOCK_FILE);
    {
      TracedAttach traced(7);
      for (int i = 0; i < stops && !ended; ++i) ended = !traced.go_on(PTRACE_SYSCALL);
    }
    const std::string left = read_file(kSegment);
    SCOPED_TRACE("killed at stop " + std::to_string(stops));
    expect_usable(left.size() == 1200 && left[4] == 7);
  }
  EXPECT_GT(stops, 20) << "open, lock, size, map, unlock and close at the least";
}

// Goes on to where the segment has its size and maps it; null if the process ends before.
const Table* map_when_sized(TracedAttach& traced) {
  while (read_file(kSegment).size() != sizeof(Table)) {
    if (!traced.go_on(PTRACE_SYSCALL)) return nullptr;
  }
  const int fd = open(kSegment, O_RDONLY | O_CLOEXEC);
  void* const mapped = mmap(nullptr, sizeof(Table), PROT_READ, MAP_SHARED, fd, 0);
  close(fd);
  return static_cast<const Table*>(mapped);
}

void unmap(const Table* table) {
  munmap(const_cast<Table*>(table), sizeof(Table));
}

bool waits_for_a_lock(pid_t pid) {
  // "1: -> FLOCK  ADVISORY  WRITE 4711 00:1c:2 0 EOF"
  const std::string end_of_field = " WRITE " + std::to_string(pid) + " ";
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    if (line.find("->") != std::string::npos && line.find(end_of_field) != std::string::npos) {
      return true;
    }
  }
  return false;
}

TEST_F(HeartTable, HalfMadeTableKeepsOthersWaiting) {
  TracedAttach maker(7);
  const Table* const shared = map_when_sized(maker);
  ASSERT_NE(shared, nullptr);
  while (*shared == Table{} && maker.go_on(PTRACE_SINGLESTEP)) {
  }
  ASSERT_FALSE(*shared == table_of({})) << "the maker is at work";
  unmap(shared);
  Outcome* const outcomes = new_outcomes();
  const pid_t other = start([&] { attach_here(8, outcomes[0]); });
  siginfo_t ended{};
  while (!waits_for_a_lock(other) && ended.si_pid == 0) {
    waitid(P_PID, static_cast<id_t>(other), &ended, WEXITED | WNOHANG | WNOWAIT);
    usleep(1000);
  }
  EXPECT_EQ(ended.si_pid, 0) << "it did not wait";
  EXPECT_FALSE(maker.go_on(PTRACE_CONT)) << "it ends";
  EXPECT_TRUE(succeeded(other));
  EXPECT_EQ(outcomes[0].index, 1);
  EXPECT_TRUE(read_table() == table_of({7, 8}));
}

// Every state of the table that a process attaching to what is there now leaves if it is killed.
std::vector<Table> states_of_attach() {
  std::vector<Table> states;
  TracedAttach traced(7);
  const Table* const shared = map_when_sized(traced);
  if (shared == nullptr) return states;
  do {
    if (states.empty() || !(states.back() == *shared)) states.push_back(*shared);
  } while (traced.go_on(PTRACE_SINGLESTEP));
  unmap(shared);
  return states;
}

void expect_all_usable(const std::vector<Table>& states) {
  ASSERT_FALSE(states.empty());
  EXPECT_TRUE(states.back() == table_of({7}));
  for (size_t i = 0; i < states.size() && !testing::Test::HasFailure(); ++i) {
    SCOPED_TRACE("state " + std::to_string(i) + " of " + std::to_string(states.size()));
    write_table(states[i]);
    expect_usable(states[i][0].pid == 7);
  }
}

TEST_F(HeartTable, KilledBetweenAnyTwoStores) {
  const std::vector<Table> states = states_of_attach();
  EXPECT_GT(states.size(), 50u) << "more than one store an entry";
  expect_all_usable(states);
  // And one that was killed while it repaired what a first one had left.
  write_table(states[states.size() / 2]);
  expect_all_usable(states_of_attach());
}

// A supervised process that beats when told to, through the client.
class Supervised {
 public:
  explicit Supervised(uint16_t module) {
    int line[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, line), 0);
    pid_ = start([&] { serve(module, line[1]); });
    close(line[1]);
    line_ = line[0];
    wait_for_answer();
  }
  Supervised(const Supervised&) = delete;
  Supervised& operator=(const Supervised&) = delete;
  ~Supervised() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(line_);
  }
  pid_t pid() const { return pid_; }
  // b: beat, f: set flow 31, c: clear it, p: pause
  void tell(char order) {
    EXPECT_EQ(send(line_, &order, 1, MSG_NOSIGNAL), 1);
    wait_for_answer();
  }

 private:
  static void serve(uint16_t module, int line) {
    mirt_heartbeat_t heartbeat;
    prctl(PR_SET_NAME, "supervised");
    if (mirt_heartbeat_attach(&heartbeat, module) != 0) _exit(1);
    char order = 'a';
    while (write(line, &order, 1) == 1 && read(line, &order, 1) == 1) {
      if (order == 'b') mirt_heartbeat_beat(&heartbeat);
      if (order == 'f') mirt_heartbeat_set_flow(&heartbeat, 31);
      if (order == 'c') mirt_heartbeat_clear_flow(&heartbeat);
      if (order == 'p') mirt_heartbeat_pause(&heartbeat);
    }
  }
  void wait_for_answer() {
    char answer;
    EXPECT_EQ(read(line_, &answer, 1), 1) << "the supervised process has died";
  }
  pid_t pid_ = -1;
  int line_ = -1;
};

void judge_through_its_life() {
  const std::vector<FI_PARAM_S> parameters{parameter("ProcessName", "supervised"),
                                           parameter("ProcessMoudleId", "17")};
  ItemCall call(parameters);
  const auto check = [&call] { return call.run(ProcessHeartBeat); };
  kelvlog_set_sink([](const KELV_LOG_RECORD_S*) {});
  Supervised other(18);  // attached first and still there
  EXPECT_EQ(check(), 1.0F) << "the monitor may come before the process, and claims its entry";
  other.tell('b');
  {
    Supervised process(17);
    EXPECT_EQ(check(), 1.0F) << "attaching is the first beat";
    struct {
      char order;
      float judged;
    } const kSteps[] = {{'f', 0.0F}, {'b', 1.0F}, {'f', 0.0F}, {'p', 1.0F},
                        {'p', 1.0F}, {'b', 1.0F}, {'f', 0.0F}, {'c', 1.0F}};
    for (const auto& step : kSteps) {
      process.tell(step.order);
      EXPECT_EQ(check(), step.judged) << "at " << &step - kSteps << ", " << step.order;
    }
    process.tell('f');
  }
  EXPECT_EQ(check(), 1.0F) << "a process that is gone is another item's matter";
  Supervised restarted(17);
  EXPECT_EQ(check(), 1.0F) << "a beat that goes on from the last";
  EXPECT_EQ(check(), 1.0F) << "without the last one's flow";
  restarted.tell('f');
  ItemCall of_new_monitor(parameters);
  EXPECT_EQ(of_new_monitor.run(ProcessHeartBeat), 1.0F);
  EXPECT_EQ(of_new_monitor.run(ProcessHeartBeat), 0.0F);
  EXPECT_EQ(of_new_monitor.result.hangflowid, 31u);
  Table expected = table_of({18, 17});
  expected[0].processid = static_cast<uint32_t>(other.pid());
  expected[0].heartbeat = 2;
  expected[1].processid = static_cast<uint32_t>(restarted.pid());
  expected[1].heartbeat = 4;
  expected[1].flowid = 31;
  EXPECT_TRUE(read_table() == expected) << "the same entry, and no other was claimed";
}

TEST_F(HeartTable, SupervisedProcessIsJudgedThroughItsLife) {
  EXPECT_TRUE(succeeded(start([] {
    judge_through_its_life();
    if (HasFailure()) _exit(1);
  })));
}

}  // namespace
