#include "text/complaint.h"

#include <cstdio>
#include <cstring>

#include "text/terminal_text.h"

void complain(const std::string& text) {
  std::fprintf(stderr, "mirt-monitor: %s\n", printable(text).c_str());
}

std::string output_trouble(int error) {
  return std::string("cannot write standard output: ") + std::strerror(error);
}

void complain_of_output(int error) {
  complain(output_trouble(error));
}
