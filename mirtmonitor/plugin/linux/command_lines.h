// The command lines that one walk has read, for many searches.
#ifndef COMMAND_LINES_H
#define COMMAND_LINES_H

#include <sys/types.h>

#include <cstddef>

#include "common_plugin.h"

// A name and a mode (kMatch...), prepared for the comparison with many command lines.
class CommandLinePattern {
 public:
  CommandLinePattern(const char* name, int mode) noexcept;

  // Every line that matches contains this text. It has no wildcards and can be empty.
  const char* literal() const noexcept { return literal_; }
  size_t literal_size() const noexcept { return literal_size_; }
  bool matches(const char* line) const noexcept;

 private:
  const char* name_;
  size_t name_size_;
  int mode_;
  const char* literal_;
  size_t literal_size_;
};

// MIRT_Linux_Plugin::str_fuzzy_match() for non-null arguments.
bool matches_wildcard(const char* text, const char* pattern) noexcept;

class CommandLines {
 public:
  CommandLines() = default;
  CommandLines& operator=(CommandLines&&) = delete;  // neither copied nor moved
  ~CommandLines();

  // Returns false if memory is short.
  bool add(pid_t pid, const char* text) noexcept;

  // Calls visit(pid) for every line that matches, in the order of the walk, until visit returns
  // false. One search over the text of all lines finds the few lines that can match.
  template <typename Visit>
  void for_each_match(const char* name, int mode, Visit visit) const {
    const CommandLinePattern pattern(name, mode);
    for (size_t line = next_candidate(pattern, 0); line < count_;
         line = next_candidate(pattern, line + 1)) {
      if (pattern.matches(text_ + lines_[line].begin) && !visit(lines_[line].pid)) return;
    }
  }

 private:
  struct Line {
    size_t begin;
    pid_t pid;
  };
  size_t next_candidate(const CommandLinePattern& pattern, size_t from) const noexcept;

  char* text_ = nullptr;  // all lines, each with its NUL
  size_t text_size_ = 0, text_room_ = 0;
  Line* lines_ = nullptr;
  size_t count_ = 0, line_room_ = 0;
};

#endif
