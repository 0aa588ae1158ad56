// Answers requests to the running monitor, over a Unix socket and over TCP.
#ifndef MONITOR_STATUS_SERVER_H
#define MONITOR_STATUS_SERVER_H

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "alert/silences.h"
#include "item/plan.h"
#include "run/mailbox.h"
#include "state/publisher.h"
#include "status/heartbeat_json.h"
#include "status/http_server.h"
#include "text/json_text.h"

// What the monitor answers to whom. For one thread, except the constructor.
class StatusRoutes {
 public:
  // Called on the scheduler's thread after each change of the silences.
  using Changed = std::function<void()>;

  // All of them must outlive this object. The silences belong to the scheduler's thread.
  StatusRoutes(Publisher& publisher, Mailbox& mailbox, Silences& silences, Changed changed,
               bool exposes_page);

  // Call it before the requests that have arrived together: they share one snapshot.
  void begin_round() { snapshot_.reset(); }

  void answer(const httplib::Request& request, httplib::Response& response, Audience audience);

 private:
  using Request = httplib::Request;
  using Response = httplib::Response;

  void read(const Request& request, Response& response);
  void read_watch(const std::string& name, Response& response);
  void tell_health(Response& response);
  // The snapshot of this round; null if the scheduler does not answer.
  std::shared_ptr<const Snapshot> snapshot();
  void change_silences(const Request& request, Response& response);
  void list_silences(Response& response);
  void add_silence(const Request& request, Response& response);
  void remove_silence(const std::string& pattern, Response& response);
  // Runs the request on the scheduler's thread and waits for its answer, the body of the response.
  // An answer with "error" is a refusal.
  void ask(Response& response, std::function<Json()> request);

  Publisher& publisher_;
  Mailbox& mailbox_;
  Silences& silences_;
  const Changed changed_;
  const bool exposes_page_;
  std::optional<std::shared_ptr<const Snapshot>> snapshot_;
  HeartbeatReader heartbeats_;
};

class StatusServer {
 public:
  // Ends the server when the monitor ends. Both must outlive it.
  StatusServer(Publisher& publisher, Mailbox& mailbox) : publisher_(publisher), mailbox_(mailbox) {}
  ~StatusServer();
  StatusServer(const StatusServer&) = delete;
  StatusServer& operator=(const StatusServer&) = delete;

  // Starts to answer where the plan says. False, with the reason in `error`, on failure.
  bool start(const Plan& plan, Silences& silences, StatusRoutes::Changed changed,
             std::string& error);

  // Descriptors that clients can use.
  size_t most_descriptors() const;

 private:
  Publisher& publisher_;
  Mailbox& mailbox_;
  std::string path_;  // of the Unix socket, once it is there
  std::optional<StatusRoutes> routes_;
  std::optional<HttpServer> server_;
};

#endif
