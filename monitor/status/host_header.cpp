#include "status/host_header.h"

#include <strings.h>

#include <string>

#include "item/http_address.h"

namespace {

// "[::1]:9757" -> "::1", "localhost:9757" -> "localhost"
std::string without_port(const std::string& host) {
  if (host.rfind('[', 0) != 0) return host.substr(0, host.rfind(':'));
  const size_t end = host.find(']');
  return end == std::string::npos ? host : host.substr(1, end - 1);
}

}  // namespace

bool names_this_machine(const httplib::Request& request) {
  if (!request.has_header("Host")) return true;
  const std::string name = without_port(request.get_header_value("Host"));
  return strcasecmp(name.c_str(), "localhost") == 0 || is_loopback_address(name);
}
