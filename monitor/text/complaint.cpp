#include "text/complaint.h"

#include <cstdio>
#include <cstring>

#include "service/journal.h"
#include "text/terminal_text.h"

void complain(const std::string& text) {
  complain_plainly("mirt-monitor: " + printable(text));
}

void complain_plainly(const std::string& line) {
  std::fprintf(stderr, "%s%s\n", line_priority(Priority::kError).c_str(), line.c_str());
}

std::string output_trouble(int error) {
  return std::string("cannot write standard output: ") + std::strerror(error);
}

void complain_of_output(int error) {
  complain(output_trouble(error));
}
