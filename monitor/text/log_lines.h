// Log records as lines on standard error.
#ifndef MONITOR_LOG_LINES_H
#define MONITOR_LOG_LINES_H

#include <string>

#include "text/line_queue.h"

// From here on the records of the platform's log go to standard error in the monitor's own form.
void log_as_lines();

// From here on log lines go through this queue, so that nobody waits for the reader of standard
// error; with null they are written at once, as at first. The queue must outlive every item call.
void log_through(LineQueue* queue);

// One line of the monitor's own, on any thread. `level` as the platform's log has it: "warning".
void log_line(const char* level, const std::string& text);

// The line that tells of log lines that were lost.
std::string log_loss_text(const LineQueue::Loss& loss);

#endif
