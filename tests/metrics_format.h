// The text format of Prometheus, read, and checked with its own tool.
#ifndef METRICS_FORMAT_H
#define METRICS_FORMAT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "captured_log.h"
#include "child.h"

#define SKIP_WITHOUT_PROMTOOL() \
  if (system("promtool --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "needs promtool"

inline void expect_no_complaint(const std::string& text) {
  const TemporaryFolder in;
  write_file(in / "text", text);
  EXPECT_EQ(system(("cd " + in.path() + " && promtool check metrics <text >said 2>&1").c_str()), 0);
  EXPECT_EQ(read_file(in / "said"), "");
}

// "name{labels}" with the value, as written.
inline std::map<std::string, double> series_of(const std::string& text) {
  std::map<std::string, double> all;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.front() == '#') continue;
    const size_t blank = line.rfind(' ');
    EXPECT_TRUE(all.emplace(line.substr(0, blank), std::stod(line.substr(blank))).second) << line;
  }
  return all;
}

// The value of a series that must be there.
inline double value_of(const std::string& series, const std::map<std::string, double>& all) {
  const auto found = all.find(series);
  if (found != all.end()) return found->second;
  ADD_FAILURE() << "there is no " << series;
  return -1.0;
}

#endif
