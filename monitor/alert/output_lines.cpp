#include "alert/output_lines.h"

#include <algorithm>

#include "text/log_lines.h"

void OutputLines::add(std::string_view text) {
  while (!text.empty() && !is_cut_) {
    if (bytes_left_ == 0 || lines_left_ == 0) return cut();
    const size_t newline = text.find('\n');
    const size_t length = std::min({newline, text.size(), bytes_left_});
    line_ += text.substr(0, length);
    text.remove_prefix(length);
    bytes_left_ -= length;
    if (length != newline) continue;
    text.remove_prefix(1);
    end_line();
  }
}

void OutputLines::finish() {
  if (!line_.empty()) end_line();
}

void OutputLines::end_line() {
  log_line("event", "alert " + alert_ + " output: " + line_);
  line_.clear();
  if (bytes_left_ > 0) --bytes_left_;  // for the newline: empty lines count too
  --lines_left_;
}

void OutputLines::cut() {
  finish();
  is_cut_ = true;
  log_line("warning", "alert " + alert_ + ": more output discarded");
}
