// The state file: whole at any moment, damaged ones set aside, and no caller waits for the disk.
#include "alert/state_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <random>

#include "captured_log.h"
#include "child.h"

static std::atomic<bool> disk_stands{false};

// In place of the C library's: a disk that takes as long as a test wants.
extern "C" int fsync(int fd) {
  while (disk_stands) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return static_cast<int>(syscall(SYS_fsync, fd));
}

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
namespace fs = std::filesystem;

// All that it has depends on one number, so that halves of two do not pass for a whole.
SavedState state_of(uint64_t number) {
  SavedState state;
  const WallTime time = std::chrono::system_clock::from_time_t(1800000000) + milliseconds(number);
  state.counters = {{"number", number}, {"most", UINT64_MAX - number}};
  for (uint64_t i = 0; i < number % 50; ++i) {
    state.alarms.push_back({"database." + std::to_string(number), "above 90",
                            i % 2 == 0 ? Severity::kWarning : Severity::kCritical,
                            std::to_string(i), time,
                            i % 3 == 0 ? std::optional(time + hours(1)) : std::nullopt});
  }
  state.silences = {{"database.*", time + hours(2), "\xc3\xa4 \"\n", time}};
  state.recoveries = {time, time + milliseconds(1)};
  return state;
}

uint64_t number_of(const SavedState& state) {
  const auto number = state.counters.find("number");
  return number == state.counters.end() ? 0 : number->second;
}

class StateStoreTest : public testing::Test {
 protected:
  const CapturedLog log_;
  const TemporaryFolder folder_;
  const std::string path_ = folder_ / "state.json";
};

TEST_F(StateStoreTest, KeepsEverythingAndWritesTheNewestAtTheEnd) {
  EXPECT_FALSE(StateStore::load(path_).found);
  {
    StateStore store(path_, hours(1));
    store.save(state_of(4));
    ASSERT_TRUE(comes_true([&] { return fs::exists(path_); })) << "the first one at once";
    for (uint64_t number = 5; number <= 1007; ++number) store.save(state_of(number));
    EXPECT_TRUE(store.finish(hours(1)));
    EXPECT_FALSE(store.stuck());
  }
  const StateReading reading = StateStore::load(path_);
  ASSERT_TRUE(reading.found) << reading.damage;
  EXPECT_EQ(state_text(reading.state), state_text(state_of(1007)));
  struct stat status {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 1) << "nothing beside it";
  EXPECT_EQ(log_.text(), "");
}

TEST_F(StateStoreTest, SetsADamagedFileAsideAndGoesOn) {
  const std::string right = state_text(state_of(1));
  std::string unknown = right;
  unknown.replace(unknown.find("warning"), 7, "serious");
  // The text of the file $f, and what a shell command then does to it.
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},
      {"[]", ""},
      {std::string(100000, '['), ""},
      {right.substr(0, right.size() / 2), ""},
      {right + "}", ""},
      {R"({"version": 2})", ""},
      {R"({"version": 1})", ""},
      {unknown, ""},
      {R"({"version":1,"alarms":[],"silences":[],"counters":{"a":-1},"recoveries":[]})", ""},
      {right, "chmod 0666 $f"},
      {right, "truncate -s 1T $f"},
      {right, "mv $f $f.real; ln -s $f.real $f"},
      {right, "rm $f; mkfifo -m 0600 $f"},
      {right, "rm $f; mkdir $f"}};
  for (const auto& [text, damage] : rows) {
    SCOPED_TRACE(damage.empty() ? text.substr(0, 100) : damage);
    const CapturedLog log;
    const TemporaryFolder folder;
    const std::string path = folder / "state.json";
    StateStore(path).save(state_of(1));
    ASSERT_TRUE(StateStore::load(path).found);
    write_file(path, text);
    ASSERT_EQ(system(std::string("f=").append(path).append("; ").append(damage).c_str()), 0);

    const StateReading reading = StateStore::load(path);
    EXPECT_FALSE(reading.found);
    EXPECT_EQ(number_of(reading.state), 0U);
    EXPECT_NE(reading.damage, "");
    EXPECT_EQ(reading.set_aside.rfind("state.json.damaged-2", 0), 0U) << reading.set_aside;
    EXPECT_TRUE(fs::exists(fs::symlink_status(folder / reading.set_aside)));
    EXPECT_FALSE(fs::exists(fs::symlink_status(path)));
    EXPECT_EQ(log.count(path + ": " + reading.damage), 1U) << log.text();

    StateStore(path).save(state_of(2));
    EXPECT_EQ(number_of(StateStore::load(path).state), 2U);
  }
}

