// The matcher in its three modes, its wildcard mode beside the rules written out step by step.
#include <cstring>

#include "common_plugin.h"
#include "fuzz_input.h"

namespace {

bool matches_by_rule(const std::string& text, const std::string& pattern) {
  size_t p1 = 0, p2 = 0, mark = 0;
  while (p1 < text.size() && p2 < pattern.size()) {
    if (pattern[p2] == '*') {
      mark = ++p2;
    } else if (pattern[p2] == '?' || text[p1] == pattern[p2]) {
      ++p1;
      ++p2;
    } else if (p1 == 0 && p2 == 0) {
      return false;
    } else {
      p1 = p1 - (p2 - mark) + 1;
      p2 = mark;
    }
  }
  if (p2 == pattern.size()) {
    return p1 == text.size() || (!pattern.empty() && pattern.back() == '*');
  }
  return pattern.find_first_not_of('*', p2) == std::string::npos;
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
