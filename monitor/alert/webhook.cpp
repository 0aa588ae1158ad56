#include "alert/webhook.h"

#include <fcntl.h>
#include <httplib.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <mutex>
#include <system_error>
#include <thread>

#include "item/web_address.h"
#include "text/end_text.h"

namespace {

using Clock = std::chrono::steady_clock;

// The maximum size of an answer's body, which is ignored. If a server sends more, the connection is
// closed.
constexpr uint64_t kMostBody = 65536;

// Ends an exchange when its time is over or the program ends, because a server that sends single
// bytes slowly never exceeds the other time limits. A separate thread shuts down the socket.
class ExchangeLimit {
 public:
  ExchangeLimit(const Wake& stop, std::chrono::milliseconds limit)
      : stop_(stop), deadline_(Clock::now() + limit), thread_([this] { watch(); }) {}
  ExchangeLimit& operator=(ExchangeLimit&&) = delete;  // neither copied nor moved
  ~ExchangeLimit() {
    done_.set();
    thread_.join();
  }

  // Sets the current socket.
  void set_socket(int socket) {
    UniqueFd own(fcntl(socket, F_DUPFD_CLOEXEC, 0));
    const std::lock_guard lock(mutex_);
    socket_ = std::move(own);
  }

  bool has_socket() const {
    const std::lock_guard lock(mutex_);
    return socket_.get() >= 0;
  }

 private:
  bool done_by(Clock::time_point time, int further_fd) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
    pollfd events[] = {{done_.fd(), POLLIN, 0}, {further_fd, POLLIN, 0}};
    poll(events, 2, static_cast<int>(std::clamp<long>(left, 0, INT_MAX)));
    return events[0].revents != 0;
  }

  void watch() const {
    if (done_by(deadline_, stop_.fd())) return;
    // Repeatedly, because a host may have several addresses, each with its own socket.
    do shut_down();
    while (!done_by(Clock::now() + std::chrono::milliseconds(10), -1));
  }

  void shut_down() const {
    const std::lock_guard lock(mutex_);
    if (socket_.get() >= 0) shutdown(socket_.get(), SHUT_RDWR);
  }

  const Wake& stop_;
  const Clock::time_point deadline_;
  const Wake done_;
  mutable std::mutex mutex_;
  UniqueFd socket_{-1};
  std::thread thread_;
};

std::string reason(httplib::Error error, bool had_address, const AlertLimits& limits) {
  switch (error) {
    case httplib::Error::Connection:
      return had_address ? "cannot connect" : "the host has no address";
    case httplib::Error::ConnectionTimeout:
      return "no connection within " + duration_text(limits.to_connect);
    case httplib::Error::Read:
      return "no answer";
    case httplib::Error::Write:
      return "cannot send the request";
    default:
      return httplib::to_string(error);
  }
}

Delivery judge(int status) {
  if (status >= 200 && status < 300) return {};
  const bool may_change = status >= 500;
  return {may_change ? Delivery::Result::kRetry : Delivery::Result::kFailed,
          "the server answered " + std::to_string(status)};
}

httplib::Client client_for(const WebAddress& address, const AlertLimits& limits) {
  httplib::Client client(address.host, address.port);
  client.set_connection_timeout(limits.to_connect);
  client.set_read_timeout(limits.to_answer);
  client.set_write_timeout(limits.to_answer);
  client.set_decompress(false);
  client.set_url_encode(false);
  return client;
}

// The status of the answer; 0, with the error, if there is no answer.
int post(httplib::Client& client, const std::string& path, const std::string& body,
         httplib::Error& error) {
  int status = 0;
  httplib::Request request;
  request.method = "POST";
  request.path = path;
  request.set_header("Content-Type", "application/json");
  request.body = body;
  request.response_handler = [&](const httplib::Response& response) {
    status = response.status;
    return true;
  };
  request.content_receiver = [](const char*, size_t, uint64_t offset, uint64_t) {
    return offset < kMostBody;
  };
  const httplib::Result result = client.send(request);
  error = result.error();
  return result ? result->status : status;
}

}  // namespace

Delivery post_to_webhook(const Alert& alert, const AlertMessage& message, const Wake& stop,
                         const AlertLimits& limits) try {
  const std::optional<WebAddress> address = read_web_address(alert.webhook);
  if (!address) return {Delivery::Result::kFailed, "not an http address: " + alert.webhook};
  httplib::Client client = client_for(*address, limits);
  ExchangeLimit limit(stop, limits.overall);
  client.set_socket_options([&](int socket) { limit.set_socket(socket); });
  httplib::Error error{};
  const int status = post(client, address->path, message.json, error);
  if (status != 0) return judge(status);
  return {Delivery::Result::kRetry, reason(error, limit.has_socket(), limits)};
} catch (const std::system_error& error) {  // no thread
  return {Delivery::Result::kRetry, error.what()};
}
