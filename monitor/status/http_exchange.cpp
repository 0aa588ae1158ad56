#include "status/http_exchange.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace {

constexpr std::string_view kEndOfHead = "\r\n\r\n";

// A request in memory to read from, a response in memory to write to.
class MemoryStream final : public httplib::Stream {
 public:
  explicit MemoryStream(std::string request) : unread_(std::move(request)) {}

  bool is_readable() const override { return position_ < unread_.size(); }
  bool is_writable() const override { return true; }
  ssize_t read(char* to, size_t size) override {
    const size_t count = unread_.copy(to, size, position_);
    position_ += count;
    return static_cast<ssize_t>(count);
  }
  ssize_t write(const char* from, size_t size) override {
    written_.append(from, size);
    return static_cast<ssize_t>(size);
  }
  void get_remote_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
  void get_local_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
  socket_t socket() const override { return -1; }

  std::string take_written() { return std::move(written_); }

 private:
  const std::string unread_;
  size_t position_ = 0;
  std::string written_;
};

bool has_name(std::string_view line, std::string_view name) {
  return line.size() > name.size() && line[name.size()] == ':' &&
         strncasecmp(line.data(), name.data(), name.size()) == 0;
}

// Calls `use` with each line of the head, its end included, until that returns false. A line ends
// where the HTTP library ends it, which can be a line feed alone.
template <typename Use>
void for_each_line(std::string_view head, const Use& use) {
  while (!head.empty()) {
    const size_t length = std::min(head.find('\n'), head.size() - 1) + 1;
    if (!use(head.substr(0, length))) return;
    head.remove_prefix(length);
  }
}

// The length of the body; more than is allowed if the header is not a number.
size_t body_length(std::string_view head) {
  constexpr std::string_view kName = "content-length";
  size_t length = 0;
  for_each_line(head, [&](std::string_view line) {
    if (!has_name(line, kName)) return true;
    line.remove_prefix(kName.size() + 1);
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const auto read = std::from_chars(line.data(), line.data() + line.size(), length);
    if (read.ec != std::errc()) length = kMostBodyBytes + 1;
    return false;
  });
  return length;
}

// Removes headers that only cost time: there are no partial responses, compression takes longer
// than the transfer, and the body has already arrived.
std::string without_extras(std::string_view head) {
  constexpr std::string_view kExtras[] = {"range", "accept-encoding", "expect"};
  std::string kept;
  for_each_line(head, [&](std::string_view line) {
    const bool is_extra = std::any_of(std::begin(kExtras), std::end(kExtras),
                                      [&](std::string_view name) { return has_name(line, name); });
    if (!is_extra) kept += line;
    return true;
  });
  return kept;
}

}  // namespace

RequestExtent extent_of(std::string_view arrived) {
  using Arrived = RequestExtent::Arrived;
  const size_t end = arrived.substr(0, kMostHeadBytes).find(kEndOfHead);
  if (end == std::string_view::npos) {
    return {arrived.size() < kMostHeadBytes ? Arrived::kIncomplete : Arrived::kTooLarge};
  }
  const size_t head = end + kEndOfHead.size(), body = body_length(arrived.substr(0, head));
  if (body > kMostBodyBytes) return {Arrived::kTooLarge};
  return {arrived.size() < head + body ? Arrived::kIncomplete : Arrived::kComplete, head, body};
}

HttpExchange::HttpExchange() {
  set_default_headers({{"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}});
  set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
    (*handler_)(request, response);
    return HandlerResponse::Handled;
  });
  set_exception_handler([](const httplib::Request&, httplib::Response& response,
                           const std::exception_ptr&) { response.status = 500; });
}

std::string HttpExchange::respond(std::string_view head, std::string_view body,
                                  const Handler& handler) {
  MemoryStream stream(without_extras(head));
  handler_ = &handler;
  bool is_closed = true;
  process_request(stream, true, is_closed,
                  [&](httplib::Request& request) { request.body = std::string(body); });
  handler_ = nullptr;
  return stream.take_written();
}

std::string refusal_of_size() {
  return "HTTP/1.1 431 Request Header Fields Too Large\r\nConnection: close\r\n"
         "Content-Length: 0\r\n\r\n";
}
