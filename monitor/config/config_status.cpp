// Reads [status]: the socket of the running monitor.
#include <sys/un.h>

#include "config/config_parts.h"
#include "text/wording.h"

std::string read_status_socket(TomlFields& fields) {
  constexpr char kPathForm[] = "an absolute path";
  constexpr size_t kMostBytes = sizeof sockaddr_un::sun_path - 1;
  const toml::table* const table = fields.table("status", "a table [status]");
  if (!table) return "";
  TomlFields own = fields.within(*table, "[status]");
  const std::string path = own.text("socket", TomlFields::Presence::kRequired).value_or("");
  if (own.has("socket") && (path.empty() || path.front() != '/' || path.size() > kMostBytes)) {
    own.mistake(own.line("socket"), "socket is " + in_quotes(path) + ", expected " + kPathForm +
                                        " of at most " + std::to_string(kMostBytes) + " bytes");
  }
  own.refuse_other_keys();
  return path;
}
