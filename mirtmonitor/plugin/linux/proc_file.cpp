#include "proc_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

bool LineReader::next(char* line, size_t limit) noexcept {
  if (limit == 0 || (begin_ == end_ && !refill(At::kLineStart))) return false;
  size_t length = 0;
  do {
    const size_t room = std::min(limit - 1 - length, end_ - begin_);
    const void* newline = memchr(buffer_ + begin_, '\n', room);
    const size_t copied =
        newline ? static_cast<size_t>(static_cast<const char*>(newline) - buffer_) + 1 - begin_
                : room;
    memcpy(line + length, buffer_ + begin_, copied);
    begin_ += copied;
    length += copied;
    if (newline) break;
  } while (length + 1 < limit && (begin_ < end_ || refill(At::kInsideLine)));
  line[length] = '\0';
  return true;
}

bool LineReader::next_with(const char* key, char* line, size_t limit) noexcept {
  skip_to(key);
  while (next(line, limit)) {
    if (strstr(line, key) != nullptr) return true;
  }
  return false;
}

// Skips the lines before the one that contains the key, if that line is in the buffer. If a NUL
// comes first, nothing is skipped and next_with() checks every line.
void LineReader::skip_to(const char* key) noexcept {
  if (begin_ == end_ && !refill(At::kLineStart)) return;
  buffer_[end_] = '\0';
  const char* const unread = buffer_ + begin_;
  const char* const found = strstr(unread, key);
  if (found == nullptr) return;
  const void* const newline = memrchr(unread, '\n', static_cast<size_t>(found - unread));
  if (newline != nullptr) {
    begin_ = static_cast<size_t>(static_cast<const char*>(newline) + 1 - buffer_);
  }
}

bool LineReader::refill(At position) noexcept {
  // One read() returns a whole command line, which ends in a NUL. So a short read that ends in a
  // NUL inside a line is the end of the file; another read() would cost one system call per
  // process.
  if (drained_ || (position == At::kInsideLine && whole_cmdline_)) return false;
  ssize_t got;
  do {
    got = read(file_.get(), buffer_, kBufferSize);
  } while (got < 0 && errno == EINTR);
  drained_ = got <= 0;
  begin_ = 0;
  end_ = got > 0 ? static_cast<size_t>(got) : 0;
  whole_cmdline_ = 0 < end_ && end_ < kBufferSize && buffer_[end_ - 1] == '\0';
  return end_ > 0;
}

namespace {

bool is_dot_or_dotdot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

const char* SubdirectoryReader::next() noexcept {
  while (const dirent* entry = readdir(directory_)) {
    if (entry->d_type == DT_DIR && !is_dot_or_dotdot(entry->d_name)) return entry->d_name;
  }
  return nullptr;
}
