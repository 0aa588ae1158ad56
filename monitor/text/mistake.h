// The mistakes of a configuration.
#ifndef MONITOR_MISTAKE_H
#define MONITOR_MISTAKE_H

#include <string>
#include <vector>

struct Mistake {
  unsigned line;       // 0: the file as a whole
  std::string text;    // what was found, what was expected
  std::string file{};  // in which it is; empty: the one that was asked for
};

using Mistakes = std::vector<Mistake>;

// All mistakes and warnings. A warning is about a setting that works, but probably not as intended.
struct Findings {
  Mistakes mistakes;
  Mistakes warnings;
};

// The file that was asked for comes first, then the others by their names.
void sort_by_place(Mistakes& mistakes);

// "FILE:LINE: text", or "FILE: text" for a mistake without a line; `path` is the file that was
// asked for.
std::string mistake_text(const std::string& path, const Mistake& mistake);

// A line for each finding in the order of the file: mistakes as above, warnings as
// "FILE:LINE: warning: text".
std::vector<std::string> findings_text(const std::string& path, const Findings& findings);

#endif
