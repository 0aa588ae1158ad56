// Answers requests to the running monitor over a Unix socket.
#ifndef MONITOR_STATUS_SERVER_H
#define MONITOR_STATUS_SERVER_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "alert/silences.h"
#include "run/mailbox.h"
#include "state/publisher.h"
#include "status/heartbeat_json.h"
#include "status/unix_http.h"
#include "text/json_text.h"

class StatusServer {
 public:
  // Called on the scheduler's thread after each change of the silences.
  using Changed = std::function<void()>;

  // All of them must outlive the server. The silences belong to the scheduler's thread.
  StatusServer(Publisher& publisher, Mailbox& mailbox, Silences& silences, Changed changed);
  ~StatusServer();
  StatusServer(const StatusServer&) = delete;
  StatusServer& operator=(const StatusServer&) = delete;

  // Starts to answer on this socket. False, with the reason in `error`, on failure.
  bool start(const std::string& path, std::string& error);

 private:
  using Response = httplib::Response;

  void add_routes();
  // False if the path is not one of those that are answered from a snapshot.
  bool read(const httplib::Request& request, Response& response);
  // Runs the request on the scheduler's thread and waits for its answer, the body of the response.
  void ask(Response& response, std::function<Json()> request);
  void add_silence(const httplib::Request& request, Response& response);

  Publisher& publisher_;
  Mailbox& mailbox_;
  Silences& silences_;
  const Changed changed_;
  std::mutex heartbeats_mutex_;
  HeartbeatReader heartbeats_;
  UnixServer server_;
  std::thread thread_;
};

#endif
