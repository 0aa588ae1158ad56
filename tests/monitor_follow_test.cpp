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

}  // namespace
