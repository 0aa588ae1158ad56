#include "kelv_log.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

// Longer records are truncated. The buffer is on the stack, so that a program can log when it is
// out of memory.
constexpr size_t kMaxLine = 4096;

std::atomic<kelvlog_sink_t> g_sink{nullptr};

void write_whole(const char* text, size_t length) {
  while (length > 0) {
    const ssize_t written = write(STDERR_FILENO, text, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;  // standard error is closed; there is nowhere to report that
    text += written;
    length -= static_cast<size_t>(written);
  }
}

// One write() per line, so that lines of several threads and processes do not mix.
void write_to_stderr(const KELV_LOG_RECORD_S& record) {
  char line[kMaxLine + 256];
  const int length =
      snprintf(line, sizeof line, "[%s] %u %s:%d %s: %s\n", kelvlog_level_name(record.level),
               record.module, record.file, record.line, record.function, record.text);
  if (length < 0) return;
  const size_t used = std::min(static_cast<size_t>(length), sizeof line - 1);
  line[used - 1] = '\n';  // needed only if the record was truncated
  write_whole(line, used);
}

}  // namespace

const char* kelvlog_level_name(int level) {
  switch (level) {
    case DBG_LOG_ERROR:
      return "error";
    case DBG_LOG_WARNING:
      return "warning";
    case DBG_LOG_EVENT:
      return "event";
    case DBG_LOG_INFO:
      return "info";
    case DBG_LOG_DEBUG:
      return "debug";
    default:
      return "level";
  }
}

void kelvlog_set_sink(kelvlog_sink_t sink) {
  g_sink.store(sink);
}

void kelvlog(unsigned int module, int level, const char* file, int line, const char* function,
             int /*reserved*/, const char* format, ...) {
  const int saved_errno = errno;  // a caller may read errno after it logs
  char text[kMaxLine];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (length < 0) text[0] = '\0';
  std::replace_if(
      text, text + strlen(text), [](char c) { return c == '\n' || c == '\r'; }, ' ');

  const KELV_LOG_RECORD_S record{module, level, file ? file : "", line, function ? function : "",
                                 text};
  if (const kelvlog_sink_t sink = g_sink.load()) {
    sink(&record);
  } else {
    write_to_stderr(record);
  }
  errno = saved_errno;
}
