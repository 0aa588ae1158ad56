// The running monitor as others see it, over a Unix socket: silences now, its state later.
#ifndef MONITOR_STATUS_SERVER_H
#define MONITOR_STATUS_SERVER_H

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "alert/silences.h"
#include "run/mailbox.h"
#include "status/unix_http.h"
#include "text/json_text.h"

class StatusServer {
 public:
  // Called on the scheduler's thread after each change of the silences.
  using Changed = std::function<void()>;

  // The mailbox, and the silences, which belong to the scheduler's thread, must outlive the server.
  StatusServer(Mailbox& mailbox, Silences& silences, Changed changed);
  ~StatusServer();
  StatusServer(const StatusServer&) = delete;
  StatusServer& operator=(const StatusServer&) = delete;

  // Starts to answer at this socket. On failure false, and `error` says why.
  bool start(const std::string& path, std::string& error);

 private:
  using Response = httplib::Response;

  void add_routes();
  // Has the scheduler's thread do it and waits for the answer, which is the response's body.
  void ask(Response& response, std::function<Json()> request);
  void add_silence(const httplib::Request& request, Response& response);

  Mailbox& mailbox_;
  Silences& silences_;
  const Changed changed_;
  UnixServer server_;
  std::thread thread_;
};

#endif
