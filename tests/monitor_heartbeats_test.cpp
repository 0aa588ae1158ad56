// What mirt-monitor knows of the heartbeats' lock file and table, and what it makes of them.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <sstream>

#include "monitor_fixture.h"
#include "proc/lock_holder.h"

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
}

TEST_F(MonitorTest, HolderOfARealLockIsFoundByPidAndName) {
  const std::string path = folder_ / "lock";
  EXPECT_FALSE(holder_of_lock(path.c_str()).has_value()) << "there is no file";
  const int lock = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  EXPECT_FALSE(holder_of_lock(path.c_str()).has_value());
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  const std::optional<LockHolder> holder = holder_of_lock(path.c_str());
  ASSERT_TRUE(holder.has_value());
  EXPECT_EQ(holder->pid, getpid());
  EXPECT_EQ(holder->name, "monitor_tests");
  close(lock);
  EXPECT_FALSE(holder_of_lock(path.c_str()).has_value());
}

}  // namespace
