// Ends of watched processes, seen at once: the periods here are longer than any test.
#include "monitor_fixture.h"
#include "proc_fixture.h"
#include "status/unix_client.h"

namespace {

constexpr char kRare[] = "period = 100000\ndeadline = 1000\n";

std::string exists(const std::string& command_line, const std::string& times) {
  return instance("alive", "IsExistProcess", {{"ProcessName", command_line}}, times) +
         "[instance.alarm]\nequals = 0\n";
}

TEST_F(MonitorTest, AnEndRaisesTheAlarmAtOnceAndSaysHow) {
  Child child({"followed by name", "-u"});
  const std::string command_line = "followed by name -u";
  configure_with_socket(
      exists(command_line, kRare) +
      instance("memory", "GetProcessMemoryExtern", {{"ProcessName", "followed by name"}}, kRare) +
      "[instance.alarm]\non = ['absent']\n");
  Monitor monitor(folder_, kRun);
  for (std::set<std::string> called; called.size() < 2;) {  // in any order
    called.insert(monitor.await({{"kind", "item"}, {"state", "ok"}})["instance"]);
  }
  child.kill_unreaped(SIGKILL);
  std::map<std::string, Json> raised;
  while (raised.size() < 2) {
    const Json record = monitor.await({{"state", "raised"}});
    raised[record["instance"]] = record;
  }
  const std::string process = "process " + std::to_string(child.pid());
  for (const auto& [name, record] : raised) {
    const std::string cause = record.value("cause", "");
    EXPECT_EQ(cause.find(process), 0U) << record;
    // Kernels before 6.15 tell only what a parent can see.
    EXPECT_TRUE(cause.find("killed by signal 9") != std::string::npos ||
                cause.find("ended after") != std::string::npos)
        << record;
  }
  EXPECT_EQ(raised["memory"]["instance_state"], "absent");
  const auto shown = UnixClient(socket_path()).Get("/api/watch/memory");
  ASSERT_TRUE(shown);
  EXPECT_EQ(Json::parse(shown->body)["note"], raised["memory"]["cause"]);
  monitor.stop_unread();
}

TEST_F(MonitorTest, AProcessThatIsBackIsNamed) {
  std::optional<Child> child(std::in_place, std::vector<std::string>{"comes back", "-u"});
  configure(exists("comes back -u", "period = 0.05\ndeadline = 1000\n"));
  Monitor monitor(folder_, kRun);
  monitor.await({{"value", 1.0}});
  for (int restart = 1; restart <= 2; ++restart) {
    child.reset();
    monitor.await({{"state", "raised"}});
    child.emplace(std::vector<std::string>{"comes back", "-u"});
    const Json cleared = monitor.await({{"state", "cleared"}});
    EXPECT_EQ(cleared.value("cause", ""), "process " + std::to_string(child->pid()) +
                                              " runs in its place, restart " +
                                              std::to_string(restart));
  }
  monitor.stop();
}

// Its first thread has ended, so it has no command line, as a process that frees much memory.
TEST_F(MonitorTest, AnEndThatTakesLongIsTold) {
  constexpr char kLeave[] =
      "exec -a leaver /usr/bin/python3 -c 'import ctypes, os, sys, threading\n"
      "sys.stdin.readline()\n"
      "threading.Thread(target=lambda: (sys.stdin.readline(), os._exit(7))).start()\n"
      "ctypes.CDLL(None).syscall(60, 0)'";
  int input[2];
  ASSERT_EQ(pipe2(input, O_CLOEXEC), 0);
  const pid_t leaver = fork();
  if (leaver == 0) {
    dup2(input[0], STDIN_FILENO);
    execlp("bash", "bash", "-c", kLeave, nullptr);
    _exit(127);
  }
  const auto leaver_lives = [](const char* name) {
    return instance(name, "IsExistProcessExtern", {{"ProcessName", "leaver"}},
                    "period = 0.05\ndeadline = 1000\n");
  };
  const std::string kept = leaver_lives("alive") + "[instance.alarm]\nequals = 0\n";
  Monitor monitor = started(kept + leaver_lives("dropped"));
  monitor.await({{"instance", "alive"}, {"value", 1.0}});
  monitor.await({{"instance", "dropped"}, {"value", 1.0}});
  EXPECT_EQ(write(input[1], "\n", 1), 1);
  EXPECT_FALSE(monitor.await({{"state", "raised"}}).contains("cause")) << "it has not ended yet";
  configure(kept);
  kill(monitor.pid(), SIGHUP);
  monitor.await({{"kind", "event"}});
  monitor.await({{"value", 0.0}});
  EXPECT_EQ(write(input[1], "\n", 1), 1);
  const std::string process = "process " + std::to_string(leaver);
  while (monitor.await({{"value", 0.0}}).value("note", "").find(process) != 0) continue;
  EXPECT_EQ(waitpid(leaver, nullptr, 0), leaver);
  const Child next({"leaver", "-u"});
  EXPECT_EQ(monitor.await({{"state", "cleared"}}).value("cause", ""),
            "process " + std::to_string(next.pid()) + " runs in its place, restart 1");
  monitor.stop();
  for (const int end : input) close(end);
}

}  // namespace
