#include "text/log_lines.h"

#include <unistd.h>

#include <cerrno>

#include "kelv_log.h"
#include "text/clock_text.h"
#include "text/terminal_text.h"

namespace {

// "424 process_status.cpp:70 print_proc_status_info: Pid 1 Tid 2 is D status. ..." Called from C:
// nothing may be thrown through it.
void write_record(const KELV_LOG_RECORD_S* record) try {
  log_line(kelvlog_level_name(record->level), std::to_string(record->module) + " " + record->file +
                                                  ":" + std::to_string(record->line) + " " +
                                                  record->function + ": " + record->text);
} catch (...) {  // no memory: the record is lost
}

}  // namespace

void log_as_lines() {
  kelvlog_set_sink(write_record);
}

void log_line(const char* level, const std::string& text) {
  const std::string line =
      for_people(std::chrono::system_clock::now()) + "  " + level + "  " + printable(text) + "\n";
  // One write a line, so that lines of several threads do not mix.
  ssize_t written;
  do written = write(STDERR_FILENO, line.data(), line.size());
  while (written < 0 && errno == EINTR);
}
