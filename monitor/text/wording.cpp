#include "text/wording.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace {

bool same_letter(char a, char b) {
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

// The number of insertions, deletions, replacements and swaps of neighbours between the two words,
// ignoring case.
size_t edit_distance(std::string_view a, std::string_view b) {
  std::vector<size_t> before_last, last, row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 1; i <= a.size(); ++i) {
    before_last = std::exchange(last, row);
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t replaced = last[j - 1] + (same_letter(a[i - 1], b[j - 1]) ? 0 : 1);
      row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
      if (i > 1 && j > 1 && same_letter(a[i - 1], b[j - 2]) && same_letter(a[i - 2], b[j - 1])) {
        row[j] = std::min(row[j], before_last[j - 2] + 1);
      }
    }
  }
  return row.back();
}

}  // namespace

std::string_view nearest(std::string_view word, const std::vector<std::string_view>& candidates) {
  constexpr size_t kLongestWord = 64;  // a longer word is not a misspelt name
  std::string_view best;
  size_t best_distance = kLongestWord;
  if (word.size() > kLongestWord) return best;
  for (const std::string_view candidate : candidates) {
    const size_t distance = edit_distance(word, candidate);
    if (distance < best_distance && distance * 3 <= candidate.size()) {
      best = candidate;
      best_distance = distance;
    }
  }
  return best;
}

std::string did_you_mean(std::string_view word, const std::vector<std::string_view>& candidates) {
  const std::string_view guess = nearest(word, candidates);
  if (guess.empty()) return "";
  return ", did you mean " + in_quotes(guess) + "?";
}

std::string expected_one_of(std::string_view word,
                            const std::vector<std::string_view>& candidates) {
  const std::string hint = did_you_mean(word, candidates);
  return hint.empty() ? ", expected one of " + joined(candidates) : hint;
}

std::string in_quotes(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

std::string joined(const std::vector<std::string_view>& words) {
  std::string text;
  for (const std::string_view word : words) text += (text.empty() ? "" : ", ") + std::string(word);
  return text;
}
