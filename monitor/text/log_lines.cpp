#include "text/log_lines.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <exception>

#include "kelv_log.h"
#include "service/journal.h"
#include "text/clock_text.h"
#include "text/terminal_text.h"

namespace {

std::atomic<LineQueue*> log_queue{nullptr};

// The journal keeps time and level itself.
std::string log_text(const char* level, const std::string& text) {
  if (is_in_journal()) return line_priority(level) + printable(text);
  return for_people(std::chrono::system_clock::now()) + "  " + level + "  " + printable(text);
}

void write_log(std::string line, LineQueue::Weight weight) {
  if (LineQueue* const queue = log_queue) {
    queue->push(std::move(line), weight);
    return;
  }
  line += '\n';
  // One write() per line, so that lines of several threads do not mix.
  ssize_t written;
  do written = write(STDERR_FILENO, line.data(), line.size());
  while (written < 0 && errno == EINTR);
}

// Out of memory.
void lose_line(LineQueue::Weight weight) noexcept {
  if (LineQueue* const queue = log_queue) return queue->count_lost(weight);
  constexpr std::string_view kText = "mirt-monitor: out of memory, a line is lost\n";
  if (write(STDERR_FILENO, kText.data(), kText.size()) < 0) return;  // nobody else can be told
}

// "424 process_status.cpp:70 print_proc_status_info: Pid 1 Tid 2 is D status. ..." Called from C,
// so it must not throw.
void write_record(const KELV_LOG_RECORD_S* record) try {
  const std::string text = std::to_string(record->module) + " " + record->file + ":" +
                           std::to_string(record->line) + " " + record->function + ": " +
                           record->text;
  write_log(log_text(kelvlog_level_name(record->level), text), LineQueue::Weight::kOrdinary);
} catch (...) {
  lose_line(LineQueue::Weight::kOrdinary);
}

}  // namespace

void log_as_lines() {
  kelvlog_set_sink(write_record);
}

void log_through(LineQueue* queue) {
  log_queue = queue;
}

void log_line(const char* level, const std::string& text) {
  write_log(log_text(level, text), LineQueue::Weight::kLasting);
}

void log_parts(const char* level, std::initializer_list<std::string_view> parts) noexcept try {
  std::string text;
  for (const std::string_view part : parts) text += part;
  log_line(level, text);
} catch (const std::exception&) {
  lose_line(LineQueue::Weight::kLasting);
}

std::string log_loss_text(const LineQueue::Loss& loss) {
  return log_text("warning",
                  std::to_string(loss.ordinary + loss.lasting) +
                      " log lines lost: standard error was not read, or memory was short");
}
