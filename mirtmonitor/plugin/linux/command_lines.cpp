#include "command_lines.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

CommandLinePattern::CommandLinePattern(const char* name, int mode) noexcept
    : name_(name),
      name_size_(strlen(name)),
      mode_(mode),
      literal_(name),
      literal_size_(name_size_) {
  if (mode != kMatchWildcard) return;
  // A match contains each run of characters between two wildcards unchanged.
  literal_size_ = 0;
  for (const char* run = name; *run != '\0';) {
    const size_t size = strcspn(run, "*?");
    if (size > literal_size_) {
      literal_ = run;
      literal_size_ = size;
    }
    run += size;
    run += strspn(run, "*?");
  }
}

bool CommandLinePattern::matches(const char* line) const noexcept {
  switch (mode_) {
    case kMatchPrefix:
      return strncmp(line, name_, name_size_) == 0;
    case kMatchWildcard:
      return matches_wildcard(line, name_);
    default:
      return strcmp(line, name_) == 0;
  }
}

bool matches_wildcard(const char* text, const char* pattern) noexcept {
  size_t p1 = 0, p2 = 0;
  size_t mark = 0;  // just after the last '*'; the match before it is final
  while (text[p1] != '\0' && pattern[p2] != '\0') {
    if (pattern[p2] == '*') {
      mark = ++p2;
    } else if (pattern[p2] == '?' || pattern[p2] == text[p1]) {
      ++p1;
      ++p2;
    } else if (p1 == 0 && p2 == 0) {
      return false;
    } else {
      // Try again from the mark, one character after the start of the last attempt. Starts with a
      // wrong first character are skipped.
      p1 = p1 - (p2 - mark) + 1;
      p2 = mark;
      if (pattern[p2] != '?') {
        while (text[p1] != '\0' && text[p1] != pattern[p2]) ++p1;
      }
    }
  }
  if (pattern[p2] == '\0') return text[p1] == '\0' || (p2 > 0 && pattern[p2 - 1] == '*');
  while (pattern[p2] == '*') ++p2;
  return pattern[p2] == '\0';
}

CommandLines::~CommandLines() {
  free(text_);
  free(lines_);
}

namespace {

// Grows an array to at least `needed` records. Returns false, with the array unchanged, if memory
// is short.
template <typename Record>
bool make_room(Record*& array, size_t& room, size_t needed) noexcept {
  if (needed <= room) return true;
  const size_t wanted = std::max(needed, room * 2);
  auto* const grown = static_cast<Record*>(realloc(array, wanted * sizeof(Record)));
  if (grown == nullptr) return false;
  array = grown;
  room = wanted;
  return true;
}

}  // namespace

bool CommandLines::add(pid_t pid, const char* text) noexcept {
  constexpr size_t kFirstText = 16384, kFirstLines = 512;
  const size_t size = strlen(text) + 1;
  if (!make_room(text_, text_room_, std::max(text_size_ + size, kFirstText)) ||
      !make_room(lines_, line_room_, std::max(count_ + 1, kFirstLines))) {
    return false;
  }
  lines_[count_++] = Line{text_size_, pid};
  memcpy(text_ + text_size_, text, size);
  text_size_ += size;
  return true;
}

// Returns the first line from index `from` on that contains the pattern's literal text, or count_.
size_t CommandLines::next_candidate(const CommandLinePattern& pattern, size_t from) const noexcept {
  if (from >= count_ || pattern.literal_size() == 0) return from;
  const char* const unread = text_ + lines_[from].begin;
  const void* const found = memmem(unread, static_cast<size_t>(text_ + text_size_ - unread),
                                   pattern.literal(), pattern.literal_size());
  if (found == nullptr) return count_;
  const auto at = static_cast<size_t>(static_cast<const char*>(found) - text_);
  const Line* const after =
      std::upper_bound(lines_ + from, lines_ + count_, at,
                       [](size_t offset, const Line& line) { return offset < line.begin; });
  return static_cast<size_t>(after - lines_) - 1;
}
