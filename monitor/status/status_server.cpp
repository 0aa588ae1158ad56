#include "status/status_server.h"

#include <chrono>
#include <cstring>
#include <future>
#include <utility>

#include "item/instance.h"
#include "proc/replaced_file.h"
#include "status/api.h"
#include "status/host_header.h"
#include "status/page_files.h"
#include "status/resources.h"
#include "text/clock_text.h"
#include "text/wording.h"

namespace {

constexpr char kNoAnswer[] = "the scheduler does not answer";
constexpr char kSilencesPath[] = "/api/silences", kHeartbeatsPath[] = "/api/heartbeats",
               kHealthPath[] = "/healthz", kWatchPath[] = "/api/watch/";

// A browser shows data, but does nothing with it.
constexpr char kDataPolicy[] = "default-src 'none'; frame-ancestors 'none'";

void answer_with(httplib::Response& response, int status, const Json& body) {
  response.status = status;
  response.set_content(json_text(body) + "\n", kJsonType);
}

void refuse(httplib::Response& response, int status, const std::string& text) {
  answer_with(response, status, Json{{"error", text}});
}

bool is_public(const std::string& path) {
  const Resource* const resource = find_resource(path);
  return path == kHealthPath || (resource && resource->is_public);
}

}  // namespace

StatusRoutes::StatusRoutes(Publisher& publisher, Mailbox& mailbox, Silences& silences,
                           Changed changed, bool exposes_page)
    : publisher_(publisher),
      mailbox_(mailbox),
      silences_(silences),
      changed_(std::move(changed)),
      exposes_page_(exposes_page) {}

void StatusRoutes::answer(const Request& request, Response& response, Audience audience) {
  const bool reads = request.method == "GET" || request.method == "HEAD";
  if (audience == Audience::kMachine && !names_this_machine(request)) {
    refuse(response, 403, "the Host header does not name this machine");
  } else if (audience == Audience::kNetwork && !exposes_page_ && !is_public(request.path)) {
    refuse(response, 403,
           "other machines can read /metrics and /healthz only, unless [http] has "
           "expose = [\"page\"]");
  } else if (reads) {
    read(request, response);
  } else if (request.path != kSilencesPath) {
    response.set_header("Allow", "GET, HEAD");
    refuse(response, 405, "this path can only be read");
  } else if (audience != Audience::kOwner) {
    response.set_header("Allow", "GET, HEAD");
    refuse(response, 405, "silences can be changed over the Unix socket only");
  } else {
    change_silences(request, response);
  }
}

void StatusRoutes::read(const Request& request, Response& response) {
  const std::string& path = request.path;
  if (answer_with_page_file(path, response)) return;
  if (path == kHealthPath) return tell_health(response);
  if (path == kSilencesPath) return list_silences(response);
  if (path == kHeartbeatsPath) return answer_with(response, 200, heartbeats_.read());
  if (path.rfind(kWatchPath, 0) == 0)
    return read_watch(path.substr(std::strlen(kWatchPath)), response);
  const Resource* const resource = find_resource(path);
  if (!resource) return refuse(response, 404, "there is no " + in_quotes(path));
  const std::shared_ptr<const Snapshot> now = snapshot();
  if (!now) return refuse(response, 503, kNoAnswer);
  response.status = 200;
  response.set_header("Content-Security-Policy", kDataPolicy);
  response.set_content(resource->text(*now, request), resource->content_type);
}

void StatusRoutes::read_watch(const std::string& name, Response& response) {
  const std::shared_ptr<const Snapshot> now = snapshot();
  if (!now) return refuse(response, 503, kNoAnswer);
  const WatchView* const watch = find_watch(*now, name);
  if (!watch) return refuse(response, 404, "there is no watch " + in_quotes(name));
  answer_with(response, 200, watch_json(*watch));
}

void StatusRoutes::tell_health(Response& response) {
  const std::shared_ptr<const Snapshot> now = snapshot();
  const std::string reason = now ? now->trouble : kNoAnswer;
  if (reason.empty()) return answer_with(response, 200, Json{{"status", "ok"}});
  answer_with(response, 503, Json{{"status", "failing"}, {"reason", reason}});
}