TEST_F(StateStoreTest, FollowsNoLinkThatOthersCanHaveMade) {
  fs::create_directory(folder_ / "real");
  fs::create_directory(folder_ / "shared");
  fs::create_symlink("../real", folder_ / "shared/link");
  fs::create_symlink("shared/../real", folder_ / "link");
  fs::permissions(folder_ / "shared", fs::perms(0777) | fs::perms::sticky_bit);

  StateStore(folder_ / "link/state.json").save(state_of(1));
  EXPECT_TRUE(StateStore::load(folder_ / "real/state.json").found);

  // As many links as the kernel follows.
  for (int links = 1; links <= 41; ++links) {
    const std::string target = links == 1 ? "real" : std::to_string(links - 1);
    fs::create_directory_symlink(target, folder_ / std::to_string(links));
  }
  EXPECT_TRUE(StateStore::load(folder_ / "40/state.json").found);
  EXPECT_FALSE(StateStore::load(folder_ / "41/state.json").found);

  const StateReading reading = StateStore::load(folder_ / "shared/link/state.json");
  EXPECT_FALSE(reading.found);
  EXPECT_NE(reading.damage, "");
  StateStore store(folder_ / "shared/link/state.json", milliseconds(1));
  store.save(state_of(2));
  EXPECT_FALSE(store.finish(hours(1)));
  EXPECT_EQ(number_of(StateStore::load(folder_ / "real/state.json").state), 1U);

  // A link in place of the file itself is replaced, whoever made it.
  fs::create_symlink("../real/state.json", folder_ / "shared/state.json");
  StateStore(folder_ / "shared/state.json").save(state_of(3));
  EXPECT_EQ(number_of(StateStore::load(folder_ / "real/state.json").state), 1U);
  EXPECT_EQ(number_of(StateStore::load(folder_ / "shared/state.json").state), 3U);
}

TEST_F(StateStoreTest, TriesAgainUntilItCanWrite) {
  const std::string path = folder_ / "later/state.json";
  EXPECT_EQ(StateStore::load(path).damage, "");
  StateStore store(path, milliseconds(1));
  fs::create_directory(folder_ / "later");
  disk_stands = true;
  store.save(state_of(1));
  ASSERT_TRUE(comes_true([&] { return !fs::is_empty(folder_ / "later"); }));
  store.save(state_of(2));  // what fails later is older
  fs::remove_all(folder_ / "later");
  disk_stands = false;
  ASSERT_TRUE(comes_true([&] { return log_.count("cannot open its folder") == 1; }));
  fs::create_directory(folder_ / "later");
  ASSERT_TRUE(comes_true([&] { return log_.count("written again") > 0; }));
  EXPECT_TRUE(store.finish(hours(1)));
  EXPECT_EQ(number_of(StateStore::load(path).state), 2U);
  EXPECT_EQ(log_.count("cannot open its folder"), 1U) << log_.text();
  EXPECT_EQ(log_.count("written again"), 1U);
}

TEST_F(StateStoreTest, NobodyWaitsForASlowDisk) {
  disk_stands = true;
  {
    StateStore store(path_, milliseconds(0));
    for (uint64_t number = 1; number <= 1000; ++number) store.save(state_of(number));
    EXPECT_FALSE(store.finish(milliseconds(1)));
    EXPECT_TRUE(store.stuck());
  }
  EXPECT_FALSE(fs::exists(path_));
  disk_stands = false;
  // The thread goes on, and has all that it needs.
  EXPECT_TRUE(comes_true([&] { return read_file(path_) == state_text(state_of(1000)) + "\n"; }));
}

[[noreturn]] void save_for_ever(const std::string& path) {
  StateStore store(path, milliseconds(0));
  for (uint64_t number = 1;; ++number) store.save(state_of(number));
}

TEST_F(StateStoreTest, IsWholeWheneverItsWriterIsKilled) {
  std::mt19937 random(4711);  // the moments are random enough by themselves
  for (int kills = 0; kills < 500; ++kills) {
    const pid_t writer = fork();
    if (writer == 0) save_for_ever(path_);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
    while (kills == 0 && !fs::exists(path_)) std::this_thread::yield();
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    const StateReading reading = StateStore::load(path_);
    ASSERT_EQ(reading.damage, "") << "after " << kills << " kills";
    ASSERT_TRUE(reading.found) << "it is gone";
    ASSERT_EQ(state_text(reading.state), state_text(state_of(number_of(reading.state))));
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 1) << "nothing beside it";
}

}  // namespace
