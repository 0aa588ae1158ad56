#include "item/web_address.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace {

constexpr std::string_view kScheme = "http://";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kOfNumber = "0123456789ABCDEFabcdef:.";  // an IPv6 address
constexpr std::string_view kOfName =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz.-";

// Removes and returns the longest start of the text that consists of these characters.
std::string_view take_all_of(std::string_view characters, std::string_view& text) {
  const std::string_view taken = text.substr(0, text.find_first_not_of(characters));
  text.remove_prefix(taken.size());
  return taken;
}

bool take(char character, std::string_view& text) {
  const bool there = !text.empty() && text.front() == character;
  if (there) text.remove_prefix(1);
  return there;
}

// The host without brackets; empty if there is none.
std::string_view take_host(std::string_view& text) {
  if (!take('[', text)) return take_all_of(kOfName, text);
  const std::string_view number = take_all_of(kOfNumber, text);
  return take(']', text) ? number : "";
}

// False if the port is not valid.
bool take_port(std::string_view& text, int& port) {
  if (!take(':', text)) return true;
  const std::string_view digits = take_all_of(kDigits, text);
  const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  return read.ec == std::errc() && port >= 1 && port <= 65535;
}

bool can_stand_in_path(char c) {
  return c > ' ' && c <= '~' && c != '#';
}

}  // namespace

std::optional<WebAddress> read_web_address(const std::string& text) {
  std::string_view rest = text;
  if (rest.substr(0, kScheme.size()) != kScheme) return std::nullopt;
  rest.remove_prefix(kScheme.size());
  WebAddress address;
  address.host = take_host(rest);
  if (address.host.empty() || !take_port(rest, address.port)) return std::nullopt;
  if (rest.empty()) return address;
  const bool is_path = rest.front() == '/' || rest.front() == '?';
  if (!is_path || !std::all_of(rest.begin(), rest.end(), can_stand_in_path)) return std::nullopt;
  address.path = (rest.front() == '?' ? "/" : "") + std::string(rest);
  return address;
}
