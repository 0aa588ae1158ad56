// Serves HTTP to many clients, of which any number can be slow or hostile.
#ifndef MONITOR_HTTP_SERVER_H
#define MONITOR_HTTP_SERVER_H

#include <chrono>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "proc/wake.h"
#include "status/http_exchange.h"
#include "status/http_listener.h"

// One connection: one request, one response. Never waits for its client.
class HttpConnection {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Phase { kReads, kHasRequest, kWrites, kLingers, kEnded };

  // The client must send its request within kToAsk, and read the response within kToTake.
  static constexpr std::chrono::seconds kToAsk{5}, kToTake{10};

  HttpConnection(UniqueFd socket, size_t listener, Clock::time_point now)
      : socket_(std::move(socket)), listener_(listener), deadline_(now + kToAsk) {}
  ~HttpConnection() { abandon(); }
  HttpConnection(const HttpConnection&) = delete;
  HttpConnection& operator=(const HttpConnection&) = delete;

  int fd() const { return socket_.get(); }
  size_t listener() const { return listener_; }  // its index
  Phase phase() const { return phase_; }
  short events() const;  // to wait for, as poll() has them
  Clock::time_point deadline() const { return deadline_; }
  size_t unsent() const { return response_.size() - sent_; }

  // Reads or writes what is possible now.
  void go_on();

  // Ends the connection. The client loses the rest of the response.
  void abandon();

  // Call them in Phase::kHasRequest: the request, and what the client gets for it.
  std::string_view head() const { return std::string_view(request_).substr(0, extent_.head); }
  std::string_view body() const {
    return std::string_view(request_).substr(extent_.head, extent_.body);
  }
  void answer(std::string response, Clock::time_point now);

 private:
  void read_request();
  void write_response();
  void drain();

  const UniqueFd socket_;
  const size_t listener_;
  Clock::time_point deadline_;
  Phase phase_ = Phase::kReads;
  std::string request_, response_;
  RequestExtent extent_{RequestExtent::Arrived::kIncomplete};
  size_t sent_ = 0, drained_ = 0;
};

// A thread that serves all connections. Memory and descriptors are bounded: when there are too many
// connections, or they have too much to send, the oldest one is closed.
class HttpServer {
 public:
  using Clock = std::chrono::steady_clock;
  using Handler = std::function<void(const httplib::Request&, httplib::Response&, Audience)>;

  // The limit for each listener, if there are enough descriptors.
  static constexpr size_t kMostConnections = 100;
  // The limit for all responses that clients have not read yet; a single one can be larger.
  static constexpr size_t kMostUnsentBytes = size_t{32} << 20;

  // Everything runs on the thread of the server. `begin_round` is called before the requests that
  // have arrived together.
  HttpServer(std::vector<Listener> listeners, Handler handler, std::function<void()> begin_round);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // False, with errno set, if the thread could not be started.
  bool ready() const { return thread_.joinable(); }

  // How many descriptors the connections can use.
  size_t most_descriptors() const { return listeners_.size() * most_; }

 private:
  void serve();
  bool serve_once();
  void go_without_memory() noexcept;
  void tell_refused();
  bool wait();
  void accept_from(size_t listener);
  void make_room(size_t listener);
  void go_on(Clock::time_point now);
  void answer_all();
  void answer(HttpConnection& connection);
  void limit_unsent();

  const std::vector<Listener> listeners_;
  const Handler handler_;
  const std::function<void()> begin_round_;
  const size_t most_;  // connections of one listener
  HttpExchange exchange_;
  Wake ending_;
  std::list<HttpConnection> connections_;  // the oldest one first
  std::vector<bool> is_readable_;          // of the listeners
  size_t refused_ = 0;                     // requests without an answer, not logged yet
  std::thread thread_;
};

#endif
