// The JSON of views that no well-meaning item gives.
#include <cerrno>
#include <cmath>

#include "schema_check.h"
#include "status/api.h"
#include "status/heartbeat_json.h"
#include "status/http_exchange.h"
#include "status/http_listener.h"
#include "status/status_server.h"

namespace {

constexpr char kHostile[] = "<script>\x1B[2J\xFF\n";

TEST(ApiJson, OddValuesAndHostileTextAreValidJson) {
  WatchView watch{};
  watch.name = watch.detail = watch.cmdline = kHostile;
  watch.item = find_item("GetSysMemory");
  watch.state = State::kBlind;
  watch.has_value = true;
  watch.value = std::nan("");
  watch.period_s = 0.001;
  watch.evidence = Json::parse(
      R"({"tid":1,"name":"x","state":"D","wchan":null,"stack":"a\nb","voluntary_switches":1,)"
      R"("involuntary_switches":0,"standing_seconds":1.5,"threads_with_this_stack":1,"suspected":null})");
  watch.alarms.push_back({"1", kHostile, Severity::kWarning, {}, false});
  for (size_t i = 0; i < 10000; ++i) {
    watch.history.add({WallTime(std::chrono::seconds(i)), static_cast<float>(i), State::kOk});
  }
  watch.history.add({WallTime(std::chrono::seconds(10000)), HUGE_VALF, State::kOk});
  for (const double seconds : {0.5, 1.5}) watch.call_s.add(seconds);
  Snapshot snapshot{};
  snapshot.watches.push_back(std::make_shared<WatchView>(watch));
  snapshot.trouble = kHostile;
  EXPECT_EQ(watch_json(watch)["mean_call_seconds"], 1.0);
  const auto history = watch_json(watch)["history"];
  EXPECT_GE(history.size(), 600U);
  EXPECT_LT(history.size(), 660U);
  EXPECT_EQ(history.back()["value"], nullptr);
  for (size_t i = 2; i <= history.size(); ++i) {
    ASSERT_EQ(history[history.size() - i]["value"], 10001 - i);
  }
  Answers answers;
  answers.add("watch", json_text(watch_json(watch)));
  answers.add("status", json_text(status_json(snapshot, 600)));
  answers.add("alarms", json_text(alarms_json(snapshot)));
  answers.add("hung", json_text(hung_json(snapshot)));
  char folder[] = "/tmp/api-test-XXXXXX";
  answers.expect_valid(mkdtemp(folder));
  std::filesystem::remove_all(folder);
}

TEST(HeartbeatJson, HasMovedIfTheSameModuleHasAnotherHeartbeat) {
  const auto moved = [](const MIRT_AGENT_HEART_INFO_S* before, MIRT_AGENT_HEART_INFO_S now) {
    return heartbeat_json(before, now)["moved"];
  };
  const MIRT_AGENT_HEART_INFO_S before{1, 7, 5, 0, 0};
  EXPECT_EQ(moved(&before, {1, 7, 6, 0, 0}), true);
  EXPECT_EQ(moved(&before, {1, 7, 4, 0, 0}), true) << "it starts again after the greatest number";
  EXPECT_EQ(moved(&before, {2, 7, 5, 9, 0}), false);
  EXPECT_EQ(moved(&before, {1, 8, 6, 0, 0}), false) << "the entry has another owner";
  EXPECT_EQ(moved(nullptr, before), nullptr);
}

TEST(HttpExchange, TheLengthOfABodyMayFollowItsColonAtOnce) {
  for (const std::string blank : {"", " ", "\t "}) {
    EXPECT_EQ(extent_of("POST / HTTP/1.1\nContent-Length:" + blank + "7\r\n\r\n").body, 7U);
  }
}

TEST(UnixSocket, APathThatIsTooLongIsNoPath) {
  EXPECT_FALSE(connect_to_path(std::string(200, 'x')));
  EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST(StatusRoutes, ASchedulerThatDoesNotAnswerIsNotHealthy) {
  const Wake wake;
  Publisher publisher(wake);
  Mailbox mailbox(wake);
  Silences silences;
  StatusRoutes routes(
      publisher, mailbox, silences, [] {}, false);
  httplib::Request request;
  request.method = "GET";
  for (const char* const path : {"/healthz", "/api/status", "/api/watch/x", "/metrics"}) {
    request.path = path;
    httplib::Response response;
    routes.answer(request, response, Audience::kOwner);
    EXPECT_EQ(response.status, 503);
    EXPECT_NE(response.body.find("the scheduler does not answer"), std::string::npos) << path;
  }
  EXPECT_TRUE(publisher.wanted());
  publisher.publish(nullptr);
  EXPECT_FALSE(publisher.wanted());
  publisher.close();
  EXPECT_EQ(publisher.fresh(std::chrono::hours(1)), nullptr) << "without waiting";
  EXPECT_TRUE(publisher.closed());
}

}  // namespace
