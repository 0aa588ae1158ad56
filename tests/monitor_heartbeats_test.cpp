// What mirt-monitor knows of the heartbeats' lock file and table, and what it makes of them.
#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <sstream>
#include <tuple>

#include "mirt_heartbeat_client.h"
#include "monitor_fixture.h"
#include "proc/lock_holder.h"
#include "proc_fixture.h"

namespace {

TEST(LockHolder, IsReadFromTheLinesOfTheFileAlone) {
  const dev_t device = makedev(0xFD, 0x1A);
  const auto holder = [device](const std::string& line) {
    std::istringstream locks(
        "1: POSIX  ADVISORY  WRITE 11 fd:1a:77 0 EOF\n"
        "2: OFDLCK ADVISORY  READ -1 fd:1a:77 1 1\n"
        "3: FLOCK  ADVISORY  WRITE 12 fd:1b:77 0 EOF\n"
        "4: FLOCK  ADVISORY  WRITE 13 fd:1a:770 0 EOF\n" +
        line + "\n");
    return holder_in(locks, device, 77);
  };
  EXPECT_EQ(holder("5: FLOCK  ADVISORY  WRITE 14 fd:1a:77 0 EOF\n"
                   "5: -> FLOCK  ADVISORY  WRITE 15 fd:1a:77 0 EOF"),
            14);
  EXPECT_EQ(holder("12345: FLOCK  ADVISORY  READ 14 fd:1a:77 0 EOF"), 14);
  EXPECT_EQ(holder("5: -> FLOCK  ADVISORY  WRITE 15 fd:1a:77 0 EOF"), std::nullopt);
  EXPECT_EQ(holder("5: FLOCK"), std::nullopt);
  for (const char* const unlocked : {"/nonexistent", "/"}) {
    EXPECT_FALSE(holder_of_lock(unlocked).has_value());
  }
}

constexpr char kLockFile[] = "/tmp/mirt_agent_lock", kTable[] = "/dev/shm/MIRT_AGENT_HEARTBEAT";

class PrepareTest : public WithOwnHeartbeatFiles<MonitorTest> {
 protected:
  // Runs it for the group, which is to succeed, or to say this.
  void prepare(const std::string& expected = "", const std::string& group = "root") const {
    const std::string command = "mirt-monitor heartbeats prepare --group " + group;
    EXPECT_EQ(Monitor(folder_, command).end(expected.empty() ? 0 : 1), expected);
  }
  static void expect_file(const char* path, off_t size, gid_t group) {
    struct stat file {};
    EXPECT_EQ(lstat(path, &file), 0) << path;
    EXPECT_EQ(file.st_mode, static_cast<mode_t>(S_IFREG | 0660)) << path;
    EXPECT_EQ(std::make_tuple(file.st_uid, file.st_gid, file.st_size), std::tuple(0U, group, size))
        << path;
  }
};

TEST_F(PrepareTest, BothAreMadeOrTakenOverAndWhatBeatsGoesOn) {
  umask(0777);  // which must not matter
  prepare();
  expect_file(kLockFile, 0, 0);
  expect_file(kTable, 1200, 0);
  EXPECT_EQ(Monitor(folder_, "mirt-monitor heartbeats").end(0), "");
  MIRT_AGENT_HEART_INFO_S* const entry = MIRT_AgentShmInit(17);
  ASSERT_NE(entry, nullptr);
  const std::string before = read_file(kTable);
  chmod(kLockFile, 0640);
  chmod(kTable, 0600);
  prepare();
  expect_file(kLockFile, 0, 0);
  expect_file(kTable, 1200, 0);
  EXPECT_EQ(read_file(kTable), before);
  // What a maker that was killed leaves: nothing, no content, or the mark of an unfinished table.
  std::string free_table = before;
  free_table.replace(4, 4, std::string("\xFF\xFF\0\0", 4));
  std::string marked = free_table;
  marked.replace(20, 4, "MIRT");
  for (const std::string& left : {std::string(), std::string(1200, '\0'), marked}) {
    write_file(kTable, left);
    prepare();
    EXPECT_EQ(read_file(kTable), free_table);
  }
}

TEST_F(PrepareTest, WhatOthersHaveLaidThereIsRefusedAndLeftAlone) {
  const std::string other = "/tmp/other";
  write_file(other, "another's");
  chmod(other.c_str(), 0600);
  // The shell command that lays $f, and what is said of it; # is the size that it should have. The
  // last row needs the machine's root.
  const std::pair<const char*, const char*> rows[] = {
      {"ln -s /tmp/other $f", "is a symbolic link, expected a regular file"},
      {"ln -s /nowhere $f", "is a symbolic link, expected a regular file"},
      {"mkdir $f", "is a directory, expected a regular file"},
      {"mkfifo $f", "is a FIFO, expected a regular file"},
      {"truncate -s 1201 $f", "has 1201 bytes, expected #"},
      {"touch $f; ln $f $f.again", "has 2 names (hard links), expected 1"},
      {"touch $f; chown nobody $f", "belongs to user nobody (65534), expected root or daemon"}};
  for (const auto& [lay, said] : rows) {
    if (lay == rows[6].first && !is_machines_root()) continue;
    for (const char* const path : {kLockFile, kTable}) {
      EXPECT_EQ(
          system((std::string("rm -rf /tmp/mirt* /dev/shm/*; f=") + path + "; " + lay).c_str()), 0);
      const auto status = [path] {
        struct stat file {};
        EXPECT_EQ(lstat(path, &file), 0) << path;
        return std::make_tuple(file.st_ino, file.st_mode, file.st_gid, file.st_size);
      };
      const auto before = status();
      std::string text = "mirt-monitor: " + std::string(path) + " " + said + "\n";
      if (text.find('#') != std::string::npos) {
        text.replace(text.find('#'), 1, path == kLockFile ? "0" : "1200");
      }
      prepare(text);
      EXPECT_EQ(status(), before) << text;
    }
  }
  EXPECT_EQ(read_file(other), "another's");
  EXPECT_EQ(fs::status(other).permissions(), fs::perms(0600));
}

TEST_F(PrepareTest, WhatCannotBeMadeIsSaid) {
  ASSERT_EQ(system("mount -o remount,ro /dev/shm"), 0);
  prepare("mirt-monitor: /dev/shm/MIRT_AGENT_HEARTBEAT cannot be created: Read-only file system\n");
}

TEST_F(PrepareTest, AllThatIsInTheWayIsSaidAtOnceAndADamagedTableStays) {
  fs::create_directory(kLockFile);
  write_file(kTable, "ten bytes!");
  prepare(
      "mirt-monitor: /tmp/mirt_agent_lock is a directory, expected a regular file\n"
      "mirt-monitor: /dev/shm/MIRT_AGENT_HEARTBEAT has 10 bytes, expected 1200\n");
  fs::remove(kLockFile);
  const std::string damaged(1200, 'x');
  write_file(kTable, damaged);
  prepare(
      "mirt-monitor: the heartbeat table is damaged: entry 0 is of module 2021161080, expected at "
      "most 65534\n");
  EXPECT_EQ(read_file(kTable), damaged);
}

TEST_F(PrepareTest, ALockThatIsNeverReleasedNamesItsHolder) {
  const HeldLock lock(kLockFile);
  prepare("mirt-monitor: /tmp/mirt_agent_lock is locked by process " + std::to_string(getpid()) +
          " (monitor_tests), expected the lock to be free within 5 seconds\n");
  EXPECT_FALSE(fs::exists(kTable));
}

// As a process of another user. 0: attached; as the tests' exit codes go, another one says where it
// failed.
int attach_as(uid_t user, gid_t group, const std::vector<gid_t>& more, uint16_t module) {
  const int status = status_of_child([&] {
    if (!become(user, group, more)) return 3;
    mirt_heartbeat_t heartbeat{};
    return mirt_heartbeat_attach(&heartbeat, module) == 0 ? 0 : 4;
  });
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(PrepareTest, ServicesOfTheGroupAttachAndNobodyElse) {
  if (!is_machines_root()) GTEST_SKIP() << "needs root, to be other users";
  const group* const chosen = getgrnam("games");
  ASSERT_NE(chosen, nullptr);
  const gid_t games = chosen->gr_gid;
  EXPECT_EQ(attach_as(54321, 54321, {games}, 1), 0) << "it makes files that are its own";
  EXPECT_EQ(Monitor(folder_, "mirt-monitor heartbeats").end(1),
            "mirt-monitor: the heartbeat table belongs to user 54321, expected root or daemon\n");
  EXPECT_EQ(MIRT_AgentShmInit(2), nullptr) << "which root does not map";
  fs::remove(kLockFile);
  fs::remove(kTable);
  // As root's attach leaves them they are root's alone, until they are prepared.
  ASSERT_NE(MIRT_AgentShmInit(2), nullptr);
  EXPECT_EQ(attach_as(54321, 54321, {games}, 3), 4);
  prepare("", "games");
  expect_file(kLockFile, 0, games);
  expect_file(kTable, 1200, games);
  EXPECT_EQ(attach_as(54321, 54321, {games}, 3), 0) << "a further group of the process";
  EXPECT_EQ(attach_as(54322, games, {}, 4), 0) << "its own group";
  EXPECT_EQ(attach_as(54323, 54323, {0}, 5), 4) << "a stranger";
  std::string modules;
  for (const Json& row : Monitor(folder_, "mirt-monitor heartbeats --json").records()) {
    modules += row["module"].dump() + " ";
  }
  EXPECT_EQ(modules, "2 3 4 ");
}

}  // namespace
