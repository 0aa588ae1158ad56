// One HTTP request and its response, both in memory.
#ifndef MONITOR_HTTP_EXCHANGE_H
#define MONITOR_HTTP_EXCHANGE_H

#include <httplib.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

// The end of a request in the bytes that have arrived.
struct RequestExtent {
  enum class Arrived { kIncomplete, kComplete, kTooLarge };

  Arrived arrived;
  size_t head = 0, body = 0;  // bytes
};

// Limits of a request. The HTTP library has the same limit for one line.
constexpr size_t kMostHeadBytes = 8192, kMostBodyBytes = 65536;

RequestExtent extent_of(std::string_view arrived);

// Parses requests and writes responses with the HTTP library, without its sockets and threads. For
// one thread.
class HttpExchange : private httplib::Server {
 public:
  using Handler = std::function<void(const httplib::Request& request, httplib::Response& response)>;

  HttpExchange();

  // The bytes of the response to a complete request. The handler has the body of the request; it is
  // not called for text that is not HTTP. The connection must then be closed.
  std::string respond(std::string_view head, std::string_view body, const Handler& handler);

 private:
  const Handler* handler_ = nullptr;  // of the request that is answered now
};

// The response to a request that is too large.
std::string refusal_of_size();

#endif
