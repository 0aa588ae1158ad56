// What is wrong with a configuration file.
#ifndef MONITOR_MISTAKE_H
#define MONITOR_MISTAKE_H

#include <string>
#include <vector>

struct Mistake {
  unsigned line;     // 0: the file as a whole
  std::string text;  // what was found, what was expected
};

using Mistakes = std::vector<Mistake>;

// "FILE:LINE: text", or "FILE: text" where no line is to blame.
std::string mistake_text(const std::string& path, const Mistake& mistake);

#endif
