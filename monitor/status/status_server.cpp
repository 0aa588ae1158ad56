#include "status/status_server.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <utility>

#include "status/api.h"
#include "status/resources.h"
#include "text/clock_text.h"
#include "text/wording.h"

namespace {

constexpr std::chrono::seconds kToAnswer{2};  // the scheduler's thread: it never waits for anything

void answer_with(httplib::Response& response, int status, const Json& body) {
  response.status = status;
  response.set_content(json_text(body) + "\n", kJsonType);
}

void refuse(httplib::Response& response, int status, const std::string& text) {
  answer_with(response, status, Json{{"error", text}});
}

void answer_watch(const Snapshot& snapshot, const std::string& name, httplib::Response& response) {
  const WatchView* const watch = find_watch(snapshot, name);
  if (!watch) return refuse(response, 404, "there is no watch " + in_quotes(name));
  answer_with(response, 200, watch_json(*watch));
}

}  // namespace

StatusServer::StatusServer(Publisher& publisher, Mailbox& mailbox, Silences& silences,
                           Changed changed)
    : publisher_(publisher), mailbox_(mailbox), silences_(silences), changed_(std::move(changed)) {
  add_routes();
}

StatusServer::~StatusServer() {
  if (!thread_.joinable()) return;
  server_.stop();
  thread_.join();
}

bool StatusServer::start(const std::string& path, std::string& error) {
  if (!server_.open_at(path, error)) return false;
  thread_ = std::thread([this] { server_.listen_after_bind(); });
  // stop() has no effect on a server that does not run yet.
  while (!server_.is_running()) std::this_thread::yield();
  return true;
}

void StatusServer::ask(httplib::Response& response, std::function<Json()> request) {
  const auto answer = std::make_shared<std::promise<Json>>();
  std::future<Json> future = answer->get_future();
  const bool posted = mailbox_.post([answer, request = std::move(request)] {
    try {
      answer->set_value(request());
    } catch (...) {
      answer->set_exception(std::current_exception());
    }
  });
  if (!posted || future.wait_for(kToAnswer) != std::future_status::ready) {
    refuse(response, 503, "the monitor does not answer");
    return;
  }
  answer_with(response, 200, future.get());
}

void StatusServer::add_silence(const httplib::Request& request, Response& response) {
  const Json body = Json::parse(request.body, nullptr, false);
  const bool is_complete = body.is_object() && body.value("pattern", Json()).is_string() &&
                           body.value("for_seconds", Json()).is_number();
  if (!is_complete) {
    refuse(response, 400, "expected an object with pattern, for_seconds and reason");
    return;
  }
  const double seconds = body["for_seconds"].get<double>();
  constexpr double kMostSeconds = 31622400.0;  // a year
  if (!(seconds > 0.0 && seconds <= kMostSeconds)) {
    refuse(response, 400, "for_seconds is out of range, expected more than 0 and at most a year");
    return;
  }
  Silence silence;
  silence.pattern = body["pattern"].get<std::string>();
  silence.since = std::chrono::system_clock::now();
  silence.until = silence.since + std::chrono::duration_cast<WallTime::duration>(
                                      std::chrono::duration<double>(seconds));
  silence.reason =
      body.value("reason", Json()).is_string() ? body["reason"].get<std::string>() : "";
  ask(response, [this, silence] {
    if (!silences_.add(silence)) return Json{{"error", "there are too many silences"}};
    changed_();
    return json_of(silence);
  });
}

bool StatusServer::read(const httplib::Request& request, Response& response) {
  const Resource* const resource = find_resource(request.path);
  const bool is_watch = request.path.rfind(kWatchPath, 0) == 0;
  if (request.path == "/api/heartbeats") {
    const std::lock_guard lock(heartbeats_mutex_);
    answer_with(response, 200, heartbeats_.read());
    return true;
  }
  if (!resource && !is_watch) return false;
  const std::shared_ptr<const Snapshot> snapshot = publisher_.fresh(kToAnswer);
  if (!snapshot) {
    refuse(response, 503, "the monitor does not answer");
  } else if (resource) {
    response.status = 200;
    response.set_content(resource->text(*snapshot, request), resource->content_type);
  } else {
    answer_watch(*snapshot, request.path.substr(sizeof kWatchPath - 1), response);
  }
  return true;
}

void StatusServer::add_routes() {
  server_.set_pre_routing_handler([this](const httplib::Request& request, Response& response) {
    const bool reads = request.method == "GET" || request.method == "HEAD";
    return reads && read(request, response) ? httplib::Server::HandlerResponse::Handled
                                            : httplib::Server::HandlerResponse::Unhandled;
  });
  server_.Get("/api/silences", [this](const httplib::Request&, Response& response) {
    ask(response, [this] {
      Json all = Json::array();
      silences_.expire(std::chrono::system_clock::now());
      for (const Silence& silence : silences_.list()) all.push_back(json_of(silence));
      return all;
    });
  });
  server_.Post("/api/silences", [this](const httplib::Request& request, Response& response) {
    add_silence(request, response);
  });
  server_.Delete("/api/silences", [this](const httplib::Request& request, Response& response) {
    const std::string pattern = request.get_param_value("pattern");
    ask(response, [this, pattern] {
      const bool removed = silences_.remove(pattern).has_value();
      if (removed) changed_();
      return Json{{"removed", removed}};
    });
  });
}
