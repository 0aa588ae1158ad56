// Parts of messages about unknown words.
#ifndef MONITOR_WORDING_H
#define MONITOR_WORDING_H

#include <string>
#include <string_view>
#include <vector>

// The candidate with the fewest edits to `word`; empty if even that one differs in more than a
// third of its letters.
std::string_view nearest(std::string_view word, const std::vector<std::string_view>& candidates);

// ", did you mean "period"?" or empty: the end of a message about an unknown word.
std::string did_you_mean(std::string_view word, const std::vector<std::string_view>& candidates);

// The same, but lists all candidates if none is similar: ", expected one of name, period".
std::string expected_one_of(std::string_view word, const std::vector<std::string_view>& candidates);

// The text in quotation marks.
std::string in_quotes(std::string_view text);

// The words, separated by commas.
std::string joined(const std::vector<std::string_view>& words);

#endif
