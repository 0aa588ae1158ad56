#include <cstdio>
#include <optional>
#include <string>

#include "command/commands.h"
#include "status/unix_client.h"
#include "text/complaint.h"
#include "text/json_text.h"
#include "text/terminal_text.h"

namespace {

// The body of the running monitor's answer. If there is none, prints the reason and returns
// nothing.
std::optional<Json> body_of(const httplib::Result& result, const std::string& socket) {
  if (!result) {
    complain("no monitor answers at " + socket + " (" + httplib::to_string(result.error()) +
             "), expected one that runs with [status] socket or --socket");
    return std::nullopt;
  }
  const Json body = Json::parse(result->body, nullptr, false);
  if (result->status == 200 && !body.is_discarded()) return body;
  complain("the monitor at " + socket + " refused: " +
           (body.is_object() ? body.value("error", "") : std::to_string(result->status)));
  return std::nullopt;
}

std::string shown(const Json& object, const char* key) {
  return printable(object.value(key, ""));
}

}  // namespace

int command_silence(const SilenceOptions& options) {
  UnixClient client(options.socket);
  const Json request{
      {"pattern", options.pattern}, {"for_seconds", options.for_s}, {"reason", options.reason}};
  const auto body =
      body_of(client.Post("/api/silences", json_text(request), "application/json"), options.socket);
  if (!body) return kExitFailed;
  std::printf("%s silenced until %s\n", shown(*body, "pattern").c_str(),
              shown(*body, "until").c_str());
  return kExitOk;
}

int command_silences(const std::string& socket, bool json) {
  UnixClient client(socket);
  const auto body = body_of(client.Get("/api/silences"), socket);
  if (!body) return kExitFailed;
  for (const Json& silence : *body) {
    if (json) {
      std::printf("%s\n", json_text(silence).c_str());
      continue;
    }
    std::printf("%s\n", joined_cells({left(shown(silence, "pattern"), 24), "until",
                                      shown(silence, "until"), shown(silence, "reason")})
                            .c_str());
  }
  return kExitOk;
}

int command_unsilence(const std::string& pattern, const std::string& socket) {
  UnixClient client(socket);
  const std::string path =
      "/api/silences?" + httplib::detail::params_to_query_str({{"pattern", pattern}});
  const auto body = body_of(client.Delete(path), socket);
  if (!body) return kExitFailed;
  if (body->value("removed", false)) return kExitOk;
  complain("there is no silence for \"" + pattern + "\"");
  return kExitFailed;
}
