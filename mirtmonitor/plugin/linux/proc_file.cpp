#include "proc_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

bool LineReader::next(char* line, size_t limit) noexcept {
  if (limit == 0 || (begin_ == end_ && !refill(At::kLineStart))) return false;
  size_t length = 0;
  do {
    const size_t room = std::min(limit - 1 - length, end_ - begin_);
    const void* after = memccpy(line + length, buffer_ + begin_, '\n', room);
    const size_t copied =
        after ? static_cast<size_t>(static_cast<const char*>(after) - line) - length : room;
    begin_ += copied;
    length += copied;
    if (after) break;
  } while (length + 1 < limit && (begin_ < end_ || refill(At::kInsideLine)));
  line[length] = '\0';
  return true;
}

bool LineReader::refill(At position) noexcept {
  // The kernel hands out whole lines, so a short read that ends inside a line is the end of the
  // file: asking once more would cost a system call per process. At a line's end it may only be the
  // end of what the kernel had ready.
  if (drained_ || (short_read_ && position == At::kInsideLine)) return false;
  ssize_t got;
  do {
    got = read(file_.get(), buffer_, sizeof buffer_);
  } while (got < 0 && errno == EINTR);
  short_read_ = got < static_cast<ssize_t>(sizeof buffer_);
  drained_ = got <= 0;
  begin_ = 0;
  end_ = got > 0 ? static_cast<size_t>(got) : 0;
  return end_ > 0;
}

const char* SubdirectoryReader::next() noexcept {
  while (const dirent* entry = readdir(directory_)) {
    if (entry->d_type != DT_DIR) continue;
    if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) return entry->d_name;
  }
  return nullptr;
}
