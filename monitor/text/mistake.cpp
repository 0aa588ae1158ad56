#include "text/mistake.h"

#include "text/terminal_text.h"

std::string mistake_text(const std::string& path, const Mistake& mistake) {
  const std::string line = mistake.line == 0 ? "" : ":" + std::to_string(mistake.line);
  return printable(path + line + ": " + mistake.text);
}
