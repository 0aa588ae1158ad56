// Writes log records as lines to standard error, with time and level, or for the journal with the
// priority that it understands.
#ifndef MONITOR_LOG_LINES_H
#define MONITOR_LOG_LINES_H

#include <initializer_list>
#include <string>
#include <string_view>

#include "text/line_queue.h"

// Writes later records of the platform's log to standard error in the monitor's format.
void log_as_lines();

// Sends later log lines through this queue, so that no thread waits for the reader of standard
// error. Null restores the initial state: lines are written directly. The queue must outlive every
// item call.
void log_through(LineQueue* queue);

// Logs one line of the monitor, on any thread. `level` is a level name of the platform's log:
// "warning".
void log_line(const char* level, const std::string& text);

// The same, where nothing may be thrown. If there is no memory, the line counts as lost.
void log_parts(const char* level, std::initializer_list<std::string_view> parts) noexcept;

// The line about lost log lines.
std::string log_loss_text(const LineQueue::Loss& loss);

#endif
