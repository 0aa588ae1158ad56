#include "proc/proc_file.h"

#include <algorithm>
#include <cerrno>

#include "proc/unique_fd.h"

std::optional<std::string> read_proc_file(const std::string& path, size_t most) {
  const UniqueFd file = open_to_read(path.c_str());
  if (file.get() < 0) return std::nullopt;
  std::string text;
  char piece[4096];
  while (text.size() < most) {
    const ssize_t got = read(file.get(), piece, std::min(sizeof piece, most - text.size()));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    text.append(piece, static_cast<size_t>(got));
  }
  return text;
}

std::string proc_path(int id, const char* file) {
  return "/proc/" + std::to_string(id) + "/" + file;
}

std::optional<std::string> status_value(int id, const std::string& key) {
  const std::optional<std::string> status = read_proc_file(proc_path(id, "status"));
  if (!status) return std::nullopt;
  const std::string beginning = "\n" + key + ":\t";
  // The first line, "Name:", has no newline before it.
  const std::string text = "\n" + *status;
  const size_t line = text.find(beginning);
  if (line == std::string::npos) return std::nullopt;
  const size_t value = line + beginning.size();
  return text.substr(value, text.find('\n', value) - value);
}

std::string name_of_process(int id) {
  std::string name = read_proc_file(proc_path(id, "comm")).value_or("");
  if (!name.empty() && name.back() == '\n') name.pop_back();
  return name;
}
