#include "status/http_server.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>

#include "proc/descriptors.h"
#include "text/log_lines.h"

namespace {

using Clock = std::chrono::steady_clock;
using Phase = HttpConnection::Phase;

// If the processors are busy, calls of items have priority.
constexpr int kNice = 5;

// The share of the free descriptors that the connections of one listener can use.
constexpr size_t kShare = 8, kLeastConnections = 4;

// The pause when the system has no descriptor or no memory for the server.
constexpr std::chrono::milliseconds kPauseWhenShort{100};

bool would_wait() {
  return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

size_t most_connections() {
  return std::clamp(free_descriptors() / kShare, kLeastConnections, HttpServer::kMostConnections);
}

}  // namespace

void HttpConnection::abandon() {
  if (phase_ == Phase::kEnded) return;
  phase_ = Phase::kEnded;
  request_ = response_ = std::string();
  sent_ = 0;
  const linger none{1, 0};  // the kernel must not keep the rest of the response either
  setsockopt(fd(), SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

short HttpConnection::events() const {
  return phase_ == Phase::kWrites ? POLLOUT : POLLIN;
}

void HttpConnection::go_on() {
  if (phase_ == Phase::kReads) read_request();
  if (phase_ == Phase::kWrites) write_response();
  if (phase_ == Phase::kLingers) drain();
}

void HttpConnection::read_request() {
  using Arrived = RequestExtent::Arrived;
  while (extent_.arrived == Arrived::kIncomplete) {
    char buffer[4096];
    const ssize_t got = recv(fd(), buffer, sizeof buffer, 0);
    if (got < 0 && would_wait()) return;
    if (got <= 0) {
      phase_ = Phase::kEnded;
      return;
    }
    request_.append(buffer, static_cast<size_t>(got));
    extent_ = extent_of(request_);
  }
  phase_ = Phase::kHasRequest;
  if (extent_.arrived == Arrived::kTooLarge) answer(refusal_of_size(), Clock::now());
}

void HttpConnection::answer(std::string response, Clock::time_point now) {
  request_ = std::string();
  response_ = std::move(response);
  deadline_ = now + kToTake;
  phase_ = Phase::kWrites;
  go_on();
}

void HttpConnection::write_response() {
  while (unsent() > 0) {
    const ssize_t sent = send(fd(), response_.data() + sent_, unsent(), MSG_NOSIGNAL);
    if (sent < 0 && would_wait()) return;
    if (sent < 0) {
      phase_ = Phase::kEnded;
      return;
    }
    sent_ += static_cast<size_t>(sent);
  }
  response_ = std::string();
  sent_ = 0;
  shutdown(fd(), SHUT_WR);
  phase_ = Phase::kLingers;
}

// Reads until the client closes its side, because then the client has everything. If a connection
// is closed while it has unread bytes, the kernel discards what was sent.
void HttpConnection::drain() {
  char buffer[4096];
  while (drained_ <= kMostBodyBytes) {
    const ssize_t got = recv(fd(), buffer, sizeof buffer, 0);
    if (got < 0 && would_wait()) return;
    if (got <= 0) {
      phase_ = Phase::kEnded;
      return;
    }
    drained_ += static_cast<size_t>(got);
  }
  abandon();
}

HttpServer::HttpServer(std::vector<Listener> listeners, Handler handler,
                       std::function<void()> begin_round)
    : listeners_(std::move(listeners)),
      handler_(std::move(handler)),
      begin_round_(std::move(begin_round)),
      most_(most_connections()),
      is_readable_(listeners_.size()) {
  if (!ending_.ready()) {
    errno = ending_.error();
    return;
  }
  try {
    thread_ = std::thread([this] { serve(); });
  } catch (const std::exception&) {  // no thread, or no memory for one
    errno = EAGAIN;
  }
}

HttpServer::~HttpServer() {
  if (!ready()) return;
  ending_.set();
  thread_.join();
}

void HttpServer::serve() {
  setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice);
  for (bool goes_on = true; goes_on;) {
    try {
      goes_on = serve_once();
      if (refused_ > 0) tell_refused();
    } catch (const std::bad_alloc&) {
      go_without_memory();
    }
  }
}

// False at the end.
bool HttpServer::serve_once() {
  if (!wait()) return false;
  for (size_t i = 0; i < listeners_.size(); ++i) {
    if (is_readable_[i]) accept_from(i);
  }
  go_on(Clock::now());
  answer_all();
  return true;
}

// Requests need memory, so those without an answer are dropped; their clients can ask again.
void HttpServer::go_without_memory() noexcept {
  connections_.remove_if([this](const HttpConnection& connection) {
    const bool waits =
        connection.phase() == Phase::kReads || connection.phase() == Phase::kHasRequest;
    if (waits) ++refused_;
    return waits;
  });
  pollfd ending{ending_.fd(), POLLIN, 0};
  poll(&ending, 1, static_cast<int>(kPauseWhenShort.count()));
}

void HttpServer::tell_refused() {
  log_line("error", "out of memory: " + std::to_string(refused_) + " requests were not answered");
  refused_ = 0;
}

// Waits for the next event. False at the end.
bool HttpServer::wait() {
  std::vector<pollfd> fds{{ending_.fd(), POLLIN, 0}};
  for (const Listener& listener : listeners_) fds.push_back({listener.socket.get(), POLLIN, 0});
  auto next = Clock::time_point::max();
  for (const HttpConnection& connection : connections_) {
    fds.push_back({connection.fd(), connection.events(), 0});
    next = std::min(next, connection.deadline());
  }
  int timeout_ms = -1;
  if (!connections_.empty()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
    timeout_ms = static_cast<int>(std::max<long>(left.count(), 0));
  }
  if (poll(fds.data(), fds.size(), timeout_ms) < 0 && errno != EINTR) {
    std::this_thread::sleep_for(kPauseWhenShort);
  }
  for (size_t i = 0; i < listeners_.size(); ++i) is_readable_[i] = fds[1 + i].revents != 0;
  return fds[0].revents == 0;
}

void HttpServer::accept_from(size_t listener) {
  for (size_t i = 0; i < most_; ++i) {
    UniqueFd socket(
        accept4(listeners_[listener].socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket.get() < 0) {
      if (!would_wait() && errno != ECONNABORTED) {
        std::this_thread::sleep_for(kPauseWhenShort);
      }
      return;
    }
    make_room(listener);
    connections_.emplace_back(std::move(socket), listener, Clock::now());
  }
}

// Closes the oldest connection of the listener if there is no room for one more. A normal client
// has its response long before its connection is the oldest.
void HttpServer::make_room(size_t listener) {
  const auto is_of_listener = [&](const HttpConnection& each) {
    return each.listener() == listener;
  };
  const auto count = std::count_if(connections_.begin(), connections_.end(), is_of_listener);
  if (static_cast<size_t>(count) < most_) return;
  connections_.erase(std::find_if(connections_.begin(), connections_.end(), is_of_listener));
}

void HttpServer::go_on(Clock::time_point now) {
  for (HttpConnection& connection : connections_) connection.go_on();
  connections_.remove_if([&](const HttpConnection& connection) {
    return connection.phase() == Phase::kEnded || connection.deadline() <= now;
  });
}

void HttpServer::answer_all() {
  const auto has_request = [](const HttpConnection& connection) {
    return connection.phase() == Phase::kHasRequest;
  };
  if (std::none_of(connections_.begin(), connections_.end(), has_request)) return;
  begin_round_();
  for (HttpConnection& connection : connections_) {
    if (!has_request(connection)) continue;
    answer(connection);
    limit_unsent();
  }
}

void HttpServer::answer(HttpConnection& connection) {
  const Audience audience = listeners_[connection.listener()].audience;
  std::string response =
      exchange_.respond(connection.head(), connection.body(),
                        [&](const httplib::Request& request, httplib::Response& result) {
                          handler_(request, result, audience);
                        });
  connection.answer(std::move(response), Clock::now());
}

void HttpServer::limit_unsent() {
  size_t total = 0;
  for (auto connection = connections_.rbegin(); connection != connections_.rend(); ++connection) {
    const size_t unsent = connection->unsent();
    if (total > 0 && total + unsent > kMostUnsentBytes) connection->abandon();
    total += connection->unsent();
  }
}
