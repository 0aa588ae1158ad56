#include "text/end_text.h"

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>

std::string duration_text(std::chrono::milliseconds duration) {
  const long long ms = std::max<long long>(duration.count(), 0);
  const long long s = ms / 1000;
  if (s < 10) return std::to_string(s) + "." + std::to_string(ms % 1000 / 100) + " s";
  if (s < 60) return std::to_string(s) + " s";
  if (s < 3600) return std::to_string(s / 60) + " min " + std::to_string(s % 60) + " s";
  const long long h = s / 3600;
  if (h < 24) return std::to_string(h) + " h " + std::to_string(s / 60 % 60) + " min";
  return std::to_string(h / 24) + " d " + std::to_string(h % 24) + " h";
}

std::string seconds_text(std::chrono::duration<double> duration) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", duration.count());
  return text;
}

std::string wait_status_text(int status) {
  if (WIFEXITED(status)) return "exited with status " + std::to_string(WEXITSTATUS(status));
  return "killed by signal " + std::to_string(WTERMSIG(status)) +
         (WCOREDUMP(status) ? " (core dumped)" : "");
}

std::string end_text(const ProcessEnd& end) {
  return (end.status ? wait_status_text(*end.status) : "ended") + " after " +
         duration_text(end.ran);
}
