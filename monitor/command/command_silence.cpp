#include <cstdio>
#include <string>

#include "command/commands.h"
#include "command/monitor_client.h"
#include "status/unix_client.h"
#include "text/complaint.h"
#include "text/json_text.h"
#include "text/terminal_text.h"

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
  const auto body = body_of(ask_monitor(socket, "/api/silences"), socket);
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
