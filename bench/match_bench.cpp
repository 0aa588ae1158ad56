// Wildcard patterns that would make a careless matcher slow.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "bare_calls.h"
#include "common_plugin.h"
#include "paired.h"

namespace {

constexpr size_t kTextSize = 1022;  // the longest that is compared

// A file that holds the longest command line of one repeated letter.
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
  if (match(pattern)) return state.SkipWithError("a pattern matched that must not");
  paired(
      state, [&] { benchmark::DoNotOptimize(match(pattern)); }, [&] { floor(match); });
}

// 198 stars, each with a letter that the text is full of, and an end that it lacks. A matcher that
// goes back to every star tries more ways than there are atoms; ours costs what "a*b" costs.
void PatternManyStars(benchmark::State& state) {
  std::string pattern;
  while (pattern.size() < 396) pattern += "*a";
  pattern_row(state, pattern + "*b",
              [](const auto& match) { benchmark::DoNotOptimize(match(std::string("a*b"))); });
}
PAIRED_ROW(PatternManyStars);

// The worst case of one star: each try goes wrong at its last letter. Beside as many comparisons of
// single bytes as the text's length times the pattern's, the bound of all patterns.
void PatternLateMismatch(benchmark::State& state) {
  const std::string pattern = "*" + std::string(397, 'a') + "b";
  pattern_row(state, pattern, [&pattern](const auto&) {
    const std::string text(kTextSize, 'a');
    size_t equal = 0;
    for (size_t from = 0; from < text.size(); ++from) {
      for (size_t i = 0; i < pattern.size(); ++i) {
        // Kept from being vectorised: one comparison a step.
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
