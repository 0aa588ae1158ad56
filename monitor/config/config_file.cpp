#include "config/config_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "proc/spare_memory.h"
#include "proc/unique_fd.h"

namespace {

// No configuration is this large. The limit keeps an endless device from filling the memory.
constexpr size_t kMostBytes = size_t{16} * 1024 * 1024;

// What the reader of TOML needs, estimated generously.
constexpr size_t kMemoryForReading = size_t{1} << 20, kMemoryForByte = 64;

const char* kind_of_file(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "a directory";
    case S_IFIFO:
      return "a named pipe";
    default:
      return "a device or socket";
  }
}

std::string system_error() {
  return std::string("cannot be read: ") + std::strerror(errno);
}

// Why the open file must not be read as a configuration; empty if it may be read.
std::string obstacle(const struct stat& about, const std::string& path, Trust trust) {
  if (names_descriptor(path) && !S_ISDIR(about.st_mode)) return "";
  if (!S_ISREG(about.st_mode)) {
    return std::string("is ") + kind_of_file(about.st_mode) +
           ", expected a regular file, /dev/stdin or /dev/fd/N";
  }
  return trust == Trust::kChecked ? distrust(about, path) : "";
}

// The bytes of the file; nothing, with errno set, if it cannot be read.
std::optional<std::string> read_whole(const UniqueFd& file) {
  std::string text;
  char piece[4096];
  for (;;) {
    const ssize_t got = read(file.get(), piece, sizeof piece);
    if (got == 0) return text;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    text.append(piece, static_cast<size_t>(got));
    if (text.size() <= kMostBytes) continue;
    errno = EFBIG;
    return std::nullopt;
  }
}

}  // namespace

bool names_descriptor(const std::string& path) {
  return path == "/dev/stdin" || path.compare(0, 8, "/dev/fd/") == 0 ||
         path.compare(0, 14, "/proc/self/fd/") == 0;
}

std::optional<ConfigFile> read_config_file(const std::string& path, Trust trust,
                                           std::string& error) {
  // Without O_NONBLOCK, open() waits until another process opens the pipe for writing.
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat about {};
  if (file.get() < 0 || fstat(file.get(), &about) != 0) {
    error = system_error();
    return std::nullopt;
  }
  error = obstacle(about, path, trust);
  if (!error.empty()) return std::nullopt;
  fcntl(file.get(), F_SETFL, O_RDONLY);
  std::optional<std::string> text = read_whole(file);
  if (!text) {
    error = system_error();
    return std::nullopt;
  }
  // The reader of TOML ends the program if it gets no memory in the middle of its work.
  if (!memory_is_there_for(kMemoryForReading + text->size() * kMemoryForByte)) {
    throw std::bad_alloc();
  }
  return ConfigFile{std::move(*text), {about.st_dev, about.st_ino}};
}
