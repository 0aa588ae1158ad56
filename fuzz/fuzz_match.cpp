// The matcher in its three modes; wildcard mode is compared with a direct implementation of the
// rules.
#include <algorithm>
#include <sstream>

#include "common_plugin.h"
#include "fuzz_input.h"

namespace {

bool stands_at(const std::string& text, size_t at, const std::string& piece) {
  return piece.size() <= text.size() - at &&
         std::equal(piece.begin(), piece.end(), text.begin() + static_cast<std::ptrdiff_t>(at),
                    [](char p, char t) { return p == '?' || p == t; });
}

// The pieces between the stars are in the text one after another, each as early as possible.
bool matches_by_rule(const std::string& text, const std::string& pattern) {
  std::istringstream stars(pattern);
  size_t at = 0;
  bool first = true;
  for (std::string piece; std::getline(stars, piece, '*'); first = false) {
    // Only the first character is anchored at the start, unless a star comes before it.
    if (first && !piece.empty() && !stands_at(text, 0, piece.substr(0, 1))) return false;
    while (at <= text.size() && !stands_at(text, at, piece)) ++at;
    if (at > text.size()) return false;
    at += piece.size();
  }
  return at == text.size() || (!pattern.empty() && pattern.back() == '*');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const std::string name = input.text(), cmdline = input.rest();
  if (cmdline.empty()) return 0;
  const MemoryFile file(cmdline);
  const auto matches = [&](int flag) {
    return MIRT_Linux_Plugin::check_with_cmdline(file.path().c_str(), name.c_str(), flag);
  };
  char text_buffer[1024];
  MIRT_Linux_Plugin::read_file(file.path().c_str(), text_buffer, sizeof text_buffer, 1);
  MIRT_Linux_Plugin::change_cmdlie_to_str(text_buffer, sizeof text_buffer);
  const std::string text = text_buffer;
  FUZZ_CHECK(matches(kMatchExact) == (text == name));
  FUZZ_CHECK(matches(kMatchPrefix) == (text.compare(0, name.size(), name) == 0));
  FUZZ_CHECK(matches(kMatchWildcard) == matches_by_rule(text, name));
  return 0;
}
