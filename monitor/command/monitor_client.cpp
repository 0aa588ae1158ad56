#include "command/monitor_client.h"

#include "status/unix_client.h"
#include "text/complaint.h"
#include "text/terminal_text.h"

std::string answer_trouble(const httplib::Result& result, const std::string& socket) {
  if (!result) {
    return "no monitor answers at " + socket + " (" + httplib::to_string(result.error()) +
           "), expected one that runs with [status] socket or --socket";
  }
  const Json body = Json::parse(result->body, nullptr, false);
  if (result->status == 200 && !body.is_discarded()) return "";
  return "the monitor at " + socket +
         " refused: " + text_in(body, "error").value_or(std::to_string(result->status));
}

std::optional<Json> body_of(const httplib::Result& result, const std::string& socket) {
  const std::string trouble = answer_trouble(result, socket);
  if (trouble.empty()) return Json::parse(result->body);
  complain(trouble);
  return std::nullopt;
}

httplib::Result ask_monitor(const std::string& socket, const std::string& path) {
  UnixClient client(socket);
  return client.Get(path);
}

std::string watch_path(const std::string& name) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string path = "/api/watch/";
  for (const char letter : name) {
    const auto byte = static_cast<unsigned char>(letter);
    path += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return path;
}

const Json& member(const Json& object, const char* key) {
  static const Json kNothing;
  const Json* const found = value_in(object, key);
  return found ? *found : kNothing;
}

std::string shown(const Json& object, const char* key) {
  return printable(text_in(object, key).value_or(""));
}
