#include "text/complaint.h"

#include <cstdio>
#include <cstring>

#include "text/terminal_text.h"

void complain(const std::string& text) {
  std::fprintf(stderr, "mirt-monitor: %s\n", printable(text).c_str());
}

void complain_of_output(int error) {
  complain(std::string("cannot write standard output: ") + std::strerror(error));
}
