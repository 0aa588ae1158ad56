// Wildcard patterns that are slow in a simple matcher.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "bare_calls.h"
#include "common_plugin.h"
#include "paired.h"

namespace {

constexpr size_t kTextSize = 1022;  // the longest text that the matcher compares

// A file with a command line of maximum length that repeats one letter.
class LongCommandLine {
 public:
  LongCommandLine() {
    const int fd = mkstemp(path_);
    if (fd < 0) return;
    const std::string text(kTextSize, 'a');
    ready_ = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
  }
  LongCommandLine(const LongCommandLine&) = delete;
  LongCommandLine& operator=(const LongCommandLine&) = delete;
  ~LongCommandLine() { unlink(path_); }
  bool ready() const { return ready_; }
  const char* path() const { return path_; }

 private:
  char path_[32] = "/tmp/mirt-bench-XXXXXX";
  bool ready_ = false;
};

template <typename Floor>
void pattern_row(benchmark::State& state, const std::string& pattern, Floor floor) {
  const LongCommandLine file;
  if (!file.ready()) return state.SkipWithError("no temporary file");
  const auto match = [&](const std::string& wanted) {
    return MIRT_Linux_Plugin::check_with_cmdline(file.path(), wanted.c_str(), kMatchWildcard);
  };
  if (match(pattern)) return state.SkipWithError("a pattern matched, expected no match");
  paired(
      state, [&] { benchmark::DoNotOptimize(match(pattern)); }, [&] { floor(match); });
}

// 198 stars, each before the letter of the text, and an end that the text does not contain. A
// matcher that backtracks to every star needs exponential time; ours needs the time of "a*b".
void PatternManyStars(benchmark::State& state) {
  std::string pattern;
  while (pattern.size() < 396) pattern += "*a";
  pattern_row(state, pattern + "*b",
              [](const auto& match) { benchmark::DoNotOptimize(match(std::string("a*b"))); });
}
PAIRED_ROW(PatternManyStars);

// The worst case of one star: each try fails at its last letter. The floor compares single bytes,
// text length times pattern length times, which is the limit for all patterns.
void PatternLateMismatch(benchmark::State& state) {
  const std::string pattern = "*" + std::string(397, 'a') + "b";
  pattern_row(state, pattern, [&pattern](const auto&) {
    const std::string text(kTextSize, 'a');
    size_t equal = 0;
    for (size_t from = 0; from < text.size(); ++from) {
      for (size_t i = 0; i < pattern.size(); ++i) {
        // Prevents vectorisation: one comparison per step.
        char letter = pattern[i];
        benchmark::DoNotOptimize(letter);
        equal += letter == text[from] ? 1 : 0;
      }
    }
    benchmark::DoNotOptimize(equal);
  });
}
PAIRED_ROW(PatternLateMismatch);

}  // namespace
