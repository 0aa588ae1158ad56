#include "text/mistake.h"

#include <algorithm>
#include <tuple>

#include "text/terminal_text.h"

void sort_by_place(Mistakes& mistakes) {
  std::stable_sort(mistakes.begin(), mistakes.end(), [](const Mistake& a, const Mistake& b) {
    return std::tie(a.file, a.line) < std::tie(b.file, b.line);
  });
}

std::string mistake_text(const std::string& path, const Mistake& mistake) {
  const std::string line = mistake.line == 0 ? "" : ":" + std::to_string(mistake.line);
  return printable((mistake.file.empty() ? path : mistake.file) + line + ": " + mistake.text);
}

std::vector<std::string> findings_text(const std::string& path, const Findings& findings) {
  Mistakes all = findings.mistakes;
  for (const Mistake& warning : findings.warnings) {
    all.push_back({warning.line, "warning: " + warning.text, warning.file});
  }
  sort_by_place(all);
  std::vector<std::string> lines;
  for (const Mistake& one : all) lines.push_back(mistake_text(path, one));
  return lines;
}
