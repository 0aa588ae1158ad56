// The time window of recoveries, and the end of a command that takes too long.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "captured_log.h"
#include "proc/shell_command.h"
#include "proc/unique_fd.h"
#include "run/recovery_budget.h"

namespace {

using std::chrono::seconds;

TEST(RecoveryBudget, HoldsWithinEverySpanOfItsTime) {
  const RecoveryBudget::Clock::time_point start{seconds(1000)};
  RecoveryBudget budget(2, seconds(60));
  EXPECT_TRUE(budget.take(start));
  EXPECT_TRUE(budget.take(start + seconds(50)));
  EXPECT_FALSE(budget.take(start + seconds(59)));
  EXPECT_EQ(budget.next(), start + seconds(60));
  EXPECT_TRUE(budget.take(start + seconds(60)));
  EXPECT_FALSE(budget.take(start + seconds(109))) << "two since 50";
  budget.give_back(start + seconds(60));
  EXPECT_TRUE(budget.take(start + seconds(109)));
  EXPECT_FALSE(budget.take(start + seconds(109)));
}

// Shows which processes still run: each one has this FIFO open for writing until it ends.
class Witness {
 public:
  Witness() {
    mkfifo(path().c_str(), 0600);
    reader_ = open_to_read(path().c_str(), O_NONBLOCK);
  }
  std::string path() const { return folder_ / "fifo"; }

  // Returns what all of them wrote, after the last one has ended.
  std::string said() const {
    fcntl(reader_.get(), F_SETFL, O_RDONLY);
    std::string text;
    char byte = 0;
    while (read(reader_.get(), &byte, 1) == 1) text += byte;
    return text;
  }

 private:
  const TemporaryFolder folder_;
  UniqueFd reader_{-1};
};

TEST(ShellCommand, KillsWhateverItHasStartedWhereverThatHasGone) {
  const std::string command = R"(
      export sleeper='echo x; exec sleep 1000'
      timeout 900 sh -c "$sleeper" &  # in its own process group
      setsid sh -c "$sleeper" &       # in its own session
      (setsid sh -c "$sleeper" &)     # and its parent has ended
      (exec 9>&1; (setsid sh -c '(sh -c "$sleeper" &)') &)  # a daemon
      env -i sh -c "$sleeper" &       # without the environment
      trap "" TERM INT HUP; wait; wait)";
  std::string said;
  // On a slow machine some may not have started yet.
  for (int limit_s = 1; said.size() < 10 && limit_s < 600; limit_s *= 2) {
    const Witness witness;
    EXPECT_EQ(run_shell_command("exec >" + witness.path() + "\n" + command, seconds(limit_s)),
              std::nullopt);
    said = witness.said();
  }
  EXPECT_EQ(said, "x\nx\nx\nx\nx\n");
}

TEST(ShellCommand, LeavesAloneWhatAnotherHasStarted) {
  const Witness witness;
  const std::string stays = "(sh -c 'echo $$; exec sleep 1000' >" + witness.path() + " &)";
  EXPECT_EQ(run_shell_command(stays, seconds(1000)), 0);
  EXPECT_EQ(run_shell_command("sleep 1000", seconds(0)), std::nullopt);
  char pid[16] = {};
  ASSERT_GT(read(open_to_read(witness.path().c_str()).get(), pid, sizeof pid - 1), 0);
  EXPECT_EQ(kill(std::atoi(pid), SIGKILL), 0) << "it was still there";
  witness.said();
}

}  // namespace
