// What a manager of services and the journal are told.
#include <sys/socket.h>
#include <sys/un.h>

#include "monitor_fixture.h"
#include "proc/process_handle.h"

namespace {

using namespace std::chrono_literals;

class ServiceTest : public MonitorTest {
 protected:
  ServiceTest() {
    sockaddr_un address{AF_UNIX, {}};
    const std::string path = (folder_ / "notify").string();
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  ~ServiceTest() override { close(socket_); }

  std::string run(const std::string& variables = "") const {
    return "env NOTIFY_SOCKET=" + (folder_ / "notify").string() + " " + variables + " " + kRun;
  }

  // All notices up to the first one that begins with this text, the last one included.
  std::string notices(const std::string& last) const {
    std::string all;
    for (char text[4096];;) {
      const ssize_t size = recv(socket_, text, sizeof text, 0);
      if (size < 0) return "no notice: " + all;
      const std::string notice(text, static_cast<size_t>(size));
      all += notice + '\n';
      if (notice.rfind(last, 0) == 0) return all;
    }
  }

  int socket_;
};

const std::string kSick = instance("sick", "IsExistProcess", {{"ProcessName", "nobody"}});

TEST_F(ServiceTest, ItIsReadyOnceEachWatchWasCalled) {
  mkfifo((folder_ / "fifo").c_str(), 0600);
  configure("workers = 1\n" + pre_command("stuck", "cat fifo", "go") +
            pre_command("other", "true", "go"));
  Monitor monitor(folder_, run("WATCHDOG_USEC=40000"));
  const int writer = open((folder_ / "fifo").c_str(), O_WRONLY | O_CLOEXEC);  // waits for cat
  // It turns, and the other watch waits for the only worker.
  const std::string before = notices("WATCHDOG=1") + notices("WATCHDOG=1");
  EXPECT_EQ(before.find("READY=1"), std::string::npos) << before;
  EXPECT_TRUE(contains(before, "STATUS=2 watches: 2 pending"));
  close(writer);
  notices("READY=1");
  monitor.stop();
  notices("STOPPING=1");
}

TEST_F(ServiceTest, AReloadIsToldAndSoIsItsRefusal) {
  configure(kSick +
            "[instance.alarm]\nequals = 0\nalert = 'x'\n[alert.x]\nwebhook = "
            "'http://127.0.0.1:1/'\n");
  Monitor monitor(folder_, run("JOURNAL_STREAM=$(stat -c %d:%i stderr)"));
  notices("READY=1");
  notices("STATUS=1 watch: 1 alarm");
  configure("[[instance]]\nname = 7\n");
  const auto us_now = [] { return std::chrono::steady_clock::now().time_since_epoch() / 1us; };
  const long before = us_now();
  kill(monitor.pid(), SIGHUP);
  const std::string reload = notices("READY=1");
  EXPECT_TRUE(contains(reload, "RELOADING=1\nMONOTONIC_USEC="));
  const long told = std::atol(reload.substr(reload.find("_USEC=") + 6).c_str());
  EXPECT_TRUE(before <= told && told <= us_now()) << reload;
  notices("STATUS=1 watch: 1 alarm; the last reload was refused");
  // Standard error is what JOURNAL_STREAM names: lines begin with their priority.
  const std::string errors = monitor.stop();
  EXPECT_TRUE(contains("\n" + errors, "\n<4>")) << "the alert that fails";
  EXPECT_TRUE(contains("\n" + errors, "\n<3>a.toml:1: "));
  EXPECT_TRUE(contains(errors, "\n<3>a.toml: not reloaded"));
}

TEST_F(ServiceTest, WithoutAJournalLinesArePlain) {
  configure("[[instance]]\nname = 7\n");
  const std::string errors = Monitor(folder_, run("JOURNAL_STREAM=1:1")).end(2);
  EXPECT_EQ(errors.find("a.toml:1: "), 0U) << errors;
}

TEST_F(ServiceTest, CommandsInheritOnlyWhatIsDocumented) {
  const std::string command =
      "[ -z \"$SECRET$NOTIFY_SOCKET\" ] && [ \"$HOME\" = /h ] && [ \"${PATH%%:*}\" = "
      "/usr/local/sbin ]"
      " && [ $(umask) = 0027 ] && [ ! -e /proc/self/fd/3 ] && echo clean";
  configure(pre_command("clean", command, "clean"));
  Monitor monitor(folder_, run("HOME=/h SECRET=x") + " --rounds 1");
  EXPECT_EQ(monitor.await({{"kind", "item"}}).value("state", ""), "ok");
  monitor.end(0);
}

TEST_F(ServiceTest, TheSocketIsNotMadeBehindALinkThatOthersCouldHaveMade) {
  configure(kSick);
  fs::create_directory(folder_ / "open");
  fs::create_directory(folder_ / "elsewhere");
  chmod((folder_ / "open").c_str(), 01777);
  fs::create_symlink(folder_ / "elsewhere", folder_ / "open/link");
  Monitor monitor(folder_, kRun + "--socket open/link/socket");
  EXPECT_TRUE(contains(monitor.end(1), "cannot answer at open/link/socket"));
  EXPECT_TRUE(fs::is_empty(folder_ / "elsewhere"));
}

TEST(ProcessHandle, NoSignalReachesAnotherProcessWithThePid) {
  Child child({"signalled"});
  const ProcessIdentity process{child.pid(), start_ticks_of(child.pid())};
  signal_process({process.pid, process.start_ticks + 1}, SIGKILL);
  EXPECT_EQ(waitpid(process.pid, nullptr, WNOHANG), 0) << "the PID alone does not count";
  signal_process(process, SIGKILL);
  siginfo_t info{};
  EXPECT_EQ(waitid(P_PID, static_cast<id_t>(process.pid), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(info.si_status, SIGKILL);
  child.end();
  signal_process(process, SIGKILL);  // it has ended: nothing happens
}

}  // namespace
