// [status] and [http]: where the running monitor answers.
#include <sys/un.h>

#include "config/config_parts.h"
#include "text/wording.h"

std::string read_status_socket(TomlFields& fields) {
  constexpr char kPathForm[] = "an absolute path";
  constexpr size_t kLongestPath = sizeof sockaddr_un::sun_path - 1;
  const toml::table* const table = fields.table("status", "a table [status]");
  if (!table) return "";
  TomlFields own = fields.within(*table, "[status]");
  std::string path = own.text("socket", TomlFields::Presence::kRequired).value_or("");
  if (own.has("socket") && (path.empty() || path.front() != '/' || path.size() > kLongestPath)) {
    own.mistake(own.line("socket"), "socket is " + in_quotes(path) + ", expected " + kPathForm +
                                        " of at most " + std::to_string(kLongestPath) + " bytes");
  }
  own.refuse_other_keys();
  return path;
}

std::optional<HttpPlan> read_http(TomlFields& fields) {
  constexpr char kListenForm[] = "an IP address and a port, such as \"127.0.0.1:9757\"";
  constexpr char kExposeForm[] = "an array of \"page\"";
  const toml::table* const table = fields.table("http", "a table [http]");
  if (!table) return std::nullopt;
  TomlFields own = fields.within(*table, "[http]");
  const auto listen = own.text("listen", TomlFields::Presence::kRequired);
  HttpPlan http;
  for (const std::string& what : own.texts("expose", kExposeForm)) {
    http.exposes_page = true;
    if (what == "page") continue;
    own.mistake(own.line("expose"), "expose has " + in_quotes(what) + ", expected " + kExposeForm);
  }
  own.refuse_other_keys();
  if (!listen) return std::nullopt;
  const std::optional<HttpAddress> address = read_http_address(*listen);
  if (!address) {
    own.mistake(own.line("listen"), "listen is " + in_quotes(*listen) + ", expected " +
                                        kListenForm + " or \"[::1]:9757\"");
    return std::nullopt;
  }
  if (address->is_loopback && http.exposes_page) {
    own.warning(own.line("expose"),
                "expose has no effect: " + *listen + " can be reached from this machine only");
  }
  http.address = *address;
  return http;
}
