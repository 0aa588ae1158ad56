// What a running monitor says of itself: the JSON interface, over the Unix socket.
#include "heart_fixture.h"
#include "schema_check.h"
#include "status/http_server.h"
#include "status/unix_client.h"

namespace {

class ApiTest : public HeartTest {
 protected:
  // The body of the answer, which has this status.
  std::string get(const std::string& path, int status = 200) {
    const auto result = UnixClient(socket_path()).Get(path);
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
  Monitor monitor =
      started_with_socket(kHeart + "[[instance.alarm]]\nequals = 0\nalert = ['ops']\n" +
                          instance(name, "GetDiskUsage", {{"d", "/"}}) +
                          "[[instance.alarm]]\nabove = -1\nseverity = 'warning'\n" +
                          instance("gone", "GetProcessMemory", {{"ProcessName", "nobody"}}) +
                          instance("failed", "GetDiskUsage", {{"d", "/nowhere"}}) +
                          instance("slow", "GetSysMemory", {}, "period = 1000\n") +
                          "[alert.ops]\ncommand = ['/bin/false']\n");
  monitor.await({{"instance", "heart"}, {"state", "alarm"}});
  const auto silence = [&](const std::string& pattern) {
    const Json body{{"pattern", pattern}, {"for_seconds", 60}};
    return UnixClient(socket_path()).Post("/api/silences", body.dump(), "application/json")->status;
  };
  EXPECT_EQ(silence("heart"), 200);
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
  EXPECT_LT(status["started"], status["time"]);
  EXPECT_EQ(status["watches"].size(), 5U);
  EXPECT_LE(status["watches"][0]["recent"].size(), 3U);
  answers.add("status", status.dump());
  answers.add("status", get("/api/status"));
  answers.add("hung", get("/api/hung"));
  answers.add("health", get("/healthz"));
  answers.add("error", get("/api/watch/nobody%00", 404));
  for (int i = 1; i < 1000; ++i) ASSERT_EQ(silence("x" + std::to_string(i)), 200);
  EXPECT_EQ(silence("one more"), 409);
  answers.expect_valid(folder_);
}

// The first call of an instance may take longer than all others, so its length is no fault.
TEST_F(ApiTest, StartTimesWithinACallAreCountedUnlessItIsTheFirst) {
  const fs::path fifo = folder_ / "fifo";
  mkfifo(fifo.c_str(), 0600);
  Monitor monitor = started_with_socket(pre_command("slow", "cat fifo", "go"));
  for (const bool is_first : {true, false}) {
    const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);  // waits for cat
    usleep(100000);
    EXPECT_EQ(write(writer, "go\n", 3), 3);
    close(writer);
    monitor.await({{"instance", "slow"}, {"state", "ok"}});
    const Json skipped = json("/api/status")["schedule"]["skipped_starts"];
    EXPECT_TRUE(is_first ? skipped == 0 : skipped >= 4) << skipped;
  }
}

TEST_F(ApiTest, HeartbeatsAreComparedWithAnEarlierReading) {
  Monitor monitor = started_with_socket(instance("memory", "GetSysMemory"));
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

// A port at which nobody listens.
uint16_t free_port() {
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  socklen_t length = sizeof address;
  EXPECT_EQ(bind(probe, reinterpret_cast<sockaddr*>(&address), length), 0);
  getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
  close(probe);
  return ntohs(address.sin_port);
}

class HttpTest : public MonitorTest {
 protected:
  void configure_http(const std::string& host, const std::string& rest) const {
    configure_with_socket("[http]\nlisten = '" + host + ":" + std::to_string(port_) + "'\n" + rest);
  }
  // The status of the answer; 0 if there is none.
  int status_of(const std::string& method, const std::string& path,
                const httplib::Headers& headers = {}) {
    httplib::Client client("127.0.0.1", port_);
    client.set_read_timeout(300);
    httplib::Request request;
    request.method = method;
    request.path = path;
    request.headers = headers;
    const auto result = client.send(request);
    body_ = result ? result->body : "";
    return result ? result->status : 0;
  }
  int get(const std::string& path, const httplib::Headers& headers = {}) {
    return status_of("GET", path, headers);
  }

  const uint16_t port_ = free_port();
  std::string body_;  // of the last answer
};

TEST_F(HttpTest, TcpIsReadOnlyAndForProgramsOfThisMachine) {
  configure_http("127.0.0.1", instance("memory", "GetSysMemory"));
  Monitor monitor(folder_, kRun);
  monitor.await({{"state", "ok"}});
  EXPECT_EQ(get("/api/watch/memory"), 200);
  EXPECT_EQ(get("/api/silences"), 200);
  EXPECT_EQ(get("/nothing"), 404);
  EXPECT_EQ(status_of("HEAD", "/api/status"), 200);
  EXPECT_EQ(body_, "");
  for (const char* const method : {"POST", "DELETE"}) {
    EXPECT_EQ(status_of(method, "/api/silences?pattern=memory"), 405);
    EXPECT_TRUE(contains(body_, "over the Unix socket only"));
  }
  EXPECT_EQ(status_of("POST", "/api/status"), 405);
  for (const char* const host : {"localhost", "LOCALHOST:9", "127.9.9.9:80", "[::1]:80"}) {
    EXPECT_EQ(get("/api/status", {{"Host", host}}), 200) << host;
  }
  // A page whose name leads to 127.0.0.1.
  for (const char* const host : {"example.org", "127.0.0.1.example.org:80", "localhost.org"}) {
    EXPECT_EQ(get("/api/status", {{"Host", host}}), 403) << host;
  }
  const fs::path other = folder_ / "other";
  fs::create_directory(other);
  const std::string second = "[http]\nlisten = '127.0.0.1:" + std::to_string(port_) + "'\n" +
                             instance("memory", "GetSysMemory");
  std::ofstream(other / "a.toml") << second;
  EXPECT_EQ(Monitor(other, kRun).end(1), "mirt-monitor: cannot answer at 127.0.0.1:" +
                                             std::to_string(port_) + ": Address already in use\n");
}

TEST_F(HttpTest, OtherMachinesReadNothingOfProcessesUnlessExposed) {
  for (const bool exposed : {false, true}) {
    configure_http("0.0.0.0",
                   (exposed ? "expose = ['page']\n" : "") + instance("memory", "GetSysMemory"));
    Monitor monitor(folder_, kRun);
    monitor.await({{"state", "ok"}});
    for (const char* const path : {"/healthz", "/metrics"}) {
      EXPECT_EQ(get(path, {{"Host", "machine.example.org"}}), 200) << path;
    }
    for (const char* const path : {"/", "/page/page.js", "/api/status", "/api/watch/memory",
                                   "/api/hung", "/api/silences", "/api/heartbeats"}) {
      EXPECT_EQ(get(path), exposed ? 200 : 403) << path;
    }
    EXPECT_EQ(status_of("DELETE", "/api/silences?pattern=x"), exposed ? 405 : 403);
    monitor.stop();
    EXPECT_FALSE(fs::exists(folder_ / "socket"));
  }
}

TEST_F(HttpTest, HealthTellsThatCallsDoNotStart) {
  const std::string waits = "while [ ! -e " + (folder_ / "go").string() + " ]; do sleep 0.05; done";
  configure_http("127.0.0.1", instance("memory", "GetSysMemory"));
  std::ofstream(folder_ / "b.toml")
      << "workers = 1\n"
      << read_file(folder_ / "a.toml") << pre_command("holds the worker", waits, "");
  fs::rename(folder_ / "b.toml", folder_ / "a.toml");
  Monitor monitor(folder_, kRun);
  while (get("/healthz") != 503) usleep(10000);
  EXPECT_TRUE(contains(body_, "memory is due, but there is no thread to call it"));
  std::ofstream(folder_ / "go") << "";
  monitor.await({{"instance", "memory"}, {"state", "ok"}});
  while (body_.find("late") == std::string::npos) get("/healthz");
  EXPECT_TRUE(contains(body_, "a call began ")) << "for some time afterwards";
}

// A client that sends this, and then nothing more.
UniqueFd client_that_sends(uint16_t port, const std::string& text) {
  UniqueFd client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int little = 2048;
  setsockopt(client.get(), SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  send(client.get(), text.data(), text.size(), MSG_NOSIGNAL);
  return client;
}

size_t descriptors_of(pid_t pid) {
  const auto all = fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

TEST_F(HttpTest, SlowAndHostileClientsHoldNobodyUp) {
  std::string watches;
  for (int i = 0; i < 100; ++i) watches += instance("m" + std::to_string(i), "GetSysMemory");
  configure_http("127.0.0.1", watches);
  Monitor monitor(folder_, kRun + " >/dev/null");
  while (get("/api/watch/m99") != 200) usleep(10000);
  const size_t before = descriptors_of(monitor.pid());
  std::string garbage;
  for (int i = 0; i < 20000; ++i) garbage += static_cast<char>(i * i % 251);
  const std::string many_ranges =
      "1-2,1-2,1-2,1-2,1-2,1-2,1-2,1-2,1-2,1-2,1-2,1-2,1-2,1-2,1-2,1-2,";
  std::string ranges = "GET / HTTP/1.1\r\nX: y\nRange: bytes=";
  while (ranges.size() < 7900) ranges += many_ranges;
  const std::string requests[] = {
      "GET /api/status?recent=600 HTTP/1.1\r\n\r\n",  // too much to send
      "GET /api/status HTTP/1.1\r\nX: ",
      "POST /api/silences HTTP/1.1\r\nContent-Length: 60000\r\n\r\n",
      "",
      garbage,
      garbage + "\r\n\r\n",
      "GET / HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n",
      ranges + "1-2\r\n\r\n",
      "\r\n\r\n"};
  std::vector<UniqueFd> clients;
  for (int i = 0; i < 270; ++i) {
    clients.push_back(
        client_that_sends(port_, requests[static_cast<size_t>(i) % std::size(requests)]));
    if (i % 30 == 0) {
      EXPECT_EQ(get("/api/watch/m" + std::to_string(i / 30)), 200) << i;
    }
    if (i % 30 == 0) {
      // Calls that run just then have some files open, too.
      EXPECT_LE(descriptors_of(monitor.pid()), before + HttpServer::kMostConnections + 50) << i;
    }
  }
  // One that goes on sending after its answer is cut off.
  const UniqueFd talker = client_that_sends(port_, "GET /healthz HTTP/1.1\r\n\r\n");
  size_t sent = 0;
  while (sent < 10000 && send(talker.get(), garbage.data(), garbage.size(), MSG_NOSIGNAL) > 0)
    ++sent;
  EXPECT_LT(sent, 10000U);
  EXPECT_TRUE(UnixClient(folder_ / "socket").Get("/healthz")) << "it has a place of its own";
  // That a busy machine stops the whole monitor for a time is no matter here.
  const bool is_kept = get("/healthz") == 200 || body_.find("did not run") != std::string::npos;
  EXPECT_TRUE(is_kept) << body_;
  clients.clear();
  while (descriptors_of(monitor.pid()) > before) usleep(10000);
  EXPECT_EQ(kill(monitor.pid(), 0), 0);
}

}  // namespace