std::shared_ptr<const Snapshot> StatusRoutes::snapshot() {
  if (!snapshot_) snapshot_ = publisher_.fresh(Publisher::kToAnswer);
  return *snapshot_;
}

void StatusRoutes::change_silences(const Request& request, Response& response) {
  if (request.method == "POST") {
    add_silence(request, response);
  } else if (request.method == "DELETE") {
    remove_silence(request.get_param_value("pattern"), response);
  } else {
    response.set_header("Allow", "GET, HEAD, POST, DELETE");
    refuse(response, 405, "silences can be read, added and removed");
  }
  snapshot_.reset();  // it was taken before the change
}

void StatusRoutes::list_silences(Response& response) {
  ask(response, [this] {
    Json all = Json::array();
    silences_.expire(std::chrono::system_clock::now());
    for (const Silence& silence : silences_.list()) all.push_back(json_of(silence));
    return all;
  });
}

void StatusRoutes::add_silence(const Request& request, Response& response) {
  const Json body = Json::parse(request.body, nullptr, false);
  const bool is_complete = body.is_object() && body.value("pattern", Json()).is_string() &&
                           body.value("for_seconds", Json()).is_number();
  if (!is_complete) {
    refuse(response, 400, "expected an object with pattern, for_seconds and reason");
    return;
  }
  const double seconds = body["for_seconds"].get<double>();
  if (!(seconds > 0.0 && seconds <= kMostSeconds)) {
    refuse(response, 400, "for_seconds is out of range, expected more than 0 and at most a year");
    return;
  }
  Silence silence;
  silence.pattern = body["pattern"].get<std::string>();
  silence.since = std::chrono::system_clock::now();
  silence.until = silence.since + std::chrono::duration_cast<WallTime::duration>(
                                      std::chrono::duration<double>(seconds));
  silence.reason = text_in(body, "reason").value_or("");
  ask(response, [this, silence] {
    if (!silences_.add(silence)) return Json{{"error", "there are too many silences"}};
    changed_();
    return json_of(silence);
  });
}

void StatusRoutes::remove_silence(const std::string& pattern, Response& response) {
  ask(response, [this, pattern] {
    const bool removed = silences_.remove(pattern).has_value();
    if (removed) changed_();
    return Json{{"removed", removed}};
  });
}

void StatusRoutes::ask(Response& response, std::function<Json()> request) {
  const auto answer = std::make_shared<std::promise<Json>>();
  std::future<Json> future = answer->get_future();
  const bool posted = mailbox_.post([answer, request = std::move(request)] {
    try {
      answer->set_value(request());
    } catch (...) {
      answer->set_exception(std::current_exception());
    }
  });
  if (!posted || future.wait_for(Publisher::kToAnswer) != std::future_status::ready) {
    return refuse(response, 503, kNoAnswer);
  }
  const Json body = future.get();
  answer_with(response, body.contains("error") ? 409 : 200, body);
}

StatusServer::~StatusServer() {
  // The thread of the server must not wait for answers that will never arrive.
  publisher_.close();
  mailbox_.close();
  server_.reset();
  if (!path_.empty()) remove_file(FilePlace(path_));
}

bool StatusServer::start(const Plan& plan, Silences& silences, StatusRoutes::Changed changed,
                         std::string& error) {
  std::vector<Listener> listeners;
  if (!plan.status_socket.empty()) {
    std::optional<Listener> listener = listen_at_path(plan.status_socket, error);
    if (!listener) return false;
    path_ = plan.status_socket;
    listeners.push_back(std::move(*listener));
  }
  if (plan.http) {
    std::optional<Listener> listener = listen_at_address(plan.http->address, error);
    if (!listener) return false;
    listeners.push_back(std::move(*listener));
  }
  routes_.emplace(publisher_, mailbox_, silences, std::move(changed),
                  plan.http && plan.http->exposes_page);
  server_.emplace(
      std::move(listeners),
      [this](const httplib::Request& request, httplib::Response& response, Audience audience) {
        routes_->answer(request, response, audience);
      },
      [this] { routes_->begin_round(); });
  if (!server_->ready()) error = std::string("the status interface: ") + std::strerror(errno);
  return server_->ready();
}

size_t StatusServer::most_descriptors() const {
  return server_ ? server_->most_descriptors() : 0;
}
