#include "item/http_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <charconv>
#include <cstring>

namespace {

std::optional<uint16_t> read_port(const std::string& text) {
  uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || stop != end || port == 0) return std::nullopt;
  return port;
}

template <typename Address>
void keep(const Address& from, HttpAddress& to) {
  std::memcpy(&to.socket_address, &from, sizeof from);
  to.length = sizeof from;
}

bool keep_v4(const std::string& host, uint16_t port, HttpAddress& address) {
  sockaddr_in v4{};
  v4.sin_family = AF_INET;
  v4.sin_port = htons(port);
  if (inet_pton(AF_INET, host.c_str(), &v4.sin_addr) != 1) return false;
  keep(v4, address);
  return true;
}

bool keep_v6(const std::string& host, uint16_t port, HttpAddress& address) {
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  v6.sin6_port = htons(port);
  if (inet_pton(AF_INET6, host.c_str(), &v6.sin6_addr) != 1) return false;
  keep(v6, address);
  return true;
}

}  // namespace

std::optional<HttpAddress> read_http_address(const std::string& text) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  const std::optional<uint16_t> port = read_port(text.substr(colon + 1));
  if (!port) return std::nullopt;
  std::string host = text.substr(0, colon);
  const bool in_brackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (in_brackets) host = host.substr(1, host.size() - 2);
  HttpAddress address;
  address.text = text;
  address.is_loopback = is_loopback_address(host);
  const bool is_kept = in_brackets ? keep_v6(host, *port, address) : keep_v4(host, *port, address);
  return is_kept ? std::optional(address) : std::nullopt;
}

bool is_loopback_address(const std::string& address) {
  in_addr v4{};
  if (inet_pton(AF_INET, address.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
  in6_addr v6{};
  return inet_pton(AF_INET6, address.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}
