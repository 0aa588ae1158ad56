// Copies a command's output to the log.
#ifndef MONITOR_OUTPUT_LINES_H
#define MONITOR_OUTPUT_LINES_H

#include <cstddef>
#include <string>
#include <string_view>

#include "alert/alert_message.h"

// Splits text into lines and logs each with the alert's name, up to the limits of one run. Logs
// once that there was more.
class OutputLines {
 public:
  OutputLines(std::string alert, const AlertLimits& limits)
      : alert_(std::move(alert)),
        bytes_left_(limits.most_output_bytes),
        lines_left_(limits.most_output_lines) {}

  // The text may end in the middle of a line.
  void add(std::string_view text);
  // Logs the last line if it is incomplete.
  void finish();
  // True after the output exceeded the limits; nothing more is logged.
  bool is_cut() const { return is_cut_; }

 private:
  void end_line();
  void cut();

  const std::string alert_;
  size_t bytes_left_, lines_left_;
  std::string line_;
  bool is_cut_ = false;
};

#endif
