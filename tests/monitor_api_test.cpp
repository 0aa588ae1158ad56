// What a running monitor says of itself: the JSON interface, over the Unix socket.
#include "heart_fixture.h"
#include "schema_check.h"
#include "status/unix_http.h"

namespace {

class ApiTest : public HeartTest {
 protected:
  void configure_with_socket(const std::string& text) const {
    configure("[status]\nsocket = '" + socket() + "'\n" + text);
  }
  std::string socket() const { return (folder_ / "socket").string(); }

  // The body of the answer, which has this status.
  std::string get(const std::string& path, int status = 200) {
    const auto result = UnixClient(socket()).Get(path);
    EXPECT_TRUE(result) << path << ": " << httplib::to_string(result.error());
    if (!result) return "{}";
    EXPECT_EQ(result->status, status) << path << ": " << result->body;
    return result->body;
  }
  Json json(const std::string& path) { return Json::parse(get(path)); }

  // The watch, once it has these members.
  Json await_watch(const std::string& path, const Json& members) {
    for (;;) {
      Json watch = json("/api/watch/" + path);
      if (has(watch, members)) return watch;
      usleep(10000);
    }
  }
};

TEST_F(ApiTest, EveryPathAnswersAsTheSchemaSays) {
  make_table()[0] = {process_, 77, 5, 9, 0};
  const std::string name = "disk:/\xC3\xA4 %?#\\";
  configure_with_socket(kHeart + "[[instance.alarm]]\nequals = 0\nalert = ['ops']\n" +
                        instance(name, "GetDiskUsage", {{"d", "/"}}) +
                        "[[instance.alarm]]\nabove = -1\nseverity = 'warning'\n" +
                        instance("gone", "GetProcessMemory", {{"ProcessName", "nobody"}}) +
                        instance("failed", "GetDiskUsage", {{"d", "/nowhere"}}) +
                        instance("slow", "GetSysMemory", {}, "period = 1000\n") +
                        "[alert.ops]\ncommand = ['/bin/false']\n");
  Monitor monitor(folder_, kRun);
  monitor.await({{"instance", "heart"}, {"state", "alarm"}});
  UnixClient(socket()).Post("/api/silences", R"({"pattern": "heart", "for_seconds": 60})",
                            "application/json");
  Answers answers;
  const Json watch = await_watch("disk:%2F%C3%A4%20%25%3F%23%5C", {{"state", "alarm"}});
  EXPECT_EQ(watch["name"], name);
  EXPECT_EQ(watch["history"].back()["state"], "alarm");
  EXPECT_EQ(watch["history"].back()["value"], watch["value"]);
  answers.add("watch", watch.dump());
  await_watch("gone", {{"state", "absent"}, {"value", nullptr}});
  await_watch("failed", {{"state", "failed"}, {"value", nullptr}});
  const Json alarms = json("/api/alarms");
  ASSERT_EQ(alarms["alarms"].size(), 2U);
  EXPECT_TRUE(
      has(alarms["alarms"][0],
          {{"watch", "heart"}, {"severity", "critical"}, {"silenced", true}, {"flow_id", 9}}))
      << alarms;
  EXPECT_EQ(alarms["alarms"][1]["watch"], name) << "warnings come after what is critical";
  answers.add("alarms", alarms.dump());
  // The alert fails sooner or later.
  Json status;
  do status = json("/api/status?recent=3");
  while (!status["alerts"].at(0)["failing"]);
  EXPECT_EQ(status["silences"].at(0)["pattern"], "heart");
  EXPECT_EQ(status["counts"]["alarm"], 2);
  EXPECT_EQ(status["watches"].size(), 5U);
  EXPECT_LE(status["watches"][0]["recent"].size(), 3U);
  answers.add("status", status.dump());
  answers.add("status", get("/api/status"));
  answers.add("hung", get("/api/hung"));
  answers.add("error", get("/api/watch/nobody%00", 404));
  answers.expect_valid(folder_);
}

TEST_F(ApiTest, HeartbeatsAreComparedWithAnEarlierReading) {
  configure_with_socket(instance("memory", "GetSysMemory"));
  Monitor monitor(folder_, kRun);
  monitor.await({{"state", "ok"}});
  Answers answers;
  const std::string none = get("/api/heartbeats");
  EXPECT_NE(Json::parse(none)["error"], nullptr) << "there is no table";
  answers.add("heartbeats", none);
  HeartEntry* const entries = make_table();
  entries[0] = {process_, 77, 5, 9, 0};
  entries[3] = {~0U, 78, ~0ULL, ~0U, 0};
  Json table = json("/api/heartbeats");
  ASSERT_EQ(table["entries"].size(), 2U) << table;
  EXPECT_EQ(table["entries"][0]["moved"], nullptr) << "nothing to compare with";
  entries[0].heartbeat = 6;
  while (table["compared_with"].is_null()) table = json("/api/heartbeats");
  EXPECT_TRUE(has(table["entries"][0], {{"name", "cat"}, {"heartbeat", 6}, {"moved", true}}));
  EXPECT_TRUE(has(table["entries"][1],
                  {{"process", nullptr}, {"paused", true}, {"moved", false}, {"flowid", nullptr}}));
  answers.add("heartbeats", table.dump());
  answers.expect_valid(folder_);
}

}  // namespace
